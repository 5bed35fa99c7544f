#pragma once

#include <systemd/sd-bus.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/bus_messages.hpp"
#include "tests/support/effect_journal.hpp"

namespace support {

/// One call or match that a block has handed to sd-bus. The callbacks are the test's to call.
struct Sending {
    /// All that goes on the wire: "call DESTINATION PATH INTERFACE MEMBER(ARGUMENTS)",
    /// "match RULE" or "match signal SENDER PATH INTERFACE MEMBER". "without reply" stands behind
    /// a call that nobody waits for, "blocking" before a call or match that ends at once.
    std::string text;
    const char* function = nullptr;  ///< of sd-bus, that it was handed to
    sd_bus* bus = nullptr;
    sd_bus_slot** slot_field = nullptr;  ///< where the caller wanted the slot
    sd_bus_message_handler_t callback = nullptr;
    sd_bus_message_handler_t install_callback = nullptr;
    void* userdata = nullptr;
    int result = 0;              ///< what the caller was given
    bool holds_slot = false;     ///< the caller was given a slot
    bool released = false;       ///< ... and has unref'd it
    std::string release_text{};  ///< how the journal names that

    /// Calls the callback as sd-bus does: the message rewound, the error argument empty.
    [[nodiscard]] int deliver(sd_bus_message* message,
                              sd_bus_error error = SD_BUS_ERROR_NULL) const;
    /// The same with the install callback of a match.
    [[nodiscard]] int install(sd_bus_message* reply, sd_bus_error error = SD_BUS_ERROR_NULL) const;
};

/// Calls a callback as sd-bus does, with the message rewound; it must leave the error argument
/// alone.
[[nodiscard]] int call_back(sd_bus_message_handler_t callback, sd_bus_message* message,
                            void* userdata, sd_bus_error error);

/// What a block does with a message that it was handed. The real functions do it, unless a test
/// makes up what they return.
enum class MessageFunction {
    read,
    skip,
    enter_container,
    exit_container,
    reply_method_return,
    read_basic,
};

/// Stands between the blocks and sd-bus while it lives: what they send is put into the journal
/// instead of sent. Without one the functions of sd-bus are reached. One at a time.
///
/// A test reads everything: a sending that was not taken out of the journal, a slot that was
/// released twice, one that was never released, a made-up result that nobody was given, a blocking
/// call that was not foreseen or never made, and a reply or error of one that was never released
/// are failures of the test.
class Interception {
  public:
    Interception();
    Interception(const Interception&) = delete;
    Interception& operator=(const Interception&) = delete;
    ~Interception();

    /// What the next sending functions return, one each; after that 1 again. With a negative result
    /// the caller gets no slot.
    void answer_next(const std::vector<int>& results);

    /// How the next blocking call ends that nothing has been said about yet.
    /// @param error copied into the caller's error structure, when it is set.
    /// @param reply handed to the caller, when it is not null.
    void end_next_call(int result, const sd_bus_error& error = SD_BUS_ERROR_NULL,
                       Message reply = Message(nullptr));

    /// What the next calls of a function return, one each, instead of what the real one does;
    /// nothing lets a call through.
    void make_up(MessageFunction function, const std::vector<std::optional<int>>& results);

    /// What the next calls of a function return, one each, after the real one has done its work.
    void change_results(MessageFunction function, const std::vector<int>& results);

    /// Asked before each function of sd-bus that a block calls, but for those that release
    /// something: a negative result is what the function returns, without doing anything.
    /// Blocking calls then need not be foreseen: they succeed without a reply.
    /// @param name the member that is called or matched; empty for what is done with a message.
    using FindFault = std::function<int(const std::string& function, const std::string& name)>;
    void fail_where(FindFault find_fault) { find_fault_ = std::move(find_fault); }

    /// The next read of strings alone leaves a null one in this place, counted from 0.
    void null_string(std::size_t place) { string_to_null_ = place; }

    /// Puts an entry into the journal for a sending that does not go through sd-bus's own
    /// functions.
    void note(const std::string& entry) { journal_->record(effect::sending, entry); }

    /// What has happened on the bus since the last time, alone and in order: the texts of the
    /// sendings, "release #N NAME" for the slot of the N-th sending since the interception began,
    /// "answer TYPES(ARGUMENTS) = RESULT" for a message answered with a method return,
    /// "unref of no slot" or "unref of no message" where there was none to give up, and notes.
    [[nodiscard]] std::vector<std::string> take_journal() {
        return journal_->take(effect::on_the_bus);
    }

    /// The N-th sending, from 1. @throws std::out_of_range when there are not as many.
    [[nodiscard]] const Sending& sending(std::size_t number) const;
    [[nodiscard]] const Sending& last() const { return sending(sendings_.size()); }
    [[nodiscard]] std::size_t count() const { return sendings_.size(); }

    /// Keeps what is sent from changing while it lives, as a connection that serves one thread at a
    /// time: what stands in for sd-bus takes it, and so does who looks at sendings or delivers to
    /// them while another thread runs the block.
    [[nodiscard]] std::unique_lock<std::recursive_mutex> lock() const {
        return std::unique_lock(mutex_);
    }

    /// How many replies of blocking calls have been handed out and not been released.
    [[nodiscard]] std::size_t replies_held() const { return replies_.size(); }

    /// The message answered last; null before the first.
    [[nodiscard]] const sd_bus_message* answered() const { return answered_; }

    // For the functions that stand in for those of sd-bus.
    static Interception* current();
    int record(Sending sending, const std::string& name, sd_bus_slot** slot_field);
    int record_blocking_call(Sending sending, const std::string& name, sd_bus_error* error,
                             sd_bus_message** reply);
    /// Hands a reply to a caller, who is to release it: "release the reply to NAME".
    void hand_out(Message reply, sd_bus_message** place, const std::string& name);
    void record_reading(const std::string& step) { journal_->record(effect::reading, step); }
    void record_message_release(sd_bus_message* message);
    void record_error_release(const sd_bus_error* error);
    /// @returns whether the slot is one of ours, or null.
    bool record_release(sd_bus_slot* slot);
    void record_answer(const sd_bus_message* message, const std::string& text, int result);
    /// @returns the negative errno with which the function fails, or 0.
    [[nodiscard]] int fault(const std::string& function, const std::string& name = {}) const {
        const auto held = lock();
        return find_fault_ ? find_fault_(function, name) : 0;
    }
    /// @returns what the function is to return now, or nothing where the real one is to be called.
    std::optional<int> made_up_result(MessageFunction function);
    /// @returns what the function is to return where the real one has returned `result`.
    int changed_result(MessageFunction function, int result);
    /// @returns which string the read that ends now is to leave null, if any.
    std::optional<std::size_t> string_to_null();

  private:
    struct CallEnding {
        int result;
        sd_bus_error error;
        Message reply;
    };

    mutable std::recursive_mutex mutex_;
    std::deque<Sending> sendings_;  // never moves its elements: their addresses are the slots
    std::deque<int> results_;
    std::deque<CallEnding> call_endings_;
    std::map<sd_bus_message*, std::string> replies_;  // handed out and not released: to what
    const sd_bus_error* filled_error_ = nullptr;      // ... and the error structure
    std::map<MessageFunction, std::deque<std::optional<int>>> made_up_;
    std::map<MessageFunction, std::deque<int>> changed_;
    std::optional<std::size_t> string_to_null_;
    FindFault find_fault_;
    const sd_bus_message* answered_ = nullptr;
    std::shared_ptr<EffectJournal> journal_ = EffectJournal::shared();
};

}  // namespace support
