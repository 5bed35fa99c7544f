#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "common/bus/bus.hpp"

namespace test {

/// A program that owns the name of the control interface and answers every call of it with one
/// text, on a thread of its own until the object goes.
class FalseHost {
  public:
    FalseHost(const std::string& address, std::string answer);
    FalseHost(const FalseHost&) = delete;
    FalseHost& operator=(const FalseHost&) = delete;
    ~FalseHost();

  private:
    static int on_call(sd_bus_message* call, void* userdata, sd_bus_error* error);

    std::string answer_;
    common::BusPtr bus_;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

}  // namespace test
