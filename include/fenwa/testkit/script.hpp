#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "fenwa/testkit/body.hpp"
#include "fenwa/testkit/call.hpp"

namespace Fenwa::testkit {

/// What a made-up service answers, and the calls that it got. What is said about a member holds
/// for each call of it, until something else is said. Safe on any thread.
class Script {
  public:
    Script() = default;
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;

    /// Calls of the method are answered with these values.
    void answer(const std::string& member, Body values = {});
    /// Calls of the method, or reads of the property, get an error reply.
    void refuse(const std::string& member, const std::string& error_name,
                const std::string& text = {});
    /// Calls of the method, or reads of the property, are not answered.
    void ignore(const std::string& member);
    /// Reads of the property give this value, one complete type.
    void set_property(const std::string& name, Body value);

    /// The calls since they were taken the last time, in their order.
    [[nodiscard]] std::vector<Call> take_calls();
    /// How many calls `take_calls` would give.
    [[nodiscard]] std::size_t call_count() const;

  protected:
    /// How a call ends.
    struct Ending {
        enum class Kind { answer, error, silence };

        Kind kind = Kind::answer;
        Body values{};
        std::string error_name{};
        std::string text{};
    };

    ~Script() = default;

    /// Records a call. @param key the member, or the name of the property that is read.
    /// @returns how it ends; nothing if nothing was said about it.
    std::optional<Ending> record(Call call, const std::string& key);

  private:
    void end(const std::string& member, Ending ending);

    mutable std::mutex mutex_;
    std::map<std::string, Ending> endings_;
    std::vector<Call> calls_;
};

}  // namespace Fenwa::testkit
