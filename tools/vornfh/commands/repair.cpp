// SPDX-License-Identifier: MIT
#include "checking.h"
#include "commands.h"
#include "content.h"
#include "device.h"
#include "durable.h"
#include "ffmpeg.h"
#include "filelist.h"
#include "files.h"
#include "folders.h"
#include "media.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "recording.h"
#include "report.h"
#include "signals.h"
#include "temporary.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

using namespace VORN_FILE_HANDLER;

namespace {

struct Request {
    Option targets;
    FileList list;
    bool isDryRun = false;
};

// What is to be repaired

/// A dry run may also read a read-only storage device.
void requireUsable(const Storage &storage, bool isDryRun)
{
    if (isDryRun)
        requireMounted(storage);
    else
        requireWritable(storage);
}

/// The findings about the numbered folder @p path, or about the object of the file @p path.
QList<Finding> findingsAt(const QString &path, const QList<Storage> &storages, bool isDryRun)
{
    const bool isFolder = QFileInfo(path).isDir();
    const QString resolved = isFolder ? QFileInfo(path).canonicalFilePath() : withResolvedFolder(path);
    if (!isEntry(resolved))
        throw FileFailure(path, errorText(errno));
    const QString folder = isFolder ? resolved : QFileInfo(resolved).path();
    requireUsable(storageOfNumberedFolder(folder, path, storages), isDryRun);
    QList<Finding> findings = checkFolder(folder, CheckOptions()).findings;
    const QString base = QFileInfo(resolved).completeBaseName();
    const auto isOther = [&](const Finding &finding) {
        const QFileInfo file(QFile::decodeName(finding.path));
        return file.filePath() != resolved && (base.isEmpty() || file.completeBaseName() != base);
    };
    if (!isFolder)
        findings.erase(std::remove_if(findings.begin(), findings.end(), isOther), findings.end());
    return findings;
}

QList<Finding> findingsOn(const Storage &storage, bool isDryRun)
{
    requireNotRoot(storage);
    requireUsable(storage, isDryRun);
    requireReadableFolder(storage.location);
    return checkStorage(storage, CheckOptions()).findings;
}

// Repairing

/// The file or leftover folder @p path, and what is deleted together with it. The thumbnail of an empty
/// recording comes before the recording, so that no thumbnail is ever alone.
QStringList removedWith(const QString &path)
{
    QStringList removed = {thumbnailFreedBy(path), path};
    removed.removeAll(QString());
    return removed;
}

void removeFiles(const QStringList &paths)
{
    for (const QString &path : paths) {
        if (::remove(QFile::encodeName(path).constData()) != 0)
            throw FileFailure(path, "cannot be deleted: " + errorText(errno));
        flushFolder(QFileInfo(path).path());
    }
}

/// Returns whether a file or folder that is to be deleted for @p finding is still what it was: closing
/// recordings takes time, during which another program may have written to the storage device.
bool isStillDeletable(const Finding &finding, const QString &path, const struct stat &status)
{
    if (finding.kind == "empty-file")
        return S_ISREG(status.st_mode) && status.st_size == 0;
    if (finding.kind == "thumb-alone")
        return isThumbnailAlone(path);
    const Leftovers leftovers = leftoversIn(QFileInfo(path).path());
    return leftovers.areSafeToDelete() && leftovers.paths.contains(path);
}

/// Returns whether every byte of a recording can be read but ffprobe finds nothing in it. The recorder may
/// have been killed before the first frame.
bool isWithoutContent(const QString &path)
{
    return missingProgram({"ffprobe"}).isEmpty() && packetsIn(path, 1) <= 0 && !readingErrorOf(path);
}

/// Closes a recording that can be read completely: unreadable parts would be missing from the new file.
void closeWhole(const QString &path)
{
    if (const auto error = readingErrorOf(path))
        throw FileFailure(path, error->text);
    closeRecording(path);
}

/// Makes the thumbnail of @p recording as the file @p path, which may exist but be damaged.
void replaceThumbnail(const QString &recording, const QString &path)
{
    TemporaryFile file(QFileInfo(path).path(), path);
    const QString reason = writeThumbnail(recording, file.path());
    struct stat status = {};
    if (!reason.isEmpty() || damageOf(file.path(), typeOf(THUMB_FILE_EXT)))
        throw FileFailure(path, "cannot be created" + (reason.isEmpty() ? QString() : ": " + reason));
    if (readStatus(recording, status))
        setAttributes(file.descriptor(), status);
    replaceFile(file, path);
}

/// Repairs what findings report, and prints each change when it is on the device.
class Repair
{
public:
    explicit Repair(bool isDryRun) : mIsDryRun(isDryRun) {}

    void mend(const QList<Finding> &findings)
    {
        requirePrograms(findings);
        mFailures += forEachReporting(findings, [this](const Finding &finding) {
            const QString path = QFile::decodeName(finding.path);
            struct stat status = {};
            // The file may have been deleted with its recording, or have two findings.
            if (finding.remedy == Remedy::NotNeeded || isStopped() || mDone.contains(path)
                || readLinkStatus(path, status) == (finding.remedy == Remedy::Restore)
                || (finding.remedy == Remedy::Delete && !isStillDeletable(finding, path, status)))
                return;
            if (finding.kind == "unreadable")
                throw FileFailure(finding.file(), finding.text);
            const QString reason = whyNot(finding, path);
            if (reason.isEmpty()) {
                mend(finding, path);
                return;
            }
            printFailure(FileFailure(finding.file(), reason));
            ++mLeft;
        });
    }

    ExitCode result() const
    {
        if (isStopped())
            throw Failure("interrupted");
        if (mFailures > 0)
            return FAILED;
        return mLeft > 0 ? NOT_MET : DONE;
    }

private:
    void requirePrograms(const QList<Finding> &findings) const
    {
        const auto needsFfmpeg = [](const Finding &finding) {
            return finding.remedy == Remedy::Close || finding.remedy == Remedy::MakeThumbnail;
        };
        if (!mIsDryRun && std::any_of(findings.begin(), findings.end(), needsFfmpeg))
            requireFfmpeg("repair");
    }

    /// Returns why the file is left unchanged; empty if it can be repaired.
    QString whyNot(const Finding &finding, const QString &path)
    {
        const auto isWritten = [](const QString &file) { return !file.isEmpty() && isBeingWritten(file); };
        if (!finding.isRepairable())
            return finding.text + "; cannot be repaired";
        const bool isLeftover = !findType(path, Qt::CaseInsensitive);
        if (isLeftover || finding.remedy == Remedy::Restore)
            return QString();
        if (mProtection.isProtected(path))
            return finding.text + "; the file is protected and is left alone";
        if (isWritten(path) || isWritten(finding.recording))
            return "is being written and is left alone";
        return finding.remedy == Remedy::Close && isWithoutContent(path)
                   ? "contains no readable video or audio; cannot be repaired"
                   : QString();
    }

    void mend(const Finding &finding, const QString &path)
    {
        if (finding.remedy == Remedy::Restore) {
            if (!mIsDryRun)
                removeLeftovers(QFileInfo(path).path());
            report(factsOf(path), "restored");
        } else if (finding.remedy == Remedy::MakeThumbnail) {
            const QString thumbnail = finding.kind == "thumb-missing" ? thumbnailOf(path) : path;
            if (!mIsDryRun)
                replaceThumbnail(finding.recording, thumbnail);
            report(factsOf(thumbnail), "created");
        } else if (finding.remedy == Remedy::Close) {
            if (!mIsDryRun)
                closeWhole(path);
            report(factsOf(path), "closed");
        } else {
            const QStringList removed = removedWith(path);
            const std::vector<FileFacts> files = factsOfObject(removed);
            if (!mIsDryRun)
                removeFiles(removed);
            for (const FileFacts &file : files) {
                report(file, "deleted");
                mDone.insert(file.path);
            }
        }
    }

    void report(const FileFacts &file, const QString &action) const
    {
        reportDone(printable(file.path) + ": " + (mIsDryRun ? "would be " : "") + action, [&] {
            return toJson(file, {{"action", action}});
        });
    }

    const bool mIsDryRun;
    QSet<QString> mDone; // deleted, or would be
    ProtectionCheck mProtection;
    int mFailures = 0;
    int mLeft = 0;
};

ExitCode repair(const Request &request, const Storages &storages)
{
    const std::vector<std::string> targets = namesIn(request.targets, request.list);
    for (const std::string &target : targets) { // before anything is repaired
        if (const auto storage = storageNamed(QString::fromStdString(target)))
            storages.require(*storage);
    }
    catchStopSignals();
    Repair repair(request.isDryRun);
    const int failures = forEachReporting(targets, [&](const std::string &argument) {
        const auto storage = storageNamed(QString::fromStdString(argument));
        repair.mend(storage ? findingsOn(storages.require(*storage), request.isDryRun)
                            : findingsAt(pathArgument(argument), storages.configured(), request.isDryRun));
    });
    const ExitCode result = repair.result();
    return failures > 0 ? FAILED : result;
}

} // namespace

void addRepair(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const Command command = line.add(
        "repair",
        "Repairs what check reports as repairable: each recording that is not closed is written into\n"
        "a new file, which replaces it; missing thumbnails are created, and damaged ones are replaced;\n"
        "empty files, thumbnails without a recording and files left behind by interrupted commands are\n"
        "deleted; a file whose replacement was interrupted is restored.\n"
        "A damaged file is left unchanged and reported if it cannot be repaired, is protected or is\n"
        "being written; the exit code is then 3",
        [&line, request] { return repair(*request, line.storages()); });
    request->targets = addNames(command, "STORAGE|PATH...",
                                "Storage devices, numbered folders, or files whose objects are repaired")
                           .required(false);
    request->list.addOptions(command);
    addResultOptions(command);
    addDryRun(command, request->isDryRun);
    command.example("vornfh repair sd --dry-run");
}
