#include "host/check/probe.hpp"

#include <unordered_set>
#include <utility>

#include "fenwa/sdbus_error.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"

namespace host {

using common::Diagnostics;

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

ProbedBlock::ProbedBlock(const Fenwa::BlockFactory& factory, const std::string& name,
                         const Fenwa::BlockConfiguration& config, DryTools& tools,
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

std::string describe(const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "something that is not a std::exception";
    }
}

Probe::Probe(const BlockEntry& entry, const BlockTypes& types, Diagnostics& diagnostics,
             Strictness strictness, DryProgress progress)
    : entry_(entry),
      types_(types),
      diagnostics_(diagnostics),
      strictness_(strictness),
      progress_(std::move(progress)) {}

void Probe::enter(const char* phase, bool exploring) {
    exploring_ = exploring;
    if (progress_.on_phase)
        progress_.on_phase(phase, exploring);
}

void Probe::on_mistake(const Fenwa::ConfigurationError& error) {
    if (!exploring_ && progress_.on_invented)
        progress_.on_invented();
    const Setting* const setting = entry_.find(error.key());
    // A kind of value that no block can be given was reported when it was read. Without settings
    // that have changed there may be nothing to reconfigure with.
    if (setting == nullptr ? !exploring_ : setting->value.has_value())
        report(error, entry_, diagnostics_);
}

bool Probe::build() {
    factory_ = types_.find(entry_, diagnostics_);
    if (factory_ == nullptr)
        return false;
    recorder_ = std::make_shared<KeyRecorder>(
        [this](const Fenwa::ConfigurationError& error) { on_mistake(error); });
    ProbedBlock dry(*factory_, entry_.name,
                    Fenwa::ConfigurationAccess::observed(entry_.configuration(), recorder_), tools_,
                    [this](const char* phase) { enter(phase, false); });
    if (dry.failure != nullptr) {
        if (recorder_->invented_a_value())
            for (const UnreadKey& miss : recorder_->near_misses(entry_, diagnostics_.suggester()))
                warn(miss);
        else
            report_mistakes(dry);
        enter("its destructor", false);
        return false;
    }
    if (dry.block == nullptr) {
        diagnostics_.error(entry_.location,
                           "the factory of " + describe(entry_) + " returned no block");
        return false;
    }
    // What a block makes of a value that is not in the file is no mistake of its own.
    Diagnostics discarded({});
    terminations_ = Terminations(dry.settings, *dry.block, entry_,
                                 recorder_->invented_a_value() ? discarded : diagnostics_);
    block_ = std::move(dry.block);
    return true;
}

ConnectableBlock Probe::block() const {
    return block_ == nullptr ? ConnectableBlock() : ConnectableBlock{block_.get(), &terminations_};
}

void Probe::destroy() {
    enter("its destructor", false);
    block_.reset();
}

void Probe::find_unread_keys() {
    if (!recorder_->has_unread_keys(entry_))
        return;
    enter("reconfigure", true);
    try {
        const Fenwa::BlockConfiguration config = Fenwa::HostAccess::configuration(*block_);
        block_->reconfigure(config, config);
    } catch (...) {
        // It has told which keys it reads until then.
    }
    const std::vector<UnreadKey> unread = recorder_->unread_keys(entry_, diagnostics_.suggester());
    if (unread.empty())
        return;
    // Without them the block tells which of them it has defaults for. It is recorded once more, so
    // that it gets over its mistakes, which are known.
    std::unordered_set<std::string> unread_names;
    for (const UnreadKey& key : unread)
        unread_names.insert(key.key);
    BlockEntry read;
    for (const Setting& setting : entry_.settings) {
        if (unread_names.count(setting.key) == 0)
            read.add(setting);
    }
    const ProbedBlock dry(
        *factory_, entry_.name,
        Fenwa::ConfigurationAccess::observed(read.configuration(), std::make_shared<KeyRecorder>()),
        tools_, [this](const char* phase) { enter(phase, true); });
    for (const UnreadKey& key : unread) {
        const Fenwa::BlockConfiguration::Value* const fallback =
            dry.block == nullptr ? nullptr
                                 : Fenwa::ConfigurationAccess::find(
                                       Fenwa::HostAccess::configuration(*dry.block), key.key);
        if (fallback == nullptr) {
            warn(key);
            unread_.push_back(key);
        } else if (const auto error =
                       check_type(key.key, *entry_.find(key.key)->value, *fallback)) {
            report(*error, entry_, diagnostics_);
        }
    }
    enter("its destructor", true);
}

void Probe::warn(const UnreadKey& unread) {
    diagnostics_.warning(unread.location, describe(unread, entry_), unread.help);
}

void Probe::report_mistakes(const ProbedBlock& dry) {
    try {
        std::rethrow_exception(dry.failure);
    } catch (const Fenwa::ConfigurationError& error) {
        report(error, entry_, diagnostics_);
    } catch (const Fenwa::SDBusError&) {
        if (strictness_ == Strictness::alone)
            diagnostics_.warning(
                entry_.location,
                describe(entry_) + " cannot be checked: it needs a bus to be built");
        else if (strictness_ == Strictness::in_a_run)
            report_throw(dry);
    } catch (...) {
        if (strictness_ != Strictness::before_a_run)
            report_throw(dry);
    }
}

void Probe::report_throw(const ProbedBlock& dry) {
    diagnostics_.error(entry_.location,
                       describe(entry_) + " threw in " + dry.phase + ": " + describe(dry.failure));
    threw_ = true;
}

void report(const Fenwa::ConfigurationError& error, const BlockEntry& entry,
            Diagnostics& diagnostics) {
    diagnostics.error(entry.where_is(error.key()), describe(entry) + ": " + error.what());
}

}  // namespace host
