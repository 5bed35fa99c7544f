#include "common/events/stopwatch.hpp"

#include <fmt/core.h>

#include <cstdint>
#include <cstdlib>

#include "common/events/monotonic_clock.hpp"
#include "common/text/number_text.hpp"

namespace common {
namespace {

using std::chrono::microseconds;

microseconds now() {
    return microseconds(monotonic_now());
}

microseconds shared_start(microseconds fallback) {
    const char* const text = std::getenv(Stopwatch::variable);
    const auto start = text == nullptr ? std::nullopt : parse_number<std::int64_t>(text);
    const bool is_valid = start && *start >= 0 && microseconds(*start) <= fallback;
    return is_valid ? microseconds(*start) : fallback;
}

}  // namespace

Stopwatch::Stopwatch() : start_(shared_start(now())) {}

microseconds Stopwatch::elapsed() const {
    return now() - start_;
}

double Stopwatch::seconds() const {
    return static_cast<double>(elapsed().count()) / 1e6;
}

std::string Stopwatch::to_environment() const {
    return fmt::format("{}={}", variable, start_.count());
}

}  // namespace common
