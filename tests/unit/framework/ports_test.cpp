#include "fenwa/port.hpp"

#include <gtest/gtest.h>

#include "fenwa/ports.hpp"
#include "framework/shared/host_access.hpp"

namespace {

using Fenwa::Datatype;
using Fenwa::datatype_of;
using Fenwa::datatype_timersource;
using Fenwa::HostAccess;
using Fenwa::InPort;
using Fenwa::OutPort;

/// A block with one port of each kind.
struct PortedBlock : Fenwa::Block {
    PortedBlock() : Block("ported", {}) {}

    InPort<int>* in = Fenwa::add_inport<int>(*this, "in");
    InPort<int>* quiet = Fenwa::add_inport<int>(*this, "quiet", false);
    Fenwa::EventPort* event = make_eventport("event");
};

TEST(DatatypeTest, IsItsPath) {
    EXPECT_EQ(Datatype("/a/b").path(), "/a/b");
    EXPECT_EQ(Datatype("/a/b"), Datatype("/a/b"));
    EXPECT_FALSE(Datatype("/a/b") == Datatype("/a/c"));
    EXPECT_EQ(datatype_of<float>().path(), "/prefix/well-known.f/float");
    EXPECT_EQ(datatype_of<bool>().path(), "/prefix/well-known.b/bool");
    EXPECT_EQ(datatype_of<double>().path(), "/prefix/well-known.d/double");
    EXPECT_EQ(datatype_of<int>().path(), "/prefix/well-known.i/int");
    EXPECT_EQ(datatype_of<datatype_timersource>().path(),
              "/prefix/well-known.t/datatype_timersource");
}

TEST(DatatypeTest, ComparesTimerValues) {
    const datatype_timersource tick{1, std::chrono::milliseconds(5)};
    EXPECT_EQ(tick, (datatype_timersource{1, std::chrono::milliseconds(5)}));
    EXPECT_FALSE(tick == (datatype_timersource{2, std::chrono::milliseconds(5)}));
    EXPECT_FALSE(tick == (datatype_timersource{1, std::chrono::milliseconds(6)}));
}

TEST(PortTest, StartsAtZeroWithoutANewValue) {
    const OutPort<double> out("out", datatype_of<double>());
    EXPECT_EQ(out.name(), "out");
    EXPECT_EQ(out.datatype(), datatype_of<double>());
    EXPECT_EQ(out.value, 0.0);
    EXPECT_FALSE(out.is_triggered());
    InPort<datatype_timersource> in("in", datatype_of<datatype_timersource>(), true);
    EXPECT_EQ(in.name(), "in");
    EXPECT_EQ(in.datatype(), datatype_of<datatype_timersource>());
    EXPECT_EQ(in.value(), datatype_timersource{});
    EXPECT_TRUE(in.triggers());
    EXPECT_FALSE(in.is_triggered());
    EXPECT_EQ(static_cast<Fenwa::InPortProvider&>(in).get_port(), &in);
}

TEST(OutPortTest, CarriesWhatIsPublishedUntilItIsDealtWith) {
    OutPort<float> port("out", datatype_of<float>());
    port.publish(2.5F);
    EXPECT_EQ(port.value, 2.5F);
    EXPECT_TRUE(port.is_triggered());
    port.reset(false);
    EXPECT_TRUE(port.is_triggered());
    port.reset(true);
    EXPECT_FALSE(port.is_triggered());
    EXPECT_EQ(port.value, 2.5F);
    port.publish(2.5F);
    EXPECT_TRUE(port.is_triggered()) << "the same value is a new one too";
}

TEST(OutPortTest, TellsWhereItsValueStands) {
    const OutPort<double> port("out", datatype_of<double>());
    EXPECT_EQ(HostAccess::value_address(port), &port.value);
    const Fenwa::OutPortInternal bare("bare", datatype_of<double>());
    EXPECT_EQ(HostAccess::value_address(bare), nullptr);
}

TEST(InPortTest, ReadsTheConnectedValueInPlace) {
    OutPort<int> out("out", datatype_of<int>());
    InPort<int> in("in", datatype_of<int>(), true);
    HostAccess::connect(in, HostAccess::value_address(out));
    EXPECT_EQ(&in.value(), &out.value);
    out.publish(7);
    EXPECT_EQ(in.value(), 7);
    HostAccess::connect(in, nullptr);
    EXPECT_EQ(in.value(), 0);
}

TEST(TriggerTest, IsSeenOnlyByTheRunAfterIt) {
    PortedBlock block;
    HostAccess::notify(*block.in, block);
    block.event->fire();
    EXPECT_FALSE(block.in->is_triggered());
    EXPECT_FALSE(block.event->is_triggered());
    EXPECT_TRUE(HostAccess::arm(block));
    EXPECT_TRUE(block.in->is_triggered());
    EXPECT_TRUE(block.event->is_triggered());
    EXPECT_FALSE(block.quiet->is_triggered());
    HostAccess::disarm(block);
    EXPECT_FALSE(block.in->is_triggered());
    EXPECT_FALSE(block.event->is_triggered());
    EXPECT_FALSE(HostAccess::arm(block));
}

TEST(TriggerTest, KeepsForTheNextRunWhatIsFiredDuringARun) {
    PortedBlock block;
    block.event->fire();
    block.event->fire();
    EXPECT_TRUE(HostAccess::arm(block));
    block.event->fire();
    HostAccess::notify(*block.in, block);
    EXPECT_FALSE(block.in->is_triggered()) << "the marks stand still during a run";
    HostAccess::disarm(block);
    EXPECT_FALSE(block.event->is_triggered());
    EXPECT_TRUE(HostAccess::arm(block));
    EXPECT_TRUE(block.in->is_triggered());
    EXPECT_TRUE(block.event->is_triggered());
    HostAccess::disarm(block);
    EXPECT_FALSE(HostAccess::arm(block)) << "several fires before a run make one";
}

TEST(TriggerTest, IsTakenAwayByTheBlockOnlyWhenDealtWith) {
    PortedBlock block;
    block.event->fire();
    EXPECT_TRUE(HostAccess::arm(block));
    block.event->fire();
    block.event->reset(false);
    EXPECT_TRUE(block.event->is_triggered());
    block.event->reset(true);
    EXPECT_FALSE(block.event->is_triggered());
    EXPECT_TRUE(HostAccess::arm(block)) << "what is pending stays";
}

TEST(TriggerTest, StaysUntilTheHostDisarms) {
    PortedBlock block;
    block.event->fire();
    EXPECT_TRUE(HostAccess::arm(block));
    EXPECT_TRUE(HostAccess::arm(block));
    EXPECT_TRUE(block.event->is_triggered());
}

}  // namespace
