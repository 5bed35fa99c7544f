// A program under the name of a host may answer anything.
#include <atomic>
#include <thread>

#include "common/bus/callback.hpp"
#include "host/control/names.hpp"
#include "tests/integration/host/bus_client.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// A program that owns the name of the control interface and answers every call of it with one
/// text, on a thread of its own until the object goes.
class FalseHost : public BusClient {
  public:
    FalseHost(const std::string& address, std::string answer)
        : BusClient(address), answer_(std::move(answer)) {
        common::check(
            sd_bus_add_filter(&bus(), nullptr, common::callback<&FalseHost::on_call>, this),
            "filter");
        own(host::control_name);
        thread_ = std::thread([this] {
            while (!ends_)
                serve_until([this] { return ends_.load(); });
        });
    }
    ~FalseHost() {
        ends_ = true;
        thread_.join();
    }

  private:
    int on_call(sd_bus_message& call) {
        if (sd_bus_message_is_method_call(&call, host::control_interface, nullptr) <= 0)
            return 0;
        sd_bus_reply_method_return(&call, "s", answer_.c_str());
        return 1;
    }

    std::string answer_;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

class UnknownAnswer : public HostTest {
  protected:
    /// Expects that each command that asks a host for its description refuses this answer.
    static void expect_refused(const std::string& answer,
                               const std::vector<Words>& commands = {{"graph", "--control"},
                                                                     {"watch"}},
                               const std::string& reason = "") {
        const FalseHost host(bus(), answer);
        for (const Words& words : commands) {
            const Ended ended = fenwa(words + Words{"--bus", bus()});
            EXPECT_EQ(ended.code, 69) << words.front() << answer.substr(0, 100);
            EXPECT_EQ(ended.out, "") << words.front() << answer.substr(0, 100);
            EXPECT_TRUE(ended.err.starts_with("fenwa: the host's answer makes no sense: " + reason))
                << ended.err.substr(0, 200);
        }
    }

    static std::string nested(std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    }
    static std::string with_value(const std::string& value) {
        return R"({"blocks":[{"name":"b","type":"T","settings":{},"inputs":[],)"
               R"("terminated_inputs":[],"outputs":[{"name":"o","type":"int","value":)" +
               value + R"(}]}],"connections":[]})";
    }
};

TEST_F(UnknownAnswer, DeeplyNestedIsRefused) {
    expect_refused(nested(1'000'000));
    expect_refused(with_value(nested(100'000)));
}

TEST_F(UnknownAnswer, OfAnotherFormIsRefused) {
    for (const char* answer :
         {"", "no JSON", "null", "[]", "{}", "7", R"({"blocks":7,"connections":[]})",
          R"({"blocks":[{"name":5}],"connections":[]})",
          R"({"blocks":[{"type":"T"}],"connections":[]})", R"({"blocks":[[]],"connections":[]})",
          R"({"blocks":[7],"connections":[]})"})
        expect_refused(answer, {{"graph", "--control"}, {"watch"}, {"status"}});
    for (const char* status : {"7", "{}", R"({"runs":1})", R"({"runs":"many"})"})
        expect_refused(
            R"({"blocks":[{"name":"b","type":"T","status":)" + std::string(status) + "}]}",
            {{"status"}});
    for (const char* value : {R"({"ticks":1})", R"({"ticks":[]})"})
        expect_refused(with_value(value), {{"graph", "--control"}}, "it has an unknown form\n");
}

TEST_F(UnknownAnswer, WithANumberThatIsNoneOfItsTypeIsRefused) {
    for (const char* value : {"5.555e+38", "2147483648", "-2147483649", "36.6", "true", R"("7 ")"})
        expect_refused(with_value(value), {{"watch"}});
    expect_refused(with_value("2147483648"), {{"watch"}},
                   "2147483648 is not a number of its type\n");
    for (const char* runs : {"-1", "18446744073709551616", "0.5"})
        expect_refused(R"({"blocks":[{"name":"b","type":"T","status":{"runs":)" +
                           std::string(runs) + R"(,"published":0}}]})",
                       {{"status"}});
}

}  // namespace
}  // namespace test
