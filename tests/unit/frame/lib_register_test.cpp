#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "fenwa/registry.hpp"
#include "framework/shared/block_registry.hpp"
#include "tests/support/allocation_counter.hpp"
#include "tests/unit/block_fixture.hpp"

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
        const std::size_t before = support::allocations();
        const Fenwa::BlockFactory copy = factory;  // NOLINT(performance-*): the copy is the point
        EXPECT_EQ(support::allocations(), before) << type_name << "'s factory is on the heap";
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

template <class T>
bool is_a(const Fenwa::Block& block) {
    return dynamic_cast<const T*>(&block) != nullptr;
}

/// A type of block, a setting for it, and the replies to the blocking calls of its constructor.
struct TypeCase : support::NamedCase {
    bool (*is_of_type)(const Fenwa::Block&);
    Fenwa::BlockConfiguration::KeyValue setting;
    std::vector<support::MakeMessage> replies;
};

class EachFactoryTest : public FactoryTest, public testing::WithParamInterface<TypeCase> {};

TEST_P(EachFactoryTest, BuildsABlockOfItsTypeWithItsNameItsConfigurationAndTheTools) {
    for (const support::MakeMessage& reply : GetParam().replies)
        recorders.tools.reply_next(reply(recorders.messages));
    const auto& setting = GetParam().setting;
    const auto block =
        factory(GetParam().name)("inside", config + Fenwa::BlockConfiguration{setting}, tools);
    EXPECT_TRUE(GetParam().is_of_type(*block));
    EXPECT_EQ(block->get_name(), "inside");
    const auto* const value =
        Fenwa::ConfigurationAccess::find(Fenwa::HostAccess::configuration(*block), setting.key());
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(*value, setting.value());
    EXPECT_EQ(recorders.bus.take_journal().size(), GetParam().replies.size());
    (void)recorders.log.take();
}

const TypeCase type_cases[] = {
    {"OnScreenControls", is_a<blocks::OnScreenControls>, {"channel", 2}, {}},
    {"PowerConsumer", is_a<blocks::PowerConsumer>, {"power", 2.5}, {}},
    {"PowerMonitor",
     is_a<blocks::PowerMonitor>,
     {"requested_power", 12.0},
     {support::reply_of("d", 12.0)}},
    {"PrioritizedTextOverlaySetter",
     is_a<blocks::PrioritizedTextOverlaySetter>,
     {"duration", 5},
     {}},
    {"TemperatureMonitor",
     is_a<blocks::TemperatureMonitor>,
     {"low_on_temp", 5.0},
     {support::reply_of("i", 3), support::reply_of("d", 20.0)}},
    {"TemperatureReader", is_a<blocks::TemperatureReader>, {"delta_chg", 0.25}, {}},
    {"VideoReady", is_a<blocks::VideoReady>, {"channel", 2}, {support::reply_of("s", "enabled")}},
};

INSTANTIATE_TEST_SUITE_P(Types, EachFactoryTest, testing::ValuesIn(type_cases),
                         support::case_name<TypeCase>);

TEST_F(FactoryTest, DoesNotHandTheToolsToABlockThatTakesNone) {
    const auto block = factory("TemperatureReader")("inside", config, tools);
    EXPECT_THROW((void)block->get_tools(), std::logic_error);
}

TEST_F(FactoryTest, MakesANewBlockEachTimeUnderAnyName) {
    const auto first = factory("TemperatureReader")("one", config, tools);
    const auto second = factory("TemperatureReader")("", config, tools);
    EXPECT_EQ(first->get_name(), "one");
    EXPECT_EQ(second->get_name(), "");
}

TEST_F(FactoryTest, LetsTheExceptionOfAConstructorOut) {
    EXPECT_THROW((void)factory("TemperatureReader")("inside", {}, tools),
                 Fenwa::ConfigurationError);
}

/// Blocks that keep the tools of their constructor.
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
