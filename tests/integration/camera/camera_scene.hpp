#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "camera/bus/names.hpp"
#include "common/bus/private_bus.hpp"
#include "common/text/json.hpp"
#include "tests/integration/camera/bus_client.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

using Lines = std::vector<std::string>;

/// One list after the other.
inline Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// The answer to a call that a fault rule answers with "com.example.Error.Busy".
inline const std::string busy = "com.example.Error.Busy: A fault rule answers this call.";

/// The address of a socket in a folder that is nowhere. Written so that it reads as the system
/// bus of the machine, yet leads nowhere: the kernel does not look past the missing folder.
inline constexpr const char* unreachable_system_bus =
    "unix:path=/run/dbus/no-such-folder/../system_bus_socket";

/// The name of a service for its users, and on the bus.
struct ServiceNames {
    const char* name;
    const char* bus_name;
};

/// The services of the camera in the order in which they come up. The connection before theirs,
/// :1.0, takes orders.
inline constexpr ServiceNames camera_services[] = {
    {"temperature", camera::temperature_controller.name},
    {"power-consumer", camera::power_consumers.name},
    {"power-status", camera::power_status.name},
    {"controls", camera::onscreen_controls.name},
    {"overlay", camera::text_overlay.name},
    {"video", camera::video_ready.name},
    {"init", camera::init_manager.name},
};

/// The unique name of the first connection after those of a camera that has just come up, or of
/// one that comes so many later.
[[nodiscard]] std::string client_name(std::size_t later = 0);

/// `fenwa-camera` as a process on a private bus. None of the programs started here can reach the
/// bus of the machine, whatever goes wrong: what they take for it leads nowhere.
class CameraScene : public ::testing::Test {
  protected:
    /// The options of the bus and the camera.
    struct Setting {
        bool activation = false;         ///< a call brings a service up
        std::vector<std::string> run{};  ///< further options of `fenwa-camera run`
        std::string format = "json";
        std::string bus_xml{};  ///< further limits and policy of the bus
        bool own_bus = false;   ///< --private-bus in place of a bus of the scene
        std::string socket{};   ///< where that bus listens, "=PATH"
        std::map<std::string, std::string> variables{};  ///< in the camera's environment
    };

    /// Starts the camera on its bus, and waits until it is ready.
    void open(Setting setting);
    void open() { open(Setting{}); }
    /// The two steps of that, on a bus of the scene.
    void open_bus(const Setting& setting);
    void open_camera(const Setting& setting);

    /// Runs `fenwa-camera` with these arguments to its end, TMPDIR in the scene's own folder.
    [[nodiscard]] Ended run(std::vector<std::string> arguments,
                            std::map<std::string, std::string> environment = {}) const;
    /// Starts it.
    [[nodiscard]] std::unique_ptr<Process> start(
        std::vector<std::string> arguments,
        std::map<std::string, std::string> environment = {}) const;

    /// Runs a command against the camera, such as {"set", "temperature.main", "40"}.
    [[nodiscard]] Ended command(std::vector<std::string> arguments) const;
    /// The same for a command that must succeed in silence.
    void handle(const std::vector<std::string>& arguments) const;
    /// Sets a fault rule, such as {"GetTemperature", "--silent"}.
    void fail(std::vector<std::string> rule) const;
    /// Runs a command that the camera must refuse with exit code 2. @returns the sentence.
    [[nodiscard]] std::string refusal_of(const std::vector<std::string>& arguments) const;

    /// Ends the camera with SIGTERM and gives what it left; its lines are in `told()`.
    void close();
    /// The camera's state as `show` has it.
    [[nodiscard]] common::Json state() const;
    /// One of its services.
    [[nodiscard]] common::Json service(const std::string& name) const;
    /// One of its values.
    [[nodiscard]] common::Json value(const std::string& name) const {
        return state()["values"][name];
    }

    /// The camera's event lines so far, times taken out.
    [[nodiscard]] Lines told() const { return lines(camera_->out()); }
    /// Lines of a camera in JSON or text, with the times taken out, "BUS" for a bus address and
    /// files of the scene's folder by their bare names.
    [[nodiscard]] Lines lines(const std::string& out) const;
    /// All lines of a camera in JSON that comes up with all its services, does `middle` and goes
    /// down again.
    [[nodiscard]] static Lines whole(const Lines& middle, int status = 0);
    /// The same of a camera that tells itself in text.
    [[nodiscard]] static Lines whole_text(const Lines& middle);
    /// Only those that contain `text`.
    [[nodiscard]] static Lines with(const std::string& text, const Lines& all);
    /// The event lines of one kind so far, such as "set".
    [[nodiscard]] Lines told(const std::string& kind) const {
        return with("{\"event\":\"" + kind + '"', told());
    }
    /// `text` with "BUS" and bare file names as above.
    [[nodiscard]] std::string plain(std::string text) const;

    [[nodiscard]] const std::string& address() const { return address_; }
    [[nodiscard]] common::PrivateBus& bus() { return *bus_; }
    [[nodiscard]] Process& camera() { return *camera_; }
    /// The process in which the camera plays: a child of the one that was started.
    [[nodiscard]] static pid_t player(const Process& keeper);
    [[nodiscard]] const Ended& ended() const { return ended_; }
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }

    /// Makes a folder for temporary files of the programs, below the scene's own.
    [[nodiscard]] std::string temporary() const;
    /// Processes of this machine that were started by this scene and still run.
    [[nodiscard]] Lines left_behind() const;
    /// Whether programs have left files in their temporary folder.
    [[nodiscard]] bool files_left_behind() const;
    /// No program and no file is left.
    void expect_nothing_left() const;
    /// The variables that keep programs away from the machine's bus and its temporary files.
    [[nodiscard]] std::map<std::string, std::string> environment() const;
    /// Runs a shell script, in which "$0" is the camera's program, to its end.
    [[nodiscard]] Ended run_script(const std::string& text) const;

  private:
    TemporaryFolder folder_;
    std::unique_ptr<common::PrivateBus> bus_;
    std::unique_ptr<Process> camera_;
    std::string address_;
    Ended ended_;
};

/// A camera with a client of one of its services.
class ClientScene : public CameraScene {
  protected:
    /// Opens the camera and connects the client.
    void open_for(const camera::BusObject& service, Setting setting = {}) {
        open(std::move(setting));
        client_ = std::make_unique<BusClient>(address(), service);
    }

    template <class... Arguments>
    std::string call(const char* member, const char* types, Arguments... arguments) {
        return client_->call(member, types, arguments...);
    }
    template <class... Arguments>
    void send(const char* member, const char* types, Arguments... arguments) {
        client_->send(member, types, arguments...);
    }
    /// Calls without wanting a reply.
    template <class... Arguments>
    void call_without_reply(const char* member, const char* types, Arguments... arguments) {
        const common::MessagePtr message = client_->new_call(member, types, arguments...);
        common::check(sd_bus_message_set_expect_reply(message.get(), 0), "expect no reply");
        common::check(sd_bus_send(client_->bus(), message.get(), nullptr), "send");
    }

    std::unique_ptr<BusClient> client_;
};

/// The bus address in a camera's "ready" line, in text or JSON.
[[nodiscard]] std::string address_in(const std::string& ready_line);

}  // namespace test
