#include "fenwa/testkit/fake_service.hpp"

#include <gtest/gtest.h>

#include "fenwa/fenwa.hpp"
#include "fenwa/testkit/testkit.hpp"

namespace {

using Fenwa::testkit::BlockDriver;
using Fenwa::testkit::Call;
using Fenwa::testkit::FakeService;
using Fenwa::testkit::PrivateBus;

using Calls = std::vector<Call>;

constexpr Fenwa::BusService lamp{"a.Lamp", "/a/Lamp", "a.Lamp1"};

/// Calls the lamp, follows its signal and its owner.
class LampUser : public Fenwa::Block {
  public:
    using Fenwa::Block::Block;

    void start() override {
        sd_bus* const bus = Fenwa::bus_of(*this);
        EXPECT_GE((Fenwa::match_signal_async<&LampUser::on_level, &LampUser::on_installed>(
                      bus, signal_, lamp, "Level", *this)),
                  0);
        EXPECT_GE((Fenwa::match_rule_async<&LampUser::on_owner, &LampUser::on_installed>(
                      bus, owner_,
                      "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
                      "arg0='a.Lamp'",
                      *this)),
                  0);
        EXPECT_GE(Fenwa::call_async<&LampUser::on_reply>(bus, call_, lamp, "Set", *this, "d", 0.5),
                  0);
    }

    int installed = 0;
    int replies = 0;
    std::string reply;
    std::vector<int> levels;
    std::vector<bool> owned;

  private:
    void on_installed(sd_bus_message* /*answer*/) { ++installed; }
    void on_reply(sd_bus_message* message) {
        ++replies;
        if (const sd_bus_error* error = sd_bus_message_get_error(message)) {
            reply = std::string(error->name) + ": " + error->message;
            return;
        }
        const char* text = nullptr;
        if (sd_bus_message_read(message, "s", &text) > 0)
            reply = text;
    }
    void on_level(sd_bus_message* message) {
        int level = 0;
        if (sd_bus_message_read(message, "i", &level) > 0)
            levels.push_back(level);
    }
    void on_owner(sd_bus_message* message) {
        const char* new_owner = nullptr;
        if (sd_bus_message_read(message, "sss", nullptr, nullptr, &new_owner) > 0)
            owned.push_back(*new_owner != '\0');
    }

    Fenwa::Slot signal_;
    Fenwa::Slot owner_;
    Fenwa::Slot call_;
};

class FakeServiceTest : public testing::Test {
  protected:
    PrivateBus bus;
    FakeService service{bus, "a.Lamp"};
};

TEST_F(FakeServiceTest, AnswersAnAsynchronousCallAndRecordsIt) {
    service.answer("Set", {"s", "done"});
    BlockDriver<LampUser> user(bus.tools());
    user.start();
    EXPECT_TRUE(user.wait_until([&] { return user->reply == "done"; })) << user->reply;
    EXPECT_EQ(service.take_calls(), (Calls{{"a.Lamp", "/a/Lamp", "a.Lamp1", "Set", "d 0.5"}}));
}

TEST_F(FakeServiceTest, SendsTheErrorOfARefusalOrOfACallThatItDoesNotKnow) {
    BlockDriver<LampUser> user(bus.tools());
    user.start();
    EXPECT_TRUE(user.wait_until([&] {
        return user->reply ==
               "org.freedesktop.DBus.Error.UnknownMethod: Nothing was said about 'Set'";
    })) << user->reply;
    service.refuse("Set", "a.Error", "no");
    user.start();
    EXPECT_TRUE(user.wait_until([&] { return user->reply == "a.Error: no"; })) << user->reply;
}

TEST_F(FakeServiceTest, LeavesACallThatItIgnoresWithoutAnAnswer) {
    service.ignore("Set");
    BlockDriver<LampUser> user(bus.tools());
    user.start();
    EXPECT_TRUE(user.wait_until([&] { return service.call_count() == 1; }));
    EXPECT_FALSE(
        user.wait_until([&] { return user->replies != 0; }, std::chrono::milliseconds(50)));
}

TEST_F(FakeServiceTest, SendsSignals) {
    service.answer("Set", {"s", "done"});
    BlockDriver<LampUser> user(bus.tools());
    user.start();
    ASSERT_TRUE(user.wait_until([&] { return user->installed == 2; }));
    service.emit("/a/Lamp", "a.Lamp1", "Level", {"i", 3});
    service.emit("/a/Lamp", "a.Lamp1", "Level", {"i", 4});
    EXPECT_TRUE(user.wait_until([&] { return user->levels == std::vector{3, 4}; }));
    EXPECT_THROW(service.emit("no path", "a.Lamp1", "Level"), std::system_error);
}

TEST_F(FakeServiceTest, LeavesTheBusAndComesBack) {
    BlockDriver<LampUser> user(bus.tools());
    user.start();
    ASSERT_TRUE(user.wait_until([&] { return user->installed == 2; }));
    service.leave();
    EXPECT_TRUE(user.wait_until([&] { return user->owned == std::vector{false}; }));
    service.come_back();
    EXPECT_TRUE(user.wait_until([&] { return user->owned == std::vector{false, true}; }));
}

TEST_F(FakeServiceTest, AnswersTheBlockingCallsOfABlock) {
    service.answer("Get", {"s", "blue"});
    service.set_property("Level", {"i", 7});
    Fenwa::Message reply;
    bus.tools().call_method("a.Lamp", "/a/Lamp", "a.Lamp1", "Get", reply.out(), "b", 1);
    const char* color = nullptr;
    ASSERT_GT(sd_bus_message_read(reply.get(), "s", &color), 0);
    EXPECT_STREQ(color, "blue");
    int level = 0;
    bus.tools().get_property("a.Lamp", "/a/Lamp", "a.Lamp1", "Level", reply.out(), "i");
    ASSERT_GT(sd_bus_message_read(reply.get(), "i", &level), 0);
    EXPECT_EQ(level, 7);
    service.refuse("Level", "a.Error", "dark");
    EXPECT_THROW(
        bus.tools().get_property("a.Lamp", "/a/Lamp", "a.Lamp1", "Level", reply.out(), "i"),
        Fenwa::SDBusError);
    EXPECT_EQ(service.take_calls().front(),
              (Call{"a.Lamp", "/a/Lamp", "a.Lamp1", "Get", "b true"}));
}

TEST_F(FakeServiceTest, SaysWhenItsNameIsTaken) {
    EXPECT_THROW(FakeService(bus, "a.Lamp"), std::system_error);
    const FakeService other(bus, "b.Lamp");
}

}  // namespace
