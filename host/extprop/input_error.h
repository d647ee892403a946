// What is wrong with what the user gave: a line for each fault, which names the file and line of
// it.

#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace extprop {

class InputError : public std::runtime_error {
  public:
    explicit InputError(const std::string& line) : InputError(std::vector<std::string>{line}) {}

    // Of one fault at least.
    explicit InputError(std::vector<std::string> lines)
            : std::runtime_error(lines.front()), lines_(std::move(lines)) {}

    const std::vector<std::string>& lines() const { return lines_; }

  private:
    std::vector<std::string> lines_;
};

}  // namespace extprop
