// SPDX-License-Identifier: MIT
#ifndef FILELIST_H
#define FILELIST_H

#include "options.h"

#include <string>
#include <vector>

/// The options --files-from and --null of a command that takes the names of files.
class FileList
{
public:
    /// This list must exist for as long as the command does.
    void addOptions(const Command &command);

    bool isGiven() const { return mOption.isGiven(); }

    /// The names in the file, byte for byte; none if isGiven() is false. Throws Failure if the file cannot be
    /// read, and UsageError if it is empty or, without --null, contains null characters.
    std::vector<std::string> names() const;

private:
    Option mOption;
    std::string mPath;
    bool mIsNull = false;
};

/// The values of @p arguments, and then the names in @p list. Throws UsageError if there are none.
std::vector<std::string> namesIn(const Option &arguments, const FileList &list);

#endif // FILELIST_H
