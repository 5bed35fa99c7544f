#pragma once

namespace common {

/// A program that calls this ends at once, with a line on stderr and `ExitCode::software`, where
/// `operator new` gets no memory: nothing that is half done goes on, and libraries are spared an
/// exception that some do not survive. That holds for each thread, from the program's first
/// constructor on, before the call.
///
/// @param may_throw asked first: where it is true, `std::bad_alloc` is thrown as usual, because the
/// program is ready for it; null for nowhere. One that no code may let through ends the program in
/// the same way.
void throw_without_memory_where(bool (*may_throw)() noexcept) noexcept;

}  // namespace common
