#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <concepts>
#include <functional>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/block_driver.hpp"
#include "tests/support/layout_probe.hpp"
#include "tests/support/settings.hpp"

/// Shared by the tests of all blocks.
namespace support {

using Journal = std::vector<std::string>;
using Lines = std::vector<std::string>;

inline constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
inline constexpr double infinity = std::numeric_limits<double>::infinity();

// Error arguments that sd-bus never passes, like `denied`; a callback reads them all the same.
inline constexpr sd_bus_error silent =
    SD_BUS_ERROR_MAKE_CONST("org.freedesktop.DBus.Error.NoReply", nullptr);
inline constexpr sd_bus_error nameless = SD_BUS_ERROR_MAKE_CONST(nullptr, "a message alone");

/// The effects of a callback that only wakes its block.
inline const Journal wake_up{"fire event_port"};
/// The last entry for a callback that returns this.
inline std::string returns(int result) {
    return "returns " + std::to_string(result);
}

// How the journal names what blocks send.

inline const std::string owner_match =
    "match type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";
inline std::string owner_query(const std::string& name) {
    return "call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus GetNameOwner(s "
           "\"" +
           name + "\")";
}
/// A call of a service whose interface has the service's name.
inline std::string service_call(const std::string& name, const std::string& path,
                                const std::string& call) {
    return "call " + name + " " + path + " " + name + " " + call;
}

// Messages for the rows of tables.

using MakeMessage = std::function<Message(Messages&)>;

template <class... Values>
MakeMessage reply_of(const char* types, Values... values) {
    return [=](Messages& messages) { return messages.reply(types, values...); };
}
/// An error reply; a null text is an empty body.
inline MakeMessage error_of(const char* name, const char* text) {
    return [=](Messages& messages) { return messages.error(name, text); };
}
template <class... Values>
MakeMessage error_body_of(const char* types, Values... values) {
    return [=](Messages& messages) {
        return messages.error_with_body("com.example.Error", types, values...);
    };
}

/// Base of the rows of a table: the name of a row, which is part of the test's.
struct NamedCase {
    const char* name;
};

template <std::derived_from<NamedCase> Case>
void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

/// For INSTANTIATE_TEST_SUITE_P.
template <std::derived_from<NamedCase> Case>
std::string case_name(const testing::TestParamInfo<Case>& row) {
    return row.param.name;
}

/// What a block of type `T` does in the run after its last step was answered.
template <class T>
struct StepCase : NamedCase {
    std::size_t number;  ///< of its sending
    std::string sent;
    std::string failure;  ///< the line when it cannot be sent, without the errno's text
    sd_bus_slot** (*field)(T&);
};

/// Base of the tests of one type of block. Effects are compared whole: each operation returns all
/// of its effects in their order, then `returns(R)` if a callback returns an R other than 0.
template <class T>
class BlockFixture : public BlockTest {
  protected:
    using LayoutProbe = blocks::LayoutProbe;

    /// Builds a block in place of the one before.
    template <class... Arguments>
    void build(Arguments&&... arguments) {
        driver_.reset();
        (void)journal.take(effect::all & ~effect::to_be_seen);
        driver_.emplace(recorders.tools, std::forward<Arguments>(arguments)...);
    }
    [[nodiscard]] T& block() { return **driver_; }
    /// Whether the block has asked to be run since the last time. Takes its fires.
    [[nodiscard]] bool woken() { return driver_->woken(); }

    /// All effects of `act`. Drops earlier effects that no test has to look at.
    template <class Act>
    [[nodiscard]] Journal effects_of(Act act) {
        (void)journal.take(effect::all & ~effect::to_be_seen);
        int result = 0;
        if constexpr (std::is_void_v<std::invoke_result_t<Act>>)
            act();
        else
            result = act();
        Journal effects = take();
        if (result != 0)
            effects.push_back(returns(result));
        return effects;
    }

    Journal start() {
        return effects_of([this] { block().start(); });
    }
    /// A run for another reason than the block's ports.
    Journal run() {
        return effects_of([this] { EXPECT_TRUE(block().run()); });
    }
    /// A run that the block has asked for.
    Journal run_woken() {
        return effects_of([this] { EXPECT_TRUE(driver_->run_woken()); });
    }
    Journal stop() {
        return effects_of([this] { block().stop(); });
    }
    Journal destroy() {
        return effects_of([this] { driver_.reset(); });
    }

    /// Calls the callback of a call or match.
    Journal deliver(const Sending& sending, sd_bus_message* message,
                    sd_bus_error error = SD_BUS_ERROR_NULL) {
        return effects_of([&] { return sending.deliver(message, error); });
    }
    /// Calls the install callback of a match.
    Journal install(const Sending& sending, sd_bus_message* reply,
                    sd_bus_error error = SD_BUS_ERROR_NULL) {
        return effects_of([&] { return sending.install(reply, error); });
    }

    /// Checks a call or match: its connection is that of the tools, its slot is in `field`, its
    /// callbacks get `userdata`.
    void expect_handed_over(const Sending& sending, sd_bus_slot** field, const void* userdata) {
        EXPECT_EQ(sending.bus, recorders.tools.get_bus());
        EXPECT_EQ(sending.slot_field, field);
        EXPECT_EQ(sending.userdata, userdata);
    }
    /// The same for the last sending.
    void expect_handed_over(sd_bus_slot** field, const void* userdata) {
        expect_handed_over(bus.last(), field, userdata);
    }

    /// Checks the next step: a run takes it on the connection of that moment, and no run takes it
    /// again while its answer is out.
    void expect_taken_once(const StepCase<T>& step) {
        recorders.tools.use_bus(other_bus());
        EXPECT_EQ(run(), (Journal{step.sent}));
        expect_handed_over(step.field(block()), &block());
        EXPECT_EQ(run(), Journal{}) << "the answer is still out";
        EXPECT_FALSE(woken());
    }
    /// Checks the next step: the run after one that could not send it takes it again.
    void expect_taken_again(const StepCase<T>& step) {
        bus.answer_next({-EPERM, 0});
        EXPECT_EQ(run(), (Journal{step.sent, step.failure + "Operation not permitted"}));
        EXPECT_EQ(*step.field(block()), nullptr);
        EXPECT_FALSE(woken()) << "the next run comes for another reason";
        EXPECT_EQ(run(), (Journal{step.sent}));
        EXPECT_EQ(run(), Journal{}) << "a result of zero is success";
    }

    /// Calls a callback with messages that it cannot use: each has one log line as its only effect.
    /// @param usable a message that it can use without a set error argument or a failing read.
    /// @param error_line the line for a set error argument, without its message.
    /// @param body_line the line for a body that cannot be read, without the errno's text.
    void expect_only_lines(const Sending& sending, sd_bus_message* usable,
                           const std::string& error_line, const std::string& body_line) {
        EXPECT_EQ(deliver(sending, usable, denied),
                  (Journal{error_line + "not you", returns(-EACCES)}));
        EXPECT_EQ(deliver(sending, usable, silent), (Journal{error_line, returns(-ETIMEDOUT)}));
        bus.change_results(MessageFunction::read, {-EPERM});
        EXPECT_EQ(deliver(sending, usable),
                  (Journal{body_line + "Operation not permitted", returns(-EPERM)}));
        const Journal unreadable{body_line + "No such device or address", returns(-ENXIO)};
        for (const MakeMessage& make :
             {reply_of(""), reply_of("as", 0U), error_of("com.example.Error", "no"),
              error_of("com.example.Error", nullptr)})
            EXPECT_EQ(deliver(sending, make(messages)), unreadable);
    }

    /// Checks that the constructor refuses a configuration because of `key`.
    void expect_refused(const Fenwa::BlockConfiguration& config, const std::string& key,
                        bool missing = false) {
        try {
            build("refused", config);
            ADD_FAILURE() << "built in spite of '" << key << "'";
        } catch (const Fenwa::ConfigurationError& error) {
            EXPECT_EQ(error.key(), key);
            EXPECT_EQ(error.missing(), missing);
        }
    }
    [[nodiscard]] Settings settings() { return settings_of(block().setup({})); }

    /// The output `name`, whose values have the type `Value`.
    template <class Value>
    [[nodiscard]] Fenwa::OutPort<Value>& output(const std::string& name) {
        return *dynamic_cast<Fenwa::OutPort<Value>*>(block().get_outport(name));
    }
    // Templates, because not each block has such a field.
    template <class Block = T>
    [[nodiscard]] bool match_held() {
        return *LayoutProbe::match_slot_field(static_cast<Block&>(block())) != nullptr;
    }
    template <class Block = T>
    [[nodiscard]] bool call_pending() {
        return *LayoutProbe::call_slot_field(static_cast<Block&>(block())) != nullptr;
    }

  private:
    std::optional<BlockDriver<T>> driver_;
};

}  // namespace support
