#pragma once

#include <functional>

#include "fenwa/api.hpp"
#include "fenwa/port.hpp"

namespace Fenwa {

/// Calls its functions with each input and output port that a block adds on its thread while the
/// watch lives, also for a constructor that does not return. One at a time on a thread, destroyed
/// on it.
class FENWA_API PortWatch {
  public:
    explicit PortWatch(std::function<void(const InPortInternal&)> on_input,
                       std::function<void(const OutPortInternal&)> on_output);
    PortWatch(const PortWatch&) = delete;
    PortWatch& operator=(const PortWatch&) = delete;
    ~PortWatch();

    /// Calls the watch of the calling thread, if any. @param port may be null.
    static void added(const InPortInternal* port);
    static void added(const OutPortInternal* port);

  private:
    std::function<void(const InPortInternal&)> on_input_;
    std::function<void(const OutPortInternal&)> on_output_;
};

}  // namespace Fenwa
