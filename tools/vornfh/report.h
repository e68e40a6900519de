// SPDX-License-Identifier: MIT
#ifndef REPORT_H
#define REPORT_H

#include "objects.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <vector>

// The objects that describe files in JSON. docs/vornfh.schema.json is their schema.

/// What is known about a file. Times are in milliseconds since 1970.
struct FileFacts {
    QString path;
    std::optional<qint64> size;
    std::optional<qint64> created; // if the file system keeps no such time: the last status change
    std::optional<qint64> modified;
    QString thumbnail;               // the path of its thumbnail; empty if it has none
    std::optional<bool> isProtected; // the file, or another file of its object that was read
    bool isFolder = false;
};

/// A file or folder of which only the path is known.
FileFacts fileAt(const QString &path);
FileFacts folderAt(const QString &path);

/// Reads the facts of a file, with one status query and, if it is a photo or video, one for its thumbnail.
/// They are unknown if the file is missing, and not read unless isJson().
FileFacts factsOf(const QString &path);

/// The same for files of one object. No other query is needed if its thumbnail is one of them.
std::vector<FileFacts> factsOfObject(const QStringList &paths);

/// The facts of @p file, a file of @p object, as they were when @p folder was read.
FileFacts factsOf(const NumberedFolder &folder, const Object &object, const ObjectFile &file);

/// The JSON object for a file, on one line, with the members of @p more.
QByteArray toJson(const FileFacts &file, QJsonObject more = {});

/// The members of that object that the path of a file determines: path, folder, number and type.
QJsonObject identityOf(const FileFacts &file);

/// @p text as it is written between the quotes of a JSON string.
QByteArray jsonText(const QString &text);

/// How a command prints its results, one after another.
enum class Format {
    Text,
    Json,      // the elements of an array
    JsonLines, // one object on each line; also used for the only result of a command with --json
    Document,  // see printDocument()
};

/// Sets the format of this process. With JSON, printFailure() prints an object on standard output too.
void setFormat(Format format);

Format format();
bool isJson();

/// @p object as the next result, with the separator that the format needs. The caller must print it.
QByteArray nextResult(const QByteArray &object);

/// Prints an object as the next result.
void printResult(const QByteArray &object);
void printResult(const QJsonObject &object);

/// Reports something that was done on a storage device: prints @p line as printDone() does, or the result of
/// @p object in JSON.
void reportDone(const QString &line, const std::function<QByteArray()> &object);

/// From now on, a JSON object with an action says that the action is not carried out ("dryRun").
void setDryRun();

/// Prints an object: the member @p key holds the results so far, the member "errors" the failures, and the
/// members of @p summary follow. In this format, reportDone() and printFailure() only collect results and
/// failures.
void printDocument(const char *key, const QJsonObject &summary);

/// Prints the end of the output, such as the closing bracket of an array.
void finishReport();

#endif // REPORT_H
