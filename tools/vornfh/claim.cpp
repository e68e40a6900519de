// SPDX-License-Identifier: MIT
#include "claim.h"

#include "durable.h"
#include "errors.h"
#include "files.h"
#include "folders.h"
#include "media.h"
#include "numbering.h"
#include "signals.h"

#include <cerrno>
#include <chrono>
#include <thread>

#include <sys/file.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// Serialises the claims on a storage device. The lock is on the location itself and leaves nothing behind.
class LocationLock
{
public:
    explicit LocationLock(const QString &location) : mFolder(openFolder(location))
    {
        constexpr auto PAUSE = std::chrono::milliseconds(20);
        while (!mFolder.isOpen() || ::flock(mFolder.get(), LOCK_EX | LOCK_NB) != 0) {
            if (!mFolder.isOpen() || errno != EWOULDBLOCK)
                throw Failure(QString("%1: cannot be locked: %2").arg(location, errorText(errno)));
            if (isStopped())
                throw Failure(location + ": interrupted while another program held the lock");
            std::this_thread::sleep_for(PAUSE);
        }
    }

private:
    Descriptor mFolder;
};

bool hasThumbnail(const QString &path)
{
    struct stat status = {};
    return readLinkStatus(thumbnailOf(path), status);
}

/// Returns whether the number of @p path has only a thumbnail, which the numbering ignores.
bool isThumbnailAlone(const QString &path)
{
    return hasThumbnail(path) && !isNumberTaken(path);
}

/// The path that the library returns, or the first after it that is not skipped.
QString nextPath(const Storage &storage, eFileTypes type)
{
    QString path = VornFileHandler::getNextFileName(storage.type, type);
    if (!isThumbnailAlone(path))
        return path;
    const int folder = VornFileHandler::getLastDirectoryNum(storage.type);
    for (int number = fileNumber(path); number < LAST_FILE && isThumbnailAlone(path);)
        path = VornFileHandler::getFilePath(storage.type, folder, ++number,
                                            VornFileHandler::getFileExtension(type));
    return path;
}

Failure clash(const Storage &storage, const QString &path)
{
    if (numberingOf(storage).left() == 0)
        return Failure(QString("storage %1 has no numbers left: %2 would be next, and its number is taken")
                           .arg(storage.name, path));
    return Failure(path + ": its number is taken by something that the numbering skips");
}

} // namespace

int fileNumber(const QString &path)
{
    return QFileInfo(path).completeBaseName().section('_', -1).toInt();
}

QString claimPath(const Storage &storage, eFileTypes type)
{
    requireReadable(storage.location);
    if (!QFileInfo(storage.location).isDir())
        VornFileHandler::getDCIMFolders(storage.type); // creates it and says so
    requireFolder(storage.location);
    const LocationLock lock(storage.location);
    QString refused;
    while (true) {
        const QString path = nextPath(storage, type);
        const QString folder = QFileInfo(path).path();
        requireFolder(folder);
        requireReadable(folder);
        if (!isNumberTaken(path) && !hasThumbnail(path) && createExclusively(path))
            return path;
        // A file created in the meantime is skipped on the next pass. A path that comes twice would come
        // forever.
        if (path == refused)
            throw clash(storage, path);
        refused = path;
    }
}
