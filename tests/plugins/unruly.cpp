#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <locale>
#include <stdexcept>

#include "tests/plugins/probe.hpp"

// A plug-in that misbehaves in one phase, as the environment says, because some phases come before
// there are settings:
//
//     UNRULY_DOES    what it does, a row of `behaviours`
//     UNRULY_IN      the phase: "loading", "constructor", "run" …
//     UNRULY_WHERE   "everywhere", "host": not in a child in which the host tries it out, or
//                    "rebuilt": in the host and, up to its stop, not in the first block
//     UNRULY_FOLDER  where it leaves a file "done" when it does so

namespace probe {
namespace {

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// Whether the host tries the plug-in out in this process: its parent is `fenwa`, too.
bool is_tried_out() {
    std::ifstream file("/proc/" + std::to_string(getppid()) + "/comm");
    std::string parent;
    std::getline(file, parent);
    return parent == "fenwa";
}

/// A comma in numbers, as many languages have it. No other locale need be installed.
struct Comma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

[[noreturn]] void hang() {
    for (;;)
        pause();
}

void abort_it() {
    std::abort();
}
void crash() {
    // Not by a signal that is sent: a fault comes again when its handler returns.
    volatile int* volatile nowhere = nullptr;
    *nowhere = 0;
}
void hang_on() {
    hang();
}
void call_exit() {
    std::exit(3);
}
void call_underscore_exit() {
    _exit(3);
}
void throw_exception() {
    throw std::runtime_error("thrown on purpose");
}
void throw_int() {
    throw 42;
}
/// The child lives on, with all descriptors.
void fork_a_child() {
    if (fork() == 0)
        hang();
}
/// The child ends as a program does.
void fork_an_exiting_child() {
    if (fork() == 0)
        std::exit(3);
}
void close_all() {
    for (int fd = 0; fd < 256; ++fd)
        close(fd);
}
/// As a program does that becomes a daemon.
void close_all_but_the_streams() {
    for (int fd = 3; fd < 256; ++fd)
        close(fd);
}
void block_signals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
}
void change_folder() {
    std::filesystem::current_path("/");
}
void change_locale() {
    std::locale::global(std::locale(std::locale(), new Comma));
    std::setlocale(LC_ALL, "C.UTF-8");
}
void ignore_children() {
    std::signal(SIGCHLD, SIG_IGN);
}

struct Behaviour {
    std::string_view name;
    void (*does)();
};

constexpr std::array behaviours{
    Behaviour{"aborts", abort_it},
    Behaviour{"crashes", crash},
    Behaviour{"hangs", hang_on},
    Behaviour{"calls exit", call_exit},
    Behaviour{"calls _exit", call_underscore_exit},
    Behaviour{"throws an exception", throw_exception},
    Behaviour{"throws an int", throw_int},
    Behaviour{"forks", fork_a_child},
    Behaviour{"forks and the child exits", fork_an_exiting_child},
    Behaviour{"closes descriptors 0 to 255", close_all},
    Behaviour{"closes descriptors 3 to 255", close_all_but_the_streams},
    Behaviour{"blocks all signals", block_signals},
    Behaviour{"changes the working folder", change_folder},
    Behaviour{"changes the locale", change_locale},
    Behaviour{"ignores SIGCHLD", ignore_children},
};

/// Misbehaves if this is the phase for it.
/// @param number of the block in its process, from 1; 0 for the plug-in.
void enter(std::string_view phase, int number = 0) {
    if (phase != variable("UNRULY_IN"))
        return;
    const std::string where = variable("UNRULY_WHERE");
    const bool is_first = number == 1 && phase != "stop" && phase != "destructor";
    if ((where != "everywhere" && is_tried_out()) || (where == "rebuilt" && is_first))
        return;
    const std::string what = variable("UNRULY_DOES");
    logger(4, "%s", (what + " in " + std::string(phase)).c_str());
    std::ofstream(variable("UNRULY_FOLDER") + "/done");
    const auto* const found =
        std::find_if(behaviours.begin(), behaviours.end(),
                     [&what](const Behaviour& each) { return each.name == what; });
    if (found == behaviours.end())
        throw std::invalid_argument("no such behaviour: " + what);
    found->does();
}

/// Lives as long as the plug-in is loaded.
struct Library {
    Library() { enter("loading"); }
    ~Library() { enter("unloading"); }
} library;

class Unruly : public Fenwa::Block {
  public:
    Unruly(std::string name, const Fenwa::BlockConfiguration& config, const Fenwa::InitTools& tools)
        : Fenwa::Block(std::move(name), config),
          bus_(tools.sdbus_tools->get_bus()),
          go_(*make_eventport("go")) {
        static int built = 0;
        number_ = ++built;
        level_ = config.getDouble("level");
        enter("constructor", number_);
    }
    ~Unruly() override { enter("destructor", number_); }

    Fenwa::BlockConfiguration setup(const Fenwa::BlockConfiguration& /*config*/) override {
        enter("setup", number_);
        return {{"level", level_}};
    }
    void start() override {
        enter("start", number_);
        const char* self = nullptr;
        sd_bus_get_unique_name(bus_, &self);
        sd_bus_call_method_async(bus_, nullptr, self, "/", "org.freedesktop.DBus.Peer", "Ping",
                                 Fenwa::Callback<&Unruly::on_reply>::call, this, nullptr);
        go_.fire();
    }
    bool run() override {
        enter("run", number_);
        return true;
    }
    void reconfigure(const Fenwa::BlockConfiguration& /*before*/,
                     const Fenwa::BlockConfiguration& after) override {
        static_cast<void>(after.getInt("rate", 0));
        enter("reconfigure");
    }
    void stop() override { enter("stop", number_); }

  private:
    void on_reply() {
        enter("callback", number_);
        say(*this, "has an answer");
    }

    sd_bus* bus_;
    Fenwa::EventPort& go_;
    double level_ = 0;
    int number_ = 0;
};

}  // namespace
}  // namespace probe

int lib_register_cpp(Fenwa::IRegistry* registry) {
    probe::enter("entry point");
    registry->register_block<probe::Unruly>("Unruly");
    return 0;
}
