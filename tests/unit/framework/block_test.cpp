#include "fenwa/block.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "framework/shared/host_access.hpp"
#include "tests/support/bus_messages.hpp"

namespace {

using Fenwa::Block;
using Fenwa::HostAccess;
using Fenwa::InPort;
using Fenwa::OutPort;
using Names = std::vector<std::string>;

/// Tools over a connection that only objects are exported on.
class BusTools final : public Fenwa::SDBusTools {
  public:
    explicit BusTools(sd_bus* bus) : bus_(bus) {}
    void call_method(const char*, const char*, const char*, const char*, sd_bus_message**,
                     const char*, ...) override {}
    void get_property(const char*, const char*, const char*, const char*, sd_bus_message**,
                      const char*) override {}
    sd_bus* get_bus() override { return bus_; }

  private:
    sd_bus* bus_;
};

class BlockTest : public testing::Test {
  protected:
    auto adopt(Block& adopted) { return HostAccess::adopt(adopted, init_tools, queue); }

    support::Messages messages;
    BusTools tools{messages.bus()};
    Fenwa::InitTools init_tools{&tools};
    Fenwa::ReadyQueue queue{[] {}};
    Block block{"name", {{"key", 5}}};
};

TEST_F(BlockTest, HasTheNameThatItWasGiven) {
    EXPECT_EQ(block.get_name(), "name");
    block.set_name("other");
    EXPECT_EQ(block.get_name(), "other");
    EXPECT_EQ(Block("", {}).get_name(), "");
}

TEST_F(BlockTest, KeepsItsConfigurationForTheHost) {
    EXPECT_EQ(HostAccess::configuration(block).getInt("key"), 5);
}

TEST_F(BlockTest, HasQuietDefaults) {
    EXPECT_EQ(block.setup({{"key", 5}}).getInt("key", -1), -1);
    block.start();
    block.reconfigure({}, {});
    EXPECT_TRUE(block.run());
    block.stop();
    EXPECT_TRUE(block.get_fdports_info().empty());
}

TEST_F(BlockTest, IsItsOwnOnlyMember) {
    EXPECT_EQ(block.get_members(), (std::vector<Block*>{&block}));
    EXPECT_TRUE(block.get_inner_blocks().empty());
    EXPECT_TRUE(block.get_inner_connections().empty());
}

TEST_F(BlockTest, FindsItsPortsByName) {
    auto* const first =
        block.add_inport(std::make_unique<InPort<int>>("first", Fenwa::datatype_of<int>(), true));
    auto* const second =
        block.add_inport(std::make_unique<InPort<int>>("second", Fenwa::datatype_of<int>(), true));
    auto* const out =
        block.add_outport(std::make_unique<OutPort<bool>>("out", Fenwa::datatype_of<bool>()));
    EXPECT_EQ(block.get_inport("first"), first);
    EXPECT_EQ(block.get_inport("second"), second);
    EXPECT_EQ(block.get_inport("out"), nullptr);
    EXPECT_EQ(block.get_inport(""), nullptr);
    EXPECT_EQ(block.get_outport("out"), out);
    EXPECT_EQ(block.get_outport("first"), nullptr);
    EXPECT_EQ(HostAccess::inports(block), (std::vector{first, second}));
    EXPECT_EQ(HostAccess::outports(block), (std::vector{out}));
}

TEST_F(BlockTest, ListsItsPortsInTheOrderAdded) {
    block.add_inport(std::make_unique<InPort<int>>("b", Fenwa::datatype_of<int>(), true));
    block.add_inport(std::make_unique<InPort<bool>>("a", Fenwa::datatype_of<bool>(), true));
    block.add_outport(std::make_unique<OutPort<float>>("z", Fenwa::datatype_of<float>()));
    block.add_outport(std::make_unique<OutPort<bool>>("y", Fenwa::datatype_of<bool>()));
    EXPECT_EQ(block.get_inport_names(), (Names{"b", "a"}));
    EXPECT_EQ(block.get_outport_names(), (Names{"z", "y"}));
    const auto ins = block.get_inports_info();
    ASSERT_EQ(ins.size(), 2U);
    EXPECT_EQ(ins[0].name, "b");
    EXPECT_EQ(ins[0].datatype, Fenwa::datatype_of<int>());
    EXPECT_EQ(ins[1].name, "a");
    EXPECT_EQ(ins[1].datatype, Fenwa::datatype_of<bool>());
    const auto outs = block.get_outports_info();
    ASSERT_EQ(outs.size(), 2U);
    EXPECT_EQ(outs[0].name, "z");
    EXPECT_EQ(outs[0].datatype, Fenwa::datatype_of<float>());
    EXPECT_EQ(outs[1].name, "y");
}

TEST_F(BlockTest, OwnsEventPortsThatNeverMove) {
    std::vector<Fenwa::EventPort*> ports;
    for (int count = 0; count < 100; ++count)
        ports.push_back(block.make_eventport("event " + std::to_string(count)));
    EXPECT_EQ(ports.front()->name(), "event 0");
    EXPECT_EQ(ports.back()->name(), "event 99");
    EXPECT_EQ(HostAccess::eventport_names(block).size(), 100U);
    EXPECT_EQ(HostAccess::eventport_names(block)[3], "event 3");
}

/// An output that says when it goes.
struct CountedPort : OutPort<bool> {
    explicit CountedPort(int& count)
        : OutPort("counted", Fenwa::datatype_of<bool>()), alive(&count) {
        ++*alive;
    }
    ~CountedPort() override { --*alive; }
    int* alive;
};

TEST_F(BlockTest, ReleasesItsPortsWhenItIsDestroyed) {
    int alive = 0;
    {
        Block owner("owner", {});
        owner.add_outport(std::make_unique<CountedPort>(alive));
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST_F(BlockTest, HasNoToolsBeforeTheHostHasTakenItOver) {
    try {
        (void)block.get_tools();
        FAIL() << "there were tools";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(),
                     "block 'name' asked for its tools before the host had given them");
    }
    EXPECT_TRUE(adopt(block).empty());
    EXPECT_EQ(&block.get_tools(), &init_tools);
    EXPECT_EQ(block.get_tools().sdbus_tools, &tools);
}

const sd_bus_vtable empty_table[] = {SD_BUS_VTABLE_START(0), SD_BUS_VTABLE_END};

TEST_F(BlockTest, ExportsItsObjectsWhenItIsTakenOver) {
    block.add_dbus("/a/b", "a.B", empty_table, &block);
    block.add_dbus("/a/c", "a.C", empty_table, &block);
    EXPECT_EQ(HostAccess::exported_objects(block),
              (std::vector<std::pair<std::string, std::string>>{{"/a/b", "a.B"}, {"/a/c", "a.C"}}));
    EXPECT_TRUE(adopt(block).empty());
    // The places are taken now.
    EXPECT_EQ(
        sd_bus_add_object_vtable(messages.bus(), nullptr, "/a/b", "a.B", empty_table, nullptr),
        -EEXIST);
    EXPECT_EQ(
        sd_bus_add_object_vtable(messages.bus(), nullptr, "/a/c", "a.C", empty_table, nullptr),
        -EEXIST);
}

/// Reads the property "Value" of a table, and keeps whom it was asked of.
int get_value(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
              const char* /*property*/, sd_bus_message* reply, void* userdata,
              sd_bus_error* /*error*/) {
    *static_cast<void**>(userdata) = userdata;
    return sd_bus_message_append(reply, "i", 5);
}

const sd_bus_vtable value_table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Value", "i", get_value, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END};

TEST_F(BlockTest, HandsTheUserdataToTheCallbacksOfItsTables) {
    void* asked = nullptr;
    block.add_dbus("/a/b", "a.B", value_table, &asked);
    EXPECT_TRUE(adopt(block).empty());
    // Telling the bus of the property's value makes sd-bus ask for it.
    EXPECT_GE(sd_bus_emit_properties_changed(messages.bus(), "/a/b", "a.B", "Value", nullptr), 0);
    EXPECT_EQ(asked, &asked);
}

TEST_F(BlockTest, ReportsEveryExportThatIsRefused) {
    Block other("other", {});
    other.add_dbus("/a/b", "a.B", empty_table, &other);
    EXPECT_TRUE(adopt(other).empty());
    block.add_dbus("/a/b", "a.B", empty_table, &block);
    block.add_dbus("not a path", "a.B", empty_table, &block);
    block.add_dbus("/a/c", "a.B", empty_table, &block);
    const auto refused = adopt(block);
    ASSERT_EQ(refused.size(), 2U);
    EXPECT_EQ(refused[0].path, "/a/b");
    EXPECT_EQ(refused[0].interface, "a.B");
    EXPECT_EQ(refused[0].negative_errno, -EEXIST);
    EXPECT_EQ(refused[1].path, "not a path");
    EXPECT_EQ(refused[1].negative_errno, -EINVAL);
}

TEST_F(BlockTest, ExportsAtOnceWhatItAddsAfterItIsTakenOver) {
    std::vector<Fenwa::RefusedExport> refused;
    EXPECT_TRUE(HostAccess::adopt(block, init_tools, queue, [&](const auto& export_) {
                    refused.push_back(export_);
                }).empty());
    block.add_dbus("/a/b", "a.B", empty_table, &block);
    EXPECT_TRUE(refused.empty());
    EXPECT_TRUE(HostAccess::has_exported(block, "/a/b", "a.B"));
    block.add_dbus("/a/b", "a.B", empty_table, &block);
    ASSERT_EQ(refused.size(), 1U);
    EXPECT_EQ(refused[0].path, "/a/b");
    EXPECT_EQ(refused[0].interface, "a.B");
    EXPECT_EQ(refused[0].negative_errno, -EEXIST);
    // Nobody need be told.
    Block other("other", {});
    EXPECT_TRUE(adopt(other).empty());
    other.add_dbus("/a/b", "a.B", empty_table, &other);
    EXPECT_FALSE(HostAccess::has_exported(other, "/a/b", "a.B"));
}

TEST_F(BlockTest, TakesItsObjectsOffTheBusWhenItIsDestroyed) {
    {
        Block exporting("exporting", {});
        exporting.add_dbus("/a/b", "a.B", empty_table, &exporting);
        EXPECT_TRUE(adopt(exporting).empty());
    }
    block.add_dbus("/a/b", "a.B", empty_table, &block);
    EXPECT_TRUE(adopt(block).empty()) << "the place is free again";
}

}  // namespace
