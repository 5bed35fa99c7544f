#include "host/runtime/block_status.hpp"

namespace host {
namespace {

constexpr std::uint64_t second = 1'000'000;

}  // namespace

void BlockStatus::ran(std::uint64_t now) noexcept {
    ++runs_;
    last_run_ = now;
    if (now - window_ >= second) {
        window_before_ = window_;
        runs_in_window_before_ = runs_in_window_;
        window_ = now;
        runs_in_window_ = 0;
    }
    ++runs_in_window_;
}

double BlockStatus::runs_per_second(std::uint64_t now) const noexcept {
    if (runs_ == 0 || now - last_run_ >= 2 * second)
        return 0;
    std::uint64_t since = window_before_;
    std::uint64_t runs = runs_in_window_before_ + runs_in_window_;
    if (window_before_ == 0 || now - window_ >= second) {
        since = window_;
        runs = runs_in_window_;
    }
    // A first run a moment ago says nothing about a rate yet.
    const std::uint64_t time = now - since < second ? second : now - since;
    return static_cast<double>(runs) * second / static_cast<double>(time);
}

}  // namespace host
