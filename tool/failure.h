#pragma once

#include <stdexcept>
#include <string>

#include "tool/base.h"

namespace HiveCtl {

/// Ends a command. The text says what, where and why, in one line without the program's name, fit for a
/// terminal; nothing is printed when it is empty.
class Failure : public std::runtime_error {
 public:
    explicit Failure(const std::string& text, ExitCode exitCode = exitFailed)
        : std::runtime_error(text), _exitCode(exitCode) {}
    ExitCode exitCode() const { return _exitCode; }

 private:
    ExitCode _exitCode;
};

}  // namespace HiveCtl
