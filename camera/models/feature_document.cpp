#include "camera/models/feature_document.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/text/json_node.hpp"

namespace camera {
namespace {

using nlohmann::json;
using Node = common::JsonNode<json>;

std::string name_of(const Node& node) {
    std::string text = node.string();
    if (text.empty())
        throw common::JsonError(node.place() + " is a name and must not be empty");
    // Names are D-Bus strings too, which end at the first zero byte.
    if (text.find('\0') != std::string::npos)
        throw common::JsonError(node.place() + " is a name and must not contain a zero byte");
    return text;
}

Button button_from(const Node& node) {
    for (const Node& user : node.member("user").elements())
        (void)user.string();
    (void)node.member("info").string();
    (void)node.member("requestPayload").string();
    (void)node.member("response").boolean();
    return {name_of(node.member("name")),
            node.member("niceName").string(),
            {node.member("requestType").string(), node.member("requestURL").string()}};
}

Feature feature_from(const Node& root) {
    Feature feature{name_of(root.member("name")), root.member("niceName").string(), {}};
    (void)root.member("featureGroups").elements();
    for (const Node& node : root.member("features").elements()) {
        Button button = button_from(node);
        if (std::ranges::find(feature.buttons, button.name, &Button::name) != feature.buttons.end())
            throw common::JsonError(fmt::format("{} is '{}', the name of another button",
                                                node.member("name").place(), button.name));
        feature.buttons.push_back(std::move(button));
    }
    return feature;
}

}  // namespace

Feature feature_from_document(std::string_view document) {
    if (document.size() > max_document_bytes)
        throw BadDocument(fmt::format("The document is longer than {} bytes.", max_document_bytes));
    const std::string what = "The document";
    try {
        const json tree = common::parse_json<json>(document, what);
        return feature_from({tree, what});
    } catch (const common::JsonError& error) {
        throw BadDocument(std::string(error.what()) + ".");
    }
}

}  // namespace camera
