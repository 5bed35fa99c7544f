// How a service answers and sends what a scenario says.
#include <memory>
#include <nlohmann/json.hpp>

#include "camera/bus/message_json.hpp"
#include "camera/service/service.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;
using common::MessagePtr;

const Json& array_or_empty(const common::SharedJson& values) {
    static const Json empty = Json::array();
    return values == nullptr ? empty : *values;
}

}  // namespace

bool Service::leave_to_script(sd_bus_message& call) {
    const std::optional<ReplyScript::Claim> claim = context_.script.claim(name_, call);
    if (!claim)
        return false;
    begin_call(call);
    // Shared, because a std::function must be copyable.
    auto held = std::make_shared<MessagePtr>(sd_bus_message_ref(&call));
    context_.script.hand_over(*claim, name_, [this, held](const ScriptedReply& reply) {
        send_scripted_reply(**held, reply);
    });
    return true;
}

void Service::send_scripted_reply(sd_bus_message& call, const ScriptedReply& reply) {
    if (reply.silent)
        return;
    MessagePtr message;
    if (reply.error.empty()) {
        message = common::new_reply(call);
        append_json(*message, reply.types ? *reply.types : result_types(objects_, reply.member),
                    array_or_empty(reply.values));
    } else {
        const sd_bus_error error = SD_BUS_ERROR_MAKE_CONST(
            reply.error.c_str(), reply.message.empty() ? nullptr : reply.message.c_str());
        check(sd_bus_message_new_method_error(&call, message.out(), &error),
              "sd_bus_message_new_method_error");
    }
    send_reply(call, std::move(message), {});
}

void Service::send(const ScriptedMessage& message) {
    if (!is_up())
        return;
    const ServedObject* served = object_with_signal(objects_, message.member);
    std::string interface = message.interface;
    if (interface.empty() && served != nullptr)
        interface = signal_interface(*served, message.member);
    const bool own_path = message.path.empty() && served != nullptr;
    const BusObject object{message.to.c_str(), own_path ? served->names.path : message.path.c_str(),
                           interface.c_str()};
    const bool call = !message.to.empty();
    const MessagePtr made = call ? new_call(object, message.member.c_str())
                                 : new_signal(object, message.member.c_str());
    const std::string types = served == nullptr ? "" : signal_types(*served, message.member);
    append_json(*made, message.types.value_or(types), array_or_empty(message.arguments));
    if (call)
        outgoing_.send(connection_->bus(), outgoing_.add(message.to, *made), *made);
    else
        send_now(*made, message.member);
}

}  // namespace camera
