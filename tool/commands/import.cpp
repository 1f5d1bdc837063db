#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>

#include "regfile/regfileutil.h"
#include "tool/changecommand.h"
#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/fdsource.h"
#include "tool/linesink.h"
#include "tool/output.h"
#include "tool/progress.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

using Libraries::Files::Hive::ImportCounts;
using Libraries::Files::Hive::RegFileUtil;

/// The text file, open for reading; standard input for "-".
class TextFile {
 public:
    explicit TextFile(const std::string& path)
        : _fd(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)) {
        if (_fd < 0) throw Failure("cannot open " + visible(path) + ": " + systemErrorText(errno));
    }
    ~TextFile() {
        if (_fd > STDERR_FILENO) ::close(_fd);
    }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
    int fd() const { return _fd; }

 private:
    int _fd;
};

class ImportCommand final : public ChangeCommand {
 private:
    void defineChange(CLI::App& app) override {
        app.add_option("FILE", _file, "Registry export text, UTF-16 or UTF-8; - is standard input")
            ->required()
            ->type_name("");
        app.add_option("--prefix", _prefix, "Key path that all section names begin with, and that is dropped")
            ->type_name("PREFIX");
        app.add_flag("--verbose", _verbose, "Show each key that is created, on standard error");
        app.add_flag("--keep-partial", _keepPartial, "When a line fails, keep what was applied before it");
    }

    ExitCode execute() override {
        if (_verbose && hiveOptions.verbosity < 2) showLog(2);
        WorkingHive working(hiveOptions, inPlace);
        try {
            return apply(working);
        } catch (const Failure& failure) {
            throw working.explained(failure);
        }
    }

    ExitCode apply(WorkingHive& working) {
        change(working.hive());
        if (_failure.empty() || _keepPartial || inPlace) working.commit();
        if (_failure.empty()) {
            out().line(summary());
            return exitDone;
        }
        throw Failure(_failure + (_keepPartial || inPlace
                                      ? "; kept what came before: " + summary()
                                      : "; " + visible(hiveOptions.path) + " is as it was"));
    }

    void change(const Ref<HiveFile>& hive) override {
        const TextFile text(_file);
        Progress progress("imported");
        std::u16string reports;
        const Ref<CharPrinter> printer = LineSink::printer([&reports](std::u16string_view line) {
            if (reports.empty())
                reports = line;  // what comes behind the reason only says that the import failed
        });
        const auto source = makeRef<FdSource>(text.fd(), [&progress](u64 bytes) { progress.show(bytes); });
        const bool done = RegFileUtil::importRegFile(hive, Ref<Interfaces::Stripe>(source),
                                                     String::fromUtf8(_prefix), printer, _verbose, &_counts);
        const u32 code = Error::get();
        printer->flush();
        if (done) return;
        _failure = visible(_file) + ": " + (reports.empty() ? errorText(code) : visible(shortened(reports)));
    }

    std::string summary() const {
        return "created " + counted(_counts.keysCreated, "key") + ", deleted " +
               counted(_counts.keysDeleted, "key") + ", set " + counted(_counts.valuesSet, "value") +
               ", deleted " + counted(_counts.valuesDeleted, "value");
    }

    std::string _file;
    std::string _prefix;
    bool _verbose = false;
    bool _keepPartial = false;
    ImportCounts _counts;
    std::string _failure;
};

const CommandRegistration registration =
    registerCommand<ImportCommand>("import", "Apply registry export text to a hive",
                                   "  hivectl import NTUSER.DAT vendor.reg --prefix HKEY_CURRENT_USER");

}  // namespace

}  // namespace HiveCtl
