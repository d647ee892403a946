// Messages on standard error. Nothing else writes to it.

#pragma once

#include <string>
#include <string_view>

namespace extprop {

// Prints the text on one printable line that begins with the tool's name.
void PrintMessage(std::string_view text);

// A line that is shown until the next message or the end, if standard error is a terminal.
class StatusLine {
  public:
    StatusLine() = default;
    ~StatusLine() { Show(""); }
    StatusLine& operator=(StatusLine&&) = delete;

    static bool IsSeen();
    void Show(std::string_view text);

  private:
    bool is_shown_ = false;
};

}  // namespace extprop
