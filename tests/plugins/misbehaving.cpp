#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "tests/plugins/probe.hpp"

// Block types for those who look at types that they do not know.

namespace probe {
namespace {

using Fenwa::Block;
using Fenwa::BlockConfiguration;

[[noreturn]] void wait_for_ever() {
    for (;;)
        pause();
}

/// Asks for two keys and aborts in its constructor.
struct Aborting : Block {
    Aborting(std::string name, const BlockConfiguration& config) : Block(std::move(name), config) {
        static_cast<void>(config.getInt("before"));
        static_cast<void>(config.getString("and", "after"));
        std::abort();
    }
};

/// Has a port, and does what a wild pointer does in its setup.
struct Segfaulting : Block {
    Segfaulting(std::string name, const BlockConfiguration& config)
        : Block(std::move(name), config) {
        add_output<int>(*this, "out");
    }
    BlockConfiguration setup(const BlockConfiguration& config) override {
        static_cast<void>(config.getDouble("in_setup", 0.1));
        std::raise(SIGSEGV);
        return {};
    }
};

struct Hanging : Block {
    Hanging(std::string name, const BlockConfiguration& config) : Block(std::move(name), config) {
        static_cast<void>(config.getBool("patient", true));
        wait_for_ever();
    }
};

struct HangingInSetup : Block {
    using Block::Block;
    BlockConfiguration setup(const BlockConfiguration& /*config*/) override { wait_for_ever(); }
};

struct Exiting : Block {
    Exiting(std::string name, const BlockConfiguration& config) : Block(std::move(name), config) {
        std::_Exit(3);
    }
};

/// Takes its word only from a list that nobody can guess.
struct Choosy : Block {
    Choosy(std::string name, const BlockConfiguration& config) : Block(std::move(name), config) {
        const std::string mode = config.getString("mode");
        if (mode != "fast" && mode != "slow")
            throw Fenwa::ConfigurationError("mode", "string \"fast\" or \"slow\"",
                                            "the string \"" + mode + "\"");
        static_cast<void>(config.getInt("never_asked_for"));
    }
};

/// Appends a line to the file FENWA_CONSTRUCTIONS in its constructor.
struct Counted : Block {
    Counted(std::string name, const BlockConfiguration& config) : Block(std::move(name), config) {
        if (const char* const file = std::getenv("FENWA_CONSTRUCTIONS"))
            std::ofstream(file, std::ios::app) << "constructed\n";
        for (const char* key : {"first", "second", "third"})
            make_eventport(std::string(key) + (config.getBool(key, false) ? " set" : " not set"));
    }
};

/// The same, and takes no value for a required key.
struct CountedAndChoosy : Counted {
    CountedAndChoosy(std::string name, const BlockConfiguration& config)
        : Counted(std::move(name), config) {
        throw std::runtime_error("wants no " + config.getString("mode"));
    }
};

/// Has misgivings about zero that cost its host its life.
struct ZeroShy : Block {
    ZeroShy(std::string name, const BlockConfiguration& config) : Block(std::move(name), config) {
        if (config.getInt("count") == 0)
            std::abort();
        if (config.getString("path").empty())
            throw std::runtime_error("no path");
        static_cast<void>(config.getFloat("ratio", 0.1F));
        add_dbus("/com/example/" + config.getString("path"), "com.example.Shy1", nullptr, nullptr);
    }
};

/// Keys and ports that depend on keys, two deep, and keys that only a reconfigure asks for. Lays
/// defaults of its own under what it is given.
struct Conditional : Block {
    Conditional(std::string name, const BlockConfiguration& config)
        : Block(std::move(name),
                BlockConfiguration{{"advanced", false}, {"mode.gain", 0.5}} + config) {
        const BlockConfiguration all =
            BlockConfiguration{{"advanced", false}, {"mode.gain", 0.5}} + config;
        if (!all.getBool("advanced"))
            return;
        static_cast<void>(all.getDouble("mode.gain"));
        add_input<double>(*this, "gain_in", false);
        if (all.getBool("tracing", true))
            return;
        static_cast<void>(all.getString("trace_file"));
        make_eventport("traced");
        throw std::runtime_error("no trace file");
    }
    void reconfigure(const BlockConfiguration& before, const BlockConfiguration& after) override {
        static_cast<void>(before.getInt("rate", 25));
        static_cast<void>(after.getInt("rate", 25));
    }
};

/// Every boolean leads to another.
struct Endless : Block {
    Endless(std::string name, const BlockConfiguration& config) : Block(std::move(name), config) {
        std::string key = "more";
        while (config.getBool(key, false))
            key += "e";
    }
};

/// Dies of one of its keys.
struct Fragile : Block {
    Fragile(std::string name, const BlockConfiguration& config) : Block(std::move(name), config) {
        if (config.getBool("handle_with_care", false))
            std::abort();
    }
};

struct ThrowingLater : Block {
    using Block::Block;
    void reconfigure(const BlockConfiguration& /*before*/,
                     const BlockConfiguration& /*after*/) override {
        throw std::runtime_error("no change\nwanted");
    }
};

struct AbortingAtTheEnd : Block {
    using Block::Block;
    ~AbortingAtTheEnd() override { std::abort(); }
};

/// Adds an input "in" (double) and an output "out" (int), and then does what its key "then" says:
/// "throws", "aborts", "hangs", "exits" or "needs a bus". After "returns" there is an output
/// "late".
struct HalfBuilt : Block {
    HalfBuilt(std::string name, const BlockConfiguration& config, const Fenwa::InitTools& tools)
        : Block(std::move(name), config) {
        add_input<double>(*this, "in");
        add_output<int>(*this, "out");
        const std::string then = config.getString("then", "returns");
        if (then == "throws")
            throw std::runtime_error("thrown half-built");
        if (then == "aborts")
            std::abort();
        if (then == "hangs")
            wait_for_ever();
        if (then == "exits")
            std::exit(0);
        if (then == "needs a bus")
            tools.sdbus_tools->call_method("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                           "org.freedesktop.DBus", "GetId", nullptr, nullptr);
        add_output<double>(*this, "late");
    }
};

/// Reads "rate" (int, 25) when it is reconfigured only, and says it. With "brittle" it aborts then.
struct Adjustable : Block {
    Adjustable(std::string name, const BlockConfiguration& config)
        : Block(std::move(name), config), brittle_(config.getBool("brittle", false)) {}
    void reconfigure(const BlockConfiguration& /*before*/,
                     const BlockConfiguration& after) override {
        say(*this, "rate " + std::to_string(after.getInt("rate", 25)));
        if (brittle_)
            std::abort();
    }

  private:
    bool brittle_;
};

/// Says things on every way that there is.
struct Talkative : Block {
    Talkative(std::string name, const BlockConfiguration& config) : Block(std::move(name), config) {
        for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
            static_cast<void>(!write(stream, "noise\n", 6));
        logger(1, "noise");
        Fenwa::debug_data().set_value("noise", true);
    }
};

}  // namespace
}  // namespace probe

int lib_register_cpp(Fenwa::IRegistry* registry) {
    registry->register_block<probe::Aborting>("Aborting");
    registry->register_block<probe::Segfaulting>("Segfaulting");
    registry->register_block<probe::Hanging>("Hanging");
    registry->register_block<probe::HangingInSetup>("HangingInSetup");
    registry->register_block<probe::Exiting>("Exiting");
    registry->register_block<probe::Choosy>("Choosy");
    registry->register_block<probe::ZeroShy>("ZeroShy");
    registry->register_block<probe::Conditional>("Conditional");
    registry->register_block<probe::Endless>("Endless");
    registry->register_block<probe::Counted>("Counted");
    registry->register_block<probe::CountedAndChoosy>("CountedAndChoosy");
    registry->register_block<probe::Fragile>("Fragile");
    registry->register_block<probe::ThrowingLater>("ThrowingLater");
    registry->register_block<probe::AbortingAtTheEnd>("AbortingAtTheEnd");
    registry->register_block<probe::Talkative>("Talkative");
    registry->register_block<probe::HalfBuilt>("HalfBuilt");
    registry->register_block<probe::Adjustable>("Adjustable");
    return 0;
}
