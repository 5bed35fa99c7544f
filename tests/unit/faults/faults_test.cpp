#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/unit/block_fixture.hpp"
#include "tests/unit/faults/block_context.hpp"
#include "tests/unit/faults/life.hpp"

namespace faults {
namespace {

namespace effect = support::effect;

/// What a block has sent and answered since the last restart of its service, and what its outputs
/// have come to.
using Deeds = std::vector<std::string>;

/// Why a block does not do after a restart of its service what it does without a fault, and what it
/// does instead.
struct Stall {
    std::string why;
    Deeds (*deeds)(Deeds sound) = [](Deeds /*sound*/) { return Deeds{}; };
};

/// The outcome of a failing call.
struct Consequence {
    Call call;
    /// "NAME" stands for sd-bus's name of the error, "…" for its text.
    std::vector<std::string> lines;
    /// None where the block recovers.
    std::optional<Stall> stall = {};
};

struct Case : support::NamedCase {
    BlockContext (*context)();
    std::vector<Consequence> consequences;
};

const Stall waits_for_match{"it waits for the answer to a match that was never sent"};
const Stall is_not_woken{"it would try again, but nothing wakes it"};
const Stall keeps_slot{"the call counts as unanswered, and the next step waits for it"};
const Stall keeps_platform{"it takes the platform for one that delays no video"};
const Stall unknown_sensor{"it has no number of its sensor", [](Deeds deeds) {
                               for (std::string& deed : deeds) {
                                   const auto place = deed.find("(i 3,");
                                   if (place != deed.npos)
                                       deed.replace(place, 5, "(i -1,");
                               }
                               return deeds;
                           }};
const Stall knows_no_restart{
    "a match is requested once, so it does not learn of restarts", [](Deeds deeds) {
        std::erase_if(deeds, [](const std::string& deed) {
            return deed.find(" Register(") != deed.npos || deed.find(" RequestPower(") != deed.npos;
        });
        return deeds;
    }};

/// The only line is that of a failed step of PowerMonitor or OnScreenControls.
Consequence step(const std::string& function, const std::string& message, const std::string& line) {
    return {"sd_bus_message_" + function + ": " + message, {line}};
}

/// With buttons and without.
const std::vector<Consequence> of_controls = {
    {"sd_bus_add_match_async: match",
     {"1 Failed to add match for NameOwnerChanged: …"},
     waits_for_match},
    {"sd_bus_call_method_async: GetNameOwner", {"1 Failed to call method GetNameOwner: …"}},
    {"sd_bus_message_read: reply to GetNameOwner",
     {"2 check_name_owner_callback failed to parse message: …"}},
    {"sd_bus_call_method_async: ListAddedFeatures",
     {"1 Failed to call method ListAddedFeatures: …"}},
    step("enter_container", "reply to ListAddedFeatures", "2 Failed to enter array: …"),
    step("enter_container 2", "reply to ListAddedFeatures", "2 Failed to enter struct: …"),
    step("read_basic", "reply to ListAddedFeatures", "2 Failed to read string: …"),
    step("enter_container 3", "reply to ListAddedFeatures", "2 Failed to enter sub-array: …"),
    step("read_basic 2", "reply to ListAddedFeatures", "2 Failed to read sub-string: …"),
    step("read_basic 3", "reply to ListAddedFeatures", "2 Failed to read sub-string: …"),
    step("exit_container", "reply to ListAddedFeatures", "2 Failed to exit sub-array: …"),
    step("exit_container 2", "reply to ListAddedFeatures", "2 Failed to exit struct: …"),
    step("enter_container 4", "reply to ListAddedFeatures", "2 Failed to enter struct: …"),
    step("exit_container 3", "reply to ListAddedFeatures", "2 Failed to exit container: …"),
    {"sd_bus_message_read: NameOwnerChanged", {"2 NameOwnerChanged failed to parse message: …"}}};

std::vector<Consequence> all_of(std::vector<Consequence> some,
                                const std::vector<Consequence>& others) {
    some.insert(some.end(), others.begin(), others.end());
    return some;
}

const Case cases[] = {
    {{"TemperatureReader"},
     reader,
     {{"sd_bus_add_match_async: match",
       {"1 Failed to add match for NameOwnerChanged: …"},
       waits_for_match},
      {"sd_bus_call_method_async: GetNameOwner", {"1 Failed to call method GetNameOwner: …"}},
      {"sd_bus_message_read: reply to GetNameOwner",
       {"2 check_name_owner_callback failed to parse message: …"}},
      {"sd_bus_match_signal_async: TemperatureChangeSignal",
       {"2 Failed to add DBus signal callback: …"}},
      {"sd_bus_call_method_async: GetTemperatureIdFromName",
       {"1 Failed to call GetTemperatureIdFromName: …"}},
      {"sd_bus_message_read: reply to GetTemperatureIdFromName",
       {"2 Failed to parse sensor id: …"},
       keeps_slot},
      {"sd_bus_call_method_async: RegisterForTemperatureChangeSignal",
       {"1 Failed to call method RegisterForTemperatureChangeSignal: …"}},
      {"sd_bus_message_read: reply to RegisterForTemperatureChangeSignal",
       {"2 Failed to setup temperature change singal: …"},
       keeps_slot},
      {"sd_bus_call_method_async: GetTemperature",
       {"1 Failed to call method RegisterForTemperatureChangeSignal: …"}},
      {"sd_bus_message_read: reply to GetTemperature",
       {"2 Failed to parse sensor id: …"},
       keeps_slot},
      {"sd_bus_message_read: TemperatureChangeSignal", {"2 Failed to setup temperature signal: …"}},
      {"sd_bus_message_read: NameOwnerChanged",
       {"2 NameOwnerChanged failed to parse message: …"}}}},
    {{"TemperatureMonitor"},
     temperature_monitor,
     {{"call_method: GetTemperatureIdFromName",
       {"2 Failed to lookup sensor id: NAME: …", "2 Failed to parse sensor id: Invalid argument"},
       unknown_sensor},
      {"sd_bus_message_read: reply to GetTemperatureIdFromName",
       {"2 Failed to parse sensor id: …"},
       unknown_sensor},
      {"call_method: GetTemperature",
       {"2 Failed to read temperature: NAME: …", "2 Failed to parse sensor id: Invalid argument"}},
      {"sd_bus_message_read: reply to GetTemperature", {"2 Failed to parse sensor id: …"}},
      {"sd_bus_add_match_async: match",
       {"1 Failed to add match for NameOwnerChanged: …"},
       is_not_woken},
      {"sd_bus_match_signal_async: TemperatureSignal", {"2 Failed to add DBus signal callback: …"}},
      {"sd_bus_call_method_async: RegisterForTemperatureSignal",
       {"1 Failed to RegisterForTemperatureSignal: …"}},
      {"sd_bus_message_read: reply to RegisterForTemperatureSignal",
       {"2 Failed to read temperature signal result: …"},
       keeps_slot},
      {"sd_bus_message_read: TemperatureSignal", {"2 Failed to setup temperature signal: …"}},
      {"sd_bus_message_read: NameOwnerChanged",
       {"2 NameOwnerChanged failed to parse message: …"}}}},
    {{"PowerConsumer"},
     consumer,
     {{"sd_bus_add_match: match",
       {"1 Failed to add match for NameOwnerChanged: …"},
       knows_no_restart},
      {"sd_bus_call_method_async: Register", {"1 Failed to register consumer: …"}},
      {"sd_bus_call_method_async: RequestPower", {"1 Failed to request power: …"}},
      {"sd_bus_message_read: SetPower", {"1 Failed to parse parameters: …"}},
      {"sd_bus_reply_method_return: SetPower", {}},
      {"sd_bus_message_read: NameOwnerChanged", {"2 NameOwnerChanged failed to parse message: …"}},
      {"sd_bus_call_method_async: Unregister", {"1 Failed to unregister power consumer: …"}}}},
    {{"PowerMonitor"},
     power_monitor,
     {{"get_property: PowerReceived",
       {"1 Failed to get PowerReceived from com.tarlo.PowerControl.Status. "
        "NAME: …",
        "1 Failed to get PowerReceived from dbus reply.\n"}},
      step("read", "reply to PowerReceived", "1 Failed to get PowerReceived from dbus reply.\n"),
      {"sd_bus_add_match_async: match",
       {"1 Failed to send properties changed signal handler request: …"},
       is_not_woken},
      // It answers signals and replies, which sd-bus refuses anyway.
      {"sd_bus_reply_method_return: reply to the match", {}},
      {"sd_bus_reply_method_return: reply to Get", {}},
      {"sd_bus_reply_method_return: PropertiesChanged", {}},
      {"sd_bus_call_method_async: Get", {"1 Failed to query PowerReceived: …"}},
      step("read", "reply to Get", "1 Failed to read value of PowerReceived: …"),
      step("skip", "PropertiesChanged", "1 Failed to enter container\n"),
      step("enter_container", "PropertiesChanged", "1 Failed to enter container\n"),
      // No further entry, or a value of another type.
      {"sd_bus_message_enter_container 2: PropertiesChanged", {}},
      step("read", "PropertiesChanged", "1 Failed to read property name\n"),
      step("skip 2", "PropertiesChanged", "1 Failed to skip message: …\n"),
      step("exit_container", "PropertiesChanged", "1 Failed to exit container for: PowerUsed\n"),
      {"sd_bus_message_enter_container 3: PropertiesChanged", {}},
      step("read 2", "PropertiesChanged", "1 Failed to read property name\n"),
      {"sd_bus_message_enter_container 4: PropertiesChanged", {}},
      step("read 3", "PropertiesChanged", "1 Failed to read value of PowerReceived: …\n"),
      step("exit_container 2", "PropertiesChanged",
           "1 Failed to exit container for: PowerReceived\n"),
      {"sd_bus_message_enter_container 5: PropertiesChanged", {}}}},
    {{"OnScreenControls"},
     controls,
     all_of(of_controls,
            {{"sd_bus_call_method_async: AddFeatures", {"1 Failed to call method AddFeatures: …"}},
             {"sd_bus_call_method_async: RemoveFeatures",
              {"2 Failed to remove feature \"WDR1\": …"}}})},
    {{"OnScreenControlsWithoutButtons"},
     controls_without_buttons,
     all_of(of_controls, {{"sd_bus_call_method_async: RemoveFeatures",
                           {"1 Failed to call method RemoveFeatures: …"}}})},
    {{"PrioritizedTextOverlaySetter"},
     overlay,
     {{"sd_bus_call_method_async: Set",
       {"2 Could not set prioritized text overlay: …"},
       Stall{"it asks once, at the start, and has no text to remove in the end"}},
      {"sd_bus_call_method: Unset", {"2 Could not unset prioritized text overlay: …"}}}},
    {{"VideoReady"},
     video,
     {{"call_method: GetUnitFileState", {}, keeps_platform},
      {"sd_bus_message_read: reply to GetUnitFileState",
       {"1 Failed to parse status of video-ready.service: …"},
       keeps_platform},
      {"call_method: SignalVideoReady", {"2 Failed to signal video enabled to : NAME: …"}}}},
};

constexpr int errors[] = {-ENOMEM, -ENOTCONN, -EINVAL};

std::vector<std::string> with_text_of(int error, std::vector<std::string> lines) {
    const auto fill = [](std::string& line, const std::string& mark, const std::string& text) {
        if (const auto place = line.find(mark); place != std::string::npos)
            line.replace(place, mark.size(), text);
    };
    for (std::string& line : lines) {
        fill(line, "NAME", error_name(error));
        fill(line, "…", std::strerror(-error));
    }
    return lines;
}

/// The calls that fail, each with a negative errno: the N-th of all, from 1.
using Faults = std::map<std::size_t, int>;

/// The traces of a life.
struct Traces {
    std::vector<Call> calls;         ///< of sd-bus that may fail, in their order
    std::vector<std::string> lines;  ///< errors and warnings, "LEVEL TEXT"
    Deeds last_deeds;                ///< by then a block that recovers does what it should
};

/// Construction, start, traffic, a restart of the service, traffic, another restart, traffic, stop,
/// destruction. The service answers each call at once, and the block is run until it has nothing to
/// do. Calls do not fail between the last restart and the stop.
Traces lead(const Case& block, const Faults& faults) {
    Traces traces;
    bool may_fail = true;
    const BlockContext context = block.context();
    Life life(context, [&](const Call& call) {
        if (!may_fail)
            return 0;
        traces.calls.push_back(call);
        const auto fault = faults.find(traces.calls.size());
        return fault == faults.end() ? 0 : fault->second;
    });
    const auto traffic = [&](int turn) {
        context.traffic(life, turn);
        life.settle();
    };
    support::EffectJournal& journal = *life.recorders().journal;

    life.build();
    life.start();
    life.settle();
    traffic(0);
    life.restart_service(":1.5", ":1.6");
    traffic(1);
    may_fail = false;
    (void)journal.take(effect::all & ~effect::line);
    life.restart_service(":1.6", ":1.7");
    traffic(2);
    traffic(3);
    may_fail = true;
    life.stop();
    life.destroy();

    traces.last_deeds = life.take_deeds();
    (void)journal.take(effect::all & ~effect::line);
    for (const std::string& line : life.recorders().log.take()) {
        if (line.front() <= '2')
            traces.lines.push_back(line);
    }
    return traces;
}

/// Where the page of a block is.
std::string page_of(std::string block) {
    constexpr std::string_view variant = "WithoutButtons";
    if (block.ends_with(variant))
        block.resize(block.size() - variant.size());
    std::string page;
    for (const char c : block) {
        if (std::isupper(static_cast<unsigned char>(c)) != 0 && !page.empty())
            page += '-';
        page += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return FENWA_DOCS "/" + page + ".md";
}

/// The log lines in the tables of a page: "LEVEL TEXT" up to what varies, which is "…" there.
std::vector<std::string> lines_of_page(const std::string& page) {
    std::ifstream file(page);
    std::string level;
    std::vector<std::string> lines;
    for (std::string row; std::getline(file, row);) {
        std::smatch match;
        if (std::regex_search(row, match, std::regex("^All of level ([12])")))
            level = match[1];
        if (!std::regex_search(row, match, std::regex("^\\| (?:([12]) \\| )?(`.*?) \\|")))
            continue;
        const std::string of_row = match[1].matched ? match[1].str() : level;
        const std::string texts = match[2];
        const std::regex text("`([^`]*?)(?:…[^`]*)?`");
        for (std::sregex_iterator it(texts.begin(), texts.end(), text), end; it != end; ++it)
            lines.push_back(of_row + ' ' + (*it)[1].str());
    }
    return lines;
}

/// What all blocks together went through.
struct Totals {
    std::size_t calls = 0;
    int faults = 0;
    int lives_with_two = 0;
};

class EachBlockFaultTest : public testing::TestWithParam<Case> {
  protected:
    inline static Totals totals;

    static void TearDownTestSuite() {
        std::cout << "all blocks: " << totals.faults << " faults in " << totals.calls
                  << " calls, and " << totals.lives_with_two << " lives with two faults\n";
    }
};

TEST_P(EachBlockFaultTest, LivesThroughAnyCallThatFails) {
    const Case& block = GetParam();
    std::map<Call, const Consequence*> consequences;
    for (const Consequence& each : block.consequences)
        consequences.emplace(each.call, &each);
    const Traces sound = lead(block, {});
    EXPECT_EQ(sound.lines, std::vector<std::string>{});
    EXPECT_NE(sound.last_deeds, Deeds{});

    std::set<Call> failed;
    int faults = 0;
    for (std::size_t number = 1; number <= sound.calls.size(); ++number) {
        const Call& call = sound.calls[number - 1];
        const auto known = consequences.find(call);
        ASSERT_NE(known, consequences.end()) << "nothing is said about " << call;
        failed.insert(call);
        for (const int error : errors) {
            SCOPED_TRACE("call " + std::to_string(number) + ", " + call + ": " +
                         std::strerror(-error));
            const Traces traces = lead(block, {{number, error}});
            ++faults;
            ASSERT_GE(traces.calls.size(), number);
            EXPECT_EQ(traces.calls[number - 1], call);
            EXPECT_EQ(traces.lines, with_text_of(error, known->second->lines));
            if (const std::optional<Stall>& stall = known->second->stall)
                EXPECT_EQ(traces.last_deeds, stall->deeds(sound.last_deeds)) << stall->why;
            else
                EXPECT_EQ(traces.last_deeds, sound.last_deeds);
        }
    }
    EXPECT_EQ(failed.size(), consequences.size()) << "more consequences than calls";
    std::cout << block.name << ": " << faults << " faults in " << sound.calls.size() << " calls\n";
    totals.calls += sound.calls.size();
    totals.faults += faults;
}

// The second one may meet what the block does about the first one.
TEST_P(EachBlockFaultTest, LivesThroughAnyTwoCallsThatFail) {
    const Case& block = GetParam();
    constexpr int error = -ENOMEM;
    std::set<std::string> documented;
    for (const Consequence& each : block.consequences) {
        const std::vector<std::string> lines = with_text_of(error, each.lines);
        documented.insert(lines.begin(), lines.end());
    }
    int lives = 0;
    const std::size_t calls = lead(block, {}).calls.size();
    for (std::size_t first = 1; first <= calls; ++first) {
        const std::size_t calls_after_it = lead(block, {{first, error}}).calls.size();
        for (std::size_t second = first + 1; second <= calls_after_it; ++second, ++lives) {
            SCOPED_TRACE("calls " + std::to_string(first) + " and " + std::to_string(second));
            const Traces traces = lead(block, {{first, error}, {second, error}});
            ASSERT_GE(traces.calls.size(), second);
            for (const std::string& line : traces.lines)
                EXPECT_TRUE(documented.contains(line)) << line;
        }
    }
    std::cout << block.name << ": " << lives << " lives with two faults\n";
    totals.lives_with_two += lives;
}

TEST_P(EachBlockFaultTest, LogsLinesThatThePageOfTheBlockNames) {
    const std::vector<std::string> named = lines_of_page(page_of(GetParam().name));
    for (const Consequence& each : GetParam().consequences) {
        for (const std::string& line : each.lines)
            EXPECT_THAT(named, testing::Contains(testing::Truly([&line](const std::string& begin) {
                            return line.starts_with(begin);
                        })))
                << line;
    }
}

INSTANTIATE_TEST_SUITE_P(Types, EachBlockFaultTest, testing::ValuesIn(cases),
                         support::case_name<Case>);

}  // namespace
}  // namespace faults
