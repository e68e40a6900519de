// SPDX-License-Identifier: MIT
#include "names.h"

#include "vornfh.h"

#include <QRegularExpression>

#include <algorithm>
#include <memory>

namespace {

/// Shows a positional argument without the number of its values.
class NameOnly : public CLI::Formatter
{
public:
    std::string make_option_usage(const CLI::Option *option) const override { return option->get_name(); }
};

} // namespace

CLI::Option *addNames(CLI::App &command, const std::string &name, const std::string &description)
{
    // With an open end, which allows extra values, the parser would take a value "[a,b]" apart as a list.
    // A high number that all are taken of has no such effect, and fewer are no error.
    constexpr int PLENTY = 1 << 20;
    command.formatter(std::make_shared<NameOnly>());
    return command.add_option(name, description)
        ->expected(PLENTY)
        ->allow_extra_args(false)
        ->take_all()
        ->required()
        ->option_text(" ");
}

bool holdsPlaceholder(const QString &text)
{
    return text.contains(QRegularExpression("%L?[0-9]"));
}

void checkFolderName(const QString &name)
{
    const auto isControl = [](QChar c) { return c.category() == QChar::Other_Control; };
    const auto refuse = [&name](const QString &reason) {
        throw UsageError(QString("the folder name '%1' ").arg(name) + reason);
    };
    if (name.isEmpty())
        refuse("is empty");
    if (name == "." || name == "..")
        refuse("is no folder of the storage's own");
    if (name.contains('/'))
        refuse("holds '/': only a folder directly in the storage's location can be named");
    if (std::any_of(name.begin(), name.end(), isControl))
        refuse("holds a control character");
    if (holdsPlaceholder(name))
        refuse("holds '%' before a digit, which the library fills in when it builds a path");
}
