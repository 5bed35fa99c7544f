#include "host/scheduler.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace host {
namespace {

/// Wake-ups cost more than runs, so a block whose turn has come may wait a little for others: it
/// then makes up for the time with several runs. Microseconds.
constexpr std::uint64_t patience = 50'000;

int make_eventfd() {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return tool::check(fd < 0 ? -errno : fd, "cannot make an eventfd");
}

}  // namespace

Scheduler::Scheduler(sd_event& loop, const Pace& pace, std::function<void(Fenwa::Block&)> run_block)
    : loop_(loop),
      pace_(pace),
      run_block_(std::move(run_block)),
      event_fd_(make_eventfd()),
      queue_([this] { wake(); }) {}

Scheduler::~Scheduler() {
    disable();
    close(event_fd_);
}

void Scheduler::enable() {
    sd_event_source* source = nullptr;
    tool::check(sd_event_add_io(&loop_, &source, event_fd_, EPOLLIN, on_wake, this),
                "cannot watch for ready blocks");
    source_.reset(source);
    tool::check(sd_event_source_set_prepare(source, before_waiting),
                "cannot watch for ready blocks");
    tool::check(sd_event_add_defer(&loop_, &source, on_woken_here, this),
                "cannot serve ready blocks");
    next_pass_.reset(source);
    tool::check(sd_event_source_set_priority(source, SD_EVENT_PRIORITY_IDLE),
                "cannot serve ready blocks");
    // One pass at least, for what became ready before.
    woken_here_ = true;
    tool::check(sd_event_add_time(&loop_, &source, CLOCK_MONOTONIC, 0, patience, on_due, this),
                "cannot make a timer for blocks that wait their turn");
    timer_.reset(source);
    tool::check(sd_event_source_set_enabled(source, SD_EVENT_OFF), "cannot stop a timer");
}

void Scheduler::disable() {
    source_.reset();
    next_pass_.reset();
    timer_.reset();
    waiting_ = {};
    held_.clear();
}

void Scheduler::set_pace(const Pace& pace) {
    pace_ = pace;
    budgets_.clear();
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

int Scheduler::on_wake(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                       void* userdata) noexcept {
    // Before the queue is emptied: what becomes ready from here on makes another pass.
    eventfd_t count = 0;
    static_cast<void>(eventfd_read(fd, &count));
    static_cast<Scheduler*>(userdata)->pass();
    return 0;
}

int Scheduler::before_waiting(sd_event_source* /*source*/, void* userdata) noexcept {
    auto& scheduler = *static_cast<Scheduler*>(userdata);
    if (!scheduler.woken_here_)
        return 0;
    // What an event has made ready runs before the next event. Between two passes one event goes
    // first, or blocks that are always ready would keep the bus, the timers and the signals out;
    // and only one, or a flood of those would keep the blocks out.
    sd_event_source* const pass = scheduler.next_pass_.get();
    if (!scheduler.woken_in_pass_ || scheduler.rounds_++ > 0)
        sd_event_source_set_priority(pass, SD_EVENT_PRIORITY_IMPORTANT);
    return sd_event_source_set_enabled(pass, SD_EVENT_ONESHOT);
}

int Scheduler::on_woken_here(sd_event_source* source, void* userdata) noexcept {
    auto& scheduler = *static_cast<Scheduler*>(userdata);
    scheduler.woken_here_ = false;
    scheduler.rounds_ = 0;
    scheduler.pass();
    return sd_event_source_set_priority(source, SD_EVENT_PRIORITY_IDLE);
}

int Scheduler::on_due(sd_event_source* /*source*/, std::uint64_t /*due*/, void* userdata) noexcept {
    static_cast<Scheduler*>(userdata)->pass();
    return 0;
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
    tool::check(sd_event_now(&loop_, CLOCK_MONOTONIC, &now), "cannot tell the time");
    return now;
}

void Scheduler::run_ready() {
    // All are taken before one runs: what becomes ready from here on makes another pass. Those that
    // have waited became ready first.
    std::deque<Fenwa::Block*> ready = std::move(held_);
    held_.clear();
    for (; !waiting_.empty() && waiting_.top().due <= now(); waiting_.pop())
        ready.push_back(waiting_.top().block);
    for (Fenwa::Block* block : queue_.take())
        ready.push_back(block);
    for (; !ready.empty() && !holds(); ready.pop_front())
        run_within_budget(*ready.front());
    held_ = std::move(ready);
    wait_for_next_turn();
}

bool Scheduler::holds() {
    return unanswered_ && hold_.holds(unanswered_(), now());
}

void Scheduler::answered() noexcept {
    std::uint64_t now = 0;
    sd_event_now(&loop_, CLOCK_MONOTONIC, &now);
    hold_.answered(now);
    if (!held_.empty())
        woken_here_ = true;
}

void Scheduler::run_within_budget(Fenwa::Block& block) {
    if (!pace_.brakes())
        return run_block_(block);
    RunBudget& budget = budgets_.try_emplace(&block, pace_, now()).first->second;
    if (!budget.take(now())) {
        // It still counts as queued, so that whatever is fired meanwhile makes no second run.
        waiting_.push({budget.due(), waited_++, &block});
        return;
    }
    const std::uint64_t before = calls_ ? calls_() : 0;
    run_block_(block);
    if (calls_ && calls_() != before)
        budget.charge(call_cost);
}

void Scheduler::wait_for_next_turn() {
    std::uint64_t due = UINT64_MAX;
    if (!waiting_.empty())
        due = waiting_.top().due;
    if (!held_.empty())
        due = std::min(due, hold_.due());
    if (due != UINT64_MAX)
        tool::check(sd_event_source_set_time(timer_.get(), due),
                    "cannot set the timer for blocks that wait their turn");
    tool::check(sd_event_source_set_enabled(timer_.get(),
                                            due == UINT64_MAX ? SD_EVENT_OFF : SD_EVENT_ONESHOT),
                "cannot start the timer for blocks that wait their turn");
}

}  // namespace host
