#pragma once

#include <systemd/sd-bus.h>

#include <string>

#include "common/bus/bus.hpp"
#include "common/text/json.hpp"
#include "host/control/bus_setting.hpp"
#include "host/control/names.hpp"

namespace host {

/// Which host a command talks to.
struct ControlTarget {
    std::string bus = "system";       ///< "system", "session" or an address
    std::string name = control_name;  ///< bus name of its control interface
};

/// The host on the other end. Every call waits for the answer.
/// All throw common::Failure: `usage` with the host's sentence when it refuses, because the command
/// line names what is wrong; `threw` when a block threw; `unavailable` when the bus or such a host
/// is not there.
class ControlClient {
  public:
    explicit ControlClient(ControlTarget target);

    [[nodiscard]] common::MessagePtr new_call(const char* method) const;
    /// Appends an argument. A failure (usage) says when it is no valid UTF-8.
    static void append(sd_bus_message& call, const std::string& text);
    static void append(sd_bus_message& call, const SettingList& settings);
    /// Sends a call and gives the reply.
    [[nodiscard]] common::MessagePtr send(const common::MessagePtr& call) const;

    /// Hands what the host says of itself (host/control/service.hpp) to `use`, and gives what
    /// that returns. A failure (unavailable) says so where it is of another form, that is, where it
    /// is not JSON, is nested deeply, or `use` throws common::Json::exception.
    template <class Use>
    auto with_description(Use&& use) const {
        try {
            return use(describe());
        } catch (const common::Json::exception&) {
            fail_unknown_form();
        }
    }

    [[nodiscard]] sd_bus& bus() const noexcept { return *bus_; }
    [[nodiscard]] const ControlTarget& target() const noexcept { return target_; }

  private:
    [[nodiscard]] common::Json describe() const;
    [[noreturn]] static void fail_unknown_form();
    [[noreturn]] void fail(const common::BusError& error, int r) const;

    ControlTarget target_;
    common::BusPtr bus_;
};

}  // namespace host
