#include "lint/baseline.h"

#include <algorithm>
#include <set>

#include <nlohmann/json.hpp>

#include "input_error.h"
#include "json/text.h"
#include "lint/finding_fields.h"
#include "lint/rules.h"
#include "named_file.h"

namespace extprop {

namespace {

constexpr int kFormat = 1;
constexpr size_t kLargest = 64 << 20;
constexpr char kFormatField[] = "format";
constexpr char kFindingsField[] = "findings";

// An iterator over a text that counts the lines that a parser has read.
class CountedText {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountedText(const char* at, int* line) : at_(at), line_(line) {}
    const char& operator*() const { return *at_; }
    CountedText& operator++() {
        *line_ += *at_ == '\n';
        ++at_;
        return *this;
    }
    bool operator==(const CountedText& other) const { return at_ == other.at_; }
    bool operator!=(const CountedText& other) const { return at_ != other.at_; }

  private:
    const char* at_;
    int* line_;
};

// A parser's handler that finds the lines on which the format and the findings begin.
class Places : public json::json_sax_t {
  public:
    // `line` is the parser's present line. Puts the format's line into `*format` and adds those of
    // the findings to `*findings`.
    Places(const int* line, int* format, std::vector<int>* findings)
            : line_(line), format_(format), findings_(findings) {}

    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool start_object(size_t) override {
        if (depth_++ == 2 && field_ == kFindingsField) findings_->push_back(*line_);
        return true;
    }
    bool key(string_t& name) override {
        if (depth_ != 1) return true;
        field_ = name;
        if (field_ == kFormatField) *format_ = *line_;
        return true;
    }
    bool end_object() override { return End(); }
    bool start_array(size_t) override { return ++depth_ > 0; }
    bool end_array() override { return End(); }
    bool parse_error(size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }

  private:
    bool End() {
        --depth_;
        return true;
    }

    const int* line_;
    int* format_;
    std::vector<int>* findings_;
    int depth_ = 0;
    std::string field_;
};

}  // namespace

std::vector<KnownFinding> Known(const std::vector<Finding>& findings) {
    std::vector<KnownFinding> known;
    for (const Finding& finding : findings) {
        known.push_back({finding.fingerprint, finding.identifier, finding.path, finding.text});
    }
    return known;
}

std::vector<KnownFinding> ReadBaseline(const std::string& path, const std::string& device) {
    const std::string content = ReadInput(path, {device}, kLargest);
    CheckShape(content, path + ": ");
    int line = 1;
    const auto fail = [&](int at, const std::string& what) {
        throw InputError(path + ":" + std::to_string(at) + ": " + what);
    };
    int format_line = 1;
    std::vector<int> lines;  // on which the objects in the document's lists begin
    Places places(&line, &format_line, &lines);
    const char* end = content.data() + content.size();
    if (!json::sax_parse(CountedText(content.data(), &line), CountedText(end, &line), &places)) {
        fail(line, "this is no JSON, so it is no baseline; write one with --write-baseline");
    }
    const json document = json::parse(content);
    if (!document.is_object() || !document.contains(kFormatField)) {
        fail(1, "this is no baseline; write one with --write-baseline");
    }
    if (document[kFormatField] != kFormat) {
        fail(format_line, "this baseline has the format " + document[kFormatField].dump() +
                                  "; this extprop reads the format " + std::to_string(kFormat) +
                                  "; write it anew with --write-baseline");
    }
    std::vector<KnownFinding> baseline;
    const json findings = document.value(kFindingsField, json());
    if (!findings.is_array()) fail(format_line, "there is no list of findings");
    for (const json& finding : findings) {
        // All findings before this one were objects, so the lines match them.
        const int at = baseline.size() < lines.size() ? lines[baseline.size()] : line;
        try {
            baseline.push_back(FromJson<KnownFinding>(finding));
        } catch (const json::exception&) {
            fail(at,
                 "this is no finding, which has the texts fingerprint, identifier, path and text");
        }
        baseline.back().line = at;
    }
    return baseline;
}

std::string BaselineText(const std::vector<KnownFinding>& known) {
    std::string text = "{\"" + std::string(kFormatField) + "\": " + std::to_string(kFormat) +
                       ", \"" + kFindingsField + "\": [";
    const char* separator = "\n";
    for (const KnownFinding& each : known) {
        text += separator + JsonLine(Write(each));
        separator = ",\n";
    }
    return text + "\n]}\n";
}

std::vector<KnownFinding> TakeKnown(const std::vector<KnownFinding>& baseline,
                                    std::vector<Finding>* findings, LintReport* report) {
    std::set<std::string> fingerprints, found;
    for (const KnownFinding& known : baseline) fingerprints.insert(known.fingerprint);
    bool is_all_checked = true;
    for (const Finding& finding : *findings) {
        found.insert(finding.fingerprint);
        is_all_checked &= finding.identifier != kNotChecked.identifier;
    }
    const auto known = std::remove_if(
            findings->begin(), findings->end(),
            [&](const Finding& finding) { return fingerprints.count(finding.fingerprint) != 0; });
    report->known = findings->end() - known;
    findings->erase(known, findings->end());
    std::vector<KnownFinding> rest;
    for (const KnownFinding& each : baseline) {
        const bool is_fixed = is_all_checked && found.count(each.fingerprint) == 0;
        (is_fixed ? report->fixed : rest).push_back(each);
    }
    return rest;
}

}  // namespace extprop
