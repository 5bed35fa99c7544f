#include "tests/soak/scene.hpp"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "camera/bus/names.hpp"
#include "camera/camera/control.hpp"
#include "common/bus/host_control.hpp"
#include "tests/support/proc.hpp"

namespace soak {
namespace {

using common::check;
using common::ControlClient;
using common::Json;

constexpr std::chrono::seconds limit{20};

std::string read_file(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The address of a bus that leads nowhere: no program started here reaches the machine's.
std::map<std::string, std::string> environment(const test::TemporaryFolder& folder) {
    return {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + (folder.path() / "none").string()},
            {"TMPDIR", folder.path().string()}};
}

common::ControlPeer camera_peer(const std::string& bus) {
    const camera::BusObject& control = camera::camera_control;
    return {.bus = bus,
            .name = control.name,
            .path = control.path,
            .interface = control.interface,
            .noun = "the camera",
            .absent = "the camera has gone",
            .errors = {{camera::refused_error, common::ExitCode::usage}}};
}

common::ControlPeer host_peer(const std::string& bus) {
    return {.bus = bus,
            .name = common::host_control_name,
            .path = common::host_control_path,
            .interface = common::host_control_interface,
            .noun = "the host",
            .absent = "the host has gone",
            .errors = {{common::host_error_prefix, common::ExitCode::usage}}};
}

}  // namespace

Scene::Scene(const Settings& settings) {
    const std::string address = start_camera();
    camera_.emplace(camera_peer(address));
    std::map<std::string, std::string> of_host = environment(folder_);
    // What the C library keeps of freed memory would pass for a leak, or hide one.
    of_host["LD_PRELOAD"] = FENWA_RETURNED_MEMORY_LIBRARY;
    // A library that breaks the host, so that a test sees the soak find it.
    if (const char* const breaks = std::getenv("FENWA_SOAK_PRELOAD"))
        of_host["LD_PRELOAD"] += std::string(":") + breaks;
    of_host["GLIBC_TUNABLES"] = "glibc.malloc.tcache_count=0:glibc.malloc.mxfast=0";
    host_process_.emplace(
        std::vector<std::string>{
            FENWA_PROGRAM, "run", "--control", write_graph(settings), "--bus", address, "--format",
            "json", "--events", "output,log,setup", "--call-timeout",
            std::to_string(std::chrono::duration<double>(call_timeout).count())},
        of_host);
    observer_.emplace(*host_process_, *camera_process_, incidents_);
    if (!observer_->wait_until_ready(limit))
        throw std::runtime_error("the host does not start:\n" + observer_->last_messages());
    host_.emplace(host_peer(address));
    host_name_ = owner_of("com.tarlo.Vipd.ch0");
    traffic_.emplace(address, host_name_, call_timeout, incidents_);
}

std::string Scene::start_camera() {
    camera_process_.emplace(
        std::vector<std::string>{FENWA_CAMERA_PROGRAM, "run", "--private-bus", "--format", "json"},
        environment(folder_));
    const auto ready = camera_process_->wait_for_text(R"({"event":"ready")");
    if (!ready)
        throw std::runtime_error("the camera does not start:\n" + camera_process_->err());
    return common::parse_json(*ready, "the camera's line").at("bus").get<std::string>();
}

std::string Scene::owner_of(const char* name) const {
    common::MessagePtr reply;
    check(
        sd_bus_call_method(&camera_->bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "GetNameOwner", nullptr, reply.out(), "s", name),
        "the host does not own its name");
    return common::read_string(*reply);
}

std::string Scene::write_graph(const Settings& settings) const {
    static const std::string graph = read_file(FENWA_EXAMPLES "/graphs/camera.toml");
    return folder_.write("camera.toml", with_settings(graph, settings));
}

void Scene::call_camera(const char* method, const char* argument) const {
    static_cast<void>(camera_->call(method, "s", argument));
}

void Scene::set(const std::string& value, double number) const {
    static_cast<void>(camera_->call("Set", "ss", value.c_str(), common::json_line(number).c_str()));
}

void Scene::fail(const Fault& fault) const {
    const common::MessagePtr call = camera_->new_call("Fail");
    const auto append = [&](const char* key, const char* type, auto value) {
        ControlClient::append(call, "a{sv}", 3, "member", "s", fault.member.c_str(), "times", "i",
                              fault.times, key, type, value);
    };
    switch (fault.effect) {
        case Fault::Effect::error:
            append("error", "s", "com.example.Soak.Refused");
            break;
        case Fault::Effect::malformed:
            append("malformed", "b", 1);
            break;
        case Fault::Effect::silent:
            append("silent", "b", 1);
            break;
        case Fault::Effect::drop:
            append("drop", "b", 1);
            break;
        case Fault::Effect::late:
            append("delay", "i", static_cast<int>(fault.delay.count()));
            break;
    }
    static_cast<void>(camera_->send(call));
}

void Scene::press(const char* button) const {
    try {
        call_camera("Press", button);
    } catch (const common::Failure& failure) {
        if (failure.code() != common::ExitCode::usage)
            throw;
    }
}

Json Scene::show() const {
    return camera_->read_json("Show", [](const Json& state) { return state; });
}

void Scene::reload(const Settings& settings) {
    const std::uint64_t before = observer_->reloads();
    static_cast<void>(write_graph(settings));
    host_process_->send_signal(SIGHUP);
    if (!observer_->wait_for_reloads(before + 1, limit))
        throw std::runtime_error("the host does not reload:\n" + observer_->last_messages());
}

void Scene::rebuild(const std::string& block) const {
    static_cast<void>(host_->call("Rebuild", "sa{sv}", block.c_str(), 0U));
}

void Scene::turn(int degrees) const {
    static_cast<void>(host_->call("Write", "sv", "video.rotation_vip0_in", "i", degrees));
}

Json Scene::describe() const {
    return host_->read_json("Describe", [](const Json& state) { return state; });
}

Footprint Scene::footprint() const {
    Footprint found;
    found.kibibytes = test::own_memory(host_process_->pid());
    const std::filesystem::directory_iterator descriptors(
        "/proc/" + std::to_string(host_process_->pid()) + "/fd");
    found.descriptors = std::distance(begin(descriptors), end(descriptors));
    if (found.kibibytes == 0)
        throw std::runtime_error("the kernel does not give the memory of the host");
    return found;
}

int Scene::end_host() {
    observer_->stop();
    const test::Ended ended = host_process_->terminate();
    return ended.signal == 0 ? ended.code : 128 + ended.signal;
}

void Scene::change_owners(int times) {
    if (other_)
        other_->wait_for(host_name_.c_str());
    else
        other_.emplace(camera_->peer().bus);
    other_->change_owners(times);
}

}  // namespace soak
