#include "fenwa/port.hpp"

#include <gtest/gtest.h>

#include "framework/shared/host_access.hpp"

namespace {

using Fenwa::Datatype;
using Fenwa::datatype_of;
using Fenwa::datatype_timersource;
using Fenwa::HostAccess;
using Fenwa::InPort;
using Fenwa::OutPort;

/// A block with one port of each kind.
class PortedBlock : public Fenwa::Block {
  public:
    PortedBlock()
        : Block("ported", {}),
          in(new InPort<int>("in", datatype_of<int>(), true)),
          quiet(new InPort<int>("quiet", datatype_of<int>(), false)),
          event(make_eventport("event")) {
        add_inport(std::unique_ptr<Fenwa::InPortProvider>(in));
        add_inport(std::unique_ptr<Fenwa::InPortProvider>(quiet));
    }

    InPort<int>* in;
    InPort<int>* quiet;
    Fenwa::EventPort* event;
};

TEST(DatatypeTest, IsItsPath) {
    EXPECT_EQ(Datatype("/a/b").path(), "/a/b");
    EXPECT_EQ(Datatype("/a/b"), Datatype("/a/b"));
    EXPECT_FALSE(Datatype("/a/b") == Datatype("/a/c"));
}

TEST(DatatypeTest, HasAPathForEachTypeOfAPort) {
    EXPECT_EQ(datatype_of<float>().path(), "/prefix/well-known.f/float");
    EXPECT_EQ(datatype_of<bool>().path(), "/prefix/well-known.b/bool");
    EXPECT_EQ(datatype_of<double>().path(), "/prefix/well-known.d/double");
    EXPECT_EQ(datatype_of<int>().path(), "/prefix/well-known.i/int");
    EXPECT_EQ(datatype_of<datatype_timersource>().path(),
              "/prefix/well-known.t/datatype_timersource");
}

TEST(DatatypeTest, ComparesTimerValues) {
    using std::chrono::milliseconds;
    EXPECT_EQ((datatype_timersource{1, milliseconds(5)}),
              (datatype_timersource{1, milliseconds(5)}));
    EXPECT_FALSE((datatype_timersource{1, milliseconds(5)} == datatype_timersource{}));
}

TEST(OutPortTest, StartsAtZeroWithoutANewValue) {
    OutPort<double> port("out", datatype_of<double>());
    EXPECT_EQ(port.name(), "out");
    EXPECT_EQ(port.datatype(), datatype_of<double>());
    EXPECT_EQ(port.value, 0.0);
    EXPECT_FALSE(port.is_triggered());
    EXPECT_FALSE(OutPort<bool>("out", datatype_of<bool>()).value);
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

TEST(InPortTest, ReadsZeroWhileNothingIsConnected) {
    const InPort<int> port("in", datatype_of<int>(), true);
    EXPECT_EQ(port.value(), 0);
    EXPECT_EQ(port.name(), "in");
    EXPECT_EQ(port.datatype(), datatype_of<int>());
    EXPECT_TRUE(port.triggers());
    EXPECT_FALSE(port.is_triggered());
    EXPECT_EQ(InPort<datatype_timersource>("t", datatype_of<datatype_timersource>(), true).value(),
              datatype_timersource{});
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

TEST(InPortTest, IsItsOwnProvider) {
    InPort<int> port("in", datatype_of<int>(), false);
    Fenwa::InPortProvider& provider = port;
    EXPECT_EQ(provider.get_port(), &port);
    EXPECT_FALSE(port.triggers());
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
    EXPECT_TRUE(HostAccess::arm(block));
    block.event->fire();
    HostAccess::notify(*block.in, block);
    EXPECT_FALSE(block.in->is_triggered()) << "the marks stand still during a run";
    HostAccess::disarm(block);
    EXPECT_FALSE(block.event->is_triggered());
    EXPECT_TRUE(HostAccess::arm(block));
    EXPECT_TRUE(block.in->is_triggered());
    EXPECT_TRUE(block.event->is_triggered());
}

TEST(TriggerTest, MakesOneRunOfSeveralFires) {
    PortedBlock block;
    block.event->fire();
    block.event->fire();
    block.event->fire();
    EXPECT_TRUE(HostAccess::arm(block));
    HostAccess::disarm(block);
    EXPECT_FALSE(HostAccess::arm(block));
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
