// What the doubles fail a test for: without these traps a test passes that looks at nothing.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <ostream>
#include <stdexcept>

#include "fenwa/ports.hpp"
#include "tests/support/block_driver.hpp"
#include "tests/support/sdbus_arguments.hpp"

namespace {

using support::denied;
using Doubles = support::Recorders;

int nothing(sd_bus_message* /*message*/, void* /*userdata*/, sd_bus_error* /*error*/) {
    return 0;
}

int fills_its_error(sd_bus_message* /*message*/, void* /*userdata*/, sd_bus_error* error) {
    return sd_bus_error_set_const(error, "a.Error", "text");
}

sd_bus_slot* match() {
    sd_bus_slot* slot = nullptr;
    sd_bus_add_match_async(nullptr, &slot, "r", nothing, nothing, nullptr);
    return slot;
}

void call(sd_bus_error* error, sd_bus_message** reply) {
    sd_bus_call_method(nullptr, "a.b", "/a", "a.c", "Do", error, reply, "i", 5);
}

/// A block that resets its input in each run.
struct ResettingBlock final : Fenwa::Block {
    ResettingBlock() : Block("resetting", {}) {}
    bool run() override {
        in->reset(true);
        return true;
    }
    Fenwa::InPort<int>* in = Fenwa::add_inport<int>(*this, "in");
};

struct Trap {
    const char* name;
    const char* failure;
    void (*spring)(Doubles& doubles);
};

std::ostream& operator<<(std::ostream& out, const Trap& trap) {
    return out << trap.failure;
}

const Trap traps[] = {
    {"UnseenLine", "nobody looked at: 2 text", [](Doubles&) { Fenwa::ilog(2) << "text"; }},
    {"UnseenSending", "nobody looked at: match r", [](Doubles&) { sd_bus_slot_unref(match()); }},
    {"UnseenAnswer", "nobody looked at: answer null() = -22",
     [](Doubles&) { sd_bus_reply_method_return(nullptr, nullptr); }},
    {"UnseenUnrefOfNoSlot", "nobody looked at: unref of no slot",
     [](Doubles&) { sd_bus_slot_unref(nullptr); }},
    {"UnseenUnrefOfNoMessage", "nobody looked at: unref of no message",
     [](Doubles&) { sd_bus_message_unref(nullptr); }},
    {"SlotKept", "slot kept: match r",
     [](Doubles& doubles) {
         match();
         (void)doubles.bus.take_journal();
     }},
    {"SlotReleasedTwice", "slot released twice: match r",
     [](Doubles& doubles) {
         sd_bus_slot* const slot = match();
         sd_bus_slot_unref(slot);
         sd_bus_slot_unref(slot);
         (void)doubles.bus.take_journal();
     }},
    {"ResultMadeUpForNobody", "made up for nobody: a result of function 1",
     [](Doubles& doubles) { doubles.bus.make_up(support::MessageFunction::skip, {0}); }},
    {"ResultChangedForNobody", "changed for nobody: a result of function 1",
     [](Doubles& doubles) { doubles.bus.change_results(support::MessageFunction::skip, {0}); }},
    {"ErrorOfACallbackTouched", "a callback touched its error argument",
     [](Doubles&) {
         (void)support::call_back(fills_its_error, nullptr, nullptr, SD_BUS_ERROR_NULL);
     }},
    {"UnforeseenCall", "unexpected blocking call a.b /a a.c Do(i 5)",
     [](Doubles&) { call(nullptr, nullptr); }},
    {"UnforeseenCallOfTheTools", "unexpected blocking call a.b /a a.c Ask(s \"x\")",
     [](Doubles& doubles) {
         doubles.tools.call_method("a.b", "/a", "a.c", "Ask", nullptr, "s", "x");
     }},
    {"UnforeseenReadOfTheTools", "unexpected blocking read a.b /a a.c Level as d",
     [](Doubles& doubles) {
         doubles.tools.get_property("a.b", "/a", "a.c", "Level", nullptr, "d");
     }},
    {"ForeseenCallMissing", "1 foreseen blocking calls are missing",
     [](Doubles& doubles) { doubles.bus.end_next_call(0); }},
    {"ForeseenOperationMissing", "1 foreseen blocking operations are missing",
     [](Doubles& doubles) { doubles.tools.return_next(); }},
    {"ReplyKept", "replies kept",
     [](Doubles& doubles) {
         static sd_bus_message* reply = nullptr;
         doubles.bus.end_next_call(0, SD_BUS_ERROR_NULL, doubles.messages.reply(""));
         call(nullptr, &reply);
         (void)doubles.bus.take_journal();
     }},
    {"ReplyOverwritten", "the reply is written over what stood there",
     [](Doubles& doubles) {
         const auto earlier = doubles.messages.reply("");
         sd_bus_message* reply = earlier;
         doubles.tools.reply_next(doubles.messages.reply(""));
         doubles.tools.call_method("a.b", "/a", "a.c", "Ask", &reply, nullptr);
         sd_bus_message_unref(reply);
         (void)doubles.bus.take_journal();
     }},
    {"ErrorNotFreed", "an error structure was not freed",
     [](Doubles& doubles) {
         sd_bus_error error = SD_BUS_ERROR_NULL;
         doubles.bus.end_next_call(-EACCES, denied);
         call(&error, nullptr);
         (void)doubles.bus.take_journal();
     }},
    {"ErrorUsedAgain", "the error structure is not a fresh one",
     [](Doubles& doubles) {
         sd_bus_error error = denied;
         doubles.bus.end_next_call(-EACCES, denied);
         call(&error, nullptr);
         sd_bus_error_free(&error);
         (void)doubles.bus.take_journal();
     }},
    {"PortReset", "the block has reset a port",
     [](Doubles& doubles) {
         support::BlockDriver<ResettingBlock> block(doubles.tools);
         Fenwa::HostAccess::notify(*block->in, *block);
         EXPECT_TRUE(block.run_woken());
     }},
    {"BlockNotWoken", "nothing has woken the block",
     [](Doubles& doubles) {
         EXPECT_TRUE(support::BlockDriver<ResettingBlock>(doubles.tools).run_woken());
     }},
};

class TrapTest : public testing::TestWithParam<Trap> {};

TEST_P(TrapTest, FailsTheTest) {
    EXPECT_NONFATAL_FAILURE(
        {
            Doubles doubles;
            GetParam().spring(doubles);
        },
        GetParam().failure);
}

INSTANTIATE_TEST_SUITE_P(Double, TrapTest, testing::ValuesIn(traps),
                         [](const auto& trap) { return trap.param.name; });

std::string rendered(const char* types, ...) {
    std::va_list arguments;
    va_start(arguments, types);
    std::string text = support::render_arguments(types, arguments);
    va_end(arguments);
    return text;
}

TEST(RenderedArgumentsTest, TellTypesValuesAndTheirNestingApart) {
    EXPECT_EQ(rendered("dd", 0.1 + 0.2, -0.0), "d 0.30000000000000004, d -0");
    EXPECT_EQ(rendered("snubxt", nullptr, -2, 4000000000U, 0, std::int64_t{-5}, UINT64_MAX),
              "s null, n -2, u 4000000000, b false, x -5, t 18446744073709551615");
    EXPECT_EQ(rendered("a{sv}(ia(yy))as", 1U, "key", "b", 1, 1, 1U, 2, 3, 2U, "a", "b"),
              "a{sv} [s \"key\", v <b true>], (i 1, a(yy) [(y 2, y 3)]), as [s \"a\"; s \"b\"]");
    EXPECT_THROW(rendered("!"), std::invalid_argument);
    EXPECT_THROW(rendered("a"), std::invalid_argument);
}

}  // namespace
