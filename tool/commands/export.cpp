#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>

#include "hive/errorcodes.h"
#include "regfile/regfileutil.h"
#include "tool/atomicfile.h"
#include "tool/command.h"
#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/linesink.h"
#include "tool/output.h"
#include "tool/progress.h"
#include "tool/salvagebranch.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

using Libraries::Files::Hive::RegFileUtil;
namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

/// Sorts what the library reports of an export: a value written in binary form for want of a readable one is
/// a warning, anything else the reason of a failure.
class Reports {
 public:
    explicit Reports(Progress& progress) : _progress(progress) {}

    void add(std::u16string_view line) {
        if (line != u"Using binary fallback") {
            if (!_pending.empty()) _pending += u'\n';  // a line break of a name
            _pending += line;
            return;
        }
        _progress.clear();
        complain("warning: " + visible(shortened(_pending)) + "; written in binary form");
        _pending.clear();
        _warned = true;
    }
    /// Why the export failed.
    std::string reason() const {
        std::string text = _pending.empty() ? "no reason given" : visible(shortened(_pending));
        // After a warning the code may be the warning's.
        if (!_warned && Error::get() != ErrorCode::none) text += ": " + errorText(Error::get());
        return text;
    }

 private:
    Progress& _progress;
    std::u16string _pending;
    bool _warned = false;
};

class ExportCommand final : public HiveCommand {
 private:
    void defineMore(CLI::App& app) override {
        defineKey(app, _key);
        app.add_option("-o", _file,
                       "The file to write; replaced only when all went well (default: standard output)")
            ->type_name("FILE");
        app.add_option("--prefix", _prefix, "Key path the section names begin with")->type_name("PREFIX");
        app.add_flag("--binary-only", _binaryOnly, "Every value as hex(type), which loses nothing");
        app.add_flag("--append", _append, "Write behind what FILE holds, without a header");
        app.add_flag("--salvage", _salvage,
                     "Go on past damage: write what can be read, tell every loss on standard error and the "
                     "count at the end; exit 1 when anything was lost");
    }

    ExitCode execute() override {
        if (_salvage) return salvage();
        const KeyAt at = resolveKey(openHive(hiveOptions), hiveOptions, _key);
        if (_file.empty() || _file == "-") {
            toStandardOutput(at);
            return exitDone;
        }
        refuseHiveAsOutput();
        toFile(at);
        return exitDone;
    }

    void refuseHiveAsOutput() const {
        if (isSameFile(_file, hiveOptions.path))
            throw Failure("the output " + visible(_file) + " is the hive itself; name another file",
                          exitUsage);
    }

    ExitCode salvage() {
        if (hiveOptions.unsafe) throw Failure("--salvage excludes --unsafe", exitUsage);
        Progress progress("exported");
        SalvageBranch branch(hiveOptions, _key, progress);
        if (_file.empty() || _file == "-") {
            const auto stripe = makeRef<FdStripe>(STDOUT_FILENO);
            if (!branch.exportTo(stripe, _prefix, options())) failOutput(stripe->writeError());
            return branch.finish();
        }
        refuseHiveAsOutput();
        AtomicFile file(_file, _append);
        const Ref<FdStripe>& stripe = file.stripe();
        stripe->setObserver([&progress](u64 bytes) { progress.show(bytes); });
        const bool done = branch.exportTo(stripe, _prefix, options());
        progress.clear();
        if (!done)
            throw Failure("stopped: " + systemErrorText(stripe->writeError()) + "; " + visible(_file) +
                          (file.isAtomic() ? " is as it was" : " is incomplete"));
        file.commit();
        return branch.finish();
    }

    RegFileUtil::ExportOptions options() const {
        return static_cast<RegFileUtil::ExportOptions>(
            (_append ? u32{RegFileUtil::exportAppend} : 0) |
            (_binaryOnly ? u32{RegFileUtil::exportBinaryOnly} : 0));
    }

    void toStandardOutput(const KeyAt& at) {
        Progress progress("exported");
        Reports reports(progress);
        const auto stripe = makeRef<FdStripe>(STDOUT_FILENO);
        if (exportTo(at, stripe, reports)) return;
        if (stripe->writeError()) failOutput(stripe->writeError());
        throw Failure("stopped: " + reports.reason());
    }

    void toFile(const KeyAt& at) {
        Progress progress("exported");
        Reports reports(progress);
        AtomicFile file(_file, _append);
        const Ref<FdStripe>& stripe = file.stripe();
        stripe->setObserver([&progress](u64 bytes) { progress.show(bytes); });
        const bool done = exportTo(at, stripe, reports);
        progress.clear();
        if (done) return file.commit();
        const int writeError = stripe->writeError();
        if (writeError == EPIPE) throw Failure("");
        throw Failure("stopped: " + (writeError ? systemErrorText(writeError) : reports.reason()) + "; " +
                      visible(_file) + (file.isAtomic() ? " is as it was" : " is incomplete"));
    }

    bool exportTo(const KeyAt& at, const Ref<FdStripe>& stripe, Reports& reports) {
        const Ref<CharPrinter> printer =
            LineSink::printer([&reports](std::u16string_view line) { reports.add(line); });
        Error::set(ErrorCode::none);
        const bool done =
            RegFileUtil::exportRegFile(at.key, stripe, String::fromUtf8(_prefix), options(), printer, false);
        printer->flush();
        return done;
    }

    std::string _key;
    std::string _file;
    std::string _prefix;
    bool _binaryOnly = false;
    bool _append = false;
    bool _salvage = false;
};

const CommandRegistration registration = registerCommand<ExportCommand>(
    "export", "Write a key and all below it as registry export text",
    "  hivectl export NTUSER.DAT Software/Vendor -o vendor.reg --prefix HKEY_CURRENT_USER/Software\n"
    "  hivectl export damaged.dat --salvage -o rest.reg 2> losses.txt");

}  // namespace

}  // namespace HiveCtl
