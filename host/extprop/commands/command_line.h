// Describes and parses a command line: its words, their help, and the variables that receive their
// values.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace extprop {

// An option's name may list several, as in "--quiet,-q". The type is the name of the value in the
// help. The variables must exist until Parse returns.
class CommandLine {
  public:
    CommandLine(const std::string& program, const std::string& summary);
    ~CommandLine();
    CommandLine(CommandLine&& other) noexcept;

    // A required word that belongs to no option.
    void AddArgument(const char* name, std::string* value, const std::string& help);
    // An optional word.
    void AddArgument(const char* name, std::optional<std::string>* value, const std::string& help);
    // All other words that belong to no option.
    void AddArguments(const char* name, std::vector<std::string>* values, const std::string& help,
                      bool one_at_least = false);
    static constexpr bool kOneAtLeast = true;

    void AddFlag(const char* names, bool* value, const std::string& help);

    // An option that may be given once.
    void AddOption(const char* name, const char* type, std::string* value, const std::string& help);
    // An option of which the last value counts.
    void AddOption(const char* name, const char* type, std::optional<std::string>* value,
                   const std::string& help);
    // An option that may be repeated, with a value each time.
    void AddOption(const char* name, const char* type, std::vector<std::string>* values,
                   const std::string& help);
    // An option that takes values separated by commas.
    void AddListOption(const char* name, const char* type, std::vector<std::string>* values,
                       const std::string& help);
    // An option that takes every following word that is no option.
    void AddGreedyOption(const char* name, const char* type, std::vector<std::string>* values,
                         const std::string& help);
    // A number from `least` to `most`, both shown in the help, as is the default: what `value`
    // holds.
    void AddNumber(const char* name, const char* type, int least, int most, int* value,
                   const std::string& help);
    // An option whose value is one of the words; the last value counts.
    void AddChoice(const char* name, const std::vector<std::string>& words, std::string* value,
                   const std::string& help);
    // An option that is only shown in the help: its words are taken before Parse.
    void AddToHelp(const char* name, const char* type, const std::string& help);
    void AddVersion(const std::string& version);
    // A command; the line must have exactly one.
    void AddCommand(const char* name, const char* summary);

    // Makes it an error to give `name` together with one of the others.
    void Exclude(const char* name, const std::vector<const char*>& others);

    // Adds text to the end of the help.
    void AddFooter(const std::string& text);

    // Throws InputError: the argument is missing.
    [[noreturn]] void FailWithout(const std::string& argument) const;

    // Parses the words. If they ask for help, prints it and returns false. Throws InputError.
    bool Parse(std::vector<std::string> words);

  private:
    // Returns the end of a message that refers to the help.
    std::string SeeHelp() const;

    // Returns the message on the words that Parse did not expect.
    std::string UnexpectedText() const;

    // Returns the message on an option with too few or too many values, made of the parser's.
    std::string MismatchText(const std::string& error) const;

    struct Parser;
    std::unique_ptr<Parser> parser_;
};

}  // namespace extprop
