#pragma once

#include "platform/interfaces/iniparserinterface.h"
#include "platform/iochar/charreader.h"

namespace Platform {

/// Splits INI-like text into sections and name/data pairs.
class PLATFORM_API IniParser {
 public:
    /// What `parse` returns.
    enum Result : u32 {
        parsed = 0,
        refused = 1,     ///< a callback returned false
        unreadable = 2,  ///< the text could not be read
        malformed = 3,   ///< a line fits no rule
    };

    /// The rules to read by; the only ones there are.
    static constexpr u32 registryText = 2;

    /// Reads registry export text to its end and tells `handler` what it holds:
    /// - Lines end in CR LF, LF or CR. Blank lines, and lines whose first character is ';', are skipped.
    /// - "[...]" is a section line; the name is all that stands between the first and the last character.
    /// - Any other line before the first section is handed over as it is.
    /// - Otherwise a line is a name and data around a '='. A name in quotes ends at the first '"=' whose
    /// right side begins
    ///   legal data (a quote, "dword:", "hex:", "hex(", or "-" alone), else at the first '"='. Nothing is
    ///   unescaped.
    /// - Data that begins with "hex" and ends in '\' goes on in the next line, whose leading blanks are
    /// dropped.
    ///
    /// Takes time linear in the text and memory for one line with its continuations. `reader->line()` is the
    /// number of the line being told, and of the failing line afterwards. Error: 0x8445 null argument, 0x8446
    /// other rules (result `unreadable`).
    static u32 parse(const Ref<CharReader>& reader, const Ref<Interfaces::IniParserInterface>& handler,
                     u32 rules);
};

}  // namespace Platform
