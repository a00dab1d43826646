// Command lines, read by CLI11.
#include "arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace arguments {

option* option::range(long least, long most) {
    real_->check(CLI::Range(least, most));
    return this;
}

option* option::real_range(double least, double most) {
    real_->check(CLI::Range(least, most));
    return this;
}

option* option::one_of(const std::vector<std::string>& words) {
    real_->check(CLI::IsMember(words));
    return this;
}

option* option::existing_folder() {
    real_->check(CLI::ExistingDirectory);
    return this;
}

option* option::existing_file() {
    real_->check(CLI::ExistingFile);
    return this;
}

option* option::comma_separated() {
    real_->delimiter(',');
    return this;
}

option* option::one_value() {
    real_->allow_extra_args(false);
    return this;
}

option* option::excludes(option* other) {
    real_->excludes(other->real_);
    return this;
}

option* option::needs(option* other) {
    real_->needs(other->real_);
    return this;
}

option* option::required() {
    real_->required();
    return this;
}

option* option::placeholder(const std::string& text) {
    real_->option_text(text);
    return this;
}

option* option::show_default() {
    real_->capture_default_str();
    return this;
}

parser::parser(const std::string& description, const std::string& program)
    : app_(std::make_unique<CLI::App>(description, program)) {}

parser::~parser() = default;

option* parser::keep(CLI::Option* made, const std::string& help) {
    if (help.empty())
        made->group("");
    return &options_.emplace_back(made);
}

template<class Value>
option* parser::add(const std::string& names, Value& into, const std::string& help) {
    return keep(app_->add_option(names, into, help), help);
}

option* parser::add_option(const std::string& names, std::string& into, const std::string& help) {
    return add(names, into, help);
}

option* parser::add_option(const std::string& names, int& into, const std::string& help) {
    return add(names, into, help);
}

option* parser::add_option(const std::string& names, long& into, const std::string& help) {
    return add(names, into, help);
}

option* parser::add_option(const std::string& names, std::uint32_t& into, const std::string& help) {
    return add(names, into, help);
}

option* parser::add_option(const std::string& names, std::size_t& into, const std::string& help) {
    return add(names, into, help);
}

option* parser::add_option(const std::string& names, double& into, const std::string& help) {
    return add(names, into, help);
}

option* parser::add_option(const std::string& names, std::vector<std::string>& into,
                           const std::string& help) {
    return add(names, into, help);
}

option* parser::add_option(const std::string& names, std::vector<int>& into,
                           const std::string& help) {
    return add(names, into, help);
}

option* parser::add_option(const std::string& names, std::function<void(const std::string&)> take,
                           const std::string& help) {
    return keep(app_->add_option_function<std::string>(names, std::move(take), help), help);
}

option* parser::add_flag(const std::string& names, bool& into, const std::string& help) {
    return keep(app_->add_flag(names, into, help), help);
}

void parser::set_version(const std::string& text) {
    app_->set_version_flag("--version", text, "Show the version and how it was built");
}

void parser::own_help() {
    app_->set_help_flag();
}

std::string parser::help() const {
    return app_->help();
}

bool parser::parse(std::vector<std::string> words, std::ostream& out) {
    std::reverse(words.begin(), words.end()); // CLI11 takes them from the end
    try {
        app_->parse(std::move(words));
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() != 0)
            throw fault(e.what());
        app_->exit(e, out, out);
        return false;
    }
    return true;
}

bool read_number(const std::string& text, double& into) {
    double number = 0;
    const bool read = CLI::detail::lexical_cast(text, number);
    into = read ? number : into;
    return read;
}

bool read_number(const std::string& text, long& into) {
    long number = 0;
    const bool read = CLI::detail::lexical_cast(text, number);
    into = read ? number : into;
    return read;
}

std::vector<std::string> split_at_commas(const std::string& text) {
    return CLI::detail::split(text, ',');
}

} // namespace arguments
