#include "output/compare_text.h"

#include <algorithm>

#include "output/text.h"
#include "printable.h"

namespace extprop {

namespace {

// Returns text such as "1,377".
std::string WithCommas(size_t number) {
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3;) digits.insert(at -= 3, ",");
    return digits;
}

// Returns a line's fate, and what overrode it.
std::string PhoneLineFate(const PhoneLine& line, const ComparedProperty& property) {
    if (line.is_system) return "  [not loaded; the system's own, which may load it by itself]";
    if (line.origin.fate == Fate::kOverridden && property.origin) {
        return "  [overridden by " + OriginText(*property.origin) + "]";
    }
    return FateText(line.origin);
}

void AddTitle(const char* title, Text* text) {
    *text << "\n== ";
    text->Fixed(title) << "\n";
}

void AddCompared(const char* title, const std::vector<ComparedProperty>& properties, Text* text) {
    if (!properties.empty()) AddTitle(title, text);
    for (const ComparedProperty& property : properties) {
        *text << "  " << property.name << "\n";
        if (property.device) {
            *text << "    image  " << *property.device;
            if (property.origin) *text << "  (" << OriginText(*property.origin) << ")";
            *text << "\n";
        }
        if (property.phone) *text << "    phone  " << *property.phone << "\n";
        std::vector<std::string> places;
        size_t width = 0;
        for (const PhoneLine& line : property.phone_lines) {
            places.push_back(Printable(OriginText(line.origin)));
            width = std::max(width, places.back().size());
        }
        auto place = places.begin();
        for (const PhoneLine& line : property.phone_lines) {
            place->resize(width, ' ');
            *text << "      " << *place++;
            if (!property.device) *text << "  " << line.origin.value;
            *text << PhoneLineFate(line, property) << "\n";
        }
    }
}

void AddValues(const char* title, const PropertyMap& properties, Text* text) {
    if (!properties.empty()) AddTitle(title, text);
    for (const auto& [name, value] : properties) *text << "  " << name << "=" << value << "\n";
}

void AddOthers(const std::vector<OtherProperty>& others, Text* text) {
    if (!others.empty()) AddTitle("not this library's", text);
    for (const OtherProperty& other : others) {
        *text << "  " << other.name << "=" << other.value;
        if (other.line) {
            *text << "  (" << OriginText(*other.line);
            if (other.line->value != other.value) *text << " has " << other.line->value;
            *text << ")";
        }
        *text << "\n";
    }
}

}  // namespace

std::string WarningText(const MissingValue& missing) {
    return MissingText(missing) + ", which the phone has; the phone probably has another image";
}

std::string ComparisonText(const Comparison& comparison, bool verbose) {
    Text text;
    for (const MissingValue& missing : comparison.missing) text << WarningText(missing) << "\n";
    if (!comparison.failure) {
        text << WithCommas(comparison.differs.size())
             << (comparison.differs.size() == 1 ? " differs, " : " differ, ")
             << WithCommas(comparison.only_device.size()) << " only in the image, "
             << WithCommas(comparison.only_phone.size()) << " only on the phone, "
             << WithCommas(comparison.same.size()) << " the same, "
             << WithCommas(comparison.others.size()) << " not this library's\n";
    }
    if (!comparison.words.empty()) {
        text << "the device is the phone's variant with " << ShellWords(comparison.words) << "\n";
    }
    if (!comparison.given.empty()) {
        text << "given to the boot, and so not counted as the same: "
             << Count(comparison.given.size(), "property", "properties") << "\n";
    }
    AddCompared("differ", comparison.differs, &text);
    AddCompared("only in the image", comparison.only_device, &text);
    AddCompared("only on the phone", comparison.only_phone, &text);
    if (!verbose) return text.string();
    AddValues("given", comparison.given, &text);
    AddValues("the same", comparison.same, &text);
    AddOthers(comparison.others, &text);
    return text.string();
}

}  // namespace extprop
