#include "tests/integration/load/load_scene.hpp"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <thread>

#include "camera/bus/names.hpp"
#include "tests/support/proc.hpp"

namespace test {

namespace {

/// Whether a file that grows holds this text, soon.
bool comes_to_hold(const std::string& path, const std::string& text) {
    const auto end = std::chrono::steady_clock::now() + Process::wait_limit;
    while (std::chrono::steady_clock::now() < end) {
        std::ostringstream all;
        all << std::ifstream(path).rdbuf();
        if (all.str().find(text) != std::string::npos)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

}  // namespace

void LoadScene::open_bus(const std::string& bus_xml) {
    bus_ = std::make_unique<common::PrivateBus>(common::PrivateBusOptions{{}, {}, {}, bus_xml});
}

void LoadScene::open(const std::string& bus_xml, const std::vector<std::string>& camera_options) {
    open_bus(bus_xml);
    // Into a file: nobody reads along, and a full pipe would stop the camera.
    const std::string output = folder_.write("camera.out", "");
    std::vector<std::string> words{"sh",
                                   "-c",
                                   R"(exec "$0" "$@" >>")" + output + '"',
                                   FENWA_CAMERA_PROGRAM,
                                   "run",
                                   "--bus",
                                   bus_->address(),
                                   "--no-activation"};
    words.insert(words.end(), camera_options.begin(), camera_options.end());
    camera_ = std::make_unique<Process>(words);
    ASSERT_TRUE(comes_to_hold(output, "ready on"));
    client_ = common::open_bus(bus_->address(), Process::wait_limit);
}

void LoadScene::handle(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), FENWA_CAMERA_PROGRAM);
    arguments.insert(arguments.end(), {"--bus", bus_->address()});
    const Ended ended = run_program(arguments);
    EXPECT_EQ(ended.code, 0) << ended.err;
}

void LoadScene::set(const std::string& name, const std::string& value) {
    common::BusError error;
    const camera::BusObject& control = camera::camera_control;
    const int r = sd_bus_call_method(client_.get(), control.name, control.path, control.interface,
                                     "Set", &error, nullptr, "ss", name.c_str(), value.c_str());
    ASSERT_GE(r, 0) << error.text(r);
}

void LoadScene::start_host(const std::string& graph, std::vector<std::string> tool) {
    const std::string file =
        folder_.write("graph.toml", "plugins = [\"libfenwa-temperature.so\"]\n" + graph);
    tool.insert(tool.end(),
                {FENWA_PROGRAM, "run", file, "--bus", bus_->address(), "--format", "json"});
    host_ = std::make_unique<Process>(tool);
}

double LoadScene::publishing_time(const std::string& name, const std::string& value,
                                  const std::string& text) {
    const auto begin = std::chrono::steady_clock::now();
    set(name, value);
    EXPECT_TRUE(host_->wait_for_text(text));
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
        .count();
}

double LoadScene::least_of_rounds(double limit, const std::function<double()>& measure) {
    double least = measure();
    for (int round = 1; round < 3 && least >= limit; ++round)
        least = std::min(least, measure());
    return least;
}

long LoadScene::memory() const {
    const long kibibytes = own_memory(host_->pid());
    EXPECT_NE(kibibytes, 0);
    return kibibytes;
}

std::chrono::milliseconds LoadScene::processor_time() const {
    std::ifstream file("/proc/" + std::to_string(host_->pid()) + "/stat");
    std::string line;
    std::getline(file, line);
    // The program's name may hold blanks; the fields behind it are counted from the third.
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string skipped;
    for (int field = 3; field < 14; ++field)
        fields >> skipped;
    long user = 0;
    long system = 0;
    fields >> user >> system;
    EXPECT_TRUE(fields) << line;
    return std::chrono::milliseconds((user + system) * 1000 / sysconf(_SC_CLK_TCK));
}

}  // namespace test
