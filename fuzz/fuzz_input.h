// What the targets for texts share.

#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <exception>
#include <string>

namespace fuzz {

inline std::string Content(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// Calls the function and drops its result, or the std::exception that it throws about its input.
template <typename Function>
void Try(const Function& function) {
    try {
        function();
    } catch (const std::exception&) {
    }
}

}  // namespace fuzz
