#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <stdexcept>

#include "fenwa/registry.hpp"
#include "framework/shared/block_registry.hpp"
#include "src/blocks/power/power_consumer.hpp"
#include "src/blocks/power/power_monitor.hpp"
#include "src/blocks/temperature/temperature_monitor.hpp"
#include "src/blocks/temperature/temperature_reader.hpp"
#include "src/blocks/video/on_screen_controls.hpp"
#include "src/blocks/video/prioritized_text_overlay_setter.hpp"
#include "src/blocks/video/video_ready.hpp"
#include "tests/support/block_driver.hpp"

namespace {
thread_local std::size_t allocations = 0;
}  // namespace

// Counts what the thread allocates; everything else is as ever. Not inlined, or an optimising
// compiler takes malloc() and free() for a mismatched pair of new and delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace {

const std::vector<std::string> every_type{
    "OnScreenControls",   "PowerConsumer",     "PowerMonitor", "PrioritizedTextOverlaySetter",
    "TemperatureMonitor", "TemperatureReader", "VideoReady"};

/// Keeps names and factories until it is full, and then throws.
class LimitedRegistry final : public Fenwa::IRegistry {
  public:
    explicit LimitedRegistry(std::size_t limit = 100) : limit_(limit) {}

    void register_factory(const std::string& type_name,
                          const Fenwa::BlockFactory& factory) override {
        if (names.size() == limit_)
            throw std::length_error("the registry is full");
        names.push_back(type_name);
        factories.push_back(factory);
    }

    std::vector<std::string> names;
    std::vector<Fenwa::BlockFactory> factories;

  private:
    std::size_t limit_;
};

/// Copies each factory, which allocates unless the factory is held in place.
class CopyingRegistry final : public Fenwa::IRegistry {
  public:
    void register_factory(const std::string& type_name,
                          const Fenwa::BlockFactory& factory) override {
        const std::size_t before = allocations;
        const Fenwa::BlockFactory copy = factory;  // NOLINT(performance-*): the copy is the point
        EXPECT_EQ(allocations, before) << type_name << "'s factory is on the heap";
        EXPECT_TRUE(copy);
        ++registrations;
    }

    std::size_t registrations = 0;
};

TEST(LibRegisterTest, RegistersEveryTypeInAlphabeticalOrder) {
    LimitedRegistry registry;
    EXPECT_EQ(lib_register_cpp(&registry), 0);
    EXPECT_EQ(registry.names, every_type);
    EXPECT_TRUE(std::is_sorted(registry.names.begin(), registry.names.end()));
}

TEST(LibRegisterTest, FillsTheFrameworksOwnRegistry) {
    Fenwa::BlockRegistry registry;
    EXPECT_EQ(lib_register_cpp(&registry), 0);
    EXPECT_EQ(registry.type_names(), every_type);
}

TEST(LibRegisterTest, LeavesEarlierRegistrationsWhenALaterOneThrows) {
    for (std::size_t limit = 0; limit < every_type.size(); ++limit) {
        LimitedRegistry registry(limit);
        EXPECT_THROW(lib_register_cpp(&registry), std::length_error);
        EXPECT_EQ(registry.names,
                  std::vector(every_type.begin(),
                              every_type.begin() + static_cast<std::ptrdiff_t>(limit)));
    }
}

TEST(LibRegisterTest, HoldsEveryFactoryInPlace) {
    CopyingRegistry registry;
    EXPECT_EQ(lib_register_cpp(&registry), 0);
    EXPECT_EQ(registry.registrations, every_type.size());
}

class FactoryTest : public testing::Test {
  protected:
    FactoryTest() { lib_register_cpp(&registry); }

    const Fenwa::BlockFactory& factory(const std::string& type_name) {
        return *registry.find(type_name);
    }

    support::Recorders recorders;
    Fenwa::BlockRegistry registry;
    Fenwa::InitTools tools{&recorders.tools};
    const Fenwa::BlockConfiguration config{{"sensor_name", {"main"}}, {"delta_chg", 0.5}};
};

TEST_F(FactoryTest, BuildsAReaderWithItsNameAndConfiguration) {
    const auto block = factory("TemperatureReader")("inside", config, tools);
    EXPECT_NE(dynamic_cast<blocks::TemperatureReader*>(block.get()), nullptr);
    EXPECT_EQ(block->get_name(), "inside");
    EXPECT_EQ(Fenwa::HostAccess::configuration(*block).getString("sensor_name"), "main");
}

TEST_F(FactoryTest, BuildsAMonitorOfTheTemperatureWhichReadsItWithTheTools) {
    recorders.tools.reply_next(recorders.messages.reply("i", 3));
    recorders.tools.reply_next(recorders.messages.reply("d", 20.0));
    const auto block = factory("TemperatureMonitor")("inside", config, tools);
    EXPECT_NE(dynamic_cast<blocks::TemperatureMonitor*>(block.get()), nullptr);
    EXPECT_EQ(block->get_name(), "inside");
    EXPECT_EQ(Fenwa::HostAccess::configuration(*block).getString("sensor_name"), "main");
    EXPECT_TRUE(block->setup({}).getBool("temperature_ok"));
    EXPECT_EQ(recorders.bus.take_journal().size(), 2U);
}

TEST_F(FactoryTest, BuildsAConsumerOfPower) {
    const auto block = factory("PowerConsumer")("budget", {{"power", 2.5}}, tools);
    EXPECT_NE(dynamic_cast<blocks::PowerConsumer*>(block.get()), nullptr);
    EXPECT_EQ(block->get_name(), "budget");
    EXPECT_EQ(Fenwa::HostAccess::configuration(*block).getDouble("power"), 2.5);
    EXPECT_EQ(recorders.log.take().size(), 1U);
}

TEST_F(FactoryTest, BuildsAMonitorOfThePowerWhichReadsItWithTheTools) {
    recorders.tools.reply_next(recorders.messages.reply("d", 12.0));
    const auto block = factory("PowerMonitor")("supply", {{"requested_power", 12.0}}, tools);
    EXPECT_NE(dynamic_cast<blocks::PowerMonitor*>(block.get()), nullptr);
    EXPECT_EQ(block->get_name(), "supply");
    EXPECT_EQ(Fenwa::HostAccess::configuration(*block).getDouble("requested_power"), 12.0);
    EXPECT_TRUE(block->setup({}).getBool("power_ok"));
    EXPECT_EQ(recorders.bus.take_journal().size(), 1U);
}

TEST_F(FactoryTest, BuildsControlsOnTheScreen) {
    const auto block = factory("OnScreenControls")("wdr", {{"channel", 2}}, tools);
    EXPECT_NE(dynamic_cast<blocks::OnScreenControls*>(block.get()), nullptr);
    EXPECT_EQ(block->get_name(), "wdr");
    EXPECT_EQ(Fenwa::HostAccess::configuration(*block).getInt("channel"), 2);
}

TEST_F(FactoryTest, BuildsASetterOfATextOnTheVideo) {
    const auto block = factory("PrioritizedTextOverlaySetter")("alarm", {{"duration", 5}}, tools);
    EXPECT_NE(dynamic_cast<blocks::PrioritizedTextOverlaySetter*>(block.get()), nullptr);
    EXPECT_EQ(block->get_name(), "alarm");
    EXPECT_EQ(Fenwa::HostAccess::configuration(*block).getInt("duration"), 5);
}

TEST_F(FactoryTest, BuildsAVideoReadyWhichLooksAtItsUnitWithTheTools) {
    recorders.tools.reply_next(recorders.messages.reply("s", "enabled"));
    const auto block = factory("VideoReady")("ready", {{"channel", 2}}, tools);
    EXPECT_NE(dynamic_cast<blocks::VideoReady*>(block.get()), nullptr);
    EXPECT_EQ(block->get_name(), "ready");
    EXPECT_EQ(Fenwa::HostAccess::configuration(*block).getInt("channel"), 2);
    EXPECT_TRUE(block->setup({}).getBool("no_video_at_startup"));
    EXPECT_EQ(recorders.bus.take_journal().size(), 1U);
}

TEST_F(FactoryTest, DoesNotHandTheToolsToABlockThatTakesNone) {
    const auto block = factory("TemperatureReader")("inside", config, tools);
    EXPECT_THROW((void)block->get_tools(), std::logic_error);
}

TEST_F(FactoryTest, AcceptsAnEmptyInstanceName) {
    EXPECT_EQ(factory("TemperatureReader")("", config, tools)->get_name(), "");
}

TEST_F(FactoryTest, MakesANewBlockEachTime) {
    const auto first = factory("TemperatureReader")("one", config, tools);
    const auto second = factory("TemperatureReader")("two", config, tools);
    EXPECT_NE(first, second);
    EXPECT_EQ(first->get_name(), "one");
}

TEST_F(FactoryTest, LetsTheExceptionOfAConstructorOut) {
    EXPECT_THROW((void)factory("TemperatureReader")("inside", {}, tools),
                 Fenwa::ConfigurationError);
}

/// Blocks that say how they were built.
struct Plain : Fenwa::Block {
    Plain(std::string name, const Fenwa::BlockConfiguration& given)
        : Block(std::move(name), given) {}
    const Fenwa::InitTools* handed = nullptr;
};
struct WithTools : Plain {
    WithTools(std::string name, const Fenwa::BlockConfiguration& given,
              const Fenwa::InitTools& given_tools)
        : Plain(std::move(name), given) {
        handed = &given_tools;
    }
};

TEST_F(FactoryTest, PassesTheToolsToABlockWhoseConstructorTakesThem) {
    registry.register_block<Plain>("Plain");
    registry.register_block<WithTools>("WithTools");
    const auto plain = factory("Plain")("a", config, tools);
    const auto with_tools = factory("WithTools")("b", config, tools);
    EXPECT_EQ(static_cast<Plain&>(*plain).handed, nullptr);
    EXPECT_EQ(static_cast<Plain&>(*with_tools).handed, &tools);
}

}  // namespace
