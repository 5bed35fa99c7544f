#include "tests/soak/soak.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <thread>

namespace soak {
namespace {

using std::chrono::milliseconds;

constexpr int actions_in_a_round = 100;
/// The longest delay of a fault and a time-out that begins after it have passed.
constexpr milliseconds calm{2000};
constexpr milliseconds between_looks{100};
/// How long a difference that is excused may still go away.
constexpr milliseconds excused_wait{1000};
constexpr milliseconds longest_wait{15'000};
/// Memory is measured from here on, or from half the time of a shorter run.
constexpr std::chrono::seconds warm_up{60};
constexpr long most_growth = 100;  // KiB
constexpr int most_rebuilds = 3;   // of one stalled block

/// The blocks, each of which can stall in some way.
std::set<std::string_view> blocks() {
    std::set<std::string_view> names;
    for (const Stall& stall : stalls())
        names.insert(stall.block);
    return names;
}

}  // namespace

Soak::Soak(std::uint64_t seed, std::chrono::seconds time, const std::atomic<bool>& interrupted,
           std::ostream& out)
    : time_(time),
      interrupted_(interrupted),
      out_(out),
      seed_(seed),
      scene_(wanted_.settings),
      actions_(seed, scene_, wanted_) {}

bool Soak::run() {
    try {
        compare_in_quiet();
        take_footprint();
        at_start_ = now_;
        do {
            play_round();
            compare_in_quiet();
            take_footprint();
            print_progress();
        } while (!interrupted_ && Clock::now() - begin_ < time_);
    } catch (const std::exception& error) {
        // In a terminal Ctrl-C ends the programs too.
        if (!interrupted_)
            lost_.push_back(fmt::format("{:.1f} s: {}\n{}", seconds(), error.what(),
                                        scene_.observer().last_messages()));
    }
    return print_figures();
}

void Soak::play_round() {
    actions_.begin_round();
    for (int i = 0; i < actions_in_a_round && !interrupted_; ++i)
        actions_.do_next();
}

void Soak::compare_in_quiet() {
    if (interrupted_)
        return;
    ++comparisons_;
    excused_here_.clear();
    wanted_.video_times = 1;
    wanted_.ticks = scene_.observer().lines_of("tick.out") + 1;
    actions_.leave_alone();
    rest(calm);
    for (const std::string_view block : blocks())
        without_excuse_ += find_stall(block, scene_.incidents(), false) == nullptr ? 1U : 0U;
    judge(wait_until_right(false), false);

    actions_.change_everything();
    std::map<std::string_view, Remedy> stalled = judge(wait_until_right(true), true);
    // Again where a busy machine has let a call of the new block time out.
    for (int tries = 0; !stalled.empty() && !interrupted_; ++tries) {
        if (tries == most_rebuilds) {
            for (const auto& [block, remedy] : stalled)
                lose({std::string(block), "built anew in vain"}, "at the end");
            break;
        }
        scene_.incidents().clear();
        for (const auto& [block, remedy] : stalled)
            apply(remedy, block);
        actions_.change_everything();
        stalled = judge(wait_until_right(true), true);
    }
    // Every block has shown that it works.
    scene_.incidents().clear();
}

std::vector<Difference> Soak::wait_until_right(bool changed) {
    const auto begin = Clock::now();
    for (;;) {
        std::vector<Difference> found = differences(scene_, wanted_);
        const bool all_excused = std::ranges::all_of(found, [&](const Difference& each) {
            return find_stall(each.block, scene_.incidents(), changed) != nullptr;
        });
        const auto passed = Clock::now() - begin;
        if (found.empty() || interrupted_ || passed > longest_wait ||
            (all_excused && passed > excused_wait))
            return found;
        rest(between_looks);
    }
}

std::map<std::string_view, Remedy> Soak::judge(const std::vector<Difference>& found, bool changed) {
    std::map<std::string_view, Remedy> stalled;
    if (interrupted_)
        return stalled;
    for (const Difference& each : found) {
        const Stall* const stall = find_stall(each.block, scene_.incidents(), changed);
        if (stall == nullptr) {
            lose(each, changed ? "after a change of everything" : "left alone");
            continue;
        }
        if (excused_here_.insert(stall).second)
            ++excused_[stall];
        stalled[stall->block] = stall->remedy;
    }
    for (const Stall& stall : stalls()) {
        if (is_latent(stall, scene_.incidents()))
            stalled[stall.block] = stall.remedy;
    }
    return stalled;
}

void Soak::apply(Remedy remedy, std::string_view block) {
    if (remedy == Remedy::restart)
        scene_.restart("overlay");
    // The one block that has two kinds of stalls.
    actions_.rebuild(block == "earlier greeting" ? "greeting" : std::string(block).c_str());
}

void Soak::lose(const Difference& difference, const char* when) {
    std::string text =
        fmt::format("{:.1f} s, {}: {}: {}", seconds(), when, difference.block, difference.text);
    text += "\n      the host: " + status_of(scene_, difference.block);
    for (const auto& [incident, count] : scene_.incidents().all())
        text += fmt::format("\n      {} x {}", count, incident);
    out_ << "lost: " << text << std::endl;
    lost_.push_back(std::move(text));
}

void Soak::take_footprint() {
    if (interrupted_)
        return;
    now_ = scene_.footprint();
    if (warm_at_ == 0.0 && Clock::now() - begin_ >= std::min(warm_up, time_ / 2))
        warm_at_ = seconds();
    if (warm_at_ > 0.0)
        warm_.push_back(now_.kibibytes);
}

std::optional<std::pair<long, long>> Soak::memory_since_warm_up() const {
    constexpr std::size_t looks = 3;
    const auto count = static_cast<std::ptrdiff_t>(std::min(looks, warm_.size() / 2));
    if (count == 0)
        return std::nullopt;
    return std::pair(*std::min_element(warm_.begin(), warm_.begin() + count),
                     *std::min_element(warm_.end() - count, warm_.end()));
}

double Soak::seconds() const {
    return std::chrono::duration<double>(Clock::now() - begin_).count();
}

void Soak::rest(milliseconds time) const {
    for (const auto end = Clock::now() + time; Clock::now() < end && !interrupted_;)
        std::this_thread::sleep_for(std::min(time, milliseconds(20)));
}

void Soak::print_progress() {
    out_ << fmt::format(
                "{:6.0f} s: {} faults, {} restarts, {} reloads, {} rebuilds, {} messages, {} KiB, "
                "{} descriptors, {} lost",
                seconds(), scene_.observer().faults(), scene_.observer().service_ends(),
                actions_.reloads(), actions_.rebuilds(), scene_.messages(), now_.kibibytes,
                now_.descriptors, lost_.size())
         << std::endl;
}

bool Soak::print_figures() {
    const double time = seconds();
    const std::uint64_t messages = scene_.messages();
    const int code = interrupted_ ? 0 : scene_.end_host();
    const auto memory = memory_since_warm_up();
    const long growth = memory ? memory->second - memory->first : 0;
    const long more_descriptors = now_.descriptors - at_start_.descriptors;
    out_ << fmt::format("seed {}, {:.0f} s{}\n", seed_, time, interrupted_ ? ", interrupted" : "");
    out_ << fmt::format(
        "faults {}, restarts of services {}, reloads {}, rebuilds {}, messages {}\n",
        scene_.observer().faults(), scene_.observer().service_ends(), actions_.reloads(),
        actions_.rebuilds(), messages);
    out_ << fmt::format("comparisons {}; left alone, {} of {} outputs without anything to excuse\n",
                        comparisons_, without_excuse_, comparisons_ * blocks().size());
    out_ << fmt::format("memory {} KiB at the start", at_start_.kibibytes);
    if (memory)
        out_ << fmt::format(", {} KiB after {:.0f} s, {} KiB at the end: growth {} KiB",
                            memory->first, warm_at_, memory->second, growth);
    else
        out_ << "; the run is too short for a growth";
    out_ << '\n';
    out_ << fmt::format("descriptors {} at the start, {} at the end\n", at_start_.descriptors,
                        now_.descriptors);
    out_ << "excused" << (excused_.empty() ? " nothing\n" : ":\n");
    for (const Stall& stall : stalls()) {
        if (const auto it = excused_.find(&stall); it != excused_.end())
            out_ << fmt::format("{:6} x {}: {}\n", it->second, stall.block, stall.reason);
    }
    out_ << fmt::format("lost updates {}\n", lost_.size());
    for (const std::string& lost : lost_)
        out_ << "  " << lost << '\n';
    if (growth >= most_growth)
        out_ << fmt::format("the host has grown by {} KiB; less than {} is accepted\n", growth,
                            most_growth);
    if (more_descriptors > 0)
        out_ << fmt::format("the host has {} more descriptors\n", more_descriptors);
    if (code != 0)
        out_ << fmt::format("the host has ended with {}\n", code);
    out_ << std::flush;
    return !interrupted_ && lost_.empty() && growth < most_growth && more_descriptors <= 0 &&
           code == 0;
}

}  // namespace soak
