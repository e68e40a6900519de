// SPDX-License-Identifier: MIT
#include "report.h"

#include "errors.h"
#include "files.h"
#include "media.h"
#include "numbering.h"
#include "output.h"

#include <QByteArrayList>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

Format theFormat = Format::Text;
bool theDryRun = false;
bool hasResults = false;
QByteArrayList theResults;  // of a document
QByteArrayList theFailures; // of a document

/// What the path of a file determines.
struct Identity {
    QString folder; // its name
    int number = 0; // 0 if the name does not follow the numbering scheme
    QString type;
};

Identity identify(const FileFacts &file)
{
    const QString &path = file.path;
    const int slash = path.lastIndexOf('/');
    const QString name = path.mid(slash + 1);
    const QString folder = path.left(std::max(slash, 0));
    if (file.isFolder)
        return {folder.mid(folder.lastIndexOf('/') + 1), 0, "folder"};
    const MediaType *type = findType(name);
    const int dot = name.lastIndexOf('.');
    return {folder.mid(folder.lastIndexOf('/') + 1), objectNumber(name.left(dot).toUtf8()),
            type ? type->extension : "other"};
}

QByteArray compact(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray quoted(const QString &text)
{
    return '"' + jsonText(text) + '"';
}

QByteArray numberOrNull(const std::optional<qint64> &number)
{
    return number ? QByteArray::number(*number) : "null";
}

/// "2025-02-25T14:03:59.123+01:00": a time in milliseconds since 1970 as a local time in the format of RFC
/// 3339; with "Z" for UTC. The year must have four digits, as RFC 3339 requires.
QByteArray timestamp(qint64 msecs)
{
    constexpr int THOUSAND = 1000;
    constexpr int MINUTE = 60;
    const qint64 rest = (msecs % THOUSAND + THOUSAND) % THOUSAND;
    const std::time_t seconds = (msecs - rest) / THOUSAND;
    std::tm local = {};
    ::localtime_r(&seconds, &local);
    char text[32];
    const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    const QByteArray time =
        QByteArray(text, static_cast<int>(length)) + '.' + QByteArray::number(rest + THOUSAND).mid(1);
    if (local.tm_gmtoff == 0)
        return time + 'Z';
    const long offset = std::labs(local.tm_gmtoff) / MINUTE;
    std::snprintf(text, sizeof text, "%c%02ld:%02ld", local.tm_gmtoff < 0 ? '-' : '+', offset / MINUTE,
                  offset % MINUTE);
    return time + QByteArray(text);
}

QByteArray timeOrNull(const std::optional<qint64> &time)
{
    constexpr qint64 YEAR_1000 = -30610224000000;
    constexpr qint64 YEAR_9999 = 253370764800000;
    return time && *time >= YEAR_1000 && *time < YEAR_9999 ? '"' + timestamp(*time) + '"' : "null";
}

QByteArray flagOrNull(const std::optional<bool> &flag)
{
    return !flag ? "null" : *flag ? "true" : "false";
}

/// The facts that one status query returns.
FileFacts statusFacts(const QString &path)
{
    FileFacts facts = fileAt(path);
    struct statx status = {};
    const QByteArray name = QFile::encodeName(path);
    if (::statx(AT_FDCWD, name.constData(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &status)
        != 0)
        return facts;
    facts.size = static_cast<qint64>(status.stx_size);
    facts.created = creationTime(status);
    facts.modified = toMsecs(status.stx_mtime);
    facts.isProtected = isProtectedMode(status.stx_mode);
    return facts;
}

void addFailure(const Failure &failure)
{
    const auto *file = dynamic_cast<const FileFailure *>(&failure);
    const QString error = file ? file->reason() : QString::fromUtf8(failure.what());
    const QByteArray object =
        "{\"path\":" + (file ? quoted(file->path()) : "null") + ",\"error\":" + quoted(error) + '}';
    if (theFormat == Format::Document)
        theFailures.append(object);
    else
        printResult(object);
}

} // namespace

FileFacts fileAt(const QString &path)
{
    FileFacts file;
    file.path = path;
    return file;
}

FileFacts folderAt(const QString &path)
{
    FileFacts folder = fileAt(path);
    folder.isFolder = true;
    return folder;
}

FileFacts factsOf(const QString &path)
{
    return factsOfObject({path}).front();
}

std::vector<FileFacts> factsOfObject(const QStringList &paths)
{
    std::vector<FileFacts> files;
    for (const QString &path : paths)
        files.push_back(isJson() ? statusFacts(path) : fileAt(path));
    if (!isJson())
        return files;
    const auto isThumbnail = [](const FileFacts &file) { return kindOf(file.path) == THUMBNAIL; };
    const auto isMarked = [](const FileFacts &file) { return file.isProtected.value_or(false); };
    const auto thumbnail = std::find_if(files.begin(), files.end(), isThumbnail);
    const bool isProtected = std::any_of(files.begin(), files.end(), isMarked);
    for (FileFacts &file : files) {
        if (hasThumbnails(file.path))
            file.thumbnail = thumbnail != files.end() ? thumbnail->path : thumbnailBeside(file.path);
        if (isProtected)
            file.isProtected = true;
    }
    return files;
}

FileFacts factsOf(const NumberedFolder &folder, const Object &object, const ObjectFile &file)
{
    FileFacts facts = fileAt(folder.pathOf(file));
    if (object.files.back().isThumbnail() && hasThumbnails(facts.path))
        facts.thumbnail = folder.pathOf(object.files.back());
    if (file.error != 0)
        return facts;
    facts.size = file.size;
    facts.created = file.createdMsecs;
    facts.modified = file.modifiedMsecs;
    facts.isProtected = object.isProtected();
    return facts;
}

QByteArray toJson(const FileFacts &file, QJsonObject more)
{
    if (theDryRun && more.contains("action"))
        more["dryRun"] = true;
    const Identity identity = identify(file);
    const QByteArray object =
        "{\"path\":" + quoted(file.path) + ",\"folder\":" + quoted(identity.folder)
        + ",\"number\":" + (identity.number > 0 ? QByteArray::number(identity.number) : "null")
        + ",\"type\":" + quoted(identity.type) + ",\"size\":" + numberOrNull(file.size)
        + ",\"created\":" + timeOrNull(file.created) + ",\"modified\":" + timeOrNull(file.modified)
        + ",\"thumbnail\":" + (file.thumbnail.isEmpty() ? "null" : quoted(file.thumbnail))
        + ",\"protected\":" + flagOrNull(file.isProtected);
    return more.isEmpty() ? object + '}' : object + ',' + compact(more).mid(1);
}

QJsonObject identityOf(const FileFacts &file)
{
    const Identity identity = identify(file);
    return {{"path", file.path},
            {"folder", identity.folder},
            {"number", identity.number > 0 ? QJsonValue(identity.number) : QJsonValue()},
            {"type", identity.type}};
}

QByteArray jsonText(const QString &text)
{
    const auto isPlain = [](QChar c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; };
    if (std::all_of(text.begin(), text.end(), isPlain))
        return text.toLatin1();
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.mid(2, array.size() - 4); // without [" and "]
}

void setFormat(Format format)
{
    theFormat = format;
    setFailureObserver(format == Format::Text ? nullptr : addFailure);
}

void setDryRun()
{
    theDryRun = true;
    expectNoChanges();
}

Format format()
{
    return theFormat;
}

bool isJson()
{
    return theFormat != Format::Text;
}

QByteArray nextResult(const QByteArray &object)
{
    const bool isFirst = !std::exchange(hasResults, true);
    if (theFormat == Format::JsonLines)
        return object + '\n';
    return (isFirst ? "[\n" : ",\n") + object;
}

void printResult(const QByteArray &object)
{
    if (theFormat == Format::Document)
        theResults.append(object);
    else
        printLines(nextResult(object));
}

void printResult(const QJsonObject &object)
{
    printResult(compact(object));
}

void reportDone(const QString &line, const std::function<QByteArray()> &object)
{
    if (!isJson()) {
        printDone(line);
        return;
    }
    printResult(object());
    printIfLost({line});
}

void printDocument(const char *key, const QJsonObject &summary)
{
    const auto array = [](const QByteArrayList &objects) {
        return objects.isEmpty() ? QByteArray("[]") : "[\n" + objects.join(",\n") + "\n]";
    };
    printLines(QByteArray("{\"") + key + "\":" + array(theResults) + ",\n\"errors\":" + array(theFailures)
               + (summary.isEmpty() ? "" : ",\n") + compact(summary).mid(1) + '\n');
}

void finishReport()
{
    if (theFormat == Format::Json)
        printLines(hasResults ? "\n]\n" : "[\n]\n");
}
