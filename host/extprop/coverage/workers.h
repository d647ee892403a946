// Work divided among worker processes, so that nothing that happens in one piece affects another.

#pragma once

#include <functional>

#include <nlohmann/json_fwd.hpp>

namespace extprop {

// Calls `work` in up to `jobs` child processes, at least 1, once for each number below `count`, and
// `done` in this process with each number and its result as soon as it is there. Throws
// std::runtime_error with the message of what `work` throws, or if a process cannot be started,
// dies or takes too much memory, or a result has more than limits::kEvents bytes; `done` is then
// not called for all.
void ForEachInParallel(size_t count, int jobs, const std::function<nlohmann::json(size_t)>& work,
                       const std::function<void(size_t, nlohmann::json)>& done);

// Returns the number of processors that this process may use, 1 if it is unknown.
int ProcessorCount();

}  // namespace extprop
