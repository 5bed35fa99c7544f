#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "fenwa/callback.hpp"
#include "fenwa/slot.hpp"
#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

/// Two connections that talk to each other without a bus in between.
class ConnectedPair {
  public:
    ConnectedPair() {
        std::array<int, 2> ends{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) < 0)
            support::check(-errno);
        served_.reset(open(ends[0]));
        calling_.reset(open(ends[1]));
        support::check(sd_bus_set_server(served(), 1, sd_id128_t{}));
        support::check(sd_bus_start(served()));
        support::check(sd_bus_start(calling_.get()));
    }

    /// The end on which objects are exported.
    [[nodiscard]] sd_bus* served() const { return served_.get(); }

    /// Calls a method from the other end. @returns the reply: its string where it holds one, "()"
    /// where it holds nothing, "ERROR: TEXT", or "no reply".
    template <class... Values>
    std::string call(const char* path, const char* interface, const char* member, const char* types,
                     Values... values) {
        sd_bus_message* made = nullptr;
        support::check(sd_bus_message_new_method_call(calling_.get(), &made, nullptr, path,
                                                      interface, member));
        const support::Message message(made);
        support::check(sd_bus_message_append(message, types, values...));
        reply_ = "no reply";
        Fenwa::Slot slot;
        support::check(sd_bus_call_async(calling_.get(), slot.out(), message,
                                         Fenwa::Callback<&ConnectedPair::keep>::call, this, 0));
        for (int round = 0; round < 1000 && reply_ == "no reply"; ++round) {
            const int here = sd_bus_process(served(), nullptr);
            const int there = sd_bus_process(calling_.get(), nullptr);
            support::check(here);
            support::check(there);
            if (here == 0 && there == 0)
                support::check(sd_bus_wait(served(), 10'000));
        }
        return reply_;
    }

  private:
    using Connection = Fenwa::Handle<sd_bus, sd_bus_close_unref>;

    static sd_bus* open(int end) {
        sd_bus* bus = nullptr;
        support::check(sd_bus_new(&bus));
        support::check(sd_bus_set_fd(bus, end, end));
        return bus;
    }

    void keep(sd_bus_message* reply) {
        const char* text = nullptr;
        if (const sd_bus_error* const error = sd_bus_message_get_error(reply))
            reply_ = std::string(error->name) + ": " + error->message;
        else if (sd_bus_message_read(reply, "s", &text) > 0)
            reply_ = text;
        else
            reply_ = "()";
    }

    Connection served_;
    Connection calling_;
    std::string reply_;
};

/// Has a consumer whose object can really be called.
class PowerConsumerConnectionTest : public PowerConsumerTest {
  protected:
    ~PowerConsumerConnectionTest() override { (void)destroy(); }

    void SetUp() override {
        recorders.tools.use_bus(pair.served());
        make();
    }

    template <class... Values>
    std::string call_object(const char* types, Values... values) {
        return pair.call("/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer",
                         "SetPower", types, values...);
    }

    ConnectedPair pair;
};

TEST_F(PowerConsumerConnectionTest, LetsTheControllerGrantPower) {
    EXPECT_EQ(call_object("d", 2.5), "()");
    EXPECT_EQ(take(), (Journal{fired, "answer \"\"() = 1"}));
    EXPECT_EQ(run_woken(), (Journal{owner_match, publication("2.5"), registration}));
}

TEST_F(PowerConsumerConnectionTest, IsNotCalledWithAnotherSignature) {
    const std::string refused = "org.freedesktop.DBus.Error.InvalidArgs: ";
    EXPECT_TRUE(call_object("s", "much").starts_with(refused));
    EXPECT_TRUE(call_object("").starts_with(refused));
    EXPECT_TRUE(call_object("dd", 1.0, 2.0).starts_with(refused));
    EXPECT_EQ(take(), Journal{});
    EXPECT_EQ(call_object("d", 1e300), "()") << "sd-bus goes on as before";
    EXPECT_EQ(take(), (Journal{fired, "answer \"\"() = 1"}));
}

TEST_F(PowerConsumerConnectionTest, DescribesOneMethodThatAnyoneMayCall) {
    const std::string description = pair.call(
        "/com/tarlo/Vipd/PowerConsumer", "org.freedesktop.DBus.Introspectable", "Introspect", "");
    const auto begin = description.find(" <interface name=\"com.tarlo.");
    ASSERT_NE(begin, std::string::npos) << description;
    EXPECT_EQ(description.substr(begin),
              " <interface name=\"com.tarlo.Vipd.PowerConsumer\">\n"
              "  <method name=\"SetPower\">\n"
              "   <arg type=\"d\" direction=\"in\"/>\n"
              "  </method>\n"
              " </interface>\n"
              "</node>\n");
    EXPECT_EQ(LayoutProbe::exported_methods()[1].flags, SD_BUS_VTABLE_UNPRIVILEGED);
}

TEST_F(PowerConsumerConnectionTest, TakesItsObjectAlongWhenDestroyed) {
    (void)destroy();
    EXPECT_EQ(call_object("d", 2.5),
              "org.freedesktop.DBus.Error.UnknownObject: Unknown object "
              "'/com/tarlo/Vipd/PowerConsumer'.");
}

}  // namespace
