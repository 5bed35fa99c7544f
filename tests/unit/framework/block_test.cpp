#include "fenwa/block.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "fenwa/callback.hpp"
#include "fenwa/ports.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/host_access.hpp"
#include "tests/support/bus_messages.hpp"

namespace {

using Fenwa::Block;
using Fenwa::HostAccess;
using Fenwa::OutPort;
using Names = std::vector<std::string>;

class BlockTest : public testing::Test {
  protected:
    auto adopt(Block& adopted) { return HostAccess::adopt(adopted, init_tools, queue); }

    support::Messages messages;
    Fenwa::ConnectionTools tools{messages.bus()};
    Fenwa::InitTools init_tools{&tools};
    Fenwa::ReadyQueue queue{[] {}};
    Block block{"name", {{"key", 5}}};
};

TEST_F(BlockTest, KeepsNameAndConfigurationAndHasQuietDefaults) {
    EXPECT_EQ(block.get_name(), "name");
    block.set_name("");
    EXPECT_EQ(block.get_name(), "");
    EXPECT_EQ(HostAccess::configuration(block).getInt("key"), 5);
    EXPECT_EQ(block.setup({{"key", 5}}).getInt("key", -1), -1);
    block.start();
    block.reconfigure({}, {});
    EXPECT_TRUE(block.run());
    block.stop();
    EXPECT_TRUE(block.get_fdports_info().empty());
    EXPECT_EQ(block.get_members(), (std::vector<Block*>{&block}));
    EXPECT_TRUE(block.get_inner_blocks().empty());
    EXPECT_TRUE(block.get_inner_connections().empty());
}

TEST_F(BlockTest, FindsItsPortsByName) {
    Fenwa::InPortInternal* const first = Fenwa::add_inport<int>(block, "first");
    Fenwa::InPortInternal* const second = Fenwa::add_inport<int>(block, "second");
    Fenwa::OutPortInternal* const out = Fenwa::add_outport<bool>(block, "out");
    EXPECT_EQ(block.get_inport("first"), first);
    EXPECT_EQ(block.get_inport("second"), second);
    EXPECT_EQ(block.get_inport("out"), nullptr);
    EXPECT_EQ(block.get_inport(""), nullptr);
    EXPECT_EQ(block.get_outport("out"), out);
    EXPECT_EQ(block.get_outport("first"), nullptr);
    EXPECT_EQ(HostAccess::inports(block), (std::vector{first, second}));
    EXPECT_EQ(HostAccess::outports(block), (std::vector{out}));
}

/// The ports as "NAME PATH".
Names described(const std::vector<Fenwa::PortInfo>& ports) {
    Names names;
    for (const Fenwa::PortInfo& port : ports)
        names.push_back(port.name + ' ' + port.datatype.path());
    return names;
}

TEST_F(BlockTest, ListsItsPortsInTheOrderAdded) {
    Fenwa::add_inport<int>(block, "b");
    Fenwa::add_inport<bool>(block, "a");
    Fenwa::add_outport<float>(block, "z");
    Fenwa::add_outport<bool>(block, "y");
    EXPECT_EQ(block.get_inport_names(), (Names{"b", "a"}));
    EXPECT_EQ(block.get_outport_names(), (Names{"z", "y"}));
    EXPECT_EQ(described(block.get_inports_info()),
              (Names{"b /prefix/well-known.i/int", "a /prefix/well-known.b/bool"}));
    EXPECT_EQ(described(block.get_outports_info()),
              (Names{"z /prefix/well-known.f/float", "y /prefix/well-known.b/bool"}));
}

TEST_F(BlockTest, MakesPortsOfADatatype) {
    const auto* const in = Fenwa::add_inport<int>(block, "in");
    const auto* const quiet = Fenwa::add_inport<int>(block, "quiet", false);
    const auto* const out = Fenwa::add_outport<double>(block, "out");
    EXPECT_TRUE(in->triggers());
    EXPECT_FALSE(quiet->triggers());
    EXPECT_EQ(in->value() + out->value, 0);
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
    for (const auto& [path, interface] : HostAccess::exported_objects(block)) {
        EXPECT_EQ(sd_bus_add_object_vtable(messages.bus(), nullptr, path.c_str(), interface.c_str(),
                                           empty_table, nullptr),
                  -EEXIST);
    }
}

/// Counts how often its property "Value" is read.
struct Asked {
    int on_read(sd_bus_message* reply) { return sd_bus_message_append(reply, "i", ++times); }
    int times = 0;
};

int get_value(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
              const char* /*property*/, sd_bus_message* reply, void* userdata,
              sd_bus_error* /*error*/) {
    return Fenwa::Callback<&Asked::on_read>::invoke(userdata, reply);
}

const sd_bus_vtable value_table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Value", "i", get_value, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END};

TEST_F(BlockTest, HandsTheUserdataToTheCallbacksOfItsTables) {
    Asked asked;
    block.add_dbus("/a/b", "a.B", value_table, &asked);
    EXPECT_TRUE(adopt(block).empty());
    // Telling the bus of the property's value makes sd-bus ask for it.
    EXPECT_GE(sd_bus_emit_properties_changed(messages.bus(), "/a/b", "a.B", "Value", nullptr), 0);
    EXPECT_EQ(asked.times, 1);
}

Names described(const std::vector<Fenwa::RefusedExport>& exports) {
    Names lines;
    for (const Fenwa::RefusedExport& refused : exports)
        lines.push_back(refused.path + ' ' + refused.interface + ": " +
                        std::to_string(refused.negative_errno));
    return lines;
}

TEST_F(BlockTest, ReportsEveryExportThatIsRefused) {
    Block other("other", {});
    other.add_dbus("/a/b", "a.B", empty_table, &other);
    EXPECT_TRUE(adopt(other).empty());
    block.add_dbus("/a/b", "a.B", empty_table, &block);
    block.add_dbus("not a path", "a.B", empty_table, &block);
    block.add_dbus("/a/c", "a.B", empty_table, &block);
    EXPECT_EQ(described(adopt(block)), (Names{"/a/b a.B: -17", "not a path a.B: -22"}));
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
    EXPECT_EQ(described(refused), (Names{"/a/b a.B: -17"}));
    // The listener may be missing.
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
