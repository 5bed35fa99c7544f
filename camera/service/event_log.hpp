#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "common/process/exit_code.hpp"
#include "common/text/json.hpp"
#include "common/text/terminal.hpp"

namespace camera {

enum class Format { text, json };

/// A method call that reached a service.
struct CallRecord {
    std::string service;
    std::string member;
    common::Json arguments;  ///< as `body_json` gives them
    std::string sender;      ///< unique name of the client
};

/// Tells on a stream what happens, one line an event, flushed at each: as text for people or as
/// JSON for scripts, where every line has "event" and "time" (seconds since the start).
class EventLog {
  public:
    /// `broken` is called when a line cannot be written (the reader has gone, the disk is full),
    /// with the errno, once.
    EventLog(std::FILE* out, Format format, bool color, std::function<void(int)> broken);

    void ready(const std::string& bus, const std::vector<std::string>& services);
    /// `why` is empty where it came or went by itself or by an order.
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
    /// A service calls somebody else, and what comes of it; `receiver` is whom it has called.
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
    /// `sentence` says it in words: "sensor main is 71.5".
    void value_set(const std::string& service, const std::string& name, const common::Json& value,
                   const std::string& sentence);
    /// Somebody presses a button, which makes this request: "GET /…".
    void pressed(const std::string& service, const std::string& button, const std::string& request);
    /// A text on the video has had its time.
    void text_expired(const std::string& service, const std::string& text);
    /// `state`: "set", "applied", "spent" or "cleared"; `what` says what the rule does.
    void fault(std::string_view state, const std::string& target, const std::string& what);
    /// A step of a scenario begins; told in JSON only, as text it shows by what it does.
    void step(std::size_t number, const std::string& location);
    void say(std::size_t step, const std::string& text);
    /// An expectation that was met, or that was not, with what came instead.
    void expectation(std::size_t step, const std::string& location, const std::string& expected,
                     bool met, const common::Json& calls);
    void exit(common::ExitCode code);

    /// Since the start, as lines say it; to the microsecond.
    [[nodiscard]] double seconds() const;

  private:
    void write(std::string_view event, const common::Json& fields, const std::string& subject,
               std::string_view color, const std::string& sentence);

    std::FILE* out_;
    Format format_;
    common::Palette palette_;
    std::function<void(int)> broken_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace camera
