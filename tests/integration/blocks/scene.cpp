#include "tests/integration/blocks/scene.hpp"

#include <csignal>
#include <sstream>

namespace test {

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Lines adds_match(const std::string& rule) {
    return {"client calls daemon: AddMatch(\"" + rule + "\")", "daemon replies to client: ()"};
}

Lines removes_match(const std::string& rule) {
    return {"client calls daemon: RemoveMatch(\"" + rule + "\")"};
}

void BlockScene::open(Setting setting) {
    setting_ = std::move(setting);
    common::PrivateBusOptions options;
    options.camera_program = FENWA_CAMERA_PROGRAM;
    if (setting_.activation) {
        options.activatable = {{"com.tarlo.TemperatureController", "temperature"},
                               {"com.tarlo.PowerControl.Consumer", "power-consumer"},
                               {"com.tarlo.PowerControl.Status", "power-status"},
                               {"com.tarlo.Onscreencontrols1", "controls"},
                               {"com.tarlo.PrioritizedTextOverlay", "overlay"},
                               {"com.tarlo.VideoReady1", "video"}};
    }
    options.extra_xml = setting_.bus_xml;
    bus_ = std::make_unique<common::PrivateBus>(options);
    monitor_ = std::make_unique<BusMonitor>(address());
    if (!setting_.camera_there)
        return;
    camera_ = std::make_unique<Process>(std::vector<std::string>{
        FENWA_CAMERA_PROGRAM, "run", "--bus", address(), "--format", "json"});
    ASSERT_TRUE(camera_->wait_for_text("\"ready\"")) << camera_->err();
    // Stopped, and not left out: a service that is left out is not activated either.
    for (const std::string& service : setting_.without)
        camera({"stop", service});
}

void BlockScene::start_host() {
    start_host_without_first_call();
    host_name_ = monitor_->caller_of(cast_.first_call);
}

std::string BlockScene::write_graph(const std::string& graph) const {
    return folder_.write("graph.toml", "plugins = [\"libfenwa-temperature.so\"]\n" + graph);
}

void BlockScene::start_host_without_first_call() {
    const std::string graph = write_graph(setting_.graph.empty() ? cast_.graph : setting_.graph);
    std::vector<std::string> command{FENWA_PROGRAM, "run",      graph, "--bus",
                                     address(),     "--format", "json"};
    command.insert(command.end(), setting_.host_options.begin(), setting_.host_options.end());
    host_ = std::make_unique<Process>(command);
}

void BlockScene::camera(std::vector<std::string> order) const {
    run_on_bus(FENWA_CAMERA_PROGRAM, std::move(order));
}

void BlockScene::fenwa(std::vector<std::string> words) const {
    run_on_bus(FENWA_PROGRAM, std::move(words));
}

void BlockScene::run_on_bus(const std::string& program, std::vector<std::string> words) const {
    words.insert(words.begin(), program);
    words.insert(words.end(), {"--bus", address()});
    const Ended done = run_program(words);
    ASSERT_EQ(done.code, 0) << done.err;
}

void BlockScene::reload(const std::string& graph) {
    static_cast<void>(write_graph(graph));
    host_->send_signal(SIGHUP);
    ASSERT_TRUE(host_->wait_for_error_text("reloaded")) << host_->err();
}

void BlockScene::wait_for_output(const std::string& value) {
    const std::string end = "\"value\":" + value + '}';
    ASSERT_TRUE(host_->wait_for_line([&end](const std::string& line) {
        return line.starts_with(R"({"event":"output")") && line.ends_with(end);
    })) << "no output "
        << value << " in\n"
        << host_->out() << host_->err();
}

void BlockScene::wait_until_ready() {
    ASSERT_TRUE(host_->wait_for_text(R"({"event":"ready")")) << host_->out() << host_->err();
}

void BlockScene::wait_for_log(const std::string& message) {
    ASSERT_TRUE(host_->wait_for_text("\"message\":\"" + message))
        << "no log line " << message << " in\n"
        << host_->out() << host_->err();
}

void BlockScene::wait_for_camera(const std::string& text) {
    ASSERT_TRUE(camera_->wait_for_text(text)) << "no " << text << " in\n" << camera_->out();
}

void BlockScene::wait_for_replies(const std::string& member, int count) {
    for (int i = 0; i < count; ++i) {
        ASSERT_TRUE(camera_->wait_for_line([&member](const std::string& line) {
            return line.find(R"("event":"reply")") != std::string::npos &&
                   line.find("\"member\":\"" + member + '"') != std::string::npos;
        })) << "no reply to "
            << member << " in\n"
            << camera_->out();
    }
}

void BlockScene::settle() const {
    // sd-bus answers this by itself, in its turn.
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
    ASSERT_GE(sd_bus_call_method(other.get(), host_name_.c_str(), "/", "org.freedesktop.DBus.Peer",
                                 "Ping", nullptr, nullptr, nullptr),
              0);
}

void BlockScene::end_host() {
    ended_ = host_->terminate();
}

void BlockScene::close() {
    end_host();
    monitor_->record_until_gone(host_name_);
}

Lines BlockScene::traffic() const {
    Lines lines = story_of(monitor_->messages(), host_name_, cast_.service_name);
    // What `settle` adds is no part of the story.
    std::erase_if(lines, [](const std::string& line) {
        return line.ends_with(" calls client: Ping()") || line.starts_with("client replies to :");
    });
    return lines;
}

Lines BlockScene::events() const {
    Lines lines;
    std::istringstream stream(ended_.out);
    for (std::string line; std::getline(stream, line);) {
        common::Json event = common::Json::parse(line);
        event.erase("time");
        lines.push_back(common::json_line(event));
    }
    return lines;
}

Lines BlockScene::events(const std::string& kind) const {
    Lines lines;
    for (const std::string& line : events()) {
        if (line.starts_with("{\"event\":\"" + kind + '"'))
            lines.push_back(line);
    }
    return lines;
}

std::string output_event(const std::string& port, const std::string& type,
                         const std::string& value) {
    const std::size_t dot = port.find('.');
    return R"({"event":"output","block":")" + port.substr(0, dot) + R"(","port":")" +
           port.substr(dot + 1) + R"(","type":")" + type + R"(","value":)" + value + '}';
}

std::string log_event(int level, const std::string& message) {
    return R"({"event":"log","level":)" + std::to_string(level) + R"(,"message":)" +
           common::json_line(message) + '}';
}

}  // namespace test
