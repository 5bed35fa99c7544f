#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <new>

#include "fenwa/debug_data.hpp"
#include "fenwa/registry.hpp"
#include "fenwa/sdbus_error.hpp"
#include "framework/shared/debug_data_store.hpp"
#include "tests/abi/vtable.hpp"

namespace {

using abi_test::call_slot;
using abi_test::entry;
using Names = std::vector<std::string>;

/// Tools that say which of their operations was called, and with what.
class SpeakingTools final : public Fenwa::SDBusTools {
  public:
    ~SpeakingTools() override { destroyed = true; }

    void call_method(const char* destination, const char* path, const char* interface,
                     const char* member, sd_bus_message** reply, const char* types, ...) override {
        std::va_list arguments;
        va_start(arguments, types);
        const char* const text = va_arg(arguments, const char*);
        const double number = va_arg(arguments, double);
        const int integer = va_arg(arguments, int);
        va_end(arguments);
        said = {"call_method",
                destination,
                path,
                interface,
                member,
                types,
                text,
                std::to_string(number),
                std::to_string(integer)};
        *reply = reinterpret_cast<sd_bus_message*>(this);
    }
    void get_property(const char* destination, const char* path, const char* interface,
                      const char* member, sd_bus_message** reply, const char* type) override {
        said = {"get_property", destination, path, interface, member, type};
        *reply = reinterpret_cast<sd_bus_message*>(this);
    }
    sd_bus* get_bus() override { return reinterpret_cast<sd_bus*>(this); }

    Names said;
    static inline bool destroyed = false;
};

TEST(SDBusToolsSlotsTest, Slot2IsCallMethodWithItsArguments) {
    SpeakingTools tools;
    sd_bus_message* reply = nullptr;
    using CallMethod = void(void*, const char*, const char*, const char*, const char*,
                            sd_bus_message**, const char*, ...);
    entry<CallMethod>(&tools, 2)(&tools, "a.b", "/a", "a.I", "Do", &reply, "sdi", "text", 0.5, 7);
    EXPECT_EQ(tools.said,
              (Names{"call_method", "a.b", "/a", "a.I", "Do", "sdi", "text", "0.500000", "7"}));
    EXPECT_EQ(static_cast<void*>(reply), &tools);
}

TEST(SDBusToolsSlotsTest, Slot3IsGetProperty) {
    SpeakingTools tools;
    sd_bus_message* reply = nullptr;
    call_slot<void, const char*, const char*, const char*, const char*, sd_bus_message**,
              const char*>(&tools, 3, "a.b", "/a", "a.I", "Power", &reply, "d");
    EXPECT_EQ(tools.said, (Names{"get_property", "a.b", "/a", "a.I", "Power", "d"}));
    EXPECT_EQ(static_cast<void*>(reply), &tools);
}

TEST(SDBusToolsSlotsTest, Slot4IsGetBus) {
    SpeakingTools tools;
    EXPECT_EQ(static_cast<void*>(call_slot<sd_bus*>(&tools, 4)), &tools);
}

TEST(SDBusToolsSlotsTest, Slots0And1AreTheDestructors) {
    alignas(SpeakingTools) std::byte memory[sizeof(SpeakingTools)];
    SpeakingTools::destroyed = false;
    call_slot<void>(new (memory) SpeakingTools, 0);
    EXPECT_TRUE(SpeakingTools::destroyed);
    SpeakingTools::destroyed = false;
    call_slot<void>(new SpeakingTools, 1);
    EXPECT_TRUE(SpeakingTools::destroyed);
}

TEST(RegistrySlotsTest, Slot0IsRegisterFactory) {
    struct : Fenwa::IRegistry {
        void register_factory(const std::string& type_name,
                              const Fenwa::BlockFactory& factory) override {
            names.push_back(type_name);
            last = &factory;
        }
        Names names;
        const Fenwa::BlockFactory* last = nullptr;
    } registry;
    const Fenwa::BlockFactory factory;
    call_slot<void, const std::string&, const Fenwa::BlockFactory&>(&registry, 0, "Type", factory);
    EXPECT_EQ(registry.names, (Names{"Type"}));
    EXPECT_EQ(registry.last, &factory);
}

/// An error that says when it is destroyed.
class SpeakingError final : public Fenwa::SDBusError {
  public:
    SpeakingError() : SDBusError("a.b.C", "message", -EIO) {}
    ~SpeakingError() override { destroyed = true; }
    static inline bool destroyed = false;
};

TEST(SDBusErrorSlotsTest, AreDestructorsAndWhat) {
    Fenwa::SDBusError error("a.b.C", "message", -EIO);
    EXPECT_STREQ(call_slot<const char*>(&error, 2), "a.b.C: message");
    alignas(SpeakingError) std::byte memory[sizeof(SpeakingError)];
    call_slot<void>(new (memory) SpeakingError, 0);
    EXPECT_TRUE(SpeakingError::destroyed);
    SpeakingError::destroyed = false;
    call_slot<void>(new SpeakingError, 1);
    EXPECT_TRUE(SpeakingError::destroyed);
}

TEST(DebugDataSlotsTest, Slot0RegistersABlock) {
    const Fenwa::Block block("listed", {});
    const Fenwa::BlockConfiguration config;
    {
        const auto registered =
            call_slot<Fenwa::RegisteredBlock, const Fenwa::Block&, const Fenwa::BlockConfiguration&,
                      const Fenwa::BlockConfiguration&>(&Fenwa::debug_data(), 0, block, config,
                                                        config);
        EXPECT_EQ(Fenwa::debug_data_blocks(), (Names{"listed"}));
    }
    EXPECT_EQ(Fenwa::debug_data_blocks(), Names{});
}

TEST(DebugDataSlotsTest, Slots1And2ReadAndSetAValue) {
    Fenwa::DebugDataStore& store = Fenwa::debug_data();
    call_slot<void, std::string, Fenwa::DebugValue>(&store, 2, "key", 36.5F);
    const auto value =
        call_slot<std::optional<Fenwa::DebugValue>, const std::string&>(&store, 1, "key");
    EXPECT_EQ(value, Fenwa::DebugValue(36.5F));
    EXPECT_EQ(store.get_value("key"), Fenwa::DebugValue(36.5F));
}

}  // namespace
