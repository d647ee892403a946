// Makes text safe to print on a terminal and in a job's log.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace extprop {

// Returns the text so that it stays on its line, has no effect on a terminal and contains no
// command of a job's log, even if it comes from untrusted files. Takes any bytes. ASCII's control
// characters, bytes that are no UTF-8 and the first character of a command become text such as
// "\x1b"; other characters that control a terminal, end lines or turn the direction of writing
// become text such as "\u{2028}". A second call changes nothing more.
std::string Printable(std::string_view text);

// Puts a text for people together: literals of the source are added as they are, everything else is
// made printable. Any array of char counts as a literal.
class Text {
  public:
    template <size_t size>
    Text& operator<<(const char (&literal)[size]) {
        text_ += literal;
        return *this;
    }
    // Adds a text of the source that is no literal here, such as one of a table.
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

// Returns the JSON, which must be well-formed, with those characters of its strings written as
// "\u2028" that JSON itself leaves as they are. Bytes that are no UTF-8 and commands stay.
std::string PrintableJson(std::string json);

// Returns the text as a scalar of YAML in double quotes, on one line. Characters that Printable()
// writes otherwise are escaped; bytes that are no UTF-8 stay.
std::string YamlText(std::string_view text);

// Return the text in quotes, as it is: it is made printable later. QuotedShort() returns only the
// beginning, at most 60 bytes and whole characters, of a longer one, with "..." after it.
std::string Quoted(std::string_view text);
std::string QuotedShort(std::string_view text);

// Returns text such as "1 property" or "2 properties".
std::string Count(size_t count, const char* one, const char* many);

// Returns the words, quoted where necessary, as they can be typed into a shell; an empty word is
// ''. Bytes that are not printable stay, as in Quoted().
std::string ShellWords(const std::vector<std::string>& words);

}  // namespace extprop
