#include "src/frame/owner_match.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

#include "tests/support/block_driver.hpp"
#include "tests/support/framework_interception.hpp"
#include "tests/unit/frame/following_block.hpp"

namespace {

using Journal = std::vector<std::string>;
using Lines = std::vector<std::string>;
using blocks::LayoutProbe;

/// What a block has for its match, and no more.
struct Follower {
    int on_change(sd_bus_message* /*signal*/, sd_bus_error* /*error*/) { return 0; }
    int on_installed(sd_bus_message* /*reply*/, sd_bus_error* /*error*/) { return 0; }

    void ask(sd_bus* bus) {
        match.install_async<&Follower::on_change, &Follower::on_installed>(bus, slot, *this);
    }
    void wait_for_match(sd_bus* bus) { match.install<&Follower::on_change>(bus, slot, *this); }
    void refuse() {
        match.answered(false);
        match.discard(slot);
    }
    void stop() {
        slot.reset();
        match.released();
    }

    blocks::Slot slot;
    blocks::OwnerMatch match;
};

class OwnerMatchTest : public testing::Test {
  protected:
    /// What has been released since the last time.
    Journal released() {
        Journal entries = recorders.bus.take_journal();
        std::erase_if(entries,
                      [](const std::string& entry) { return entry.starts_with("match "); });
        return entries;
    }

    /// What has been locked, sent and released since the last time.
    Journal changes() {
        Journal entries = recorders.journal->take();
        for (std::string& entry : entries) {
            if (const std::size_t rule = entry.find("match type="); rule != entry.npos)
                entry.resize(rule + std::string_view("match").size());
        }
        return entries;
    }

    support::Recorders recorders;
    sd_bus* bus = recorders.messages.bus();
    Follower one;
    Follower other;
};

TEST_F(OwnerMatchTest, ReleasesARefusedMatchAtOnceHoweverOftenItIsRefused) {
    for (int time = 1; time <= 1000; ++time) {
        one.ask(bus);
        EXPECT_EQ(released(), Journal{});
        one.refuse();
        EXPECT_FALSE(one.slot);
        EXPECT_EQ(released(), (Journal{"release #" + std::to_string(time) + " match"}));
    }
}

TEST_F(OwnerMatchTest, KeepsARefusedMatchWhereAnotherIsInstalledUntilItsOwnEnd) {
    other.ask(bus);
    other.match.answered(true);
    for (int time = 0; time < 2; ++time) {
        one.ask(bus);
        one.refuse();
        EXPECT_FALSE(one.slot) << "there is room for the next";
    }
    EXPECT_EQ(released(), Journal{});
    one.stop();
    EXPECT_EQ(released(), (Journal{"release #2 match", "release #3 match"}));
    other.stop();
    EXPECT_EQ(released(), (Journal{"release #1 match"}));
}

TEST_F(OwnerMatchTest, KeepsARefusedMatchWhileAnotherIsAskedForAndDropsItWhenThatIsRefused) {
    one.ask(bus);
    other.ask(bus);
    one.refuse();
    EXPECT_EQ(released(), Journal{}) << "its removal might take what the other is being given";
    other.refuse();
    EXPECT_EQ(released(), (Journal{"release #2 match", "release #1 match"}));
}

/// On a connection that another thread dispatches, the refusal comes while a match is being sent.
TEST_F(OwnerMatchTest, KeepsARefusedMatchWhileAnotherIsBeingSent) {
    for (const bool waits : {false, true}) {
        one.ask(bus);
        recorders.journal->remark_with([this](const std::string& entry) {
            if (entry.find("match type=") != std::string::npos)
                one.refuse();
            return std::string();
        });
        if (waits)
            other.wait_for_match(bus);
        else
            other.ask(bus);
        recorders.journal->remark_with({});
        for (const std::string& entry : released())
            EXPECT_TRUE(entry.starts_with("blocking match ")) << entry;
        one.stop();
        other.stop();
        EXPECT_EQ(released().size(), 2U);
    }
}

TEST_F(OwnerMatchTest, LooksAtTheOthersAndChangesUnderTheLock) {
    other.ask(bus);
    const support::LockRecorder mutex(
        support::mutex_locked_by([this] { other.match.answered(true); }));
    auto gone = std::make_unique<Follower>();
    (void)recorders.journal->take();
    gone->wait_for_match(bus);
    EXPECT_EQ(changes(), (Journal{"lock", "unlock", "blocking match", "lock", "unlock"}));
    gone->stop();
    EXPECT_EQ(changes(), (Journal{"release #2 match", "lock", "unlock"}));
    gone->ask(bus);
    EXPECT_EQ(changes(), (Journal{"lock", "unlock", "match"}));
    other.refuse();
    EXPECT_EQ(changes(), (Journal{"lock", "unlock", "lock", "unlock"}));
    gone->refuse();
    EXPECT_EQ(changes(), (Journal{"lock", "unlock", "lock", "release #3 match", "release #1 match",
                                  "unlock"}));
    other.stop();
    EXPECT_EQ(changes(), (Journal{"lock", "unlock"}));
    gone.reset();
    EXPECT_EQ(changes(), (Journal{"lock", "unlock"}));
}

TEST_F(OwnerMatchTest, DropsWhatWasKeptOnceTheOtherHasStopped) {
    other.ask(bus);
    other.match.answered(true);
    one.ask(bus);
    one.refuse();
    other.stop();
    EXPECT_EQ(released(), (Journal{"release #1 match"}));
    one.ask(bus);
    one.refuse();
    EXPECT_EQ(released(), (Journal{"release #2 match", "release #3 match"}));
}

TEST_F(OwnerMatchTest, DoesNotKeepForABlockThatIsGone) {
    auto gone = std::make_unique<Follower>();
    auto third = std::make_unique<Follower>();
    gone->ask(bus);
    gone->match.answered(true);
    third->ask(bus);
    third->match.answered(true);
    gone.reset();
    third.reset();
    EXPECT_EQ(released(), (Journal{"release #1 match", "release #2 match"}));
    one.ask(bus);
    one.refuse();
    EXPECT_EQ(released(), (Journal{"release #3 match"}));
}

TEST_F(OwnerMatchTest, DoesNotKeepForAMatchOnAnotherConnection) {
    int elsewhere = 0;
    other.ask(reinterpret_cast<sd_bus*>(&elsewhere));
    one.ask(bus);
    one.refuse();
    EXPECT_EQ(released(), (Journal{"release #2 match"}));
    other.refuse();
    EXPECT_EQ(released(), (Journal{"release #1 match"}));
}

TEST_F(OwnerMatchTest, LeavesWhatIsKeptOnAnotherConnectionAlone) {
    int elsewhere = 0;
    auto* const second_bus = reinterpret_cast<sd_bus*>(&elsewhere);
    Follower third;
    third.ask(second_bus);
    other.ask(second_bus);
    other.refuse();
    one.ask(bus);
    one.refuse();
    EXPECT_EQ(released(), (Journal{"release #3 match"}));
    third.refuse();
    EXPECT_EQ(released(), (Journal{"release #2 match", "release #1 match"}));
}

TEST_F(OwnerMatchTest, DoesNotKeepForAMatchThatCouldNotBeSent) {
    recorders.bus.answer_next({-ENOMEM, -ENOMEM});
    other.ask(bus);
    Follower third;
    third.wait_for_match(bus);
    const std::string failure =
        "1 Failed to add match for NameOwnerChanged: Cannot allocate memory";
    EXPECT_EQ(recorders.log.take(), (Lines{failure, failure}));
    (void)recorders.bus.take_journal();
    one.ask(bus);
    one.refuse();
    EXPECT_EQ(released(), (Journal{"release #3 match"}));
}

TEST_F(OwnerMatchTest, KeepsForAMatchThatABlockHasWaitedFor) {
    other.wait_for_match(bus);
    (void)recorders.bus.take_journal();
    one.ask(bus);
    one.refuse();
    EXPECT_EQ(released(), Journal{});
}

// Each block whose match is installed keeps those of the others.

class InstalledMatchTest : public OwnerMatchTest {
  protected:
    /// Has a follower of some service refused. @returns whether its match was kept.
    bool is_kept() {
        (void)recorders.bus.take_journal();
        one.ask(bus);
        one.refuse();
        return released().empty();
    }
    /// Answers the match that was asked for last.
    void install(const support::Message& reply) {
        EXPECT_EQ(recorders.bus.last().install(reply), 0);
    }
};

TEST_F(InstalledMatchTest, OfAClient) {
    support::BlockDriver<client_test::FollowingBlock> client(recorders.tools, "a.b");
    EXPECT_FALSE(is_kept());
    EXPECT_TRUE(client->run());
    EXPECT_TRUE(is_kept());
    EXPECT_TRUE(client->run());
    EXPECT_EQ(recorders.bus.sending(2).install(recorders.messages.reply("")), 0);
    EXPECT_TRUE(is_kept());
    client->stop();
    EXPECT_FALSE(is_kept());
}

TEST_F(InstalledMatchTest, OfOnScreenControls) {
    const Fenwa::BlockConfiguration settings{{"channel", 0}};
    support::BlockDriver<blocks::OnScreenControls> controls(recorders.tools, "controls", settings);
    EXPECT_TRUE(controls->run());
    install(recorders.messages.reply(""));
    EXPECT_TRUE(is_kept());
    controls->stop();
    EXPECT_FALSE(is_kept());
}

TEST_F(InstalledMatchTest, OfATemperatureMonitor) {
    recorders.tools.reply_next(recorders.messages.reply("i", 3));
    recorders.tools.reply_next(recorders.messages.reply("d", 20.0));
    const Fenwa::BlockConfiguration settings{{"sensor_name", {"main"}}};
    support::BlockDriver<blocks::TemperatureMonitor> monitor(recorders.tools, "monitor", settings);
    EXPECT_TRUE(monitor->run());
    install(recorders.messages.reply(""));
    EXPECT_TRUE(is_kept());
    monitor->stop();
    EXPECT_FALSE(is_kept());
}

TEST_F(InstalledMatchTest, NotOfATemperatureMonitorThatTakesARefusedOneForInstalled) {
    recorders.tools.reply_next(recorders.messages.reply("i", 3));
    recorders.tools.reply_next(recorders.messages.reply("d", 20.0));
    const Fenwa::BlockConfiguration settings{{"sensor_name", {"main"}}};
    support::BlockDriver<blocks::TemperatureMonitor> monitor(recorders.tools, "monitor", settings);
    EXPECT_TRUE(monitor->run());
    install(recorders.messages.error("com.example.Error", "no"));
    EXPECT_NE(*LayoutProbe::owner_match_slot_field(*monitor), nullptr);
    EXPECT_FALSE(is_kept());
}

TEST_F(InstalledMatchTest, OfAPowerConsumerThatStillWaitsForIt) {
    const Fenwa::BlockConfiguration settings{{"power", 1.0}};
    support::BlockDriver<blocks::PowerConsumer> consumer(recorders.tools, "consumer", settings);
    one.ask(bus);
    (void)recorders.bus.take_journal();
    recorders.journal->remark_with([this](const std::string& entry) {
        if (entry.starts_with("blocking match"))
            one.refuse();
        return std::string();
    });
    EXPECT_TRUE(consumer->run());
    recorders.journal->remark_with({});
    for (const std::string& entry : recorders.bus.take_journal())
        EXPECT_FALSE(entry.starts_with("release")) << entry;
    (void)recorders.log.take();
}

TEST_F(InstalledMatchTest, OfAPowerConsumer) {
    const Fenwa::BlockConfiguration settings{{"power", 1.0}};
    support::BlockDriver<blocks::PowerConsumer> consumer(recorders.tools, "consumer", settings);
    EXPECT_TRUE(consumer->run());
    EXPECT_TRUE(is_kept());
    consumer->stop();
    EXPECT_FALSE(is_kept());
    (void)recorders.log.take();
}

}  // namespace
