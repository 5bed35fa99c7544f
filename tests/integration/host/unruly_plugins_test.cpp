// The host and a plug-in that misbehaves: every behaviour in every phase, as the tables of
// docs/reliability.md have it.
#include <csignal>
#include <cstring>
#include <fstream>
#include <future>
#include <set>
#include <thread>

#include "tests/integration/host/host_test.hpp"
#include "tests/support/pattern.hpp"
#include "tests/support/proc.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// The phases in their order, with the names that the host has for them.
const std::vector<std::pair<std::string, std::string>> phases{{"loading", "its loading"},
                                                              {"entry point", "its entry point"},
                                                              {"constructor", "its constructor"},
                                                              {"setup", "setup"},
                                                              {"start", "start"},
                                                              {"run", "run"},
                                                              {"callback", "a callback of the bus"},
                                                              {"reconfigure", "reconfigure"},
                                                              {"stop", "stop"},
                                                              {"destructor", "its destructor"},
                                                              {"unloading", "its unloading"}};

/// Behaviours after which the host goes on: they have to show in a later reload.
bool is_lasting(const std::string& behaviour) {
    return behaviour.starts_with("forks") || behaviour.starts_with("blocks") ||
           behaviour.starts_with("changes") || behaviour.starts_with("ignores");
}

bool is_in(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// Whether a command has this phase. A reload loads no plug-in.
bool has_phase(const std::string& command, const std::string& phase) {
    if (command == "run")
        return phase != "reconfigure";
    return command != "reload" || (phase != "loading" && phase != "entry point");
}

Words split(const std::string& text, const std::string& separator) {
    Words parts;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find(separator, begin)) != std::string::npos;
         begin = end + separator.size())
        parts.push_back(text.substr(begin, end - begin));
    parts.push_back(text.substr(begin));
    return parts;
}

/// The outcome of a command: in a line of its own each, how it ends, the fate of the other block of
/// a run, and what it says.
using Outcome = std::string;

/// The outcomes on the page, by behaviour and phase.
using Outcomes = std::map<std::pair<std::string, std::string>, Outcome>;

Words cells_of(const std::string& line) {
    Words cells = split(line.substr(1, line.rfind('|') - 1), "|");
    for (std::string& cell : cells) {
        cell.erase(0, cell.find_first_not_of(' '));
        cell.erase(cell.find_last_not_of(' ') + 1);
    }
    return cells;
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    const std::size_t at = text.find(what);
    return at == std::string::npos ? text : text.replace(at, what.size(), with);
}

void add_row(const std::string& command, const Words& cells, Outcomes& outcomes) {
    // "does | in | ends with | says", of a run with "the other block" before the last
    std::string says;
    for (const Groups& sentence : Pattern("`([^`]+)`").find_all(cells.back()))
        says += sentence[1] + '\n';
    for (const std::string& behaviour : split(cells.at(0), ", ")) {
        for (const auto& [phase, name] : phases) {
            const Words named = split(cells.at(1), ", ");
            const bool is_meant = cells.at(1) == "every phase" ||
                                  std::find(named.begin(), named.end(), phase) != named.end();
            if (!is_meant || !has_phase(command, phase))
                continue;
            const Outcome outcome = cells.at(2) + '\n' +
                                    (cells.size() == 5 ? cells.at(3) + '\n' : "") +
                                    Pattern("PHASE").replace(says, name);
            EXPECT_TRUE(outcomes.emplace(std::make_pair(behaviour, phase), outcome).second)
                << command << ": " << behaviour << " in " << phase << " is there twice";
        }
    }
}

/// The tables of the page, by command.
const std::map<std::string, Outcomes>& page() {
    static const std::map<std::string, Outcomes> tables = [] {
        std::map<std::string, Outcomes> read;
        std::ifstream file(FENWA_RELIABILITY_PAGE);
        std::string command;
        for (std::string line; std::getline(file, line);) {
            const Words cells = line.starts_with('|') ? cells_of(line) : Words{};
            if (cells.size() >= 4 && cells[2].starts_with("`fenwa "))
                command = cells[2].find("reload") != line.npos
                              ? "reload"
                              : cells[2].substr(7, cells[2].find('`', 1) - 7);
            else if (cells.empty())
                command.clear();
            else if (!command.empty() && !cells[0].starts_with("---"))
                add_row(command, cells, read[command]);
        }
        return read;
    }();
    return tables;
}

/// A command and a behaviour.
struct Misdeed : Case {
    std::string command;
    std::string behaviour;
};

std::vector<Misdeed> misdeeds() {
    std::vector<Misdeed> all;
    for (const auto& [command, outcomes] : page()) {
        std::set<std::string> known;
        for (const auto& [when, outcome] : outcomes) {
            if (known.insert(when.first).second)
                all.push_back({{Pattern("[^A-Za-z0-9]").replace(command + " " + when.first, "_")},
                               command,
                               when.first});
        }
    }
    return all;
}

/// One run of a command with a plug-in that misbehaves in one phase.
class Trial {
  public:
    Trial(const Misdeed& misdeed, std::string phase, std::string bus)
        : command_(misdeed.command),
          behaviour_(misdeed.behaviour),
          phase_(std::move(phase)),
          bus_(std::move(bus)) {
        // Relative names, because a plug-in may change the working folder.
        fs::create_directory_symlink(FENWA_TEST_PLUGINS, folder_.path() / "plugins");
    }

    Outcome outcome() {
        write_graph();
        Process program(arguments(), {{"UNRULY_DOES", behaviour_},
                                      {"UNRULY_IN", phase_},
                                      {"UNRULY_WHERE", where()},
                                      {"UNRULY_FOLDER", folder_.path().string()}});
        if (command_ == "run" || command_ == "reload")
            lead(program);
        wait_for_end(program);
        const std::size_t left = end_children();
        const Ended ended = program.wait();
        EXPECT_EQ(fs::exists(folder_.path() / "done"), is_reached());
        if (command_ == "check" || command_ == "inspect") {
            EXPECT_EQ(left, 0U);
            return end_of(ended) + '\n' + sentences(ended);
        }
        const bool has_streams = behaviour_ != "closes descriptors 0 to 255";
        // Without them the host may or may not have said something.
        if (!has_streams && phase_ != "unloading")
            return end_of(ended) + "\nnot seen\n";
        if (behaviour_ == "changes the locale")
            expect_no_comma_in_numbers(ended.out);
        // The block's own line before its misdeed is not lost.
        EXPECT_TRUE(!has_streams || is_in(ended.out + ended.err, behaviour_ + " in " + phase_))
            << ended.out;
        return end_of(ended) + '\n' + other_block(ended, left) + '\n' + sentences(ended);
    }

  private:
    /// Whether the command comes to the phase: a check and an inspection start nothing.
    [[nodiscard]] bool is_reached() const {
        return command_ == "run" || command_ == "reload" || phase_ == "loading" ||
               phase_ == "entry point" || phase_ == "constructor" || phase_ == "setup" ||
               phase_ == "reconfigure" || phase_ == "destructor";
    }

    /// A value of JSON that has a comma in it.
    static void expect_no_comma_in_numbers(const std::string& lines) {
        EXPECT_EQ(Pattern(":[0-9.]+,[0-9]").find(lines), Groups{}) << lines;
    }

    [[nodiscard]] std::string where() const {
        if (command_ == "check" || command_ == "inspect")
            return "everywhere";
        return command_ == "run" || is_lasting(behaviour_) ? "host" : "rebuilt";
    }

    [[nodiscard]] Words arguments() const {
        const Words in_folder{"env", "--chdir", folder_.path().string(), FENWA_PROGRAM};
        const Words with_plugins{"--plugin-dir", "plugins"};
        if (command_ == "inspect")
            return in_folder + Words{"inspect", "libunruly.so", "--time-limit", "1"} + with_plugins;
        if (command_ == "check")
            return in_folder + Words{"check", "graph.toml"} + with_plugins;
        return in_folder + Words{"run", "graph.toml", "--bus", bus_, "--format", "json"} +
               with_plugins;
    }

    /// With another number each time: a block reads "rate" in `reconfigure`, and "level" when it is
    /// built.
    void write_graph() {
        const std::string changed = std::to_string(graphs_++);
        const bool is_live = phase_ == "reconfigure";
        folder_.write("graph.toml", "plugins = [\"libunruly.so\", \"libprobe.so\"]\n" +
                                        block("a", "Probe") +
                                        block("b", "Unruly",
                                              "level = " + (is_live ? "0" : changed) +
                                                  ".5, rate = " + (is_live ? changed : "0")));
    }

    /// Takes a run through its life. Each wait is over when the program has ended.
    void lead(Process& host) {
        const bool hangs = behaviour_ == "hangs";
        const bool is_late = phase_ == "stop" || phase_ == "destructor" || phase_ == "unloading";
        const std::string sign = behaviour_ + " in " + phase_;
        if (hangs && (phase_ == "loading" || phase_ == "entry point"))
            host.wait_for_error_text(sign);
        else
            host.wait_for_text(hangs && command_ == "run" && !is_late ? sign : "has an answer");
        for (int i = 0; command_ == "reload" && i < (is_lasting(behaviour_) ? 2 : 1); ++i) {
            write_graph();
            host.send_signal(SIGHUP);
            if (hangs && phase_ != "unloading") {
                host.wait_for_text(sign);
                continue;
            }
            host.wait_for_error_text("reloaded");
            if (phase_ != "reconfigure")
                host.wait_for_text("has an answer");
        }
        host.send_signal(SIGTERM);
        if (hangs) {
            host.wait_for_error_text("a further SIGINT");
            host.send_signal(SIGTERM);
        }
    }

    /// As `Process::wait`, but a child of the program may hold its streams open.
    static void wait_for_end(const Process& program) {
        const auto deadline = Clock::now() + Process::wait_limit;
        for (char state = 'R'; state != 'Z' && state != '?' && Clock::now() < deadline;
             state = state_of(program.pid()).state)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }

    /// @returns the number of processes that the program has left, for good.
    [[nodiscard]] std::size_t end_children() const {
        const std::string mark = "UNRULY_FOLDER=" + folder_.path().string();
        const bool may_be_left = behaviour_ == "forks" && where() != "everywhere";
        const auto deadline = Clock::now() + std::chrono::seconds(2);
        std::vector<pid_t> left = processes_with(mark);
        for (; !left.empty() && !may_be_left && Clock::now() < deadline;
             left = processes_with(mark))
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        for (const pid_t process : left)
            kill(process, SIGKILL);
        return left.size();
    }

    static std::string end_of(const Ended& ended) {
        return ended.signal == 0 ? std::to_string(ended.code)
                                 : "SIG" + std::string(sigabbrev_np(ended.signal));
    }

    /// The fate of the block that was there before, and of the processes of the other one.
    [[nodiscard]] static std::string other_block(const Ended& ended, std::size_t left) {
        std::string fate = "not built";
        if (is_in(ended.out, "a: destructor"))
            fate = "stopped";
        else if (is_in(ended.out, "a: constructor"))
            fate = "not stopped";
        return left == 0 ? fate : fate + "; the child lives on";
    }

    /// What the host says of it on stderr, and `inspect` on stdout too: without the places in the
    /// graph, its lines and the counts of mistakes.
    [[nodiscard]] std::string sentences(const Ended& ended) const {
        static const Pattern place(
            "^(fenwa: |graph\\.toml:[0-9:]+ (error|warning): |  (error|note) +)");
        const Words of_inspect = command_ == "inspect" ? split(ended.out, "\n") : Words{};
        std::string all;
        for (const std::string& line : split(ended.err, "\n") + of_inspect) {
            if (line.find_first_not_of("0123456789. ") != std::string::npos &&
                !place.find_all(line).empty() && !is_in(line, behaviour_ + " in ") &&
                !is_in(line, "no mistakes") && !is_in(line, "no errors"))
                all += replaced(place.replace(line, ""), "graph.toml: ", "") + '\n';
        }
        return all;
    }

    std::string command_;
    std::string behaviour_;
    std::string phase_;
    std::string bus_;
    TemporaryFolder folder_;
    int graphs_ = 0;
};

class UnrulyPlugin : public HostTest, public testing::WithParamInterface<Misdeed> {};

TEST_P(UnrulyPlugin, EndsTheHostAsThePageSaysInEachPhase) {
    const Misdeed& misdeed = GetParam();
    static_cast<void>(bus());  // which ends with the thread that asks for it first
    std::vector<std::pair<std::string, std::future<Outcome>>> trials;
    for (const auto& [phase, name] : phases) {
        if (has_phase(misdeed.command, phase))
            trials.emplace_back(phase, std::async(std::launch::async, [misdeed, phase = phase] {
                                    return Trial(misdeed, phase, bus()).outcome();
                                }));
    }
    const Outcomes& expected = page().at(misdeed.command);
    for (auto& [phase, trial] : trials) {
        const auto found = expected.find({misdeed.behaviour, phase});
        EXPECT_EQ(trial.get(), found == expected.end() ? "is not on the page" : found->second)
            << misdeed.behaviour << " in " << phase;
    }
}

INSTANTIATE_TEST_SUITE_P(Page, UnrulyPlugin, testing::ValuesIn(misdeeds()), name_of<Misdeed>);

TEST(UnrulyPluginsPage, HasTheSameBehavioursForEachCommand) {
    const auto behaviours = [](const std::string& command) {
        std::set<std::string> names;
        for (const auto& [when, outcome] : page().at(command))
            names.insert(when.first);
        return names;
    };
    EXPECT_EQ(behaviours("run").size(), 15U);
    for (const char* command : {"check", "inspect", "reload"})
        EXPECT_EQ(behaviours(command), behaviours("run")) << command;
}

}  // namespace
}  // namespace test
