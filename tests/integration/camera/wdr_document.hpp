#pragma once

#include <string>

namespace test {

/// The feature document "WDRn" of a channel n (from 1) with the buttons "activateWDRn" and
/// "deactivateWDRn", which make a request of `type` for the parameter of the channel.
inline std::string wdr_document(int n, const std::string& type = "GET") {
    const std::string number = std::to_string(n);
    const auto button = [&](const std::string& name, const std::string& title,
                            const std::string& value) {
        return R"({"info":"","name":")" + name + number + R"(","niceName":")" + title + ' ' +
               number + R"(","requestPayload":"JSON","requestType":")" + type +
               R"(","requestURL":"/tarlo-cgi/param.cgi?action=update&ImageSource.I)" +
               std::to_string(n - 1) + ".Sensor.WDR=" + value +
               R"(","response":false,"user":["operator"]})";
    };
    return R"({"featureGroups":[],"features":[)" + button("activateWDR", "Turn on WDR", "on") +
           ',' + button("deactivateWDR", "Turn off WDR", "off") + R"(],"name":"WDR)" + number +
           R"(","niceName":"WDR )" + number + R"("})";
}

}  // namespace test
