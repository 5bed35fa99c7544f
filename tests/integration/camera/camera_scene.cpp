#include "tests/integration/camera/camera_scene.hpp"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "tests/support/pattern.hpp"
#include "tests/support/proc.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

const Pattern bus_address("unix:path=[^ ,\"\n]*(,guid=[0-9a-f]{32})?");

std::string without_time(const std::string& line) {
    if (!line.starts_with('{'))
        return line.substr(std::min<std::size_t>(line.size(), 10));
    common::Json event = common::parse_json(line, "the text");
    event.erase("time");
    return common::json_line(event);
}

}  // namespace

void CameraScene::open(Setting setting) {
    if (!setting.own_bus)
        open_bus(setting);
    open_camera(setting);
}

void CameraScene::open_bus(const Setting& setting) {
    common::PrivateBusOptions options;
    options.camera_program = FENWA_CAMERA_PROGRAM;
    options.extra_xml = setting.bus_xml;
    if (setting.activation) {
        for (const ServiceNames& service : camera_services) {
            if (service.bus_name != std::string(camera::init_manager.name))
                options.activatable.push_back({service.bus_name, service.name});
        }
    }
    bus_ = std::make_unique<common::PrivateBus>(options);
    address_ = bus_->address();
}

void CameraScene::open_camera(const Setting& setting) {
    Lines arguments{"run", "--verbose", "--format", setting.format};
    arguments = arguments + (setting.own_bus ? Lines{"--private-bus" + setting.socket}
                                             : Lines{"--bus", address()});
    camera_ = start(arguments + setting.run, setting.variables);
    const auto ready = camera_->wait_for_text(setting.format == "json" ? "\"ready\"" : "ready on");
    ASSERT_TRUE(ready) << camera_->err();
    address_ = address_in(*ready);
}

std::map<std::string, std::string> CameraScene::environment() const {
    return {{"DBUS_SYSTEM_BUS_ADDRESS", unreachable_system_bus}, {"TMPDIR", temporary()}};
}

std::unique_ptr<Process> CameraScene::start(std::vector<std::string> arguments,
                                            std::map<std::string, std::string> variables) const {
    arguments.insert(arguments.begin(), FENWA_CAMERA_PROGRAM);
    variables.merge(environment());
    return std::make_unique<Process>(arguments, variables);
}

Ended CameraScene::run(std::vector<std::string> arguments,
                       std::map<std::string, std::string> variables) const {
    return start(std::move(arguments), std::move(variables))->wait();
}

Ended CameraScene::run_script(const std::string& text) const {
    return run_program({"sh", "-c", text, FENWA_CAMERA_PROGRAM}, environment());
}

Ended CameraScene::command(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin() + 1, {"--bus", address()});
    return run(arguments);
}

void CameraScene::handle(const std::vector<std::string>& arguments) const {
    const Ended done = command(arguments);
    EXPECT_EQ(done.code, 0) << done.err;
    EXPECT_EQ(done.out, "");
    EXPECT_EQ(done.err, "");
}

void CameraScene::fail(std::vector<std::string> rule) const {
    rule.insert(rule.begin(), "fail");
    handle(rule);
}

std::string CameraScene::refusal_of(const std::vector<std::string>& arguments) const {
    const Ended refused = command(arguments);
    EXPECT_EQ(refused.code, 2) << refused.err;
    EXPECT_EQ(refused.out, "");
    return refused.err;
}

void CameraScene::close() {
    ended_ = camera_->terminate();
}

common::Json CameraScene::state() const {
    const Ended shown = command({"show", "--format", "json"});
    EXPECT_EQ(shown.code, 0) << shown.err;
    return common::parse_json(shown.out, "the text");
}

common::Json CameraScene::service(const std::string& name) const {
    const common::Json now = state();
    for (const common::Json& each : now["services"]) {
        if (each["name"] == name)
            return each;
    }
    ADD_FAILURE() << "there is no service " << name;
    return {};
}

std::string CameraScene::plain(std::string text) const {
    const std::string folder = folder_.path().string() + '/';
    for (std::size_t at = 0; (at = text.find(folder)) != std::string::npos;) {
        // A socket in the folder is part of an address, which goes as a whole.
        if (at >= 10 && text.compare(at - 10, 10, "unix:path=") == 0)
            break;
        text.erase(at, folder.size());
    }
    return bus_address.replace(text, "BUS");
}

Lines CameraScene::lines(const std::string& out) const {
    Lines all;
    std::istringstream stream(out);
    for (std::string line; std::getline(stream, line);)
        all.push_back(plain(without_time(line)));
    return all;
}

Lines CameraScene::whole(const Lines& middle, int status) {
    Lines ups;
    Lines downs;
    common::Json names = common::Json::array();
    for (int number = 0; const ServiceNames& service : camera_services) {
        const std::string begin =
            std::string(R"({"event":"service","service":")") + service.name + R"(","state":")";
        ++number;
        ups.push_back(begin + R"(up","name":":1.)" + std::to_string(number) +
                      R"(","bus_names":[")" + service.bus_name + R"("]})");
        downs.insert(downs.begin(), begin + R"(down"})");
        names.push_back(service.name);
    }
    return ups + Lines{R"({"event":"ready","bus":"BUS","services":)" + names.dump() + '}'} +
           middle + downs + Lines{R"({"event":"exit","status":)" + std::to_string(status) + '}'};
}

Lines CameraScene::whole_text(const Lines& middle) {
    Lines ups;
    Lines downs;
    std::string names;
    for (int number = 0; const ServiceNames& service : camera_services) {
        const std::string name = service.name;
        ++number;
        ups.push_back(name + ": up as " + service.bus_name + " (:1." + std::to_string(number) +
                      ")");
        downs.insert(downs.begin(), name + ": down");
        names += (names.empty() ? "" : ", ") + name;
    }
    return ups + Lines{"ready on BUS, services: " + names} + middle + downs +
           Lines{"the end, with exit code 0"};
}

pid_t CameraScene::player(const Process& keeper) {
    const std::vector<pid_t> children = children_of(keeper.pid());
    if (children.size() != 1)
        throw std::runtime_error("the camera does not play");  // kill(-1) would reach everybody
    return children[0];
}

Lines CameraScene::with(const std::string& text, const Lines& all) {
    Lines some;
    for (const std::string& line : all) {
        if (line.find(text) != std::string::npos)
            some.push_back(line);
    }
    return some;
}

std::string CameraScene::temporary() const {
    const fs::path path = folder_.path() / "tmp";
    fs::create_directories(path);
    return path.string();
}

Lines CameraScene::left_behind() const {
    // Whatever descends from our programs has their TMPDIR in its environment.
    Lines found;
    for (const pid_t process : processes_with("TMPDIR=" + temporary())) {
        std::ifstream name("/proc/" + std::to_string(process) + "/comm");
        std::string command;
        std::getline(name, command);
        found.push_back(std::to_string(process) + ' ' + command);
    }
    return found;
}

bool CameraScene::files_left_behind() const {
    return !fs::is_empty(temporary());
}

void CameraScene::expect_nothing_left() const {
    EXPECT_EQ(left_behind(), Lines{});
    EXPECT_FALSE(files_left_behind());
}

std::string client_name(std::size_t later) {
    return ":1." + std::to_string(std::size(camera_services) + 1 + later);
}

std::string address_in(const std::string& ready_line) {
    const Groups found = bus_address.find(ready_line);
    return found.empty() ? std::string{} : found[0];
}

}  // namespace test
