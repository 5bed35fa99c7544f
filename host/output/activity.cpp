#include "host/output/activity.hpp"

#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <ctime>
#include <string_view>

namespace host {
namespace {

// Written by the loop for each call and read by handlers of signals, so no lock may be in them.
static_assert(std::atomic<std::uint64_t>::is_always_lock_free &&
              std::atomic<std::int64_t>::is_always_lock_free);

constexpr std::size_t name_words = 8;
using Name = std::array<std::uint64_t, name_words>;

/// One activity, in the memory of the process: a copy of the name makes readers independent of the
/// block. Each store releases, so that a reader that sees one of them sees the odd number before it
/// too.
struct Entry {
    std::atomic<std::uint32_t> began{0};  ///< the number at its begin
    std::atomic<const char*> kind{nullptr};
    std::atomic<const char*> phase{nullptr};
    std::atomic<std::int64_t> since{0};  ///< nanoseconds
    std::array<std::atomic<std::uint64_t>, name_words> name{};
};

/// Activities nest no deeper in practice; one that does is not shown.
constexpr std::size_t max_depth = 4;

/// The activities as other threads see them. A sequence lock: the writer never waits.
struct Record {
    std::atomic<std::uint32_t> number{0};  ///< odd while the rest is written
    std::atomic<std::size_t> depth{0};     ///< of those that nest now
    std::array<Entry, max_depth> entries{};
};

Record record;
std::atomic<int> eventfd_to_set{-1};  ///< -1 for none
thread_local const Activity* current_activity = nullptr;

/// To a few milliseconds, at a fraction of the cost of the exact time.
std::int64_t now() noexcept {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

void show(Entry& entry, const Activity& activity, std::uint32_t number) noexcept {
    constexpr auto release = std::memory_order_release;
    entry.began.store(number, release);
    entry.kind.store(activity.kind(), release);
    entry.phase.store(activity.phase(), release);
    entry.since.store(now(), release);
    // Cut where it is longer, with a zero at its end; words behind that are not read.
    std::string_view rest(activity.name(), strnlen(activity.name(), sizeof(Name) - 1));
    for (auto word = entry.name.begin();; ++word) {
        std::uint64_t characters = 0;
        std::memcpy(&characters, rest.data(), std::min(rest.size(), sizeof characters));
        word->store(characters, release);
        if (rest.size() < sizeof characters)
            break;
        rest.remove_prefix(sizeof characters);
    }
}

}  // namespace

Activity::Activity(const char* kind, const char* name, const char* phase) noexcept
    : kind_(kind), name_(name), phase_(phase), outer_(current_activity) {
    current_activity = this;
    constexpr auto release = std::memory_order_release;
    const std::uint32_t number = record.number.load(std::memory_order_relaxed);
    const std::size_t depth = record.depth.load(std::memory_order_relaxed);
    record.number.store(number + 1, release);
    if (depth < max_depth)
        show(record.entries[depth], *this, number + 2);
    record.depth.store(depth + 1, release);
    record.number.store(number + 2);
    // The store of the number comes before this in the one order of all threads.
    if (eventfd_to_set.load() >= 0)
        static_cast<void>(eventfd_write(eventfd_to_set.exchange(-1), 1));
}

Activity::~Activity() {
    current_activity = outer_;
    constexpr auto release = std::memory_order_release;
    const std::uint32_t number = record.number.load(std::memory_order_relaxed);
    record.number.store(number + 1, release);
    record.depth.store(record.depth.load(std::memory_order_relaxed) - 1, release);
    record.number.store(number + 2, release);
}

const Activity* Activity::current() noexcept {
    return current_activity;
}

Activity::Seen Activity::seen() {
    constexpr auto acquire = std::memory_order_acquire;
    for (;;) {
        const std::uint32_t number = record.number.load(acquire);
        const std::size_t depth = std::min(record.depth.load(acquire), max_depth);
        const Entry& entry = record.entries[depth == 0 ? 0 : depth - 1];
        const std::uint32_t began = entry.began.load(acquire);
        const char* const kind = entry.kind.load(acquire);
        const char* const phase = entry.phase.load(acquire);
        const std::int64_t since = entry.since.load(acquire);
        Name name{};
        for (std::size_t i = 0; i < name_words; ++i)
            name[i] = entry.name[i].load(acquire);
        if (number % 2 != 0 || record.number.load(acquire) != number)
            continue;
        Seen seen{number};
        if (depth == 0)
            return seen;
        if (began == number)
            seen.since.emplace(std::chrono::nanoseconds(since));
        seen.text = kind;
        if (name[0] != 0)
            seen.text.append(" '").append(reinterpret_cast<const char*>(name.data())).append("'");
        if (phase != nullptr)
            seen.text.append(" in ").append(phase);
        if (std::string_view(kind) == "block")
            seen.block = reinterpret_cast<const char*>(name.data());
        return seen;
    }
}

bool Activity::notify_at_begin(int eventfd, std::uint32_t number) noexcept {
    eventfd_to_set = eventfd;
    if (record.number.load() == number)
        return true;
    eventfd_to_set = -1;
    return false;
}

bool in_foreign_code() noexcept {
    const Activity* const activity = Activity::current();
    const std::string_view kind = activity == nullptr ? "" : activity->kind();
    return kind == "block" || kind == "plug-in";
}

}  // namespace host
