#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <new>
#include <sstream>

#include "tool/command.h"
#include "tool/failure.h"
#include "tool/output.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

struct Loaded {
    CommandEntry entry;
    std::unique_ptr<Command> command;
    CLI::App* app;
};

std::vector<Loaded> defineCommands(CLI::App& app) {
    std::vector<Loaded> commands;
    for (const CommandEntry& entry : registeredCommands()) {
        CLI::App* const sub = app.add_subcommand(entry.name, entry.summary);
        sub->footer(std::string("Example:\n") + entry.example);
        commands.push_back({entry, entry.make(), sub});
        commands.back().command->define(*sub);
    }
    return commands;
}

/// Prints help and version; tells what is wrong with the arguments otherwise.
int answerParser(CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        std::ostringstream text;
        app.exit(error, text, text);
        out().write(text.str());
        out().flush();
        return exitDone;
    }
    std::string help = "hivectl";
    std::string what = error.what();
    for (const CLI::App* sub : app.get_subcommands()) help += " " + sub->get_name();
    if (app.get_subcommands().empty()) {
        const std::vector<std::string> unknown = app.remaining();
        what = unknown.empty() ? "no command given" : "no such command: " + unknown.front();
    }
    complain(visible(what) + "; see " + help + " --help");
    return exitUsage;
}

int runCommandLine(int argc, char** argv) {
    CLI::App app(
        "hivectl reads, changes and builds registry hive files, and exchanges them with registry text.",
        "hivectl");
    app.set_version_flag("--version", "hivectl " HIVECTL_VERSION);
    app.require_subcommand(1);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.get_formatter()->label("Subcommands", "Commands");
    app.get_formatter()->label("REQUIRED", "(required)");
    app.footer(
        "hivectl COMMAND --help explains a command.\n"
        "Exit code: 0 done, 1 failed or not found, 2 wrong usage.");
    const std::vector<Loaded> commands = defineCommands(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return answerParser(app, error);
    }
    for (const Loaded& loaded : commands) {
        if (!loaded.app->parsed()) continue;
        setCommandName(loaded.entry.name);
        const ExitCode exitCode = loaded.command->run();
        out().flush();
        return exitCode;
    }
    return exitUsage;
}

int reportedRun(int argc, char** argv) {
    try {
        return runCommandLine(argc, argv);
    } catch (const Failure& failure) {
        if (*failure.what()) complain(failure.what());
        return failure.exitCode();
    } catch (const std::bad_alloc&) {
        complain("out of memory");
        return exitFailed;
    } catch (const std::exception& error) {
        complain(visible(std::string(error.what())));
        return exitFailed;
    }
}

/// Keeps descriptors 0 to 2 from being given to a file that is opened: our text would be written into it.
void fillStandardDescriptors() {
    while (true) {
        const int fd = ::open("/dev/null", O_RDONLY);
        if (fd > STDERR_FILENO) ::close(fd);
        if (fd < 0 || fd > STDERR_FILENO) return;
    }
}

}  // namespace

}  // namespace HiveCtl

int main(int argc, char** argv) {
    // What they would end us for is told as a failed write instead.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    HiveCtl::fillStandardDescriptors();
    return HiveCtl::reportedRun(argc, argv);
}
