// SPDX-License-Identifier: MIT
#include "options.h"

#include <CLI/CLI.hpp>

#include <QString>

namespace {

/// Returns whether @p text is a number from @p lowest to @p highest.
bool isBetween(const std::string &text, double lowest, double highest)
{
    double value = 0;
    return CLI::detail::lexical_cast(text, value) && value >= lowest && value <= highest;
}

CLI::Validator numbers(const std::function<bool(const std::string &)> &isAccepted, const QString &what)
{
    const auto check = [isAccepted, what](const std::string &text) {
        return isAccepted(text)
                   ? std::string()
                   : QString("'%1' is not %2").arg(QString::fromStdString(text), what).toStdString();
    };
    return CLI::Validator(check, "");
}

QString rangeText(double lowest, double highest)
{
    return QString("a number from %1 to %2").arg(lowest).arg(highest);
}

} // namespace

Option Option::required(bool isRequired) const
{
    return Option(mOption->required(isRequired));
}

Option Option::type(const std::string &name) const
{
    return Option(mOption->type_name(name));
}

Option Option::showDefault() const
{
    return Option(mOption->capture_default_str());
}

Option Option::oneOf(const std::vector<std::string> &words) const
{
    mOption->check(CLI::IsMember(words).description(""));
    return type(CLI::detail::join(words, "|"));
}

Option Option::between(double lowest, double highest) const
{
    const auto isAccepted = [=](const std::string &text) { return isBetween(text, lowest, highest); };
    return Option(mOption->check(numbers(isAccepted, rangeText(lowest, highest))));
}

Option Option::zeroOrBetween(double lowest, double highest) const
{
    const auto isAccepted = [=](const std::string &text) {
        return isBetween(text, 0, 0) || isBetween(text, lowest, highest);
    };
    return Option(mOption->check(numbers(isAccepted, "0 or " + rangeText(lowest, highest))));
}

Option Option::excludes(const Option &other) const
{
    return Option(mOption->excludes(other.mOption));
}

Option Option::excludes(const std::string &other) const
{
    return Option(mOption->excludes(other));
}

Option Option::needs(const Option &other) const
{
    return Option(mOption->needs(other.mOption));
}

bool Option::isGiven() const
{
    return mOption->count() > 0;
}

std::string Option::name() const
{
    return mOption->get_name();
}

std::vector<std::string> Option::values() const
{
    return mOption->results();
}

Option Command::option(const std::string &names, std::string &value, const std::string &description) const
{
    return Option(mApp->add_option(names, value, description));
}

Option Command::option(const std::string &names, int &value, const std::string &description) const
{
    return Option(mApp->add_option(names, value, description));
}

Option Command::option(const std::string &names, double &value, const std::string &description) const
{
    return Option(mApp->add_option(names, value, description));
}

Option Command::option(const std::string &names, std::optional<double> &value,
                       const std::string &description) const
{
    return Option(mApp->add_option(names, value, description));
}

Option Command::option(const std::string &names, const Set &set, const std::string &description) const
{
    return Option(mApp->add_option_function<std::string>(names, set, description));
}

Option Command::option(const std::string &names, const SetAll &set, const std::string &description) const
{
    return Option(mApp->add_option_function<std::vector<std::string>>(names, set, description));
}

Option Command::repeatedOption(const std::string &name, const std::string &description) const
{
    return Option(mApp->add_option(name, description)
                      ->expected(1, CLI::detail::expected_max_vector_size)
                      ->allow_extra_args(false)
                      ->take_all());
}

Option Command::flag(const std::string &names, bool &value, const std::string &description) const
{
    return Option(mApp->add_flag(names, value, description));
}

Option Command::flag(const std::string &names, const std::function<void()> &set,
                     const std::string &description) const
{
    return Option(mApp->add_flag_callback(names, set, description));
}

void Command::example(const std::string &command) const
{
    mApp->footer("Example: " + command);
}
