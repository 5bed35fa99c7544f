#pragma once

#include <string>

namespace test {

/// The feature document "WDRn" of a channel n (from 1), as the block publishes it, with the buttons
/// "activateWDRn" and "deactivateWDRn", which make a request of `type` for the channel's parameter.
inline std::string wdr_document(int n, const std::string& type = "GET") {
    const std::string number = std::to_string(n);
    const auto button = [&](const std::string& info, const std::string& name,
                            const std::string& title, const std::string& value) {
        return R"({"info":")" + info + " on channel " + number + R"(","name":")" + name + number +
               R"(","niceName":")" + title + ' ' + number +
               R"(","requestPayload":"JSON","requestType":")" + type +
               R"(","requestURL":"/tarlo-cgi/param.cgi?action=update&ImageSource.I)" +
               std::to_string(n - 1) + ".Sensor.WDR=" + value +
               R"(","response":false,"user":["operator"]})";
    };
    return R"({"featureGroups":[],"features":[)" +
           button("Turn on WDR to make both dark and bright areas of the image visible",
                  "activateWDR", "Turn on WDR", "on") +
           ',' + button("Turn off WDR", "deactivateWDR", "Turn off WDR", "off") +
           R"(],"name":"WDR)" + number + R"(","niceName":"WDR )" + number + R"("})";
}

}  // namespace test
