#include "host/output/event_writer.hpp"

#include <cmath>
#include <iostream>
#include <sstream>

#include "common/text/diagnostics.hpp"
#include "common/text/line_text.hpp"
#include "host/output/repeated_log.hpp"

namespace host {
namespace {

using common::Json;

class Stopwatch {
  public:
    /// Seconds since the start, to the microsecond.
    [[nodiscard]] double seconds() const {
        const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(
            std::chrono::steady_clock::now() - start_);
        return static_cast<double>(passed.count()) / 1e6;
    }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

class JsonWriter final : public EventWriter {
  public:
    JsonWriter(StandardOutput& out, const Journal& journal)
        : out_(out), journal_(journal), repeated_([this](const RepeatedLines::Line& line) {
              journal_.send(line.level, line.message, line.block);
          }) {}

    void setup(const std::string& block, const Fenwa::BlockConfiguration& settings) override {
        write("setup", {{"block", block}, {"settings", to_json(settings)}});
    }

    void ready() override { write("ready", Json::object()); }

    void output(const std::string& block, const std::string& port, const Fenwa::Datatype& datatype,
                const PortValue& value) override {
        write("output", {{"block", block},
                         {"port", port},
                         {"type", type_name(datatype)},
                         {"value", to_json(value)}});
    }

    void debug(const std::string& key, const Fenwa::DebugValue& value) override {
        write("debug", {{"key", key}, {"value", to_json(value)}});
    }

    void log(int level, const std::string& message) override {
        if (journal_.in_use())
            repeated_.log(level, message);
        // Put together by hand: blocks that try again without end write a line each time.
        write_line("log", "\"level\":" + std::to_string(level) +
                              ",\"message\":" + common::json_line(message));
    }

    [[nodiscard]] std::string dropped(std::size_t lines) const override {
        return line_of("dropped", "\"lines\":" + std::to_string(lines));
    }

    void exit(int status) override {
        repeated_.finish();
        write("exit", {{"status", status}});
    }

    [[nodiscard]] int settle_descriptor() const noexcept override { return repeated_.descriptor(); }
    void settle() override { repeated_.settle(); }

  private:
    void write(const char* event, const Json& members) {
        const std::string object = common::json_line(members);
        write_line(event, std::string_view(object).substr(1, object.size() - 2));
    }

    /// @param members as they stand between the braces of an object.
    [[nodiscard]] std::string line_of(const char* event, std::string_view members) const {
        std::string line = R"({"event":")";
        line.append(event).append(R"(","time":)").append(common::json_line(watch_.seconds()));
        if (!members.empty())
            line.append(",").append(members);
        line.append("}\n");
        return line;
    }

    void write_line(const char* event, std::string_view members) {
        const std::string line = line_of(event, members);
        const std::lock_guard lock(mutex_);
        out_.write(line);
    }

    Stopwatch watch_;
    StandardOutput& out_;
    const Journal& journal_;
    RepeatedLog repeated_;
    std::mutex mutex_;
};

class TextWriter final : public EventWriter {
  public:
    TextWriter(StandardOutput& out, const Journal& journal, common::ColorChoice color)
        : out_(out),
          journal_(journal),
          out_colors_(common::use_color(color, stdout)),
          err_colors_(common::use_color(color, stderr)),
          repeated_([this](const RepeatedLines::Line& line) { tell(line); }) {}

    void setup(const std::string& block, const Fenwa::BlockConfiguration& settings) override {
        const Json values = to_json(settings);
        for (const auto& [key, value] : values.items())
            value_line(block + " setup " + key, value);
    }

    void ready() override { host_line("ready"); }

    void output(const std::string& block, const std::string& port,
                const Fenwa::Datatype& /*datatype*/, const PortValue& value) override {
        // That time goes by is no news to a reader, who would see little else.
        if (std::holds_alternative<Fenwa::datatype_timersource>(value))
            return;
        value_line(block + '.' + port, to_json(value));
    }

    void debug(const std::string& key, const Fenwa::DebugValue& value) override {
        value_line("debug " + key, to_json(value));
    }

    void log(int level, const std::string& message) override { repeated_.log(level, message); }

    [[nodiscard]] int settle_descriptor() const noexcept override { return repeated_.descriptor(); }
    void settle() override { repeated_.settle(); }

    [[nodiscard]] std::string dropped(std::size_t lines) const override {
        return "fenwa: dropped " + common::counted(lines, "line") +
               " here, because nobody read them\n";
    }

    void exit(int status) override {
        repeated_.finish();
        if (status == 0)
            host_line("stopped");
    }

  private:
    void tell(const RepeatedLines::Line& told) {
        if (journal_.send(told.level, told.message, told.block))
            return;
        std::string_view color = err_colors_.dim;
        std::string_view word = "info";
        if (told.level <= 1) {
            color = err_colors_.red;
            word = "error";
        } else if (told.level <= 3) {
            color = err_colors_.yellow;
            word = "warning";
        }
        std::string line{color};
        line.append(word).append(": ").append(err_colors_.reset);
        line.append(common::one_line(common::without_line_end(told.message))).push_back('\n');
        error_line(line);
    }

    void value_line(const std::string& name, const Json& value) {
        char time[32];
        std::snprintf(time, sizeof time, "%8.3f", watch_.seconds());
        const std::lock_guard lock(mutex_);
        std::ostringstream line;
        line << out_colors_.dim << time << out_colors_.reset << "  " << common::one_line(name)
             << " = " << out_colors_.bold << common::one_line(common::json_line(value))
             << out_colors_.reset << '\n';
        out_.write(line.str());
    }

    void host_line(const std::string& text) { error_line("fenwa: " + text + '\n'); }

    /// In one piece, because other hosts may write to the same terminal.
    void error_line(const std::string& line) {
        const std::lock_guard lock(mutex_);
        std::cerr << line << std::flush;
    }

    Stopwatch watch_;
    StandardOutput& out_;
    const Journal& journal_;
    common::Palette out_colors_;
    common::Palette err_colors_;
    RepeatedLog repeated_;
    std::mutex mutex_;
};

}  // namespace

std::unique_ptr<EventWriter> make_event_writer(EventFormat format, StandardOutput& out,
                                               const Journal& journal, common::ColorChoice color) {
    if (format == EventFormat::json)
        return std::make_unique<JsonWriter>(out, journal);
    return std::make_unique<TextWriter>(out, journal, color);
}

}  // namespace host
