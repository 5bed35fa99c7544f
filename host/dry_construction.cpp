#include "host/dry_construction.hpp"

#include <unordered_set>
#include <utility>

#include "fenwa/sdbus_error.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"
#include "framework/shared/log_sink.hpp"
#include "host/activity.hpp"
#include "host/log_to_stderr.hpp"

namespace host {

using tool::Diagnostics;

namespace {

using Value = Fenwa::BlockConfiguration::Value;

/// The type of a default, as the getter that asks for it would name it. An integer may be the
/// default of a float.
struct TypeOfDefault {
    const char* operator()(bool) const { return "bool"; }
    const char* operator()(std::int64_t) const { return "number"; }
    const char* operator()(double) const { return "double"; }
    const char* operator()(const std::string&) const { return "string"; }
    const char* operator()(const std::vector<std::string>&) const { return "string"; }
};

/// What is wrong with the value of a key that the block does not ask for just now, seen from the
/// default that it has for it; nothing where a getter would take it.
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

}  // namespace

Silence::Silence(Scope scope) : scope_(scope) {
    if (scope_ == Scope::whole_process)
        Fenwa::set_log_sink([](int, const std::string&) {});
}

Silence::~Silence() {
    if (scope_ == Scope::whole_process)
        Fenwa::set_log_sink(log_to_stderr);
}

DryBlock::DryBlock(const Fenwa::BlockFactory& factory, const std::string& name,
                   const Fenwa::BlockConfiguration& config, DryTools& tools,
                   const std::function<void(const char*)>& on_phase) {
    std::optional<Activity> activity;
    const auto enter = [&](const char* next) {
        phase = next;
        activity.emplace("block", name.c_str(), next);
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

std::string describe(const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "something that is no std::exception";
    }
}

DryConstruction::~DryConstruction() {
    while (!kept_.empty())
        kept_.pop_back();
}

ConnectableBlock DryConstruction::build(const BlockEntry& entry) {
    const Fenwa::BlockFactory* const factory = types_.find(entry, diagnostics_);
    if (factory == nullptr)
        return {};
    const auto recorder =
        std::make_shared<KeyRecorder>([this, &entry](const Fenwa::ConfigurationError& error) {
            const Setting* const setting = entry.find(error.key());
            // A kind of value that no block can be given was reported when it was read.
            if (setting == nullptr || setting->value)
                report(error, entry, diagnostics_);
        });
    DryBlock dry(*factory, entry.name,
                 Fenwa::ConfigurationAccess::observed(entry.configuration(), recorder), tools_);
    if (dry.failure != nullptr) {
        if (recorder->invented_a_value())
            for (const UnreadKey& miss : recorder->near_misses(entry))
                warn(miss, entry);
        else
            complain(entry, dry);
        return {};
    }
    if (dry.block == nullptr) {
        diagnostics_.error(entry.where, "the factory of " + describe(entry) + " gave no block");
        return {};
    }
    find_unread_keys(*recorder, entry, *factory);
    // What a block makes of a value that is not in the file is no mistake of its own.
    Diagnostics unheard({});
    Terminations terminations(dry.settings, *dry.block, entry,
                              recorder->invented_a_value() ? unheard : diagnostics_);
    const Kept& kept = kept_.emplace_back(Kept{std::move(dry.block), std::move(terminations)});
    return {kept.block.get(), &kept.terminations};
}

void DryConstruction::find_unread_keys(const KeyRecorder& recorder, const BlockEntry& entry,
                                       const Fenwa::BlockFactory& factory) {
    const std::vector<UnreadKey> unread = recorder.unread_keys(entry);
    if (unread.empty())
        return;
    // Without them the block tells which of them it has defaults for. It is recorded once more, so
    // that it gets over its mistakes, which are known.
    std::unordered_set<std::string> unread_names;
    for (const UnreadKey& key : unread)
        unread_names.insert(key.key);
    BlockEntry read;
    for (const Setting& setting : entry.settings) {
        if (unread_names.count(setting.key) == 0)
            read.add(setting);
    }
    const DryBlock dry(
        factory, entry.name,
        Fenwa::ConfigurationAccess::observed(read.configuration(), std::make_shared<KeyRecorder>()),
        tools_);
    for (const UnreadKey& key : unread) {
        const Fenwa::BlockConfiguration::Value* const fallback =
            dry.block == nullptr ? nullptr
                                 : Fenwa::ConfigurationAccess::find(
                                       Fenwa::HostAccess::configuration(*dry.block), key.key);
        if (fallback == nullptr) {
            warn(key, entry);
            unread_.push_back(key);
        } else if (const auto error = check_type(key.key, *entry.find(key.key)->value, *fallback)) {
            report(*error, entry, diagnostics_);
        }
    }
}

void DryConstruction::warn(const UnreadKey& unread, const BlockEntry& entry) {
    diagnostics_.warning(unread.where, describe(unread, entry), unread.help);
}

void DryConstruction::complain(const BlockEntry& entry, const DryBlock& dry) {
    try {
        std::rethrow_exception(dry.failure);
    } catch (const Fenwa::ConfigurationError& error) {
        report(error, entry, diagnostics_);
    } catch (const Fenwa::SDBusError&) {
        if (strictness_ == Strictness::alone)
            diagnostics_.warning(
                entry.where, describe(entry) + " cannot be checked: it needs a bus to be built");
        else if (strictness_ == Strictness::in_a_run)
            complain_of_throw(entry, dry);
    } catch (...) {
        if (strictness_ != Strictness::before_a_run)
            complain_of_throw(entry, dry);
    }
}

void DryConstruction::complain_of_throw(const BlockEntry& entry, const DryBlock& dry) {
    diagnostics_.error(entry.where,
                       describe(entry) + " threw in " + dry.phase + ": " + describe(dry.failure));
    ++throws_;
}

void report(const Fenwa::ConfigurationError& error, const BlockEntry& entry,
            Diagnostics& diagnostics) {
    diagnostics.error(entry.where_is(error.key()), describe(entry) + ": " + error.what());
}

}  // namespace host
