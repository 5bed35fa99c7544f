#include "host/runtime/scheduler.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "common/bus/callback.hpp"
#include "common/bus/out.hpp"

namespace host {
namespace {

/// How much later than its turn a block may run, in microseconds.
constexpr std::uint64_t timer_slack = 100;

/// After so many microseconds without a run a block is one that has not tried before. Far longer
/// than an answer takes, however busy the host is, or blocks would seem to begin anew with every
/// try.
constexpr std::uint64_t forgotten_after = 10'000'000;

/// The most that is charged for what the loop does between two turns of blocks that try again, in
/// nanoseconds: it may have been about something else altogether.
constexpr double most_between_turns = 20e6;

int make_eventfd() {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return common::check(fd < 0 ? -errno : fd, "cannot make an eventfd");
}

}  // namespace

std::uint64_t Scheduler::thread_processor_time() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

Scheduler::Scheduler(sd_event& loop, const RateLimit& rate_limit,
                     std::function<void(Fenwa::Block&)> run_block,
                     std::function<std::uint64_t()> processor_time)
    : loop_(loop),
      rate_limit_(rate_limit),
      run_block_(std::move(run_block)),
      event_fd_(make_eventfd()),
      queue_([this] { wake(); }),
      processor_time_(std::move(processor_time)) {}

Scheduler::~Scheduler() {
    disable();
    close(event_fd_);
}

void Scheduler::enable() {
    common::check(sd_event_add_io(&loop_, common::out(source_), event_fd_, EPOLLIN,
                                  common::callback<&Scheduler::on_wake>, this),
                  "cannot watch for ready blocks");
    common::check(
        sd_event_source_set_prepare(source_.get(), common::callback<&Scheduler::before_waiting>),
        "cannot watch for ready blocks");
    common::check(sd_event_add_defer(&loop_, common::out(next_pass_),
                                     common::callback<&Scheduler::on_woken_here>, this),
                  "cannot serve ready blocks");
    common::check(sd_event_source_set_priority(next_pass_.get(), SD_EVENT_PRIORITY_IDLE),
                  "cannot serve ready blocks");
    // One pass at least, for what became ready before.
    woken_here_ = true;
    common::check(sd_event_add_time(&loop_, common::out(timer_), CLOCK_MONOTONIC, 0, timer_slack,
                                    common::callback<&Scheduler::pass>, this),
                  "cannot make a timer for blocks that wait their turn");
    common::check(sd_event_source_set_enabled(timer_.get(), SD_EVENT_OFF), "cannot stop a timer");
}

void Scheduler::disable() {
    source_.reset();
    next_pass_.reset();
    timer_.reset();
    waiting_ = {};
    held_.clear();
    fired_.clear();
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
    if (timer_ != nullptr)
        wait_for_next_turn();
}

void Scheduler::wake() noexcept {
    // The loop's own thread, on which most is fired, can do without the kernel.
    if (std::this_thread::get_id() == thread_) {
        woken_here_ = true;
        woken_in_pass_ = passing_;
        return;
    }
    // Fails only when the counter is full, and then the loop is awake anyway.
    static_cast<void>(eventfd_write(event_fd_, 1));
}

void Scheduler::on_wake() noexcept {
    // Before the queue is emptied: what becomes ready from here on makes another pass.
    eventfd_t count = 0;
    static_cast<void>(eventfd_read(event_fd_, &count));
    pass();
}

int Scheduler::before_waiting() noexcept {
    if (!woken_here_)
        return 0;
    // What an event has made ready runs before the next event. Between two passes one event goes
    // first, or blocks that are always ready would keep the bus, the timers and the signals out;
    // and only one, or a flood of those would keep the blocks out.
    sd_event_source* const pass = next_pass_.get();
    if (!woken_in_pass_ || rounds_++ > 0)
        sd_event_source_set_priority(pass, SD_EVENT_PRIORITY_IMPORTANT);
    return sd_event_source_set_enabled(pass, SD_EVENT_ONESHOT);
}

int Scheduler::on_woken_here(sd_event_source& source) noexcept {
    woken_here_ = false;
    rounds_ = 0;
    pass();
    return sd_event_source_set_priority(&source, SD_EVENT_PRIORITY_IDLE);
}

void Scheduler::pass() noexcept {
    passing_ = true;
    try {
        run_ready();
    } catch (...) {
        fail(std::current_exception());
    }
    passing_ = false;
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
    // All are taken before one runs: what becomes ready from here on makes another pass. Those that
    // have waited became ready first.
    std::deque<Fenwa::Block*> ready = std::move(held_);
    held_.clear();
    holding_ = false;
    add_those_refused(ready);
    for (; !waiting_.empty() && waiting_.top().due <= now(); waiting_.pop())
        ready.push_back(waiting_.top().block);
    ready.insert(ready.end(), fired_.begin(), fired_.end());
    fired_.clear();
    for (Fenwa::Block* block : queue_.take())
        ready.push_back(block);
    for (; !ready.empty() && !holds(); ready.pop_front())
        run_within_budget(*ready.front());
    held_.insert(held_.begin(), ready.begin(), ready.end());
    run_retrying();
    wait_for_next_turn();
}

void Scheduler::add_those_refused(std::deque<Fenwa::Block*>& ready) {
    if (rate_limit_.enabled()) {
        if (Fenwa::Block* const block = refused_.take(now()))
            ready.push_back(block);
    } else if (are_matches_answered()) {
        for (Fenwa::Block* block : refused_.take_all())
            ready.push_back(block);
    }
}

bool Scheduler::are_matches_answered() const {
    return !matches_asked_ || matches_asked_() == 0;
}

bool Scheduler::holds() {
    holding_ = unanswered_ && hold_.holds(unanswered_(), now());
    return holding_;
}

void Scheduler::answered() noexcept {
    std::uint64_t now = 0;
    sd_event_now(&loop_, CLOCK_MONOTONIC, &now);
    hold_.answered(now);
    if (holding_ || !held_.empty())
        woken_here_ = true;
}

void Scheduler::match_refused(Fenwa::Block& block) {
    refused_.add(block);
    woken_here_ = woken_here_ || !rate_limit_.enabled();
}

void Scheduler::match_installed(Fenwa::Block& block) {
    refused_.installed(block);
    woken_here_ = woken_here_ || refused_.is_anyone_waiting();
}

void Scheduler::let_try(Fenwa::Block& block) {
    if (!refused_.remove(block))
        return;
    held_.push_back(&block);
    woken_here_ = true;
}

void Scheduler::run_within_budget(Fenwa::Block& block) {
    // Wherever it waits it still counts as queued, so that what is fired meanwhile makes no second
    // run.
    if (refused_.holds(block)) {
        // Without a brake it waits for the others' answers only: the last one that is refused finds
        // no match left, and what the blocks have kept is released.
        if (rate_limit_.enabled() || !are_matches_answered())
            return refused_.wait(block);
        refused_.remove(block);
    }
    if (!rate_limit_.enabled())
        return run_block_(block);
    Account& account =
        accounts_.try_emplace(&block, Account{TokenBucket(rate_limit_, now())}).first->second;
    if (now() > account.ran_at + forgotten_after) {
        account.tries = 0;
        account.spent = false;
    }
    if (!account.budget.take(now())) {
        account.spent = true;
        waiting_.push({account.budget.due(), waited_++, &block});
        return;
    }
    if (account.retries && account.spent)
        return retrying_.push_back(&block);
    ++other_runs_;
    run_and_watch(block, account);
}

void Scheduler::run_retrying() {
    if (retrying_.empty() || !retry_budget_.allows(now()))
        return;
    charge_rest();
    std::uint64_t before = processor_time_();
    // Each at most once: those that become ready meanwhile have their turn in a later pass.
    for (std::size_t left = retrying_.size(); left > 0 && !holds() && retry_budget_.allows(now());
         --left) {
        Fenwa::Block& block = *retrying_.front();
        retrying_.pop_front();
        Account& account = accounts_.at(&block);
        account.budget.skip_to(now());
        ++retries_;
        run_and_watch(block, account);
        const std::uint64_t after = processor_time_();
        retry_budget_.charge(static_cast<double>(after - before));
        before = after;
    }
    retried_at_ = before;
}

void Scheduler::charge_rest() {
    // Answers, log lines and wake-ups, which belong to the runs before them.
    if (retries_ > 0) {
        const double rest = static_cast<double>(processor_time_() - retried_at_);
        const double part =
            static_cast<double>(retries_) / static_cast<double>(retries_ + other_runs_);
        retry_budget_.charge(std::min(rest, most_between_turns) * part);
    }
    retries_ = 0;
    other_runs_ = 0;
}

void Scheduler::run_and_watch(Fenwa::Block& block, Account& account) {
    const std::uint64_t before = calls_ ? calls_() : 0;
    for (Fenwa::Block* ready : queue_.take())
        fired_.push_back(ready);
    const std::size_t known = fired_.size();
    account.ran_at = now();
    run_block_(block);
    for (Fenwa::Block* ready : queue_.take())
        fired_.push_back(ready);
    account.retries = (calls_ && calls_() != before) ||
                      std::find(fired_.begin() + static_cast<std::ptrdiff_t>(known), fired_.end(),
                                &block) != fired_.end();
    account.tries = account.retries ? account.tries + 1 : 0;
    account.spent = account.spent || account.tries >= rate_limit_.burst;
}

void Scheduler::wait_for_next_turn() {
    std::uint64_t due = UINT64_MAX;
    if (!waiting_.empty())
        due = waiting_.top().due;
    if (!held_.empty() || (holding_ && !retrying_.empty()))
        due = std::min(due, hold_.due());
    if (!holding_ && !retrying_.empty())
        due = std::min(due, retry_budget_.due());
    if (rate_limit_.enabled() && refused_.is_anyone_waiting())
        due = std::min(due, refused_.due());
    if (due != UINT64_MAX)
        common::check(sd_event_source_set_time(timer_.get(), due),
                      "cannot set the timer for blocks that wait their turn");
    common::check(sd_event_source_set_enabled(timer_.get(),
                                              due == UINT64_MAX ? SD_EVENT_OFF : SD_EVENT_ONESHOT),
                  "cannot start the timer for blocks that wait their turn");
}

}  // namespace host
