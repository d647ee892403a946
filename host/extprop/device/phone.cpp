#include "device/phone.h"

#include <algorithm>
#include <optional>

#include <android-base/strings.h>

#include "budget.h"
#include "device/legal.h"
#include "device/property_lines.h"
#include "input_error.h"
#include "printable.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::StartsWith;
using Lines = std::vector<std::string_view>;

constexpr char kWanted[] =
        "; expected what getprop prints, a property file, a bug report as text or zip, or the "
        "persistent properties' store";

[[noreturn]] void Refuse(const std::string& name, const std::string& what) {
    throw InputError(name + ": " + what + kWanted);
}

[[noreturn]] void Refuse(const std::string& name, size_t line, const std::string& what) {
    throw InputError(name + ":" + std::to_string(line + 1) + ": " + what);
}

// ---- The output of getprop, and property files.

constexpr std::string_view kBeforeValue = "]: [";

bool IsListed(std::string_view line) {
    return StartsWith(line, "[") && line.find(kBeforeValue) != std::string_view::npos;
}

bool IsBlank(std::string_view line) {
    return line.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

// Reads the property that begins on line `*at`, and sets `*at` to its last line. The value may have
// several lines, and brackets at their ends.
void ReadListed(const std::string& name, const Lines& lines, size_t first_number, size_t* at,
                PropertyMap* properties) {
    const size_t first = *at;
    size_t end = first + 1;
    while (end < lines.size() && !IsListed(lines[end])) ++end;
    size_t last = end - 1;
    while (last > first && IsBlank(lines[last])) --last;
    if (!EndsWith(lines[last], "]")) {
        for (last = first; last < end && !EndsWith(lines[last], "]");) ++last;
        if (last == end) {
            Refuse(name, first_number + first,
                   "truncated or damaged: the value's closing ] is missing");
        }
    }
    const size_t separator = lines[first].find(kBeforeValue);
    std::string value(lines[first].substr(separator + kBeforeValue.size()));
    for (*at = first; *at < last;) {
        value += '\n';
        value += lines[++*at];
    }
    value.pop_back();
    (*properties)[std::string(lines[first].substr(1, separator - 1))] = std::move(value);
}

bool IsType(const std::string& value) {
    constexpr const char* kTypes[] = {"string", "bool", "int", "uint", "double", "size"};
    return StartsWith(value, "enum ") ||
           std::find(std::begin(kTypes), std::end(kTypes), value) != std::end(kTypes);
}

// Throws InputError if getprop was called to print something else than values.
void CheckAreValues(const std::string& name, const PropertyMap& listed) {
    const auto all = [&](const auto& is) {
        return !listed.empty() &&
               std::all_of(listed.begin(), listed.end(),
                           [&](const auto& property) { return is(property.second); });
    };
    if (all([](const std::string& value) { return StartsWith(value, "u:object_r:"); })) {
        Refuse(name, "it looks like what getprop -Z prints, contexts instead of values");
    }
    if (all(IsType)) Refuse(name, "it looks like what getprop -T prints, types instead of values");
}

// Throws InputError if these are too many bytes of properties.
void CheckSize(const std::string& name, std::string_view content) {
    if (content.size() <= limits::kPhoneProperties) return;
    Refuse(name, "more than " + std::to_string(limits::kPhoneProperties) +
                         " bytes of properties, which is the limit");
}

// Reads lines of either form. The first has the number `first_number`.
Phone ReadLines(const std::string& name, std::string content, size_t first_number) {
    CheckSize(name, content);
    if (EndsWith(content.substr(0, content.find('\n')), "\r")) {
        content = android::base::StringReplace(content, "\r\n", "\n", true);
    }
    Lines lines;
    for (size_t start = 0; start < content.size();) {
        const size_t end = std::min(content.find('\n', start), content.size());
        lines.push_back(std::string_view(content).substr(start, end - start));
        start = end + 1;
    }

    Phone phone;
    PropertyMap listed;
    size_t imports = 0;
    for (size_t at = 0; at < lines.size(); ++at) {
        if (IsListed(lines[at])) {
            ReadListed(name, lines, first_number, &at, &listed);
            continue;
        }
        for (const PropertyLine& line : PropertyLines(lines[at])) {
            if (line.kind == PropertyLine::kImport) {
                ++imports;
            } else if (line.kind == PropertyLine::kProperty && !line.name.empty()) {
                phone.properties[std::string(line.name)] = line.value;
            } else {
                Refuse(name, first_number + at,
                       QuotedShort(line.text) + " is neither name=value nor [name]: [value]" +
                               kWanted);
            }
        }
    }
    CheckAreValues(name, listed);
    for (auto& [property, value] : listed) phone.properties[property] = std::move(value);
    if (phone.properties.empty()) Refuse(name, "it has no properties");
    if (imports > 0) {
        phone.notes.push_back(name + ": " + Count(imports, "import is", "imports are") +
                              " not followed");
    }
    return phone;
}

// ---- Bug reports.

constexpr std::string_view kRule = "------ ";
constexpr std::string_view kSection = "------ SYSTEM PROPERTIES";
constexpr std::string_view kOldEnd = "[SYSTEM PROPERTIES: ";  // then the time that it took

size_t LineBeginning(std::string_view content, std::string_view beginning, size_t from) {
    while (true) {
        const size_t at = content.find(beginning, from);
        if (at == std::string_view::npos || at == 0 || content[at - 1] == '\n') return at;
        from = at + 1;
    }
}

Phone ReadBugReport(const std::string& name, std::string_view content) {
    const size_t header = FindSystemProperties(content);
    if (header == std::string_view::npos) {
        Refuse(name, "it looks like a bug report without the section SYSTEM PROPERTIES");
    }
    const size_t start = content.find('\n', header) + 1;
    const size_t end = start == 0 ? start
                                  : std::min(LineBeginning(content, kRule, start),
                                             LineBeginning(content, kOldEnd, start));
    if (start == 0 || end == std::string_view::npos) {
        Refuse(name, "truncated: the bug report's section SYSTEM PROPERTIES has no end");
    }
    const std::string_view section = content.substr(start, end - start);
    if (const size_t failed = LineBeginning(section, "*** ", 0); failed != section.npos) {
        const std::string_view line = section.substr(failed);
        Refuse(name, "the bug report's section SYSTEM PROPERTIES has no properties, only " +
                             QuotedShort(line.substr(0, line.find('\n'))));
    }
    return ReadLines(name, std::string(section),
                     std::count(content.begin(), content.begin() + start, '\n'));
}

// ---- The store: a protocol-buffer message with records (field 1), each a name (1) and a value
// (2).

struct Field {
    uint64_t number = 0;
    std::optional<std::string_view> bytes;  // of a field of bytes
};

// Removes and returns the number at the beginning of `*message`, if there is one.
std::optional<uint64_t> TakeNumber(std::string_view* message) {
    uint64_t number = 0;
    for (int shift = 0; shift < 64 && !message->empty(); shift += 7) {
        const auto byte = static_cast<unsigned char>(message->front());
        message->remove_prefix(1);
        number |= uint64_t{byte & 0x7fu} << shift;
        if (byte < 0x80) return number;
    }
    return std::nullopt;
}

// Removes and returns the field at the beginning of `*message`, if there is one.
std::optional<Field> TakeField(std::string_view* message) {
    enum { kNumber, kEightBytes, kBytes, kFourBytes = 5 };
    const auto tag = TakeNumber(message);
    if (!tag || *tag >> 3 == 0) return std::nullopt;
    std::optional<uint64_t> size;
    switch (*tag & 7) {
        case kNumber:
            return TakeNumber(message) ? std::optional(Field{*tag >> 3, {}}) : std::nullopt;
        case kEightBytes:
            size = 8;
            break;
        case kFourBytes:
            size = 4;
            break;
        case kBytes:
            size = TakeNumber(message);
    }
    if (!size || *size > message->size()) return std::nullopt;
    Field field{*tag >> 3, {}};
    if ((*tag & 7) == kBytes) field.bytes = message->substr(0, *size);
    message->remove_prefix(*size);
    return field;
}

// Adds the record's property. Returns false if the bytes are no record.
bool AddRecord(std::string_view record, PropertyMap* properties) {
    std::string name, value;
    while (!record.empty()) {
        const auto field = TakeField(&record);
        if (!field) return false;
        if (field->number == 1 && field->bytes) name = *field->bytes;
        if (field->number == 2 && field->bytes) value = *field->bytes;
    }
    if (!IsPersistent(name)) return false;
    (*properties)[name] = value;
    return true;
}

// Returns the store's properties, or nothing if the content as a whole is no store.
std::optional<Phone> ReadStore(std::string_view content) {
    Phone phone;
    phone.only_persistent = true;
    while (!content.empty()) {
        const auto field = TakeField(&content);
        if (!field) return std::nullopt;
        const bool is_record = field->number == 1 && field->bytes;
        if (is_record && !AddRecord(*field->bytes, &phone.properties)) return std::nullopt;
    }
    if (phone.properties.empty()) return std::nullopt;
    return phone;
}

// ---- Anything else.

struct Known {
    std::string_view beginning;
    const char* what;
};

constexpr Known kKnown[] = {
        {"\x1f\x8b", "a gzip file"},
        {"\xfd"
         "7zXZ",
         "an xz file"},
        {"\x28\xb5\x2f\xfd", "a zstd file"},
        {"BZh", "a bzip2 file"},
        {"7z\xbc\xaf", "a 7z archive"},
        {"PK", "a zip"},
        {"Rar!", "a RAR archive"},
        {"\x3a\xff\x26\xed", "an Android sparse image"},
        {"CrAU", "an update's payload"},
        {"\x7f"
         "ELF",
         "a program"},
        {"\x89PNG", "a picture"},
        {"\xff\xfe", "text in UTF-16, as PowerShell writes it, instead of UTF-8"},
        {"\xfe\xff", "text in UTF-16 instead of UTF-8"},
        {"<", "XML or HTML"},
        {"{", "JSON"},
};

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
constexpr std::string_view kBugReport = "== dumpstate";

bool IsBinary(std::string_view content) {
    return std::any_of(content.begin(), content.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < ' ' && byte != '\n' && byte != '\r' && byte != '\t';
    });
}

}  // namespace

size_t FindSystemProperties(std::string_view content) {
    return LineBeginning(content, kSection, 0);
}

Phone PhoneOf(const std::string& name, std::string_view content) {
    if (IsBlank(content)) Refuse(name, "it is empty");
    if (StartsWith(content, kByteOrderMark)) content.remove_prefix(kByteOrderMark.size());
    if (FindSystemProperties(content) != std::string_view::npos ||
        LineBeginning(content, kBugReport, 0) != std::string_view::npos) {
        return ReadBugReport(name, content);
    }
    for (const Known& known : kKnown) {
        if (StartsWith(content, known.beginning)) {
            Refuse(name, std::string("it looks like ") + known.what);
        }
    }
    if (content.size() <= limits::kPhoneProperties) {
        if (auto store = ReadStore(content)) return std::move(*store);
    }
    if (IsBinary(content)) {
        // Each record of a store begins with the byte of a line end, and so may a text.
        const bool is_store = content[0] == '\n' && content.find("persist.") != content.npos;
        if (is_store) CheckSize(name, content);
        Refuse(name, is_store ? "it looks like a store of persistent properties, truncated or "
                                "damaged"
                              : "it looks like binary data");
    }
    return ReadLines(name, std::string(content), 0);
}

}  // namespace extprop
