#include "host/control/host_search.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string_view>
#include <utility>

#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"
#include "host/control/names.hpp"

namespace host {
namespace {

using common::check;
using Clock = std::chrono::steady_clock;

/// One owner of a name that may be a host.
class Candidate {
  public:
    Candidate(sd_bus& bus, std::string name) : name_(std::move(name)) {
        check(sd_bus_call_method_async(&bus, call_.out(), name_.c_str(), control_path,
                                       "org.freedesktop.DBus.Introspectable", "Introspect",
                                       common::callback<&Candidate::on_reply>, this, ""),
              "cannot ask for hosts");
    }
    Candidate(const Candidate&) = delete;
    Candidate& operator=(const Candidate&) = delete;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] bool answered() const noexcept { return answered_; }
    [[nodiscard]] bool is_host() const noexcept { return is_host_; }

  private:
    void on_reply(sd_bus_message& reply) noexcept {
        answered_ = true;
        static const std::string quoted = '"' + std::string(control_interface) + '"';
        const char* xml = nullptr;
        // The policy of the bus may let only some users call a host.
        if (sd_bus_message_is_method_error(&reply, nullptr) > 0)
            is_host_ = name_ == control_name &&
                       sd_bus_message_is_method_error(&reply, SD_BUS_ERROR_ACCESS_DENIED) > 0;
        else
            is_host_ = sd_bus_message_read(&reply, "s", &xml) > 0 &&
                       std::string_view(xml).find(quoted) != std::string_view::npos;
    }

    std::string name_;
    common::SlotPtr call_;
    bool answered_ = false;
    bool is_host_ = false;
};

std::vector<std::string> well_known_names(sd_bus& bus) {
    char** list = nullptr;
    check(sd_bus_list_names(&bus, &list, nullptr), "cannot list the names on the bus");
    std::vector<std::string> names;
    for (char** name = list; name != nullptr && *name != nullptr; ++name) {
        if (**name != ':' && std::string_view(*name) != "org.freedesktop.DBus")
            names.emplace_back(*name);
        free(*name);
    }
    free(list);
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<pid_t> process_of(sd_bus& bus, const std::string& name) {
    sd_bus_creds* creds = nullptr;
    pid_t process = 0;
    const bool known = sd_bus_get_name_creds(&bus, name.c_str(), SD_BUS_CREDS_PID, &creds) >= 0 &&
                       sd_bus_creds_get_pid(creds, &process) >= 0;
    sd_bus_creds_unref(creds);
    return known ? std::optional(process) : std::nullopt;
}

}  // namespace

std::vector<FoundHost> find_hosts(sd_bus& bus, std::chrono::microseconds limit) {
    const Clock::time_point deadline = Clock::now() + limit;
    std::deque<Candidate> candidates;
    for (const std::string& name : well_known_names(bus))
        candidates.emplace_back(bus, name);
    while (!std::all_of(candidates.begin(), candidates.end(),
                        [](const Candidate& candidate) { return candidate.answered(); })) {
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            break;
        if (check(sd_bus_process(&bus, nullptr), "lost the bus") == 0)
            check(sd_bus_wait(&bus, static_cast<std::uint64_t>(left.count())), "lost the bus");
    }
    std::vector<FoundHost> hosts;
    for (const Candidate& candidate : candidates) {
        if (candidate.is_host())
            hosts.push_back({candidate.name(), process_of(bus, candidate.name())});
    }
    return hosts;
}

}  // namespace host
