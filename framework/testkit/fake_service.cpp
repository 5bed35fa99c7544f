#include "fenwa/testkit/fake_service.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "framework/testkit/connection.hpp"
#include "framework/testkit/sdbus_result.hpp"
#include "framework/testkit/texts.hpp"

namespace Fenwa::testkit {
namespace {

/// What a call asks for: its member, or the property that it reads.
std::string key_of(sd_bus_message* call) {
    if (sd_bus_message_is_method_call(call, "org.freedesktop.DBus.Properties", "Get") <= 0)
        return sd_bus_message_get_member(call);
    const char* property = "";
    check(sd_bus_message_read(call, "ss", nullptr, &property));
    return property;
}

std::string or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

}  // namespace

/// The connection of a service, and the only thread that uses it from the start on.
struct FakeService::Thread {
    explicit Thread(FakeService& owner, const std::string& address)
        : service(&owner), bus(connect_to(address)), wake_fd(check_errno(eventfd(0, EFD_CLOEXEC))) {
        check(sd_bus_add_filter(bus.get(), nullptr, on_message, this));
        check(sd_bus_request_name(bus.get(), owner.name_.c_str(), 0));
        thread = std::thread([this] { serve(); });
    }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    ~Thread() {
        ended = true;
        wake();
        thread.join();
        close(wake_fd);
    }

    /// Has the thread do this, and waits for it. Throws what it throws.
    void call(std::function<void()> work) {
        std::packaged_task<void()> task(std::move(work));
        std::future<void> done = task.get_future();
        {
            const std::lock_guard lock(mutex);
            tasks.push_back(std::move(task));
        }
        wake();
        done.get();
    }

  private:
    static int check_errno(int result) { return check(result < 0 ? -errno : result); }

    void wake() const {
        constexpr std::uint64_t once = 1;
        (void)!write(wake_fd, &once, sizeof once);
    }

    void serve() {
        while (!ended) {
            do_tasks();
            // A lost connection: whoever calls the service notices.
            const int processed = sd_bus_process(bus.get(), nullptr);
            if (processed > 0)
                continue;
            constexpr int check_again_ms = 100;
            std::array<pollfd, 2> ready{pollfd{processed < 0 ? -1 : sd_bus_get_fd(bus.get()),
                                               static_cast<short>(sd_bus_get_events(bus.get())), 0},
                                        pollfd{wake_fd, POLLIN, 0}};
            poll(ready.data(), ready.size(), check_again_ms);
            std::uint64_t count = 0;
            if ((ready[1].revents & POLLIN) != 0)
                (void)!read(wake_fd, &count, sizeof count);
        }
    }

    void do_tasks() {
        std::vector<std::packaged_task<void()>> due;
        {
            const std::lock_guard lock(mutex);
            due.swap(tasks);
        }
        for (auto& task : due)
            task();
    }

    static int on_message(sd_bus_message* message, void* userdata, sd_bus_error* error) {
        if (sd_bus_message_is_method_call(message, nullptr, nullptr) <= 0)
            return 0;
        try {
            return static_cast<Thread*>(userdata)->answer(message);
        } catch (const std::system_error& failure) {
            return sd_bus_error_set_errno(error, failure.code().value());
        }
    }

    int answer(sd_bus_message* message) {
        const std::string key = key_of(message);
        const std::optional<Ending> ending =
            service->record({or_empty(sd_bus_message_get_destination(message)),
                             or_empty(sd_bus_message_get_path(message)),
                             or_empty(sd_bus_message_get_interface(message)),
                             or_empty(sd_bus_message_get_member(message)), arguments_text(message)},
                            key);
        if (!ending)
            return sd_bus_reply_method_errorf(message, SD_BUS_ERROR_UNKNOWN_METHOD,
                                              "Nothing was said about '%s'", key.c_str());
        if (ending->kind == Ending::Kind::silence)
            return 1;
        if (ending->kind == Ending::Kind::error)
            return sd_bus_reply_method_errorf(message, ending->error_name.c_str(), "%s",
                                              ending->text.c_str());
        Message reply;
        check(sd_bus_message_new_method_return(message, reply.out()));
        if (sd_bus_message_is_method_call(message, "org.freedesktop.DBus.Properties", "Get") > 0)
            append_variant(reply.get(), ending->values);
        else
            check(ending->values.append_to(reply.get()));
        return check(sd_bus_send(bus.get(), reply.get(), nullptr));
    }

    /// Appends a value inside a variant, which has to be told its type before the value is there.
    void append_variant(sd_bus_message* reply, const Body& value) const {
        Message alone;
        check(sd_bus_message_new_signal(bus.get(), alone.out(), "/", "a.B", "C"));
        check(value.append_to(alone.get()));
        check(sd_bus_message_seal(alone.get(), 1, 0));
        check(sd_bus_message_open_container(reply, SD_BUS_TYPE_VARIANT,
                                            sd_bus_message_get_signature(alone.get(), 1)));
        check(sd_bus_message_copy(reply, alone.get(), 1));
        check(sd_bus_message_close_container(reply));
    }

    FakeService* service;

  public:
    Connection bus;

  private:
    int wake_fd;
    std::mutex mutex;
    std::vector<std::packaged_task<void()>> tasks;
    std::atomic<bool> ended = false;
    std::thread thread;
};

FakeService::FakeService(PrivateBus& bus, std::string name)
    : name_(std::move(name)), thread_(std::make_unique<Thread>(*this, bus.address())) {}

FakeService::~FakeService() = default;

void FakeService::emit(const std::string& path, const std::string& interface,
                       const std::string& member, const Body& values) {
    thread_->call([&] {
        Message signal;
        check(sd_bus_message_new_signal(thread_->bus.get(), signal.out(), path.c_str(),
                                        interface.c_str(), member.c_str()));
        check(values.append_to(signal.get()));
        check(sd_bus_send(thread_->bus.get(), signal.get(), nullptr));
        check(sd_bus_flush(thread_->bus.get()));
    });
}

void FakeService::leave() {
    thread_->call([this] { check(sd_bus_release_name(thread_->bus.get(), name_.c_str())); });
}

void FakeService::come_back() {
    thread_->call([this] { check(sd_bus_request_name(thread_->bus.get(), name_.c_str(), 0)); });
}

}  // namespace Fenwa::testkit
