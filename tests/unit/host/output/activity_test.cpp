#include "host/output/activity.hpp"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <string>

#include "host/runtime/event_fd.hpp"

namespace host {
namespace {

bool is_set(const EventFd& event) {
    eventfd_t count = 0;
    return eventfd_read(event.get(), &count) == 0;
}

TEST(ActivityTest, TheInnermostIsSeenWithItsBegin) {
    EXPECT_EQ(Activity::seen().text, "");
    const Activity callback("a callback", "", nullptr);
    EXPECT_EQ(Activity::seen().text, "a callback");
    EXPECT_TRUE(Activity::seen().since);
    {
        const Activity run("block", "reader", "run");
        const Activity::Seen seen = Activity::seen();
        EXPECT_EQ(seen.text, "block 'reader' in run");
        EXPECT_EQ(seen.block, "reader");
        EXPECT_TRUE(seen.since);
        EXPECT_EQ(Activity::current(), &run);
    }
    // Nobody has noted when it became the innermost again.
    EXPECT_EQ(Activity::seen().text, "a callback");
    EXPECT_FALSE(Activity::seen().since);
}

TEST(ActivityTest, ANameIsCutAndNoneShowsTheOneBefore) {
    const std::string name(100, 'n');
    {
        const Activity run("block", name.c_str(), "run");
        EXPECT_EQ(Activity::seen().block, name.substr(0, 63));
    }
    for (const char* shorter : {"", "12345678", "reader"}) {
        const Activity run("block", shorter, "run");
        EXPECT_EQ(Activity::seen().block, shorter);
    }
}

TEST(ActivityTest, ThoseThatNestTooDeepAreLeftOut) {
    const Activity one("block", "1", "run");
    const Activity two("block", "2", "run");
    const Activity three("block", "3", "run");
    const Activity four("block", "4", "run");
    {
        const Activity five("block", "5", "run");
        EXPECT_EQ(Activity::seen().block, "4");
        EXPECT_EQ(Activity::current(), &five);
    }
    EXPECT_EQ(Activity::seen().block, "4");
}

TEST(ActivityTest, TheNextBeginSetsAnEventOnce) {
    const EventFd event;
    EXPECT_TRUE(Activity::notify_at_begin(event.get(), Activity::seen().number));
    EXPECT_FALSE(is_set(event));
    { const Activity run("block", "reader", "run"); }
    EXPECT_TRUE(is_set(event));
    { const Activity run("block", "reader", "run"); }
    EXPECT_FALSE(is_set(event));
}

TEST(ActivityTest, AnEventIsRefusedWhenOneHasBegunSince) {
    const EventFd event;
    const std::uint32_t number = Activity::seen().number;
    const Activity run("block", "reader", "run");
    EXPECT_FALSE(Activity::notify_at_begin(event.get(), number));
    const Activity inner("block", "guard", "run");
    EXPECT_FALSE(is_set(event));
}

}  // namespace
}  // namespace host
