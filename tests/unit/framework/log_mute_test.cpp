#include "framework/shared/log_mute.hpp"

#include <gtest/gtest.h>

#include <thread>

#include "fenwa/debug_data.hpp"
#include "framework/shared/debug_data_store.hpp"
#include "tests/support/log_recorder.hpp"

namespace {

using Fenwa::debug_data;
using Fenwa::DebugValue;
using Fenwa::LogMute;
using Lines = std::vector<std::string>;

/// Logs and sets `name`, and says what the store holds under it then.
std::optional<DebugValue> speak(const std::string& name) {
    logger(4, "%s", name.c_str());
    debug_data().set_value(name, name);
    return debug_data().get_value(name);
}

class LogMuteTest : public testing::Test {
  protected:
    LogMuteTest() {
        Fenwa::set_debug_listener(
            [this](const std::string& key, const DebugValue&) { keys.push_back(key); });
    }
    ~LogMuteTest() override { Fenwa::set_debug_listener({}); }

    support::LogRecorder log;
    Lines keys;
};

TEST_F(LogMuteTest, KeepsWhatItsThreadSaysToThatThread) {
    {
        const LogMute mute;
        EXPECT_EQ(speak("own"), DebugValue(std::string("own")));
        std::thread([] { EXPECT_EQ(debug_data().get_value("own"), std::nullopt); }).join();
    }
    EXPECT_EQ(debug_data().get_value("own"), std::nullopt);
    EXPECT_EQ(log.take(), Lines{});
    EXPECT_EQ(keys, Lines{});
}

TEST_F(LogMuteTest, LetsTheOtherThreadsBeHeardMeanwhile) {
    const LogMute mute;
    std::thread([] { speak("another"); }).join();
    EXPECT_EQ(log.take(), Lines{"4 another"});
    EXPECT_EQ(keys, Lines{"another"});
    // What they set is seen here too.
    EXPECT_EQ(debug_data().get_value("another"), DebugValue(std::string("another")));
}

TEST_F(LogMuteTest, EndsWithTheOutermost) {
    {
        const LogMute outer;
        { const LogMute inner; }
        speak("unheard");
    }
    speak("heard");
    EXPECT_EQ(log.take(), Lines{"4 heard"});
    EXPECT_EQ(keys, Lines{"heard"});
}

TEST_F(LogMuteTest, ListsNoBlocks) {
    const Fenwa::Block block("block", {});
    const LogMute mute;
    const Fenwa::RegisteredBlock listed = debug_data().register_block(block, {}, {});
    EXPECT_EQ(Fenwa::debug_data_blocks(), Lines{});
}

TEST_F(LogMuteTest, OfTheWholeProcessCoversEveryThread) {
    EXPECT_EXIT(
        {
            LogMute::mute_process();
            const LogMute own;
            const bool is_kept = speak("own").has_value();
            std::thread([] { speak("other"); }).join();
            const bool is_heard =
                !log.take().empty() || !keys.empty() || debug_data().get_value("other").has_value();
            std::_Exit(is_heard ? 1 : is_kept ? 0 : 2);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
