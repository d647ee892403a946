#include "matrix/expectations.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <android-base/strings.h>
#include <re2/re2.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

#include "boot/steps.h"
#include "budget.h"
#include "device/legal.h"
#include "input_error.h"
#include "named_file.h"
#include "printable.h"
#include "product.h"

namespace extprop {

namespace {

// The keys of the YAML file.
constexpr char kSteps[] = "steps";
constexpr char kExpectations[] = "expectations";
constexpr char kName[] = "name";
constexpr char kVariants[] = "variants";
constexpr char kAll[] = "all";
constexpr char kComplete[] = "complete";
constexpr char kProperties[] = "properties";
constexpr char kEquals[] = "equals";
constexpr char kMatches[] = "matches";
constexpr char kSet[] = "set";
constexpr char kFrom[] = "from";

// The comment at the beginning of a recorded file.
constexpr char kRecorded[] =
        "What the device did when this was recorded; check it with extprop check.";

// More than the limits allow.
struct TooMuch : std::runtime_error {
    TooMuch(const YAML::Mark& where, size_t limit, const char* what)
            : std::runtime_error("there are more than " + std::to_string(limit) + " " + what +
                                 " up to here, which is the limit"),
              mark(where) {}
    YAML::Mark mark;
};

// Returns an upper limit of the number of nodes: each node has one of these characters beside it.
size_t NodesAtMost(std::string_view text) {
    size_t nodes = 1;
    for (size_t at = 0; at < text.size(); ++at) {
        const bool begins_block = (text[at] == '-' || text[at] == '?') && at + 1 < text.size() &&
                                  (text[at + 1] == ' ' || text[at + 1] == '\t');
        if (begins_block || std::string_view(",:[{\n\r").find(text[at]) != text.npos) ++nodes;
    }
    return nodes;
}

// Finds where a second document begins. At a character that belongs to no document the parser
// begins new ones without end, so the caller must stop at the second.
class SecondDocument : public YAML::EventHandler {
  public:
    std::optional<YAML::Mark> mark;

    void OnDocumentStart(const YAML::Mark& start) override {
        if (++documents_ == 2) mark = start;
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark&, YAML::anchor_t) override {}
    void OnAlias(const YAML::Mark&, YAML::anchor_t) override {}
    void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t,
                  const std::string&) override {}
    void OnSequenceStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                         YAML::EmitterStyle::value) override {}
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                    YAML::EmitterStyle::value) override {}
    void OnMapEnd() override {}

  private:
    int documents_ = 0;
};

// Returns the first tab in the indentation of the lines up to `last`, counted from 0.
std::optional<YAML::Mark> FindTab(const std::string& content, int last) {
    YAML::Mark mark;
    for (const std::string& line : android::base::Split(content, "\n")) {
        if (mark.line > last) break;
        const size_t start = line.find_first_not_of(' ');
        mark.column = static_cast<int>(start);
        if (start != std::string::npos && line[start] == '\t') return mark;
        ++mark.line;
    }
    return std::nullopt;
}

// Reads one file and collects the errors, so that all are reported together.
class Parser {
  public:
    explicit Parser(const std::string& path) { expectations_.file = path; }

    Expectations Parse(const std::string& content) {
        // A node takes much more memory than its text.
        if (NodesAtMost(content) > limits::kYamlNodes) {
            throw InputError(expectations_.file + ": there are more than " +
                             std::to_string(limits::kYamlNodes) + " nodes, which is the limit");
        }
        try {
            std::istringstream text(content);
            YAML::Parser parser(text);
            SecondDocument second;
            while (!second.mark && parser.HandleNextDocument(second)) continue;
            ReadDocument(YAML::Load(content));
            if (second.mark) {
                Error(*second.mark, "a second document begins here; a file holds one");
            }
        } catch (const YAML::ParserException& error) {
            const std::optional<YAML::Mark> tab = FindTab(content, error.mark.line);
            Error(tab.value_or(error.mark),
                  tab ? "a tab; YAML is indented with blanks only" : error.msg);
        } catch (const TooMuch& error) {
            Error(error.mark, error.what());
        }
        if (!errors_.empty()) throw InputError(errors_);
        return std::move(expectations_);
    }

  private:
    void Error(const YAML::Mark& mark, const std::string& text) {
        if (errors_.size() == limits::kErrors) return;
        // A missing node has no line and column: -1.
        errors_.push_back(expectations_.file + ":" + std::to_string(std::max(mark.line, 0) + 1) +
                          ":" + std::to_string(std::max(mark.column, 0) + 1) + ": " + text);
    }

    void CountRead(const YAML::Mark& mark) {
        if (++read_ > limits::kYamlNodes) throw TooMuch(mark, limits::kYamlNodes, "nodes");
    }

    // Calls `read` for each known key of the mapping, and reports the others as errors.
    template <typename Read>
    void ForEachKey(const YAML::Node& node, const char* what, const std::vector<const char*>& known,
                    const Read& read) {
        if (!node.IsMap()) {
            Error(node.Mark(), std::string("expected ") + what);
            return;
        }
        std::set<std::string> seen;
        for (const auto& entry : node) {
            CountRead(node.Mark());
            if (!entry.first.IsScalar()) {
                Error(entry.first.Mark(), "expected a word before the colon");
                continue;
            }
            const std::string& key = entry.first.Scalar();
            if (key == "<<") {
                Error(entry.first.Mark(), "merging lines with << is not supported; write them out");
                continue;
            }
            if (!seen.insert(key).second) {
                Error(entry.first.Mark(), "'" + key + "' is given twice");
                continue;
            }
            const bool is_known =
                    known.empty() || std::any_of(known.begin(), known.end(),
                                                 [&](const char* word) { return key == word; });
            if (is_known) {
                read(key, entry.first, entry.second);
                continue;
            }
            std::string words;
            for (const char* word : known) words += std::string(words.empty() ? "" : ", ") + word;
            Error(entry.first.Mark(), "unknown word '" + key + "'; expected " + words);
        }
    }

    bool ReadText(const YAML::Node& node, const char* what, std::string* text) {
        if (!node.IsScalar()) {
            Error(node.Mark(), std::string("expected ") + what);
            return false;
        }
        *text = node.Scalar();
        return true;
    }

    bool ReadFlag(const YAML::Node& node, bool* flag) {
        std::string text;
        if (node.IsScalar()) text = node.Scalar();
        *flag = text == "true";
        if (text == "true" || text == "false") return true;
        Error(node.Mark(), "expected true or false");
        return false;
    }

    // Reads a text or a list of texts.
    std::vector<std::string> ReadTexts(const YAML::Node& node, const char* what) {
        std::vector<std::string> texts;
        if (!node.IsSequence()) {
            std::string text;
            if (ReadText(node, what, &text)) texts.push_back(text);
            return texts;
        }
        for (const auto& element : node) {
            CountRead(node.Mark());
            std::string text;
            if (ReadText(element, what, &text)) texts.push_back(text);
        }
        if (node.size() == 0) Error(node.Mark(), "this list is empty");
        return texts;
    }

    void ReadDocument(const YAML::Node& document) {
        ForEachKey(document, "a mapping with 'expectations'", {kSteps, kExpectations},
                   [&](const std::string& key, const YAML::Node&, const YAML::Node& value) {
                       key == kSteps ? ReadSteps(value) : ReadList(value);
                   });
        if (document.IsMap() && !document[kExpectations]) {
            Error(document.Mark(), "'expectations' is missing");
        }
    }

    void ReadSteps(const YAML::Node& node) {
        expectations_.steps = ReadTexts(node, "a step");
        for (const std::string& step : expectations_.steps) {
            try {
                CheckStep(ParseStep(step));
            } catch (const InputError& error) {
                Error(node.Mark(), error.what());
            }
        }
    }

    void ReadList(const YAML::Node& node) {
        if (!node.IsSequence() || node.size() == 0) {
            Error(node.Mark(), "expected a list of expectations");
            return;
        }
        for (const auto& element : node) {
            CountRead(node.Mark());
            ReadExpectation(element);
        }
    }

    void ReadExpectation(const YAML::Node& node) {
        Expectation expectation;
        expectation.line = node.Mark().line + 1;
        ForEachKey(node, "an expectation: a mapping with 'properties'",
                   {kName, kVariants, kComplete, kProperties},
                   [&](const std::string& key, const YAML::Node&, const YAML::Node& value) {
                       if (key == kName) ReadText(value, "a name", &expectation.name);
                       if (key == kVariants) ReadVariants(value, &expectation);
                       if (key == kComplete) ReadFlag(value, &expectation.complete);
                       if (key == kProperties) ReadProperties(value, &expectation);
                   });
        if (node.IsMap() && !node[kProperties]) Error(node.Mark(), "'properties' is missing");
        const bool is_empty = expectation.properties.empty() && !expectation.complete;
        if (is_empty && errors_.empty()) Error(node.Mark(), "nothing is expected here");
        expectations_.expectations.push_back(std::move(expectation));
    }

    void ReadVariants(const YAML::Node& node, Expectation* expectation) {
        if (node.IsScalar() && node.Scalar() == kAll) return;
        expectation->all_variants = false;
        if (!node.IsSequence()) {
            ReadSelection(node, expectation);
            return;
        }
        if (node.size() == 0) Error(node.Mark(), "this list is empty");
        for (const auto& element : node) {
            CountRead(node.Mark());
            ReadSelection(element, expectation);
        }
    }

    void ReadSelection(const YAML::Node& node, Expectation* expectation) {
        VariantSelection selection;
        ForEachKey(node, "all, or a mapping from axes to values", {},
                   [&](const std::string& key, const YAML::Node& name, const YAML::Node& value) {
                       try {
                           selection.values[AxisNamed(key)] = ReadTexts(value, "a value");
                       } catch (const InputError& error) {
                           Error(name.Mark(), error.what());
                       }
                   });
        expectation->selections.push_back(std::move(selection));
    }

    void ReadProperties(const YAML::Node& node, Expectation* expectation) {
        ForEachKey(node, "a mapping from properties to what is expected of them", {},
                   [&](const std::string& name, const YAML::Node& key, const YAML::Node& value) {
                       if (const auto reason = WhyRefused(name, "")) {
                           Error(key.Mark(), RefusedPropertyText(name, *reason));
                       } else if (value.IsMap()) {
                           ReadConditions(name, value, expectation);
                       } else if (value.IsScalar()) {
                           expectation->properties.push_back({name,
                                                              {Expected::kEquals, value.Scalar(),
                                                               nullptr, key.Mark().line + 1}});
                       } else {
                           Error(value.IsNull() ? key.Mark() : value.Mark(),
                                 "expected a value, in quotes if it is empty, or a mapping with "
                                 "equals, matches, set or from");
                       }
                   });
    }

    void ReadConditions(const std::string& name, const YAML::Node& node, Expectation* expectation) {
        if (node.size() == 0) Error(node.Mark(), "nothing is expected here");
        bool is_unset = false;
        ForEachKey(node, "", {kEquals, kMatches, kSet, kFrom},
                   [&](const std::string& key, const YAML::Node&, const YAML::Node& value) {
                       Expected expected;
                       expected.line = value.Mark().line + 1;
                       if (key == kSet) {
                           bool set = false;
                           if (!ReadFlag(value, &set)) return;
                           expected.kind = set ? Expected::kSet : Expected::kUnset;
                           is_unset = !set;
                       } else {
                           if (!ReadText(value, "a text", &expected.text)) return;
                           expected.kind = key == kEquals    ? Expected::kEquals
                                           : key == kMatches ? Expected::kMatches
                                                             : Expected::kFrom;
                       }
                       if (expected.kind == Expected::kMatches) ReadPattern(value, &expected);
                       if (expected.kind == Expected::kFrom && expected.text[0] != '/') {
                           Error(value.Mark(), "expected an absolute path of the device");
                       }
                       expectation->properties.emplace_back(name, std::move(expected));
                   });
        if (is_unset && node.size() > 1) {
            Error(node.Mark(), "set: false takes no other condition");
        }
    }

    void ReadPattern(const YAML::Node& node, Expected* expected) {
        auto& pattern = patterns_[expected->text];
        if (!pattern) {
            if (patterns_.size() > limits::kPatterns) {
                throw TooMuch(node.Mark(), limits::kPatterns, "regular expressions");
            }
            re2::RE2::Options options(re2::RE2::Quiet);
            options.set_max_mem(limits::kPattern);
            pattern = std::make_shared<re2::RE2>(expected->text, options);
        }
        expected->pattern = pattern;
        if (pattern->ok()) return;
        Error(node.Mark(),
              "'" + expected->text + "' is no regular expression: " + expected->pattern->error());
    }

    Expectations expectations_;
    std::vector<std::string> errors_;
    size_t read_ = 0;  // nodes, counted again for each alias
    std::map<std::string, std::shared_ptr<const re2::RE2>> patterns_;
};

}  // namespace

Expectations ReadExpectations(const std::string& path, const std::string& device) {
    return ParseExpectations(ReadInput(path, {device}, limits::kText), path);
}

Expectations ParseExpectations(const std::string& content, const std::string& path) {
    return Parser(path).Parse(content);
}

bool WasRecorded(const std::string& content) {
    return content.find(std::string("# ") + kRecorded + "\n") != std::string::npos;
}

std::string RecordedExpectations(const Summary& summary, const std::vector<std::string>& steps) {
    YAML::Emitter out;
    // The emitter itself writes U+FFFD for some characters.
    const auto write = [&](const std::string& text) { out.WriteIntegralType(YamlText(text)); };
    const auto value = [&](const std::optional<std::string>& text) {
        if (text) {
            write(*text);
        } else {
            out << YAML::Flow << YAML::BeginMap << YAML::Key << kSet << YAML::Value << false
                << YAML::EndMap;
        }
    };
    std::vector<const SummaryProperty*> varying;
    // Editors find the schema by this comment.
    out << YAML::Comment(std::string("yaml-language-server: $schema=") + kDocs +
                         "/schema/expectations.json")
        << YAML::Newline;
    out << YAML::Comment(kRecorded);
    out << YAML::BeginMap;
    // Default steps are not written, so that steps can be added on the command line.
    if (!steps.empty()) {
        out << YAML::Key << kSteps << YAML::Value << YAML::Flow << YAML::BeginSeq;
        for (const std::string& step : steps) write(step);
        out << YAML::EndSeq;
    }
    out << YAML::Key << kExpectations << YAML::Value << YAML::BeginSeq;
    out << YAML::BeginMap << YAML::Key << kName << YAML::Value << "the same in every variant";
    out << YAML::Key << kVariants << YAML::Value << kAll;
    out << YAML::Key << kComplete << YAML::Value << true;
    out << YAML::Key << kProperties << YAML::Value << YAML::BeginMap;
    for (const SummaryProperty& property : summary.properties) {
        if (property.values.size() > 1) {
            varying.push_back(&property);
            continue;
        }
        out << YAML::Key << YAML::DoubleQuoted << property.name << YAML::Value;
        value(property.values.front().value);
    }
    out << YAML::EndMap << YAML::EndMap;

    std::vector<std::vector<std::optional<std::string>>> values;
    for (const SummaryProperty* property : varying) {
        values.push_back(ValuesByVariant(*property, summary.variants.size()));
    }
    for (size_t i = 0; i < summary.variants.size() && !varying.empty(); ++i) {
        out << YAML::BeginMap << YAML::Key << kVariants << YAML::Value << YAML::Flow
            << YAML::BeginMap;
        for (int axis = 0; axis < kAxisCount; ++axis) {
            const auto& chosen = summary.variants[i].variant[axis];
            if (chosen) {
                out << YAML::Key << kAxes[axis].name << YAML::Value;
                write(*chosen);
            }
        }
        out << YAML::EndMap;
        out << YAML::Key << kProperties << YAML::Value << YAML::BeginMap;
        for (size_t j = 0; j < varying.size(); ++j) {
            out << YAML::Key << YAML::DoubleQuoted << varying[j]->name << YAML::Value;
            value(values[j][i]);
        }
        out << YAML::EndMap << YAML::EndMap;
    }
    out << YAML::EndSeq << YAML::EndMap << YAML::Newline;
    return out.c_str();
}

std::string ExpectedText(const Expected& expected) {
    switch (expected.kind) {
        case Expected::kEquals:
            return "'" + expected.text + "'";
        case Expected::kMatches:
            return "a value that matches '" + expected.text + "'";
        case Expected::kSet:
            return "any value";
        case Expected::kUnset:
            return "none";
        case Expected::kFrom:
            return "a value from " + expected.text;
    }
    return "";
}

}  // namespace extprop
