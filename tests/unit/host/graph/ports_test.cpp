#include "host/graph/ports.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "framework/shared/host_access.hpp"

namespace host {
namespace {

using Fenwa::BlockConfiguration;
using Names = std::vector<std::string>;

class TerminationsTest : public testing::Test {
  protected:
    TerminationsTest() {
        entry_.name = "m";
        entry_.type.value = "Monitor";
        entry_.location = {3, 9};
        block_.add_inport(
            std::make_unique<Fenwa::InPort<int>>("own", Fenwa::datatype_of<int>(), true));
    }

    /// The inputs of a block with these settings, with these messages, each without its
    /// place and the part that is the same for all.
    Terminations read(const BlockConfiguration& settings, const std::string& said = "") {
        Terminations inputs(settings, block_, entry_, diagnostics_);
        std::ostringstream text;
        diagnostics_.print(text, false);
        std::string all = text.str().substr(0, text.str().find("g.toml: "));
        for (const std::string part :
             {"g.toml:3:9: ", "error: the setup of block 'm' (Monitor) gives a wrong setting: ",
              "the setup of block 'm' (Monitor) gives an "})
            for (std::size_t at = 0; (at = all.find(part, at)) != std::string::npos;)
                all.erase(at, part.size());
        EXPECT_EQ(all, said);
        return inputs;
    }

    static PortValue value(const Terminations& terminations, const std::string& name) {
        const Fenwa::InPortInternal* const port = terminations.find(name);
        return port == nullptr ? PortValue{}
                               : value_at(port->datatype(), Fenwa::HostAccess::source(*port));
    }

    BlockEntry entry_;
    Fenwa::Block block_{"m", {}};
    common::Diagnostics diagnostics_{"g.toml"};
};

const char* const bool_type = Fenwa::datatype_path<bool>;

TEST_F(TerminationsTest, AreNoneWithoutTheSettings) {
    EXPECT_EQ(read({}).names(), Names{});
    EXPECT_EQ(read({{"temperature_ok", true}}).names(), Names{});
    EXPECT_EQ(read({{"termination_cfg.inports", {}}, {"termination_cfg.types", {}}}).names(),
              Names{});
}

TEST_F(TerminationsTest, HoldTheirDefaultsInTheirDatatypes) {
    const Terminations inputs =
        read({{"termination_cfg.inports", {"f", "b", "d", "i", "t"}},
              {"termination_cfg.types",
               {Fenwa::datatype_path<float>, bool_type, Fenwa::datatype_path<double>,
                Fenwa::datatype_path<int>, Fenwa::datatype_path<Fenwa::datatype_timersource>}},
              {"termination_cfg.f_def", 0.5},
              {"termination_cfg.b_def", true},
              {"termination_cfg.d_def", 7},
              {"termination_cfg.i_def", -2}});
    EXPECT_EQ(inputs.names(), (Names{"f", "b", "d", "i", "t"}));
    EXPECT_EQ(value(inputs, "f"), PortValue(0.5F));
    EXPECT_EQ(value(inputs, "b"), PortValue(true));
    EXPECT_EQ(value(inputs, "d"), PortValue(7.0));
    EXPECT_EQ(value(inputs, "i"), PortValue(-2));
    EXPECT_EQ(value(inputs, "t"), PortValue(Fenwa::datatype_timersource{}));
    EXPECT_FALSE(inputs.find("f")->triggers());
    EXPECT_EQ(inputs.find("own"), nullptr);
}

TEST_F(TerminationsTest, AreNamedByAPlainStringToo) {
    const Terminations inputs =
        read({{"termination_cfg.inports", BlockConfiguration::Value(std::string("b"))},
              {"termination_cfg.types", BlockConfiguration::Value(std::string(bool_type))},
              {"termination_cfg.b_def", true}});
    EXPECT_EQ(value(inputs, "b"), PortValue(true));
}

TEST_F(TerminationsTest, WithoutDefaultStartWithTheTypesFirstValue) {
    const Terminations inputs =
        read({{"termination_cfg.inports", {"b"}}, {"termination_cfg.types", {bool_type}}},
             "warning: incomplete setting: 'termination_cfg.b_def' is missing, so the input "
             "'b' starts with false\n");
    EXPECT_EQ(value(inputs, "b"), PortValue(false));
}

TEST_F(TerminationsTest, NeedListsOfTheSameLength) {
    read({{"termination_cfg.types", {bool_type}}},
         "'termination_cfg.inports' has 0 names, but 'termination_cfg.types' has 1 type\n");
}

TEST_F(TerminationsTest, NeedLists) {
    read({{"termination_cfg.inports", {"b"}}, {"termination_cfg.types", 5}},
         "the key 'termination_cfg.types' must be a list of strings, not the integer 5\n");
}

TEST_F(TerminationsTest, NeedNamesThatAreFree) {
    const Terminations inputs =
        read({{"termination_cfg.inports", {"b", "", "a.b", "own", "b"}},
              {"termination_cfg.types", {bool_type, bool_type, bool_type, bool_type, bool_type}},
              {"termination_cfg.b_def", true}},
             "'' in 'termination_cfg.inports' is not a valid port name\n"
             "'a.b' in 'termination_cfg.inports' is not a valid port name\n"
             "the block already has an input 'own'\n"
             "'b' is listed twice in 'termination_cfg.inports'\n");
    EXPECT_EQ(inputs.names(), Names{"b"});
}

TEST_F(TerminationsTest, NeedDatatypesThatTheHostKnows) {
    const Terminations inputs =
        read({{"termination_cfg.inports", {"b", "p"}},
              {"termination_cfg.types", {"/prefix/well-known.b/boll", ""}},
              {"termination_cfg.b_def", true}},
             "the input 'b' is of the unknown datatype '/prefix/well-known.b/boll'\n"
             "help: did you mean '/prefix/well-known.b/bool'?\n"
             "the input 'p' is of the unknown datatype ''\n");
    // Connections to them are checked all the same.
    EXPECT_EQ(inputs.names(), (Names{"b", "p"}));
}

TEST_F(TerminationsTest, NeedDefaultsOfTheirDatatypes) {
    read({{"termination_cfg.inports", {"b", "i", "d", "t"}},
          {"termination_cfg.types",
           {bool_type, Fenwa::datatype_path<int>, Fenwa::datatype_path<double>,
            Fenwa::datatype_path<Fenwa::datatype_timersource>}},
          {"termination_cfg.b_def", 0},
          {"termination_cfg.i_def", 1.5},
          {"termination_cfg.d_def", {"1", "2"}},
          {"termination_cfg.t_def", 3}},
         "the key 'termination_cfg.b_def' must be a bool, not the integer 0\n"
         "the key 'termination_cfg.i_def' must be an int, not a float\n"
         "the key 'termination_cfg.d_def' must be a double, not an array of 2 strings\n"
         "the key 'termination_cfg.t_def' must be a timersource, not the integer 3\n");
}

}  // namespace
}  // namespace host
