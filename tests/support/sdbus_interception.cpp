#include "tests/support/sdbus_interception.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <stdexcept>

#include "tests/support/sdbus_arguments.hpp"

namespace support {
namespace {

Interception* current_interception = nullptr;

}  // namespace

int call_back(sd_bus_message_handler_t callback, sd_bus_message* message, void* userdata,
              sd_bus_error error) {
    if (callback == nullptr)
        throw std::logic_error("sd-bus was given no callback");
    sd_bus_message_rewind(message, 1);
    const char* const name = error.name;
    const int result = callback(message, userdata, &error);
    EXPECT_EQ(error.name, name) << "a callback touched its error argument";
    return result;
}

int Sending::deliver(sd_bus_message* message, sd_bus_error error) const {
    return call_back(callback, message, userdata, error);
}

int Sending::install(sd_bus_message* reply, sd_bus_error error) const {
    return call_back(install_callback, reply, userdata, error);
}

Interception::Interception() {
    if (current_interception != nullptr)
        throw std::logic_error("sd-bus is intercepted already");
    current_interception = this;
}

Interception::~Interception() {
    current_interception = nullptr;
    for (const Sending& sending : sendings_)
        EXPECT_TRUE(sending.released || !sending.holds_slot) << "slot kept: " << sending.text;
    EXPECT_TRUE(call_endings_.empty())
        << call_endings_.size() << " foreseen blocking calls are missing";
    EXPECT_EQ(replies_.size(), 0U) << "replies kept";
    EXPECT_EQ(filled_error_, nullptr) << "an error structure was not freed";
    for (const auto& [function, results] : made_up_)
        EXPECT_TRUE(results.empty())
            << "made up for nobody: a result of function " << static_cast<int>(function);
    for (const auto& [function, results] : changed_)
        EXPECT_TRUE(results.empty())
            << "changed for nobody: a result of function " << static_cast<int>(function);
}

void Interception::answer_next(const std::vector<int>& results) {
    results_.assign(results.begin(), results.end());
}

void Interception::make_up(MessageFunction function,
                           const std::vector<std::optional<int>>& results) {
    made_up_[function].assign(results.begin(), results.end());
}

void Interception::change_results(MessageFunction function, const std::vector<int>& results) {
    changed_[function].assign(results.begin(), results.end());
}

const Sending& Interception::sending(std::size_t number) const {
    return sendings_.at(number - 1);
}

Interception* Interception::current() {
    return current_interception;
}

int Interception::record(Sending sending, const std::string& name, sd_bus_slot** slot_field) {
    const auto held = lock();
    sending.slot_field = slot_field;
    sending.result = 1;
    if (!results_.empty()) {
        sending.result = results_.front();
        results_.pop_front();
    }
    if (const int error = fault(sending.function, name); error < 0)
        sending.result = error;
    sending.holds_slot = sending.result >= 0 && slot_field != nullptr;
    sending.release_text = "release #" + std::to_string(sendings_.size() + 1) + " " + name;
    journal_->record(effect::sending, sending.text);
    sendings_.push_back(std::move(sending));
    if (sendings_.back().holds_slot)
        *slot_field = reinterpret_cast<sd_bus_slot*>(&sendings_.back());
    return sendings_.back().result;
}

bool Interception::record_release(sd_bus_slot* slot) {
    const auto held = lock();
    if (slot == nullptr) {
        journal_->record(effect::sending, "unref of no slot");
        return true;
    }
    const auto found = std::find_if(sendings_.begin(), sendings_.end(), [slot](Sending& sending) {
        return reinterpret_cast<sd_bus_slot*>(&sending) == slot;
    });
    if (found == sendings_.end())
        return false;
    EXPECT_FALSE(found->released) << "slot released twice: " << found->text;
    found->released = true;
    journal_->record(effect::release, found->release_text);
    return true;
}

void Interception::record_answer(const sd_bus_message* message, const std::string& text,
                                 int result) {
    const auto held = lock();
    answered_ = message;
    journal_->record(effect::answer, "answer " + text + " = " + std::to_string(result));
}

std::optional<std::size_t> Interception::string_to_null() {
    const auto held = lock();
    return std::exchange(string_to_null_, std::nullopt);
}

int Interception::changed_result(MessageFunction function, int result) {
    const auto held = lock();
    std::deque<int>& results = changed_[function];
    if (results.empty())
        return result;
    const int changed = results.front();
    results.pop_front();
    return changed;
}

std::optional<int> Interception::made_up_result(MessageFunction function) {
    const auto held = lock();
    std::deque<std::optional<int>>& results = made_up_[function];
    if (results.empty())
        return std::nullopt;
    const std::optional<int> result = results.front();
    results.pop_front();
    return result;
}

}  // namespace support

using support::Interception;

// NOLINTBEGIN(bugprone-reserved-identifier): the linker fixes these names.
extern "C" {

int __wrap_sd_bus_call_method_async(sd_bus* bus, sd_bus_slot** slot, const char* destination,
                                    const char* path, const char* interface, const char* member,
                                    sd_bus_message_handler_t callback, void* userdata,
                                    const char* types, ...) {
    std::va_list arguments;
    va_start(arguments, types);
    int r = 0;
    if (Interception* interception = Interception::current()) {
        std::string text = "call" + support::render_address(destination, path, interface, member) +
                           "(" + support::render_arguments(types, arguments) + ")";
        if (slot == nullptr && callback == nullptr)
            text += " without reply";
        r = interception->record({.text = std::move(text),
                                  .function = "sd_bus_call_method_async",
                                  .bus = bus,
                                  .callback = callback,
                                  .userdata = userdata},
                                 member, slot);
    } else {
        r = sd_bus_call_method_asyncv(bus, slot, destination, path, interface, member, callback,
                                      userdata, types, arguments);
    }
    va_end(arguments);
    return r;
}

int __real_sd_bus_add_match_async(sd_bus* bus, sd_bus_slot** slot, const char* rule,
                                  sd_bus_message_handler_t callback,
                                  sd_bus_message_handler_t install_callback, void* userdata);

int __wrap_sd_bus_add_match_async(sd_bus* bus, sd_bus_slot** slot, const char* rule,
                                  sd_bus_message_handler_t callback,
                                  sd_bus_message_handler_t install_callback, void* userdata) {
    Interception* const interception = Interception::current();
    if (interception == nullptr)
        return __real_sd_bus_add_match_async(bus, slot, rule, callback, install_callback, userdata);
    return interception->record({.text = std::string("match ") + rule,
                                 .function = "sd_bus_add_match_async",
                                 .bus = bus,
                                 .callback = callback,
                                 .install_callback = install_callback,
                                 .userdata = userdata},
                                "match", slot);
}

int __real_sd_bus_add_match(sd_bus* bus, sd_bus_slot** slot, const char* rule,
                            sd_bus_message_handler_t callback, void* userdata);

int __wrap_sd_bus_add_match(sd_bus* bus, sd_bus_slot** slot, const char* rule,
                            sd_bus_message_handler_t callback, void* userdata) {
    Interception* const interception = Interception::current();
    if (interception == nullptr)
        return __real_sd_bus_add_match(bus, slot, rule, callback, userdata);
    return interception->record({.text = std::string("blocking match ") + rule,
                                 .function = "sd_bus_add_match",
                                 .bus = bus,
                                 .callback = callback,
                                 .userdata = userdata},
                                "match", slot);
}

int __real_sd_bus_match_signal_async(sd_bus* bus, sd_bus_slot** slot, const char* sender,
                                     const char* path, const char* interface, const char* member,
                                     sd_bus_message_handler_t callback,
                                     sd_bus_message_handler_t install_callback, void* userdata);

int __wrap_sd_bus_match_signal_async(sd_bus* bus, sd_bus_slot** slot, const char* sender,
                                     const char* path, const char* interface, const char* member,
                                     sd_bus_message_handler_t callback,
                                     sd_bus_message_handler_t install_callback, void* userdata) {
    Interception* const interception = Interception::current();
    if (interception == nullptr)
        return __real_sd_bus_match_signal_async(bus, slot, sender, path, interface, member,
                                                callback, install_callback, userdata);
    return interception->record(
        {.text = "match signal" + support::render_address(sender, path, interface, member),
         .function = "sd_bus_match_signal_async",
         .bus = bus,
         .callback = callback,
         .install_callback = install_callback,
         .userdata = userdata},
        member, slot);
}

sd_bus_slot* __real_sd_bus_slot_unref(sd_bus_slot* slot);

sd_bus_slot* __wrap_sd_bus_slot_unref(sd_bus_slot* slot) {
    Interception* const interception = Interception::current();
    if (interception != nullptr && interception->record_release(slot))
        return nullptr;
    return __real_sd_bus_slot_unref(slot);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
