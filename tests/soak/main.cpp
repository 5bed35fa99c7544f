// Runs the camera graph while everything around it fails, and compares what is left.
#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>
#include <random>

#include "tests/soak/soak.hpp"

namespace {

constexpr int usage_error = 2;

std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);

void interrupt(int /*signal*/) {
    interrupted = true;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Runs the camera graph while services crash, replies are late, malformed or missing, and "
        "settings change; compares every output with the services in between and at the end.",
        "script/soak");
    std::int64_t seconds = 0;
    std::uint64_t seed = std::random_device()();
    app.add_option("SECONDS", seconds, "How long")->required()->check(CLI::Range(1, 7 * 24 * 3600));
    app.add_option("--seed", seed, "Repeats the actions of a run; random if not given");
    app.footer(
        "Exit codes: 0 all is right, 1 something is not or was not compared, 2 the command line is "
        "wrong.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : usage_error;
    }
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    std::signal(SIGPIPE, SIG_IGN);
    std::cout << "seed " << seed << std::endl;
    try {
        return soak::Soak(seed, std::chrono::seconds(seconds), interrupted, std::cout).run() ? 0
                                                                                             : 1;
    } catch (const std::exception& error) {
        std::cerr << "soak: " << error.what() << '\n';
        return 1;
    }
}
