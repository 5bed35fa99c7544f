#pragma once

#include <functional>

#include "fenwa/api.hpp"
#include "fenwa/port.hpp"

namespace Fenwa {

/// While one is there, it is told of each input and output port that a block adds on its thread, so
/// that those of a block whose constructor does not come to its end are known too. One at a time on
/// a thread, and destroyed on it.
class FENWA_API PortWatch {
  public:
    explicit PortWatch(std::function<void(const InPortInternal&)> on_input,
                       std::function<void(const OutPortInternal&)> on_output);
    PortWatch(const PortWatch&) = delete;
    PortWatch& operator=(const PortWatch&) = delete;
    ~PortWatch();

    /// Tells the one of the calling thread, where there is one. @param port may be null.
    static void added(const InPortInternal* port);
    static void added(const OutPortInternal* port);

  private:
    std::function<void(const InPortInternal&)> on_input_;
    std::function<void(const OutPortInternal&)> on_output_;
};

}  // namespace Fenwa
