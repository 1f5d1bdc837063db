#pragma once

#include <memory>
#include <vector>

#include "tool/context.h"

namespace CLI {
class App;
}

namespace HiveCtl {

/// One command of the program: its arguments and its work. A command lives in a file of its own, which
/// registers it with a `CommandRegistration`; nothing else knows it.
class Command {
 public:
    virtual ~Command() = default;
    /// Adds the command's arguments and options, whose places must live as long as the command.
    virtual void define(CLI::App& app) = 0;
    /// Does the work. Throws Failure.
    virtual ExitCode run() = 0;
};

/// Sends the library's log lines to standard error, the more the higher `verbosity` (0: none).
void showLog(int verbosity);

/// A command on a hive: the argument HIVE, and the options all of them have.
class HiveCommand : public Command {
 public:
    void define(CLI::App& app) final;
    ExitCode run() final;

 protected:
    virtual void defineMore(CLI::App& app) = 0;
    /// Whether the command leaves the hive as it is, and so may read it without checks.
    virtual bool onlyReads() const { return true; }
    virtual ExitCode execute() = 0;

    static void defineKey(CLI::App& app, std::string& key);
    static void defineJson(CLI::App& app, bool& json);

    HiveOptions hiveOptions;
};

struct CommandEntry {
    const char* name;
    const char* summary;
    const char* example;  ///< lines for the end of the help text, each a call
    std::unique_ptr<Command> (*make)();
};

/// The registered commands, by name.
std::vector<CommandEntry> registeredCommands();

struct CommandRegistration {
    explicit CommandRegistration(const CommandEntry& entry);
};

/// Makes a command's type known under its name; one for each command, at namespace scope.
template <typename T>
CommandRegistration registerCommand(const char* name, const char* summary, const char* example) {
    return CommandRegistration(
        {name, summary, example, []() -> std::unique_ptr<Command> { return std::make_unique<T>(); }});
}

}  // namespace HiveCtl
