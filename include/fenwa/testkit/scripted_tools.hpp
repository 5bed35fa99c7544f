#pragma once

#include <systemd/sd-bus.h>

#include <memory>

#include "fenwa/testkit/script.hpp"
#include "fenwa/tools.hpp"

namespace Fenwa::testkit {

/// The tools of a block whose bus is not there: `get_bus` is null, so that asynchronous calls and
/// matches fail. A blocking call ends as the script says; one that it does not know fails as
/// without a bus. All blocking calls are recorded. One thread.
class ScriptedTools final : public SDBusTools, public Script {
  public:
    ScriptedTools();
    ~ScriptedTools() override;

    /// A call that the script ignores throws at once, as after its time-out.
    void call_method(const char* destination, const char* path, const char* interface,
                     const char* member, sd_bus_message** reply, const char* types, ...) override;
    void get_property(const char* destination, const char* path, const char* interface,
                      const char* member, sd_bus_message** reply, const char* type) override;
    sd_bus* get_bus() override { return nullptr; }

  private:
    struct Connection;

    void end(const std::optional<Ending>& ending, sd_bus_message* call, sd_bus_message** reply,
             const char* type);

    std::unique_ptr<Connection> connection_;
};

}  // namespace Fenwa::testkit
