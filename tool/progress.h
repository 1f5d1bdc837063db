#pragma once

#include <chrono>

#include "tool/base.h"

namespace HiveCtl {

/// A line on standard error that tells how far a long export or import has come. Nothing is shown when
/// standard error is no terminal, or before half a second has passed.
class Progress {
 public:
    /// `verb` says what is done to the bytes: "exported".
    explicit Progress(const char* verb);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Draws the number of bytes done, at most ten times a second.
    void show(u64 bytes);
    /// Takes the line away, for other text to be printed and at the end.
    void clear();

 private:
    using Clock = std::chrono::steady_clock;
    const char* const _verb;
    const bool _isTerminal;
    Clock::time_point _nextDraw;
    bool _isShown = false;
};

}  // namespace HiveCtl
