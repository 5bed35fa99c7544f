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
        member, reply);
}

void FakeTools::get_property(const char* destination, const char* path, const char* interface,
                             const char* member, sd_bus_message** reply, const char* type) {
    end("blocking read" + render_address(destination, path, interface, member) + " as " + type,
        member, reply);
}

void FakeTools::end(const std::string& operation, const std::string& name, sd_bus_message** reply) {
    if (endings_.empty()) {
        ADD_FAILURE() << "unexpected " << operation;
        return;
    }
    interception_->note(operation);
    Ending ending = std::move(endings_.front());
    endings_.pop_front();
    if (ending.reply != nullptr && reply != nullptr)
        interception_->hand_out(std::move(ending.reply), reply, name);
    if (ending.exception)
        std::rethrow_exception(ending.exception);
}

}  // namespace support
