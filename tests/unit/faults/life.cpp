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

bool is_about(const support::Sending& sending, std::string_view text) {
    return sending.text.find(text) != std::string::npos;
}

/// The member of a call: the word before its arguments.
std::string member_of(const std::string& text) {
    const std::string address = text.substr(0, text.find('('));
    return address.substr(address.rfind(' ') + 1);
}

}  // namespace

std::string error_name(int error) {
    sd_bus_error named = SD_BUS_ERROR_NULL;
    (void)sd_bus_error_set_errno(&named, error);
    std::string name = named.name;
    sd_bus_error_free(&named);
    return name;
}

class Life::Driver : public Fenwa::testkit::Driver {
  public:
    Driver(Fenwa::SDBusTools& tools, const BlockContext& context)
        : Fenwa::testkit::Driver(tools),
          block_(context.build(this->tools(), context.settings).release()) {
        adopt(std::unique_ptr<Fenwa::Block>(block_));
    }

    Fenwa::Block& block() { return *block_; }
    bool run_where_woken() {
        if (!arm())
            return false;
        (void)block_->run();
        disarm();
        return true;
    }
    void run_for_any_reason() {
        (void)arm();
        (void)block_->run();
        disarm();
    }

  private:
    Fenwa::Block* block_;  ///< owned by the base
};

Life::Life(const BlockContext& context, FindFault find_fault)
    : context_(context), find_fault_(std::move(find_fault)) {
    recorders_.bus.fail_where([this](const std::string& function, const std::string& name) {
        if (!name.empty())
            return find_fault_(function + ": " + name);
        const int count = ++calls_in_it_[function];
        return find_fault_(function + (count > 1 ? " " + std::to_string(count) : "") + ": " +
                           delivered_);
    });
}

Life::~Life() {
    join();
}

void Life::build() {
    driver_ = std::make_unique<Driver>(*this, context_);
}

void Life::run() {
    driver_->run_for_any_reason();
}

void Life::run_on_another_thread(Framework framework) {
    joins_ = false;
    runner_ = std::thread([this, framework] {
        recorders_.journal->publications_on(std::this_thread::get_id());
        while (!joins_) {
            std::unique_lock<std::recursive_mutex> held;
            if (framework == Framework::serialised)
                held = recorders_.bus.lock();
            const bool ran = driver_->run_where_woken();
            held = {};
            if (!ran) {
                ++rests_;
                std::this_thread::yield();
            }
        }
    });
}

void Life::join() {
    joins_ = true;
    if (!runner_.joinable())
        return;
    runner_.join();
    recorders_.journal->publications_on({});
}

void Life::destroy() {
    driver_.reset();
}

Fenwa::testkit::Driver& Life::driver() {
    return *driver_;
}

Fenwa::Block& Life::block() {
    return driver_->block();
}

std::vector<std::size_t> Life::unanswered() const {
    const auto held = recorders_.bus.lock();
    std::vector<std::size_t> numbers;
    for (std::size_t number = 1; number <= recorders_.bus.count(); ++number) {
        const support::Sending& sending = recorders_.bus.sending(number);
        const bool asks = sending.install_callback != nullptr ||
                          (sending.callback != nullptr && !is_about(sending, "match"));
        if (asks && sending.result >= 0 && !sending.released && !answered_.contains(number))
            numbers.push_back(number);
    }
    return numbers;
}

void Life::answer(std::size_t number, const support::Message& message) {
    const auto held = recorders_.bus.lock();
    const support::Sending& sending = recorders_.bus.sending(number);
    answered_.insert(number);
    if (sending.released)  // by the other thread
        return;
    if (sending.install_callback != nullptr)
        deliver("reply to the match", [&] { (void)sending.install(message); });
    else
        deliver("reply to " + member_of(sending.text), [&] { (void)sending.deliver(message); });
}

support::Message Life::right_answer(std::size_t number) {
    const auto held = recorders_.bus.lock();
    const support::Sending& sending = recorders_.bus.sending(number);
    return sending.install_callback != nullptr ? messages().reply("")
                                               : reply(member_of(sending.text), messages());
}

std::vector<std::size_t> Life::matches(const std::string& text) const {
    const auto held = recorders_.bus.lock();
    std::vector<std::size_t> numbers;
    for (std::size_t number = 1; number <= recorders_.bus.count(); ++number) {
        const support::Sending& sending = recorders_.bus.sending(number);
        if (sending.holds_slot && !sending.released && is_about(sending, "match") &&
            is_about(sending, text))
            numbers.push_back(number);
    }
    return numbers;
}

void Life::signal(std::size_t number, const support::Message& message) {
    deliver(sd_bus_message_get_member(message), [&] {
        const support::Sending& match = recorders_.bus.sending(number);
        if (!match.released)
            (void)match.deliver(message);
    });
}

void Life::signal(const std::string& match, const support::Message& message) {
    for (const std::size_t number : matches(match))
        signal(number, message);
}

void Life::call(sd_bus_message_handler_t handler, const support::Message& message) {
    deliver(sd_bus_message_get_member(message),
            [&] { (void)support::call_back(handler, message, &block(), SD_BUS_ERROR_NULL); });
}

void Life::change_owner(const char* from, const char* to) {
    signal("NameOwnerChanged", messages().owner_change(context_.service, from, to));
}

void Life::settle() {
    constexpr int many = 40;
    for (int rounds = 0; rounds < many; ++rounds) {
        if (runner_.joinable()) {
            // It has looked once more, from beginning to end, since the last message.
            for (const std::size_t before = rests_; rests_ < before + 2;)
                std::this_thread::yield();
        } else if (rounds == 0 && context_.is_ticked) {
            run();
        } else {
            (void)driver_->run_where_woken();
        }
        if (!answer_all() && (runner_.joinable() || !driver_->woken()))
            return;
    }
    ADD_FAILURE() << "the block does not come to rest";
}

bool Life::answer_all() {
    const std::vector<std::size_t> waiting = unanswered();
    for (const std::size_t number : waiting)
        answer(number, right_answer(number));
    return !waiting.empty();
}

void Life::restart_service(const char* from, const char* to) {
    if (context_.service == nullptr)
        return;
    change_owner(from, "");
    settle();
    change_owner("", to);
    settle();
}

std::vector<std::string> Life::take_deeds() {
    namespace effect = support::effect;
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

void Life::reply_to(const std::string& function, const std::string& member,
                    sd_bus_message** place) {
    const auto held = recorders_.bus.lock();
    if (const int error = find_fault_(function + ": " + member); error < 0)
        throw Fenwa::SDBusError(error_name(error), std::strerror(-error), error);
    if (place != nullptr) {
        delivered_ = "reply to " + member;  // the block reads it before anything else
        calls_in_it_.clear();
        recorders_.bus.hand_out(reply(member, blocking_replies_), place, member);
    }
}

support::Message Life::reply(const std::string& member, support::Messages& messages) {
    return context_.replies.at(member)(messages);
}

void Life::deliver(const std::string& what, const std::function<void()>& delivery) {
    const auto held = recorders_.bus.lock();
    delivered_ = what;
    calls_in_it_.clear();
    delivery();
    delivered_.clear();
}

}  // namespace faults
