#pragma once

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/bus_daemon.hpp"
#include "tests/support/bus_monitor.hpp"

namespace test {

/// One list so many times.
Lines operator*(int times, const Lines& lines);

/// Matches exactly these lines, in their order.
inline auto are(const Lines& lines) {
    return ::testing::ElementsAreArray(lines);
}

/// A graph in the host, the simulated camera and a monitor of the traffic, all on a private bus.
class BlockScene : public CameraScene {
  protected:
    /// The block of a scene and its service.
    struct Cast {
        std::string service;       ///< name of the service at the camera
        std::string service_name;  ///< its bus name, whose traffic is told
        std::string first_call;    ///< the first method that the host calls after it has connected
        std::string graph;         ///< the graph after its line of plug-ins
    };

    /// The differences between tests.
    struct Setting {
        std::string bus_xml{};    ///< further limits and policy of the bus
        bool activation = false;  ///< a call brings a service up that is down
        bool camera_there = true;
        Lines without{};      ///< services that are down when the host starts
        std::string graph{};  ///< in place of the cast's, where not empty
        Lines host_options{};
    };

    explicit BlockScene(Cast cast) : cast_(std::move(cast)) {}

    /// Starts the bus, the camera, the monitor.
    void open(Setting setting);
    void open() { open(Setting{}); }
    /// Starts the host with the graph and waits until it makes its first call.
    void start_host();
    /// The same for a host that will not come so far.
    void start_host_without_first_call();
    /// Opens the scene and starts the host.
    void start(Setting setting) {
        open(std::move(setting));
        start_host();
    }
    void start() { start(Setting{}); }
    /// Opens the scene, sets a fault rule of the camera and starts the host.
    void start_with_fault(Lines rule, Setting setting) {
        open(std::move(setting));
        fail(std::move(rule));
        start_host();
    }
    void start_with_fault(Lines rule) { start_with_fault(std::move(rule), Setting{}); }

    /// Sets a value of the camera.
    void set(const std::string& name, const std::string& value) const {
        handle({"set", name, "--", value});
    }
    /// Stops the service of the cast and starts it again, as a crash does.
    void restart_service() const {
        handle({"stop", cast_.service});
        handle({"start", cast_.service});
    }

    /// Sends a signal from a connection of its own.
    template <class... Arguments>
    void emit(const char* path, const char* interface, const char* member, const char* types,
              Arguments... arguments) const {
        const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(20));
        ASSERT_GE(sd_bus_emit_signal(other.get(), path, interface, member, types, arguments...), 0);
        ASSERT_GE(sd_bus_flush(other.get()), 0);
    }
    /// Claims that the owner of a name has changed, which any client may.
    template <class... Arguments>
    void emit_owner_change(const char* types, Arguments... arguments) const {
        emit("/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged", types,
             arguments...);
    }
    /// Calls a method of `name` from a connection of its own; the path and the interface are like
    /// the name. Negative where it fails.
    template <class... Arguments>
    int call(const std::string& name, const char* member, const char* types,
             Arguments... arguments) const {
        std::string path = '/' + name;
        std::ranges::replace(path, '.', '/');
        const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(20));
        return sd_bus_call_method(other.get(), name.c_str(), path.c_str(), name.c_str(), member,
                                  nullptr, nullptr, types, arguments...);
    }

    /// Has the host read this graph in place of its own.
    void reload(const std::string& graph);
    /// Runs `fenwa` with these words against the bus of the scene, such as {"set", "a", "b=1"}.
    void fenwa(Lines words) const;

    /// Waits until an output of this value, as the event line has it, was published so often.
    void wait_for_output(const std::string& value, int times = 1);
    /// Waits until every block is started.
    void wait_until_ready();
    /// Waits for so many log lines that begin so.
    void wait_for_log(const std::string& message, int times = 1);
    /// Waits for so many more event lines of the camera with this text.
    void wait_for_camera(const std::string& text, int times = 1);
    /// Waits until the camera has answered this many more calls of `member`.
    void wait_for_replies(const std::string& member, int count = 1);

    /// Waits until the host has served everything that was sent to it before. The camera's lines
    /// may still be on their way.
    void settle() const;

    /// Stops the host with SIGTERM and records to its end.
    void close();
    /// The same without the traffic.
    void end_host();

    /// The messages on the bus, from the host's first to its last, after `close`.
    [[nodiscard]] Lines traffic() const;
    /// The host's event lines, without their times, after `close`.
    [[nodiscard]] Lines events() const;
    /// Only those of one kind, such as "output".
    [[nodiscard]] Lines events(const std::string& kind) const;

    /// The number of times that a line is in the traffic.
    [[nodiscard]] std::ptrdiff_t count(const std::string& line) const {
        return std::ranges::count(traffic(), line);
    }
    /// The host has ended well and printed nothing.
    void expect_ended_well() const {
        EXPECT_EQ(ended_.code, 0);
        EXPECT_EQ(ended_.err, "");
    }

    // Pieces of traffic about the service.
    /// Its owner has changed, such as from "service" to "".
    [[nodiscard]] std::string owner_change(const std::string& from, const std::string& to) const {
        return "daemon signals: NameOwnerChanged(\"" + cast_.service_name + "\", \"" + from +
               "\", \"" + to + "\")";
    }
    /// A call to it while it is absent.
    [[nodiscard]] std::string refused_by_daemon() const {
        return "daemon refuses client: org.freedesktop.DBus.Error.ServiceUnknown(\"" +
               nobody_there() + "\")";
    }
    /// A call to it, absent, that wants no answer: dbus-broker sends none.
    [[nodiscard]] Lines in_vain(const std::string& call) const {
        return on_dbus_broker() ? Lines{call} : Lines{call, refused_by_daemon()};
    }
    /// The text of that refusal.
    [[nodiscard]] std::string nobody_there() const {
        return not_activatable_text(cast_.service_name);
    }

    /// The exit code and output of the host.
    [[nodiscard]] const Ended& ended() const { return ended_; }

  private:
    /// Writes the graph file. @returns its path.
    [[nodiscard]] std::string write_graph(const std::string& graph) const;

    Cast cast_;
    Setting setting_;
    std::unique_ptr<BusMonitor> monitor_;
    std::unique_ptr<Process> host_;
    std::string host_name_;
    Ended ended_;
};

// Pieces of traffic that every block's story has.

/// The host has connected to the bus.
inline const Lines host_connects{
    R"(client calls daemon: Hello())",
    R"(daemon replies to client: ("client"))",
    R"(daemon signals client: NameAcquired("client"))",
};
/// The rule of the match with which blocks follow the owners of names.
inline const std::string owner_rule =
    "type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";
/// The host installs, and takes back, a match with this rule.
Lines adds_match(const std::string& rule);
Lines removes_match(const std::string& rule);
/// Nobody owns the name that the host has asked for.
inline Lines has_no_owner(const std::string& name) {
    return {"daemon refuses client: org.freedesktop.DBus.Error.NameHasNoOwner(\"" +
            no_owner_text(name) + "\")"};
}
/// A call that a fault rule answers with "com.tarlo.Broken".
inline const std::string broken_text = "A fault rule answers this call.";
inline const std::string broken =
    "service refuses client: com.tarlo.Broken(\"" + broken_text + "\")";
/// A call whose service has died.
inline const std::string died =
    "daemon refuses client: org.freedesktop.DBus.Error.NoReply(\"" + receiver_left_text() + "\")";
/// A fault of an answer, and the line of the traffic in its place: none where it never comes.
struct Mishap {
    const char* name;
    Lines fault;
    Lines answer;

    /// Whether the service has done all the same what it was asked for.
    [[nodiscard]] bool served() const { return fault.front() == "--malformed"; }
};
inline void PrintTo(const Mishap& mishap, std::ostream* out) {
    *out << mishap.name;
}
inline const Mishap an_error{"AnError", {"--error", "com.tarlo.Broken"}, {broken}};
inline const Mishap another_type{
    "OfAnotherType", {"--malformed"}, {"service replies to client: (\"malformed\")"}};
inline const Mishap no_answer{"ThatNeverComes", {"--silent"}, {}};
inline const Mishap a_death{"OfAServiceThatDies", {"--drop"}, {}};
inline std::string mishap_name(const ::testing::TestParamInfo<Mishap>& mishap) {
    return mishap.param.name;
}

/// The end of every story.
inline const Lines host_leaves{R"(daemon signals client: NameLost("client"))"};

// Event lines as the host writes them, times taken out.

inline const std::string ready_event = R"({"event":"ready"})";
inline const std::string exit_event = R"({"event":"exit","status":0})";
std::string output_event(const std::string& port, const std::string& type,
                         const std::string& value);
std::string log_event(int level, const std::string& message);
/// The settings that a block which judges leaves at its set-up: the verdict under `key`, and as
/// what the terminated input `input` begins with.
std::string verdict_setup_event(const std::string& key, const std::string& input,
                                const std::string& verdict);
/// The text of a message that could not be read.
inline const std::string no_such_device = "No such device or address";

// Settings of the bus.

/// So many matches a connection; on dbus-broker, which counts those of all connections of a user,
/// so many beside that of the monitor: where no camera is there, the host's.
inline std::string max_matches(int count) {
    const auto limit = [](const std::string& name, int value) {
        return "<limit name=\"" + name + "\">" + std::to_string(value) + "</limit>";
    };
    const std::string matches = "max_match_rules_per_connection";
    return on_dbus_broker() ? limit("max_connections_per_user", 1) + limit(matches, count + 1)
                            : limit(matches, count);
}
/// Why a test with a limit and a camera is skipped.
inline constexpr const char* matches_of_a_user =
    "dbus-broker limits the matches of a user, so the camera's would be refused, too";

}  // namespace test
