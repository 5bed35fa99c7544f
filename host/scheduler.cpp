#include "host/scheduler.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

namespace host {
namespace {

int make_eventfd() {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return tool::check(fd < 0 ? -errno : fd, "cannot make an eventfd");
}

}  // namespace

Scheduler::Scheduler(sd_event& loop, std::function<void(Fenwa::Block&)> run_block)
    : loop_(loop),
      run_block_(std::move(run_block)),
      event_fd_(make_eventfd()),
      queue_([this] { wake(); }) {}

Scheduler::~Scheduler() {
    source_.reset();
    close(event_fd_);
}

void Scheduler::enable() {
    sd_event_source* source = nullptr;
    tool::check(sd_event_add_io(&loop_, &source, event_fd_, EPOLLIN, on_wake, this),
                "cannot watch for ready blocks");
    source_.reset(source);
}

void Scheduler::disable() {
    source_.reset();
}

void Scheduler::wake() const noexcept {
    // Fails only when the counter is full, and then the loop is awake anyway.
    static_cast<void>(eventfd_write(event_fd_, 1));
}

int Scheduler::on_wake(sd_event_source* /*source*/, int fd, std::uint32_t /*events*/,
                       void* userdata) noexcept {
    auto& scheduler = *static_cast<Scheduler*>(userdata);
    // Before the queue is emptied: what becomes ready from here on makes another pass.
    eventfd_t count = 0;
    static_cast<void>(eventfd_read(fd, &count));
    try {
        scheduler.pass();
    } catch (...) {
        scheduler.fail(std::current_exception());
    }
    return 0;
}

void Scheduler::fail(std::exception_ptr failure) noexcept {
    failure_ = std::move(failure);
    sd_event_exit(&loop_, 0);
}

void Scheduler::pass() {
    for (Fenwa::Block* block : queue_.take())
        run_block_(*block);
}

}  // namespace host
