#include "tool/command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <string_view>

#include "platform/iochar/stdio.h"
#include "platform/syslog/syslogfilter.h"
#include "platform/syslog/syslogstream.h"
#include "tool/linesink.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

const std::map<std::string, HiveFile::HiveCodepage> codepages = {
    {"ascii", HiveFile::hiveCodepageAscii},
    {"latin1", HiveFile::hiveCodepageLatin1},
    {"cp1250", HiveFile::hiveCodepageCp1250},
    {"cp1252", HiveFile::hiveCodepageCp1252},
};

std::vector<CommandEntry>& registry() {
    static std::vector<CommandEntry> entries;
    return entries;
}

}  // namespace

/// They quote names from the hive.
void showLog(int verbosity) {
    if (verbosity <= 0) return;
    SysLogFilter::setLevel(verbosity == 1 ? 3 : 1);
    const Ref<CharPrinter> standardError = CharPrinter::create(StdIO::stdErrWriter());
    SysLogStream::redirect(LineSink::printer([standardError](std::u16string_view line) {
        standardError->print(String::fromUtf8(visible(line)));
        standardError->endLine();
        standardError->flush();
    }));
}

void HiveCommand::define(CLI::App& app) {
    app.add_option("HIVE", hiveOptions.path, "The hive file")->required()->type_name("");
    defineMore(app);
    app.add_option_function<std::string>(
           "--codepage", [this](const std::string& name) { hiveOptions.codepage = codepages.at(name); },
           "Character set of names stored in 8 bits: ascii, latin1 (default), cp1250 or cp1252")
        ->check(CLI::IsMember({"ascii", "latin1", "cp1250", "cp1252"}).description(""))
        ->type_name("NAME");
    if (onlyReads())
        app.add_flag("--unsafe", hiveOptions.unsafe,
                     "Read without checking cells: faster, and reads more of a damaged hive");
    app.add_flag("-v", hiveOptions.verbosity, "Show the library's log on standard error; twice: in detail");
}

ExitCode HiveCommand::run() {
    showLog(hiveOptions.verbosity);
    return execute();
}

void HiveCommand::defineKey(CLI::App& app, std::string& key) {
    app.add_option(
           "KEY", key,
           "Key path: names separated by '/', with \"\\/\" for a slash in a name (default: the root key)")
        ->type_name("");
}

void HiveCommand::defineJson(CLI::App& app, bool& json) {
    app.add_flag("--json", json, "Print JSON, for programs");
}

std::vector<CommandEntry> registeredCommands() {
    std::vector<CommandEntry> entries = registry();
    std::sort(entries.begin(), entries.end(),
              [](const CommandEntry& a, const CommandEntry& b) { return std::string_view(a.name) < b.name; });
    return entries;
}

CommandRegistration::CommandRegistration(const CommandEntry& entry) {
    registry().push_back(entry);
}

}  // namespace HiveCtl
