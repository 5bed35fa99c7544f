#include "host/runtime/scheduler.hpp"

#include <sys/epoll.h>

#include <algorithm>
#include <ctime>
#include <unordered_set>

#include "common/bus/callback.hpp"

namespace host {
namespace {

/// How much later than its turn a block may run, in microseconds.
constexpr std::uint64_t timer_slack = 100;

/// After so many microseconds without a run a block counts as one that has not tried before. Far
/// longer than a reply takes on a busy host, or each try would count as the first.
constexpr std::uint64_t forgotten_after = 10'000'000;

/// The most that is charged for the loop's work between two turns of retrying blocks, in
/// nanoseconds: that work may have another cause.
constexpr double max_between_turns = 20e6;

}  // namespace

std::uint64_t Scheduler::thread_processor_time() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

Scheduler::Scheduler(sd_event& loop, const RateLimit& rate_limit,
                     std::function<void(Fenwa::Block&, std::uint64_t)> run_block,
                     std::function<std::uint64_t()> processor_time)
    : loop_(loop),
      rate_limit_(rate_limit),
      run_block_(std::move(run_block)),
      queue_([this] { wake(); }),
      processor_time_(std::move(processor_time)) {}

Scheduler::~Scheduler() {
    disable();
}

void Scheduler::enable() {
    common::check(sd_event_add_io(&loop_, source_.out(), woken_.get(), EPOLLIN,
                                  common::callback<&Scheduler::on_wake>, this),
                  "cannot watch for ready blocks");
    common::check(sd_event_add_time(&loop_, timer_.out(), CLOCK_MONOTONIC, 0, timer_slack,
                                    common::callback<&Scheduler::on_turn>, this),
                  "cannot make a timer for blocks that wait their turn");
    common::check(sd_event_source_set_enabled(timer_.get(), SD_EVENT_OFF), "cannot stop a timer");
    // One pass at least, for the blocks that became ready before.
    change(State::due);
}

void Scheduler::disable() {
    change(State::disabled);
    source_.reset();
    timer_.reset();
    timer_due_ = UINT64_MAX;
    waiting_ = {};
    held_.clear();
    retrying_.clear();
    refused_.clear();
}

void Scheduler::set_rate_limit(const RateLimit& rate_limit) {
    rate_limit_ = rate_limit;
    accounts_.clear();
    held_.insert(held_.end(), retrying_.begin(), retrying_.end());
    retrying_.clear();
    for (Fenwa::Block* block : refused_.take_all())
        held_.push_back(block);
    decltype(waiting_) due_at_once;
    for (; !waiting_.empty(); waiting_.pop())
        due_at_once.push({0, waiting_.top().number, waiting_.top().block});
    waiting_ = std::move(due_at_once);
    if (state_ != State::disabled)
        wait_for_next_turn();
}

void Scheduler::request_pass() noexcept {
    switch (state_) {
        case State::disabled:
            return;
        case State::idle:
        case State::due:
            return change(State::due);
        case State::passing:
        case State::passing_and_ready:
            return change(State::passing_and_ready);
    }
}

void Scheduler::wake() noexcept {
    // Most blocks fire on the loop's own thread, which needs no kernel call.
    if (std::this_thread::get_id() == thread_)
        request_pass();
    else
        woken_.set();
}

void Scheduler::on_wake() noexcept {
    // Before the queue is emptied: a block that becomes ready from here on makes another pass.
    woken_.clear();
    request_pass();
}

void Scheduler::on_turn() noexcept {
    timer_due_ = UINT64_MAX;
    request_pass();
}

bool Scheduler::run_ready_blocks() noexcept {
    if (is_due())
        make_passes();
    return is_due() || failure_ != nullptr;
}

void Scheduler::make_passes() noexcept {
    try {
        now_ = now();
        for (int passes = 0; is_due() && passes < max_passes; ++passes) {
            change(State::passing);
            run_ready();
            change(state_ == State::passing_and_ready ? State::due : State::idle);
        }
        wait_for_next_turn();
    } catch (...) {
        fail(std::current_exception());
    }
}

void Scheduler::fail(std::exception_ptr failure) noexcept {
    failure_ = std::move(failure);
    sd_event_exit(&loop_, 0);
}

std::uint64_t Scheduler::now() const {
    std::uint64_t now = 0;
    common::check(sd_event_now(&loop_, CLOCK_MONOTONIC, &now), "cannot tell the time");
    return now;
}

void Scheduler::run_ready() {
    // All are taken before one runs: a block that becomes ready from here on makes another pass.
    // Waiting blocks became ready first. The lists keep their memory from pass to pass.
    ready_.clear();
    std::swap(ready_, held_);
    add_those_refused();
    for (; !waiting_.empty() && waiting_.top().due <= now_; waiting_.pop())
        ready_.push_back(waiting_.top().block);
    queue_.take(ready_);
    auto next = ready_.begin();
    for (; next != ready_.end() && !should_wait(); ++next)
        run_within_budget(**next);
    held_.insert(held_.begin(), next, ready_.end());
    run_retrying();
}

void Scheduler::add_those_refused() {
    if (!refused_.is_anyone_waiting())
        return;
    if (rate_limit_.enabled()) {
        if (Fenwa::Block* const block = refused_.take(now_))
            ready_.push_back(block);
    } else if (are_matches_answered()) {
        for (Fenwa::Block* block : refused_.take_all())
            ready_.push_back(block);
    }
}

bool Scheduler::are_matches_answered() const {
    return !matches_requested_ || matches_requested_() == 0;
}

bool Scheduler::should_wait() {
    return unanswered_ && backpressure_.should_wait(unanswered_(), now_);
}

void Scheduler::answered() noexcept {
    std::uint64_t now = 0;
    sd_event_now(&loop_, CLOCK_MONOTONIC, &now);
    backpressure_.answered(now);
    if (backpressure_.is_waiting() || !held_.empty())
        request_pass();
}

void Scheduler::match_refused(Fenwa::Block& block) {
    refused_.add(block);
    if (!rate_limit_.enabled())
        request_pass();
}

void Scheduler::match_installed(Fenwa::Block& block) {
    refused_.installed(block);
    if (refused_.is_anyone_waiting())
        request_pass();
}

void Scheduler::let_try(Fenwa::Block& block) {
    if (!refused_.remove(block))
        return;
    held_.push_back(&block);
    request_pass();
}

void Scheduler::forget(const std::vector<Fenwa::Block*>& blocks) {
    std::unordered_set<const Fenwa::Block*> ready;
    for (Fenwa::Block* block : blocks) {
        accounts_.erase(block);
        const bool awaits_its_turn = refused_.forget(*block);
        if (Fenwa::ReadyQueue::retire(*block) && !awaits_its_turn)
            ready.insert(block);
    }
    const auto drop_from = [&ready](auto& list) {
        std::erase_if(list, [&](const Fenwa::Block* block) { return ready.erase(block) != 0; });
    };
    decltype(waiting_) still_waiting;
    for (; !waiting_.empty(); waiting_.pop()) {
        if (ready.erase(waiting_.top().block) == 0)
            still_waiting.push(waiting_.top());
    }
    waiting_ = std::move(still_waiting);
    drop_from(held_);
    drop_from(retrying_);
    // One that another thread is adding just now comes at once.
    for (; !ready.empty(); std::this_thread::yield()) {
        queue_.take(held_);
        drop_from(held_);
    }
}

bool Scheduler::is_paced(Fenwa::Block& block) const {
    if (refused_.should_wait(block))
        return true;
    const auto account = accounts_.find(&block);
    return account != accounts_.end() && account->second.spent &&
           now() <= account->second.ran_at + forgotten_after;
}

void Scheduler::run_within_budget(Fenwa::Block& block) {
    // A waiting block still counts as queued, so that firing it makes no second run.
    if (refused_.should_wait(block)) {
        // Without a rate limit it waits for the others' replies only: the last one that is refused
        // finds no match left, and the blocks' memory is released.
        if (rate_limit_.enabled() || !are_matches_answered())
            return refused_.wait(block);
        refused_.remove(block);
    }
    if (!rate_limit_.enabled())
        return run_block_(block, now_);
    auto known = accounts_.find(&block);
    if (known == accounts_.end())
        known = accounts_.emplace(&block, Account{TokenBucket(rate_limit_, now_)}).first;
    Account& account = known->second;
    if (now_ > account.ran_at + forgotten_after) {
        account.tries = 0;
        account.spent = false;
    }
    if (!account.budget.take(now_)) {
        account.spent = true;
        waiting_.push({account.budget.due(), waited_++, &block});
        return;
    }
    if (account.tries > 0 && account.spent)
        return retrying_.push_back(&block);
    ++other_runs_;
    run_and_watch(block, account);
}

void Scheduler::run_retrying() {
    if (retrying_.empty() || !retry_budget_.allows(now_))
        return;
    charge_rest();
    std::uint64_t before = processor_time_();
    // Each at most once: blocks that become ready meanwhile have their turn in a later pass.
    for (std::size_t left = retrying_.size();
         left > 0 && !should_wait() && retry_budget_.allows(now_); --left) {
        Fenwa::Block& block = *retrying_.front();
        retrying_.pop_front();
        ++retries_;
        run_and_watch(block, accounts_.at(&block));
        const std::uint64_t after = processor_time_();
        retry_budget_.charge(static_cast<double>(after - before));
        before = after;
    }
    retried_at_ = before;
}

void Scheduler::charge_rest() {
    // Replies, log lines and wake-ups, which belong to the runs before them.
    if (retries_ > 0) {
        const double rest = static_cast<double>(processor_time_() - retried_at_);
        const double part =
            static_cast<double>(retries_) / static_cast<double>(retries_ + other_runs_);
        retry_budget_.charge(std::min(rest, max_between_turns) * part);
    }
    retries_ = 0;
    other_runs_ = 0;
}

void Scheduler::run_and_watch(Fenwa::Block& block, Account& account) {
    const std::uint64_t before = calls_ ? calls_() : 0;
    account.ran_at = now_;
    run_block_(block, now_);
    const bool retries = (calls_ && calls_() != before) || Fenwa::ReadyQueue::is_ready(block);
    account.tries = retries ? account.tries + 1 : 0;
    account.spent = account.spent || account.tries >= rate_limit_.burst;
}

void Scheduler::wait_for_next_turn() {
    std::uint64_t due = UINT64_MAX;
    if (!waiting_.empty())
        due = waiting_.top().due;
    const bool is_waiting = backpressure_.is_waiting();
    if (!held_.empty() || (is_waiting && !retrying_.empty()))
        due = std::min(due, backpressure_.due());
    if (!is_waiting && !retrying_.empty())
        due = std::min(due, retry_budget_.due());
    if (rate_limit_.enabled() && refused_.is_anyone_waiting())
        due = std::min(due, refused_.due());
    if (due == timer_due_)
        return;
    timer_due_ = due;
    if (due != UINT64_MAX)
        common::check(sd_event_source_set_time(timer_.get(), due),
                      "cannot set the timer for blocks that wait their turn");
    common::check(sd_event_source_set_enabled(timer_.get(),
                                              due == UINT64_MAX ? SD_EVENT_OFF : SD_EVENT_ONESHOT),
                  "cannot start the timer for blocks that wait their turn");
}

}  // namespace host
