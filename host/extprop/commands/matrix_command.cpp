#include <algorithm>
#include <deque>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <set>

#include <re2/re2.h>

#include "commands/command.h"
#include "commands/matrix_options.h"
#include "commands/options.h"
#include "coverage/coverage.h"
#include "explain/explain.h"
#include "input_error.h"
#include "matrix/lines.h"
#include "named_file.h"
#include "nearest.h"
#include "output/documents.h"
#include "output/markdown.h"
#include "output/matrix_text.h"
#include "output/page.h"
#include "output/standard_error.h"
#include "printable.h"

namespace extprop {

namespace {

// A request for only the variants that have this value of a property.
struct WantedValue {
    std::string pattern;
    std::string value;
};

struct MatrixArguments {
    std::vector<std::string> words;  // DEVICE, DEVICE, NAME and STEP
    std::vector<std::string> devices;
    std::vector<std::string> names;  // patterns, without the values given with them
    std::vector<WantedValue> values;
    std::vector<std::string> any_values;  // of --value
    BootArguments boot;
    ChoiceArguments choice;
    std::string shard;
    std::vector<std::string> merged;
    std::string page;
    std::string markdown;
    bool list = false;
    bool json = false;
};

// Adds NAME or NAME=VALUE.
void AddName(const std::string& word, MatrixArguments* arguments) {
    const size_t equals = word.find('=');
    arguments->names.push_back(word.substr(0, equals));
    if (equals == std::string::npos) return;
    arguments->values.push_back({word.substr(0, equals), word.substr(equals + 1)});
}

// Adds the values of --value for each name, or for any property if there are no names.
void FinishNames(MatrixArguments* arguments) {
    if (arguments->any_values.empty()) return;
    if (arguments->names.empty()) arguments->names = {kEverything};
    for (const std::string& name : arguments->names) {
        for (const std::string& value : arguments->any_values) {
            arguments->values.push_back({name, value});
        }
    }
}

// Returns whether the value is wanted: one of those wanted for the property, or any if there are
// none.
bool IsWanted(const std::string& name, const std::optional<std::string>& value,
              const std::vector<WantedValue>& wanted) {
    bool is_free = true;
    for (const WantedValue& each : wanted) {
        if (!Matches(name, {each.pattern})) continue;
        if (value == each.value) return true;
        is_free = false;
    }
    return is_free;
}

// Removes the values that are not wanted, and properties without any left.
void KeepMatchingValues(const std::vector<WantedValue>& wanted, Summary* summary) {
    auto& properties = summary->properties;
    for (SummaryProperty& property : properties) {
        auto& values = property.values;
        values.erase(std::remove_if(values.begin(), values.end(),
                                    [&](const SummaryValue& value) {
                                        return !IsWanted(property.name, value.value, wanted);
                                    }),
                     values.end());
    }
    properties.erase(
            std::remove_if(properties.begin(), properties.end(),
                           [](const SummaryProperty& each) { return each.values.empty(); }),
            properties.end());
}

void DivideArguments(MatrixArguments* arguments) {
    for (const std::string& word : arguments->words) {
        if (IsStepWord(word)) {
            arguments->boot.steps.push_back(word);
        } else if (arguments->devices.empty() || word.find('/') != std::string::npos ||
                   (arguments->devices.size() == 1 && arguments->names.empty() &&
                    std::filesystem::exists(word))) {
            arguments->devices.push_back(word);
        } else {
            AddName(word, arguments);
        }
    }
    FinishNames(arguments);
    if (arguments->devices.size() > 2) throw InputError("matrix: more than two devices are given");
}

// Parses text such as "2/3" and keeps only that part of the variants.
std::optional<Shard> KeepShard(const std::string& words, std::vector<Variant>* variants) {
    if (words.empty()) return std::nullopt;
    Shard shard;
    if (!re2::RE2::FullMatch(words, "([0-9]+)/([0-9]+)", &shard.number, &shard.count) ||
        shard.number < 1 || shard.number > shard.count) {
        throw InputError("--shard '" + words + "': expected I/N, with I from 1 to N");
    }
    std::vector<Variant> kept;
    for (size_t i = shard.number - 1; i < variants->size(); i += shard.count) {
        kept.push_back((*variants)[i]);
    }
    *variants = std::move(kept);
    return shard;
}

// Reports the names and values that no variant has, and returns whether there are any. `all` is the
// summary of all properties with all values.
bool ReportUnknown(const MatrixArguments& arguments, const Summary& all) {
    std::vector<std::string> names;
    std::map<std::string, std::string> name_of;  // by value
    for (const SummaryProperty& property : all.properties) {
        names.push_back(property.name);
        for (const SummaryValue& value : property.values) {
            if (value.value) name_of.emplace(*value.value, property.name);
        }
    }
    const std::vector<std::string> unknown = Unmatched(arguments.names, names);
    for (const std::string& pattern : unknown) {
        std::string text = "no variant has a property " + Quoted(pattern);
        const std::string hint = HintOf(pattern, names, name_of);
        if (hint.empty()) text += ", and there is no such file or directory";
        PrintMessage(text + hint);
    }
    bool has_unknown = !unknown.empty();
    std::set<std::string> reported;
    for (const WantedValue& wanted : arguments.values) {
        std::set<std::string> values;
        bool is_known = false;
        for (const SummaryProperty& property : all.properties) {
            for (const SummaryValue& value : property.values) {
                if (!Matches(property.name, {wanted.pattern}) || !value.value) continue;
                values.insert(*value.value);
                is_known |= value.value == wanted.value;
            }
        }
        if (is_known || values.empty() || !reported.insert(wanted.value).second) continue;
        constexpr size_t kNear = 2;
        std::string text = "no variant has the value " + Quoted(wanted.value);
        if (wanted.pattern != kEverything) text += " of " + wanted.pattern;
        PrintMessage(text + SuggestionOf(wanted.value, {values.begin(), values.end()}, kNear));
        has_unknown = true;
    }
    return has_unknown;
}

// `all` returns the summary of all properties.
ExitStatus Print(const Summary& summary, const MatrixArguments& arguments,
                 const std::function<Summary()>& all) {
    if (!arguments.page.empty()) {
        std::vector<std::string> inputs = arguments.merged;
        if (!arguments.devices.empty()) inputs = InputsOf(arguments.devices[0], arguments.boot);
        WriteOutput(arguments.page, inputs, SummaryPage(summary));
    }
    if (arguments.json) {
        std::cout << SummaryLine(summary);
    } else {
        std::cout << SummaryText(summary, !arguments.names.empty());
    }
    for (const SummaryVariant& variant : summary.variants) {
        if (variant.failure) return kLibraryFailed;
    }
    std::vector<std::string> names;
    for (const SummaryProperty& property : summary.properties) names.push_back(property.name);
    // Summarizing all properties takes long; nothing can be unknown where every name is found.
    if (arguments.values.empty() && Unmatched(arguments.names, names).empty()) return kDone;
    return ReportUnknown(arguments, all()) ? kBadInput : kDone;
}

ExitStatus Merge(MatrixArguments arguments) {
    LineMerger merger;
    for (const std::string& file : arguments.merged) merger.Read(file);
    for (const std::string& word : arguments.words) AddName(word, &arguments);
    FinishNames(&arguments);
    Summary summary = merger.Summarize(arguments.names);
    KeepMatchingValues(arguments.values, &summary);
    return Print(summary, arguments, [&] { return merger.Summarize({kEverything}); });
}

ExitStatus Compare(MatrixArguments arguments) {
    if (!arguments.page.empty()) throw InputError("matrix: --html goes with one device");
    // A value may be chosen if one of the devices has it.
    std::deque<Matrix> matrices;
    VariantSpace known;
    for (int i = 0; i < 2; ++i) {
        arguments.boot.other_device = arguments.devices[1 - i];
        matrices.emplace_back(OptionsOf(arguments.devices[i], arguments.boot),
                              arguments.choice.jobs);
        PrintNotes(matrices.back().base().notes);
        for (int axis = 0; axis < kAxisCount; ++axis) {
            const auto& values = matrices.back().space().values[axis];
            known.values[axis].insert(values.begin(), values.end());
        }
    }
    Summary summaries[2];
    const auto& names = arguments.names;
    for (int i = 0; i < 2; ++i) {
        const auto variants = Chosen(matrices[i].space(), arguments.choice, known);
        summaries[i] =
                Collect(&matrices[i], variants)
                        .Summarize(names.empty() ? std::vector<std::string>{kEverything} : names);
        summaries[i].device = arguments.devices[i];
    }
    CheckSomeAreLeft(summaries[0].variants.size() + summaries[1].variants.size(), arguments.choice);
    MatrixDifference difference = extprop::Compare(summaries[0], summaries[1]);
    auto& changes = difference.changes;
    changes.erase(std::remove_if(changes.begin(), changes.end(),
                                 [&](const MatrixChange& change) {
                                     return !IsWanted(change.name, change.a, arguments.values) &&
                                            !IsWanted(change.name, change.b, arguments.values);
                                 }),
                  changes.end());
    for (const Matrix& matrix : matrices) PrintNotes(matrix.root().Notes());
    if (!arguments.markdown.empty()) {
        WriteOutput(arguments.markdown, InputsOf(arguments.devices[1], arguments.boot),
                    MatrixMarkdown(difference));
    }
    if (arguments.json) {
        std::cout << DocumentText(difference);
    } else {
        std::cout << MatrixDifferenceText(difference);
    }
    if (!difference.failed.empty()) return kLibraryFailed;
    return difference.empty() ? kDone : kFound;
}

ExitStatus Show(const MatrixArguments& arguments) {
    Matrix matrix(OptionsOf(arguments.devices[0], arguments.boot), arguments.choice.jobs);
    PrintNotes(matrix.base().notes);
    std::vector<Variant> variants = Chosen(matrix.space(), arguments.choice, matrix.space());
    CheckSomeAreLeft(variants.size(), arguments.choice);
    const std::optional<Shard> shard = KeepShard(arguments.shard, &variants);
    // Found before the variants boot, since each boot is a copy of this process, which grows with
    // their outcomes. Of several parts the first one finds it for all.
    std::vector<DeadPlace> dead;
    if (arguments.names.empty() && (!shard || shard->number == 1)) {
        if (auto found = matrix.FindDeadPlaces()) {
            dead = std::move(*found);
        } else {
            PrintMessage(std::string("what no variant and no step reads is unknown: ") + kStopped);
        }
    }
    const LineWriter writer(matrix.base().properties);
    std::string line;
    const Collector collector =
            Collect(&matrix, variants, [&](const Variant& variant, const Outcome& outcome) {
                if (!arguments.json) return;
                writer.Write(variant, outcome, &line);
                std::cout << line << std::flush;
            });
    Summary summary = collector.Summarize(arguments.names);
    KeepMatchingValues(arguments.values, &summary);
    summary.device = matrix.device();
    summary.shard = shard;
    if (shard && arguments.names.empty()) summary.same = collector.SameEverywhere(summary);
    FindOrigins(&matrix, &summary);
    summary.dead = std::move(dead);
    PrintNotes(matrix.root().Notes());
    return Print(summary, arguments, [&] { return collector.Summarize({kEverything}); });
}

ExitStatus List(const MatrixArguments& arguments) {
    const BootOptions options = OptionsOf(arguments.devices[0], arguments.boot);
    const PreparedDevice device(options);
    const VariantSpace space = FindVariantSpace(device.root(), options.time_limit);
    std::vector<Variant> variants = Chosen(space, arguments.choice, space);
    CheckSomeAreLeft(variants.size(), arguments.choice);
    KeepShard(arguments.shard, &variants);
    if (!arguments.json) {
        std::cout << SpaceText(space, variants.size());
        return kDone;
    }
    PrintJson(space, variants, std::cout);
    return kDone;
}

}  // namespace

ExitStatus RunMatrix(const Command& command, const std::vector<std::string>& words) {
    MatrixArguments arguments;
    CommandLine line = LineOf(command);
    line.AddArguments(
            "DEVICE", &arguments.words,
            "One device, a directory or file, or two to compare; names of properties, or patterns "
            "such as 'ro.product.*' (default: those that are not the same everywhere); "
            "and steps, listed below");
    AddBootOptions(&line, &arguments.boot);
    AddChoiceOptions(&line, &arguments.choice);
    line.AddOption("--value", "VALUE", &arguments.any_values,
                   "Print which variants have this value, of the names that are given or of any "
                   "property; NAME=VALUE asks for one NAME");
    line.AddFlag(
            "--list", &arguments.list,
            "Print the values of the axes and how many variants would be booted, and boot nothing");
    line.AddOption("--shard", "I/N", &arguments.shard,
                   "Boot the I-th of N parts of the variants only");
    line.AddGreedyOption("--merge", "FILE...", &arguments.merged,
                         "Print the summary of the lines that --json printed into these files, in "
                         "any order, and boot nothing; names of properties go before it");
    line.Exclude("--merge", {"--list", "--shard"});
    line.AddFlag("--json", &arguments.json,
                 "Print a line of JSON for each variant once it has booted, and one for all");
    line.AddOption("--html", "FILE", &arguments.page, "Also write a page for the browser to FILE");
    line.Exclude("--html", {"--list"});
    line.AddOption(
            "--markdown", "FILE", &arguments.markdown,
            "With two devices: also write a summary for the page of a reviewed change to FILE");
    line.Exclude("--markdown", {"--list", "--merge", "--shard"});
    if (!line.Parse(words)) return kDone;

    if (!arguments.merged.empty()) return Merge(arguments);
    DivideArguments(&arguments);
    if (arguments.devices.empty()) line.FailWithout("DEVICE");
    const bool compares = arguments.devices.size() == 2;
    if (arguments.list && compares) throw InputError("matrix: --list goes with one device");
    if (!arguments.shard.empty() && compares) {
        throw InputError("matrix: --shard goes with one device");
    }
    if (!arguments.markdown.empty() && !compares) {
        throw InputError("matrix: --markdown goes with two devices");
    }
    if (arguments.list) return List(arguments);
    return compares ? Compare(arguments) : Show(arguments);
}

}  // namespace extprop
