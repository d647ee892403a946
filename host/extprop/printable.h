// Text for people: for a terminal, and for the log of a job.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace extprop {

// Keeps the text on its line, the terminal as it is and a job's log without commands, whatever the
// device's files hold. Control characters and bytes that are no UTF-8 are shown as "\x1b", what
// ends lines or turns the direction of writing besides as "\u{2028}". Twice is as once.
std::string Printable(std::string_view text);

// A text for people, put together: what stands in the source is as it is, and everything else is
// made printable.
class Text {
  public:
    template <size_t size>
    Text& operator<<(const char (&literal)[size]) {
        text_ += literal;
        return *this;
    }
    Text& Fixed(const char* text) {
        text_ += text;
        return *this;
    }
    Text& operator<<(std::string_view text);
    Text& operator<<(size_t number) { return *this << std::to_string(number); }
    Text& operator<<(int number) { return *this << std::to_string(number); }
    Text& operator<<(const Text& text) {
        text_ += text.text_;
        return *this;
    }

    const std::string& string() const { return text_; }

  private:
    std::string text_;
};

// Returns the JSON with such characters in its strings escaped, which it need not have.
std::string PrintableJson(std::string json);

// Returns the text in quotes, the whole of it or only its beginning if it is long.
std::string Quoted(std::string_view text);
std::string QuotedShort(std::string_view text);

// Returns such as "1 property" or "2 properties".
std::string Count(size_t count, const char* one, const char* many);

// Returns words as they can be typed into a shell.
std::string ShellWords(const std::vector<std::string>& words);

}  // namespace extprop
