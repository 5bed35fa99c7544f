#include "host/draw/graphviz.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "common/process/descriptor.hpp"
#include "common/process/exit_code.hpp"
#include "common/process/program.hpp"
#include "common/text/diagnostics.hpp"

namespace host {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& sentence) {
    throw common::Failure(common::ExitCode::unavailable, sentence);
}

[[noreturn]] void fail(const std::string& what, int error) {
    fail(fmt::format("{}: {}", what, std::strerror(error)));
}

/// A file in memory, which, unlike a pipe, is never full while the other end waits.
class Memory {
  public:
    Memory() : fd_(memfd_create("fenwa", MFD_CLOEXEC)) {
        if (fd() < 0)
            fail("cannot make a file in memory", errno);
    }

    [[nodiscard]] int fd() const noexcept { return fd_.get(); }

    void fill(const std::string& text) const {
        for (std::size_t done = 0; done < text.size();) {
            const ssize_t n = write(fd(), text.data() + done, text.size() - done);
            if (n < 0)
                fail("cannot write to a file in memory", errno);
            done += static_cast<std::size_t>(n);
        }
        lseek(fd(), 0, SEEK_SET);
    }

    [[nodiscard]] std::string content() const {
        std::string text(static_cast<std::size_t>(lseek(fd(), 0, SEEK_END)), '\0');
        const ssize_t n = pread(fd(), text.data(), text.size(), 0);
        text.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
        return text;
    }

  private:
    common::Descriptor fd_;
};

/// Runs `dot` on the text. @returns its output.
std::string run_dot(const std::string& text, const std::string& format) {
    const Memory in;
    const Memory out;
    const Memory err;
    in.fill(text);
    // Twice the dots of a screen, so that it stays sharp on a slide.
    const char* const resolution = format == "png" ? "-Gdpi=192" : "-Gdpi=96";
    pid_t pid = 0;
    try {
        pid = common::start_program({.command = {"dot", "-T" + format, resolution},
                                     .environment = common::inherited_environment(),
                                     .death_signal = SIGKILL,
                                     .input = in.fd(),
                                     .output = out.fd(),
                                     .error_output = err.fd()});
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::no_such_file_or_directory)
            fail("cannot find the program 'dot'; install graphviz");
        fail("cannot run 'dot'", error.code().value());
    }
    if (common::exit_code_of(common::wait_for(pid)) != 0) {
        std::string said = err.content();
        while (said.ends_with('\n'))
            said.pop_back();
        fail("'dot' failed" + (said.empty() ? "" : ": " + common::one_line(said)));
    }
    return out.content();
}

/// Writes a temporary file beside the file, where a rename can replace it in one step.
void replace(const std::string& name, const std::string& content) {
    // The target of a link is replaced, not the link.
    std::error_code no_link;
    const fs::path linked = fs::canonical(name, no_link);
    const std::string file = no_link ? name : linked.string();
    const std::string temporary = fmt::format("{}.{}.tmp", file, getpid());
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0)
        fail(fmt::format("cannot write '{}'", file), errno);
    int error = 0;
    struct stat before {};
    if (stat(file.c_str(), &before) == 0 && fchmod(fd, before.st_mode & 07777U) < 0)
        error = errno;
    for (std::size_t done = 0; done < content.size() && error == 0;) {
        const ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n < 0)
            error = errno;
        else
            done += static_cast<std::size_t>(n);
    }
    if (close(fd) < 0 && error == 0)
        error = errno;
    if (error == 0 && std::rename(temporary.c_str(), file.c_str()) < 0)
        error = errno;
    if (error != 0) {
        unlink(temporary.c_str());
        fail(fmt::format("cannot write '{}'", file), error);
    }
}

}  // namespace

void render(const std::string& dot, const std::string& file) {
    replace(file, run_dot(dot, fs::path(file).extension().string().substr(1)));
}

std::string check_picture_name(const std::string& file) {
    const std::string suffix = fs::path(file).extension().string();
    return suffix == ".svg" || suffix == ".png"
               ? std::string()
               : fmt::format("'{}' is not a picture; the name must end with .svg or .png", file);
}

}  // namespace host
