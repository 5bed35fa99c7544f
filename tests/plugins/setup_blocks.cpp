#include <map>

#include "tests/plugins/probe.hpp"

namespace probe {
namespace {

using Fenwa::BlockConfiguration;

const std::string bool_path = "/prefix/well-known.b/bool";

/// What a setup can hand over to have inputs terminated, right and wrong.
BlockConfiguration settings_of(const std::string& name) {
    static const std::map<std::string, BlockConfiguration> known{
        {"monitor",
         {{"temperature_ok", true},
          {"termination_cfg.inports", {"temp_monitor_in"}},
          {"termination_cfg.types", {"/prefix/well-known.b/bool"}},
          {"termination_cfg.temp_monitor_in_def", true}}},
        {"plain strings",
         {{"termination_cfg.inports", BlockConfiguration::Value(std::string("temp_monitor_in"))},
          {"termination_cfg.types", BlockConfiguration::Value(bool_path)},
          {"termination_cfg.temp_monitor_in_def", true}}},
        {"every type",
         {{"termination_cfg.inports", {"level", "limit", "ratio", "ok", "tick"}},
          {"termination_cfg.types",
           {"/prefix/well-known.d/double", "/prefix/well-known.i/int", "/prefix/well-known.f/float",
            "/prefix/well-known.b/bool", "/prefix/well-known.t/datatype_timersource"}},
          {"termination_cfg.level_def", 5},
          {"termination_cfg.limit_def", -3},
          {"termination_cfg.ratio_def", 0.5},
          {"termination_cfg.ok_def", true}}},
        {"no default",
         {{"termination_cfg.inports", {"level"}},
          {"termination_cfg.types", {"/prefix/well-known.d/double"}}}},
        {"default of another type",
         {{"termination_cfg.inports", {"ok"}},
          {"termination_cfg.types", {"/prefix/well-known.b/bool"}},
          {"termination_cfg.ok_def", 1}}},
        {"more names than types",
         {{"termination_cfg.inports", {"ok", "level"}},
          {"termination_cfg.types", {"/prefix/well-known.b/bool"}},
          {"termination_cfg.ok_def", true}}},
        {"",
         {{"termination_cfg.inports", {""}},
          {"termination_cfg.types", {"/prefix/well-known.b/bool"}}}},
    };
    return known.at(name);
}

/// Hands over the settings that its key "settings" names; those of "" have a nameless input. Has
/// the input "own", and says when it runs and which inputs it has itself. With "needs_a_bus" it
/// cannot be built without one.
class Terminated : public Fenwa::Block {
  public:
    Terminated(std::string name, const BlockConfiguration& config, const Fenwa::InitTools& tools)
        : Fenwa::Block(std::move(name), config),
          settings_(settings_of(config.getString("settings"))) {
        Fenwa::add_inport<double>(*this, "own");
        if (config.getBool("needs_a_bus", false))
            ask_the_daemon(tools);
    }

    BlockConfiguration setup(const BlockConfiguration& /*config*/) override { return settings_; }

    bool run() override {
        std::string line = "run, with the inputs";
        for (const std::string& port : get_inport_names())
            line += ' ' + port;
        say(*this, line);
        return true;
    }

  private:
    BlockConfiguration settings_;
};

}  // namespace

void register_setup_blocks(Fenwa::IRegistry& registry) {
    registry.register_block<Terminated>("Terminated");
}

}  // namespace probe
