#include "tests/integration/blocks/scene.hpp"

#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>

namespace test {

Lines operator*(int times, const Lines& lines) {
    Lines all;
    for (int i = 0; i < times; ++i)
        all = all + lines;
    return all;
}

Lines adds_match(const std::string& rule) {
    return {"client calls daemon: AddMatch(\"" + rule + "\")", "daemon replies to client: ()"};
}

Lines removes_match(const std::string& rule) {
    return {"client calls daemon: RemoveMatch(\"" + rule + "\")"};
}

void BlockScene::open(Setting setting) {
    setting_ = std::move(setting);
    const CameraScene::Setting of_camera{.activation = setting_.activation,
                                         .bus_xml = setting_.bus_xml};
    open_bus(of_camera);
    monitor_ = std::make_unique<BusMonitor>(address());
    if (!setting_.camera_there)
        return;
    open_camera(of_camera);
    // Stopped, and not left out: a service that is left out is not activated either.
    for (const std::string& service : setting_.without)
        handle({"stop", service});
}

void BlockScene::start_host() {
    start_host_without_first_call();
    host_name_ = monitor_->caller_of(cast_.first_call);
}

std::string BlockScene::write_graph(const std::string& graph) const {
    return folder().write("graph.toml", "plugins = [\"libfenwa-temperature.so\"]\n" + graph);
}

void BlockScene::start_host_without_first_call() {
    const std::string graph = write_graph(setting_.graph.empty() ? cast_.graph : setting_.graph);
    Lines command{FENWA_PROGRAM, "run", graph, "--bus", address(), "--format", "json"};
    command.insert(command.end(), setting_.host_options.begin(), setting_.host_options.end());
    host_ = std::make_unique<Process>(command);
}

void BlockScene::fenwa(Lines words) const {
    words.insert(words.begin() + 1, {"--bus", address()});
    const Ended done = run_program(Lines{FENWA_PROGRAM} + words);
    ASSERT_EQ(done.code, 0) << done.err;
}

void BlockScene::reload(const std::string& graph) {
    static_cast<void>(write_graph(graph));
    host_->send_signal(SIGHUP);
    ASSERT_TRUE(host_->wait_for_error_text("reloaded")) << host_->err();
}

void BlockScene::wait_for_output(const std::string& value, int times) {
    const std::string end = "\"value\":" + value + '}';
    for (int i = 0; i < times; ++i) {
        ASSERT_TRUE(host_->wait_for_line([&end](const std::string& line) {
            return line.starts_with(R"({"event":"output")") && line.ends_with(end);
        })) << "no output "
            << value << " in\n"
            << host_->out() << host_->err();
    }
}

void BlockScene::wait_until_ready() {
    ASSERT_TRUE(host_->wait_for_text(R"({"event":"ready")")) << host_->out() << host_->err();
}

void BlockScene::wait_for_log(const std::string& message, int times) {
    for (int i = 0; i < times; ++i)
        ASSERT_TRUE(host_->wait_for_text("\"message\":\"" + message))
            << "no log line " << message << " in\n"
            << host_->out() << host_->err();
}

void BlockScene::wait_for_camera(const std::string& text, int times) {
    for (int i = 0; i < times; ++i)
        ASSERT_TRUE(camera().wait_for_text(text)) << "no " << text << " in\n" << camera().out();
}

void BlockScene::wait_for_replies(const std::string& member, int count) {
    for (int i = 0; i < count; ++i) {
        ASSERT_TRUE(camera().wait_for_line([&member](const std::string& line) {
            return line.find(R"("event":"reply")") != std::string::npos &&
                   line.find("\"member\":\"" + member + '"') != std::string::npos;
        })) << "no reply to "
            << member << " in\n"
            << camera().out();
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
    // The calls of `settle` are not part of the story.
    std::erase_if(lines, [](const std::string& line) {
        return line.ends_with(" calls client: Ping()") || line.starts_with("client replies to :");
    });
    return lines;
}

Lines BlockScene::events() const {
    Lines lines;
    std::istringstream stream(ended_.out);
    for (std::string line; std::getline(stream, line);) {
        common::Json event = common::parse_json(line, "the text");
        event.erase("time");
        // The host does not know the block of each line.
        if (event["event"] == "log")
            event.erase("block");
        lines.push_back(common::json_line(event));
    }
    return lines;
}

Lines BlockScene::events(const std::string& kind) const {
    return with("{\"event\":\"" + kind + '"', events());
}

std::string output_event(const std::string& port, const std::string& type,
                         const std::string& value) {
    const std::size_t dot = port.find('.');
    return R"({"event":"output","block":")" + port.substr(0, dot) + R"(","port":")" +
           port.substr(dot + 1) + R"(","type":")" + type + R"(","value":)" + value + '}';
}

std::string verdict_setup_event(const std::string& key, const std::string& input,
                                const std::string& verdict) {
    return R"({"event":"setup","block":"monitor","settings":{")" + key + R"(":)" + verdict +
           R"(,"termination_cfg.inports":[")" + input +
           R"("],"termination_cfg.types":["/prefix/well-known.b/bool"],"termination_cfg.)" + input +
           R"(_def":)" + verdict + "}}";
}

std::string log_event(int level, const std::string& message) {
    return R"({"event":"log","level":)" + std::to_string(level) + R"(,"message":)" +
           common::json_line(message) + '}';
}

}  // namespace test
