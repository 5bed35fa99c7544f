#include <cerrno>
#include <cmath>
#include <limits>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

constexpr float infinity = std::numeric_limits<float>::infinity();

TEST_F(PowerConsumerTest, DescribesOneMethodThatAnyoneMayCall) {
    const sd_bus_vtable* const table = LayoutProbe::exported_methods();
    EXPECT_EQ(table[0].type, _SD_BUS_VTABLE_START);
    EXPECT_EQ(table[0].flags, 0U);
    EXPECT_EQ(table[0].x.start.features, _SD_BUS_VTABLE_PARAM_NAMES);
    EXPECT_EQ(table[1].type, _SD_BUS_VTABLE_METHOD);
    EXPECT_EQ(table[1].flags, SD_BUS_VTABLE_UNPRIVILEGED);
    EXPECT_STREQ(table[1].x.method.member, "SetPower");
    EXPECT_STREQ(table[1].x.method.signature, "d");
    EXPECT_STREQ(table[1].x.method.result, "");
    EXPECT_EQ(table[1].x.method.offset, 0U) << "the block itself is the userdata";
    EXPECT_EQ(table[2].type, _SD_BUS_VTABLE_END);
}

TEST_F(PowerConsumerTest, RemembersItsObjectUntilTheHostTakesItOver) {
    const auto place_is_free = [this] {
        blocks::Slot slot;
        return sd_bus_add_object_vtable(messages.bus(), slot.out(), "/com/tarlo/Vipd/PowerConsumer",
                                        "com.tarlo.Vipd.PowerConsumer",
                                        LayoutProbe::exported_methods(), nullptr) >= 0;
    };
    {
        const PowerConsumer alone("alone", {{"power", 1.0}});
        EXPECT_EQ(log.take(), (Lines{announcement}));
        EXPECT_EQ(Fenwa::HostAccess::exported_objects(alone),
                  (std::vector<std::pair<std::string, std::string>>{
                      {"/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer"}}));
        EXPECT_TRUE(place_is_free());
    }
    make();
    EXPECT_FALSE(place_is_free());
    consumer.reset();
    EXPECT_TRUE(place_is_free());
}

TEST_F(PowerConsumerTest, PublishesTheGrantedPowerOnTheNextRun) {
    make();
    begin();
    set_power(2.5);
    EXPECT_EQ(published(), std::nullopt) << "a callback published";
    EXPECT_EQ(run_woken(), Journal{});
    EXPECT_EQ(published(), 2.5F);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(PowerConsumerTest, PublishesTheSameGrantAgain) {
    make();
    begin();
    for (int again = 0; again < 3; ++again) {
        set_power(2.5);
        (void)run_woken();
        EXPECT_EQ(published(), 2.5F);
    }
}

TEST_F(PowerConsumerTest, PublishesTheLastOfSeveralGrants) {
    make();
    begin();
    set_power(2.5);
    set_power(0.0);
    set_power(7.25);
    (void)run_woken();
    EXPECT_EQ(published(), 7.25F);
    EXPECT_FALSE(consumer->woken());
}

TEST_F(PowerConsumerTest, PublishesAGrantOnlyInARunOfItsEventPort) {
    make();
    begin();
    set_power(2.5);
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), std::nullopt);
    (void)run_woken();
    EXPECT_EQ(published(), 2.5F);
}

TEST_F(PowerConsumerTest, PublishesTheGrantWhateverFiredTheEventPort) {
    make();
    begin();
    answer();
    EXPECT_EQ(run_woken(), (Journal{request}));
    EXPECT_EQ(published(), 0.0F) << "nothing has been granted yet";
}

TEST_F(PowerConsumerTest, NarrowsAGrantToAFloatWithoutARangeCheck) {
    make();
    begin();
    const auto granted = [this](double power) {
        set_power(power);
        (void)run_woken();
        return published().value();
    };
    EXPECT_EQ(granted(0.1), 0.1F);
    EXPECT_EQ(granted(-2.5), -2.5F);
    EXPECT_EQ(granted(1e300), infinity);
    EXPECT_EQ(granted(-1e300), -infinity);
    EXPECT_EQ(granted(std::numeric_limits<double>::infinity()), infinity);
    EXPECT_EQ(granted(std::numeric_limits<float>::max()), std::numeric_limits<float>::max());
    EXPECT_TRUE(std::isnan(granted(std::numeric_limits<double>::quiet_NaN())));
    EXPECT_EQ(granted(1e-40), 1e-40F) << "a subnormal float";
    EXPECT_EQ(granted(1e-300), 0.0F);
    const float negative_zero = granted(-1e-300);
    EXPECT_EQ(negative_zero, 0.0F);
    EXPECT_TRUE(std::signbit(negative_zero));
}

TEST_F(PowerConsumerTest, HandsTheResultOfTheReplyBack) {
    make();
    begin();
    bus.make_up(support::MessageFunction::reply_method_return, {-ENOTCONN, 0});
    EXPECT_EQ(set_power(grant("d", 2.5)), -ENOTCONN);
    EXPECT_EQ(set_power(grant("d", 3.5)), 0);
    EXPECT_EQ(bus.take_journal(), (Journal{"answer \"\"() = -107", "answer \"\"() = 0"}));
    (void)run_woken();
    EXPECT_EQ(published(), 3.5F) << "the grant counts, whether or not it can be answered";
}

TEST_F(PowerConsumerTest, KeepsItsGrantWhenTheArgumentIsNoDouble) {
    make();
    begin();
    set_power(2.5);
    (void)run_woken();
    (void)published();
    EXPECT_EQ(set_power(grant("s", "much")), -ENXIO);
    EXPECT_EQ(set_power(grant("")), -ENXIO);
    EXPECT_EQ(set_power(grant("i", 3)), -ENXIO);
    EXPECT_EQ(set_power(static_cast<sd_bus_message*>(nullptr)), -EINVAL);
    const std::string line = "1 Failed to parse parameters: No such device or address";
    EXPECT_EQ(log.take(),
              (Lines{line, line, line, "1 Failed to parse parameters: Invalid argument"}));
    EXPECT_EQ(bus.take_journal(), Journal{}) << "sd-bus answers for the block";
    EXPECT_FALSE(consumer->woken());
    EXPECT_EQ(LayoutProbe::granted_power(**consumer), 2.5F);
}

TEST_F(PowerConsumerTest, TakesAnyReadThatDoesNotFailForAGrant) {
    make();
    begin();
    bus.make_up(support::MessageFunction::read, {0});
    set_power(2.5);
    (void)run_woken();
    EXPECT_EQ(published(), 0.0F) << "what a read leaves alone is zero";
}

TEST_F(PowerConsumerTest, TakesNoGrantFromANegativeResult) {
    make();
    begin();
    bus.change_results(support::MessageFunction::read, {-EPERM});
    EXPECT_EQ(set_power(grant("d", 2.5)), -EPERM);
    EXPECT_EQ(log.take(), (Lines{"1 Failed to parse parameters: Operation not permitted"}));
    EXPECT_FALSE(consumer->woken());
}

TEST_F(PowerConsumerTest, TakesAGrantInAnyState) {
    make();
    set_power(1.0);
    EXPECT_EQ(run_woken(), (Journal{owner_match, registration}));
    EXPECT_EQ(published(), 1.0F) << "in the first run too";
    answer();
    lose_controller();
    set_power(3.0);
    (void)run_woken();
    EXPECT_EQ(published(), 3.0F) << "the controller's owner does not matter";
    (*consumer)->stop();
    (void)bus.take_journal();
    set_power(4.0);
    EXPECT_TRUE(consumer->woken());
}

TEST_F(PowerConsumerTest, KeepsItsGrantWhenTheControllerIsLost) {
    make();
    begin();
    set_power(2.5);
    (void)run_woken();
    (void)published();
    lose_controller();
    (void)run_woken();
    EXPECT_EQ(published(), 2.5F);
}

}  // namespace
