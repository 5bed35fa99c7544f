#include "camera/models/parameter_store.hpp"

#include <gmock/gmock.h>

#include "camera/models/command_error.hpp"

namespace camera {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

const std::string wdr0 = "ImageSource.I0.Sensor.WDR";
const std::string wdr1 = "ImageSource.I1.Sensor.WDR";
const std::string cgi = "/tarlo-cgi/param.cgi";
const std::string update = cgi + "?action=update&";

class Parameters : public ::testing::Test {
  protected:
    [[nodiscard]] std::string values() const {
        return store_.by_name(wdr0).value + ' ' + store_.by_name(wdr1).value;
    }

    ParameterStore store_{2};
};

TEST_F(Parameters, AnUpdateMaySetSeveralInItsOrder) {
    EXPECT_THAT(store_.request(
                    "GET", cgi + "?" + wdr1 + "=on&action=update&" + wdr0 + "=on&" + wdr1 + "=off"),
                ElementsAre(Pair(wdr1, "on"), Pair(wdr0, "on"), Pair(wdr1, "off")));
    EXPECT_EQ(values(), "on off");
}

TEST_F(Parameters, EscapesOfAQueryAreUndone) {
    (void)store_.request("GET", update + "ImageSource%2eI0%2ESensor.WDR=%6fn");
    EXPECT_EQ(values(), "on off");
}

struct Refused {
    std::string url, sentence, type = "GET";
};
void PrintTo(const Refused& refused, std::ostream* out) {
    *out << refused.type << ' ' << refused.url;
}

class RefusedRequests : public Parameters, public ::testing::WithParamInterface<Refused> {};

TEST_P(RefusedRequests, ChangeNothing) {
    try {
        (void)store_.request(GetParam().type, GetParam().url);
        ADD_FAILURE() << "it is served";
    } catch (const CommandError& refusal) {
        EXPECT_EQ(refusal.what(), GetParam().sentence);
    }
    EXPECT_EQ(values(), "off off");
}

INSTANTIATE_TEST_SUITE_P(
    Each, RefusedRequests,
    ::testing::Values(
        Refused{update + wdr0 + "=o%6",
                "'o%6' is not a valid value of '" + wdr0 + "': expected on or off"},
        Refused{update + wdr0 + "=%6gn+%",
                "'%6gn %' is not a valid value of '" + wdr0 + "': expected on or off"},
        Refused{update + "ImageSource.I0.Sensor.WRD=on",
                "unknown parameter 'ImageSource.I0.Sensor.WRD'; did you mean '" + wdr0 + "'?"},
        Refused{update + "Brightness=on", "unknown parameter 'Brightness'"},
        Refused{update + wdr0 + "=on&" + wdr1 + "=maybe",
                "'maybe' is not a valid value of '" + wdr1 + "': expected on or off"},
        Refused{update + wdr0 + "=on", "unsupported request type 'POST': expected 'GET'", "POST"},
        Refused{"/tarlo-cgi/params.cgi?action=update&" + wdr0 + "=on",
                "unknown path '/tarlo-cgi/params.cgi': expected '" + cgi + "'"},
        Refused{"", "unknown path '': expected '" + cgi + "'"},
        Refused{cgi, "the request needs 'action=update'"},
        Refused{cgi + "?" + wdr0 + "=on", "the request needs 'action=update'"},
        Refused{cgi + "?action=list&" + wdr0 + "=on", "unknown action 'list': expected 'update'"},
        Refused{update, "the request needs a parameter to update"},
        Refused{update + wdr0, "'" + wdr0 + "' in the request is not NAME=VALUE"}));

}  // namespace
}  // namespace camera
