#include "host/output/activity.hpp"

#include <array>
#include <atomic>
#include <cstring>
#include <ctime>
#include <string_view>

namespace host {
namespace {

constexpr std::size_t name_words = 8;
using Name = std::array<std::uint64_t, name_words>;

/// The activity as other threads see it. A sequence lock: the writer never waits, and a copy of the
/// name makes readers independent of the block. Each store releases, so that a reader that sees one
/// of them sees the odd number before it too.
struct Record {
    std::atomic<std::uint32_t> number{0};  ///< odd while the rest is written
    std::atomic<const char*> kind{nullptr};
    std::atomic<const char*> phase{nullptr};
    std::atomic<std::int64_t> since{0};  ///< nanoseconds
    std::array<std::atomic<std::uint64_t>, name_words> name{};
};

Record record;
thread_local const Activity* current_activity = nullptr;

/// To a few milliseconds, at a fraction of the cost of the exact time.
std::int64_t now() noexcept {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

void show(const Activity* activity) noexcept {
    constexpr auto release = std::memory_order_release;
    const std::uint32_t number = record.number.load(std::memory_order_relaxed);
    record.number.store(number + 1, release);
    record.kind.store(activity == nullptr ? nullptr : activity->kind(), release);
    if (activity != nullptr) {
        record.phase.store(activity->phase(), release);
        record.since.store(now(), release);
        Name name{};  // cut where it is longer, with a zero at its end
        strncpy(reinterpret_cast<char*>(name.data()), activity->name(), sizeof name - 1);
        for (std::size_t i = 0; i < name_words; ++i)
            record.name[i].store(name[i], release);
    }
    record.number.store(number + 2, release);
}

}  // namespace

Activity::Activity(const char* kind, const char* name, const char* phase) noexcept
    : kind_(kind), name_(name), phase_(phase), outer_(current_activity) {
    current_activity = this;
    show(this);
}

Activity::~Activity() {
    current_activity = outer_;
    show(outer_);
}

const Activity* Activity::current() noexcept {
    return current_activity;
}

std::optional<Activity::Seen> Activity::seen() {
    constexpr auto acquire = std::memory_order_acquire;
    for (;;) {
        const std::uint32_t number = record.number.load(acquire);
        const char* const kind = record.kind.load(acquire);
        const char* const phase = record.phase.load(acquire);
        const std::int64_t since = record.since.load(acquire);
        Name name{};
        for (std::size_t i = 0; i < name_words; ++i)
            name[i] = record.name[i].load(acquire);
        if (number % 2 != 0 || record.number.load(acquire) != number)
            continue;
        if (kind == nullptr)
            return std::nullopt;
        std::string text = kind;
        if (name[0] != 0)
            text.append(" '").append(reinterpret_cast<const char*>(name.data())).append("'");
        if (phase != nullptr)
            text.append(" in ").append(phase);
        const bool is_block = std::string_view(kind) == "block";
        return Seen{number, std::chrono::steady_clock::time_point(std::chrono::nanoseconds(since)),
                    std::move(text),
                    is_block ? reinterpret_cast<const char*>(name.data()) : std::string()};
    }
}

}  // namespace host
