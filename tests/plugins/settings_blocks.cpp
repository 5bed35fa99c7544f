#include <sstream>
#include <stdexcept>
#include <utility>

#include "tests/plugins/probe.hpp"

namespace probe {
namespace {

using Fenwa::BlockConfiguration;

const BlockConfiguration defaults{{"level", 1.0}, {"note", {"none"}}, {"hidden", 7}};

/// Says what it is told when its settings change, and publishes its level then. What it is built
/// with lies over a table of its own; of that it reads "hidden" in `reconfigure` only.
///
/// Keys: "level" (double, 1; 13 is refused at once and 14 when it is told for the second time, 66
/// throws, and after 67 anything is refused), "note" (string, "none"), "hidden" (int, 7),
/// "needs_a_bus" (bool, false: whether it cannot be built without one), "speaks" (bool, false:
/// whether it says that it is built).
class Settled : public Fenwa::Block {
  public:
    Settled(std::string name, const BlockConfiguration& config, const Fenwa::InitTools& tools)
        : Fenwa::Block(std::move(name), defaults + config),
          event_(*make_eventport("event")),
          level_(*Fenwa::add_outport<double>(*this, "level")) {
        if (config.getBool("speaks", false))
            say(*this, "built");
        static_cast<void>((defaults + config).getDouble("level"));
        static_cast<void>(config.getString("note", "none"));
        if (config.getBool("needs_a_bus", false))
            ask_the_daemon(tools);
    }

    bool run() override {
        say(*this, "run");
        return true;
    }

    void reconfigure(const BlockConfiguration& before, const BlockConfiguration& after) override {
        say(*this, text(before) + " -> " + text(after));
        event_.fire();
        const double level = after.getDouble("level");
        const bool is_second = before.getDouble("level") == level;
        const bool refused_for_good = std::exchange(refuses_all_, level == 67.0);
        if (level == 13.0 || (level == 14.0 && is_second) || level == 67.0 || refused_for_good)
            throw Fenwa::ConfigurationError("level", "double that this block likes", "a float");
        if (level == 66.0)
            throw std::runtime_error("thrown on purpose");
        level_.publish(level);
    }

  private:
    static std::string text(const BlockConfiguration& config) {
        std::ostringstream stream;
        stream << config.getDouble("level") << ' ' << config.getString("note") << ' '
               << config.getInt("hidden");
        return stream.str();
    }

    Fenwa::EventPort& event_;
    Fenwa::OutPort<double>& level_;
    bool refuses_all_ = false;
};

}  // namespace

void register_settings_blocks(Fenwa::IRegistry& registry) {
    registry.register_block<Settled>("Settled");
}

}  // namespace probe
