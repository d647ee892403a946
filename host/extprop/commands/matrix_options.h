// What the commands that boot many variants share: options that choose variants, and boots with a
// display of progress.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "commands/command_line.h"
#include "matrix/summary.h"

namespace extprop {

struct ChoiceArguments {
    std::vector<std::string> over;
    std::vector<std::string> only;
    std::vector<std::string> except;
    int jobs = 1;
};

void AddChoiceOptions(CommandLine* line, ChoiceArguments* arguments);
void AddJobsOption(CommandLine* line, int* jobs);

// Returns the chosen variants of those in `space`. Throws InputError if an argument is wrong, for
// example has a value that is not in `known`.
std::vector<Variant> Chosen(const VariantSpace& space, const ChoiceArguments& arguments,
                            const VariantSpace& known);

// Throws InputError if the choice leaves no variants.
void CheckSomeAreLeft(size_t variants, const ChoiceArguments& arguments);

// Boots as Matrix does, and shows the progress if standard error is a terminal.
void BootWithProgress(Matrix* matrix, const std::vector<Variant>& variants,
                      const std::function<void(size_t, Outcome)>& done);

// Boots as above and collects the outcomes. If set, `on_outcome` is called with each outcome first.
Collector Collect(Matrix* matrix, const std::vector<Variant>& variants,
                  const std::function<void(const Variant&, const Outcome&)>& on_outcome = nullptr);

// Puts the origins of the summary's values into the summary.
void FindOrigins(Matrix* matrix, Summary* summary);

}  // namespace extprop
