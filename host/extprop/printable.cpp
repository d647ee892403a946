#include "printable.h"

#include <android-base/strings.h>

#include <stdint.h>
#include <stdio.h>

#include <algorithm>

namespace extprop {

namespace {

// Characters that control a terminal, end a line for some program, or turn the direction of the
// text around them; and two codes that stand for no character.
constexpr struct {
    char32_t first, last;
} kUnprintable[] = {
        {0x00, 0x1f},     {0x7f, 0x9f},     {0x61c, 0x61c},   {0x200e, 0x200f}, {0x2028, 0x202e},
        {0x2066, 0x2069}, {0xfeff, 0xfeff}, {0xfff9, 0xfffb}, {0xfffe, 0xffff}, {0xe0000, 0xe007f},
};

bool IsPrintable(char32_t character) {
    for (const auto& range : kUnprintable) {
        if (character >= range.first && character <= range.last) return false;
    }
    return true;
}

// Puts the first character of the text into `*character` and returns its size in bytes, or 0 if it
// is no UTF-8.
size_t Decode(std::string_view text, char32_t* character) {
    const auto first = static_cast<unsigned char>(text[0]);
    *character = first;
    if (first < 0x80) return 1;
    const size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (first < 0xc2 || first > 0xf4 || text.size() < size) return 0;
    *character = first & (0x7f >> size);
    for (size_t i = 1; i < size; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xc0) != 0x80) return 0;
        *character = *character << 6 | (next & 0x3f);
    }
    const bool is_surrogate = *character >= 0xd800 && *character < 0xe000;
    return *character < kLeast[size] || *character > 0x10ffff || is_surrogate ? 0 : size;
}

std::string Formatted(const char* format, unsigned number) {
    char text[16];
    snprintf(text, sizeof(text), format, number);
    return text;
}

// Returns whether the text, or the text with what may follow it, begins a command of a service that
// runs jobs. Commands of one kind stand at the line's start, those of the other kind anywhere in
// it.
bool IsCommand(std::string_view text, bool at_start) {
    return (at_start && (text.substr(0, 2) == "::" || text == ":")) || text == "##" ||
           text.substr(0, 3) == "##[" || text.substr(0, 6) == "##vso[";
}

// Returns the number of bytes at the start of the text that need no escaping and begin no command.
size_t PlainSize(std::string_view text) {
    const auto end = std::find_if(text.begin(), text.end(), [](char c) {
        return c <= ' ' || c >= 0x7f || c == ':' || c == '#';
    });
    return end - text.begin();
}

std::string PrintableWithin(std::string_view text, bool at_start) {
    std::string printable;
    while (!text.empty()) {
        if (const size_t plain = PlainSize(text); plain != 0) {
            printable += text.substr(0, plain);
            text.remove_prefix(plain);
            at_start = false;
            continue;
        }
        char32_t character = 0;
        const size_t size = Decode(text, &character);
        if (size == 0) {
            printable += Formatted("\\x%02x", static_cast<unsigned char>(text[0]));
        } else if ((character < 0x80 && !IsPrintable(character)) || IsCommand(text, at_start)) {
            printable += Formatted("\\x%02x", character);
        } else if (!IsPrintable(character)) {
            printable += Formatted("\\u{%x}", character);
        } else {
            printable += text.substr(0, size);
        }
        at_start = at_start && character == ' ';
        text.remove_prefix(size == 0 ? 1 : size);
    }
    return printable;
}

}  // namespace

std::string Printable(std::string_view text) {
    return PrintableWithin(text, true);
}

Text& Text::operator<<(std::string_view text) {
    const size_t last = text_.find_last_not_of(' ');
    text_ += PrintableWithin(text, last == std::string::npos || text_[last] == '\n');
    return *this;
}

std::string PrintableJson(std::string json) {
    std::string printable;
    size_t done = 0;
    for (size_t at = 0; at < json.size();) {
        // Characters below are printable, or escaped in the JSON already.
        if (static_cast<unsigned char>(json[at]) < 0x7f) {
            ++at;
            continue;
        }
        char32_t character = 0;
        const size_t size = Decode(std::string_view(json).substr(at), &character);
        if (size != 0 && !IsPrintable(character)) {
            printable.append(json, done, at - done);
            if (character >= 0x10000) {
                printable += Formatted("\\u%04x", 0xd7c0 + (character >> 10));
                character = 0xdc00 + (character & 0x3ff);
            }
            printable += Formatted("\\u%04x", character);
            done = at + size;
        }
        at += size == 0 ? 1 : size;
    }
    if (done == 0) return json;
    return printable.append(json, done);
}

std::string YamlText(std::string_view text) {
    std::string quoted = "\"";
    while (!text.empty()) {
        char32_t character = 0;
        const size_t size = Decode(text, &character);
        if (size != 0 && !IsPrintable(character)) {
            quoted += Formatted(character < 0x10000 ? "\\u%04x" : "\\U%08x", character);
        } else {
            if (text[0] == '"' || text[0] == '\\') quoted += '\\';
            quoted += text.substr(0, std::max<size_t>(size, 1));
        }
        text.remove_prefix(std::max<size_t>(size, 1));
    }
    return quoted + "\"";
}

std::string Quoted(std::string_view text) {
    return "'" + std::string(text) + "'";
}

std::string QuotedShort(std::string_view text) {
    constexpr size_t kShown = 60;
    if (text.size() <= kShown) return Quoted(text);
    size_t end = kShown;
    while (end > 0 && (text[end] & 0xc0) == 0x80) --end;  // not inside a character
    return "'" + std::string(text.substr(0, end)) + "...'";
}

std::string Count(size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string ShellWords(const std::vector<std::string>& words) {
    constexpr char kSafe[] =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_=./:@%+,";
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty()) text += ' ';
        if (!word.empty() && word.find_first_not_of(kSafe) == std::string::npos) {
            text += word;
        } else {
            text += "'" + android::base::StringReplace(word, "'", "'\\''", true) + "'";
        }
    }
    return text;
}

}  // namespace extprop
