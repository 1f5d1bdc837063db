#include "regfile/regfileutil.h"

#include "hive/hivelog.h"
#include "platform/filesys/file.h"
#include "platform/ini/iniparser.h"
#include "platform/iochar/stringutil.h"
#include "platform/text/reader.h"
#include "regfile/regfileexporter.h"
#include "regfile/regfileimporthandler.h"
#include "regfile/regfiletext.h"
#include "regfile/report.h"
#include "regfile/util.h"

namespace Libraries::Files::Hive {

using Libraries::Files::Text::Encoding;
using Libraries::Files::Text::Reader;
using Services::Filesystem::Client::File;

namespace {

bool nullArgument() {
    Error::set(Error::nullArgument);
    return false;
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
    const Ref<CharPrinter> out = openRegFileText(target, append, errorPrinter);
    if (!out) return false;
    Ref<String> path = Util::regPathToWindowsStyle(prefix);
    // Also for an empty prefix and the nameless root key: readers of our files expect sections to begin "[\".
    if (key->name()) path = path->concat(String::create(u"\\"));
    RegFileExporter exporter(out, errorPrinter, flag, (options & exportBinaryOnly) != 0);
    const bool done = exporter.recursiveExport(key, path);
    return finishRegFileText(out, errorPrinter) && done;
}

bool RegFileUtil::importRegFile(const Ref<RegistryHive>& hive, const Ref<String>& path,
                                const Ref<String>& prefix, const Ref<CharPrinter>& errorPrinter, bool verbose,
                                ImportCounts* counts) {
    if (!hive || !path || !prefix) return nullArgument();
    const Ref<File> file = File::open(path, File::readAny);
    return file && importRegFile(hive, Ref<Interfaces::Stripe>(file), prefix, errorPrinter, verbose, counts);
}

bool RegFileUtil::importRegFile(const Ref<RegistryHive>& hive, const Ref<Interfaces::Stripe>& source,
                                const Ref<String>& prefix, const Ref<CharPrinter>& errorPrinter, bool verbose,
                                ImportCounts* counts) {
    if (!hive || !source || !prefix) return nullArgument();
    const Ref<Reader> reader = Reader::create(source, Encoding::utf16Le, nullptr);
    if (!reader) return false;
    const auto handler =
        makeRef<RegFileImportHandler>(hive, Util::regPathToWindowsStyle(prefix), errorPrinter, verbose);
    const Ref<CharReader> charReader = CharReader::create(reader, 0);
    if (!charReader) return false;
    handler->setSource(charReader);
    const u32 result = IniParser::parse(charReader, handler, IniParser::registryText);
    handler->settle();
    if (counts) *counts = handler->counts();
    if (result == IniParser::parsed) return true;
    if (result == IniParser::unreadable) handler->reportLine("Failed to read the text");
    if (result == IniParser::malformed) handler->reportLine("Line is neither a section nor a name and data");
    if (errorPrinter)
        return report(errorPrinter, Channel::regUtil, "Regfile import failed: ", StrConv::str(result, 10));
    log(3, Channel::regUtil, "Regfile import failed: ", result);
    return false;
}

}  // namespace Libraries::Files::Hive
