// Who may run, call and signal to a host on a system bus, with a daemon of that kind, Debian's own
// system.conf and real users.
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "common/bus/callback.hpp"
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

// The users of FENWA_POLICY, and one that it does not know.
constexpr const char* host_user = "daemon";
constexpr const char* controller_user = "bin";
constexpr const char* other_user = "nobody";
constexpr const char* all_users[]{"root", host_user, controller_user, other_user};

/// A service and what blocks call of it.
struct Service {
    const char* name;
    const char* interface;
    const char* member;
};

constexpr Service services[]{
    {"com.tarlo.TemperatureController", "com.tarlo.TemperatureController", "GetTemperature"},
    {"com.tarlo.PowerControl.Consumer", "com.tarlo.PowerControl.Consumer", "Register"},
    {"com.tarlo.PowerControl.Status", "org.freedesktop.DBus.Properties", "Get"},
    {"com.tarlo.Onscreencontrols1", "com.tarlo.Onscreencontrols1", "AddFeatures"},
    {"com.tarlo.PrioritizedTextOverlay", "com.tarlo.PrioritizedTextOverlay", "Set"},
    {"com.tarlo.VideoReady1", "com.tarlo.VideoReady1", "SignalVideoReady"},
    {"org.freedesktop.systemd1", "org.freedesktop.systemd1.Manager", "GetUnitFileState"},
};

/// Debian's configuration of the system bus, for a daemon that stays in the foreground as root,
/// starts no service, and reads `policies` in place of the installed ones.
std::string system_conf(const std::string& address, const std::string& policies) {
    std::ifstream file("/usr/share/dbus-1/system.conf");
    std::stringstream text;
    text << file.rdbuf();
    std::string conf =
        Pattern("<listen>[^<]*</listen>").replace(text.str(), "<listen>" + address + "</listen>");
    for (const char* element :
         {"<user>[^<]*</user>", "<fork/>", "<pidfile>[^<]*</pidfile>",
          "<servicehelper>[^<]*</servicehelper>", "<standard_system_servicedirs/>",
          "<includedir>[^<]*</includedir>", "<include [^>]*>[^<]*</include>"})
        conf = Pattern(element).replace(conf, "");
    return Pattern("</busconfig>").replace(conf, policies + "</busconfig>");
}

/// A bus of the type "system" with the policy.
class BusPolicy : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(geteuid(), 0U) << "these tests become other users and have to run as root";
        fs::permissions(folder_.path(), fs::perms(0755));
        // The platform's own policy lets its services own their names.
        // Another policy, read before, may be generous.
        std::string policies = R"(<policy context="default">
  <allow own_prefix="com.tarlo.Fenwa.Host1"/>
  <allow send_destination_prefix="com.tarlo.Fenwa" send_type="method_call"/>
  <allow send_destination_prefix="com.tarlo.Vipd" send_type="method_call"/>
</policy>
<include>)" FENWA_POLICY R"(</include>
<policy user="root">)";
        for (const Service& service : services)
            policies += std::string("<allow own=\"") + service.name + "\"/>";
        folder_.write("bus.conf", system_conf(address(), policies + "</policy>"));
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

    [[nodiscard]] Words run_command(const std::string& control = "--control") const {
        return fenwa(
            {"run", "--format", "json", control,
             folder_.write("graph.toml", "[blocks.tick]\ntype = \"Timer\"\ninterval = 10\n")});
    }

    /// A graph with a bus name and a method, as a camera's has them.
    [[nodiscard]] Words run_consumer() const {
        return fenwa({"run", "--format", "json", "--control", folder_.write("power.toml", R"(
plugins = ["libfenwa-temperature.so"]
[bus]
names = ["com.tarlo.Vipd.ch0"]
[blocks.tick]
type = "Timer"
interval = 10
[blocks.consumer]
type = "PowerConsumer"
power = 4.5
[[connections]]
from = "tick.out"
to = "consumer.timer_in"
)")});
    }

    [[nodiscard]] Ended describe(const std::string& user,
                                 const std::string& name = "com.tarlo.Fenwa.Host1") const {
        return run_program(
            as(user, {"busctl", "--address=" + address(), "call", name, "/com/tarlo/Fenwa/Host1",
                      "com.tarlo.Fenwa.Host1", "Describe"}));
    }

    /// Connects as a user. The daemon sees the effective user of the thread that connects.
    template <class Client = BusClient, class... Arguments>
    [[nodiscard]] std::unique_ptr<Client> client_of(const std::string& user,
                                                    Arguments... arguments) const {
        const passwd* const entry = getpwnam(user.c_str());
        EXPECT_NE(entry, nullptr) << user;
        syscall(SYS_setresuid, -1, entry->pw_uid, -1);
        auto client = std::make_unique<Client>(address(), arguments...);
        syscall(SYS_setresuid, -1, 0, -1);
        return client;
    }

    [[nodiscard]] bool may_own(const std::string& user, const std::string& name) const {
        const int r = sd_bus_request_name(&client_of(user)->bus(), name.c_str(), 0);
        EXPECT_TRUE(r > 0 || r == -EPERM || r == -EACCES) << r;
        return r > 0;
    }

    /// Calls SetPower as a user. @param interface may be null, as in a call that names none.
    /// @returns the name of the error, or nothing.
    [[nodiscard]] std::string set_power(const std::string& user, const char* interface,
                                        double power,
                                        const char* destination = "com.tarlo.Vipd.ch0",
                                        const char* member = "SetPower") const {
        common::BusError error;
        const auto client = client_of(user);
        const int r =
            sd_bus_call_method(&client->bus(), destination, "/com/tarlo/Vipd/PowerConsumer",
                               interface, member, &error, nullptr, "d", power);
        if (r >= 0)
            return {};
        return error.text(r).substr(0, error.text(r).find(':'));
    }

    /// The unique name of a name's owner.
    [[nodiscard]] std::string owner_of(const char* name) const {
        const auto client = client_of("root");
        common::MessagePtr reply;
        common::check(sd_bus_call_method(&client->bus(), "org.freedesktop.DBus",
                                         "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                         "GetNameOwner", nullptr, reply.out(), "s", name),
                      "GetNameOwner");
        return common::read_string(*reply);
    }

  private:
    TemporaryFolder folder_;
    std::unique_ptr<Process> daemon_;
};

/// Serves all that the daemon has sent until now: it answers behind that.
void receive_all(BusClient& client) {
    common::check(sd_bus_call_method(&client.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus", "GetId", nullptr, nullptr, ""),
                  "GetId");
    while (common::check(sd_bus_process(&client.bus(), nullptr), "sd_bus_process") > 0) {
    }
}

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
        for (const char* caller : {controller_user, other_user}) {
            SCOPED_TRACE(caller);
            expect_that_others_are_refused(run_program(as(caller, fenwa({"read", "tick.out"}))),
                                           describe(caller));
        }
        EXPECT_EQ(host.terminate().code, 0);
    }
}

TEST_F(BusPolicy, LetsRootAndTheHostsUserOwnTheNamesOfHostsAndChannels) {
    for (const char* name : {"com.tarlo.Fenwa.Host1", "com.tarlo.Fenwa.Host1.front",
                             "com.tarlo.Vipd.ch0", "com.tarlo.Vipd.ch11"}) {
        for (const std::string user : all_users)
            EXPECT_EQ(may_own(user, name), user == "root" || user == host_user) << user << name;
    }
    for (const char* name : {"com.tarlo.Fenwa", "com.tarlo.Fenwa.Host10", "com.tarlo.Fenwa.Host2",
                             "com.tarlo.Vipdch0", "com.tarlo.Other"}) {
        for (const char* user : all_users)
            EXPECT_FALSE(may_own(user, name)) << user << name;
    }
}

TEST_F(BusPolicy, LetsNobodyElseOwnTheName) {
    const Ended ended = run_program(as(other_user, run_command()));
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err,
              "fenwa: cannot own the bus name 'com.tarlo.Fenwa.Host1': "
              "Permission denied\n");
}

TEST_F(BusPolicy, CoversHostsSideBySide) {
    Process first(as(host_user, run_command("--control")));
    Process second(as(host_user, run_command("--control=com.tarlo.Fenwa.Host1.second")));
    for (Process* host : {&first, &second})
        ASSERT_TRUE(host->wait_for_text("\"ready\"")) << host->err();
    EXPECT_EQ(describe(host_user, "com.tarlo.Fenwa.Host1.second").code, 0);
    EXPECT_EQ(describe(other_user, "com.tarlo.Fenwa.Host1.second").code, 1);
    const Ended list = run_program(as(host_user, fenwa({"list"})));
    EXPECT_NE(list.out.find("com.tarlo.Fenwa.Host1.second"), std::string::npos) << list.out;
    EXPECT_EQ(first.terminate().code, 0);
    EXPECT_EQ(second.terminate().code, 0);
}

TEST_F(BusPolicy, GivesTheSignalsToThoseWhoMayCall) {
    for (const std::string name : {"com.tarlo.Fenwa.Host1", "com.tarlo.Fenwa.Host1.second"}) {
        SCOPED_TRACE(name);
        std::vector<std::unique_ptr<ControlClient>> clients;
        for (const char* user : all_users) {
            clients.push_back(client_of<ControlClient>(user, name));
            clients.back()->overhear();
        }
        Process host(as(host_user, run_command("--control=" + name)));
        clients[1]->serve_until([&] { return clients[1]->call("Subscribe", "") == "ok"; });
        for (std::size_t other : {2, 3})
            EXPECT_TRUE(clients[other]
                            ->call("Subscribe", "")
                            .starts_with("org.freedesktop.DBus.Error.AccessDenied"));
        for (std::size_t allowed : {0, 1})
            EXPECT_GE(clients[allowed]->changes(2).size(), 2U);
        for (std::size_t other : {2, 3}) {
            receive_all(*clients[other]);
            EXPECT_EQ(clients[other]->changes(0), Words{});
        }
        EXPECT_EQ(host.terminate().code, 0);
    }
}

TEST_F(BusPolicy, LetsThePowerControllerAloneSetThePower) {
    constexpr const char* interface = "com.tarlo.Vipd.PowerConsumer";
    constexpr const char* denied = "org.freedesktop.DBus.Error.AccessDenied";
    Process host(as(host_user, run_consumer()));
    ASSERT_TRUE(host.wait_for_text("\"ready\"")) << host.err();
    const std::string owner = owner_of("com.tarlo.Vipd.ch0");
    for (const char* user : {"root", host_user, other_user}) {
        SCOPED_TRACE(user);
        EXPECT_EQ(set_power(user, interface, 1.0), denied);
        EXPECT_EQ(set_power(user, nullptr, 1.0), denied);
        EXPECT_EQ(set_power(user, interface, 1.0, owner.c_str()), denied);
    }
    EXPECT_EQ(set_power(controller_user, nullptr, 1.0), denied);
    EXPECT_EQ(set_power(controller_user, interface, 1.0, "com.tarlo.Vipd.ch0", "Other"), denied);
    EXPECT_EQ(set_power(controller_user, interface, 2.5), "");
    ASSERT_TRUE(host.wait_for_text("2.5"));
    EXPECT_EQ(set_power(controller_user, interface, 3.5, owner.c_str()), "");
    ASSERT_TRUE(host.wait_for_text("3.5"));
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.out.find("\"value\":1.0"), std::string::npos) << ended.out;
}

/// A client that owns the name of a service and writes down the calls that reach it.
class CalledService : public BusClient {
  public:
    explicit CalledService(const std::string& address) : BusClient(address) {
        common::check(
            sd_bus_add_filter(&bus(), nullptr, common::callback<&CalledService::on_message>, this),
            "sd_bus_add_filter");
    }

    /// The members that have been called until now.
    [[nodiscard]] Words calls() {
        receive_all(*this);
        return calls_;
    }

  private:
    void on_message(sd_bus_message& message) {
        if (sd_bus_message_is_method_call(&message, nullptr, nullptr) > 0)
            calls_.emplace_back(sd_bus_message_get_member(&message));
    }

    Words calls_;
};

TEST_F(BusPolicy, LetsRootAndTheHostsUserCallTheServicesOfTheBlocks) {
    for (const Service& called : services) {
        for (const std::string user : all_users) {
            SCOPED_TRACE(user + " calls " + called.name);
            const auto service = client_of<CalledService>("root");
            service->own(called.name);
            const auto caller = client_of(user);
            const auto call = [&](const char* interface, const char* member) {
                common::MessagePtr message;
                common::check(sd_bus_message_new_method_call(&caller->bus(), message.out(),
                                                             called.name, "/", interface, member),
                              "call");
                common::check(sd_bus_send(&caller->bus(), message.get(), nullptr), "send");
            };
            call(called.interface, called.member);
            call("com.example.Other", "Other");
            receive_all(*caller);
            EXPECT_EQ(service->calls(),
                      user == "root" || user == host_user ? (Words{called.member}) : Words{});
        }
    }
}

/// A client that writes down the signals that reach it.
class Listener : public BusClient {
  public:
    explicit Listener(const std::string& address) : BusClient(address) {
        common::check(sd_bus_add_match(&bus(), nullptr, "type='signal'",
                                       common::callback<&Listener::on_signal>, this),
                      "sd_bus_add_match");
    }

    /// The members of the signals that somebody has sent until now.
    [[nodiscard]] Words from(const std::string& name) {
        receive_all(*this);
        Words members;
        for (const auto& [from, member] : signals_) {
            if (from == name)
                members.push_back(member);
        }
        return members;
    }

    /// Forgets what has come until now, such as the acquisition of its own name.
    void forget() {
        receive_all(*this);
        signals_.clear();
    }

  private:
    void on_signal(sd_bus_message& signal) {
        signals_.emplace_back(sd_bus_message_get_sender(&signal),
                              sd_bus_message_get_member(&signal));
    }

    std::vector<std::pair<std::string, std::string>> signals_;
};

std::string unique_name(BusClient& client) {
    const char* name = nullptr;
    common::check(sd_bus_get_unique_name(&client.bus(), &name), "sd_bus_get_unique_name");
    return name;
}

/// Sends a signal to everybody, or to one connection.
void send_signal(BusClient& sender, const char* path, const char* interface, const char* member,
                 BusClient* destination = nullptr) {
    common::MessagePtr signal;
    common::check(sd_bus_message_new_signal(&sender.bus(), signal.out(), path, interface, member),
                  "signal");
    if (destination != nullptr)
        common::check(
            sd_bus_message_set_destination(signal.get(), unique_name(*destination).c_str()),
            "destination");
    common::check(
        sd_bus_message_append(signal.get(), "sss", "com.tarlo.TemperatureController", ":1.99", ""),
        "append");
    common::check(sd_bus_send(&sender.bus(), signal.get(), nullptr), "sd_bus_send");
}

/// What blocks listen to, from somebody, to everybody and to one listener: a sign that nothing
/// forbids is the last.
void send_all(BusClient& sender, BusClient& listener) {
    for (BusClient* const to : {static_cast<BusClient*>(nullptr), &listener}) {
        send_signal(sender, "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
                    to);
        for (const char* member : {"TemperatureSignal", "TemperatureChangeSignal"})
            send_signal(sender, "/com/tarlo/TemperatureController",
                        "com.tarlo.TemperatureController", member, to);
        send_signal(sender, "/com/tarlo/PowerControl/Status", "org.freedesktop.DBus.Properties",
                    "PropertiesChanged", to);
    }
    send_signal(sender, "/com/example", "com.example.Sign", "Sign");
    receive_all(sender);
}

TEST_F(BusPolicy, LetsNobodySendWhatOnlyAServiceOrTheDaemonMay) {
    for (const char* receiver : all_users) {
        for (const char* user : all_users) {
            SCOPED_TRACE(std::string(user) + " to " + receiver);
            const auto listener = client_of<Listener>(receiver);
            const auto sender = client_of(user);
            send_all(*sender, *listener);
            EXPECT_EQ(listener->from(unique_name(*sender)), (Words{"Sign"}));
        }
    }
}

TEST_F(BusPolicy, LetsTheOwnerOfAServicesNameSendItsSignals) {
    for (const char* receiver : all_users) {
        SCOPED_TRACE(receiver);
        const auto listener = client_of<Listener>(receiver);
        const auto controller = client_of("root");
        controller->own("com.tarlo.TemperatureController");
        send_all(*controller, *listener);
        EXPECT_EQ(listener->from(unique_name(*controller)),
                  (Words{"TemperatureSignal", "TemperatureChangeSignal", "TemperatureSignal",
                         "TemperatureChangeSignal", "Sign"}));
        const auto status = client_of("root");
        status->own("com.tarlo.PowerControl.Status");
        send_all(*status, *listener);
        EXPECT_EQ(listener->from(unique_name(*status)),
                  (Words{"PropertiesChanged", "PropertiesChanged", "Sign"}));
        // For the daemon, who waits for the name is an owner, too.
        const auto next = client_of("root");
        EXPECT_EQ(
            sd_bus_request_name(&next->bus(), "com.tarlo.PowerControl.Status", SD_BUS_NAME_QUEUE),
            0);
        send_all(*next, *listener);
        EXPECT_EQ(listener->from(unique_name(*next)),
                  (Words{"PropertiesChanged", "PropertiesChanged", "Sign"}));
    }
}

TEST_F(BusPolicy, LetsEverybodySeeTheDaemonsOwnerChanges) {
    for (const char* receiver : all_users) {
        SCOPED_TRACE(receiver);
        const auto listener = client_of<Listener>(receiver);
        listener->forget();
        const auto newcomer = client_of(other_user);
        EXPECT_EQ(listener->from("org.freedesktop.DBus"), (Words{"NameOwnerChanged"}));
    }
}

}  // namespace
}  // namespace test
