#include <chrono>
#include <string_view>
#include <thread>

#include "tests/plugins/probe.hpp"

namespace probe {
namespace {

constexpr const char* echo_interface = "com.example.Echo1";

/// The interface's only method, which is called with a text.
template <auto OnEcho>
constexpr sd_bus_vtable echo_table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Echo", "s", "s", Fenwa::Callback<OnEcho>::call, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int answer_echo(const Fenwa::Block& block, sd_bus_message* call, std::string_view text) {
    say(block, "was called");
    const std::string answer = block.get_name() + " heard " + std::string(text);
    return sd_bus_reply_method_return(call, "s", answer.c_str());
}

std::string_view text_of(sd_bus_message* call) {
    const char* text = "";
    sd_bus_message_read(call, "s", &text);
    return text;
}

/// Exports "com.example.Echo1" at its key "path", "times" times, in its "phase" ("constructor",
/// "setup", "start" or "run").
class Exporter : public Fenwa::Block {
  public:
    Exporter(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config),
          path_(config.getString("path")),
          phase_(config.getString("phase", "constructor")),
          times_(config.getInt("times", 1)),
          go_(*make_eventport("go")) {
        enter("constructor");
    }

    Fenwa::BlockConfiguration setup(const Fenwa::BlockConfiguration& /*config*/) override {
        enter("setup");
        return {};
    }

    void start() override {
        enter("start");
        if (phase_ == "run")
            go_.fire();
    }

    bool run() override {
        enter("run");
        say(*this, "ran");
        return true;
    }

  private:
    void enter(const std::string& phase) {
        for (int i = 0; phase == phase_ && i < times_; ++i)
            add_dbus(path_, echo_interface, echo_table<&Exporter::on_echo>, this);
    }
    int on_echo(sd_bus_message* call) { return answer_echo(*this, call, text_of(call)); }

    std::string path_;
    std::string phase_;
    int times_;
    Fenwa::EventPort& go_;
};

/// Sends the signal "Farewell" when it is stopped and when it is destroyed; "stop_ms" is how long
/// its stop takes.
class Leaver : public Fenwa::Block {
  public:
    Leaver(std::string name, const Fenwa::BlockConfiguration& config, const Fenwa::InitTools& tools)
        : Fenwa::Block(std::move(name), config),
          bus_(tools.sdbus_tools->get_bus()),
          stop_time_(config.getInt("stop_ms", 0)) {}

    ~Leaver() override { send("destructor"); }

    void stop() override {
        say(*this, "stop");
        std::this_thread::sleep_for(stop_time_);
        send("stop");
    }

  private:
    void send(const char* phase) {
        if (bus_ != nullptr)
            sd_bus_emit_signal(bus_, "/com/example/Leaver", "com.example.Leaver1", "Farewell", "ss",
                               get_name().c_str(), phase);
    }

    sd_bus* bus_;
    std::chrono::milliseconds stop_time_;
};

/// Makes a blocking call of "Ask" to "destination" in a run, for which it fires when it is started.
/// Says what the call threw; with "tells" false lets it out. With "early" it asks the bus daemon
/// something in its constructor, and so needs a bus to be built.
class Caller : public Fenwa::Block {
  public:
    Caller(std::string name, const Fenwa::BlockConfiguration& config, const Fenwa::InitTools& tools)
        : Fenwa::Block(std::move(name), config),
          tools_(*tools.sdbus_tools),
          destination_(config.getString("destination", "")),
          tells_(config.getBool("tells", true)),
          go_(*make_eventport("go")) {
        if (config.getBool("early", false))
            ask_the_daemon(tools);
    }

    void start() override {
        if (!destination_.empty())
            go_.fire();
    }

    bool run() override {
        say(*this, "asks");
        try {
            ask();
            say(*this, "was answered");
        } catch (const Fenwa::SDBusError& error) {
            if (!tells_)
                throw;
            say(*this, "got " + error.name());
        }
        return true;
    }

  private:
    void ask() {
        tools_.call_method(destination_.c_str(), "/com/example/Peer", "com.example.Peer1", "Ask",
                           nullptr, "s", "anyone?");
    }

    Fenwa::SDBusTools& tools_;
    std::string destination_;
    bool tells_;
    Fenwa::EventPort& go_;
};

/// Publishes on "heard" where it must not: in the callback of "com.example.Echo1", exported at its
/// key "path", the number of calls so far. The text "run" also has it run, which publishes 100.
class Hasty : public Fenwa::Block {
  public:
    Hasty(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config),
          heard_(*Fenwa::add_outport<int>(*this, "heard")),
          go_(*make_eventport("go")) {
        add_dbus(config.getString("path"), echo_interface, echo_table<&Hasty::on_echo>, this);
    }

    bool run() override {
        heard_.publish(100);
        return true;
    }

  private:
    int on_echo(sd_bus_message* call) {
        heard_.publish(++calls_);
        const std::string_view text = text_of(call);
        if (text == "run")
            go_.fire();
        return answer_echo(*this, call, text);
    }

    Fenwa::OutPort<int>& heard_;
    Fenwa::EventPort& go_;
    int calls_ = 0;
};

}  // namespace

void register_bus_blocks(Fenwa::IRegistry& registry) {
    registry.register_block<Exporter>("Exporter");
    registry.register_block<Leaver>("Leaver");
    registry.register_block<Caller>("Caller");
    registry.register_block<Hasty>("Hasty");
}

}  // namespace probe
