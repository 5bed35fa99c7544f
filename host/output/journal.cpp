#include "host/output/journal.hpp"

// With the code location on, the fields would name this file for every line.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace host {
namespace {

thread_local const std::string* current_block = nullptr;

int priority_of(int level) {
    if (level <= 1)
        return LOG_ERR;
    return level <= 3 ? LOG_WARNING : LOG_INFO;
}

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

Journal::Journal(std::string graph)
    : graph_(std::move(graph)), in_use_(leads_to_journal(STDERR_FILENO)) {}

bool Journal::send(int level, const std::string& message, const std::string& block) const {
    if (!in_use_)
        return false;
    std::vector<std::string> fields{"MESSAGE=" + message,
                                    "PRIORITY=" + std::to_string(priority_of(level)),
                                    "SYSLOG_IDENTIFIER=fenwa", "FENWA_GRAPH=" + graph_};
    if (!block.empty())
        fields.push_back("FENWA_BLOCK=" + block);
    std::vector<iovec> parts;
    for (std::string& field : fields)
        parts.push_back({field.data(), field.size()});
    return sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) >= 0;
}

CurrentBlock::CurrentBlock(const std::string& name, const char* phase)
    : activity_("block", name.c_str(), phase), outer_(current_block) {
    current_block = &name;
}

CurrentBlock::~CurrentBlock() {
    current_block = outer_;
}

const std::string* CurrentBlock::name() noexcept {
    return current_block;
}

}  // namespace host
