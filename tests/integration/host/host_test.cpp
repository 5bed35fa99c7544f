#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"
#include "tests/support/pattern.hpp"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>

namespace test {
namespace {

void erase_all(std::string& text, const std::string& part) {
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos;)
        text.erase(at, part.size());
}

bool has(const Words& words, const std::string& option) {
    return std::find(words.begin(), words.end(), option) != words.end();
}

}  // namespace

Words operator+(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

Ended fenwa(const Words& arguments, const Environment& environment) {
    return run_program(Words{FENWA_PROGRAM} + arguments, environment);
}

void expect_end(const Ended& ended, int code, const std::string& err, const char* file, int line) {
    const testing::ScopedTrace trace(file, line, ended.out);
    EXPECT_EQ(ended.code, code);
    EXPECT_EQ(ended.err, err);
}

RunningHost::RunningHost(const Words& command, const std::string& sign,
                         const Environment& environment)
    : Process(command, environment) {
    if (!wait_for_text(sign))
        throw std::runtime_error("the host does not say " + sign + ":\n" + out() + err());
}

RunningHost::~RunningHost() {
    try {
        if (pid() != 0) {
            EXPECT_EQ(terminate().code, 0);
        }
    } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
    }
}

const std::string& HostTest::bus() {
    static const common::PrivateBus private_bus;
    return private_bus.address();
}

std::string HostTest::write_graph(const std::string& graph) const {
    const std::string probes = graph.starts_with("plugins") ? "" : "plugins = [\"libprobe.so\"]\n";
    return folder_.write("graph.toml", probes + graph + "\n");
}

Words HostTest::command(const std::string& name, const std::string& graph,
                        const Words& arguments) const {
    return Words{FENWA_PROGRAM, name, write_graph(graph), "--plugin-dir", FENWA_TEST_PLUGINS} +
           arguments;
}

Words HostTest::run_command(const std::string& graph, const Words& arguments) const {
    const Words on_bus = has(arguments, "--bus") ? Words{} : Words{"--bus", bus()};
    const Words as_json = has(arguments, "--format") ? Words{} : Words{"--format", "json"};
    return command("run", graph, on_bus + as_json + arguments);
}

Ended HostTest::run(const std::string& graph, const Words& arguments,
                    const Environment& environment) const {
    return without_folder(run_program(run_command(graph, arguments), environment));
}

Ended HostTest::check(const std::string& graph, const Words& arguments) const {
    return without_folder(run_program(command("check", graph, arguments)));
}

std::string HostTest::without_folder(const std::string& text) const {
    std::string shorter = text;
    erase_all(shorter, folder_.path().string() + "/");
    erase_all(shorter, std::string(FENWA_TEST_PLUGINS) + "/");
    return shorter;
}

Ended HostTest::without_folder(Ended ended) const {
    ended.out = without_folder(ended.out);
    ended.err = without_folder(ended.err);
    return ended;
}

void HostTest::start(const std::string& graph, const Words& arguments, const std::string& sign,
                     const Environment& environment) {
    host_.reset();
    host_.emplace(run_command(graph, arguments), sign, environment);
}

std::string HostTest::stop() {
    const Ended ended = host_->terminate();
    expect_end(ended);
    return ended.out;
}

std::string HostTest::reload(const std::optional<std::string>& graph) {
    if (graph)
        write_graph(*graph);
    const std::size_t known = host_->err().size();
    host_->send_signal(SIGHUP);
    EXPECT_TRUE(host_->wait_for_error_text("reloaded")) << host_->err();
    return without_folder(host_->err().substr(known));
}

std::ostream& operator<<(std::ostream& out, const Case& row) {
    return out << row.name;
}

std::string block(const std::string& name, const std::string& type, const std::string& settings) {
    return "blocks." + name + " = {type = \"" + type + "\"" +
           (settings.empty() ? "" : ", " + settings) + "}\n";
}

std::string without_times(const std::string& lines) {
    static const Pattern time(R"("time":[-+.e0-9]+)");
    return time.replace(lines, R"("time":0)");
}

std::string exit_line(int code) {
    return R"({"event":"exit","time":0,"status":)" + std::to_string(code) + "}\n";
}

std::string log_line(const std::string& block, const std::string& message, int level) {
    return R"({"event":"log","time":0,"block":")" + block + R"(","level":)" +
           std::to_string(level) + R"(,"message":")" + message + "\"}\n";
}

std::string output_line(const std::string& block, const std::string& port, const std::string& type,
                        const std::string& value) {
    return R"({"event":"output","time":0,"block":")" + block + R"(","port":")" + port +
           R"(","type":")" + type + R"(","value":)" + value + "}\n";
}

std::string messages(const std::string& lines) {
    std::istringstream stream(lines);
    std::string all;
    for (std::string line; std::getline(stream, line);) {
        const auto event = common::parse_json(line, "the text");
        if (event.at("event") == "log")
            all += event.at("message").get<std::string>() + '\n';
    }
    return all;
}

std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string joined_lines(const std::string& name) {
    std::string text = content_of(std::string(FENWA_HOST_TESTS) + "/" + name);
    erase_all(text, "\n");
    return text;
}

std::string lines_with(const std::string& lines, const std::string& text) {
    std::istringstream stream(lines);
    std::string all;
    for (std::string line; std::getline(stream, line);) {
        if (line.find(text) != std::string::npos)
            all += line + '\n';
    }
    return all;
}

long count_lines(const std::string& lines, const std::string& text) {
    const std::string found = lines_with(lines, text);
    return std::count(found.begin(), found.end(), '\n');
}

}  // namespace test
