#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "fenwa/port.hpp"

namespace support {

/// The kinds of effects that a block has; bits, so that a test may take some kinds alone.
namespace effect {
inline constexpr unsigned sending = 1U << 0;      ///< a call or match, or an unref of nothing
inline constexpr unsigned release = 1U << 1;      ///< of a slot
inline constexpr unsigned answer = 1U << 2;       ///< to a method call
inline constexpr unsigned line = 1U << 3;         ///< in the log
inline constexpr unsigned debug = 1U << 4;        ///< a value for the debug-data store
inline constexpr unsigned fire = 1U << 5;         ///< of an event port
inline constexpr unsigned publication = 1U << 6;  ///< on an output
inline constexpr unsigned building = 1U << 7;     ///< a port, an exported object, a registration
inline constexpr unsigned look = 1U << 8;         ///< at an input's mark
inline constexpr unsigned key = 1U << 9;          ///< read from an observed configuration
inline constexpr unsigned lock = 1U << 10;        ///< of the mutex that a test has named
inline constexpr unsigned message = 1U << 11;     ///< a reply or an error structure given up
inline constexpr unsigned operation = 1U << 12;   ///< of the base class that a block calls
inline constexpr unsigned reading = 1U << 13;     ///< of a message's body

inline constexpr unsigned on_the_bus = sending | release | answer;
/// What a test fails for that does not look at it.
inline constexpr unsigned to_be_seen = sending | answer | line | debug;
/// Everything but the steps of reading a body, which are many and change nothing.
inline constexpr unsigned all = reading - 1;
}  // namespace effect

/// All effects that blocks have while it lives, in the order in which they have them. The recorders
/// of a test share one. Safe on any thread.
class EffectJournal {
  public:
    /// The journal of the recorders that live now; a new one for the first of them.
    static std::shared_ptr<EffectJournal> shared();
    /// The same, or null when nothing is recorded.
    static std::shared_ptr<EffectJournal> current();

    EffectJournal();
    EffectJournal(const EffectJournal&) = delete;
    EffectJournal& operator=(const EffectJournal&) = delete;
    ~EffectJournal();

    void record(unsigned kind, const std::string& entry);

    /// The entries of these kinds since the last time that they were taken; others stay.
    [[nodiscard]] std::vector<std::string> take(unsigned kinds = effect::all);

    /// Called with each entry at the moment of its effect; what it returns is put behind it.
    void remark_with(std::function<std::string(const std::string& entry)> remark);

    /// From here on publications are recorded on this thread alone, which runs the block: another
    /// one may not look at its outputs meanwhile. A default id is for any thread.
    void publications_on(std::thread::id thread) { publishing_thread_ = thread; }

    // The ports of a block, from when it makes them to its destruction.

    void add_port(const Fenwa::Block& block, Fenwa::Port& port);
    void forget_ports(const Fenwa::Block& block);
    [[nodiscard]] std::vector<const Fenwa::Port*> ports(const Fenwa::Block& block);

  private:
    struct Entry {
        unsigned kind;
        std::string text;
    };
    struct OwnedPort {
        const Fenwa::Block* block;
        Fenwa::Port* port;
    };

    void append(unsigned kind, const std::string& entry);

    /// A publication calls nothing that could be intercepted: it leaves a mark at the port. It has
    /// happened since the effect before, and its mark is taken away as a host does.
    void record_publications();

    static std::weak_ptr<EffectJournal> living_;

    std::recursive_mutex mutex_;  // a remark may have effects of its own
    std::vector<Entry> entries_;
    std::vector<OwnedPort> ports_;
    std::function<std::string(const std::string& entry)> remark_;
    std::atomic<std::thread::id> publishing_thread_{};
};

}  // namespace support
