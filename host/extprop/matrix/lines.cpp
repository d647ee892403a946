#include "matrix/lines.h"

#include <errno.h>
#include <string.h>

#include <fstream>
#include <new>
#include <stdexcept>
#include <streambuf>

#include <nlohmann/json.hpp>

#include "budget.h"
#include "input_error.h"
#include "json/text.h"
#include "matrix/summary_fields.h"

namespace extprop {

namespace {

constexpr char kSummary[] = "summary";

// What the document of an origin takes in memory besides its texts, roughly, in bytes.
constexpr size_t kOriginSize = 2048;

// Reads a line. Returns false at the end of the file.
bool ReadLine(std::streambuf* in, std::string* line) {
    constexpr int kEnd = std::streambuf::traits_type::eof();
    line->clear();
    for (int c; (c = in->sbumpc()) != kEnd;) {
        if (c == '\n') return true;
        if (line->size() == limits::kLine) {
            throw InputError("this line has more than " + std::to_string(limits::kLine) +
                             " bytes, which is the limit");
        }
        line->push_back(static_cast<char>(c));
    }
    return !line->empty();
}

std::string PropertyText(const std::string& name, const std::string& value) {
    return JsonLine(name) + ":" + JsonLine(value);
}

}  // namespace

LineWriter::LineWriter(const PropertyMap& base) {
    for (const auto& [name, value] : base) {
        base_.emplace_back(name, PropertyText(name, value));
        size_ += base_.back().second.size() + 1;
    }
}

void LineWriter::Write(const Variant& variant, const Outcome& outcome, std::string* text) const {
    // What a line without properties has in their place; they are inserted between its braces.
    constexpr std::string_view kNone = "\"properties\":{}";
    std::string& line = *text;
    line = JsonLine(extprop::Write(VariantLine{variant, {}, outcome.failure}));
    const size_t begin = line.find(kNone) + kNone.size() - 1;
    const std::string rest = line.substr(begin);
    line.erase(begin);
    line.reserve(line.size() + size_ + rest.size());

    const auto add = [&](const std::string& text) {
        if (line.size() > begin) line += ',';
        line += text;
    };
    auto changed = outcome.changed.begin();
    const auto add_changed = [&] {
        add(PropertyText(changed->first, changed->second));
        ++changed;
    };
    auto removed = outcome.removed.begin();
    for (const auto& [name, text] : base_) {
        while (changed != outcome.changed.end() && changed->first < name) add_changed();
        if (changed != outcome.changed.end() && changed->first == name) {
            add_changed();
        } else if (removed != outcome.removed.end() && *removed == name) {
            ++removed;
        } else {
            add(text);
        }
    }
    while (changed != outcome.changed.end()) add_changed();
    line += rest;
    line += '\n';
}

json SummaryDocument(const Summary& summary) {
    constexpr int kFormat = 1;
    json document = Write(summary);
    document["format"] = kFormat;
    return document;
}

std::string SummaryLine(const Summary& summary) {
    return JsonLine({{kSummary, SummaryDocument(summary)}}) + "\n";
}

void LineMerger::Read(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw InputError(path + ": " + strerror(errno));
    std::string line;
    bool is_empty = true;
    for (int number = 1;; ++number) {
        const std::string place = path + ":" + std::to_string(number) + ": ";
        try {
            if (!ReadLine(file.rdbuf(), &line)) break;
            if (line.empty()) continue;
            is_empty = false;
            Add(line);
        } catch (const InputError& error) {
            throw InputError(place + error.what());
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& error) {
            throw InputError(place + "not a line of extprop matrix --json: " + error.what());
        }
    }
    // A part of a run must not pass for all of it.
    if (is_empty || !unlisted_.empty()) {
        throw InputError(path +
                         ": the summary is missing, which is the last line that extprop matrix "
                         "--json prints; run it again");
    }
    if (!missing_.empty()) {
        throw InputError(path + ": the summary lists the variant '" +
                         VariantText(*missing_.begin()) +
                         "', whose line is missing; run extprop matrix --json again");
    }
}

void LineMerger::Add(const std::string& line) {
    CheckShape(line, "");
    json document = json::parse(line);
    if (document.contains(kSummary)) {
        Add(FromJson<Summary>(std::move(document.at(kSummary))));
    } else {
        Add(FromJson<VariantLine>(std::move(document)));
    }
}

void LineMerger::Add(VariantLine line) {
    if (!read_.insert(line.variant).second) {
        throw InputError("the variant '" + VariantText(line.variant) + "' was read before");
    }
    if (missing_.erase(line.variant) == 0) unlisted_.insert(line.variant);
    if (!collector_) {
        base_ = line.properties;
        collector_.emplace(base_);
    }
    collector_->Add(line.variant, {DeltaFrom(base_, line.properties), std::move(line.failure)});
}

void LineMerger::Add(const Summary& summary) {
    device_ = summary.device;
    if (!summary.shard || summary.shard->number == 1) dead_ = summary.dead;
    for (const SummaryVariant& variant : summary.variants) {
        if (unlisted_.erase(variant.variant) == 0) missing_.insert(variant.variant);
        for (const std::string& word : variant.words) Keep(word.size());
        words_[variant.variant] = variant.words;
    }
    for (const auto* properties : {&summary.properties, &summary.same}) {
        for (const SummaryProperty& property : *properties) {
            for (const SummaryValue& value : property.values)
                AddOrigin(property.name, value, summary);
        }
    }
    if (summary.shard) {
        const auto& [number, count] = *summary.shard;
        if (number < 1 || number > count) throw std::runtime_error("there is no such shard");
        shards_[count].insert(number);
    }
}

void LineMerger::AddOrigin(const std::string& name, const SummaryValue& value,
                           const Summary& summary) {
    if (!value.value) return;
    // Throws if the origin has no text: what prints the summary relies on it.
    if (value.origin) value.origin->at("text").get_ref<const std::string&>();
    const Variant& first = summary.variants.at(value.variants.at(0)).variant;
    auto [known, is_new] = origins_.try_emplace({name, *value.value}, first, value.origin);
    if (is_new) Keep(name.size() + value.value->size() + kOriginSize);
    if (!is_new && VariantOrder()(first, known->second.first)) {
        known->second = {first, value.origin};
    }
}

void LineMerger::Keep(size_t size) {
    kept_ += size;
    if (kept_ <= limits::kSummary) return;
    throw InputError("the summaries up to here have more than " + std::to_string(limits::kSummary) +
                     " bytes of words and origins, which is the limit");
}

// Throws InputError if a part is missing: the rest must not pass for all variants.
void LineMerger::CheckShards() const {
    for (const auto& [count, numbers] : shards_) {
        for (size_t number = 1; number <= count; ++number) {
            if (numbers.count(number) != 0) continue;
            throw InputError("the lines of --shard " + std::to_string(number) + "/" +
                             std::to_string(count) + " are missing");
        }
    }
}

Summary LineMerger::Summarize(const std::vector<std::string>& patterns) const {
    if (!collector_) throw InputError("there is no line of a variant to merge");
    CheckShards();
    Summary summary = collector_->Summarize(patterns);
    summary.device = device_;
    if (patterns.empty()) summary.dead = dead_;
    for (SummaryVariant& variant : summary.variants) {
        auto words = words_.find(variant.variant);
        if (words != words_.end()) variant.words = words->second;
    }
    for (SummaryProperty& property : summary.properties) {
        for (SummaryValue& value : property.values) {
            auto origin = origins_.find({property.name, value.value.value_or("")});
            if (value.value && origin != origins_.end()) value.origin = origin->second.second;
        }
    }
    return summary;
}

}  // namespace extprop
