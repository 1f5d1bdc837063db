#include "tool/output.h"

#include <unistd.h>

#include <cerrno>

#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/fdstripe.h"

namespace HiveCtl {

namespace {

constexpr u64 BUFFER = 65536;
const char* commandName = "";

}  // namespace

Output& out() {
    static Output instance;
    return instance;
}

void Output::write(std::string_view text) {
    _buffer += text;
    if (_buffer.size() >= BUFFER) flush();
}

void Output::tryFlush() {
    u64 done = 0;
    if (!_failure) _failure = writeAll(STDOUT_FILENO, _buffer.data(), _buffer.size(), done);
    _buffer.clear();
}

void Output::flush() {
    tryFlush();
    if (_failure) failOutput(_failure);
}

void failOutput(int errnoValue) {
    throw Failure(errnoValue == EPIPE ? ""
                                      : "cannot write to standard output: " + systemErrorText(errnoValue));
}

void complain(std::string_view text) {
    out().tryFlush();
    std::string line = "hivectl: ";
    if (*commandName) line.append(commandName).append(": ");
    line.append(text).append("\n");
    u64 done = 0;
    writeAll(STDERR_FILENO, line.data(), line.size(), done);  // nowhere to tell of a failure
}

void setCommandName(const char* name) {
    commandName = name;
}

}  // namespace HiveCtl
