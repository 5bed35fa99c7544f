#pragma once

#include <ostream>
#include <sstream>

#include "fenwa/api.hpp"

/// Hands one log line to the framework. @param level 1 error, 2 warning, 4 information.
/// @param format printf's, with its arguments behind it. Any thread.
extern "C" FENWA_API void logger(int level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

namespace Fenwa {

/// One log line: collects what is streamed into it and hands it to `logger` when it is destroyed,
/// as it is, without a block's name and without a line end. A null C string is not written and
/// marks the stream as failed, so that nothing behind it is written either.
class ilog : private std::ostringstream {
  public:
    /// @param level 1 error, 2 warning, 4 information.
    explicit ilog(int level) : level_(level) {}
    ilog(const ilog&) = delete;
    ilog& operator=(const ilog&) = delete;
    ~ilog() override { logger(level_, "%s", str().c_str()); }

    template <class T>
    ilog& operator<<(const T& value) {
        static_cast<std::ostringstream&>(*this) << value;
        return *this;
    }

    /// For manipulators such as std::endl, which are templates of their own.
    ilog& operator<<(std::ostream& (*manipulator)(std::ostream&)) {
        static_cast<std::ostringstream&>(*this) << manipulator;
        return *this;
    }

  private:
    int level_;
};

}  // namespace Fenwa
