#include "nearest.h"

#include <algorithm>

#include "printable.h"

namespace extprop {

namespace {

std::string LowerCase(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

}  // namespace

size_t Distance(const std::string& a, const std::string& b) {
    // The costs for the beginning of `a` of i letters, and for those one and two shorter.
    std::vector<size_t> cost(b.size() + 1), shorter(cost), shortest(cost);
    for (size_t i = 0; i <= a.size(); ++i) {
        shortest.swap(shorter);
        shorter.swap(cost);
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[j] = i + j;
                continue;
            }
            cost[j] = std::min(
                    {shorter[j] + 1, cost[j - 1] + 1, shorter[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                cost[j] = std::min(cost[j], shortest[j - 2] + 1);
            }
        }
    }
    return cost[b.size()];
}

std::string Nearest(const std::string& word, const std::vector<std::string>& known, size_t most) {
    constexpr size_t kLongest = 256;
    if (word.size() > kLongest) return "";
    const std::string lower = LowerCase(word);
    std::string nearest;
    size_t least = most + 1;
    for (const std::string& candidate : known) {
        // The words differ in at least as many letters as in length.
        const auto [shorter, longer] = std::minmax({word.size(), candidate.size()});
        if (longer - shorter >= least) continue;
        const size_t distance = Distance(lower, LowerCase(candidate));
        if (distance >= least) continue;
        least = distance;
        nearest = candidate;
    }
    return nearest;
}

std::string Suggestion(const std::string& nearest) {
    return nearest.empty() ? "" : "; did you mean " + Quoted(nearest) + "?";
}

std::string SuggestionOf(const std::string& word, const std::vector<std::string>& known,
                         size_t most) {
    constexpr size_t kMostListed = 8;
    const std::string nearest = Nearest(word, known, most);
    if (!nearest.empty() || known.empty()) return Suggestion(nearest);
    std::string text = "; there are ";
    const size_t listed = std::min(known.size(), kMostListed);
    for (size_t i = 0; i < listed; ++i) text += (i == 0 ? "" : ", ") + known[i];
    return listed == known.size()
                   ? text
                   : text + " and " + std::to_string(known.size() - listed) + " more";
}

}  // namespace extprop
