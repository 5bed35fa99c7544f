#include "camera/feature_document.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace camera {
namespace {

using nlohmann::json;

/// A value of the document with the JSON pointer that leads there.
class Node {
  public:
    Node(const json& value, std::string pointer) : value_(value), pointer_(std::move(pointer)) {}

    [[nodiscard]] Node member(const char* key) const {
        require(value_.is_object(), "an object");
        const auto it = value_.find(key);
        if (it == value_.end())
            throw BadDocument(place() + " has no '" + key + "'.");
        return {*it, pointer_ + '/' + key};
    }
    [[nodiscard]] std::vector<Node> elements() const {
        require(value_.is_array(), "an array");
        std::vector<Node> nodes;
        for (std::size_t i = 0; i < value_.size(); ++i)
            nodes.emplace_back(value_[i], pointer_ + '/' + std::to_string(i));
        return nodes;
    }
    [[nodiscard]] std::string string() const {
        require(value_.is_string(), "a string");
        return value_.get<std::string>();
    }
    [[nodiscard]] std::string name() const {
        std::string text = string();
        if (text.empty())
            throw BadDocument(place() + " is a name and must not be empty.");
        // Names are D-Bus strings too, which end at the first zero byte.
        if (text.find('\0') != std::string::npos)
            throw BadDocument(place() + " is a name and must not hold a zero byte.");
        return text;
    }
    void boolean() const { require(value_.is_boolean(), "a boolean"); }

    /// "'/features/0/name'", or "The document" for the whole of it.
    [[nodiscard]] std::string place() const {
        return pointer_.empty() ? "The document" : "'" + pointer_ + "'";
    }

  private:
    void require(bool right, const char* wanted) const {
        if (right)
            return;
        const std::string kind = value_.type_name();
        const bool counted = kind != "null";
        const bool vowel = kind == "object" || kind == "array";
        throw BadDocument(place() + " must be " + wanted + ", not " +
                          (counted ? (vowel ? "an " : "a ") : "") + kind + ".");
    }

    const json& value_;
    std::string pointer_;
};

json parsed(std::string_view document) {
    try {
        return json::parse(document);
    } catch (const json::parse_error& error) {
        // The library's text has its own error number in front, and line and column, which say
        // little of a document that is one line.
        std::string reason = error.what();
        if (const std::size_t at = reason.find(": "); at != std::string::npos)
            reason.erase(0, at + 2);
        throw BadDocument("The document is not JSON, see byte " + std::to_string(error.byte) +
                          ": " + reason + ".");
    }
}

Button read_button(const Node& node) {
    for (const Node& user : node.member("user").elements())
        (void)user.string();
    (void)node.member("info").string();
    (void)node.member("requestPayload").string();
    node.member("response").boolean();
    return {node.member("name").name(),
            node.member("niceName").string(),
            {node.member("requestType").string(), node.member("requestURL").string()}};
}

}  // namespace

Feature read_feature(std::string_view document) {
    if (document.size() > max_document_bytes)
        throw BadDocument("The document is longer than " + std::to_string(max_document_bytes) +
                          " bytes.");
    const json tree = parsed(document);
    const Node root(tree, "");
    Feature feature{root.member("name").name(), root.member("niceName").string(), {}};
    (void)root.member("featureGroups").elements();
    for (const Node& node : root.member("features").elements()) {
        Button button = read_button(node);
        if (std::ranges::find(feature.buttons, button.name, &Button::name) != feature.buttons.end())
            throw BadDocument(node.member("name").place() + " is '" + button.name +
                              "', as another button's name is.");
        feature.buttons.push_back(std::move(button));
    }
    return feature;
}

}  // namespace camera
