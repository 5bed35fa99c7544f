#pragma once

#include <string>
#include <vector>

#include "common/text/json.hpp"

namespace common {

/// A value of JSON from elsewhere with its place, which is checked before it is used. Each function
/// throws JsonError, with the place, where the value is of another kind. Refers to the value, which
/// must outlive it.
template <class AnyJson = Json>
class JsonNode {
  public:
    /// The whole of it; `what` names it in sentences: "the answer".
    JsonNode(const AnyJson& value, std::string what) : value_(value), what_(std::move(what)) {}

    /// A member of an object, which must have it.
    [[nodiscard]] JsonNode member(const std::string& key) const {
        require(value_.is_object(), "an object");
        const auto it = value_.find(key);
        if (it == value_.end())
            throw JsonError(place() + " has no '" + key + "'");
        return {*it, what_, pointer_ + '/' + key};
    }
    /// The elements of an array, in their order.
    [[nodiscard]] std::vector<JsonNode> elements() const {
        require(value_.is_array(), "an array");
        std::vector<JsonNode> nodes;
        for (std::size_t i = 0; i < value_.size(); ++i)
            nodes.push_back({value_[i], what_, pointer_ + '/' + std::to_string(i)});
        return nodes;
    }
    [[nodiscard]] std::string string() const {
        require(value_.is_string(), "a string");
        return value_.template get<std::string>();
    }
    [[nodiscard]] bool boolean() const {
        require(value_.is_boolean(), "a boolean");
        return value_.template get<bool>();
    }
    /// The object itself, for members of any name.
    [[nodiscard]] const AnyJson& object() const {
        require(value_.is_object(), "an object");
        return value_;
    }

    /// "'/features/0/name'", or the name of the whole of it.
    [[nodiscard]] std::string place() const {
        return pointer_.empty() ? what_ : "'" + pointer_ + "'";
    }

  private:
    JsonNode(const AnyJson& value, std::string what, std::string pointer)
        : value_(value), what_(std::move(what)), pointer_(std::move(pointer)) {}

    void require(bool right, const char* wanted) const {
        if (right)
            return;
        const std::string kind = value_.type_name();
        const bool counted = kind != "null";
        const bool vowel = kind == "object" || kind == "array";
        throw JsonError(place() + " must be " + wanted + ", not " +
                        (counted ? (vowel ? "an " : "a ") : "") + kind);
    }

    const AnyJson& value_;
    std::string what_;
    std::string pointer_;
};

}  // namespace common
