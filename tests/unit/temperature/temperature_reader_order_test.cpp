#include <cerrno>
#include <functional>
#include <system_error>
#include <tuple>

#include "tests/unit/temperature/temperature_reader_fixture.hpp"

namespace {

using namespace reader_test;

const std::string debug_entry = "temperature_reader_sensor_id3_current_temperature = #2 ";

Fenwa::BlockConfiguration fake(bool active, double value) {
    return {{"fake.active", active}, {"fake.value", value}};
}

/// Builds readers whose keys the journal tells.
class TemperatureReaderBuildTest : public TemperatureReaderTest {
  protected:
    Journal build(const Fenwa::BlockConfiguration& more = {}) {
        const Fenwa::BlockConfiguration least{{"sensor_name", {"main"}}, {"delta_chg", 0.0}};
        reader.emplace(recorders.tools, "reader", support::observed(least + more));
        return take();
    }
};

TEST_F(TemperatureReaderBuildTest, TakesItsStepsInThisOrder) {
    EXPECT_EQ(build(),
              (Journal{"event event_port", "fire event_port", "output temperature_out",
                       "bool fake.active", "fire event_port", "register with the debug-data store",
                       "end the registration", "string sensor_name", "double delta_chg",
                       "2 Temperature reader disabled by delta_temperature = 0"}));
}

TEST_F(TemperatureReaderBuildTest, ReadsTheFakeValueOnlyWhenItIsActive) {
    const Journal steps = build(fake(true, 50.0));
    EXPECT_EQ(Journal(steps.begin() + 3, steps.begin() + 6),
              (Journal{"bool fake.active", "double fake.value", "fire event_port"}));
}

/// Looks at what a reader knows at each effect: whether its match counts, the ids of its sensor and
/// of its registration, its reading, and whether a call is out.
class TemperatureReaderOrderTest : public TemperatureReaderTest {
  protected:
    void watch() {
        (void)take();
        remark([this] {
            const TemperatureReader& now = **reader;
            return std::tuple(LayoutProbe::match_added(now), LayoutProbe::sensor_id(now),
                              LayoutProbe::change_signal_id(now),
                              LayoutProbe::temperature(**reader).value_or(-1.0), call_pending());
        });
    }
    /// What the answer to the call sent last does.
    Journal answer(const support::Message& reply) {
        (void)run();
        (void)take();
        EXPECT_EQ(bus.last().deliver(reply), 0);
        return take();
    }
};

TEST_F(TemperatureReaderOrderTest, RecordsWhatItHearsAndIsThenWokenOnce) {
    make();
    appear();
    EXPECT_EQ(run(), (Journal{change_match}));
    watch();
    EXPECT_EQ(bus.last().install(messages.reply(""), denied), 0);
    EXPECT_EQ(take(), (Journal{"1 Error when adding match for TemperatureSignal: not you | "
                               "(false, -1, -1, -1, false)",
                               "fire event_port | (false, -1, -1, -1, false)"}));
    EXPECT_EQ(bus.last().install(messages.reply("s", "more")), 0);
    EXPECT_EQ(take(), (Journal{"fire event_port | (true, -1, -1, -1, false)"}));
    EXPECT_EQ(readings(), Journal{"read"}) << "only the owner was read";
    EXPECT_EQ(answer(messages.reply("i", 3)),
              (Journal{"release #4 GetTemperatureIdFromName | (true, 3, -1, -1, true)",
                       "fire event_port | (true, 3, -1, -1, false)"}));
    EXPECT_EQ(answer(messages.reply("i", 12)),
              (Journal{"release #5 RegisterForTemperatureChangeSignal | (true, 3, 12, -1, true)",
                       "fire event_port | (true, 3, 12, -1, false)"}));
    EXPECT_EQ(answer(messages.reply("d", 20.0)),
              (Journal{"release #6 GetTemperature | (true, 3, 12, 20, true)",
                       "fire event_port | (true, 3, 12, 20, false)"}));
    EXPECT_EQ(bus.sending(3).deliver(change(12, 21.0)), 0);
    EXPECT_EQ(take(), (Journal{"fire event_port | (true, 3, 12, 21, false)"}));
}

TEST_F(TemperatureReaderOrderTest, LeavesItsMatchCountingWhenStopped) {
    make();
    register_reader();
    watch();
    (*reader)->stop();
    EXPECT_EQ(take(), (Journal{"release #1 match | (true, 3, 12, -1, false)",
                               "release #2 GetNameOwner | (true, 3, 12, -1, false)",
                               "release #3 TemperatureChangeSignal | (true, 3, 12, -1, false)"}));
}

TEST_F(TemperatureReaderTest, TakesTheConnectionAnewAtEachUse) {
    make();
    appear();
    for (std::size_t step = 3; step <= 6; ++step) {
        sd_bus* const connection = step % 2 == 0 ? messages.bus() : other_bus();
        recorders.tools.use_bus(connection);
        EXPECT_EQ(run().size(), 1U);
        EXPECT_EQ(bus.sending(step).bus, connection) << step;
        if (step == 3) {
            EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        } else if (step < 6) {
            EXPECT_EQ(bus.last().deliver(messages.reply("i", 3)), 0);
        }
        (void)bus.take_journal();
    }
}

TEST_F(TemperatureReaderTest, AsksForAReadingBeforeItPublishesAFake) {
    make(fake(true, 48.5));
    register_reader();
    (void)take();
    EXPECT_TRUE((*reader)->run());
    EXPECT_EQ(take(),
              (Journal{reading_call, "publish temperature_out = 48.5", debug_entry + "48.5"}));
}

// The mutex: what is published is chosen, published and mirrored under it; so is a fake value read.

class TemperatureReaderLockTest : public TemperatureReaderOrderTest {
  protected:
    void SetUp() override {
        make();
        register_reader();
        fetch(20.0);
        mutex.emplace(LayoutProbe::fake_mutex(**reader));
        (void)take();
    }
    void TearDown() override {
        mutex.reset();
        TemperatureReaderOrderTest::TearDown();
    }
    Journal effects_of_a_run() {
        EXPECT_TRUE((*reader)->run());
        return take();
    }

    std::optional<support::LockRecorder> mutex;
};

TEST_F(TemperatureReaderLockTest, PublishesAndThenMirrorsUnderTheLock) {
    EXPECT_EQ(effects_of_a_run(),
              (Journal{"lock", "publish temperature_out = 20", debug_entry + "20", "unlock"}));
    EXPECT_EQ(effects_of_a_run(), (Journal{"lock", "unlock"})) << "nothing new";
}

TEST_F(TemperatureReaderLockTest, ChoosesWhatItPublishesUnderTheLock) {
    journal.remark_with([this](const std::string& entry) -> std::string {
        if (entry == "lock")  // another thread has had it until now
            LayoutProbe::fake_temperature(**reader) = 50.0;
        return "";
    });
    EXPECT_EQ(effects_of_a_run(),
              (Journal{"lock", "publish temperature_out = 50", debug_entry + "50", "unlock"}));
}

TEST_F(TemperatureReaderLockTest, ReadsAFakeValueUnderTheLockAndTakesItAwayWithoutIt) {
    (*reader)->reconfigure(support::observed(fake(true, 50.0)), {});
    EXPECT_EQ(take(), (Journal{"bool fake.active", "lock", "double fake.value", "unlock",
                               "fire event_port"}));
    journal.remark_with([this](const std::string& entry) -> std::string {
        return entry.starts_with("fire") && !LayoutProbe::fake_temperature(**reader) ? ", gone"
                                                                                     : "";
    });
    (*reader)->reconfigure(support::observed(fake(false, 50.0)), {});
    EXPECT_EQ(take(), (Journal{"bool fake.active", "fire event_port, gone"}));
}

TEST_F(TemperatureReaderLockTest, LetsTheErrorOfAFailingLockOut) {
    for (const auto& use :
         {std::function<void()>([this] { (void)(*reader)->run(); }),
          std::function<void()>([this] { (*reader)->reconfigure(fake(true, 50.0), {}); })}) {
        mutex->fail_next(EDEADLK);
        try {
            use();
            FAIL() << "went on without the lock";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EDEADLK);
        }
        EXPECT_EQ(take(), Journal{});
    }
    EXPECT_FALSE(LayoutProbe::fake_temperature(**reader));
}

// What a call or reply that is out does not hold up, and what a read leaves that comes to nothing.

TEST_F(TemperatureReaderTest, PublishesAFakeThatIsSwitchedOnWhileTheReadingIsOut) {
    make();
    register_reader();
    EXPECT_EQ(run(), (Journal{reading_call}));
    (*reader)->reconfigure(fake(true, 50.0), {});
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), 50.0);
    EXPECT_EQ(debug_values(), (Values{debug_entry + "50"}));
}

TEST_F(TemperatureReaderTest, PublishesAFakeThatIsSwitchedOnAfterTheReadingFailed) {
    make();
    register_reader();
    EXPECT_EQ(run(), (Journal{reading_call}));
    EXPECT_EQ(bus.last().deliver(messages.error("com.example.Error", nullptr)), -ENXIO);
    EXPECT_EQ(log.take().size(), 1U);
    (*reader)->reconfigure(fake(true, 50.0), {});
    EXPECT_EQ(run(), Journal{}) << "the failed call is held for good";
    EXPECT_EQ(published(), 50.0);
    notify(21.0);
    (*reader)->reconfigure(fake(false, 0.0), {});
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(published(), 21.0) << "a signal brings readings all the same";
    EXPECT_EQ(debug_values().size(), 2U);
}

TEST_F(TemperatureReaderTest, TakesASignalOfWhichNothingIsReadForOneWithoutAnId) {
    make();
    appear();
    install();
    bus.make_up(support::MessageFunction::read, {0});
    EXPECT_EQ(bus.sending(3).deliver(change(12, 20.0)), 0);
    EXPECT_TRUE(reader->woken()) << "-1 is the reader's id until it is registered";
    EXPECT_EQ(LayoutProbe::temperature(**reader), -999.0);
}

}  // namespace
