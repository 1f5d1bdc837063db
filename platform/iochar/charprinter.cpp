#include "platform/iochar/charprinter.h"

#include "platform/system/error.h"

namespace Platform {

Ref<CharPrinter> CharPrinter::create(Ref<CharWriter> writer) {
    if (!writer) {
        Error::set(Error::nullArgument);
        return {};
    }
    return makeRef<CharPrinter>(std::move(writer));
}

void CharPrinter::print(std::string_view text) {
    _writer->write(String::from8(text)->view());
}

}  // namespace Platform
