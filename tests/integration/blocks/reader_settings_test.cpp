#include <gmock/gmock.h>

#include "tests/integration/blocks/reader_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;

/// A reader that is switched to a fake temperature and back while readings come.
class ReaderSettings : public ReaderScene {
  protected:
    /// @param fake switches the reader to this fake temperature; empty switches it back.
    template <class Switch>
    void switch_while_readings_come(Switch&& fake) {
        open({.host_options = {"--control"}});
        start_host();
        wait_for_output("36.5");
        reading("40");
        wait_for_output("40.0");
        fake("48.5");
        wait_for_output("48.5");
        reading("42");
        fake("52");
        wait_for_output("52.0");
        reading("44");
        fake("");
        wait_for_output("44.0");
        reading("46");
        wait_for_output("46.0");
        close();
        // Readings that come in between are kept, and only the newest one comes back.
        EXPECT_THAT(events("output"), ElementsAre(reading_event("36.5"), reading_event("40.0"),
                                                  reading_event("48.5"), reading_event("52.0"),
                                                  reading_event("44.0"), reading_event("46.0")));
        EXPECT_EQ(ended().code, 0);
    }

  private:
    /// The sensor gets this temperature, and the reader has been told.
    void reading(const std::string& value) {
        camera({"set", "temperature.main", value});
        wait_for_camera(R"("event":"signal")");
        settle();
    }
};

TEST_F(ReaderSettings, ChangeWithTheGraphFile) {
    switch_while_readings_come([this](const std::string& value) {
        reload(
            reader_with("sensor_name = \"main\"\ndelta_chg = 0.5\n" +
                        (value.empty() ? "" : "fake = { active = true, value = " + value + " }")));
    });
}

TEST_F(ReaderSettings, ChangeOverTheBus) {
    switch_while_readings_come([this](const std::string& value) {
        if (value.empty())
            fenwa({"set", "reader", "fake.active=false"});
        else
            fenwa({"set", "reader", "fake.active=true", "fake.value=" + value});
    });
}

}  // namespace
}  // namespace test
