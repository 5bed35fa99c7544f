#pragma once

#include <systemd/sd-bus.h>

#include "fenwa/api.hpp"

namespace Fenwa {

/// Access to the bus connection, which the framework owns and dispatches. Outlives every block.
/// Thread of `run()`; the two calls block it for at most the call time-out of the connection.
///
/// The order of the virtual operations is ABI: 0, 1 destructor; 2 `call_method`;
/// 3 `get_property`; 4 `get_bus`.
class FENWA_API SDBusTools {
  public:
    SDBusTools() = default;
    SDBusTools(const SDBusTools&) = delete;
    SDBusTools& operator=(const SDBusTools&) = delete;
    virtual ~SDBusTools();

    /// Calls a method and waits for the reply.
    /// @param reply takes the reply, which the caller owns and unrefs; may be null. Left alone on
    ///        failure.
    /// @param types signature of the arguments that follow, as for `sd_bus_message_append`; null
    ///        or empty for none.
    /// @throws SDBusError on an error reply, a time-out or a call that cannot be sent.
    virtual void call_method(const char* destination, const char* path, const char* interface,
                             const char* member, sd_bus_message** reply, const char* types,
                             ...) = 0;

    /// Reads one property with a blocking "org.freedesktop.DBus.Properties" Get.
    /// @param reply takes the reply positioned inside the variant, so that reading `type` gives
    ///        the value; the caller owns and unrefs it. Left alone on failure.
    /// @throws SDBusError on failure, also when the property is of another type.
    virtual void get_property(const char* destination, const char* path, const char* interface,
                              const char* member, sd_bus_message** reply, const char* type) = 0;

    /// The connection, owned by the framework: never ref, unref or process it. Null in a probe,
    /// which builds blocks without a bus.
    virtual sd_bus* get_bus() = 0;
};

/// Tools of a block, owned by the framework. Outlive every block.
struct FENWA_API InitTools {
    explicit InitTools(SDBusTools* tools);

    SDBusTools* sdbus_tools;  ///< first member, ABI; never null
};

}  // namespace Fenwa
