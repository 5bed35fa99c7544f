#include "tests/support/fake_tools.hpp"

#include <gtest/gtest.h>

#include "tests/support/sdbus_arguments.hpp"

namespace support {

FakeTools::~FakeTools() {
    EXPECT_TRUE(endings_.empty()) << endings_.size() << " foreseen blocking operations are missing";
}

void FakeTools::call_method(const char* destination, const char* path, const char* interface,
                            const char* member, sd_bus_message** reply, const char* types, ...) {
    std::va_list arguments;
    va_start(arguments, types);
    const std::string text = render_arguments(types, arguments);
    va_end(arguments);
    end("blocking call" + render_address(destination, path, interface, member) + "(" + text + ")",
        reply);
}

void FakeTools::get_property(const char* destination, const char* path, const char* interface,
                             const char* member, sd_bus_message** reply, const char* type) {
    end("blocking read" + render_address(destination, path, interface, member) + " as " + type,
        reply);
}

void FakeTools::end(const std::string& operation, sd_bus_message** reply) {
    if (endings_.empty()) {
        ADD_FAILURE() << "unexpected " << operation;
        return;
    }
    interception_->note(operation);
    const auto ending = std::move(endings_.front());
    endings_.pop_front();
    if (const auto* const exception = std::get_if<std::exception_ptr>(&ending))
        std::rethrow_exception(*exception);
    const auto* const message = std::get_if<Message>(&ending);
    if (message == nullptr || reply == nullptr)
        return;
    EXPECT_EQ(*reply, nullptr) << "the reply is written over what stood there: " << operation;
    *reply = sd_bus_message_ref(*message);
}

}  // namespace support
