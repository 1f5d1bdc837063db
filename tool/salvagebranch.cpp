#include "tool/salvagebranch.h"

#include "tool/errortext.h"
#include "tool/failure.h"
#include "tool/keypath.h"
#include "tool/output.h"
#include "tool/visible.h"

namespace HiveCtl {

using Libraries::Files::Hive::RegFileUtil;
using Libraries::Files::Hive::Salvage;
using Libraries::Files::Hive::SalvageFinding;
namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

SalvageBranch::SalvageBranch(const HiveOptions& options, const std::string& key, Progress& progress)
    : _options(options), _key(key), _progress(progress), _file(openHiveFile(options)) {}

bool SalvageBranch::exportTo(const Ref<FdStripe>& target, const std::string& prefix,
                             RegFileUtil::ExportOptions options) {
    Array<Ref<String>> names;
    for (const Ref<String>& name : parseKeyPath(_key)) names.push_back(name);
    const bool done = Salvage::exportRegFile(
        _file, _options.codepage, names, target, String::fromUtf8(prefix), options,
        [this](const SalvageFinding& finding) { tell(finding); }, _counts);
    if (done || target->writeError()) return done;
    const std::string file = visible(_options.path);
    switch (Error::get()) {
        case ErrorCode::badHive:
            throw Failure("found no root key in " + file + "; nothing was written");
        case ErrorCode::noSuchKey:
            throw Failure("found no key " + inQuotes(_key) + " in " + file + "; nothing was written");
        default:
            throw Failure("stopped: " + errorText(Error::get()));
    }
}

void SalvageBranch::tell(const SalvageFinding& finding) {
    static const char* const words[] = {"lost", "doubtful", "note"};
    std::string place = visible(shortened(finding.path));
    if (finding.ofValue) place += ", value " + shownValueName(String::create(shortened(finding.valueName)));
    _progress.clear();
    complain(std::string(words[finding.kind]) + ": " + place + ", record " + hexNumber(finding.record) +
             ": " + visible(finding.reason));
}

ExitCode SalvageBranch::finish() {
    _progress.clear();
    const bool isWhole = _counts.lost == 0 && _counts.doubtful == 0;
    complain("wrote " + counted(_counts.keys, "key") + " and " + counted(_counts.values, "value") + ", " +
             (isWhole ? "nothing was lost"
                      : std::to_string(_counts.lost) + " lost, " + std::to_string(_counts.doubtful) +
                            " doubtful"));
    return isWhole ? exitDone : exitFailed;
}

}  // namespace HiveCtl
