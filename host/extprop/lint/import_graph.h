// How the import lines of a device lead from file to file.

#pragma once

#include <map>
#include <string>
#include <vector>

#include "device/property_lines.h"
#include "lint/rules.h"

namespace extprop {

// An import line and the files to which it may lead, if any; in one boot it leads to one of them
// at most.
struct Import {
    const PropertyLine* line;
    const std::vector<std::string>* files;
    bool is_followed() const { return line->value.empty(); }  // a load with a filter skips imports
};
using ImportGraph = std::map<std::string, std::vector<Import>>;

// Adds findings on imports that lead in a cycle and on files that load another very often. A graph
// of any size and depth is accepted; imports that lead on through too many files are not followed
// to their end, of which there is a finding, too.
void CheckImportGraph(const ImportGraph& graph, Findings* findings);

}  // namespace extprop
