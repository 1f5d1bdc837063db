#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>

#include "tool/atomicfile.h"
#include "tool/command.h"
#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

class NewCommand final : public HiveCommand {
 private:
    bool onlyReads() const override { return false; }

    void defineMore(CLI::App& app) override {
        app.add_option("--format", _format, "Format version: 1.3 (older) or 1.5 (default)")
            ->check(CLI::IsMember({"1.3", "1.5"}).description(""))
            ->type_name("VERSION");
    }

    ExitCode execute() override {
        const std::string shown = visible(hiveOptions.path);
        if (::access(hiveOptions.path.c_str(), F_OK) == 0)
            throw Failure(shown + " exists already; name a file that does not");
        AtomicFile file(hiveOptions.path, false);
        const Ref<HiveFile> hive =
            HiveFile::create(file.store(), _format == "1.3" ? 3 : 5, HiveFile::modeReadWrite,
                             hiveOptions.codepage, String::fromUtf8(hiveOptions.path));
        if (!hive || !hive->flush())
            throw file.explained(Failure("cannot create " + shown + ": " + errorText(Error::get())));
        file.commitNew();
        return exitDone;
    }

    std::string _format = "1.5";
};

const CommandRegistration registration = registerCommand<NewCommand>(
    "new", "Make a new, empty hive", "  hivectl new software.hive\n  hivectl new old.hive --format 1.3");

}  // namespace

}  // namespace HiveCtl
