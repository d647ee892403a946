#include "commands/command_line.h"

#include <algorithm>

#include <android-base/strings.h>
#include <CLI/CLI.hpp>

#include "input_error.h"
#include "nearest.h"

namespace extprop {

namespace {

// An option takes one value each time. Otherwise it would take every word after it, also steps.
constexpr bool kOneEach = false;

}  // namespace

struct CommandLine::Parser : CLI::App {
    using CLI::App::App;
};

CommandLine::CommandLine(const std::string& program, const std::string& summary)
        : parser_(std::make_unique<Parser>(summary, program)) {}

CommandLine::~CommandLine() = default;

CommandLine::CommandLine(CommandLine&& other) noexcept = default;

void CommandLine::AddArgument(const char* name, std::string* value, const std::string& help) {
    parser_->add_option(name, *value, help)->required();
}

void CommandLine::AddArgument(const char* name, std::optional<std::string>* value,
                              const std::string& help) {
    parser_->add_option_function<std::string>(
            name, [value](const std::string& given) { *value = given; }, help);
}

void CommandLine::AddArguments(const char* name, std::vector<std::string>* values,
                               const std::string& help, bool one_at_least) {
    parser_->add_option(name, *values, help)->required(one_at_least);
}

void CommandLine::AddFlag(const char* names, bool* value, const std::string& help) {
    parser_->add_flag(names, *value, help);
}

void CommandLine::AddOption(const char* name, const char* type, std::string* value,
                            const std::string& help) {
    parser_->add_option(name, *value, help)->type_name(type);
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
    parser_->add_option(name, *values, help)->type_name(type);
}

void CommandLine::AddNumber(const char* name, const char* type, int least, int most, int* value,
                            const std::string& help) {
    parser_->add_option(name, *value, help)
            ->type_name(type)
            ->check(CLI::Range(least, most))
            ->capture_default_str();
}

void CommandLine::AddChoice(const char* name, const std::vector<std::string>& words,
                            std::string* value, const std::string& help) {
    parser_->add_option(name, *value, help)
            ->type_name(android::base::Join(words, '|'))
            ->check(CLI::IsMember(words).description(""))
            ->take_last();
}

void CommandLine::AddToHelp(const char* name, const char* type, const std::string& help) {
    parser_->add_option(name, help)->type_name(type);
}

void CommandLine::AddVersion(const std::string& version) {
    parser_->set_version_flag("--version", version);
}

void CommandLine::AddCommand(const char* name, const char* summary) {
    parser_->require_subcommand(1);
    parser_->add_subcommand(name, summary);
}

void CommandLine::Exclude(const char* name, const std::vector<const char*>& others) {
    for (const char* other : others) {
        parser_->get_option(name)->excludes(parser_->get_option(other));
    }
}

void CommandLine::AddFooter(const std::string& text) {
    parser_->footer(parser_->get_footer() + text);
}

std::string CommandLine::HintOn(const std::vector<std::string>& words) const {
    constexpr size_t kNear = 3;
    std::vector<std::string> known;
    for (const CLI::Option* option : parser_->get_options()) {
        for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
    }
    for (const std::string& word : words) {
        const std::string name = word.substr(0, word.find('='));
        if (name.rfind("--", 0) != 0 || parser_->get_option_no_throw(name) != nullptr) continue;
        return Meant(Nearest(name, known, std::min(kNear, name.size() / 3)));
    }
    return "";
}

bool CommandLine::Parse(std::vector<std::string> words) {
    const std::vector<std::string> given = words;
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
    try {
        parser_->parse(words);
        return true;
    } catch (const CLI::ExtrasError& error) {
        throw InputError(error.what() + HintOn(given));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) throw InputError(error.what());
        parser_->exit(error);
        return false;
    }
}

}  // namespace extprop
