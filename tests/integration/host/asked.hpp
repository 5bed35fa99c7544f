#pragma once

#include <gtest/gtest.h>

#include "common/bus/callback.hpp"
#include "tests/integration/host/bus_client.hpp"

namespace test {

/// The service that Hearer asks, which replies when the test asks for it.
class Asked : public BusClient {
  public:
    explicit Asked(const std::string& address) : BusClient(address) {
        common::check(
            sd_bus_add_filter(&bus(), nullptr, common::callback<&Asked::on_message>, this),
            "filter");
        own("com.example.Asked");
    }

    /// Waits for a question since the last answer.
    void wait_for_question() {
        serve_until([this] { return question_ != nullptr; });
        ASSERT_NE(question_, nullptr);
    }
    void answer() {
        common::check(sd_bus_reply_method_return(question_.get(), ""), "reply");
        common::check(sd_bus_flush(&bus()), "flush");
        question_.reset();
    }

  private:
    int on_message(sd_bus_message& message) {
        if (sd_bus_message_is_method_call(&message, "com.example.Asked1", "Ask") <= 0)
            return 0;
        question_.reset(sd_bus_message_ref(&message));
        return 1;
    }

    common::MessagePtr question_;
};

}  // namespace test
