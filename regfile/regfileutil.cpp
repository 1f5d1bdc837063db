#include "regfile/regfileutil.h"

#include "hive/hivelog.h"
#include "platform/filesys/file.h"
#include "platform/text/writer.h"
#include "regfile/regfileexporter.h"
#include "regfile/report.h"
#include "regfile/util.h"

namespace Libraries::Files::Hive {

using Libraries::Files::Text::Encoding;
using Libraries::Files::Text::Writer;
using Services::Filesystem::Client::File;

namespace {

const Ref<String> HEADER = String::create(u"Windows Registry Editor Version 5.00\r\n\r\n");

bool nullArgument() {
    Error::set(Error::nullArgument);
    return false;
}

/// Empties the target, or goes to its end.
bool prepareTarget(const Ref<Interfaces::Stripe>& target, bool append) {
    if (append) return target->seek(target->elementCount()) == target->elementCount();
    return target->setElementCount(0) == 0 && target->seek(0) == 0;
}

}  // namespace

bool RegFileUtil::exportRegFile(const Ref<Key>& key, const Ref<String>& path, const Ref<String>& prefix,
                                ExportOptions options, const Ref<CharPrinter>& errorPrinter, bool flag) {
    if (!key || !path || !prefix) return nullArgument();
    const Ref<File> file = File::open(path, File::writeOrCreate);
    if (file) return exportRegFile(key, Ref<Interfaces::Stripe>(file), prefix, options, errorPrinter, flag);
    return report(errorPrinter, Channel::regUtil,
                  errorPrinter ? "Failed to open: " : "Failed to open file: ", path);
}

bool RegFileUtil::exportRegFile(const Ref<Key>& key, const Ref<Interfaces::Stripe>& target,
                                const Ref<String>& prefix, ExportOptions options,
                                const Ref<CharPrinter>& errorPrinter, bool flag) {
    if (!key || !target || !prefix) return nullArgument();
    const bool append = (options & exportAppend) != 0;
    if (!prepareTarget(target, append))
        return report(errorPrinter, Channel::regUtil, "Failed to truncate the target");
    const Ref<Writer> writer = Writer::create(target, Encoding::utf16Le, !append, nullptr);
    if (!writer) return report(errorPrinter, Channel::regUtil, "Failed to create writer");
    const Ref<CharWriter> charWriter = CharWriter::create(writer, 0);
    if (!charWriter) return report(errorPrinter, Channel::regUtil, "Failed to create CharWriter");
    const Ref<CharPrinter> out = CharPrinter::create(charWriter);
    if (!out) return report(errorPrinter, Channel::regUtil, "Failed to create CharPrinter");
    if (!append) out->print(HEADER);
    Ref<String> path = Util::regPathToWindowsStyle(prefix);
    // Also for an empty prefix and the nameless root key: readers of our files expect sections to begin "[\".
    if (key->name()) path = path->concat(String::create(u"\\"));
    RegFileExporter exporter(out, errorPrinter, flag, (options & exportBinaryOnly) != 0);
    const bool done = exporter.recursiveExport(key, path);
    if (out->flush()) return done;
    return done && report(errorPrinter, Channel::regUtil, "Failed to write the exported text");
}

}  // namespace Libraries::Files::Hive
