// Messages on standard error. The tool's own process writes to it only here. SIGPIPE ends that
// process if nobody reads a pipe there any more; every other failure to write is ignored.

#pragma once

#include <string>
#include <string_view>

namespace extprop {

// Prints the text on one printable line that begins with "extprop: ", and of a long text its first
// 4096 bytes. Erases the status line.
void PrintMessage(std::string_view text);

// Shows progress on the last line of the terminal, of which there is one for all objects. It is
// erased when the object ends and when a message is printed.
class StatusLine {
  public:
    StatusLine() = default;
    ~StatusLine() { Show(""); }
    StatusLine& operator=(StatusLine&&) = delete;

    // Returns whether standard error is a terminal. If not, do not call Show(): it does not ask.
    static bool IsSeen();

    // Replaces the line by this text, made printable; "" erases it.
    void Show(std::string_view text);
};

}  // namespace extprop
