// Work of one kind done side by side, by processes, so that nothing that happens in one piece of
// it touches another.

#pragma once

#include <functional>

#include <nlohmann/json_fwd.hpp>

namespace extprop {

// Calls `work` in up to `jobs` child processes, once for each number below `count`, and `done` in
// this process with what it returned, in the order in which that is finished. Throws
// std::runtime_error with the text of what `work` throws, or if a process dies.
void ForEachInParallel(size_t count, int jobs, const std::function<nlohmann::json(size_t)>& work,
                       const std::function<void(size_t, nlohmann::json)>& done);

// The number of processes that this machine runs at once.
int ProcessorCount();

}  // namespace extprop
