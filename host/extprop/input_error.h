// What is wrong with what the user gave: one line, which names the file and line at fault.

#pragma once

#include <stdexcept>

namespace extprop {

class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace extprop
