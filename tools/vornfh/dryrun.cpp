// SPDX-License-Identifier: MIT
#include "dryrun.h"

#include "errors.h"
#include "files.h"
#include "paths.h"
#include "report.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <unistd.h>

namespace {

/// The error that a change to the entries of @p folder would cause; 0 if it would cause none.
int changeError(const QString &folder)
{
    if (!QFileInfo(folder).isDir())
        return ENOTDIR;
    return ::access(QFile::encodeName(folder).constData(), W_OK | X_OK) == 0 ? 0 : errno;
}

} // namespace

void requireCreatableFolder(const QString &path)
{
    if (QFileInfo(path).isDir())
        return;
    if (isEntry(path))
        throw Failure(path + ": is not a folder");
    if (const int error = changeError(nearestExisting(path)))
        throw Failure(path + ": cannot be created: " + errorText(error));
}

void requireCreatableFile(const QString &path)
{
    const QString folder = QFileInfo(path).path();
    const int error = QFileInfo::exists(folder) ? changeError(folder) : 0;
    if (error != 0)
        throw FileFailure(path, "cannot be created: " + errorText(error));
}

void requireTemporaryFile(const QString &folder, const QString &concerning)
{
    if (const int error = QFileInfo::exists(folder) ? changeError(folder) : ENOENT)
        throw FileFailure(concerning,
                          QString("no file can be created in %1: %2").arg(folder, errorText(error)));
}

QString whyNotDeletable(const QString &path)
{
    const int error = changeError(QFileInfo(path).path());
    return error == 0 ? QString() : errorText(error);
}

void requireDeletable(const QString &path)
{
    const QString reason = whyNotDeletable(path);
    if (!reason.isEmpty())
        throw FileFailure(path, "cannot be deleted: " + reason);
}

void printWouldBeDeleted(const QString &path)
{
    reportDone(printable(path) + ": would be deleted", [&path] {
        return toJson(factsOf(path), {{"action", "deleted"}});
    });
}
