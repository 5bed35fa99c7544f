#include "host/output/event_filter.hpp"

#include <fmt/core.h>

#include <utility>

#include "common/text/glob.hpp"
#include "common/text/line_text.hpp"
#include "common/text/suggestion.hpp"
#include "host/output/log_level.hpp"

namespace host {
namespace {

class FilteringWriter final : public EventWriter {
  public:
    FilteringWriter(EventFilter filter, std::unique_ptr<EventWriter> writer)
        : filter_(std::move(filter)), writer_(std::move(writer)), unmatched_(filter_.ports) {}

    void setup(const std::string& block, const Fenwa::BlockConfiguration& settings) override {
        if (filter_.setup)
            writer_->setup(block, settings);
    }

    void ready() override {
        for (const std::string& glob : std::exchange(unmatched_, {}))
            common::print_message(
                common::Severity::warning,
                common::with_help(fmt::format("no output matches {}", common::in_quotes(glob)),
                                  common::did_you_mean(glob, outputs_)));
        outputs_.clear();
        writer_->ready();
    }

    [[nodiscard]] std::string output_label(const std::string& block, const std::string& port,
                                           const Fenwa::Datatype& datatype) override {
        const std::string name = block + '.' + port;
        if (!unmatched_.empty()) {
            outputs_.push_back(name);
            std::erase_if(unmatched_,
                          [&](const std::string& glob) { return common::matches(name, glob); });
        }
        const bool is_tick = datatype == Fenwa::datatype_of<Fenwa::datatype_timersource>();
        const bool is_written =
            filter_.output && (filter_.ticks || !is_tick) && common::matches(name, filter_.ports);
        return is_written ? writer_->output_label(block, port, datatype) : std::string();
    }

    void output(const std::string& label, const Fenwa::Datatype& datatype,
                const PortValue& value) override {
        writer_->output(label, datatype, value);
    }

    void debug(const std::string& key, const Fenwa::DebugValue& value) override {
        if (filter_.debug)
            writer_->debug(key, value);
    }

    void log(int level, const std::string& message) override {
        if (filter_.log && severity_of(level) <= filter_.least_severity)
            writer_->log(level, message);
    }

    [[nodiscard]] std::string dropped(std::size_t lines) const override {
        return writer_->dropped(lines);
    }

    void exit(int status) override { writer_->exit(status); }

    [[nodiscard]] int settle_descriptor() const noexcept override {
        return writer_->settle_descriptor();
    }
    void settle() override { writer_->settle(); }

  private:
    const EventFilter filter_;
    const std::unique_ptr<EventWriter> writer_;
    std::vector<std::string> unmatched_;  ///< globs that no output has matched before `ready`
    std::vector<std::string> outputs_;    ///< seen meanwhile
};

}  // namespace

std::unique_ptr<EventWriter> make_filter(EventFilter filter, std::unique_ptr<EventWriter> writer) {
    return std::make_unique<FilteringWriter>(std::move(filter), std::move(writer));
}

}  // namespace host
