#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tool/command.h"
#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/output.h"
#include "tool/visible.h"
#include "tool/walk.h"

namespace HiveCtl {

namespace {

using Libraries::Files::Hive::HiveHeader;
using Libraries::Files::Hive::HiveUsage;

struct Counts {
    u64 keys = 0;
    u64 values = 0;
    u64 securityRecords = 0;
    bool complete = true;
};

/// A hive's time stamp as "2019-07-18 20:18:00" UTC; empty when it means no date.
std::string timeText(u64 stamp) {
    using namespace std::chrono;
    constexpr u64 PER_SECOND = 10'000'000;                    // units of 100 ns
    constexpr u64 YEAR_10000 = 265'046'774'400 * PER_SECOND;  // from there on dates have five digits
    if (stamp == 0 || stamp >= YEAR_10000) return {};
    const sys_seconds time = sys_days(year(1601) / 1 / 1) + seconds(stamp / PER_SECOND);
    const year_month_day date(floor<days>(time));
    const hh_mm_ss clock(time - floor<days>(time));
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d", int(date.year()),
                  unsigned(date.month()), unsigned(date.day()), int(clock.hours().count()),
                  int(clock.minutes().count()), int(clock.seconds().count()));
    return text;
}

class InfoCommand final : public HiveCommand {
 private:
    void defineMore(CLI::App& app) override { defineJson(app, _json); }

    ExitCode execute() override {
        const Ref<HiveFile> hive = openHive(hiveOptions);
        const Counts counts = countAll(hive);
        HiveUsage usage;
        Error::set(0);
        const bool tiled = hive->usage(usage);
        if (!tiled) complain("free space is counted only up to the damage: " + errorText(Error::get()));
        std::error_code ignored;
        const u64 fileSize = std::filesystem::file_size(hiveOptions.path, ignored);
        if (_json)
            showJson(hive->header(), counts, usage, fileSize, tiled);
        else
            show(hive->header(), counts, usage, fileSize, tiled);
        return tiled && counts.complete ? exitDone : exitFailed;
    }

    Counts countAll(const Ref<HiveFile>& hive) const {
        Counts counts;
        try {
            const KeyAt root = resolveKey(hive, hiveOptions, "/");
            Walk walk(root);
            counts.keys = 1;
            countBelow(walk, root, counts);
            counts.complete = walk.complete();
        } catch (const Failure& failure) {
            complain(failure.what());  // what the header says is worth telling all the same
            counts.complete = false;
        }
        if (const auto records = hive->securityDescriptorIterator())
            while (records->next()) ++counts.securityRecords;
        return counts;
    }

    /// The recursion ends with the library's limit on the depth of keys.
    static void countBelow(Walk& walk, const KeyAt& at, Counts& counts) {
        walk.values(at, [&](const Ref<Value>&, const Ref<String>&) { ++counts.values; });
        walk.subkeys(at, [&](const KeyAt& subkey, const Ref<String>&) {
            ++counts.keys;
            countBelow(walk, subkey, counts);
        });
    }

    void show(const HiveHeader& header, const Counts& counts, const HiveUsage& usage, u64 fileSize,
              bool tiled) const {
        const auto row = [](const char* label, const std::string& text) {
            out().line(padded(label, 18) + text);
        };
        const auto number = [](u64 count) { return std::to_string(count); };
        const std::string atLeast = counts.complete ? "" : "at least ";
        const std::string upTo = tiled ? "" : "at least ";
        const std::string written = timeText(header.lastWritten);
        const bool clean = header.primarySequence == header.secondarySequence;
        row("File", visible(hiveOptions.path));
        row("Version", number(header.majorVersion) + "." + number(header.minorVersion));
        row("File size", number(fileSize) + " bytes");
        row("Hive size", number(header.hbinsSize) + " bytes in " + upTo + number(usage.hbins) + " bins");
        row("Root key", "record " + hexNumber(header.rootCell));
        row("Sequence numbers", number(header.primarySequence) + ", " + number(header.secondarySequence) +
                                    (clean ? " (equal)" : " (differ: the last writer did not finish)"));
        row("Last written",
            written.empty() ? "no date (" + hexNumber(header.lastWritten) + ")" : written + " UTC");
        row("File name field", inQuotes(header.fileName));
        row("Keys", atLeast + number(counts.keys));
        row("Values", atLeast + number(counts.values));
        row("Security records", number(counts.securityRecords));
        row("Used", upTo + number(usage.usedBytes) + " bytes in " + number(usage.usedCells) + " cells");
        row("Free", upTo + number(usage.freeBytes) + " bytes in " + number(usage.freeCells) + " cells");
    }

    void showJson(const HiveHeader& header, const Counts& counts, const HiveUsage& usage, u64 fileSize,
                  bool tiled) const {
        const std::string written = timeText(header.lastWritten);
        const Json info = {
            {"file", String::fromUtf8(hiveOptions.path)->toUtf8()},
            {"version_major", header.majorVersion},
            {"version_minor", header.minorVersion},
            {"file_size", fileSize},
            {"hive_size", header.hbinsSize},
            {"root_record", header.rootCell},
            {"primary_sequence", header.primarySequence},
            {"secondary_sequence", header.secondarySequence},
            {"last_written", written.empty() ? Json() : Json(written + "Z")},
            {"last_written_raw", header.lastWritten},
            {"file_name", header.fileName->toUtf8()},
            {"keys", counts.keys},
            {"values", counts.values},
            {"security_records", counts.securityRecords},
            {"bins", usage.hbins},
            {"used_cells", usage.usedCells},
            {"used_bytes", usage.usedBytes},
            {"free_cells", usage.freeCells},
            {"free_bytes", usage.freeBytes},
            {"complete", tiled && counts.complete},
        };
        out().line(info.dump(2));
    }

    bool _json = false;
};

const CommandRegistration registration = registerCommand<InfoCommand>(
    "info", "Show what the hive's header says and what it holds", "  hivectl info NTUSER.DAT");

}  // namespace

}  // namespace HiveCtl
