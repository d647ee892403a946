// Rules on files that no boot reads, and on key files without a key.

#include <algorithm>

#include "TesvoExtensionProperty/names.h"
#include "lint/rules.h"
#include "nearest.h"
#include "printable.h"

namespace extprop {

namespace {

constexpr const Rule& kMissingKey = RuleNamed("missing-key");
constexpr const Rule& kBareKey = RuleNamed("bare-key");

// A kind that is not in the table is found by other rules.
constexpr struct {
    DeadKind kind;
    const Rule& rule;
} kDeadRules[] = {
        {DeadKind::kUnknownKind, RuleNamed("unknown-kind")},
        {DeadKind::kNoKind, RuleNamed("no-kind")},
        {DeadKind::kNestedDirectory, RuleNamed("nested-directory")},
        {DeadKind::kMisspeltProperties, RuleNamed("misspelt-properties")},
        {DeadKind::kUnsearchedRoot, RuleNamed("unsearched-root")},
        {DeadKind::kMisspeltPartition, RuleNamed("misspelt-partition")},
        {DeadKind::kUnknownPartition, RuleNamed("unknown-partition")},
        {DeadKind::kUnreadFile, RuleNamed("unread-file")},
};

}  // namespace

void CheckDeadPlaces(const std::vector<DeadPlace>& places, Findings* findings) {
    for (const DeadPlace& place : places) {
        for (const auto& known : kDeadRules) {
            if (known.kind == place.kind) findings->Add(known.rule, place.path, place.reason);
        }
    }
}

void CheckKeyFile(const PropertyFile& file, Findings* findings) {
    const auto fixed =
            std::find_if(FixedFiles().begin(), FixedFiles().end(),
                         [&](const FixedFile& known) { return file.path == known.path; });
    if (!file.was_read || fixed == FixedFiles().end() || fixed->property == nullptr) return;
    // The older form is the bare key.
    const bool takes_bare = file.use == FileUse::kKeyFile;
    if (takes_bare && file.content.find('=') == std::string::npos) {
        if (file.content.find_first_of("# \t\r\n") == std::string::npos) return;
        findings->Add(kBareKey, file.path,
                      "there is no line '" + std::string(fixed->property) +
                              "=KEY', so the library takes the whole text for the key, with its "
                              "comments, white space and line end");
        return;
    }
    int line_number = 0;  // of a misspelt name
    std::string misspelt;
    for (const PropertyLine& line : file.lines) {
        if (line.kind == PropertyLine::kImport || line.name == fixed->property) return;
        constexpr size_t kNear = 3;
        if (line.kind != PropertyLine::kProperty || !misspelt.empty() ||
            Nearest(std::string(line.name), {fixed->property}, kNear).empty()) {
            continue;
        }
        misspelt = line.name;
        line_number = line.number;
    }
    // The system may use the file for other properties only.
    if (misspelt.empty() && fixed->trigger == LoadTrigger::kDataCommon) return;
    const std::string found =
            misspelt.empty() ? "no line has the name" : QuotedShort(misspelt) + " is not the name";
    findings->Add(kMissingKey, file.path, line_number,
                  found + " '" + fixed->property + "' that the library looks for here" +
                          (takes_bare ? ", so it takes the whole text for a key in the old form"
                                      : ", so the file gives no key"));
}

}  // namespace extprop
