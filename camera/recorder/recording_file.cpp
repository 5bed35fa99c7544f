#include "camera/recorder/recording_file.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "common/process/exit_code.hpp"
#include "common/toml/document.hpp"

namespace camera {
namespace {

[[noreturn]] void fail(const std::string& path, int error) {
    throw common::Failure(common::ExitCode::unavailable,
                          fmt::format("cannot write '{}': {}", path, std::strerror(error)));
}

}  // namespace

RecordingFile::RecordingFile(std::string path)
    : path_(std::move(path)),
      file_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666)) {
    if (file_.get() < 0)
        fail(path_, errno);
}

bool RecordingFile::add(std::string_view part) {
    if (size_ + part.size() > common::max_toml_bytes)
        return false;
    for (std::size_t done = 0; done < part.size();) {
        const ssize_t n = write(file_.get(), part.data() + done, part.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            const int error = errno;
            // Half a step is a mistake that no reader could place.
            (void)!ftruncate(file_.get(), static_cast<off_t>(size_));
            fail(path_, error);
        }
        done += static_cast<std::size_t>(n);
    }
    size_ += part.size();
    return true;
}

}  // namespace camera
