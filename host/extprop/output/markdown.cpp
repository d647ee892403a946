#include "output/markdown.h"

#include <map>
#include <optional>
#include <set>
#include <vector>

#include <nlohmann/json.hpp>

#include "output/check_report.h"
#include "output/markup.h"
#include "output/text.h"
#include "printable.h"

namespace extprop {

namespace {

// What services accept in a comment, in characters; counted in bytes, which are never fewer.
constexpr size_t kMostBytes = 65535;
// What is reserved for the end of a table and the text on what is left out, in bytes.
constexpr size_t kEnd = 400;
// Texts above kUnfolded bytes are folded, and those above kShown are cut.
constexpr size_t kUnfolded = 80;
constexpr size_t kShown = 1000;

// As code, since services look for no mentions and links there.
std::string Code(const std::string& text) {
    return "<code>" + Markup(text) + "</code>";
}

std::string Folded(const std::string& summary, const std::string& content) {
    return "<details><summary>" + summary + "</summary>" + content + "</details>";
}

// Returns at most `size` bytes of the beginning of the text, without half a character at the end.
std::string Beginning(const std::string& text, size_t size) {
    while (size > 0 && (text[size] & 0xc0) == 0x80) --size;
    return text.substr(0, size);
}

std::string TextCell(const std::string& text) {
    if (text.size() <= kUnfolded) return Code(text);
    std::string content = Code(text);
    if (text.size() > kShown) {
        content = Code(Beginning(text, kShown)) + " and " +
                  std::to_string(text.size() - Beginning(text, kShown).size()) + " bytes more";
    }
    return Folded(Code(Beginning(text, kUnfolded)) + "…", content);
}

std::string ValueCell(const std::optional<std::string>& value) {
    if (!value) return "<em>unset</em>";
    return value->empty() ? "<em>empty</em>" : TextCell(*value);
}

std::string VariantsCell(size_t count, const std::string& text) {
    if (text.size() <= kUnfolded) return Code(text);
    return Folded(Count(count, "variant", "variants"), TextCell(text));
}

// A table that leaves out rows before the text is too long.
class Table {
  public:
    // `text` is what stands above the table.
    Table(std::string text, const std::vector<const char*>& columns) : text_(std::move(text)) {
        text_ += "<table>\n<tr>";
        for (const char* column : columns) text_ += "<th>" + std::string(column) + "</th>";
        text_ += "</tr>\n";
    }

    void AddRow(const std::vector<std::string>& cells) {
        std::string row = "<tr>";
        for (const std::string& cell : cells) row += "<td>" + cell + "</td>";
        row += "</tr>\n";
        // After a row that is left out no row is added: the table would look complete.
        if (left_out_ > 0 || text_.size() + row.size() + kEnd > kMostBytes) {
            ++left_out_;
        } else {
            text_ += row;
        }
    }

    // Returns the whole text; `command` is the command that prints the rows left out.
    std::string Finish(const char* command) && {
        text_ += "</table>\n";
        if (left_out_ > 0) {
            text_ += "<p>" + Count(left_out_, "more row is", "more rows are") +
                     " left out, since there is no room for them here; " + command +
                     " prints all.</p>\n";
        }
        return std::move(text_);
    }

  private:
    std::string text_;
    size_t left_out_ = 0;
};

std::string Paragraph(const std::string& text) {
    return "<p>" + text + "</p>\n";
}

}  // namespace

std::string MatrixMarkdown(const MatrixDifference& difference) {
    std::set<size_t> variants;
    std::set<std::string> properties;
    for (const MatrixChange& change : difference.changes) {
        variants.insert(change.variants.begin(), change.variants.end());
        properties.insert(change.name);
    }
    const size_t only = difference.only_a.size() + difference.only_b.size();
    std::string counts =
            properties.empty() ? "No property differs"
                               : Count(properties.size(), "property differs", "properties differ");
    counts += " in " + (variants.empty() ? "" : std::to_string(variants.size()) + " of ") +
              Count(difference.variants.size(), "variant", "variants");
    if (only > 0) counts += "; " + Count(only, "variant is", "variants are") + " on one side only";
    if (!difference.failed.empty()) {
        counts += "; the library did not survive " +
                  Count(difference.failed.size(), "variant", "variants");
    }
    std::string text = "<h3>" + counts + "</h3>\n" +
                       Paragraph("From " + TextCell(difference.device_a) + " to " +
                                 TextCell(difference.device_b));
    if (difference.empty() && difference.failed.empty()) return text;

    const VariantsNamer namer(difference.variants);
    Table table(std::move(text), {"Property", "Before", "After", "Variants"});
    for (const SummaryVariant& failed : difference.failed) {
        table.AddRow({"<em>failed</em>", "", TextCell(FailureText(*failed.failure)),
                      Code(VariantText(failed.variant))});
    }
    for (const MatrixChange& change : difference.changes) {
        const bool is_everywhere = change.variants.size() == difference.variants.size();
        table.AddRow({TextCell(change.name), ValueCell(change.a), ValueCell(change.b),
                      is_everywhere
                              ? "all " + std::to_string(change.variants.size())
                              : VariantsCell(change.variants.size(), namer.Text(change.variants))});
    }
    const struct {
        const char* before;
        const char* after;
        const std::vector<Variant>& variants;
    } sides[] = {{"", "<em>missing</em>", difference.only_a},
                 {"<em>missing</em>", "", difference.only_b}};
    for (const auto& side : sides) {
        for (const Variant& variant : side.variants) {
            table.AddRow({"", side.before, side.after, Code(VariantText(variant))});
        }
    }
    return std::move(table).Finish("<code>extprop matrix</code>");
}

std::string CheckMarkdown(const CheckResult& result) {
    const std::vector<UnmetGroup> groups = GroupsOf(result);
    size_t unmet = 0;
    for (const UnmetGroup& group : groups) unmet += group.count;
    std::string text = "<h3>" +
                       (unmet == 0 ? std::string("All as expected")
                                   : std::to_string(unmet) + " not as expected") +
                       "</h3>\n" +
                       Paragraph(Count(result.checked, "property", "properties") + " checked in " +
                                 TextCell(SubjectsText(result)));
    if (unmet == 0) return text;
    Table table(std::move(text),
                {"Expectation", "Property", "Expected", "Value", "From", "Variants"});
    for (const UnmetGroup& group : groups) {
        const UnmetExpectation& each = *group.unmet;
        std::string expectation = each.file + ":" + std::to_string(each.line);
        if (!each.expectation.empty()) expectation = each.expectation + " (" + expectation + ")";
        table.AddRow({TextCell(expectation), each.property.empty() ? "" : TextCell(each.property),
                      TextCell(each.expected),
                      each.failure            ? TextCell(FailureText(*each.failure))
                      : each.property.empty() ? ""
                                              : ValueCell(each.value),
                      each.origin ? TextCell(each.origin->at("text").get<std::string>()) : "",
                      VariantsCell(group.count, group.variants)});
    }
    return std::move(table).Finish("<code>extprop check</code>");
}

}  // namespace extprop
