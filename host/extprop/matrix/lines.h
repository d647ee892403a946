// Writes variants as lines of JSON, and merges such lines.

#pragma once

#include <optional>
#include <string>

#include "matrix/summary.h"

namespace extprop {

struct VariantLine {
    Variant variant;
    PropertyMap properties;
    std::optional<BootFailure> failure;
};

// Makes the lines of outcomes that are differences from the same properties.
class LineWriter {
  public:
    explicit LineWriter(const PropertyMap& base);

    // Puts the line, with its line end, into `*line`, which is best used again for the next.
    void Write(const Variant& variant, const Outcome& outcome, std::string* line) const;

  private:
    std::vector<std::pair<std::string, std::string>> base_;  // each property's name and its JSON
    size_t size_ = 0;                                        // of all that JSON, in bytes
};

// Returns the document of a summary.
nlohmann::json SummaryDocument(const Summary& summary);

// Returns the summary's line, with its line end.
std::string SummaryLine(const Summary& summary);

// Merges lines of runs over one device, in any order.
class LineMerger {
  public:
    // Reads the file's lines, also those of summaries. Throws InputError with the number of a line
    // that is not one of these, or has a variant that was read before.
    void Read(const std::string& path);

    // Reads one line, without its line end, in the same way.
    void Add(const std::string& line);

    // Returns the summary of one run over all variants. Origins and words are taken from the
    // summaries that were read. Throws InputError if a part of the variants is missing.
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
    std::string device_;
    std::vector<DeadPlace> dead_;
    std::map<size_t, std::set<size_t>> shards_;  // parts read, by the number of all
    std::map<Variant, std::vector<std::string>, VariantOrder> words_;
    // By name and value: the origin in the first variant whose summary has it.
    std::map<std::pair<std::string, std::string>, OriginOfValue> origins_;
};

}  // namespace extprop
