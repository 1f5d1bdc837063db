#pragma once

#include "platform/system/string.h"

namespace Interfaces {

/// What `IniParser::parse` tells its caller, in the order of the text. Each call returns whether to go on.
class IniParserInterface : public virtual Platform::RefCount {
 public:
    /// Before the first line; `source` is what is parsed.
    virtual bool begin(Platform::Ref<Platform::RefCount> source) = 0;
    /// A section line, the name without its brackets.
    virtual bool section(Platform::Ref<Platform::String> name) = 0;
    /// A line before the first section.
    virtual bool line(Platform::Ref<Platform::String> text) = 0;
    /// A name (quotes included) and its data, continuation lines joined.
    virtual bool value(Platform::Ref<Platform::String> name, Platform::Ref<Platform::String> data) = 0;
    /// After the last line.
    virtual bool end() = 0;
    /// What the parser calls for `section` and `value`, which by default do the work: a handler that needs no
    /// strings takes the units as they stand, valid until it returns.
    virtual bool sectionUnits(std::u16string_view name) { return section(Platform::String::create(name)); }
    virtual bool valueUnits(std::u16string_view name, std::u16string_view data) {
        return value(Platform::String::create(name), Platform::String::create(data));
    }
};

}  // namespace Interfaces
