// Standard error: the only place that writes to it.

#pragma once

#include <string>
#include <string_view>

namespace extprop {

// Says the text in one line, which begins with the tool's name and is printable.
void Tell(std::string_view text);

// A line that a terminal on standard error shows until the next text or the end; nothing elsewhere.
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
