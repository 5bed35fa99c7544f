#include <stdexcept>

#include "tests/plugins/probe.hpp"

namespace probe {
namespace {

/// Logs lines of every level and with every difficulty when it is started.
class Talker : public Fenwa::Block {
  public:
    using Fenwa::Block::Block;

    void start() override {
        logger(1, "an error");
        logger(2, "a warning");
        logger(4, "an information");
        logger(4, "ends its line\n");
        logger(4, "two\nlines");
        logger(4, "%s", "quotes \" and \\ and tabs\t");
        logger(4, "%s", "a byte \xff that is no text, and ü that is");
        logger(4, "%s", "");
    }
};

/// Sets a debug-data entry of each kind when it is started.
class Debugger : public Fenwa::Block {
  public:
    using Fenwa::Block::Block;

    void start() override {
        Fenwa::DebugDataStore& store = Fenwa::debug_data();
        store.set_value("a_text", std::string("some text"));
        store.set_value("a_number", std::int32_t{-5});
        store.set_value("a_float", 36.6F);
        store.set_value("a_double", 36.6);
        store.set_value("a_truth", true);
        store.set_value("a_truth", true);
    }
};

/// Says what would forge a line of the host, in every way that a block has: a log line, a
/// debug-data entry, and what it throws when it is started.
class Forger : public Fenwa::Block {
  public:
    using Fenwa::Block::Block;

    void start() override {
        const std::string forged = "x\nfenwa: ready\x1b[2J\x7f\u009b\u202e";
        logger(4, "%s\n", forged.c_str());
        Fenwa::debug_data().set_value(forged, forged);
        throw std::runtime_error(forged);
    }
};

}  // namespace

void register_log_blocks(Fenwa::IRegistry& registry) {
    registry.register_block<Talker>("Talker");
    registry.register_block<Debugger>("Debugger");
    registry.register_block<Forger>("Forger");
}

}  // namespace probe
