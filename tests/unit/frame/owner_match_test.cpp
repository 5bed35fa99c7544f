#include "src/frame/owner_match.hpp"

#include <memory>

#include "tests/unit/frame/following_block.hpp"

namespace {

using support::Journal;
using support::Lines;

/// The part of a block that concerns its match.
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

    Fenwa::Slot slot;
    blocks::OwnerMatch match;
};

class OwnerMatchTest : public testing::Test {
  protected:
    /// The releases since the last time.
    Journal released() {
        Journal entries = recorders.bus.take_journal();
        std::erase_if(entries,
                      [](const std::string& entry) { return entry.starts_with("match "); });
        return entries;
    }

    /// The locks, sendings and releases since the last time.
    Journal changes() {
        Journal entries = recorders.journal->take();
        for (std::string& entry : entries) {
            if (const std::size_t rule = entry.find("match type="); rule != entry.npos)
                entry.resize(rule + std::string_view("match").size());
        }
        return entries;
    }

    /// Refuses the match of `one` at the moment of an effect with this text.
    void refuse_one_at(const std::string& text) {
        recorders.journal->remark_with([this, text](const std::string& entry) {
            if (entry.find(text) != std::string::npos)
                one.refuse();
            return std::string();
        });
    }
    void install_other() {
        other.ask(bus);
        other.match.answered(true);
    }
    void ask_and_refuse_one() {
        one.ask(bus);
        one.refuse();
    }

    support::Recorders recorders;
    sd_bus* elsewhere = reinterpret_cast<sd_bus*>(this);  ///< another connection
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
    install_other();
    for (int time = 0; time < 2; ++time) {
        ask_and_refuse_one();
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

/// If another thread dispatches the connection, the refusal comes while a match is being sent.
TEST_F(OwnerMatchTest, KeepsARefusedMatchWhileAnotherIsBeingSent) {
    for (const bool waits : {false, true}) {
        one.ask(bus);
        refuse_one_at("match type=");
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
    install_other();
    ask_and_refuse_one();
    other.stop();
    EXPECT_EQ(released(), (Journal{"release #1 match"}));
    ask_and_refuse_one();
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
    ask_and_refuse_one();
    EXPECT_EQ(released(), (Journal{"release #3 match"}));
}

TEST_F(OwnerMatchTest, DoesNotKeepForAMatchOnAnotherConnection) {
    other.ask(elsewhere);
    ask_and_refuse_one();
    EXPECT_EQ(released(), (Journal{"release #2 match"}));
    other.refuse();
    EXPECT_EQ(released(), (Journal{"release #1 match"}));
}

TEST_F(OwnerMatchTest, LeavesWhatIsKeptOnAnotherConnectionAlone) {
    Follower third;
    third.ask(elsewhere);
    other.ask(elsewhere);
    other.refuse();
    ask_and_refuse_one();
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
    ask_and_refuse_one();
    EXPECT_EQ(released(), (Journal{"release #3 match"}));
}

TEST_F(OwnerMatchTest, KeepsForAMatchThatABlockHasWaitedFor) {
    other.wait_for_match(bus);
    (void)recorders.bus.take_journal();
    ask_and_refuse_one();
    EXPECT_EQ(released(), Journal{});
}

// A block with an installed match keeps the refused matches of the others.

class InstalledMatchTest : public OwnerMatchTest {
  protected:
    /// Refuses the match of a follower. @returns whether it was kept.
    bool is_kept() {
        (void)recorders.bus.take_journal();
        ask_and_refuse_one();
        return released().empty();
    }
    /// Runs a block, which asks for its match.
    template <class T, class... Arguments>
    std::unique_ptr<support::BlockDriver<T>> ask(const Arguments&... arguments) {
        auto block = std::make_unique<support::BlockDriver<T>>(recorders.tools, arguments...);
        EXPECT_FALSE(is_kept());
        EXPECT_TRUE((*block)->run());
        (void)recorders.log.take();
        return block;
    }
    template <class Driver>
    void expect_kept_until_its_stop(Driver& block) {
        EXPECT_TRUE(is_kept());
        block->stop();
        EXPECT_FALSE(is_kept());
    }
    /// Answers the match that was asked for last.
    void install(const support::Message& reply) {
        EXPECT_EQ(recorders.bus.last().install(reply), 0);
    }
    std::unique_ptr<support::BlockDriver<blocks::TemperatureMonitor>> ask_for_monitor() {
        recorders.tools.reply_next(recorders.messages.reply("i", 3));
        recorders.tools.reply_next(recorders.messages.reply("d", 20.0));
        return ask<blocks::TemperatureMonitor>(
            "monitor", Fenwa::BlockConfiguration{{"sensor_name", {"main"}}});
    }

    const Fenwa::BlockConfiguration power{{"power", 1.0}};
};

TEST_F(InstalledMatchTest, OfAClient) {
    const auto client = ask<client_test::FollowingBlock>("a.b");
    EXPECT_TRUE(is_kept()) << "asked for";
    EXPECT_EQ(recorders.bus.sending(2).install(recorders.messages.reply("")), 0);
    expect_kept_until_its_stop(*client);
}

TEST_F(InstalledMatchTest, OfOnScreenControls) {
    const auto controls =
        ask<blocks::OnScreenControls>("controls", Fenwa::BlockConfiguration{{"channel", 0}});
    install(recorders.messages.reply(""));
    expect_kept_until_its_stop(*controls);
}

TEST_F(InstalledMatchTest, OfATemperatureMonitor) {
    const auto monitor = ask_for_monitor();
    install(recorders.messages.reply(""));
    expect_kept_until_its_stop(*monitor);
}

TEST_F(InstalledMatchTest, NotOfATemperatureMonitorThatTakesARefusedOneForInstalled) {
    const auto monitor = ask_for_monitor();
    install(recorders.messages.error("com.example.Error", "no"));
    EXPECT_NE(*blocks::LayoutProbe::owner_match_slot_field(**monitor), nullptr);
    EXPECT_FALSE(is_kept());
}

TEST_F(InstalledMatchTest, OfAPowerConsumer) {
    const auto consumer = ask<blocks::PowerConsumer>("consumer", power);
    expect_kept_until_its_stop(*consumer);
}

TEST_F(InstalledMatchTest, OfAPowerConsumerThatStillWaitsForIt) {
    support::BlockDriver<blocks::PowerConsumer> consumer(recorders.tools, "consumer", power);
    one.ask(bus);
    (void)recorders.bus.take_journal();
    refuse_one_at("blocking match");
    EXPECT_TRUE(consumer->run());
    recorders.journal->remark_with({});
    for (const std::string& entry : recorders.bus.take_journal())
        EXPECT_FALSE(entry.starts_with("release")) << entry;
    (void)recorders.log.take();
}

}  // namespace
