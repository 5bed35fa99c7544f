#include <chrono>
#include <stdexcept>
#include <thread>

#include "tests/plugins/probe.hpp"

namespace probe {
namespace {

/// Thrown as it is, to be no std::exception.
struct Oddity {};

/// Says when each of its operations is called, and throws where it is told to.
///
/// Keys: "throws_in" (a phase), "throws" ("runtime", "configuration", "missing", "sdbus", "odd"),
/// "start_ms" (how long its start takes), "settings" (whether setup hands settings over),
/// "late_port" (whether setup adds the output "late" and publishes on it).
class Probe : public Fenwa::Block {
  public:
    Probe(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config),
          throws_in_(config.getString("throws_in", "")),
          throws_(config.getString("throws", "runtime")),
          start_time_(config.getInt("start_ms", 0)),
          has_settings_(config.getBool("settings", false)),
          has_late_port_(config.getBool("late_port", false)),
          event_(*make_eventport("event")) {
        enter("constructor");
        publishes_in_stop_ = Fenwa::add_outport<int>(*this, "stopped");
    }

    ~Probe() override { say(*this, "destructor"); }

    Fenwa::BlockConfiguration setup(const Fenwa::BlockConfiguration& /*config*/) override {
        enter("setup");
        if (has_late_port_)
            Fenwa::add_outport<double>(*this, "late")->publish(1.5);
        if (!has_settings_)
            return {};
        return {{"truth", true},   {"count", 3},         {"ratio", 0.5},
                {"word", {"one"}}, {"list", {"a", "b"}}, {"none", {}}};
    }

    void start() override {
        if (start_time_.count() != 0)
            say(*this, "takes its time");
        std::this_thread::sleep_for(start_time_);
        enter("start");
        event_.fire();
    }

    void stop() override {
        publishes_in_stop_->publish(1);
        enter("stop");
    }

    bool run() override {
        enter("run");
        return true;
    }

  private:
    void enter(const std::string& phase) {
        say(*this, phase);
        if (phase != throws_in_)
            return;
        if (throws_ == "configuration")
            throw Fenwa::ConfigurationError("throws", "word that is not there", "another one");
        if (throws_ == "missing")
            throw Fenwa::ConfigurationError("absent", "int", "");
        if (throws_ == "sdbus")
            throw Fenwa::SDBusError("com.example.Error.Broken", "it broke", -5);
        if (throws_ == "odd")
            throw Oddity{};
        throw std::runtime_error("thrown on purpose");
    }

    std::string throws_in_;
    std::string throws_;
    std::chrono::milliseconds start_time_;
    bool has_settings_;
    bool has_late_port_;
    Fenwa::EventPort& event_;
    Fenwa::OutPort<int>* publishes_in_stop_ = nullptr;
};

/// Throws on a bus in the phase "in" (constructor, setup, start or stop), from its construction
/// number "times" in the process on (int, 1): a ConfigurationError with "refuses" (bool, false).
/// Says when it is in a phase.
class Frail : public Fenwa::Block {
  public:
    Frail(std::string name, const Fenwa::BlockConfiguration& config, const Fenwa::InitTools& tools)
        : Fenwa::Block(std::move(name), config),
          in_(config.getString("in", "")),
          refuses_(config.getBool("refuses", false)) {
        static int built = 0;
        const int times = config.getInt("times", 1);
        throws_ = tools.sdbus_tools->get_bus() != nullptr && ++built >= times;
        enter("constructor");
    }

    ~Frail() override { say(*this, "destructor"); }

    Fenwa::BlockConfiguration setup(const Fenwa::BlockConfiguration& /*config*/) override {
        enter("setup");
        return {};
    }
    void start() override { enter("start"); }
    void stop() override { enter("stop"); }

  private:
    void enter(const std::string& phase) {
        say(*this, phase);
        if (phase != in_ || !throws_)
            return;
        if (refuses_)
            throw Fenwa::ConfigurationError("in", "string that this block likes", "another one");
        throw std::runtime_error("thrown on purpose");
    }

    std::string in_;
    bool refuses_;
    bool throws_ = false;
};

/// A block whose factory gives none.
std::unique_ptr<Fenwa::Block> make_nothing(const std::string&, const Fenwa::BlockConfiguration&,
                                           const Fenwa::InitTools&) {
    return nullptr;
}

/// Reads one key of each type, all required.
class Strict : public Fenwa::Block {
  public:
    Strict(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config) {
        const int divisor = config.getInt("divisor");
        if (divisor == 0)
            throw std::domain_error("a division by zero");
        static_cast<void>(config.getBool("flag"));
        static_cast<void>(config.getDouble("level"));
        static_cast<void>(config.getString("label.text"));
    }
};

/// Refuses to be built from some values, as the getters alone would not.
class Picky : public Fenwa::Block {
  public:
    Picky(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config) {
        const int count = config.getInt("count");
        if (count < 1)
            throw Fenwa::ConfigurationError("count", "int of 1 or more",
                                            "the integer " + std::to_string(count));
    }
};

}  // namespace

void register_life_blocks(Fenwa::IRegistry& registry) {
    registry.register_block<Probe>("Probe");
    registry.register_block<Frail>("Frail");
    registry.register_block<Strict>("Strict");
    registry.register_block<Picky>("Picky");
    registry.register_factory("Nothing", make_nothing);
}

}  // namespace probe
