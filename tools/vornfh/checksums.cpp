// SPDX-License-Identifier: MIT
#include "checksums.h"

#include "durable.h"
#include "errors.h"
#include "files.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>

namespace {

constexpr int SUM_LENGTH = 64;

/// The characters that sha256sum(1) escapes in names, and the letters that stand for them after a backslash.
constexpr std::pair<char, char> ESCAPES[] = {{'\\', '\\'}, {'\n', 'n'}, {'\r', 'r'}};

QByteArray escaped(const QByteArray &name)
{
    QByteArray result;
    for (const char c : name) {
        const auto *const escape = std::find_if(std::begin(ESCAPES), std::end(ESCAPES),
                                                [c](const auto &one) { return one.first == c; });
        if (escape == std::end(ESCAPES))
            result += c;
        else
            result.append('\\').append(escape->second);
    }
    return result;
}

/// The reverse of escaped(); nullopt if @p text contains an escape that is not in ESCAPES.
std::optional<QByteArray> unescaped(const QByteArray &text)
{
    QByteArray name;
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            name += text[i];
            continue;
        }
        const char letter = ++i < text.size() ? text[i] : '\0';
        const auto *const escape = std::find_if(std::begin(ESCAPES), std::end(ESCAPES),
                                                [letter](const auto &one) { return one.second == letter; });
        if (escape == std::end(ESCAPES))
            return std::nullopt;
        name += escape->first;
    }
    return name;
}

/// A line that begins with a backslash has escapes in its name.
QByteArray lineOf(const QByteArray &name, const QByteArray &sum)
{
    const QByteArray text = escaped(name);
    return (text == name ? "" : "\\") + sum + "  " + text;
}

/// The name and the sum in @p line; nullopt for a line in another format.
std::optional<std::pair<QByteArray, QByteArray>> parsed(const QByteArray &line)
{
    const bool hasEscapes = line.startsWith('\\');
    const QByteArray rest = line.mid(hasEscapes ? 1 : 0);
    const QByteArray sum = rest.left(SUM_LENGTH);
    const QByteArray separator = rest.mid(SUM_LENGTH, 2); // the second is "*" for a file read in binary mode
    const QByteArray text = rest.mid(SUM_LENGTH + 2);
    const bool isSum = sum.size() == SUM_LENGTH
                       && std::all_of(sum.begin(), sum.end(), [](uchar c) { return std::isxdigit(c) != 0; });
    const auto name = hasEscapes ? unescaped(text) : std::optional(text);
    // A carriage return is not part of the name; the line stays as it is.
    if (!isSum || text.endsWith('\r') || (separator != "  " && separator != " *") || !name || name->isEmpty())
        return std::nullopt;
    return std::pair(*name, sum);
}

} // namespace

Checksums::Checksums(const QString &folder) : mFolder(folder), mPath(folder + "/SHA256SUMS")
{
    read();
}

void Checksums::set(const QString &path, const QByteArray &sum)
{
    mSums[QFile::encodeName(path.mid(mFolder.size() + 1))] = sum;
}

Checksums::Content Checksums::read() const
{
    Content content;
    if (!QFileInfo::exists(mPath))
        return content;
    const Descriptor file = openFile(mPath, O_RDONLY | O_NONBLOCK);
    struct stat status = {};
    const bool isOpen = file.isOpen() && ::fstat(file.get(), &status) == 0;
    QByteArray text(static_cast<int>(status.st_size), '\0');
    if (!isOpen || !readAt(file.get(), 0, text))
        throw FileFailure(mPath, "cannot be read: " + errorText(errno));
    for (const QByteArray &line : text.split('\n')) {
        if (const auto entry = parsed(line))
            content.sums[entry->first] = entry->second;
        else if (!line.isEmpty())
            content.others.append(line);
    }
    return content;
}

/// The new content of the file. @p folder is the open folder.
QByteArray Checksums::merged(int folder)
{
    const auto exists = [this, folder](const QByteArray &name) {
        struct stat status = {};
        if (!mFound.contains(name) && ::fstatat(folder, name.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0
            && (errno == ENOENT || errno == ENOTDIR))
            return false;
        mFound.insert(name);
        return true;
    };
    const Content before = read();
    std::map<QByteArray, QByteArray> sums = mSums;
    for (const auto &[name, sum] : before.sums) {
        if (mSums.find(name) == mSums.end() && exists(name))
            sums[name] = sum;
    }
    QByteArrayList lines = before.others;
    for (const auto &[name, sum] : sums)
        lines.append(lineOf(name, sum));
    return lines.join('\n') + "\n";
}

void Checksums::save()
{
    // Another vornfh may be adding its lines. Some network file systems cannot lock a folder.
    const Descriptor folder = openFolder(mFolder);
    ::flock(folder.get(), LOCK_EX);
    TemporaryFile file(mFolder, mPath);
    const QByteArray content = merged(folder.get());
    QFile writer;
    const bool isWritten = writer.open(file.descriptor(), QIODevice::WriteOnly)
                           && writer.write(content) == content.size() && writer.flush();
    if (!isWritten)
        throw FileFailure(mPath, "cannot be written: " + writer.errorString());
    setModeFrom(mPath, file.descriptor());
    replaceFile(file, mPath);
}
