// SPDX-License-Identifier: MIT
#include "filelist.h"

#include "errors.h"
#include "files.h"
#include "text.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// The whole content of the file @p path or, if that is "-", of standard input.
std::string contentOf(const std::string &path)
{
    const bool isStandardInput = path == "-";
    const Descriptor file(isStandardInput ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 1 << 16> block = {};
    std::string content;
    ssize_t count = -1;
    while (file.isOpen() && (count = ::read(file.get(), block.data(), block.size())) > 0)
        content.append(block.data(), static_cast<size_t>(count));
    if (count < 0)
        throw FileFailure(isStandardInput ? "standard input" : printable(QByteArray::fromStdString(path)),
                          errorText(errno));
    return content;
}

/// The parts of @p content that end with @p separator; the last one need not.
std::vector<std::string> divided(const std::string &content, char separator)
{
    std::vector<std::string> parts;
    for (size_t begin = 0, end = 0; begin < content.size(); begin = end + 1) {
        end = std::min(content.find(separator, begin), content.size());
        parts.push_back(content.substr(begin, end - begin));
    }
    return parts;
}

} // namespace

void FileList::addOptions(const Command &command)
{
    mOption = command.option("--files-from", mPath,
                             "Also take file names from FILE, one per line; - is standard input");
    mOption.type("FILE|-");
    command.flag("-0,--null", mIsNull, "With --files-from: each name ends with a null character")
        .needs(mOption);
}

std::vector<std::string> FileList::names() const
{
    if (!isGiven())
        return {};
    if (mPath.empty())
        throw UsageError("--files-from: the path is empty");
    const std::string content = contentOf(mPath);
    const QString path = QString::fromStdString(mPath);
    if (content.empty())
        throw UsageError(QString("--files-from: '%1' contains no names").arg(path));
    // A path ends at its first null character.
    if (!mIsNull && content.find('\0') != std::string::npos)
        throw UsageError(QString("--files-from: '%1' contains null characters; use --null").arg(path));
    return divided(content, mIsNull ? '\0' : '\n');
}

std::vector<std::string> namesIn(const Option &arguments, const FileList &list)
{
    std::vector<std::string> names = arguments.values();
    if (names.empty() && !list.isGiven())
        throw UsageError(QString::fromStdString(arguments.name()) + " is required");
    for (const std::string &name : list.names())
        names.push_back(name);
    return names;
}
