// SPDX-License-Identifier: MIT
#ifndef NAMES_H
#define NAMES_H

#include <CLI/CLI.hpp>

#include <QString>

#include <string>

/// The numbers that a player takes, and that the library gives out.
constexpr int FIRST_FOLDER = 100;
constexpr int LAST_FOLDER = 999;
constexpr int LAST_FILE = 9999;

/// A positional argument of any number of values, in results() exactly as they were given. @p name is what
/// the help shows for all of them.
CLI::Option *addNames(CLI::App &command, const std::string &name, const std::string &description);

/// Whether @p text holds what QString::arg() fills in: the library would when it builds a path.
bool holdsPlaceholder(const QString &text);

/// Throws UsageError unless @p name can be the name of a folder directly in a storage's location.
void checkFolderName(const QString &name);

#endif // NAMES_H
