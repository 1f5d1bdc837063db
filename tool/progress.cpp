#include "tool/progress.h"

#include <unistd.h>

#include <string>
#include <string_view>

#include "tool/fdstripe.h"

namespace HiveCtl {

namespace {

constexpr auto FIRST_DRAW = std::chrono::milliseconds(500);  // a line that only flashes up disturbs
constexpr auto BETWEEN_DRAWS = std::chrono::milliseconds(100);

void draw(std::string_view text) {
    u64 done = 0;
    writeAll(STDERR_FILENO, text.data(), text.size(), done);
}

}  // namespace

Progress::Progress(const char* verb)
    : _verb(verb), _isTerminal(::isatty(STDERR_FILENO) == 1), _nextDraw(Clock::now() + FIRST_DRAW) {}

void Progress::show(u64 bytes) {
    if (!_isTerminal) return;
    const auto now = Clock::now();
    if (now < _nextDraw) return;
    _nextDraw = now + BETWEEN_DRAWS;
    _isShown = true;
    constexpr u64 TENTH_MIB = (1 << 20) / 10;
    const u64 tenths = bytes / TENTH_MIB;
    draw("\r" + std::string(_verb) + " " + std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) +
         " MiB");
}

void Progress::clear() {
    if (!_isShown) return;
    _isShown = false;
    draw("\r\033[K");
}

}  // namespace HiveCtl
