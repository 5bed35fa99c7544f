#include "tests/integration/temperature/scene.hpp"

#include <sstream>

namespace test {

void TemperatureScene::open(Setting setting) {
    setting_ = std::move(setting);
    camera::PrivateBusOptions options;
    options.camera_program = FENWA_CAMERA_PROGRAM;
    if (setting_.activation)
        options.activatable = {{controller_name, "temperature"}};
    options.extra_xml = setting_.bus_xml;
    bus_ = std::make_unique<camera::PrivateBus>(options);
    monitor_ = std::make_unique<BusMonitor>(address());
    if (!setting_.camera_there)
        return;
    std::vector<std::string> command{FENWA_CAMERA_PROGRAM, "run", "--bus", address(),
                                     "--format",           "json"};
    if (!setting_.controller_there)
        command.insert(command.end(), {"--without", "temperature"});
    camera_ = std::make_unique<Process>(command);
    ASSERT_TRUE(camera_->wait_for_text("\"ready\"")) << camera_->err();
}

void TemperatureScene::start_host() {
    start_host_without_owner_query();
    host_name_ = monitor_->caller_of("GetNameOwner");
}

void TemperatureScene::start_host_without_owner_query() {
    const std::string graph =
        folder_.write("graph.toml",
                      "plugins = [\"libfenwa-temperature.so\"]\n[blocks.reader]\n"
                      "type = \"TemperatureReader\"\n" +
                          setting_.reader_keys);
    std::vector<std::string> command{FENWA_PROGRAM, "run",      graph, "--bus",
                                     address(),     "--format", "json"};
    command.insert(command.end(), setting_.host_options.begin(), setting_.host_options.end());
    host_ = std::make_unique<Process>(command);
}

void TemperatureScene::camera(std::vector<std::string> order) const {
    order.insert(order.begin(), FENWA_CAMERA_PROGRAM);
    order.insert(order.end(), {"--bus", address()});
    const Ended done = run_program(order);
    ASSERT_EQ(done.code, 0) << done.err;
}

void TemperatureScene::wait_for_output(const std::string& value) {
    ASSERT_TRUE(host_->wait_for_text("\"type\":\"double\",\"value\":" + value + '}'))
        << "no output " << value << " in\n"
        << host_->out() << host_->err();
}

void TemperatureScene::wait_for_log(const std::string& message) {
    ASSERT_TRUE(host_->wait_for_text("\"message\":\"" + message))
        << "no log line " << message << " in\n"
        << host_->out() << host_->err();
}

void TemperatureScene::wait_for_camera(const std::string& text) {
    ASSERT_TRUE(camera_->wait_for_text(text)) << "no " << text << " in\n" << camera_->out();
}

void TemperatureScene::end_host() {
    ended_ = host_->terminate();
}

void TemperatureScene::close() {
    end_host();
    monitor_->record_until_gone(host_name_);
}

std::vector<std::string> TemperatureScene::traffic() const {
    return story_of(monitor_->messages(), host_name_, controller_name);
}

std::vector<std::string> TemperatureScene::events() const {
    std::vector<std::string> lines;
    std::istringstream stream(ended_.out);
    for (std::string line; std::getline(stream, line);) {
        tool::Json event = tool::Json::parse(line);
        event.erase("time");
        lines.push_back(tool::json_line(event));
    }
    return lines;
}

std::vector<std::string> TemperatureScene::events(const std::string& kind) const {
    std::vector<std::string> lines;
    for (const std::string& line : events()) {
        if (line.starts_with("{\"event\":\"" + kind + '"'))
            lines.push_back(line);
    }
    return lines;
}

std::string output_event(const std::string& value) {
    return R"({"event":"output","block":"reader","port":"temperature_out","type":"double","value":)" +
           value + '}';
}

std::string debug_event(const std::string& value) {
    return R"({"event":"debug","key":"temperature_reader_sensor_id3_current_temperature","value":)" +
           value + '}';
}

std::string log_event(int level, const std::string& message) {
    return R"({"event":"log","level":)" + std::to_string(level) + R"(,"message":)" +
           tool::json_line(message) + '}';
}

}  // namespace test
