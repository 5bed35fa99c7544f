// One block, of the type that stands in the program's name, whose host and whose services do the
// steps of its life in any order, with any messages, while calls of sd-bus fail.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "framework/shared/host_access.hpp"
#include "tests/fuzz/values.hpp"
#include "tests/support/layout_probe.hpp"
#include "tests/unit/faults/life.hpp"

namespace fuzz {
namespace {

using faults::Life;
using support::Message;
using support::Messages;

enum class Step : std::uint8_t {
    run,
    answer,
    answer_wrongly,
    signal,
    owner_change,
    traffic,
    restart,
    call,
    wake,
    fail_call,
    stop,
    kMaxValue = stop,  // for ConsumeEnum
};

/// How many steps one input may have.
constexpr int max_steps = 200;

/// What a program may lead through its life, by the end of its name.
const std::map<std::string_view, std::vector<faults::BlockContext (*)()>> programs{
    {"reader", {faults::reader}},
    {"temperature_monitor", {faults::temperature_monitor}},
    {"consumer", {faults::consumer}},
    {"power_monitor", {faults::power_monitor}},
    {"controls", {faults::controls, faults::controls_without_buttons}},
    {"overlay", {faults::overlay}},
    {"video", {faults::video}},
};
/// That of this program.
const std::vector<faults::BlockContext (*)()>* fuzzed = nullptr;

class FuzzedLife {
  public:
    explicit FuzzedLife(Input& input) : input_(input) {
        for (auto& [member, make] : context_.replies) {
            make = [this, right = make](Messages& messages) {
                return all_is_well_ || input_.ConsumeBool() ? right(messages) : any_reply();
            };
        }
    }

    void lead() {
        life_.build();
        life_.start();
        for (int steps = 0; steps < max_steps && input_.remaining_bytes() > 0; ++steps)
            take(input_.ConsumeEnum<Step>());
        if (!stopped_)
            life_.stop();
        life_.destroy();
    }

  private:
    void take(Step step) {
        switch (step) {
            case Step::run:
                if (!stopped_)
                    life_.run();
                break;
            case Step::answer:
                if (const auto number = pick(life_.unanswered()); number != 0)
                    life_.answer(number, life_.right_answer(number));
                break;
            case Step::answer_wrongly:
                if (const auto number = pick(life_.unanswered()); number != 0)
                    life_.answer(number, any_reply());
                break;
            case Step::signal:
                if (const auto number = pick(life_.matches()); number != 0)
                    life_.signal(number, any_signal());
                break;
            case Step::owner_change:
                if (context_.service != nullptr)
                    life_.change_owner(input_.ConsumeBool() ? ":1.5" : "",
                                       input_.ConsumeBool() ? ":1.6" : "");
                break;
            case Step::traffic:
                undisturbed([this] { context_.traffic(life_, 1); });
                break;
            case Step::restart:
                undisturbed([this] { life_.restart_service(":1.5", ":1.6"); });
                break;
            case Step::call:
                // sd-bus lets a double through and nothing else; the method copes with all.
                if (fuzzed->front() == faults::consumer)
                    life_.call(blocks::LayoutProbe::exported_methods()[1].x.method.handler,
                               any_call());
                break;
            case Step::wake:
                for (const std::string& name : life_.block().get_inport_names())
                    Fenwa::HostAccess::notify(*life_.block().get_inport(name), life_.block());
                break;
            case Step::fail_call:
                calls_to_failure_ = input_.ConsumeIntegralInRange(1, 16);
                break;
            case Step::stop:
                if (!stopped_)
                    life_.stop();
                stopped_ = true;
                break;
        }
    }

    /// The services are well, and the block runs: it comes to rest.
    template <class Act>
    void undisturbed(Act act) {
        if (stopped_)
            return;
        all_is_well_ = true;
        act();
        life_.settle();
        all_is_well_ = false;
    }

    [[nodiscard]] int find_fault() {
        if (all_is_well_ || calls_to_failure_ == 0 || --calls_to_failure_ > 0)
            return 0;
        return -input_.PickValueInArray({ENOMEM, ENOTCONN, EINVAL, EPERM});
    }

    /// One of the numbers; 0 where there is none.
    [[nodiscard]] std::size_t pick(const std::vector<std::size_t>& numbers) {
        return numbers.empty()
                   ? 0
                   : numbers[input_.ConsumeIntegralInRange<std::size_t>(0, numbers.size() - 1)];
    }

    /// A message of any values; one without any where sd-bus takes them for no message, as it does
    /// where their signature is too long.
    template <class Make>
    [[nodiscard]] Message any(Make make) {
        try {
            return make([this](sd_bus_message* message) { append_values(message, input_); });
        } catch (const std::system_error&) {
            return make([](sd_bus_message* /*message*/) {});
        }
    }
    [[nodiscard]] Message any_reply() {
        Messages& messages = life_.messages();
        const bool refused = input_.ConsumeBool();
        return any([&](const Messages::Append& append) {
            return refused ? messages.error_with("org.freedesktop.DBus.Error.Failed", append)
                           : messages.reply_with(append);
        });
    }
    [[nodiscard]] Message any_signal() {
        return any([this](const Messages::Append& append) {
            return life_.messages().signal_with("/com/tarlo/Any", "com.tarlo.Any", "Any", append);
        });
    }
    [[nodiscard]] Message any_call() {
        return any([this](const Messages::Append& append) {
            return life_.messages().call_with("/com/tarlo/Any", "com.tarlo.Any", "Any", append);
        });
    }

    Input& input_;
    faults::BlockContext context_ =
        fuzzed->at(input_.ConsumeIntegralInRange<std::size_t>(0, fuzzed->size() - 1))();
    bool all_is_well_ = false;
    bool stopped_ = false;
    /// 0 for no failure; a block's construction has up to some ten calls.
    int calls_to_failure_ = input_.ConsumeIntegralInRange(0, 32);
    Life life_{context_, [this](const faults::Call& /*call*/) { return find_fault(); }};
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** argv) {
    const std::string_view program = (*argv)[0];
    const auto found = fuzz::programs.find(program.substr(program.rfind('-') + 1));
    if (found == fuzz::programs.end()) {
        std::fputs("this program is run by the name fuzz-TARGET, as script/fuzz does\n", stderr);
        std::exit(1);
    }
    fuzz::fuzzed = &found->second;
    // A slot or a reply that is never released is a failure of the test.
    GTEST_FLAG_SET(break_on_failure, true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto journal = support::EffectJournal::shared();
    fuzz::FuzzedLife(input).lead();
    (void)journal->take(support::effect::all);
    return 0;
}
