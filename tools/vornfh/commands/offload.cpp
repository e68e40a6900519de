// SPDX-License-Identifier: MIT
#include "checksums.h"
#include "commands.h"
#include "copying.h"
#include "deletion.h"
#include "device.h"
#include "dryrun.h"
#include "durable.h"
#include "folders.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "signals.h"
#include "text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>

using namespace VORN_FILE_HANDLER;

namespace {

/// The same words as in "list --images", "--videos" and "--audio".
const std::map<std::string, Kind> KINDS = {{"images", PHOTO}, {"videos", VIDEO}, {"audio", AUDIO}};

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string directory;
    Option folders;
    std::string kind; // empty for all
    DayRange days;
    bool isMoving = false;
    bool isDryRun = false;
};

// What is offloaded

/// The numbered folders that were read, each with only the objects that are to be offloaded, perhaps none.
struct Selection {
    std::vector<NumberedFolder> folders;
    QString newest;   // base path of the newest object of the storage device; see newestOf()
    int failures = 0; // folders that cannot be read
    int files = 0;
    qint64 bytes = 0;
};

QString pathOf(const NumberedFolder &folder, const Object &object)
{
    return folder.path + "/" + QFile::decodeName(object.base);
}

/// The object from which the numbering continues: the last one that has a recording. Empty if there is none.
QString newestOf(const std::vector<NumberedFolder> &folders)
{
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        const auto object = std::find_if(folder->objects.rbegin(), folder->objects.rend(),
                                         [](const Object &one) { return one.hasRecording(); });
        if (object != folder->objects.rend())
            return pathOf(*folder, *object);
    }
    return QString();
}

/// The names given with --folder. Throws Failure for a name that is not the name of one of @p paths.
QStringList folderNames(const Request &request, const Storage &storage, const QStringList &paths)
{
    QStringList names;
    for (const std::string &text : request.folders.values()) {
        const QString name = fromCommandLine(text, "--folder");
        requireFolderName(name);
        if (!paths.contains(storage.location + "/" + name))
            throw Failure(QString("%1/%2: is not a numbered folder").arg(storage.location, name));
        names.append(name);
    }
    return names;
}

bool isSelected(const Object &object, const Request &request)
{
    const auto isWanted = [&request](const ObjectFile &file) {
        return file.type->kind == KINDS.at(request.kind);
    };
    const bool hasKind =
        request.kind.empty() || std::any_of(object.files.begin(), object.files.end(), isWanted);
    // The time of an object that cannot be read is not known; reading it reports the error.
    return hasKind
           && (request.days.isAll() || !object.isReadable() || request.days.contains(object.modified()));
}

Selection selectionOf(const Storage &storage, const Request &request)
{
    Selection selection;
    const QStringList paths = objectFolders(storage);
    const QStringList names = folderNames(request, storage, paths);
    const auto isFolderSelected = [&names](const QString &path) {
        return names.isEmpty() || names.contains(QFileInfo(path).fileName());
    };
    selection.failures = forEachReporting(paths, [&](const QString &path) {
        if (isFolderSelected(path) || request.isMoving) // the newest object may be in another folder
            selection.folders.push_back(readNumberedFolder(path));
    });
    requireReadToEnd(storage.location);
    selection.newest = newestOf(selection.folders);
    for (NumberedFolder &folder : selection.folders) {
        const bool isFolder = isFolderSelected(folder.path);
        const auto isOther = [&](const Object &object) { return !isFolder || !isSelected(object, request); };
        folder.objects.erase(std::remove_if(folder.objects.begin(), folder.objects.end(), isOther),
                             folder.objects.end());
        for (const Object &object : folder.objects) {
            selection.files += static_cast<int>(object.files.size());
            selection.bytes += object.size();
        }
    }
    return selection;
}

// Offloading

struct Job {
    QString directory;
    Selection selection;
    bool isMoving;
    bool isDryRun;
};

class Offload
{
public:
    explicit Offload(const Job &job)
        : mJob(job), mProgress(job.selection.files, job.selection.bytes), mSums(job.directory)
    {
    }

    /// Throws Failure if a file could not be offloaded, or a folder could not be created.
    ExitCode run()
    {
        for (const NumberedFolder &folder : mJob.selection.folders) {
            if (isStopped() || mFailure)
                break;
            if (!folder.objects.empty())
                offload(folder);
        }
        const int files = mJob.selection.files;
        const int missing = files - mDone - mBeingWritten;
        if (missing > 0)
            throw Failure(QString("%1%2 of %3 files not offloaded")
                              .arg(isStopped() ? "interrupted: " : "")
                              .arg(missing)
                              .arg(files));
        if (mJob.selection.failures > 0)
            return FAILED;
        return mBeingWritten > 0 ? NOT_MET : DONE;
    }

private:
    void offload(const NumberedFolder &folder)
    {
        if (mJob.isMoving && !mJob.isDryRun)
            removeLeftovers(folder.path);
        Transfer transfer(mJob.directory + "/" + QFileInfo(folder.path).fileName(), Mode::Copy, mProgress,
                          mJob.isDryRun,
                          [this, &folder](std::vector<Copy> &copies) { complete(folder, copies); });
        for (const Object &object : folder.objects) {
            if (isStopped())
                break;
            if (isBeingWritten(folder, object))
                leave(folder, object);
            else if (add(transfer, folder, object) && mJob.isMoving && mJob.isDryRun)
                printDeletion(folder, object);
        }
        mDone += transfer.finish();
    }

    /// Skips an object whose content is not complete yet.
    void leave(const NumberedFolder &folder, const Object &object)
    {
        const int files = static_cast<int>(object.files.size());
        print(FileFailure(folder.pathOf(object.files.front()), "is being written and is not offloaded"));
        mProgress.finishFiles(files);
        mBeingWritten += files;
    }

    /// A file that cannot be read does not hold back the other files of its object, unless a thumbnail would
    /// be left without a recording. Returns whether all files were added.
    bool add(Transfer &transfer, const NumberedFolder &folder, const Object &object)
    {
        std::vector<const ObjectFile *> files;
        for (const ObjectFile &file : object.files)
            files.push_back(&file);
        const auto isRecording = [](const ObjectFile *file) { return !file->isThumbnail(); };
        const auto isWorthwhile = [&] {
            return !files.empty()
                   && (!object.hasRecording() || std::any_of(files.begin(), files.end(), isRecording));
        };
        while (isWorthwhile() && !isStopped()) {
            try {
                Transfer::Sources sources;
                for (const ObjectFile *file : files)
                    sources.push_back(std::make_unique<Source>(folder.pathOf(*file)));
                transfer.add(std::move(sources), Transfer::Conflict::Counter);
                break;
            } catch (const FileFailure &failure) {
                print(failure);
                const auto failed = std::find_if(files.begin(), files.end(), [&](const ObjectFile *file) {
                    return folder.pathOf(*file) == failure.path();
                });
                files.erase(failed == files.end() ? files.begin() : failed,
                            failed == files.end() ? failed : failed + 1);
            }
        }
        const size_t added = isWorthwhile() && !isStopped() ? files.size() : 0;
        mProgress.finishFiles(static_cast<int>(object.files.size() - added));
        return added == object.files.size();
    }

    /// Prints what would be deleted once the copies of an object are safe.
    void printDeletion(const NumberedFolder &folder, const Object &object)
    {
        mProgress.print([&] {
            if (!mayBeDeleted(folder, object, {}))
                return;
            for (const ObjectFile &file : object.files)
                printWouldBeDeleted(folder.pathOf(file));
        });
    }

    void print(const FileFailure &failure)
    {
        mProgress.print([&failure] { printFailure(failure); });
    }

    // In the second thread of the transfer

    void complete(const NumberedFolder &folder, std::vector<Copy> &copies)
    {
        // The kernel reports a device error only once, so nothing is reported or deleted after it.
        if (mFailure)
            throw FileFailure(*mFailure);
        try {
            for (const Copy &copy : copies)
                mSums.set(copy.target, copy.sum);
            mSums.save();
            if (mJob.isMoving)
                mProgress.print([&] { deleteSources(folder, copies); });
        } catch (const FileFailure &failure) {
            mFailure = failure;
            throw;
        }
    }

    using Copies = std::vector<Copy *>; // of one object

    /// Deletes the objects all of whose files have been copied.
    void deleteSources(const NumberedFolder &folder, std::vector<Copy> &copies)
    {
        std::map<QByteArray, Copies> byBase;
        for (Copy &copy : copies)
            byBase[basePath(QFile::encodeName(copy.source->name()))].push_back(&copy);
        std::vector<const Object *> objects;
        for (const Object &object : folder.objects) {
            const auto found = byBase.find(object.base);
            if (found != byBase.end() && found->second.size() == object.files.size()
                && mayBeDeleted(folder, object, found->second))
                objects.push_back(&object);
        }
        const std::vector<const Object *> deleted =
            objects.empty() ? objects : deleteObjects(folder, objects).objects;
        for (const Object *object : objects) {
            if (std::find(deleted.begin(), deleted.end(), object) == deleted.end())
                fail(byBase[object->base]);
        }
    }

    /// Returns whether the object may be deleted. If not, prints the reason, unless it is the newest object.
    bool mayBeDeleted(const NumberedFolder &folder, const Object &object, const Copies &copies) const
    {
        const QString path = folder.pathOf(object.files.front());
        if (pathOf(folder, object) == mJob.selection.newest)
            return false;
        if (isProtected(folder, object)) {
            printError(path + ": is protected and stays on the storage device");
            return false;
        }
        if (isBeingWritten(folder, object)) {
            printError(path + ": is being written and stays on the storage device");
            return false;
        }
        try {
            for (const Copy *copy : copies)
                copy->source->requireUnchanged();
            return true;
        } catch (const FileFailure &failure) {
            printFailure(failure);
            fail(copies);
            return false;
        }
    }

    static void fail(const Copies &copies)
    {
        for (Copy *copy : copies)
            copy->hasFailed = true;
    }

    const Job &mJob;
    Progress mProgress;
    Checksums mSums;
    std::optional<FileFailure> mFailure; // of saving the sums or flushing a deletion
    int mDone = 0;
    int mBeingWritten = 0; // files of objects that are being written
};

/// @p path without symbolic links; the part that does not exist is kept.
QString resolved(const QString &path)
{
    const QString existing = nearestExisting(path);
    return QDir::cleanPath(QFileInfo(existing).canonicalFilePath() + "/" + path.mid(existing.size()));
}

/// Throws UsageError if the two are the same folder, or if one contains the other: the copies could be on the
/// storage device from which the objects are to be offloaded.
void requireApart(const QString &directory, const Storage &storage)
{
    const QString place = resolved(directory);
    const QString location = resolved(storage.location);
    const bool isSame = place == location;
    if (isSame || isInside(place, location) || isInside(location, place))
        throw UsageError(QString("%1: %2 %3, the location of storage %4")
                             .arg(directory,
                                  isSame                      ? "is"
                                  : isInside(place, location) ? "is inside"
                                                              : "contains",
                                  storage.location, storage.name));
}

void createDirectory(const QString &directory)
{
    requireWritable(directory);
    createFolder(directory); // flushed with the first copy, before the copy is reported
    removeLeftovers(directory);
}

ExitCode offloadStorage(const Storage &storage, const Request &request)
{
    const QString directory = absolutePath(requiredPath(request.directory, "DIRECTORY: "));
    if (request.isMoving)
        requireWritable(storage);
    else
        requireMounted(storage);
    requireReadableFolder(storage.location);
    requireApart(directory, storage);
    const Job job = {directory, selectionOf(storage, request), request.isMoving, request.isDryRun};
    if (request.isDryRun) {
        requireWritable(directory);
        requireCreatableFolder(directory);
    } else {
        createDirectory(directory);
    }
    catchStopSignals();
    return Offload(job).run();
}

} // namespace

void addOffload(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const Command command = line.add(
        "offload",
        "Copies the objects of a storage device to a directory on a computer: DIRECTORY/FOLDER/FILE.\n"
        "Each copy is flushed and compared as with the copy command. DIRECTORY/SHA256SUMS gets a line for\n"
        "each copy, which sha256sum -c can verify. A file that is already there with the same content is\n"
        "not copied again, so an interrupted run can be repeated; if the content differs, both files are\n"
        "kept, and a counter is added to the name of the new one. An object is all files of one number in\n"
        "one folder, such as a recording and its thumbnail. Objects that are being written are skipped;\n"
        "the exit code is then 3",
        [&line, request] { return offloadStorage(line.storages().require(request->storage), *request); });
    addStorageArgument(command, request->storage);
    command.option("DIRECTORY", request->directory, "The directory; it is created if it is missing")
        .required()
        .type("");
    command.flag("--move", request->isMoving,
                 "Delete objects from the storage device once their copies and checksums are safe, except\n"
                 "protected ones, those that are being written, and the newest");
    addDayOptions(command, request->days, "objects");
    request->folders =
        command.repeatedOption("--folder", "Only this numbered folder; may be given several times")
            .type("NAME");
    command.option("--type", request->kind, "Only objects with a recording of this type")
        .oneOf({"images", "videos", "audio"});
    addResultOptions(command);
    addDryRun(command, request->isDryRun);
    command.example("vornfh offload sd ~/pictures --since 2025-02-25");
}
