#pragma once

#include "fenwa/tools.hpp"

namespace Fenwa {

/// The bus access of blocks over one sd-bus connection.
class FENWA_API ConnectionTools final : public SDBusTools {
  public:
    /// @param bus owned by the caller, outlives this object. Null fails every call.
    explicit ConnectionTools(sd_bus* bus) : bus_(bus) {}
    ~ConnectionTools() override;

    void call_method(const char* destination, const char* path, const char* interface,
                     const char* member, sd_bus_message** reply, const char* types, ...) override;
    void get_property(const char* destination, const char* path, const char* interface,
                      const char* member, sd_bus_message** reply, const char* type) override;
    sd_bus* get_bus() override;

  private:
    sd_bus* bus_;
};

}  // namespace Fenwa
