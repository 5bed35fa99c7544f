#include "tests/integration/host/host_test.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

namespace test {
namespace {

void erase_all(std::string& text, const std::string& part) {
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos;)
        text.erase(at, part.size());
}

Words operator+(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

}  // namespace

const std::string& HostTest::bus() {
    static const common::PrivateBus private_bus;
    return private_bus.address();
}

Words HostTest::run_command(const std::string& graph, const Words& arguments) const {
    Words words{FENWA_PROGRAM, "run", folder_.write("graph.toml", graph), "--plugin-dir",
                FENWA_TEST_PLUGINS};
    // An option may be given once only.
    if (std::find(arguments.begin(), arguments.end(), "--format") == arguments.end())
        words = words + Words{"--format", "json"};
    return words + arguments;
}

Words HostTest::check_command(const std::string& graph, const Words& arguments) const {
    return Words{FENWA_PROGRAM, "check", folder_.write("graph.toml", graph), "--plugin-dir",
                 FENWA_TEST_PLUGINS} +
           arguments;
}

Ended HostTest::run(const std::string& graph, const Words& arguments,
                    const Environment& environment) const {
    return without_folder(
        run_program(run_command(graph, Words{"--bus", bus()} + arguments), environment));
}

Ended HostTest::check(const std::string& graph, const Words& arguments,
                      const Environment& environment) const {
    return without_folder(run_program(check_command(graph, arguments), environment));
}

Ended HostTest::without_folder(Ended ended) const {
    for (std::string* text : {&ended.out, &ended.err}) {
        erase_all(*text, folder_.path().string() + "/");
        erase_all(*text, std::string(FENWA_TEST_PLUGINS) + "/");
    }
    return ended;
}

std::string HostTest::probes(const std::string& lines) {
    return "plugins = [\"libprobe.so\"]\n" + lines;
}

std::string without_times(const std::string& lines) {
    static const std::regex time(R"("time":[-+.e0-9]+)");
    return std::regex_replace(lines, time, R"("time":0)");
}

std::string messages(const std::string& lines) {
    std::istringstream stream(lines);
    std::string all;
    for (std::string line; std::getline(stream, line);) {
        const auto event = nlohmann::json::parse(line);
        if (event.at("event") == "log")
            all += event.at("message").get<std::string>() + '\n';
    }
    return all;
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

}  // namespace test
