// Variants as lines of JSON, which can be put together again.

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

// Makes the lines of outcomes that are told against the same properties.
class LineWriter {
  public:
    explicit LineWriter(const PropertyMap& base);

    // Returns the line, with its end.
    std::string Line(const Variant& variant, const Outcome& outcome) const;

  private:
    std::vector<std::pair<std::string, std::string>> base_;  // each property and how it is printed
    size_t size_ = 0;                                        // of all that is printed
};

// Returns the document of a summary.
nlohmann::json SummaryDocument(const Summary& summary);

// Returns the line of the summary, with its end.
std::string SummaryLine(const Summary& summary);

// Puts lines of runs over one device together, in any order.
class LineMerger {
  public:
    // Reads the file's lines, the summaries among them too. Throws InputError naming the line that
    // is none, or has a variant that was read before.
    void Read(const std::string& path);

    // Takes one line so, without its end.
    void Add(const std::string& line);

    // Returns the summary that one run over all variants would have. Origins and words are those
    // of the summaries. Throws InputError if a part is missing.
    Summary Summarize(const std::vector<std::string>& patterns) const;

  private:
    using OriginOfValue = std::pair<Variant, OriginDocument>;

    void Add(VariantLine line);
    void Add(const Summary& summary);
    void AddOrigin(const std::string& name, const SummaryValue& value, const Summary& summary);
    void CheckShards() const;
    void Keep(size_t size);

    size_t kept_ = 0;  // bytes, of words and origins
    std::optional<Collector> collector_;
    PropertyMap base_;
    std::set<Variant, VariantOrder> read_;
    std::string device_;
    std::vector<DeadPlace> dead_;
    std::map<size_t, std::set<size_t>> shards_;  // the numbers of each count
    std::map<Variant, std::vector<std::string>, VariantOrder> words_;
    // By name and value: in the first variant of those whose summary tells it.
    std::map<std::pair<std::string, std::string>, OriginOfValue> origins_;
};

}  // namespace extprop
