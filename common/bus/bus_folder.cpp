#include "common/bus/bus_folder.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/process/exit_code.hpp"

namespace common {
namespace {

namespace fs = std::filesystem;

constexpr const char* prefix = "fenwa-camera-";
constexpr int attempts = 100;

fs::path base_folder() {
    const char* base = std::getenv("TMPDIR");
    return base == nullptr || *base == '\0' ? "/tmp" : base;
}

int open_folder(const fs::path& path) {
    return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

/// Whether this is the folder at the path, and was not removed or replaced since it was opened.
bool is_at(const Descriptor& folder, const fs::path& path) {
    struct stat opened {};
    struct stat there {};
    return fstat(folder.get(), &opened) == 0 && lstat(path.c_str(), &there) == 0 &&
           opened.st_dev == there.st_dev && opened.st_ino == there.st_ino;
}

/// Whether another owner holds the folder. Without locks in the file system no owner holds it, and
/// no process takes it for ownerless.
bool lock_is_refused(const Descriptor& folder) {
    return flock(folder.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

[[noreturn]] void fail(const std::string& pattern, int error) {
    throw Failure(ExitCode::unavailable, "cannot start a private bus: no folder like '" + pattern +
                                             "' can be made: " + std::strerror(error));
}

void remove_if_ownerless(const fs::path& path) {
    const Descriptor folder(open_folder(path));
    struct stat status {};
    if (folder.get() < 0 || fstat(folder.get(), &status) != 0)
        return;
    // mkdtemp has made it, so that no other user can have put anything into it.
    if (status.st_uid != geteuid() || (status.st_mode & 0777U) != S_IRWXU)
        return;
    if (flock(folder.get(), LOCK_EX | LOCK_NB) != 0 || !is_at(folder, path))
        return;
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

}  // namespace

BusFolder::BusFolder() {
    const std::string pattern = (base_folder() / (std::string(prefix) + "XXXXXX")).string();
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::string name = pattern;  // mkdtemp writes into it even where it fails
        if (mkdtemp(name.data()) == nullptr)
            fail(pattern, errno);
        Descriptor folder(open_folder(name));
        if (folder.get() < 0 && errno != ENOENT) {
            const int error = errno;
            rmdir(name.c_str());
            fail(pattern, error);
        }
        // Until it was locked, another process could take it for ownerless and remove it.
        if (folder.get() < 0 || lock_is_refused(folder) || !is_at(folder, name))
            continue;
        path_ = fs::absolute(name);
        lock_ = std::move(folder);
        return;
    }
    fail(pattern, EEXIST);
}

BusFolder::~BusFolder() {
    // One by one, because a list would take a descriptor, and the process may have none left.
    for (auto name = files_.rbegin(); name != files_.rend(); ++name)
        std::remove(name->c_str());
    rmdir(path_.c_str());
}

fs::path BusFolder::file(const fs::path& name) {
    files_.push_back(path_ / name);
    return files_.back();
}

void remove_ownerless_folders() noexcept {
    try {
        std::error_code error;
        for (fs::directory_iterator entry(base_folder(), error), end; !error && entry != end;
             entry.increment(error)) {
            if (entry->path().filename().string().starts_with(prefix))
                remove_if_ownerless(entry->path());
        }
    } catch (const std::exception&) {
        // A later start may have the memory for it.
    }
}

}  // namespace common
