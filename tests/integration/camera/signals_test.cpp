#include <gmock/gmock.h>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ControllerSignals : public CameraScene {
  protected:
    void SetUp() override {
        open();
        client_ = std::make_unique<BusClient>(address());
        client_->listen();
    }

    /// Sets the sensor "main" and gives the signals that came of it: all of them, because the
    /// answer to a call comes behind every signal that was sent before it.
    Lines set(const std::string& temperature) {
        client_->forget();
        handle({"set", "temperature.main", "--", temperature});
        client_->send("GetTemperatureIdFromName", "s", "main");
        Lines heard;
        do
            heard = client_->wait_for(heard.size() + 1);
        while (!heard.back().starts_with("GetTemperatureIdFromName"));
        heard.pop_back();
        return heard;
    }

    std::string change(double delta) {
        return client_->call("RegisterForTemperatureChangeSignal", "id", 3, delta);
    }
    std::string limit(double limit, bool rising) {
        return client_->call("RegisterForTemperatureSignal", "idb", 3, limit, rising ? 1 : 0);
    }

    std::unique_ptr<BusClient> client_;
};

TEST_F(ControllerSignals, WithoutARegistrationThereAreNone) {
    EXPECT_THAT(set("100"), IsEmpty());
}

TEST_F(ControllerSignals, ChangesRespectTheThreshold) {
    EXPECT_EQ(change(0.5), "(1)");
    EXPECT_THAT(set("36.5"), IsEmpty());
    EXPECT_THAT(set("36.75"), IsEmpty());
    EXPECT_THAT(set("37"), ElementsAre("TemperatureChangeSignal(1, 37.0)"));
    EXPECT_THAT(set("36.625"), IsEmpty());
    EXPECT_THAT(set("36"), ElementsAre("TemperatureChangeSignal(1, 36.0)"));
    EXPECT_THAT(set("nan"), ElementsAre("TemperatureChangeSignal(1, \"nan\")"));
    EXPECT_THAT(set("nan"), IsEmpty());
    EXPECT_THAT(set("inf"), ElementsAre("TemperatureChangeSignal(1, \"inf\")"));
}

TEST_F(ControllerSignals, AThresholdOfZeroReportsEveryChange) {
    EXPECT_EQ(change(0.0), "(1)");
    EXPECT_THAT(set("36.5"), IsEmpty());
    EXPECT_THAT(set("36.50001"), ElementsAre("TemperatureChangeSignal(1, 36.50001)"));
}

TEST_F(ControllerSignals, LimitsRespectTheDirection) {
    EXPECT_EQ(limit(60.0, true), "(1, false)");
    EXPECT_EQ(limit(30.0, false), "(2, false)");
    EXPECT_THAT(set("60"), IsEmpty());
    EXPECT_THAT(set("60.5"), ElementsAre("TemperatureSignal(1)"));
    EXPECT_THAT(set("70"), IsEmpty());
    EXPECT_THAT(set("59"), IsEmpty());
    EXPECT_THAT(set("61"), ElementsAre("TemperatureSignal(1)"));
    EXPECT_THAT(set("30"), ElementsAre("TemperatureSignal(2)"));
    EXPECT_THAT(set("20"), IsEmpty());
    EXPECT_THAT(set("nan"), IsEmpty());
    EXPECT_THAT(set("31"), IsEmpty());
    EXPECT_THAT(set("-5"), ElementsAre("TemperatureSignal(2)"));
}

TEST_F(ControllerSignals, AreBroadcastInTheOrderOfRegistration) {
    BusClient other(address());
    other.listen();
    EXPECT_EQ(change(1.0), "(1)");
    EXPECT_EQ(other.call("RegisterForTemperatureSignal", "idb", 3, 60.0, 1), "(2, false)");
    EXPECT_EQ(other.call("RegisterForTemperatureChangeSignal", "id", 4, 0.0), "(3)");
    EXPECT_EQ(change(0.0), "(4)");
    const Lines all = {"TemperatureChangeSignal(1, 70.0)", "TemperatureSignal(2)",
                       "TemperatureChangeSignal(4, 70.0)"};
    EXPECT_EQ(set("70"), all);
    EXPECT_EQ(other.wait_for(3), all);
}

TEST_F(ControllerSignals, EndWithTheClientThatWantedThem) {
    const std::string leaver = [this] {
        BusClient other(address());
        EXPECT_EQ(other.call("RegisterForTemperatureChangeSignal", "id", 3, 0.0), "(1)");
        EXPECT_EQ(other.call("RegisterForTemperatureSignal", "idb", 3, 60.0, 1), "(2, false)");
        return other.unique_name();
    }();
    ASSERT_TRUE(camera().wait_for_text("\"dropped\""));
    EXPECT_EQ(change(1.0), "(3)");
    EXPECT_THAT(set("70"), ElementsAre("TemperatureChangeSignal(3, 70.0)"));
    EXPECT_THAT(with("\"dropped\"", told()),
                ElementsAre(R"({"event":"dropped","service":"temperature","client":")" + leaver +
                            R"(","registrations":2})"));
}

TEST_F(ControllerSignals, AClientThatLeavesWithoutARegistrationIsNoNews) {
    {
        BusClient other(address());
        EXPECT_EQ(other.call("GetTemperatureIdFromName", "s", "main"), "(3)");
    }
    EXPECT_THAT(set("70"), IsEmpty());
    close();
    EXPECT_THAT(with("\"dropped\"", told()), IsEmpty());
}

TEST_F(ControllerSignals, OfAServiceThatIsDownAreNotSent) {
    EXPECT_EQ(change(0.0), "(1)");
    handle({"stop", "temperature"});
    handle({"set", "temperature.main", "70"});
    handle({"start", "temperature"});
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "main"), "(70.0)");
    close();
    EXPECT_THAT(with("\"signal\"", told()), IsEmpty());
}

}  // namespace
}  // namespace test
