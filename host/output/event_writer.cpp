#include "host/output/event_writer.hpp"

#include <fmt/format.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <string_view>

#include "common/events/journal.hpp"
#include "common/events/message.hpp"
#include "common/events/output_writer.hpp"
#include "common/text/line_text.hpp"
#include "host/output/current_block.hpp"
#include "host/output/log_level.hpp"
#include "host/output/repeated_log.hpp"
#include "host/value/value_text.hpp"

namespace host {
namespace {

using common::Json;

class JsonWriter final : public EventWriter {
  public:
    explicit JsonWriter(common::StandardOutput& out)
        : lines_(out, common::EventFormat::json, common::ColorChoice::never),
          repeated_([](const RepeatedLines::Line& line) {
              common::send_to_journal(severity_of(line.level), line.message, line.block);
          }) {}

    void setup(const std::string& block, const Fenwa::BlockConfiguration& settings) override {
        lines_.write_json("setup", {{"block", block}, {"settings", to_json(settings)}});
    }

    void ready() override { lines_.write_json("ready", Json::object()); }

    [[nodiscard]] std::string output_label(const std::string& block, const std::string& port,
                                           const Fenwa::Datatype& datatype) override {
        return fmt::format(R"("block":{},"port":{},"type":{},"value":)", common::json_line(block),
                           common::json_line(port), common::json_line(type_name(datatype)));
    }

    void output(const std::string& label, const Fenwa::Datatype& /*datatype*/,
                const PortValue& value) override {
        lines_.write_json("output", [&](std::string& line) {
            line += label;
            append_json(line, value);
        });
    }

    void debug(const std::string& key, const Fenwa::DebugValue& value) override {
        lines_.write_json("debug", [&](std::string& line) {
            line += "\"key\":";
            common::append_json(line, key);
            line += ",\"value\":";
            append_json(line, value);
        });
    }

    void log(int level, const std::string& message) override {
        if (common::uses_journal())
            repeated_.log(level, message);
        const std::string* const block = CurrentBlock::name();
        lines_.write_json("log", [&](std::string& line) {
            if (block != nullptr) {
                line += "\"block\":";
                common::append_json(line, *block);
                line += ',';
            }
            line.append("\"level\":").append(std::to_string(level)).append(",\"message\":");
            common::append_json(line, message);
        });
    }

    [[nodiscard]] std::string dropped(std::size_t lines) const override {
        return lines_.json_event("dropped", {{"lines", lines}});
    }

    void exit(int status) override {
        repeated_.finish();
        lines_.write_json("exit", {{"status", status}});
    }

    [[nodiscard]] int settle_descriptor() const noexcept override { return repeated_.descriptor(); }
    void settle() override { repeated_.settle(); }

  private:
    common::EventLines lines_;
    RepeatedLog repeated_;
};

class TextWriter final : public EventWriter {
  public:
    TextWriter(common::StandardOutput& out, common::ColorChoice color,
               common::Timestamps timestamps)
        : lines_(out, common::EventFormat::text, color, timestamps),
          before_value_(fmt::format(" = {}", lines_.palette().bold)),
          err_colors_(common::use_color(color, stderr)),
          repeated_([this](const RepeatedLines::Line& line) { write_log_line(line); }) {}

    void setup(const std::string& block, const Fenwa::BlockConfiguration& settings) override {
        const Json values = to_json(settings);
        for (const auto& [key, value] : values.items())
            lines_.write_text([&, &key = key, &value = value](std::string& line) {
                common::append_one_line(line, block + " setup " + key);
                line += before_value_;
                common::append_one_line(line, common::json_line(value));
                line += lines_.palette().reset;
            });
    }

    void ready() override { common::print_message(common::Severity::info, "ready"); }

    [[nodiscard]] std::string output_label(const std::string& block, const std::string& port,
                                           const Fenwa::Datatype& /*datatype*/) override {
        return common::one_line(block + '.' + port) + before_value_;
    }

    void output(const std::string& label, const Fenwa::Datatype& datatype,
                const PortValue& value) override {
        lines_.write_text([&](std::string& line) {
            line += label;
            if (std::holds_alternative<std::monostate>(value))
                common::append_one_line(line, unknown_value_text(type_name(datatype)));
            else
                append_json(line, value);
            line += lines_.palette().reset;
        });
    }

    void debug(const std::string& key, const Fenwa::DebugValue& value) override {
        lines_.write_text([&](std::string& line) {
            line += "debug ";
            common::append_one_line(line, key);
            line += before_value_;
            append_safe(line, value);
            line += lines_.palette().reset;
        });
    }

    void log(int level, const std::string& message) override { repeated_.log(level, message); }

    [[nodiscard]] int settle_descriptor() const noexcept override { return repeated_.descriptor(); }
    void settle() override { repeated_.settle(); }

    [[nodiscard]] std::string dropped(std::size_t lines) const override {
        return common::dropped_line(lines);
    }

    void exit(int status) override {
        repeated_.finish();
        if (status == 0)
            common::print_message(common::Severity::info, "stopped");
    }

  private:
    void write_log_line(const RepeatedLines::Line& line) {
        const common::Severity severity = severity_of(line.level);
        if (common::send_to_journal(severity, line.message, line.block))
            return;
        const std::string block =
            line.block.empty() ? std::string()
                               : fmt::format("{}{}:{} ", err_colors_.cyan,
                                             common::one_line(line.block), err_colors_.reset);
        // In one piece, because other hosts may write to the same terminal.
        std::cerr << fmt::format("{}{}{}{}:{} {}\n", lines_.stamp(err_colors_), block,
                                 color_of(severity, err_colors_), severity_name(severity),
                                 err_colors_.reset,
                                 common::one_line(common::without_line_end(line.message)))
                  << std::flush;
    }

    /// Only a string holds characters of others, which JSON does not escape all.
    static void append_safe(std::string& line, const Fenwa::DebugValue& value) {
        if (std::holds_alternative<std::string>(value))
            common::append_one_line(line, common::json_line(to_json(value)));
        else
            append_json(line, value);
    }

    common::EventLines lines_;
    const std::string before_value_;  ///< behind the name
    common::Palette err_colors_;
    RepeatedLog repeated_;
};

}  // namespace

std::unique_ptr<EventWriter> make_event_writer(common::EventFormat format,
                                               common::StandardOutput& out,
                                               common::ColorChoice color,
                                               common::Timestamps timestamps) {
    if (format == common::EventFormat::json)
        return std::make_unique<JsonWriter>(out);
    return std::make_unique<TextWriter>(out, color, timestamps);
}

}  // namespace host
