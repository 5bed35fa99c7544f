#include "tests/unit/faults/life.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string_view>
#include <utility>

#include "fenwa/sdbus_error.hpp"
#include "tests/support/sdbus_arguments.hpp"

namespace faults {
namespace {

namespace effect = support::effect;

bool is_about(const support::Sending& sending, std::string_view text) {
    return sending.text.find(text) != std::string::npos;
}

/// The member of a call: the word before its arguments.
std::string member_of(const std::string& text) {
    const std::string address = text.substr(0, text.find('('));
    return address.substr(address.rfind(' ') + 1);
}

}  // namespace

class Life::Driver : public Fenwa::testkit::Driver {
  public:
    Driver(Fenwa::SDBusTools& tools, const Surroundings& surroundings)
        : Fenwa::testkit::Driver(tools), block_(surroundings.build(this->tools()).release()) {
        adopt(std::unique_ptr<Fenwa::Block>(block_));
    }

    Fenwa::Block& block() { return *block_; }
    /// As a host that has another reason.
    void run() {
        (void)arm();
        (void)block_->run();
        disarm();
    }

  private:
    Fenwa::Block* block_;  ///< owned by the base
};

Life::Life(const Surroundings& surroundings, Fault fault)
    : surroundings_(surroundings), fault_(fault) {
    recorders_.bus.fail_where([this](const std::string& function, const std::string& name) {
        if (!name.empty())
            return find_fault(function + ": " + name);
        const int count = ++calls_in_it_[function];
        return find_fault(function + (count > 1 ? " " + std::to_string(count) : "") + ": " +
                          delivered_);
    });
}

Life::~Life() = default;

Traces Life::lead() {
    driver_ = std::make_unique<Driver>(*this, surroundings_);
    driver_->start();
    settle();
    surroundings_.traffic(*this, 0);
    settle();
    restart_service(":1.5", ":1.6");
    surroundings_.traffic(*this, 1);
    settle();
    may_fail_ = false;
    (void)recorders_.journal->take(effect::all & ~effect::line);
    restart_service(":1.6", ":1.7");
    surroundings_.traffic(*this, 2);
    settle();
    may_fail_ = true;
    driver_->stop();
    driver_.reset();
    traces_.last_deeds = take_deeds();
    (void)recorders_.journal->take(effect::all & ~effect::line);
    for (const std::string& line : recorders_.log.take()) {
        if (line.front() <= '2')
            traces_.lines.push_back(line);
    }
    return std::move(traces_);
}

Fenwa::Block& Life::block() {
    return driver_->block();
}

void Life::signal(const std::string& match, const support::Message& message) {
    for (std::size_t number = 1; number <= recorders_.bus.count(); ++number) {
        const support::Sending& sending = recorders_.bus.sending(number);
        if (sending.holds_slot && !sending.released && is_about(sending, "match") &&
            is_about(sending, match))
            deliver(sd_bus_message_get_member(message), [&] { (void)sending.deliver(message); });
    }
}

void Life::call(sd_bus_message_handler_t handler, const support::Message& message) {
    deliver(sd_bus_message_get_member(message),
            [&] { (void)support::call_back(handler, message, &block(), SD_BUS_ERROR_NULL); });
}

void Life::settle() {
    constexpr int many = 40;
    for (int runs = 0; runs < many; ++runs) {
        driver_->run();
        if (!answer_sendings() && !driver_->woken())
            return;
    }
    ADD_FAILURE() << "the block does not come to rest";
}

void Life::call_method(const char* destination, const char* path, const char* interface,
                       const char* member, sd_bus_message** reply, const char* types, ...) {
    std::va_list arguments;
    va_start(arguments, types);
    const std::string text = support::render_arguments(types, arguments);
    va_end(arguments);
    recorders_.bus.note("blocking call" +
                        support::render_address(destination, path, interface, member) + "(" + text +
                        ")");
    reply_to("call_method", member, reply);
}

void Life::get_property(const char* destination, const char* path, const char* interface,
                        const char* member, sd_bus_message** reply, const char* type) {
    recorders_.bus.note("blocking read" +
                        support::render_address(destination, path, interface, member) + " as " +
                        type);
    reply_to("get_property", member, reply);
}

int Life::find_fault(const Call& call) {
    if (!may_fail_)
        return 0;
    traces_.calls.push_back(call);
    return traces_.calls.size() == fault_.number ? fault_.error : 0;
}

void Life::reply_to(const std::string& function, const std::string& member,
                    sd_bus_message** place) {
    if (const int error = find_fault(function + ": " + member); error < 0)
        throw Fenwa::SDBusError(SD_BUS_ERROR_FAILED, std::strerror(-error), error);
    if (place != nullptr) {
        delivered_ = "reply to " + member;  // the block reads it before anything else
        calls_in_it_.clear();
        recorders_.bus.hand_out(reply(member), place, member);
    }
}

support::Message Life::reply(const std::string& member) {
    return surroundings_.replies.at(member)(recorders_.messages);
}

std::vector<std::string> Life::take_deeds() {
    std::vector<std::string> deeds = recorders_.journal->take(effect::sending | effect::answer);
    // OnScreenControls removes a feature as often as it has added it.
    deeds.erase(std::unique(deeds.begin(), deeds.end()), deeds.end());
    std::map<std::string, std::string> outputs;
    for (const std::string& publication : recorders_.journal->take(effect::publication))
        outputs[publication.substr(0, publication.find(" = "))] = publication;
    for (const auto& [output, publication] : outputs)
        deeds.push_back(publication);
    return deeds;
}

bool Life::answer_sendings() {
    bool any = false;
    for (std::size_t number = 1; number <= recorders_.bus.count(); ++number) {
        const support::Sending& sending = recorders_.bus.sending(number);
        const bool asks = sending.install_callback != nullptr ||
                          (sending.callback != nullptr && !is_about(sending, "match"));
        if (!asks || sending.result < 0 || sending.released || !answered_.insert(number).second)
            continue;
        any = true;
        if (sending.install_callback != nullptr) {
            deliver("reply to the match",
                    [&] { (void)sending.install(recorders_.messages.reply("")); });
        } else {
            const std::string member = member_of(sending.text);
            deliver("reply to " + member, [&] { (void)sending.deliver(reply(member)); });
        }
    }
    return any;
}

void Life::deliver(const std::string& what, const std::function<void()>& delivery) {
    delivered_ = what;
    calls_in_it_.clear();
    delivery();
    delivered_.clear();
}

void Life::change_owner(const char* from, const char* to) {
    signal("NameOwnerChanged", recorders_.messages.owner_change(surroundings_.service, from, to));
    settle();
}

void Life::restart_service(const char* from, const char* to) {
    if (surroundings_.service == nullptr)
        return;
    change_owner(from, "");
    change_owner("", to);
}

}  // namespace faults
