#include "boot/import_cycle.h"

#include <algorithm>

namespace extprop {

std::vector<std::string> ImportCycle(const std::vector<Event>& events) {
    std::vector<const LoadEvent*> chain;  // each imported by the one before
    for (const Event& event : events) {
        const auto* load = std::get_if<LoadEvent>(&event);
        if (load == nullptr) continue;
        const std::string importer =
                load->imported_by ? load->imported_by->substr(0, load->imported_by->rfind(':'))
                                  : "";
        while (!chain.empty() && chain.back()->path != importer) chain.pop_back();
        chain.push_back(load);
    }
    const auto is_alike = [](const LoadEvent* a, const LoadEvent* b) {
        return a->path == b->path && a->filter == b->filter;
    };
    for (auto first = chain.begin(); first != chain.end(); ++first) {
        const auto again = std::find_if(first + 1, chain.end(), [&](const LoadEvent* load) {
            return is_alike(load, *first);
        });
        if (again == chain.end()) continue;
        std::vector<std::string> cycle;
        for (auto load = first + 1; load <= again; ++load) cycle.push_back(*(*load)->imported_by);
        return cycle;
    }
    return {};
}

}  // namespace extprop
