// Writes variants as lines of JSON, and merges such lines.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "matrix/summary.h"

namespace extprop {

struct VariantLine {
    Variant variant;
    PropertyMap properties;
    std::optional<BootFailure> failure;
};

// Makes the lines of variants whose outcomes are differences from the same properties. docs/json.md
// describes the lines.
class LineWriter {
  public:
    // `base` are those properties, which are copied.
    explicit LineWriter(const PropertyMap& base);

    // Replaces `*line` by the variant's line, with its line end. Using the same string for the next
    // line saves memory. The outcome must be a difference from the base.
    void Write(const Variant& variant, const Outcome& outcome, std::string* line) const;

  private:
    std::vector<std::pair<std::string, std::string>> base_;  // each property's name and its JSON
    size_t size_ = 0;                                        // of all that JSON, in bytes
};

// Returns the document of a summary, with its format.
nlohmann::json SummaryDocument(const Summary& summary);

// Returns the summary's line, with its line end.
std::string SummaryLine(const Summary& summary);

// Merges the lines of runs over one device, which is not checked.
class LineMerger {
  public:
    // Reads a file with all lines of one run or several, in any order; skips empty lines. Throws
    // InputError with the path if the file cannot be read, or has the line of a variant and no
    // summary that lists it, the reverse, or no line at all; and with path and line if a line is
    // none of a run or is longer than limits::kLine, its variant was read before, or there is more
    // than the limits allow.
    void Read(const std::string& path);

    // Reads one line, without its line end, of a run that need not be whole. Throws InputError,
    // without a place, if its variant was read before or there is too much, and another
    // std::exception if it is no such line.
    void Add(const std::string& line);

    // Returns the summary of one run over all variants, with the properties that
    // Collector::Summarize() chooses by the patterns. Origins and words are taken from the
    // summaries that were read; what these do not have stays empty. Throws InputError if no variant
    // was read, or if a summary is of a part of the variants and that of another part is missing.
    Summary Summarize(const std::vector<std::string>& patterns) const;

  private:
    using OriginOfValue = std::pair<Variant, OriginDocument>;

    void Add(VariantLine line);
    void Add(const Summary& summary);
    void AddOrigin(const std::string& name, const SummaryValue& value, const Summary& summary);
    void CheckShards() const;
    void Keep(size_t size);

    size_t kept_ = 0;  // size of words and origins, in bytes
    std::optional<Collector> collector_;
    PropertyMap base_;
    std::set<Variant, VariantOrder> read_;
    std::set<Variant, VariantOrder> unlisted_;  // those of read_ that no summary lists yet
    std::set<Variant, VariantOrder> missing_;   // those that summaries list without a line so far
    std::string device_;
    std::vector<DeadPlace> dead_;
    std::map<size_t, std::set<size_t>> shards_;  // parts read, by the number of all
    std::map<Variant, std::vector<std::string>, VariantOrder> words_;
    // By name and value: the origin in the first variant whose summary has it.
    std::map<std::pair<std::string, std::string>, OriginOfValue> origins_;
};

}  // namespace extprop
