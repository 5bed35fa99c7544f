#include "host/graph_checker.hpp"

#include <deque>
#include <map>
#include <memory>
#include <unordered_set>
#include <utility>
#include <vector>

#include "common/suggestion.hpp"
#include "fenwa/sdbus_error.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/debug_data_store.hpp"
#include "framework/shared/host_access.hpp"
#include "framework/shared/log_sink.hpp"
#include "host/connection_checker.hpp"
#include "host/terminations.hpp"

namespace host {
namespace {

using tool::Diagnostics;

/// Takes the log lines of dry blocks, which nobody is to see.
class Silence {
  public:
    Silence() {
        Fenwa::set_log_sink([](int, const std::string&) {});
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence() { Fenwa::set_log_sink({}); }
};

/// Notes which keys a block asks for, and reports its mistakes without stopping at the first.
class KeyRecorder final : public Fenwa::ConfigurationObserver {
  public:
    KeyRecorder(const BlockEntry& entry, Diagnostics& diagnostics)
        : entry_(entry), diagnostics_(diagnostics) {}

    void on_read(const Fenwa::KeyRead& read) override {
        if (is_asked_.insert(read.key).second)
            asked_.push_back(read.key);
    }

    bool on_error(const Fenwa::ConfigurationError& error) override {
        invented_ = true;
        if (error.missing())
            missing_.push_back(error.key());
        const Setting* const setting = entry_.find(error.key());
        // A kind of value that no block can be given was reported when it was read.
        if (setting == nullptr || setting->value)
            report(error, entry_, diagnostics_);
        return true;
    }

    /// Whether the block was given a value that is not in the file: what it throws then is most
    /// likely no mistake of its own.
    [[nodiscard]] bool invented_a_value() const noexcept { return invented_; }

    void warn_of_unread_keys() const {
        for (const Setting& setting : entry_.settings) {
            // One without a value is reported already.
            if (setting.value && is_asked_.count(setting.key) == 0)
                warn_of_unread_key(setting, tool::did_you_mean(setting.key, asked_));
        }
    }

    /// The same for a block that has not lived to read all its keys: only those are warned of that
    /// look like one that it misses.
    void warn_of_near_misses() const {
        for (const Setting& setting : entry_.settings) {
            const std::string help = tool::did_you_mean(setting.key, missing_);
            if (!help.empty() && is_asked_.count(setting.key) == 0)
                warn_of_unread_key(setting, help);
        }
    }

  private:
    void warn_of_unread_key(const Setting& setting, const std::string& help) const {
        diagnostics_.warning(
            setting.where, "no " + entry_.type.text + " reads the key '" + setting.key + "'", help);
    }

    const BlockEntry& entry_;
    Diagnostics& diagnostics_;
    std::vector<std::string> asked_;  ///< each once, in the order in which they were asked for
    std::unordered_set<std::string> is_asked_;
    std::vector<std::string> missing_;
    bool invented_ = false;
};

class DryConstruction {
  public:
    DryConstruction(const BlockTypes& types, Diagnostics& diagnostics, Strictness strictness)
        : types_(types), diagnostics_(diagnostics), strictness_(strictness) {}
    DryConstruction(const DryConstruction&) = delete;
    DryConstruction& operator=(const DryConstruction&) = delete;
    ~DryConstruction() {
        while (!kept_.empty())
            kept_.pop_back();
    }

    /// The block with its terminations, owned by this object, or an empty one.
    ConnectableBlock build(const BlockEntry& entry) {
        const Fenwa::BlockFactory* const factory = types_.find(entry, diagnostics_);
        if (factory == nullptr)
            return {};
        const auto recorder = std::make_shared<KeyRecorder>(entry, diagnostics_);
        const Fenwa::BlockConfiguration config =
            Fenwa::ConfigurationAccess::observed(entry.configuration(), recorder);
        const char* phase = "its constructor";
        try {
            std::unique_ptr<Fenwa::Block> block = (*factory)(entry.name, config, tools_);
            if (block == nullptr) {
                diagnostics_.error(entry.where,
                                   "the factory of " + describe(entry) + " gave no block");
                return {};
            }
            Fenwa::HostAccess::adopt(*block, tools_, queue_);
            phase = "setup";
            const Fenwa::BlockConfiguration settings =
                block->setup(Fenwa::HostAccess::configuration(*block));
            recorder->warn_of_unread_keys();
            // What a block makes of a value that is not in the file is no mistake of its own.
            Diagnostics unheard({});
            Terminations terminations(settings, *block, entry,
                                      recorder->invented_a_value() ? unheard : diagnostics_);
            const Kept& kept = kept_.emplace_back(std::move(block), std::move(terminations));
            return {kept.block.get(), &kept.terminations};
        } catch (...) {
            if (recorder->invented_a_value())
                recorder->warn_of_near_misses();
            else
                complain(entry, phase);
        }
        return {};
    }

    [[nodiscard]] const CheckResult& result() const { return result_; }

  private:
    struct Kept {
        Kept(std::unique_ptr<Fenwa::Block> its_block, Terminations its_terminations)
            : block(std::move(its_block)), terminations(std::move(its_terminations)) {}
        std::unique_ptr<Fenwa::Block> block;
        Terminations terminations;
    };

    /// Reports the exception that is being handled.
    void complain(const BlockEntry& entry, const std::string& phase) {
        try {
            throw;
        } catch (const Fenwa::ConfigurationError& error) {
            report(error, entry, diagnostics_);
        } catch (const Fenwa::SDBusError&) {
            if (strictness_ == Strictness::alone)
                diagnostics_.warning(
                    entry.where,
                    describe(entry) + " cannot be checked: it needs a bus to be built");
        } catch (const std::exception& error) {
            fail(entry, phase, error.what());
        } catch (...) {
            fail(entry, phase, "something that is no std::exception");
        }
    }

    void fail(const BlockEntry& entry, const std::string& phase, const std::string& what) {
        if (strictness_ == Strictness::before_a_run)
            return;
        diagnostics_.error(entry.where, describe(entry) + " threw in " + phase + ": " + what);
        ++result_.throws;
    }

    const BlockTypes& types_;
    Diagnostics& diagnostics_;
    Strictness strictness_;
    CheckResult result_;
    Fenwa::ConnectionTools no_bus_{nullptr};
    Fenwa::InitTools tools_{&no_bus_};
    Fenwa::ReadyQueue queue_{[] {}};
    std::deque<Kept> kept_;  ///< referred to, so that they must not move
};

/// Warns of objects that the bus connection will take from one block only.
void check_exports(const Graph& graph, const BlocksByName& blocks, Diagnostics& diagnostics) {
    std::map<std::pair<std::string, std::string>, std::string> exporters;
    for (const BlockEntry& entry : graph.blocks) {
        const auto found = blocks.find(entry.name);
        if (found == blocks.end() || found->second.block == nullptr)
            continue;
        for (const auto& object : Fenwa::HostAccess::exported_objects(*found->second.block)) {
            const auto& [path, interface] = object;
            const std::string what = "'" + interface + "' at '" + path + "'";
            if (sd_bus_object_path_is_valid(path.c_str()) <= 0 ||
                sd_bus_interface_name_is_valid(interface.c_str()) <= 0) {
                diagnostics.warning(entry.where, "the block '" + entry.name + "' cannot export " +
                                                     what +
                                                     ": no bus connection takes these names");
                continue;
            }
            const auto [first, is_new] = exporters.emplace(object, entry.name);
            if (!is_new && first->second == entry.name)
                diagnostics.warning(entry.where, "the block '" + entry.name + "' exports " + what +
                                                     " twice; only the first one is reached");
            else if (!is_new)
                diagnostics.warning(entry.where, "the blocks '" + first->second + "' and '" +
                                                     entry.name + "' both export " + what +
                                                     "; only the first one is reached");
        }
    }
}

}  // namespace

void report(const Fenwa::ConfigurationError& error, const BlockEntry& entry,
            Diagnostics& diagnostics) {
    diagnostics.error(entry.where_is(error.key()), describe(entry) + ": " + error.what());
}

CheckResult check_graph(const Graph& graph, const BlockTypes& types, Diagnostics& diagnostics,
                        Strictness strictness) {
    const Silence silence;
    DryConstruction dry(types, diagnostics, strictness);
    BlocksByName blocks;
    for (const BlockEntry& entry : graph.blocks)
        blocks.emplace(entry.name, dry.build(entry));
    check_exports(graph, blocks, diagnostics);
    check_connections(graph, blocks, diagnostics);
    return dry.result();
}

}  // namespace host
