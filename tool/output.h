#pragma once

#include <string>
#include <string_view>

#include "tool/base.h"

namespace HiveCtl {

/// The program's standard output, buffered. A write that fails ends the command: quietly when the reader of
/// a pipe has gone, as `head` does when it has seen enough.
class Output {
 public:
    /// UTF-8 text, or bytes.
    void write(std::string_view text);
    void line(std::string_view text) {
        write(text);
        write("\n");
    }
    void flush();
    /// As `flush`, but leaves a failure for the next `flush` to tell.
    void tryFlush();

 private:
    std::string _buffer;
    int _failure = 0;  // the errno value of the write that failed
};

/// The one output of the process.
Output& out();

/// What a failed write to standard output is told as.
[[noreturn]] void failOutput(int errnoValue);

/// Writes one line to standard error, behind "hivectl: " and the command's name. What was printed before
/// appears before it.
void complain(std::string_view text);
/// The command's name for `complain`; a string constant.
void setCommandName(const char* name);

}  // namespace HiveCtl
