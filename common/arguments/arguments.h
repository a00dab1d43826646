// Options and words of a program's command line, for all programs of this project:
//
//     arguments::parser app("Answers moncl from this host's kernel.", "monsrv");
//     int port = 5757;
//     app.add_option("--port", port, "Port to listen at")->range(0, 65535)->show_default();
//     if (!app.parse(words, std::cout)) // throws arguments::fault
//         return 0;                     // help was shown
//
// The parser stores values in the variables given to it, which have to outlive it.
#ifndef MONCL_COMMON_ARGUMENTS_H
#define MONCL_COMMON_ARGUMENTS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace arguments {

/// A command line that cannot be used; what() says why, for people.
struct fault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// An option of a parser, which owns it. Each call returns the option itself.
class option {
public:
    explicit option(CLI::Option* real) : real_(real) {}

    /// Takes whole numbers from @p least to @p most.
    option* range(long least, long most);
    /// Takes numbers, whole or not, from @p least to @p most.
    option* real_range(double least, double most);
    /// Takes one of these words.
    option* one_of(const std::vector<std::string>& words);
    /// Takes the path of a folder, or of a file, that exists.
    option* existing_folder();
    option* existing_file();
    /// Splits a value at commas.
    option* comma_separated();
    /// Takes one value each time it is given, so that the words after it stay words.
    option* one_value();
    /// Cannot be given together with @p other, or not without it, or never be left out.
    option* excludes(option* other);
    option* needs(option* other);
    option* required();
    /// What stands for the value in the help, such as "FILE".
    option* placeholder(const std::string& text);
    /// Shows the variable's present value in the help.
    option* show_default();

private:
    CLI::Option* real_;
};

/// A command line: declare its options, then parse it once.
class parser {
public:
    /// Has `-h,--help`, unless `own_help` is called.
    parser(const std::string& description, const std::string& program);
    ~parser();
    parser(const parser&) = delete;
    parser& operator=(const parser&) = delete;

    /// Options, by names such as "-p,--pid", and their help. A name without dashes takes words that
    /// belong to no option; without help it is left out of the help.
    option* add_option(const std::string& names, std::string& into, const std::string& help);
    option* add_option(const std::string& names, int& into, const std::string& help);
    option* add_option(const std::string& names, long& into, const std::string& help);
    option* add_option(const std::string& names, std::uint32_t& into, const std::string& help);
    option* add_option(const std::string& names, std::size_t& into, const std::string& help);
    option* add_option(const std::string& names, double& into, const std::string& help);
    option* add_option(const std::string& names, std::vector<std::string>& into,
                       const std::string& help);
    option* add_option(const std::string& names, std::vector<int>& into, const std::string& help);
    /// An option whose value goes to @p take, which may throw a fault.
    option* add_option(const std::string& names, std::function<void(const std::string&)> take,
                       const std::string& help);
    option* add_flag(const std::string& names, bool& into, const std::string& help);
    /// Adds --version, which shows @p text, a line and how the program was built.
    void set_version(const std::string& text);
    /// Leaves help to the program.
    void own_help();

    /// The help that the options make.
    std::string help() const;
    /// Reads @p words, the command line without the program's name.
    /// @return false if help or version was asked for; it has been written to @p out
    /// @throws fault
    bool parse(std::vector<std::string> words, std::ostream& out);

private:
    option* keep(CLI::Option* made, const std::string& help);
    template<class Value>
    option* add(const std::string& names, Value& into, const std::string& help);

    std::unique_ptr<CLI::App> app_;
    std::deque<option> options_;
};

/// Reads the whole of @p text as a decimal number.
/// @return whether it is one; @p into is unchanged if not
bool read_number(const std::string& text, double& into);
bool read_number(const std::string& text, long& into);

/// The parts of @p text between commas.
std::vector<std::string> split_at_commas(const std::string& text);

} // namespace arguments

#endif
