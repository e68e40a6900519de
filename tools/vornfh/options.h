// SPDX-License-Identifier: MIT
#ifndef OPTIONS_H
#define OPTIONS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

// What a command accepts on its command line. The commands do without the parser's own headers, which take
// several times as long to compile as a command. Objects of both classes only refer to objects of the
// parser, and can be copied.

/// An option or an argument of a command. Each function that adds a condition returns the option itself.
class Option
{
public:
    explicit Option(CLI::Option *option = nullptr) : mOption(option) {}

    Option required(bool isRequired = true) const;
    /// What the help shows for the value; nothing if @p name is empty.
    Option type(const std::string &name) const;
    /// The help shows the value that the variable has now.
    Option showDefault() const;
    Option oneOf(const std::vector<std::string> &words) const;
    Option between(double lowest, double highest) const;
    Option zeroOrBetween(double lowest, double highest) const;
    Option excludes(const Option &other) const;
    Option excludes(const std::string &other) const; ///< the name of an existing option
    Option needs(const Option &other) const;

    bool isGiven() const;
    std::string name() const;
    /// The values exactly as they were given.
    std::vector<std::string> values() const;

private:
    CLI::Option *mOption;
};

/// A command to which options are added. The variables passed to it, and those used by functions passed to
/// it, must exist as long as the command does; a function may throw UsageError.
class Command
{
public:
    using Set = std::function<void(const std::string &)>;
    using SetAll = std::function<void(const std::vector<std::string> &)>;

    explicit Command(CLI::App &app) : mApp(&app) {}

    /// Adds an option if @p names begin with a dash, and an argument otherwise.
    Option option(const std::string &names, std::string &value, const std::string &description) const;
    Option option(const std::string &names, int &value, const std::string &description) const;
    Option option(const std::string &names, double &value, const std::string &description) const;
    Option option(const std::string &names, std::optional<double> &value,
                  const std::string &description) const;
    Option option(const std::string &names, const Set &set, const std::string &description) const;
    Option option(const std::string &names, const SetAll &set, const std::string &description) const;
    /// An option that may be given several times, each time with one value.
    Option repeatedOption(const std::string &name, const std::string &description) const;
    Option flag(const std::string &names, bool &value, const std::string &description) const;
    Option flag(const std::string &names, const std::function<void()> &set,
                const std::string &description) const;

    /// The last line of the help.
    void example(const std::string &command) const;

    CLI::App &app() const { return *mApp; }

private:
    CLI::App *mApp;
};

#endif // OPTIONS_H
