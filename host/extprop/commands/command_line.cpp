#include "commands/command_line.h"

#include <algorithm>

#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <CLI/CLI.hpp>

#include "input_error.h"
#include "nearest.h"
#include "printable.h"

namespace extprop {

namespace {

// An option takes one value each time. Otherwise it would take every word after it, also steps.
constexpr bool kOneEach = false;

}  // namespace

struct CommandLine::Parser : CLI::App {
    using CLI::App::App;
};

CommandLine::CommandLine(const std::string& program, const std::string& summary)
        : parser_(std::make_unique<Parser>(summary, program)) {
    parser_->set_help_flag("-h,--help", "Print this help");
    parser_->get_formatter()->label("Positionals", "Arguments");
    parser_->get_formatter()->label("SUBCOMMAND", "COMMAND");
}

CommandLine::~CommandLine() = default;

CommandLine::CommandLine(CommandLine&& other) noexcept = default;

void CommandLine::AddArgument(const char* name, std::string* value, const std::string& help) {
    parser_->add_option(name, *value, help)->type_name("")->required()->check(NotEmpty(name));
}

void CommandLine::AddArgument(const char* name, std::optional<std::string>* value,
                              const std::string& help) {
    parser_->add_option_function<std::string>(
                   name, [value](const std::string& given) { *value = given; }, help)
            ->type_name("")
            ->check(NotEmpty(name));
}

void CommandLine::AddArguments(const char* name, std::vector<std::string>* values,
                               const std::string& help, bool one_at_least) {
    parser_->add_option(name, *values, help)
            ->type_name("")
            ->required(one_at_least)
            ->check(NotEmpty(name));
}

void CommandLine::AddFlag(const char* names, bool* value, const std::string& help) {
    parser_->add_flag(names, *value, help);
}

void CommandLine::AddOption(const char* name, const char* type, std::string* value,
                            const std::string& help) {
    parser_->add_option(name, *value, help)->type_name(type)->check(NotEmpty(name));
}

void CommandLine::AddOption(const char* name, const char* type, std::optional<std::string>* value,
                            const std::string& help) {
    parser_->add_option_function<std::string>(
                   name, [value](const std::string& given) { *value = given; }, help)
            ->type_name(type)
            ->take_last();
}

void CommandLine::AddOption(const char* name, const char* type, std::vector<std::string>* values,
                            const std::string& help) {
    parser_->add_option(name, *values, help)->type_name(type)->allow_extra_args(kOneEach);
}

void CommandLine::AddListOption(const char* name, const char* type,
                                std::vector<std::string>* values, const std::string& help) {
    parser_->add_option(name, *values, help)
            ->type_name(type)
            ->delimiter(',')
            ->allow_extra_args(kOneEach);
}

void CommandLine::AddGreedyOption(const char* name, const char* type,
                                  std::vector<std::string>* values, const std::string& help) {
    parser_->add_option(name, *values, help)->type_name(type)->check(NotEmpty(name));
}

void CommandLine::AddNumber(const char* name, const char* type, int least, int most, int* value,
                            const std::string& help) {
    const std::string range = std::to_string(least) + " to " + std::to_string(most);
    const auto check = [=](const std::string& text) -> std::string {
        int number;
        if (android::base::ParseInt(text, &number, least, most)) return "";
        return "expected a number from " + range + ", not " + Quoted(text);
    };
    const std::string values = " (" + range + "; default: " + std::to_string(*value) + ")";
    parser_->add_option(name, *value, help + values)->type_name(type)->check(check, "");
}

void CommandLine::AddChoice(const char* name, const std::vector<std::string>& words,
                            std::string* value, const std::string& help) {
    const auto check = [=](const std::string& text) -> std::string {
        if (std::find(words.begin(), words.end(), text) != words.end()) return "";
        return "expected " + android::base::Join(words, " or ") + ", not " + Quoted(text);
    };
    parser_->add_option(name, *value, help)
            ->type_name(android::base::Join(words, '|'))
            ->check(check, "")
            ->take_last();
}

void CommandLine::AddToHelp(const char* name, const char* type, const std::string& help) {
    parser_->add_option(name, help)->type_name(type);
}

void CommandLine::AddVersion(const std::string& version) {
    parser_->set_version_flag("--version", version, "Print the version");
}

void CommandLine::AddCommand(const char* name, const char* summary) {
    parser_->require_subcommand(1);
    parser_->add_subcommand(name, summary)->group("Commands");
}

void CommandLine::Exclude(const char* name, const std::vector<const char*>& others) {
    for (const char* other : others) {
        parser_->get_option(name)->excludes(parser_->get_option(other));
    }
}

void CommandLine::AddFooter(const std::string& text) {
    parser_->footer(parser_->get_footer() + text);
}

void CommandLine::FailWithout(const std::string& argument) const {
    throw InputError(argument + " is required" + SeeHelp());
}

std::function<std::string(std::string)> CommandLine::NotEmpty(const std::string& name) const {
    return [error = name + " is empty" + SeeHelp()](const std::string& given) -> std::string {
        if (given.empty()) throw InputError(error);
        return "";
    };
}

std::string CommandLine::SeeHelp() const {
    return "; see " + parser_->get_name() + " --help";
}

std::string CommandLine::UnexpectedText() const {
    constexpr size_t kNear = 3;
    std::vector<std::string> known;
    for (const CLI::Option* option : parser_->get_options()) {
        for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
    }
    const std::vector<std::string> unexpected = parser_->remaining();
    const std::string name = unexpected[0].substr(0, unexpected[0].find('='));
    const std::string nearest = Nearest(name, known, std::min(kNear, name.size() / 3));
    return "unexpected " + Quoted(unexpected[0]) +
           (nearest.empty() ? SeeHelp() : Suggestion(nearest));
}

std::string CommandLine::MismatchText(const std::string& error) const {
    const std::string name = error.substr(0, error.find(':'));
    const CLI::Option* option = parser_->get_option_no_throw(name);
    if (option == nullptr) return error;
    return name + (option->count() == 0 ? ": expected " + option->get_type_name()
                                        : " is given more than once");
}

// Throws InputError for a word such as "--html=", after which CLI11 takes the next word for the
// value, whatever that is.
void CommandLine::RefuseEmptyValues(const std::vector<std::string>& words) const {
    for (const std::string& word : words) {
        if (word == "--") return;
        if (!android::base::StartsWith(word, "--") || word.back() != '=') continue;
        const std::string name = word.substr(0, word.size() - 1);
        const CLI::Option* option = parser_->get_option_no_throw(name);
        if (option != nullptr && option->get_items_expected_max() > 0) {
            throw InputError(name + " is empty" + SeeHelp());
        }
    }
}

bool CommandLine::Parse(std::vector<std::string> words) {
    RefuseEmptyValues(words);
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
    try {
        parser_->parse(words);
        return true;
    } catch (const CLI::ExtrasError&) {
        throw InputError(UnexpectedText());
    } catch (const CLI::ArgumentMismatch& error) {
        throw InputError(MismatchText(error.what()));
    } catch (const CLI::RequiredError& error) {
        if (!parser_->get_subcommands({}).empty()) FailWithout("COMMAND");
        throw InputError(error.what() + SeeHelp());
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) throw InputError(error.what());
        parser_->exit(error);
        return false;
    }
}

}  // namespace extprop
