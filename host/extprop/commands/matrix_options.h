// What the commands that boot many variants share: the options that choose them, and booting with
// a word on how far it is.

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

// Returns the chosen variants of those in `space`. Throws InputError if an argument is wrong, as a
// value that is not `known` is.
std::vector<Variant> Chosen(const VariantSpace& space, const ChoiceArguments& arguments,
                            const VariantSpace& known);

// Throws InputError if the choice leaves no variants.
void CheckSomeAreLeft(size_t variants, const ChoiceArguments& arguments);

// Boots as Matrix does; a terminal on standard error shows how far it is.
void BootWithProgress(Matrix* matrix, const std::vector<Variant>& variants,
                      const std::function<void(size_t, Outcome)>& done);

// Boots so and collects what comes of it; `tell` gets each outcome first.
Collector Collect(Matrix* matrix, const std::vector<Variant>& variants,
                  const std::function<void(const Variant&, const Outcome&)>& tell = nullptr);

// Puts in where the summary's values come from.
void FindOrigins(Matrix* matrix, Summary* summary);

}  // namespace extprop
