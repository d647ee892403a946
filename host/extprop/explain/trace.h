// Where every value came from: the places and operations that gave it, in order of time.

#pragma once

#include <nlohmann/json.hpp>

namespace extprop {

// Returns, for the report of a traced boot, an object that has for each property an array of its
// origins in order of time, as docs/json.md describes them. What a property file that was never
// loaded would have given stands at the end, with the condition on which it is loaded.
nlohmann::json TraceOrigins(const nlohmann::json& report);

// Takes out of the report what a traced boot has beside any other's.
void DropTrace(nlohmann::json* report);

}  // namespace extprop
