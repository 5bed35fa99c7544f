#include "host/output/urgent_message.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "common/events/journal.hpp"

namespace host {
namespace {

iovec part(std::string_view text) noexcept {
    return {const_cast<char*>(text.data()), text.size()};
}

/// Writes the parts in one piece.
template <std::size_t Count>
void write_parts(std::array<iovec, Count> parts) noexcept {
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = Count;
    if (sendmsg(STDERR_FILENO, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 || errno != ENOTSOCK)
        return;
    // A pipe that is ready takes so much as a whole.
    pollfd ready{STDERR_FILENO, POLLOUT, 0};
    if (poll(&ready, 1, 0) > 0 && (ready.revents & POLLOUT) != 0)
        static_cast<void>(!writev(STDERR_FILENO, parts.data(), Count));
}

}  // namespace

void print_urgently(common::Severity severity, std::string_view sentence,
                    std::string_view block) noexcept {
    if (!common::send_to_journal(severity, sentence, block))
        write_parts<3>({part(common::message_prefix()), part(sentence), part("\n")});
}

void write_urgently(std::string_view text) noexcept {
    write_parts<1>({part(text)});
}

}  // namespace host
