#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>

#include "tests/support/sdbus_arguments.hpp"
#include "tests/support/sdbus_interception.hpp"

// Blocking calls, and what their callers must give back: the reply and the error structure.

namespace support {

void Interception::end_next_call(int result, const sd_bus_error& error, Message reply) {
    call_endings_.push_back({result, error, std::move(reply)});
}

int Interception::record_blocking_call(Sending sending, const std::string& name,
                                       sd_bus_error* error, sd_bus_message** reply) {
    const auto held = lock();
    CallEnding ending{1, SD_BUS_ERROR_NULL, Message(nullptr)};
    if (!call_endings_.empty()) {
        ending = std::move(call_endings_.front());
        call_endings_.pop_front();
    } else if (!find_fault_) {
        ADD_FAILURE() << "unexpected " << sending.text;
        return -ENOTCONN;
    }
    results_.push_front(ending.result);
    const int r = record(std::move(sending), name, nullptr);
    if (r != ending.result)  // it has failed before it was sent
        return r;
    if (sd_bus_error_is_set(&ending.error) > 0) {
        EXPECT_EQ(sd_bus_error_is_set(error), 0) << "the error structure is not a fresh one";
        sd_bus_error_copy(error, &ending.error);
        filled_error_ = error;
    }
    if (ending.reply != nullptr)
        hand_out(std::move(ending.reply), reply, name);
    return r;
}

void Interception::hand_out(Message reply, sd_bus_message** place, const std::string& name) {
    const auto held = lock();
    EXPECT_EQ(*place, nullptr) << "the reply is written over what stood there";
    *place = reply.release();
    replies_.emplace(*place, name);
}

void Interception::record_message_release(sd_bus_message* message) {
    const auto held = lock();
    if (message == nullptr)
        journal_->record(effect::sending, "unref of no message");
    if (const auto reply = replies_.extract(message))
        journal_->record(effect::message, "release the reply to " + reply.mapped());
}

void Interception::record_error_release(const sd_bus_error* error) {
    const auto held = lock();
    journal_->record(effect::message, "free the error");
    if (error == filled_error_)
        filled_error_ = nullptr;
}

}  // namespace support

using support::Interception;

// NOLINTBEGIN(bugprone-reserved-identifier): the linker fixes these names.
extern "C" {

int __wrap_sd_bus_call_method(sd_bus* bus, const char* destination, const char* path,
                              const char* interface, const char* member, sd_bus_error* error,
                              sd_bus_message** reply, const char* types, ...) {
    std::va_list arguments;
    va_start(arguments, types);
    int r = 0;
    if (Interception* const interception = Interception::current()) {
        support::Sending sending;
        sending.text = "blocking call" +
                       support::render_address(destination, path, interface, member) + "(" +
                       support::render_arguments(types, arguments) + ")";
        sending.function = "sd_bus_call_method";
        sending.bus = bus;
        r = interception->record_blocking_call(std::move(sending), member, error, reply);
    } else {
        r = sd_bus_call_methodv(bus, destination, path, interface, member, error, reply, types,
                                arguments);
    }
    va_end(arguments);
    return r;
}

sd_bus_message* __real_sd_bus_message_unref(sd_bus_message* message);

sd_bus_message* __wrap_sd_bus_message_unref(sd_bus_message* message) {
    if (Interception* const interception = Interception::current())
        interception->record_message_release(message);
    return __real_sd_bus_message_unref(message);
}

void __real_sd_bus_error_free(sd_bus_error* error);

void __wrap_sd_bus_error_free(sd_bus_error* error) {
    if (Interception* const interception = Interception::current())
        interception->record_error_release(error);
    __real_sd_bus_error_free(error);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
