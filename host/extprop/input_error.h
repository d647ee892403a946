// An error in what the user gave: a line of text for each fault, with the file and line of the
// fault where it has them. what() is the first line. The lines may quote untrusted text as it is;
// PrintMessage() makes them printable.

#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace extprop {

class InputError : public std::runtime_error {
  public:
    explicit InputError(const std::string& line) : InputError(std::vector<std::string>{line}) {}

    // `lines` has at least one.
    explicit InputError(std::vector<std::string> lines)
            : std::runtime_error(lines.front()), lines_(std::move(lines)) {}

    const std::vector<std::string>& lines() const { return lines_; }

  private:
    std::vector<std::string> lines_;
};

}  // namespace extprop
