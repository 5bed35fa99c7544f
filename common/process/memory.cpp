#include "common/process/memory.hpp"

#include <cxxabi.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <exception>
#include <new>
#include <string_view>
#include <typeinfo>

#include "common/process/exit_code.hpp"

namespace common {
namespace {

std::atomic<bool (*)() noexcept> throws = nullptr;

iovec part(std::string_view text) {
    return {const_cast<char*>(text.data()), text.size()};
}

[[noreturn]] void end() {
    const std::array line{part(program_invocation_short_name), part(": there is no memory left\n")};
    // Nothing can be done about a line that is not taken.
    [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, line.data(), line.size());
    // Not by _exit(2), of which the host would say that a block has called it.
    for (;;)
        syscall(SYS_exit_group, static_cast<int>(ExitCode::software));
}

void end_or_throw() {
    bool (*const may_throw)() noexcept = throws;
    if (may_throw == nullptr || !may_throw())
        end();
    throw std::bad_alloc();
}

std::terminate_handler terminate_otherwise = nullptr;

void end_or_terminate() {
    const std::type_info* const exception = abi::__cxa_current_exception_type();
    if (exception != nullptr && *exception == typeid(std::bad_alloc))
        end();
    terminate_otherwise();
}

/// Before the program's other constructors, some of which allocate.
[[gnu::constructor(101)]] void begin() {
    std::set_new_handler(end_or_throw);
    terminate_otherwise = std::set_terminate(end_or_terminate);
}

}  // namespace

void throw_without_memory_where(bool (*may_throw)() noexcept) noexcept {
    throws = may_throw;
}

}  // namespace common
