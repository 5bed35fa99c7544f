// Who may own and call a host on a system bus, with a daemon of that kind and real users.
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "tests/integration/host/control_client.hpp"
#include "tests/pages/help.hpp"
#include "tests/support/json_printing.hpp"
#include "tests/support/pattern.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

// Users that every Debian has; the one that the policy is installed for may not be there.
constexpr const char* host_user = "daemon";
constexpr const char* other_user = "nobody";

std::string installed_policy() {
    std::ifstream file(FENWA_POLICY);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/// A bus of the type "system" whose rules are those of Debian's system.conf, with the policy.
class BusPolicy : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(geteuid(), 0U) << "these tests become other users and have to run as root";
        fs::permissions(folder_.path(), fs::perms(0755));
        const Pattern user("<policy user=\"" FENWA_HOST_USER "\">");
        const std::string policy = installed_policy();
        ASSERT_TRUE(!user.find(policy).empty()) << policy;
        folder_.write("policy.conf",
                      user.replace(policy, "<policy user=\"" + std::string(host_user) + "\">"));
        folder_.write("bus.conf", R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <auth>EXTERNAL</auth>
  <listen>)" + address() + R"(</listen>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Introspectable"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Properties"/>
  </policy>
  <include>policy.conf</include>
</busconfig>
)");
        daemon_ = std::make_unique<Process>(
            Words{"dbus-daemon", "--config-file=" + (folder_.path() / "bus.conf").string(),
                  "--nofork", "--nopidfile", "--nosyslog", "--print-address=1"});
        ASSERT_TRUE(daemon_->wait_for_text("unix:")) << daemon_->err();
        // It would leave out a rule with a complaint.
        ASSERT_EQ(daemon_->err().find("policy"), std::string::npos) << daemon_->err();
    }

    [[nodiscard]] std::string address() const {
        return "unix:path=" + (folder_.path() / "bus").string();
    }

    /// The command of a user. What is built may lie where only its owner looks, which is no
    /// business of the bus: the user may read everything.
    [[nodiscard]] static Words as(const std::string& user, Words command) {
        if (user == "root")
            return command;
        const Words who{
            "setpriv",        "--reuid=" + user,          "--regid=nogroup",
            "--clear-groups", "--inh-caps=+dac_override", "--ambient-caps=+dac_override"};
        command.insert(command.begin(), who.begin(), who.end());
        return command;
    }

    [[nodiscard]] Words fenwa(const Words& words) const {
        Words command{path_of("fenwa")};
        command.insert(command.end(), words.begin(), words.end());
        command.insert(command.end(), {"--bus", address()});
        return command;
    }

    [[nodiscard]] Words run_command() const {
        return fenwa(
            {"run", "--format", "json", "--control",
             folder_.write("graph.toml", "[blocks.tick]\ntype = \"Timer\"\ninterval = 10\n")});
    }

    [[nodiscard]] Ended describe(const std::string& user) const {
        return run_program(
            as(user, {"busctl", "--address=" + address(), "call", "com.tarlo.Fenwa.Host1",
                      "/com/tarlo/Fenwa/Host1", "com.tarlo.Fenwa.Host1", "Describe"}));
    }

    /// Connects as a user. The daemon sees the effective user of the thread that connects.
    [[nodiscard]] std::unique_ptr<ControlClient> client_of(const std::string& user) const {
        const passwd* const entry = getpwnam(user.c_str());
        EXPECT_NE(entry, nullptr) << user;
        syscall(SYS_setresuid, -1, entry->pw_uid, -1);
        auto client = std::make_unique<ControlClient>(address());
        syscall(SYS_setresuid, -1, 0, -1);
        return client;
    }

  private:
    TemporaryFolder folder_;
    std::unique_ptr<Process> daemon_;
};

void expect_that_others_are_refused(const Ended& read, const Ended& described) {
    EXPECT_EQ(read.code, 69);
    EXPECT_EQ(read.out, "");
    EXPECT_TRUE(
        read.err.starts_with("fenwa: the host does not answer: "
                             "org.freedesktop.DBus.Error.AccessDenied: "))
        << read.err;
    EXPECT_EQ(described.code, 1);
    EXPECT_EQ(described.out, "");
}

TEST_F(BusPolicy, LetsRootAndTheHostsUserOwnAndCallAndNobodyElse) {
    for (const char* owner : {"root", host_user}) {
        SCOPED_TRACE(owner);
        Process host(as(owner, run_command()));
        ASSERT_TRUE(host.wait_for_text("\"ready\"")) << host.err();
        for (const char* caller : {"root", host_user}) {
            SCOPED_TRACE(caller);
            const Ended read = run_program(as(caller, fenwa({"read", "tick.out"})));
            EXPECT_EQ(read.code, 0);
            EXPECT_TRUE(read.out.starts_with("{\"ticks\":")) << read.out;
            EXPECT_EQ(read.err, "");
            EXPECT_EQ(describe(caller).code, 0);
        }
        expect_that_others_are_refused(run_program(as(other_user, fenwa({"read", "tick.out"}))),
                                       describe(other_user));
        EXPECT_EQ(host.terminate().code, 0);
    }
}

TEST_F(BusPolicy, LetsNobodyElseOwnTheName) {
    const Ended ended = run_program(as(other_user, run_command()));
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err,
              "fenwa: cannot own the bus name 'com.tarlo.Fenwa.Host1': "
              "Permission denied\n");
}

TEST_F(BusPolicy, GivesTheSignalsToThoseWhoMayCall) {
    const auto root = client_of("root");
    const auto user = client_of(host_user);
    const auto other = client_of(other_user);
    for (const auto& client : {root.get(), user.get(), other.get()})
        client->overhear();
    Process host(as(host_user, run_command()));
    user->serve_until([&] { return user->call("Subscribe", "") == "ok"; });
    EXPECT_TRUE(
        other->call("Subscribe", "").starts_with("org.freedesktop.DBus.Error.AccessDenied"));
    EXPECT_GE(root->changes(2).size(), 2U);
    EXPECT_GE(user->changes(2).size(), 2U);
    // The daemon answers behind all that it has sent before.
    const char* id = nullptr;
    sd_bus_message* reply = nullptr;
    common::check(sd_bus_call_method(&other->bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus", "GetId", nullptr, &reply, ""),
                  "GetId");
    const common::MessagePtr owned(reply);
    common::check(sd_bus_message_read(reply, "s", &id), "sd_bus_message_read");
    EXPECT_EQ(other->changes(0), Words{});
    while (common::check(sd_bus_process(&other->bus(), nullptr), "sd_bus_process") > 0) {
    }
    EXPECT_EQ(other->changes(0), Words{});
    EXPECT_EQ(host.terminate().code, 0);
}

}  // namespace
}  // namespace test
