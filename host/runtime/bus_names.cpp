#include "host/runtime/bus_names.hpp"

#include <iterator>
#include <utility>

#include "common/bus/callback.hpp"

namespace host {

void BusNames::ask(std::function<void(const OwnedNames&)> handler) {
    Question& question = questions_.emplace_back(
        Question{*this, questions_.end(), std::move(handler), common::SlotPtr()});
    question.self = std::prev(questions_.end());
    const int r = sd_bus_call_method_async(
        &bus_, question.call.out(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "ListNames", common::callback<&Question::on_answer>, &question, "");
    if (r < 0) {
        questions_.pop_back();
        common::check(r, "cannot ask the bus for its names");
    }
}

void BusNames::Question::on_answer(sd_bus_message& reply) {
    OwnedNames owned(std::in_place);
    const char* name = nullptr;
    int r = sd_bus_message_enter_container(&reply, SD_BUS_TYPE_ARRAY, "s");
    while (r > 0 && (r = sd_bus_message_read_basic(&reply, SD_BUS_TYPE_STRING, &name)) > 0) {
        if (*name != ':')
            owned->insert(name);
    }
    if (r < 0)
        owned.reset();
    const auto answer = std::move(handler);
    names.questions_.erase(self);
    answer(owned);
}

}  // namespace host
