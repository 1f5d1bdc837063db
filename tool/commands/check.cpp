#include "check/hivecheck.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "platform/filesys/file.h"
#include "tool/command.h"
#include "tool/failure.h"
#include "tool/output.h"
#include "tool/valuetext.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

using Libraries::Files::Hive::HiveCheck;
using Libraries::Files::Hive::HiveCheckCounts;
using Libraries::Files::Hive::HiveFinding;
using Services::Filesystem::Client::File;

/// A broken hive can have more findings than anybody reads.
constexpr u64 SHOWN = 100;

class CheckCommand final : public HiveCommand {
 private:
    void defineMore(CLI::App& app) override {
        defineJson(app, _json);
        app.add_flag(
            "--all", _all,
            "Show all findings, not only the first " + std::to_string(SHOWN) + " faults and notes each");
    }
    /// It does only read, but cells are what it checks.
    bool onlyReads() const override { return false; }

    ExitCode execute() override {
        const Ref<File> file = File::open(String::fromUtf8(hiveOptions.path), File::readExisting);
        if (!file) throw Failure(openFailure(hiveOptions, Error::get()));
        if (_json) out().write("{\"findings\": [");
        HiveCheckCounts counts;
        const auto sink = [&](const HiveFinding& finding) { _json ? printJson(finding) : print(finding); };
        if (!HiveCheck::run(file, hiveOptions.codepage, sink, counts)) {
            if (_json) out().line("], \"hive\": false}");
            throw Failure(visible(hiveOptions.path) +
                          " is not a hive: neither its signature nor an hbin is there");
        }
        _json ? endJson(counts) : summarise(counts);
        return counts.faults ? exitFailed : exitDone;
    }

    void print(const HiveFinding& finding) {
        const bool isFault = finding.severity == HiveFinding::fault;
        if (++(isFault ? _faults : _notes) > SHOWN && !_all) return;
        const std::string place =
            finding.offset == HiveFinding::baseBlock ? "base block" : hexNumber(finding.offset);
        std::string where = finding.path ? visible(finding.path) : "";
        if (finding.value) where += ", value " + shownValueName(finding.value);
        if (!where.empty()) where += ": ";
        out().line(padded(isFault ? "fault" : "note", 7) + padded(place, 12) + where + finding.text);
    }

    void summarise(const HiveCheckCounts& counts) {
        const auto more = [&](u64 count, const char* noun) {
            if (count > SHOWN && !_all)
                out().line("... and " + counted(count - SHOWN, noun) + " more (--all shows them)");
        };
        more(counts.faults, "fault");
        more(counts.notes, "note");
        out().line(counted(counts.keys, "key") + ", " + counted(counts.values, "value") + ", " +
                   counted(counts.hbins, "hbin") + ", " + counted(counts.usedCells, "used cell") + ", " +
                   counted(counts.freeCells, "free cell"));
        out().line(visible(hiveOptions.path) + ": " + counted(counts.faults, "fault") + ", " +
                   counted(counts.notes, "note"));
    }

    void printJson(const HiveFinding& finding) {
        const auto text = [](const Ref<String>& name) { return name ? Json(name->toUtf8()) : Json(); };
        const bool isBaseBlock = finding.offset == HiveFinding::baseBlock;
        const Json entry = {{"severity", finding.severity == HiveFinding::fault ? "fault" : "note"},
                            {"offset", isBaseBlock ? Json() : Json(finding.offset)},
                            {"path", text(finding.path)},
                            {"value", text(finding.value)},
                            {"text", finding.text}};
        out().write((_faults++ ? ",\n" : "\n") + entry.dump());
    }

    void endJson(const HiveCheckCounts& counts) {
        const Json totals = {{"keys", counts.keys},
                             {"values", counts.values},
                             {"hbins", counts.hbins},
                             {"used_cells", counts.usedCells},
                             {"free_cells", counts.freeCells},
                             {"faults", counts.faults},
                             {"notes", counts.notes}};
        out().line("], \"hive\": true, \"clean\": " + std::string(counts.faults ? "false" : "true") +
                   ", \"counts\": " + totals.dump() + "}");
    }

    bool _json = false;
    bool _all = false;
    u64 _faults = 0;  // of JSON: findings printed
    u64 _notes = 0;
};

const CommandRegistration registration = registerCommand<CheckCommand>(
    "check", "Check the whole structure of a hive; exit code 1 when it has a fault",
    "  hivectl check NTUSER.DAT");

}  // namespace

}  // namespace HiveCtl
