#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "tests/plugins/probe.hpp"

// Block types for a host that looks at types that it does not know.

namespace probe {
namespace {

using Fenwa::Block;
using Fenwa::BlockConfiguration;

[[noreturn]] void wait_for_ever() {
    for (;;)
        pause();
}

/// A block type whose construction ends with `body`.
template <class Body>
void register_built_by(Fenwa::IRegistry& registry, const std::string& type, Body body) {
    registry.register_factory(type, [body](std::string name, const BlockConfiguration& config,
                                           const Fenwa::InitTools& /*tools*/) {
        auto block = std::make_unique<Block>(std::move(name), config);
        body(*block, config);
        return block;
    });
}

void register_bad_constructors(Fenwa::IRegistry& registry) {
    register_built_by(registry, "Aborting", [](Block&, const BlockConfiguration& config) {
        static_cast<void>(config.getInt("before"));
        static_cast<void>(config.getString("and", "after"));
        std::abort();
    });
    register_built_by(registry, "Hanging", [](Block&, const BlockConfiguration& config) {
        static_cast<void>(config.getBool("patient", true));
        wait_for_ever();
    });
    register_built_by(registry, "Exiting",
                      [](Block&, const BlockConfiguration&) { std::_Exit(3); });
    // Takes a word only from a list that no error names before.
    register_built_by(registry, "Choosy", [](Block&, const BlockConfiguration& config) {
        const std::string mode = config.getString("mode");
        if (mode != "fast" && mode != "slow")
            throw Fenwa::ConfigurationError("mode", "string \"fast\" or \"slow\"",
                                            "the string \"" + mode + "\"");
        static_cast<void>(config.getInt("never_asked_for"));
    });
    // Ends its process at a zero.
    register_built_by(registry, "ZeroShy", [](Block& block, const BlockConfiguration& config) {
        if (config.getInt("count") == 0)
            std::abort();
        if (config.getString("path").empty())
            throw std::runtime_error("no path");
        static_cast<void>(config.getFloat("ratio", 0.1F));
        block.add_dbus("/com/example/" + config.getString("path"), "com.example.Shy1", nullptr,
                       nullptr);
    });
    // Every boolean leads to another.
    register_built_by(registry, "Endless", [](Block&, const BlockConfiguration& config) {
        std::string key = "more";
        while (config.getBool(key, false))
            key += "e";
    });
    register_built_by(registry, "Fragile", [](Block&, const BlockConfiguration& config) {
        if (config.getBool("handle_with_care", false))
            std::abort();
    });
    register_built_by(registry, "Talkative", [](Block&, const BlockConfiguration&) {
        for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
            static_cast<void>(!write(stream, "noise\n", 6));
        logger(1, "noise");
        Fenwa::debug_data().set_value("noise", true);
    });
}

/// Has a port, and crashes in its setup.
struct Segfaulting : Block {
    Segfaulting(std::string name, const BlockConfiguration& config)
        : Block(std::move(name), config) {
        Fenwa::add_outport<int>(*this, "out");
    }
    BlockConfiguration setup(const BlockConfiguration& config) override {
        static_cast<void>(config.getDouble("in_setup", 0.1));
        std::raise(SIGSEGV);
        return {};
    }
};

struct HangingInSetup : Block {
    using Block::Block;
    BlockConfiguration setup(const BlockConfiguration& /*config*/) override { wait_for_ever(); }
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

/// The same, and refuses every value of a required key.
struct CountedAndChoosy : Counted {
    CountedAndChoosy(std::string name, const BlockConfiguration& config)
        : Counted(std::move(name), config) {
        throw std::runtime_error("wants no " + config.getString("mode"));
    }
};

/// Keys and ports that depend on keys, two deep, and keys that only a reconfigure asks for. Merges
/// its settings over defaults of its own.
struct Conditional : Block {
    Conditional(std::string name, const BlockConfiguration& config)
        : Block(std::move(name), merged(config)) {
        const BlockConfiguration all = merged(config);
        if (!all.getBool("advanced"))
            return;
        static_cast<void>(all.getDouble("mode.gain"));
        Fenwa::add_inport<double>(*this, "gain_in", false);
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
    static BlockConfiguration merged(const BlockConfiguration& config) {
        return BlockConfiguration{{"advanced", false}, {"mode.gain", 0.5}} + config;
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
        Fenwa::add_inport<double>(*this, "in");
        Fenwa::add_outport<int>(*this, "out");
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
            ask_the_daemon(tools);
        Fenwa::add_outport<double>(*this, "late");
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

/// Has a default for a key that it never reads, and aborts unless it is "careful" (bool, true).
/// Reads "rate" (int, 25) in `reconfigure`.
struct Careful : Block {
    Careful(std::string name, const BlockConfiguration& config)
        : Block(std::move(name),
                BlockConfiguration{{"careful", true}, {"unused", 1}, {"rate", 25}} + config) {
        if (!config.getBool("careful", true))
            std::abort();
    }
    void reconfigure(const BlockConfiguration& /*before*/,
                     const BlockConfiguration& after) override {
        static_cast<void>(after.getInt("rate"));
    }
};

}  // namespace
}  // namespace probe

int lib_register_cpp(Fenwa::IRegistry* registry) {
    probe::register_bad_constructors(*registry);
    registry->register_block<probe::Segfaulting>("Segfaulting");
    registry->register_block<probe::HangingInSetup>("HangingInSetup");
    registry->register_block<probe::Conditional>("Conditional");
    registry->register_block<probe::Counted>("Counted");
    registry->register_block<probe::CountedAndChoosy>("CountedAndChoosy");
    registry->register_block<probe::ThrowingLater>("ThrowingLater");
    registry->register_block<probe::AbortingAtTheEnd>("AbortingAtTheEnd");
    registry->register_block<probe::HalfBuilt>("HalfBuilt");
    registry->register_block<probe::Adjustable>("Adjustable");
    registry->register_block<probe::Careful>("Careful");
    return 0;
}
