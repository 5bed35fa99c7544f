#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "fenwa/tools.hpp"
#include "tests/support/block_driver.hpp"
#include "tests/unit/faults/block_context.hpp"

namespace faults {

/// Which function of sd-bus a block calls, and for what: "sd_bus_call_method_async: Register",
/// "sd_bus_message_read: reply to Register". "sd_bus_message_read 2: PropertiesChanged" is the
/// second read in that message.
using Call = std::string;

/// The name that sd-bus gives an error of the system.
/// @param error a negative errno.
[[nodiscard]] std::string error_name(int error);

/// The life of one block, whose calls of sd-bus may fail, step by step. Fails the test for a slot,
/// a reply or an error structure that was released twice or never.
class Life final : public Fenwa::SDBusTools {
  public:
    /// Asked before each call that may fail. @returns a negative errno with which it fails, or 0.
    using FindFault = std::function<int(const Call& call)>;

    /// @param context outlives it.
    Life(const BlockContext& context, FindFault find_fault);
    ~Life() override;

    // The steps, in the order of a host.

    /// Builds the block. Throws what its constructor throws.
    void build();
    void start() { driver().start(); }
    /// As a host that has another reason than the block's ports.
    void run();
    void stop() { driver().stop(); }
    /// Which framework runs the block on another thread.
    enum class Framework {
        parallel,    ///< one that delivers messages meanwhile
        serialised,  ///< one that runs no block while it delivers a message
    };
    /// Runs the block on a thread of its own whenever it is woken, while this one delivers what
    /// comes over the bus. No step of a host may be taken until `join`.
    void run_on_another_thread(Framework framework);
    /// Ends that thread.
    void join();
    void destroy();

    [[nodiscard]] Fenwa::testkit::Driver& driver();
    [[nodiscard]] Fenwa::Block& block();
    [[nodiscard]] support::Messages& messages() { return recorders_.messages; }
    [[nodiscard]] support::Recorders& recorders() { return recorders_; }

    // What comes over the bus.

    /// The numbers of the calls, and of the matches to be installed, that wait for an answer.
    [[nodiscard]] std::vector<std::size_t> unanswered() const;
    /// Answers one of them.
    void answer(std::size_t number, const support::Message& message);
    /// The reply of the service to one of them.
    [[nodiscard]] support::Message right_answer(std::size_t number);
    /// The numbers of the matches that the block holds whose text has this in it.
    [[nodiscard]] std::vector<std::size_t> matches(const std::string& text = {}) const;
    /// Delivers a signal to one of them.
    void signal(std::size_t number, const support::Message& message);
    /// Delivers a signal to all matches whose text has this in it.
    void signal(const std::string& match, const support::Message& message);
    /// Calls a method that the block exports.
    void call(sd_bus_message_handler_t handler, const support::Message& message);
    /// The owner of the service's name changes; empty for none.
    void change_owner(const char* from, const char* to);

    /// Runs the block where something has woken it, unless another thread does, and answers what it
    /// sends, until it does nothing any more.
    void settle();
    /// The service leaves and comes back with another unique name; both times the block settles.
    void restart_service(const char* from, const char* to);

    /// What the block has sent and answered since the last time, the same only once in a row, and
    /// the last value of each output that it has published.
    [[nodiscard]] std::vector<std::string> take_deeds();

    // For the block: blocking operations, answered by the service.

    void call_method(const char* destination, const char* path, const char* interface,
                     const char* member, sd_bus_message** reply, const char* types, ...) override;
    void get_property(const char* destination, const char* path, const char* interface,
                      const char* member, sd_bus_message** reply, const char* type) override;
    sd_bus* get_bus() override { return recorders_.messages.bus(); }

  private:
    class Driver;

    /// @returns whether there was something to answer.
    bool answer_all();
    void reply_to(const std::string& function, const std::string& member, sd_bus_message** place);
    [[nodiscard]] support::Message reply(const std::string& member, support::Messages& messages);
    void deliver(const std::string& what, const std::function<void()>& delivery);

    const BlockContext& context_;
    FindFault find_fault_;
    support::Recorders recorders_;
    std::string delivered_;                   // what the block is handed at this moment
    std::map<std::string, int> calls_in_it_;  // how often it has called each function for that
    std::set<std::size_t> answered_;          // numbers of sendings
    support::Messages blocking_replies_;      // sd-bus makes no messages on two threads at once
    std::unique_ptr<Driver> driver_;
    std::thread runner_;
    std::atomic<bool> joins_ = false;
    std::atomic<std::size_t> rests_ = 0;  // how often the runner has found nothing to do
};

}  // namespace faults
