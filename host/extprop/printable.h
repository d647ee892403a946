// Makes text safe to print on a terminal and in a job's log.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace extprop {

// Returns the text so that it stays on its line, has no effect on a terminal and contains no
// command of a job's log, even if it comes from untrusted files. Control characters and bytes that
// are no UTF-8 become "\x1b", other characters that end lines or turn the direction of writing
// become "\u{2028}". A second call changes nothing more.
std::string Printable(std::string_view text);

// Puts a text for people together: literals of the source are added as they are, everything else is
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

// Returns the JSON with those characters escaped in its strings.
std::string PrintableJson(std::string json);

// Return the printable text in quotes; QuotedShort() only the beginning of a long one.
std::string Quoted(std::string_view text);
std::string QuotedShort(std::string_view text);

// Returns text such as "1 property" or "2 properties".
std::string Count(size_t count, const char* one, const char* many);

// Returns the words, quoted where necessary, as they can be typed into a shell.
std::string ShellWords(const std::vector<std::string>& words);

}  // namespace extprop
