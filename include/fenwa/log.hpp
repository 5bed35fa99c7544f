#pragma once

#include <ostream>
#include <sstream>

#include "fenwa/api.hpp"

/// Passes one log line to the framework. Any thread.
/// @param level 1 error, 2 warning, 4 information.
/// @param format as for printf, followed by its arguments.
extern "C" FENWA_API void logger(int level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

namespace Fenwa {

/// One log line: collects the streamed text and passes it to `logger` in the destructor, without a
/// block's name and a line end. A null C string ends the line: neither it nor the text after it is
/// written.
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

    /// For manipulators such as std::endl, which are templates.
    ilog& operator<<(std::ostream& (*manipulator)(std::ostream&)) {
        static_cast<std::ostringstream&>(*this) << manipulator;
        return *this;
    }

  private:
    int level_;
};

}  // namespace Fenwa
