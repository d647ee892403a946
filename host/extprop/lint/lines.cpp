// Rules on single lines, and on the lines of one file together.

#include <ctype.h>

#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "lint/rules.h"
#include "printable.h"
#include "utils.h"

namespace extprop {

namespace {

constexpr const Rule& kNoEquals = RuleNamed("no-equals");
constexpr const Rule& kIllegalName = RuleNamed("illegal-name");
constexpr const Rule& kValueTooLong = RuleNamed("value-too-long");
constexpr const Rule& kNotUtf8 = RuleNamed("not-utf8");
constexpr const Rule& kCarriageReturn = RuleNamed("carriage-return");
constexpr const Rule& kCrlf = RuleNamed("crlf");
constexpr const Rule& kDuplicateName = RuleNamed("duplicate-name");
constexpr const Rule& kNotForwarded = RuleNamed("not-forwarded");
constexpr const Rule& kImportEquals = RuleNamed("import-equals");
constexpr const Rule& kCommentInValue = RuleNamed("comment-in-value");
constexpr const Rule& kQuotedValue = RuleNamed("quoted-value");

// Returns whether the library accepts the text as a value where any length is allowed.
bool IsText(std::string_view text) {
    return IsLegalPropertyValue("ro.", std::string(text)).ok();
}

// Checks all lines of the file, also comments, which the loader's lines do not have.
void CheckCarriageReturns(const PropertyFile& file, Findings* findings) {
    int line_ends = 0;
    int first = 0;
    int number = 0;
    for (const std::string& line : android::base::Split(file.content, "\n")) {
        ++number;
        if (android::base::Trim(line).find('\r') != std::string::npos) {
            findings->Add(kCarriageReturn, file.path, number,
                          "a carriage return within the line ends no line: what follows it belongs "
                          "to the same value or comment");
        } else if (line.find('\r') != std::string::npos && line_ends++ == 0) {
            first = number;
        }
    }
    if (line_ends == 0) return;
    findings->Add(
            kCrlf, file.path, first,
            "a carriage return before the line's end, as in " + std::to_string(line_ends) +
                    " of the file's lines: the loader drops it, but not everything that reads "
                    "the file does");
}

// Returns whether the line's name will be given to init as a property's.
bool NamesProperty(const PropertyFile& file, const std::string& name) {
    switch (file.use) {
        case FileUse::kProperties:
        case FileUse::kKeyFile:
            return true;
        case FileUse::kCotaMessage:
            // Instructions and modules have no dot in their names.
            return name.find('.') != std::string::npos;
        case FileUse::kMapping:
        case FileUse::kDeviceName:
            return false;
    }
    return false;
}

// Returns whether something that looks like a comment follows other text.
bool EndsInComment(std::string_view value) {
    for (size_t at = 1; (at = value.find('#', at)) != std::string_view::npos; ++at) {
        const bool begins = isspace(static_cast<unsigned char>(value[at - 1])) != 0;
        const bool is_last = at + 1 == value.size();
        // "#" and a digit may be meant as a number.
        if (begins && (is_last || isdigit(static_cast<unsigned char>(value[at + 1])) == 0)) {
            return true;
        }
    }
    return false;
}

// Checks for what other formats remove from a value and the loader does not.
void CheckValue(const PropertyFile& file, const PropertyLine& line, Findings* findings) {
    const std::string_view value = line.value;
    const bool is_quoted = value.size() > 1 && value.front() == value.back() &&
                           (value.front() == '"' || value.front() == '\'');
    if (EndsInComment(value)) {
        findings->Add(kCommentInValue, file.path, line.number,
                      "the comment is part of the value: only a whole line can be one");
    } else if (is_quoted) {
        findings->Add(kQuotedValue, file.path, line.number,
                      "the quotes are part of the value " + QuotedShort(value));
    }
}

void CheckProperty(const PropertyFile& file, const PropertyLine& line, Findings* findings) {
    const std::string name(line.name);
    if (!NamesProperty(file, name)) return;
    if (!IsLegalPropertyName(name)) {
        findings->Add(kIllegalName, file.path, line.number,
                      QuotedShort(name) + " is no legal property name, and init will refuse it");
    }
    if (!IsLegalPropertyValue(name, std::string(line.value)).ok()) {
        findings->Add(kValueTooLong, file.path, line.number,
                      "the value of " + QuotedShort(name) + " has " +
                              std::to_string(line.value.size()) +
                              " bytes, too many for a name that does not begin with 'ro.', and "
                              "init will refuse it");
    }
    if (file.use == FileUse::kCotaMessage && !android::init::isSystemProperty(name) &&
        !android::base::StartsWith(name, "persisit.")) {
        findings->Add(
                kNotForwarded, file.path, line.number,
                QuotedShort(name) +
                        " is not forwarded when the package is mounted: only names that begin "
                        "with 'sys.' or 'ro.' are");
    }
}

}  // namespace

void CheckLines(const PropertyFile& file, Findings* findings) {
    CheckCarriageReturns(file, findings);
    const bool bare_key =
            file.use == FileUse::kKeyFile && file.content.find('=') == std::string::npos;
    std::map<std::string_view, const PropertyLine*> last;
    for (const PropertyLine& line : file.lines) {
        if (!IsText(line.text)) {
            findings->Add(kNotUtf8, file.path, line.number,
                          "the line is not UTF-8 text, and init will refuse the value");
            continue;
        }
        if (line.kind == PropertyLine::kOther && !bare_key) {
            findings->Add(
                    kNoEquals, file.path, line.number,
                    "there is no '=' in " + QuotedShort(line.text) + ", so the line sets nothing");
        }
        if (line.kind != PropertyLine::kProperty) continue;
        if (line.name == "import" && android::base::StartsWith(line.value, "/")) {
            findings->Add(kImportEquals, file.path, line.number,
                          "this sets a property that is called import; an import has a blank "
                          "instead of the '='");
            continue;
        }
        CheckValue(file, line, findings);
        CheckProperty(file, line, findings);
        const PropertyLine*& previous = last[line.name];
        if (previous != nullptr && previous->value != line.value) {
            findings->Add(
                    kDuplicateName, file.path, line.number,
                    QuotedShort(line.name) + " is " + QuotedShort(previous->value) + " in line " +
                            std::to_string(previous->number) + " and " + QuotedShort(line.value) +
                            " here: a load takes the last value, a look-up of this name the first");
        }
        previous = &line;
    }
}

}  // namespace extprop
