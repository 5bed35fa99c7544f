#include "host/check/type_explorer.hpp"

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace host {
namespace {

using common::Json;
using Fenwa::BlockConfiguration;
using Kind = Misbehaviour::Kind;
using Settings = std::map<std::string, BlockConfiguration::Value>;

/// Blocks built of one type at most, and boolean keys that are toggled at once.
constexpr int most_attempts = 64;
constexpr std::size_t most_turned = 3;

/// A value that more blocks take than a zero.
BlockConfiguration::Value plausible_value(const std::string& type) {
    if (type == "bool")
        return true;
    if (type == "string")
        return std::string("1");
    return std::int64_t{1};
}

BlockConfiguration configuration(const Settings& settings) {
    std::vector<BlockConfiguration::KeyValue> entries;
    for (const auto& [key, value] : settings)
        entries.emplace_back(key, value);
    return BlockConfiguration(entries);
}

const char* kind_name(Kind kind) {
    switch (kind) {
        case Kind::threw:
            return "threw";
        case Kind::crashed:
            return "crashed";
        case Kind::hung:
            return "hung";
    }
    return "";
}

class TypeExplorer {
  public:
    explicit TypeExplorer(const TryBlock& try_block) : try_block_(try_block) {}

    Json explore() {
        variants_.emplace_back();
        while (!variants_.empty() && attempts_ < most_attempts && !hung_) {
            const Settings toggled = std::move(variants_.front());
            variants_.pop_front();
            look_at(toggled);
        }
        // In the order of a whole description; a list that nothing was found for is there too.
        Json type = Json::object();
        for (const char* list :
             {"inputs", "outputs", "event_ports", "terminated_inputs", "exports"})
            type[list] = std::move(found_[list]);
        type["keys"] = std::move(keys_);
        type["settings"] = std::move(settings_);
        type["failures"] = std::move(failures_);
        return type;
    }

  private:
    /// Builds the block with these boolean keys toggled.
    void look_at(const Settings& toggled) {
        BlockSeen seen;
        for (bool again = true; again;) {
            Settings given = plausible_;
            for (const auto& [key, value] : toggled)
                given.insert_or_assign(key, value);
            seen = try_block_(configuration(given));
            ++attempts_;
            take_keys(seen.keys, given, toggled);
            again =
                seen.misbehaviour && attempts_ < most_attempts && make_values_up(seen.keys, given);
        }
        if (seen.misbehaviour)
            fail(*seen.misbehaviour, toggled);
        for (const KeySeen& key : seen.keys) {
            if (!seen.misbehaviour)
                settled_.insert(key.key);
        }
        if (!seen.block.is_null())
            take_block(seen.block, toggled);
    }

    /// @returns whether the block was given a zero that may have been its trouble.
    bool make_values_up(const std::vector<KeySeen>& keys, const Settings& given) {
        bool any = false;
        for (const KeySeen& seen : keys) {
            if (seen.fallback.is_null() && seen.found.is_null() && given.count(seen.key) == 0 &&
                settled_.count(seen.key) == 0)
                any = plausible_.emplace(seen.key, plausible_value(seen.type)).second || any;
        }
        return any;
    }

    void take_keys(const std::vector<KeySeen>& keys, const Settings& given,
                   const Settings& toggled) {
        for (const KeySeen& seen : keys) {
            if (given.count(seen.key) != 0)  // what was found there is our own
                continue;
            // What stands there without being given is a default that the block has laid below.
            const Json& value = seen.found.is_null() ? seen.fallback : seen.found;
            const auto known = std::find_if(keys_.begin(), keys_.end(), [&seen](const Json& key) {
                return key["key"] == seen.key;
            });
            if (known != keys_.end()) {
                if (value.is_null())
                    require(*known);
                continue;
            }
            Json key = {{"key", seen.key}, {"type", seen.type}, {"required", false}};
            key["default"] = value;
            if (value.is_null())
                require(key);
            add_condition(key, toggled);
            keys_.push_back(std::move(key));
            if (seen.type == "bool" && toggled.size() < most_turned) {
                Settings variant = toggled;
                variant.emplace(seen.key, value != Json(true));
                variants_.push_back(std::move(variant));
            }
        }
    }

    static void require(Json& key) {
        key["required"] = true;
        key.erase("default");
    }

    /// Adds to each list what is not in it yet.
    void take_block(const Json& block, const Settings& toggled) {
        for (auto& [list, known] : found_.items()) {
            for (Json item : block[list]) {
                const bool is_known =
                    std::any_of(known.begin(), known.end(), [&](const Json& other) {
                        return list == std::string("exports")
                                   ? other["path"] == item["path"] &&
                                         other["interface"] == item["interface"]
                                   : other["name"] == item["name"];
                    });
                if (is_known)
                    continue;
                add_condition(item, toggled);
                known.push_back(std::move(item));
            }
        }
        if (!std::exchange(has_settings_, true))
            settings_ = block["settings"];
    }

    void fail(const Misbehaviour& misbehaviour, const Settings& toggled) {
        hung_ = hung_ || misbehaviour.kind == Kind::hung;
        Json failure = {{"kind", kind_name(misbehaviour.kind)}, {"text", misbehaviour.text}};
        add_condition(failure, toggled);
        failures_.push_back(std::move(failure));
    }

    static void add_condition(Json& item, const Settings& toggled) {
        for (const auto& [key, value] : toggled)
            item["when"][key] = std::get<bool>(value);
    }

    const TryBlock& try_block_;
    std::deque<Settings> variants_;  ///< boolean keys that are still to be toggled
    Settings plausible_;             ///< for required keys whose zero was not taken
    std::set<std::string> settled_;  ///< keys whose values a block has been built with
    int attempts_ = 0;
    bool hung_ = false;
    bool has_settings_ = false;
    Json found_ = {{"inputs", Json::array()},
                   {"outputs", Json::array()},
                   {"event_ports", Json::array()},
                   {"terminated_inputs", Json::array()},
                   {"exports", Json::array()}};
    Json keys_ = Json::array();
    Json settings_ = Json::object();
    Json failures_ = Json::array();
};

}  // namespace

Json explore_type(const TryBlock& try_block) {
    return TypeExplorer(try_block).explore();
}

bool behaved(const Json& type) {
    const Json& failures = type["failures"];
    return std::none_of(failures.begin(), failures.end(), [](const Json& failure) {
        return !failure.contains("when") || failure["kind"] != "threw";
    });
}

}  // namespace host
