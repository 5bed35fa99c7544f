#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

#include "common/bus/error_reply.hpp"
#include "common/bus/host_control.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/suggestion.hpp"

namespace host {

// The names of the control interface on the bus.
inline constexpr const char* control_name = common::host_control_name;
inline constexpr const char* control_path = common::host_control_path;
inline constexpr const char* control_interface = common::host_control_interface;

// Names of the errors with which a host refuses a call; the message is a sentence for the user.
inline constexpr const char* control_error_prefix = common::host_error_prefix;
inline constexpr const char* unknown_block_error = "com.tarlo.Fenwa.Host1.Error.UnknownBlock";
/// The block has no such port, an output is to be written, or the text is not "BLOCK.PORT".
inline constexpr const char* unknown_port_error = "com.tarlo.Fenwa.Host1.Error.UnknownPort";
/// The input gets its values from an output.
inline constexpr const char* connected_input_error = "com.tarlo.Fenwa.Host1.Error.ConnectedInput";
/// The value is not of the port's type, or the port's type has no D-Bus type.
inline constexpr const char* wrong_type_error = "com.tarlo.Fenwa.Host1.Error.WrongType";
/// The block does not read such a key.
inline constexpr const char* unknown_key_error = "com.tarlo.Fenwa.Host1.Error.UnknownKey";
/// The block reads the key only when it is built.
inline constexpr const char* not_live_error = "com.tarlo.Fenwa.Host1.Error.NotLive";
/// A setting is of a type that the block does not accept, or the block refuses it.
inline constexpr const char* wrong_setting_error = "com.tarlo.Fenwa.Host1.Error.WrongSetting";
/// The new block threw, and the old one is built again.
inline constexpr const char* rebuild_failed_error = "com.tarlo.Fenwa.Host1.Error.RebuildFailed";
/// The block threw in `reconfigure`, or cannot be built again; the host stops.
inline constexpr const char* block_threw_error = "com.tarlo.Fenwa.Host1.Error.BlockThrew";

/// The refusal of a call. `what()` is the sentence for the user.
class ControlError : public common::ErrorReply {
  public:
    /// @param name one of the names above.
    /// @param help a further sentence, empty for none.
    ControlError(const char* name, const std::string& sentence, const std::string& help = {})
        : ErrorReply(name, common::one_line(common::with_help(sentence, help))) {}
};

}  // namespace host
