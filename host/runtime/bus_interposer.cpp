#include "host/runtime/bus_interposer.hpp"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <thread>

#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"
#include "common/events/monotonic_clock.hpp"
#include "host/output/current_block.hpp"

namespace host {
namespace {

constexpr const char* daemon_name = "org.freedesktop.DBus";

BusInterposer* current = nullptr;
std::thread::id observed_thread;

/// libsystemd's own function of that name, not the program's.
template <auto Function>
auto real(const char* name) {
    static const auto function = reinterpret_cast<decltype(Function)>(dlsym(RTLD_NEXT, name));
    return function;
}

/// Has `make` make a slot, whose callbacks belong to the current block.
/// @param slot where the block wants it; null if sd-bus is to own it.
template <class Make>
int make_marked(sd_bus_slot** slot, Make&& make) {
    sd_bus_slot* floating = nullptr;
    const int r = make(slot == nullptr ? &floating : slot);
    if (r < 0)
        return r;
    CurrentBlock::mark(slot == nullptr ? *floating : **slot);
    if (floating != nullptr) {
        sd_bus_slot_set_floating(floating, 1);
        sd_bus_slot_unref(floating);
    }
    return r;
}

bool is(const char* text, std::string_view wanted) {
    return text != nullptr && text == wanted;
}

std::string current_block() {
    const std::string* const name = CurrentBlock::name();
    return name == nullptr ? std::string() : *name;
}

/// The sender in a match rule; empty for none.
std::string sender_of(std::string_view rule) {
    constexpr std::string_view key = ",sender='";
    const std::string keys = ',' + std::string(rule);
    const std::size_t at = keys.find(key);
    if (at == keys.npos)
        return {};
    const std::string rest = keys.substr(at + key.size());
    return rest.substr(0, rest.find('\''));
}

/// An argument of a call, the first is number 1, if it and those before it are strings; or empty.
std::string string_argument(sd_bus_message& call, int number) {
    const char* text = nullptr;
    int r = sd_bus_message_rewind(&call, 1);
    for (int i = 0; r >= 0 && i < number; ++i)
        r = sd_bus_message_read_basic(&call, SD_BUS_TYPE_STRING, &text);
    std::string last = r > 0 ? text : "";
    sd_bus_message_rewind(&call, 1);
    return last;
}

/// Adds a new text. @returns whether it was new.
bool add(std::vector<std::string>& list, const std::string& text) {
    if (std::find(list.begin(), list.end(), text) != list.end())
        return false;
    list.push_back(text);
    return true;
}

}  // namespace

BusInterposer::BusInterposer(sd_bus& bus) : bus_(bus) {
    CurrentBlock::follow(&bus);
    current = this;
    observed_thread = std::this_thread::get_id();
}

BusInterposer::~BusInterposer() {
    current = nullptr;
    CurrentBlock::follow(nullptr);
}

BusInterposer* BusInterposer::of(sd_bus* bus, sd_bus_message* message) noexcept {
    return message == nullptr ? nullptr
                              : of(bus == nullptr ? sd_bus_message_get_bus(message) : bus);
}

BusInterposer* BusInterposer::of(sd_bus* bus) noexcept {
    const bool ours = current != nullptr && bus == &current->bus_ &&
                      std::this_thread::get_id() == observed_thread;
    return ours ? current : nullptr;
}

void BusInterposer::forget(const std::string& block) {
    // The answers still count as answered.
    for (auto& [cookie, pending] : pending_) {
        if (pending.block != block)
            continue;
        pending.block.clear();
        pending.callback = nullptr;
    }
    block_calls_.forget(block);
    limits_.erase(block);
    refused_.erase(block);
}

int BusInterposer::call_async(sd_bus_slot** slot, sd_bus_message* message,
                              sd_bus_message_handler_t callback, void* userdata,
                              std::uint64_t timeout) {
    // Calls to the daemon keep their callbacks, because those of libsystemd itself must be sd-bus's
    // current handler; the daemon answers them at once and keeps no record. It is only blocks that
    // ask for owners.
    const bool for_daemon = is(sd_bus_message_get_destination(message), daemon_name);
    const bool counts = callback != nullptr && !for_daemon;
    const bool asks = callback != nullptr && for_daemon && CurrentBlock::name() != nullptr &&
                      is(sd_bus_message_get_member(message), "GetNameOwner");
    // The userdata stays the block's; the cookie leads back to its callback.
    const int r = real<&sd_bus_call_async>("sd_bus_call_async")(
        &bus_, slot, message, counts || asks ? on_reply : callback, userdata, timeout);
    if (r < 0)
        return r;
    ++calls_;
    if (asks)
        expect(*message, {callback, current_block(), false, {}, {}, string_argument(*message, 1)});
    else if (ServiceCall call = note_call(*message); counts)
        expect(*message, {callback, current_block(), true, {}, std::move(call), {}});
    else if (installing_ != nullptr)
        expect(*message, {installing_, current_block(), false, rule_, {}, {}});
    return r;
}

int BusInterposer::add_match_async(sd_bus_slot** slot, const char* rule,
                                   sd_bus_message_handler_t callback,
                                   sd_bus_message_handler_t install_callback, void* userdata) {
    installing_ = install_callback;
    rule_ = rule == nullptr ? "" : rule;
    const int r = make_marked(slot, [&](sd_bus_slot** made) {
        return real<&sd_bus_add_match_async>("sd_bus_add_match_async")(
            &bus_, made, rule, callback, install_callback == nullptr ? nullptr : on_reply,
            userdata);
    });
    installing_ = nullptr;
    return r;
}

void BusInterposer::expect(sd_bus_message& message, Pending pending) {
    std::uint64_t cookie = 0;
    if (sd_bus_message_get_cookie(&message, &cookie) < 0)
        return;
    unanswered_ += pending.counts ? 1 : 0;
    matches_requested_ += pending.rule.empty() ? 0 : 1;
    pending_.insert_or_assign(cookie, std::move(pending));
    watch_messages();
}

void BusInterposer::watch_messages() {
    if (filter_ == nullptr)
        common::check(sd_bus_add_filter(&bus_, filter_.out(),
                                        common::callback<&BusInterposer::on_message>, this),
                      "cannot follow the bus");
}

int BusInterposer::call(sd_bus_message* message, std::uint64_t timeout, sd_bus_error* error,
                        sd_bus_message** reply) {
    common::BusError own;
    sd_bus_error* const seen = error == nullptr ? &own : error;
    const int r = real<&sd_bus_call>("sd_bus_call")(&bus_, message, timeout, seen, reply);
    ++calls_;
    const ServiceCall called = note_call(*message);
    if (r >= 0 || sd_bus_error_is_set(seen) > 0)
        note_end({nullptr, current_block(), false, {}, called, {}}, r < 0 ? seen : nullptr);
    note_limit(current_block(), seen);
    return r;
}

BusInterposer::Pending BusInterposer::take(sd_bus_message& answer, std::uint64_t cookie) {
    auto node = pending_.extract(cookie);
    Pending pending = node.empty() ? Pending{} : std::move(node.mapped());
    unanswered_ -= pending.counts ? 1 : 0;
    if (is(sd_bus_message_get_sender(&answer), daemon_name))
        note_limit(pending.block, sd_bus_message_get_error(&answer));
    if (pending.counts && on_answer_)
        on_answer_();
    note_end(pending, sd_bus_message_get_error(&answer));
    if (!pending.rule.empty())
        note_match(pending, sd_bus_message_is_method_error(&answer, nullptr) > 0);
    return pending;
}

void BusInterposer::note_match(const Pending& pending, bool refused) {
    --matches_requested_;
    std::vector<std::string>& rules = refused_[pending.block];
    MatchAnswer answer = MatchAnswer::installed;
    if (!refused)
        std::erase(rules, pending.rule);
    else
        answer = add(rules, pending.rule) ? MatchAnswer::refused : MatchAnswer::refused_again;
    if (on_match_ && !pending.block.empty())
        on_match_(pending.block, answer);
}

int BusInterposer::on_reply(sd_bus_message* reply, void* userdata, sd_bus_error* error) {
    BusInterposer* const interposer = current;
    std::uint64_t cookie = 0;
    if (interposer == nullptr || sd_bus_message_get_reply_cookie(reply, &cookie) < 0)
        return 0;
    interposer->replied_ = cookie;
    const Pending pending = interposer->take(*reply, cookie);
    if (pending.callback == nullptr)
        return 0;
    if (pending.block.empty())
        return pending.callback(reply, userdata, error);
    const CurrentBlock block(pending.block, "a callback of the bus");
    return pending.callback(reply, userdata, error);
}

void BusInterposer::on_message(sd_bus_message& message) {
    if (block_calls_.is_anyone_waiting())
        note_owner_change(message);
    std::uint64_t cookie = 0;
    if (sd_bus_message_get_reply_cookie(&message, &cookie) < 0) {
        // Signals come often; not with the last reply, because one call follows another.
        if (pending_.empty() && !block_calls_.is_anyone_waiting())
            filter_.reset();
        return;
    }
    if (cookie == replied_)
        return;
    // The block has released its slot, or the call kept its callback.
    static_cast<void>(take(message, cookie));
}

ServiceCall BusInterposer::note_call(sd_bus_message& message) {
    const std::string* const block = CurrentBlock::name();
    const char* const destination = sd_bus_message_get_destination(&message);
    if (block == nullptr || destination == nullptr || *destination == ':')
        return {};
    const char* const member = sd_bus_message_get_member(&message);
    if (is(destination, daemon_name)) {
        const std::string followed =
            is(member, "AddMatch") ? sender_of(string_argument(message, 1)) : std::string();
        if (!followed.empty() && followed != daemon_name && followed.front() != ':')
            block_calls_.follows(*block, followed);
        return {};
    }
    ServiceCall call{destination, member == nullptr ? "" : member, common::monotonic_now()};
    if (is(sd_bus_message_get_interface(&message), "org.freedesktop.DBus.Properties"))
        call.member.append(" ").append(string_argument(message, 2));
    block_calls_.sent(*block, call);
    return call;
}

void BusInterposer::note_end(const Pending& pending, const sd_bus_error* error) {
    // A bus that is closed answers for everybody.
    if (pending.block.empty() || sd_bus_is_open(&bus_) <= 0)
        return;
    if (!pending.call.service.empty())
        block_calls_.ended(pending.block, pending.call, error, common::monotonic_now());
    else if (!pending.asked.empty() &&
             (error == nullptr || is(error->name, SD_BUS_ERROR_NAME_HAS_NO_OWNER)))
        block_calls_.owner_told(pending.block, pending.asked, error == nullptr,
                                common::monotonic_now());
    if (block_calls_.is_anyone_waiting())
        watch_messages();
}

void BusInterposer::note_owner_change(sd_bus_message& message) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    if (sd_bus_message_is_signal(&message, daemon_name, "NameOwnerChanged") > 0 &&
        sd_bus_message_read(&message, "sss", &name, &before, &after) > 0 && *after != '\0')
        block_calls_.owner_appeared(name, common::monotonic_now());
    sd_bus_message_rewind(&message, 1);
}

void BusInterposer::note_limit(const std::string& block, const sd_bus_error* error) {
    if (error == nullptr || !is(error->name, SD_BUS_ERROR_LIMITS_EXCEEDED) || !on_limit_)
        return;
    std::string text = error->message == nullptr ? error->name : error->message;
    // The only limit that the daemon does not name.
    constexpr const char* replies = "max_replies_per_connection";
    if (text.find("pending replies") != text.npos && text.find(replies) == text.npos)
        text.append(" (").append(replies).append(")");
    if (add(limits_[block], text))
        on_limit_(block.empty() ? nullptr : &block, text);
}

}  // namespace host

extern "C" {

// Exported, so that plug-ins and libsystemd itself call these.

int sd_bus_call_async(sd_bus* bus, sd_bus_slot** slot, sd_bus_message* message,
                      sd_bus_message_handler_t callback, void* userdata, std::uint64_t timeout) {
    if (host::BusInterposer* const interposer = host::BusInterposer::of(bus, message))
        return interposer->call_async(slot, message, callback, userdata, timeout);
    return host::real<&sd_bus_call_async>("sd_bus_call_async")(bus, slot, message, callback,
                                                               userdata, timeout);
}

int sd_bus_add_match_async(sd_bus* bus, sd_bus_slot** slot, const char* rule,
                           sd_bus_message_handler_t callback,
                           sd_bus_message_handler_t install_callback, void* userdata) {
    if (host::BusInterposer* const interposer = host::BusInterposer::of(bus))
        return interposer->add_match_async(slot, rule, callback, install_callback, userdata);
    return host::real<&sd_bus_add_match_async>("sd_bus_add_match_async")(
        bus, slot, rule, callback, install_callback, userdata);
}

int sd_bus_add_match(sd_bus* bus, sd_bus_slot** slot, const char* rule,
                     sd_bus_message_handler_t callback, void* userdata) {
    const auto add = [&](sd_bus_slot** made) {
        return host::real<&sd_bus_add_match>("sd_bus_add_match")(bus, made, rule, callback,
                                                                 userdata);
    };
    return host::BusInterposer::of(bus) == nullptr ? add(slot) : host::make_marked(slot, add);
}

int sd_bus_add_object_vtable(sd_bus* bus, sd_bus_slot** slot, const char* path,
                             const char* interface, const sd_bus_vtable* vtable, void* userdata) {
    const auto add = [&](sd_bus_slot** made) {
        return host::real<&sd_bus_add_object_vtable>("sd_bus_add_object_vtable")(
            bus, made, path, interface, vtable, userdata);
    };
    return host::BusInterposer::of(bus) == nullptr ? add(slot) : host::make_marked(slot, add);
}

int sd_bus_call(sd_bus* bus, sd_bus_message* message, std::uint64_t timeout, sd_bus_error* error,
                sd_bus_message** reply) {
    if (host::BusInterposer* const interposer = host::BusInterposer::of(bus, message))
        return interposer->call(message, timeout, error, reply);
    return host::real<&sd_bus_call>("sd_bus_call")(bus, message, timeout, error, reply);
}

}  // extern "C"
