// Work divided among worker processes, so that nothing that happens in one piece affects another.

#pragma once

#include <functional>

#include <nlohmann/json_fwd.hpp>

namespace extprop {

// Calls `work` in up to `jobs` child processes, once for each number below `count`. Calls `done` in
// this process with each number and its result, in the order in which they finish. Throws
// std::runtime_error with the message of what `work` throws, or if a process dies.
void ForEachInParallel(size_t count, int jobs, const std::function<nlohmann::json(size_t)>& work,
                       const std::function<void(size_t, nlohmann::json)>& done);

// Returns the number of processes that this machine runs at once.
int ProcessorCount();

}  // namespace extprop
