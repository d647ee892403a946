// What the commands that boot many variants share: options that choose variants, and boots with a
// display of progress.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "commands/command_line.h"
#include "matrix/summary.h"

namespace extprop {

// The values of the options, as they were given.
struct ChoiceArguments {
    std::vector<std::string> over;    // names of axes
    std::vector<std::string> only;    // each AXIS=VALUE,VALUE...
    std::vector<std::string> except;  // the same
    int jobs = 1;                     // boots at a time
};

// Adds --over, --only, --except and --jobs.
void AddChoiceOptions(CommandLine* line, ChoiceArguments* arguments);

// Adds --jobs, from 1 to 1024, and sets `*jobs` to its default, the number of processors.
void AddJobsOption(CommandLine* line, int* jobs);

// Returns the chosen variants of those in `space`; there may be none. `known` has the values that
// may be named: more than those in `space` where two devices are compared. Throws InputError for a
// choice without "=", for an unknown axis, for a value that is not in `known`, and for more than
// limits::kVariants variants.
std::vector<Variant> Chosen(const VariantSpace& space, const ChoiceArguments& arguments,
                            const VariantSpace& known);

// Throws InputError if `variants`, the number of chosen variants, is 0.
void CheckSomeAreLeft(size_t variants, const ChoiceArguments& arguments);

// Calls Matrix::Boot, and shows the progress if standard error is a terminal. Throws as that does.
void BootWithProgress(Matrix* matrix, const std::vector<Variant>& variants,
                      const std::function<void(size_t, Outcome)>& done);

// Boots in the same way and collects the outcomes. `on_outcome` may be null; otherwise it is called
// with each outcome before that is collected. Throws as Matrix::Boot and Collector::Add do.
Collector Collect(Matrix* matrix, const std::vector<Variant>& variants,
                  const std::function<void(const Variant&, const Outcome&)>& on_outcome = nullptr);

// Puts the origins of its values into a summary of the matrix's variants. Boots for them again,
// once for each variant that OriginsToFind names, and shows the progress in the same way. Throws as
// Matrix::Trace does.
void FindOrigins(Matrix* matrix, Summary* summary);

}  // namespace extprop
