#include "host/check/probe.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <unordered_set>
#include <utility>

#include "fenwa/sdbus_error.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"

namespace host {

using common::Diagnostics;

namespace {

using Value = Fenwa::BlockConfiguration::Value;

/// The type of a default as a getter names it. An integer may be the default of a float.
struct TypeOfDefault {
    const char* operator()(bool) const { return "bool"; }
    const char* operator()(std::int64_t) const { return "number"; }
    const char* operator()(double) const { return "double"; }
    const char* operator()(const std::string&) const { return "string"; }
    const char* operator()(const std::vector<std::string>&) const { return "string"; }
};

/// The mistake in the value of a key that the block does not read just now, compared with the
/// block's default for it; empty if a getter would accept it.
std::optional<Fenwa::ConfigurationError> check_type(const std::string& key, const Value& value,
                                                    const Value& fallback) {
    const auto is_number = [](const Value& v) {
        return std::holds_alternative<std::int64_t>(v) || std::holds_alternative<double>(v);
    };
    const auto is_text = [](const Value& v) {
        return std::holds_alternative<std::string>(v) ||
               std::holds_alternative<std::vector<std::string>>(v);
    };
    if (value.index() == fallback.index() || (is_number(value) && is_number(fallback)) ||
        (is_text(value) && is_text(fallback)))
        return std::nullopt;
    return Fenwa::ConfigurationError(key, std::visit(TypeOfDefault{}, fallback),
                                     Fenwa::ConfigurationAccess::describe(value));
}

/// A value that more blocks accept than a zero.
Value plausible_value(const std::string& type) {
    if (type == "bool")
        return true;
    if (type == "string")
        return std::string("1");
    return std::int64_t{1};
}

}  // namespace

std::string describe_unread_key(const UnreadKey& unread, const BlockEntry& entry) {
    return fmt::format("{} does not read the key '{}'", entry.type.value, unread.key);
}

void KeyRecorder::on_read(const Fenwa::KeyRead& read) {
    if (on_read_)
        on_read_(read);
    if (!was_read(read.key))
        read_.push_back(read.key);
    (in_reconfigure_ ? live_ : read_when_built_).insert(read.key);
    if (const auto& value = read.found ? read.found : read.fallback) {
        values_.insert_or_assign(read.key, *value);
        if (read.type == "bool" && std::holds_alternative<bool>(*value))
            booleans_.insert_or_assign(read.key, std::get<bool>(*value));
    }
}

std::vector<Fenwa::BlockConfiguration::KeyValue> KeyRecorder::toggled_booleans() const {
    std::vector<Fenwa::BlockConfiguration::KeyValue> toggled;
    for (const auto& [key, value] : booleans_)
        toggled.emplace_back(key, !value);
    return toggled;
}

Fenwa::BlockConfiguration KeyRecorder::values() const {
    std::vector<Fenwa::BlockConfiguration::KeyValue> entries;
    for (const auto& [key, value] : values_)
        entries.emplace_back(key, value);
    return Fenwa::BlockConfiguration(entries);
}

std::optional<Value> KeyRecorder::on_error(const Fenwa::ConfigurationError& error) {
    has_made_up_ = true;
    if (error.missing())
        missing_.push_back(error.key());
    if (on_mistake_)
        on_mistake_(error);
    if (made_up_ == MadeUpValue::zero || !error.missing())
        return Value();
    return plausible_value(error.wanted());
}

bool KeyRecorder::has_unread_keys(const BlockEntry& entry) const {
    return std::any_of(entry.settings.begin(), entry.settings.end(),
                       [this](const Setting& setting) { return is_unread(setting); });
}

std::vector<UnreadKey> KeyRecorder::unread_keys(const BlockEntry& entry,
                                                common::Suggester& suggester) const {
    std::vector<UnreadKey> unread;
    for (const Setting& setting : entry.settings) {
        if (!is_unread(setting))
            continue;
        std::string help = suggester.did_you_mean(setting.key, read_);
        if (help.empty() && setting.is_unreadable_array())
            help = array_help;
        unread.push_back({setting.key, setting.location, std::move(help)});
    }
    return unread;
}

std::vector<UnreadKey> KeyRecorder::near_misses(const BlockEntry& entry,
                                                common::Suggester& suggester) const {
    std::vector<UnreadKey> misses;
    for (const Setting& setting : entry.settings) {
        std::string help = suggester.did_you_mean(setting.key, missing_);
        if (!help.empty() && !was_read(setting.key))
            misses.push_back({setting.key, setting.location, std::move(help)});
    }
    return misses;
}

ProbedBlock::ProbedBlock(const Fenwa::BlockFactory& factory, const std::string& name,
                         const Fenwa::BlockConfiguration& config, ProbeTools& tools,
                         const std::function<void(const char*)>& on_phase) {
    const auto enter = [&](const char* next) {
        phase = next;
        if (on_phase)
            on_phase(next);
    };
    try {
        enter("its constructor");
        block = factory(name, config, tools.tools);
        if (block == nullptr)
            return;
        Fenwa::HostAccess::adopt(*block, tools.tools, tools.queue);
        enter("setup");
        settings = block->setup(Fenwa::HostAccess::configuration(*block));
    } catch (...) {
        failure = std::current_exception();
    }
}

std::string message_of(const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "something that is not a std::exception";
    }
}

Probe::Probe(const BlockEntry& entry, const BlockTypes& types, Diagnostics& diagnostics,
             Strictness strictness, ProbeProgress progress)
    : entry_(entry),
      types_(types),
      diagnostics_(diagnostics),
      strictness_(strictness),
      progress_(std::move(progress)) {}

void Probe::enter(const char* phase, Depth depth) {
    depth_ = depth;
    if (progress_.on_phase)
        progress_.on_phase(phase, depth);
}

void Probe::on_mistake(const Fenwa::ConfigurationError& error) {
    const bool exploring = depth_ != Depth::build;
    if (!exploring && progress_.on_made_up_value)
        progress_.on_made_up_value();
    const Setting* const setting = entry_.find(error.key());
    // A setting without a value was reported when it was read. A key that is missing in an
    // exploratory reconfiguration may belong to a change of settings that never came.
    if (setting == nullptr ? !exploring : setting->value.has_value())
        report(error, entry_, diagnostics_);
}

bool Probe::build() {
    factory_ = types_.find(entry_, diagnostics_);
    if (factory_ == nullptr)
        return false;
    recorder_ = std::make_shared<KeyRecorder>(
        [this](const Fenwa::ConfigurationError& error) { on_mistake(error); });
    ProbedBlock probed(*factory_, entry_.name,
                       Fenwa::ConfigurationAccess::observed(entry_.configuration(), recorder_),
                       tools_, [this](const char* phase) { enter(phase, Depth::build); });
    if (probed.failure != nullptr) {
        if (recorder_->made_up_a_value())
            for (const UnreadKey& miss : recorder_->near_misses(entry_, diagnostics_.suggester()))
                warn(miss);
        else
            report_mistakes(probed);
        enter("its destructor", Depth::build);
        return false;
    }
    if (probed.block == nullptr) {
        diagnostics_.error(entry_.location, fmt::format("the factory of {} returned no block",
                                                        display_name(entry_)));
        return false;
    }
    // Settings that follow from a made-up value are not the block's mistake.
    Diagnostics discarded({});
    terminations_ = Terminations(probed.settings, *probed.block, entry_,
                                 recorder_->made_up_a_value() ? discarded : diagnostics_);
    block_ = std::move(probed.block);
    return true;
}

ConnectableBlock Probe::block() const {
    return block_ == nullptr ? ConnectableBlock() : ConnectableBlock{block_.get(), &terminations_};
}

void Probe::destroy() {
    enter("its destructor", Depth::build);
    block_.reset();
}

void Probe::find_unread_keys() {
    if (!recorder_->has_unread_keys(entry_))
        return;
    reconfigure(*block_, recorder_, Depth::reconfigure);
    const std::vector<UnreadKey> unread = recorder_->unread_keys(entry_, diagnostics_.suggester());
    if (unread.empty())
        return;
    // A second block without these keys shows which of them it has defaults for. A recorder carries
    // it over its mistakes, which are reported already.
    std::unordered_set<std::string> unread_names;
    for (const UnreadKey& key : unread)
        unread_names.insert(key.key);
    BlockEntry read;
    for (const Setting& setting : entry_.settings) {
        if (unread_names.count(setting.key) == 0)
            read.add(setting);
    }
    const ProbedBlock probed(
        *factory_, entry_.name,
        Fenwa::ConfigurationAccess::observed(read.configuration(), std::make_shared<KeyRecorder>()),
        tools_, [this](const char* phase) { enter(phase, Depth::reconfigure); });
    for (const UnreadKey& key : unread) {
        const Fenwa::BlockConfiguration::Value* const fallback =
            probed.block == nullptr ? nullptr
                                    : Fenwa::ConfigurationAccess::find(
                                          Fenwa::HostAccess::configuration(*probed.block), key.key);
        if (fallback == nullptr) {
            warn(key);
            unread_.push_back(key);
        } else if (const auto error =
                       check_type(key.key, *entry_.find(key.key)->value, *fallback)) {
            report(*error, entry_, diagnostics_);
        }
    }
    enter("its destructor", Depth::reconfigure);
}

void Probe::find_live_keys(Depth depth) {
    if (recorder_->live_keys().empty())
        reconfigure(*block_, recorder_, Depth::reconfigure);
    live_ = recorder_->live_keys();
    const std::vector<Fenwa::BlockConfiguration::KeyValue> toggled = recorder_->toggled_booleans();
    if (depth != Depth::toggle || toggled.empty() || !may_read_more_keys())
        return;
    const auto recorder = std::make_shared<KeyRecorder>();
    const Fenwa::BlockConfiguration config =
        Fenwa::HostAccess::configuration(*block_) + Fenwa::BlockConfiguration(toggled);
    const ProbedBlock probed(*factory_, entry_.name,
                             Fenwa::ConfigurationAccess::observed(config, recorder), tools_,
                             [this](const char* phase) { enter(phase, Depth::toggle); });
    if (probed.block != nullptr && probed.failure == nullptr)
        reconfigure(*probed.block, recorder, Depth::toggle);
    live_->insert(recorder->live_keys().begin(), recorder->live_keys().end());
    enter("its destructor", Depth::toggle);
}

void Probe::reconfigure(Fenwa::Block& block, const std::shared_ptr<KeyRecorder>& recorder,
                        Depth depth) {
    enter("reconfigure", depth);
    recorder->enter_reconfigure();
    try {
        const Fenwa::BlockConfiguration config =
            Fenwa::ConfigurationAccess::observed(Fenwa::HostAccess::configuration(block), recorder);
        block.reconfigure(config, config);
    } catch (...) {
        // The keys that it read before are recorded.
    }
}

/// Whether the block has a default for a key that it has not read yet.
bool Probe::may_read_more_keys() const {
    const auto& settings =
        Fenwa::ConfigurationAccess::entries(Fenwa::HostAccess::configuration(*block_));
    return std::any_of(settings.begin(), settings.end(), [this](const auto& setting) {
        const std::string& key = setting.key();
        return keys_read_when_built().count(key) == 0 && live_->count(key) == 0 &&
               std::none_of(unread_.begin(), unread_.end(),
                            [&key](const UnreadKey& unread) { return unread.key == key; });
    });
}

void Probe::warn(const UnreadKey& unread) {
    diagnostics_.warning(unread.location, describe_unread_key(unread, entry_), unread.help);
}

void Probe::report_mistakes(const ProbedBlock& probed) {
    try {
        std::rethrow_exception(probed.failure);
    } catch (const Fenwa::ConfigurationError& error) {
        report(error, entry_, diagnostics_);
    } catch (const Fenwa::SDBusError&) {
        if (strictness_ == Strictness::alone)
            diagnostics_.warning(
                entry_.location,
                display_name(entry_) + " cannot be checked: it needs a bus to be built");
    } catch (...) {
        if (strictness_ != Strictness::before_a_run)
            report_throw(probed);
    }
}

void Probe::report_throw(const ProbedBlock& probed) {
    diagnostics_.error(entry_.location, fmt::format("{} threw in {}: {}", display_name(entry_),
                                                    probed.phase, message_of(probed.failure)));
    threw_ = true;
}

void report(const Fenwa::ConfigurationError& error, const BlockEntry& entry,
            Diagnostics& diagnostics) {
    const Setting* const setting = entry.find(error.key());
    diagnostics.error(entry.location_of(error.key()),
                      fmt::format("{}: {}", display_name(entry), error.what()),
                      setting != nullptr && setting->is_unreadable_array() ? array_help : "");
}

}  // namespace host
