#include <CLI/CLI.hpp>

#include "tool/command.h"
#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/output.h"
#include "tool/sddl.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

class SecurityCommand final : public HiveCommand {
 private:
    void defineMore(CLI::App& app) override {
        app.add_flag("--hex", _hex, "Show the descriptors' bytes as well");
    }

    ExitCode execute() override {
        const Ref<HiveFile> hive = openHive(hiveOptions);
        const auto walk = hive->securityDescriptorIterator();
        if (!walk)
            throw Failure("cannot read the root key of " + visible(hiveOptions.path) + ": " +
                          errorText(Error::get()));
        ExitCode result = exitDone;
        while (const auto record = walk->next()) {
            const auto bytes = record->get();
            const std::span<const u8> descriptor =
                bytes ? std::span<const u8>(bytes->data(), toSize(bytes->size())) : std::span<const u8>();
            const std::string text = sddlText(descriptor);
            if (text.empty()) result = exitFailed;
            out().line(hexNumber(record->recordOfs()) + "  used by " + counted(record->users(), "key") +
                       "  " + (text.empty() ? "(unreadable descriptor)" : text));
            if (_hex) out().write(hexDump(descriptor));
        }
        return result;
    }

    bool _hex = false;
};

const CommandRegistration registration = registerCommand<SecurityCommand>(
    "sd", "List the security records: offset, users, and the descriptor as SDDL", "  hivectl sd NTUSER.DAT");

}  // namespace

}  // namespace HiveCtl
