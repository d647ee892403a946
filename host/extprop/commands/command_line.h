// Describes and parses a command line: its words, their help, and the variables that receive their
// values.

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace extprop {

// What the comments call an error is one in the words, for which Parse throws InputError. A
// variable must exist until Parse returns; it keeps its content if its word or option is not given.
// An option's name may list several, as in "--quiet,-q". `type` is the name of the value in the
// help. After "--name=" without a value, and "," alone for a list, the next word is the value, even
// if it is an option; if there is none, that is an error. Adding a name twice throws a CLI::Error.
class CommandLine {
  public:
    CommandLine(const std::string& program, const std::string& summary);
    ~CommandLine();
    CommandLine(CommandLine&& other) noexcept;

    // A word that belongs to no option; an error if there is none. Empty words are errors.
    void AddArgument(const char* name, std::string* value, const std::string& help);
    // Such a word, which may be missing.
    void AddArgument(const char* name, std::optional<std::string>* value, const std::string& help);
    // All other words that belong to no option; with kOneAtLeast an error if there are none.
    void AddArguments(const char* name, std::vector<std::string>* values, const std::string& help,
                      bool one_at_least = false);
    static constexpr bool kOneAtLeast = true;

    // Of all options with values, "--name=" without a value is an error.

    // An option without a value, which may be repeated. Of "--name=true", "--name=no" and the like
    // the last one counts; any other text after the "=" is an error.
    void AddFlag(const char* names, bool* value, const std::string& help);

    // An option that may be given once; more often is an error, and so is an empty value.
    void AddOption(const char* name, const char* type, std::string* value, const std::string& help);
    // An option of which the last value counts.
    void AddOption(const char* name, const char* type, std::optional<std::string>* value,
                   const std::string& help);
    // An option that may be repeated, with a value each time.
    void AddOption(const char* name, const char* type, std::vector<std::string>* values,
                   const std::string& help);
    // An option that takes values separated by commas, and may be repeated. Of several values those
    // that are empty are dropped.
    void AddListOption(const char* name, const char* type, std::vector<std::string>* values,
                       const std::string& help);
    // An option that takes every following word that is no option; an empty one is an error.
    void AddGreedyOption(const char* name, const char* type, std::vector<std::string>* values,
                         const std::string& help);
    // An option that may be given once, with a number from `least` to `most`; another value is an
    // error. The help shows these limits and, as the default, what `*value` holds now.
    void AddNumber(const char* name, const char* type, int least, int most, int* value,
                   const std::string& help);
    // An option whose value is one of the words; another one is an error. The last value counts.
    void AddChoice(const char* name, const std::vector<std::string>& words, std::string* value,
                   const std::string& help);
    // An option that is only shown in the help: its words are taken before Parse.
    void AddToHelp(const char* name, const char* type, const std::string& help);
    // The option --version, which prints this text.
    void AddVersion(const std::string& version);
    // A command, for the help; an error if the line has not exactly one. No variable receives it.
    void AddCommand(const char* name, const char* summary);

    // Makes it an error to give `name` together with one of the others, all of which were added
    // before; throws a CLI::Error for one that was not.
    void Exclude(const char* name, const std::vector<const char*>& others);

    // Adds text to the end of the help.
    void AddFooter(const std::string& text);

    // Throws InputError with the message that the argument is missing.
    [[noreturn]] void FailWithout(const std::string& argument) const;

    // Puts the values of the words, which begin after the program's name, into the variables and
    // returns true. If the words ask for help or the version, prints that on standard output and
    // returns false. Throws InputError, with one message, at the first error; some variables may be
    // set then. Call it once.
    bool Parse(std::vector<std::string> words);

  private:
    // Returns a check of the parser's that throws InputError if what is given for `name` is empty.
    std::function<std::string(std::string)> NotEmpty(const std::string& name) const;

    // Returns the end of a message that refers to the help.
    std::string SeeHelp() const;

    // Returns the message on the words that Parse did not expect.
    void RefuseEmptyValues(const std::vector<std::string>& words) const;
    std::string UnexpectedText() const;

    // Returns the message on an option with too few or too many values, made of the parser's.
    std::string MismatchText(const std::string& error) const;

    struct Parser;
    std::unique_ptr<Parser> parser_;
};

}  // namespace extprop
