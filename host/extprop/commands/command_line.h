// The words of the command line: which there can be, what the help says of them, and where their
// values go.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace extprop {

// What options are called stands as in "--quiet,-q", and the type is what the help calls a value.
// The variables must outlive the call of Parse.
class CommandLine {
  public:
    CommandLine(const std::string& program, const std::string& summary);
    ~CommandLine();
    CommandLine(CommandLine&& other) noexcept;

    // A word that belongs to no option, which there must be.
    void AddArgument(const char* name, std::string* value, const std::string& help);
    // One that may be left out.
    void AddArgument(const char* name, std::optional<std::string>* value, const std::string& help);
    // All other words that belong to no option.
    void AddArguments(const char* name, std::vector<std::string>* values, const std::string& help,
                      bool one_at_least = false);
    static constexpr bool kOneAtLeast = true;

    void AddFlag(const char* names, bool* value, const std::string& help);

    // An option that may be given once.
    void AddOption(const char* name, const char* type, std::string* value, const std::string& help);
    // One of which the last counts.
    void AddOption(const char* name, const char* type, std::optional<std::string>* value,
                   const std::string& help);
    // One that takes a value each time.
    void AddOption(const char* name, const char* type, std::vector<std::string>* values,
                   const std::string& help);
    // One that takes values with commas between them.
    void AddListOption(const char* name, const char* type, std::vector<std::string>* values,
                       const std::string& help);
    // One that takes every word after it that is no option.
    void AddGreedyOption(const char* name, const char* type, std::vector<std::string>* values,
                         const std::string& help);
    // A number; the help tells the range and the default, which is what `value` holds.
    void AddNumber(const char* name, const char* type, int least, int most, int* value,
                   const std::string& help);
    // One of the words, of which the last counts.
    void AddChoice(const char* name, const std::vector<std::string>& words, std::string* value,
                   const std::string& help);
    // An option that only the help tells of: its words do not come here.
    void AddToHelp(const char* name, const char* type, const std::string& help);
    void AddVersion(const std::string& version);
    // A command, of which there must be one.
    void AddCommand(const char* name, const char* summary);

    // Says that `name` does not go with the others.
    void Exclude(const char* name, const std::vector<const char*>& others);

    // Adds to what the help ends with.
    void AddFooter(const std::string& text);

    // Parses the words. Returns false if they ask for help, which is printed then. Throws
    // InputError.
    bool Parse(std::vector<std::string> words);

  private:
    // Returns what the first of the words that is no option may have been meant to be.
    std::string HintOn(const std::vector<std::string>& words) const;

    struct Parser;
    std::unique_ptr<Parser> parser_;
};

}  // namespace extprop
