#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "fenwa/tools.hpp"
#include "tests/support/block_driver.hpp"
#include "tests/unit/block_fixture.hpp"

/// The whole life of a block, in which one call of sd-bus fails.
namespace faults {

/// Which function of sd-bus a block calls, and for what: "sd_bus_call_method_async: Register",
/// "sd_bus_message_read: reply to Register". "sd_bus_message_read 2: PropertiesChanged" is the
/// second read in that message.
using Call = std::string;

/// One call that fails: the N-th of all, from 1; 0 for none.
struct Fault {
    std::size_t number = 0;
    int error = 0;  ///< a negative errno
};

class Life;

/// A type of block, and the services around it.
struct Surroundings {
    /// Builds the block.
    std::function<std::unique_ptr<Fenwa::Block>(const Fenwa::InitTools&)> build;
    /// The replies to its calls, by their members.
    std::map<std::string, support::MakeMessage> replies;
    /// The bus name whose owner changes; null where the block follows none.
    const char* service = nullptr;
    /// What the services signal and call when they are at work; the turn is 0, 1, …
    std::function<void(Life&, int turn)> traffic = [](Life& /*life*/, int /*turn*/) {};
};

/// What a life has left behind.
struct Traces {
    std::vector<Call> calls;         ///< of sd-bus that may fail, in their order
    std::vector<std::string> lines;  ///< errors and warnings, "LEVEL TEXT"
    /// What the block has sent and answered since the last restart of its service, and what its
    /// outputs have come to. By then a block that recovers does what it does without a fault.
    std::vector<std::string> last_deeds;
};

/// Construction, start, traffic, a restart of the service, traffic, another restart, traffic, stop,
/// destruction. The service answers each call at once, and the block is run until it has nothing to
/// do. Calls do not fail between the last restart and the stop.
class Life final : public Fenwa::SDBusTools {
  public:
    /// @param surroundings outlives it.
    Life(const Surroundings& surroundings, Fault fault);
    ~Life() override;

    /// Leads the life. To be called once. Fails the test for a slot, a reply or an error structure
    /// that was released twice or never.
    [[nodiscard]] Traces lead();

    // For the traffic.

    [[nodiscard]] support::Messages& messages() { return recorders_.messages; }
    [[nodiscard]] Fenwa::Block& block();
    /// Delivers a signal to the block's matches whose text has this in it.
    void signal(const std::string& match, const support::Message& message);
    /// Calls a method that the block exports.
    void call(sd_bus_message_handler_t handler, const support::Message& message);
    /// Runs the block, and answers what it sends, until it does nothing any more.
    void settle();

    // For the block: blocking operations, answered by the service.

    void call_method(const char* destination, const char* path, const char* interface,
                     const char* member, sd_bus_message** reply, const char* types, ...) override;
    void get_property(const char* destination, const char* path, const char* interface,
                      const char* member, sd_bus_message** reply, const char* type) override;
    sd_bus* get_bus() override { return recorders_.messages.bus(); }

  private:
    class Driver;

    [[nodiscard]] int find_fault(const Call& call);
    void reply_to(const std::string& function, const std::string& member, sd_bus_message** place);
    [[nodiscard]] support::Message reply(const std::string& member);
    [[nodiscard]] std::vector<std::string> take_deeds();
    /// @returns whether there was something to answer.
    bool answer_sendings();
    void deliver(const std::string& what, const std::function<void()>& delivery);
    void change_owner(const char* from, const char* to);
    void restart_service(const char* from, const char* to);

    const Surroundings& surroundings_;
    Fault fault_;
    bool may_fail_ = true;
    support::Recorders recorders_;
    Traces traces_;
    std::string delivered_;                   // what the block is handed at this moment
    std::map<std::string, int> calls_in_it_;  // how often it has called each function for that
    std::set<std::size_t> answered_;          // numbers of sendings
    std::unique_ptr<Driver> driver_;
};

}  // namespace faults
