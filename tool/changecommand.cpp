#include "tool/changecommand.h"

#include <CLI/CLI.hpp>

#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/visible.h"

namespace HiveCtl {

void ChangeCommand::defineMore(CLI::App& app) {
    defineChange(app);
    app.add_flag("--in-place", inPlace,
                 "Change the file itself; without it a copy is changed and takes the file's place");
}

ExitCode ChangeCommand::execute() {
    WorkingHive working(hiveOptions, inPlace);
    try {
        change(working.hive());
        working.commit();
        return exitDone;
    } catch (const Failure& failure) {
        throw working.explained(failure);
    }
}

std::string ChangeCommand::where(const KeyAt& at) const {
    return " in " + visible(at.path) + " of " + visible(hiveOptions.path);
}

void ChangeCommand::fail(const std::string& what) const {
    throw Failure(what + ": " + errorText(Error::get()));
}

}  // namespace HiveCtl
