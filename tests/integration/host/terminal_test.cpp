#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "common/process/descriptor.hpp"
#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// A host in a terminal that a test closes.
class HostInTerminal : public HostTest, public testing::WithParamInterface<std::string> {
  protected:
    /// The first process of a session whose terminal is stdin and stdout of all its processes.
    /// @param script for a shell, in which "$@" is the host.
    Words in_session(const std::string& script) const {
        EXPECT_EQ(grantpt(terminal_.get()), 0);
        EXPECT_EQ(unlockpt(terminal_.get()), 0);
        Words words{"sh",
                    "-c",
                    R"(exec <>"$0" >&0; exec setsid --ctty "$@")",
                    ptsname(terminal_.get()),
                    "sh",
                    "-c",
                    script,
                    "sh"};
        const Words host = run_command(probes("[blocks.one]\ntype = \"Leaver\"\n"),
                                       {"--bus", bus(), "--format", "text"});
        words.insert(words.end(), host.begin(), host.end());
        return words;
    }

    void close_terminal() { terminal_.close(); }

  private:
    common::Descriptor terminal_{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
};

TEST_P(HostInTerminal, IsStoppedInOrderWhenTheTerminalIsClosed) {
    BusListener listener(bus());
    listener.listen_for_farewells();
    Process session(in_session(GetParam()));
    ASSERT_TRUE(session.wait_for_error_text("fenwa: ready"));
    close_terminal();
    EXPECT_TRUE(session.wait_for_error_text("fenwa: stopped"));
    EXPECT_EQ(listener.farewells(2), (std::vector<std::string>{"one stop", "one destructor"}));
}

INSTANTIATE_TEST_SUITE_P(
    WhoseSession, HostInTerminal,
    testing::Values(
        // is its own, is that of a shell that dies of it, and of one that tells.
        R"(exec "$@")", R"("$@"; exit)",
        R"(trap 'kill -HUP $host' HUP; "$@" & host=$!; wait; wait)"));

TEST_F(HostInTerminal, ReloadsOnAHangUpThatIsSomebodysOwn) {
    Process host(in_session(R"(exec "$@")"));
    ASSERT_TRUE(host.wait_for_error_text("fenwa: ready"));
    host.send_signal(SIGHUP);
    EXPECT_TRUE(host.wait_for_error_text("reloaded; no settings have changed"));
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(HostInTerminal, ThatIsStartedWithNohupGoesOn) {
    Process host(in_session(R"(trap '' HUP; exec "$@")"));
    ASSERT_TRUE(host.wait_for_error_text("fenwa: ready"));
    close_terminal();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(host.err().find("reloaded"), std::string::npos);
    host.send_signal(SIGHUP);
    EXPECT_TRUE(host.wait_for_error_text("reloaded; no settings have changed"));
    EXPECT_EQ(host.terminate().code, 0);
}

}  // namespace
}  // namespace test
