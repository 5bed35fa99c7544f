#include "host/runtime/event_loop.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace host {
namespace {

TEST(EventLoopTest, NoBlockRunsOnceTheLoopIsAskedToStop) {
    Supervisor& supervisor = Supervisor::start(Supervisor::Hangup::ends);
    EventLoop loop(supervisor);
    int rounds = 0;
    loop.serve_between_events([&] {
        if (++rounds == 1)
            supervisor.request_stop();
        return false;
    });
    loop.run(std::nullopt);
    EXPECT_EQ(rounds, 1);
}

}  // namespace
}  // namespace host
