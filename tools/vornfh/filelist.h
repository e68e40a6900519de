// SPDX-License-Identifier: MIT
#ifndef FILELIST_H
#define FILELIST_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

/// The options --files-from and --null of a command that takes the names of files.
class FileList
{
public:
    /// The object must exist as long as the command.
    void addOptions(CLI::App &command);

    bool isGiven() const { return mOption->count() > 0; }

    /// The names in the file, byte for byte; none if isGiven() is false. Throws Failure if the file cannot be
    /// read, and UsageError if there is nothing in it.
    std::vector<std::string> names() const;

private:
    CLI::Option *mOption = nullptr;
    std::string mPath;
    bool mIsNull = false;
};

/// The values of @p arguments, and then the names in @p list. Throws UsageError if there are none.
std::vector<std::string> namesIn(const CLI::Option &arguments, const FileList &list);

#endif // FILELIST_H
