#pragma once

#include "tool/command.h"
#include "tool/workinghive.h"

namespace HiveCtl {

/// A command that changes a hive: on a copy that replaces it when all went well, or in place.
class ChangeCommand : public HiveCommand {
 protected:
    bool onlyReads() const final { return false; }
    void defineMore(CLI::App& app) final;
    ExitCode execute() override;

    virtual void defineChange(CLI::App& app) = 0;
    /// Does the change; holds no key or value of the hive afterwards. Throws Failure.
    virtual void change(const Ref<HiveFile>& hive) = 0;

    /// " in KEY of HIVE", for messages.
    std::string where(const KeyAt& at) const;
    /// Ends the command: what could not be done, and the reason the library gave.
    [[noreturn]] void fail(const std::string& what) const;

    bool inPlace = false;
};

}  // namespace HiveCtl
