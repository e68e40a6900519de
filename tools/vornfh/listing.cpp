// SPDX-License-Identifier: MIT
#include "listing.h"

#include "errors.h"
#include "files.h"
#include "media.h"
#include "objects.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

using Extensions = std::vector<std::string>;

Extensions toExtensions(const QStringList &texts)
{
    Extensions result;
    for (const QString &text : texts)
        result.push_back(text.toStdString());
    return result;
}

bool isAscii(const char *name)
{
    return std::all_of(name, name + qstrlen(name), [](char c) { return static_cast<signed char>(c) > 0; });
}

/// Like a name filter of QDir, this ignores case.
bool hasExtension(const char *name, const Extensions &extensions)
{
    const char *const dot = std::strrchr(name, '.');
    return extensions.empty()
           || (dot && std::any_of(extensions.begin(), extensions.end(), [dot](const std::string &extension) {
                   return qstricmp(dot + 1, extension.c_str()) == 0;
               }));
}

/// The digits of @p msecs since 1970 in local time; nullopt outside the range in which localtime_r() and
/// QDateTime agree: from 1970 to 2037, except in leap seconds. QFileInfo takes 0 to mean that there is no
/// time.
std::optional<ClockDigits> toDigits(qint64 msecs)
{
    constexpr std::time_t END_OF_2037 = 2145916799;
    const std::time_t seconds = msecs / 1000;
    std::tm local = {};
    if (msecs <= 0 || seconds >= END_OF_2037 || !::localtime_r(&seconds, &local) || local.tm_sec > 59)
        return std::nullopt;
    ClockDigits digits = local.tm_year + 1900;
    for (const int part : {local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec})
        digits = digits * 100 + part;
    return digits * 1000 + msecs % 1000;
}

/// Reads the status of the file @p name in the open folder @p descriptor; nullopt if it cannot be read or a
/// value is unusual.
std::optional<PlainFile> readFile(int descriptor, const char *name)
{
    struct statx status = {};
    if (::statx(descriptor, name, 0, STATX_BASIC_STATS | STATX_BTIME, &status) != 0)
        return std::nullopt;
    PlainFile file;
    file.name = name;
    file.size = static_cast<qint64>(status.stx_size);
    file.modifiedMsecs = toMsecs(status.stx_mtime);
    file.createdMsecs = creationTime(status);
    file.isProtected = isProtectedMode(status.stx_mode);
    const auto created = toDigits(file.createdMsecs);
    const auto modified = toDigits(file.modifiedMsecs);
    if (!created || !modified)
        return std::nullopt;
    file.created = *created;
    file.modified = *modified;
    return file;
}

bool isProtected(int descriptor, const char *name)
{
    struct statx status = {};
    return ::statx(descriptor, name, 0, STATX_TYPE | STATX_MODE, &status) == 0
           && isProtectedMode(status.stx_mode);
}

} // namespace

std::optional<std::vector<PlainFile>> listPlainFiles(const QString &folder, const QStringList &extensions,
                                                     QSet<QByteArray> *thumbnails)
{
    static const Extensions THUMBNAILS = toExtensions({VORN_FILE_HANDLER::THUMB_FILE_EXT});
    const Extensions endings = toExtensions(extensions);
    static const Extensions MEDIA = toExtensions(::extensions());
    std::vector<PlainFile> files;
    ProtectedObjects marked;
    bool isPlain = folder != "/" && !folder.contains(':'); // a ":" could mark a path that only Qt resolves
    const bool isRead = forEachEntry(folder, [&](int descriptor, const dirent &entry) {
        const char *const name = entry.d_name;
        if (!isPlain || name[0] == '.') // hidden
            return;
        isPlain = entry.d_type != DT_UNKNOWN && isAscii(name);
        if (!isPlain || entry.d_type != DT_REG)
            return;
        if (thumbnails && hasExtension(name, THUMBNAILS))
            thumbnails->insert(basePath(name));
        if (!hasExtension(name, endings)) {
            // It may belong to the object of a file that is listed.
            if (hasExtension(name, MEDIA) && isProtected(descriptor, name))
                marked.add(name);
            return;
        }
        const auto file = readFile(descriptor, name);
        isPlain = file.has_value();
        if (!file)
            return;
        files.push_back(*file);
        if (file->isProtected)
            marked.add(name);
    });
    if (!isRead && errno != ENOENT && errno != ENOTDIR)
        throw FileFailure(folder, errorText(errno));
    if (!isRead || !isPlain)
        return std::nullopt;
    if (!marked.isEmpty()) {
        for (PlainFile &file : files)
            file.isProtected = marked.contains(QByteArray::fromStdString(file.name));
    }
    // Files with the same time are in reverse order of their names: QDir reverses the list as a whole.
    std::sort(files.begin(), files.end(), [](const PlainFile &one, const PlainFile &other) {
        return one.modified != other.modified ? one.modified < other.modified : one.name > other.name;
    });
    return files;
}

QByteArray dateText(ClockDigits time)
{
    const QByteArray digits = QByteArray::number(time);
    return digits.mid(0, 4) + '-' + digits.mid(4, 2) + '-' + digits.mid(6, 2);
}

QByteArray clockText(ClockDigits time)
{
    const QByteArray digits = QByteArray::number(time);
    return digits.mid(8, 2) + ':' + digits.mid(10, 2) + ':' + digits.mid(12, 2);
}
