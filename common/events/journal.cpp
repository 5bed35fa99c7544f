#include "common/events/journal.hpp"

// With the code location on, the fields would name this file for every line.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace common {
namespace {

struct Journal {
    bool in_use = false;
    std::string identifier;
    std::string graph;
};
Journal journal;

/// "NAME=VALUE", without an allocation for a short one: a signal handler must not make one.
class Field {
  public:
    Field(std::string_view name, std::string_view value) : size_(name.size() + value.size()) {
        if (size_ > short_.size())
            long_.resize(size_);
        std::ranges::copy(value, std::ranges::copy(name, data()).out);
    }

    [[nodiscard]] iovec part() { return {data(), size_}; }

  private:
    char* data() { return long_.empty() ? short_.data() : long_.data(); }

    std::size_t size_;
    std::array<char, 1100> short_;
    std::string long_;
};

}  // namespace

bool leads_to_journal(int fd) {
    // JOURNAL_STREAM names the device and inode of the socket (systemd.exec(5)); a redirected
    // stream has others.
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (stream == nullptr || fstat(fd, &status) != 0)
        return false;
    return std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) == stream;
}

void open_journal(const std::string& identifier) {
    journal.in_use = leads_to_journal(STDERR_FILENO);
    journal.identifier = "SYSLOG_IDENTIFIER=" + identifier;
}

bool uses_journal() noexcept {
    return journal.in_use;
}

void set_journal_graph(const std::string& graph) {
    journal.graph = "FENWA_GRAPH=" + graph;
}

bool send_to_journal(Severity severity, std::string_view message, std::string_view block) noexcept {
    if (!journal.in_use)
        return false;
    const auto digit = static_cast<char>('0' + static_cast<int>(severity));
    Field priority("PRIORITY=", {&digit, 1});
    Field text("MESSAGE=", message);
    Field subject("FENWA_BLOCK=", block);
    std::array<iovec, 5> parts{
        {text.part(), priority.part(), {journal.identifier.data(), journal.identifier.size()}}};
    int count = 3;
    if (!journal.graph.empty())
        parts[static_cast<std::size_t>(count++)] = {journal.graph.data(), journal.graph.size()};
    if (!block.empty())
        parts[static_cast<std::size_t>(count++)] = subject.part();
    return sd_journal_sendv(parts.data(), count) >= 0;
}

}  // namespace common
