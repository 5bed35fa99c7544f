#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "tests/plugins/probe.hpp"

namespace probe {
namespace {

/// Does what a block should not do: in the operation "in" it "hangs", "sleeps" for "ms", "crashes",
/// "aborts", "exits", "shouts" on the bus, logs "lines" and "floods" with them, "floods and
/// throws", "repeats" one that many times, "ms" apart, or crashes in "a thread". It behaves where
/// there is no bus.
class Stubborn : public Fenwa::Block {
  public:
    Stubborn(std::string name, const Fenwa::BlockConfiguration& config,
             const Fenwa::InitTools& tools)
        : Fenwa::Block(std::move(name), config),
          bus_(tools.sdbus_tools->get_bus()),
          in_(config.getString("in")),
          does_(config.getString("does", "hangs")),
          time_(config.getInt("ms", 0)),
          lines_(config.getInt("lines", 0)),
          go_(*make_eventport("go")) {
        static_cast<void>(config.getInt("level", 0));
        enter("constructor");
    }

    ~Stubborn() override { enter("destructor"); }

    Fenwa::BlockConfiguration setup(const Fenwa::BlockConfiguration& /*config*/) override {
        enter("setup");
        return {};
    }

    void start() override {
        enter("start");
        if (in_ == "callback")
            ask("com.example.Nobody");
        if (in_ == "unnamed")
            ask("org.freedesktop.DBus");
        go_.fire();
    }

    bool run() override {
        enter("run");
        return true;
    }

    void reconfigure(const Fenwa::BlockConfiguration& /*before*/,
                     const Fenwa::BlockConfiguration& after) override {
        static_cast<void>(after.getInt("level", 0));
        enter("reconfigure");
    }

    void stop() override { enter("stop"); }

  private:
    /// Of the callbacks for the bus daemon's own answers the host does not know whose they are.
    void ask(const char* destination) {
        sd_bus_call_method_async(bus_, nullptr, destination, "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus", "GetId",
                                 Fenwa::Callback<&Stubborn::on_reply>::call, this, nullptr);
    }

    void on_reply() {
        enter("callback");
        enter("unnamed");
    }

    void enter(const std::string& phase) {
        if (phase != in_ || bus_ == nullptr)
            return;
        say(*this, does_ + " in " + phase);
        if (does_ == "sleeps")
            std::this_thread::sleep_for(time_);
        while (does_ == "hangs")
            pause();
        for (int i = 0; does_ == "shouts" && i < 3000; ++i)
            sd_bus_emit_signal(bus_, "/com/example/Leaver", "com.example.Leaver1", "Farewell", "ss",
                               get_name().c_str(), std::string(500, 's').c_str());
        for (int i = 0; does_.starts_with("floods") && i < lines_; ++i)
            say(*this, std::to_string(i) + ' ' + std::string(200, '-'));
        for (int i = 0; does_ == "repeats" && i < lines_; ++i) {
            say(*this, "no answer");
            std::this_thread::sleep_for(time_);
        }
        if (does_ == "floods and throws")
            throw std::runtime_error("thrown on purpose");
        if (does_ == "a thread")
            std::thread([] { std::raise(SIGSEGV); }).join();
        if (does_ == "crashes")
            std::raise(SIGSEGV);
        if (does_ == "aborts")
            std::abort();
        if (does_ == "exits")
            std::exit(0);
    }

    sd_bus* bus_;
    std::string in_;
    std::string does_;
    std::chrono::milliseconds time_;
    int lines_;
    Fenwa::EventPort& go_;
};

/// Listens to the signals "Noise", of which many may come, and asks "com.example.Asked1" a question
/// in its start whose answer it logs whenever it comes: the call outlives the block.
class Hearer : public Fenwa::Block {
  public:
    Hearer(std::string name, const Fenwa::BlockConfiguration& config, const Fenwa::InitTools& tools)
        : Fenwa::Block(std::move(name), config), bus_(tools.sdbus_tools->get_bus()) {}

    void start() override {
        sd_bus_match_signal(bus_, slot_.out(), nullptr, nullptr, "com.example.Noise1", "Noise",
                            Fenwa::Callback<&Hearer::on_noise>::call, this);
        sd_bus_call_method_async(bus_, nullptr, "com.example.Asked", "/com/example/Asked",
                                 "com.example.Asked1", "Ask", on_answer, nullptr, nullptr);
    }

  private:
    void on_noise() {}
    static int on_answer(sd_bus_message* /*reply*/, void* /*userdata*/, sd_bus_error* /*error*/) {
        Fenwa::ilog(4) << "an answer";
        return 0;
    }

    sd_bus* bus_;
    Fenwa::Slot slot_;
};

}  // namespace

void register_stop_blocks(Fenwa::IRegistry& registry) {
    registry.register_block<Stubborn>("Stubborn");
    registry.register_block<Hearer>("Hearer");
}

}  // namespace probe
