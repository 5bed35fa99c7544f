#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "common/events/event_lines.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/json.hpp"
#include "common/text/terminal.hpp"

namespace camera {

/// A method call that reached a service.
struct CallRecord {
    std::string service;
    std::string member;
    common::SharedJson arguments;  ///< as `body_json` gives them
    std::string sender;            ///< unique name of the client
};

/// What text tells of a camera; JSON tells all.
enum class Detail {
    story,  ///< what people and scenarios do, values, and services that come and go
    all,    ///< and each call, answer and signal, and the services at the begin and the end
};

/// Writes what happens in a camera as event lines.
class EventLog {
  public:
    /// As EventLines.
    EventLog(common::StandardOutput& out, common::EventFormat format, common::ColorChoice color,
             common::Timestamps timestamps = common::Timestamps::relative,
             Detail detail = Detail::all)
        : lines_(out, format, color, timestamps),
          brief_(format == common::EventFormat::text && detail == Detail::story) {}

    /// The line in place of so many that nobody has read, line end included. Any thread.
    [[nodiscard]] std::string unread(std::size_t lines) const;

    void ready(const std::string& bus, const std::vector<std::string>& services);
    /// `why` is empty for a service that came or went by itself or by a command.
    void service_up(const std::string& service, const std::vector<std::string>& bus_names,
                    const std::string& unique_name);
    void service_down(const std::string& service, const std::string& why);
    void call(const CallRecord& call);
    void reply(const std::string& service, const std::string& member, const std::string& receiver,
               const common::Json& values);
    void error_reply(const std::string& service, const std::string& member,
                     const std::string& receiver, const std::string& name,
                     const std::string& message);
    void signal(const std::string& service, const std::string& member,
                const common::Json& arguments);
    /// A service calls `receiver`, and the outcome.
    void call_out(const std::string& service, const std::string& member,
                  const std::string& receiver, const common::Json& arguments);
    void call_answered(const std::string& service, const std::string& member,
                       const std::string& receiver, const common::Json& values);
    void call_failed(const std::string& service, const std::string& member,
                     const std::string& receiver, const std::string& name,
                     const std::string& message);
    /// A client has left the bus and `count` registrations of it went with it.
    void registrations_dropped(const std::string& service, const std::string& client,
                               std::size_t count);
    /// `sentence` for people: "sensor main is 71.5".
    void value_set(const std::string& service, const std::string& name, const common::Json& value,
                   const std::string& sentence);
    /// A button is pressed, which makes this request: "GET /…".
    void pressed(const std::string& service, const std::string& button, const std::string& request);
    /// A text on the video has reached its end.
    void text_expired(const std::string& service, const std::string& text);
    /// `state`: "set", "applied", "spent" or "cleared"; `what` is the rule in words.
    void fault(std::string_view state, const std::string& target, const std::string& what);
    /// A step of a scenario begins; in JSON only, because text shows its effects.
    void step(std::size_t number, const std::string& location);
    void say(std::size_t step, const std::string& text);
    /// An expectation that was met, or was not.
    /// @param instead an object of what came instead, whose members become those of the event.
    void expectation(std::size_t step, const std::string& location, const std::string& expected,
                     bool met, const common::Json& instead);
    /// A call that the scenario answers has not come within so many seconds.
    void missing_call(std::size_t step, const std::string& location, const std::string& member,
                      double within);
    void exit(common::ExitCode code);

    /// The time of the lines.
    [[nodiscard]] double seconds() const { return lines_.seconds(); }

  private:
    void write(std::string_view event, const common::Json& fields, const std::string& subject,
               std::string_view color, const std::string& sentence);
    /// `details`: the fields after the three that each call and answer begins with.
    void write_exchange(std::string_view event, const std::string& service,
                        const std::string& member, const std::string& receiver,
                        const common::Json& details, std::string_view color,
                        const std::string& sentence);

    common::EventLines lines_;
    bool brief_;
    bool ready_ = false;
};

}  // namespace camera
