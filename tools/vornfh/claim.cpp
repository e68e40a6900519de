// SPDX-License-Identifier: MIT
#include "claim.h"

#include "dryrun.h"
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
#include <utility>

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

bool isOccupied(const QString &folder)
{
    return isEntry(folder) && !QFileInfo(folder).isDir();
}

/// The number of the numbered folder @p folder, or of the next one whose name is not taken by a file.
int usableFolder(const Storage &storage, const Numbering &numbering, int folder)
{
    while (folder < numbering.lastFolder && isOccupied(VornFileHandler::getDirPath(storage.type, folder)))
        ++folder;
    return folder;
}

/// The numbering in the folder of the next recording, which may be missing.
Numbering nextNumbering(const Storage &storage)
{
    Numbering numbering = numberingOf(storage);
    const int folder = usableFolder(storage, numbering, numbering.nextFolder());
    if (folder != numbering.folder)
        numbering.lastFile = 0;
    numbering.folder = folder;
    return numbering;
}

/// Creates the folder of the next recording if it is missing, in such a way that a power failure cannot leave
/// it unusable. Returns the numbering in it.
Numbering createNextFolder(const Storage &storage)
{
    const Numbering numbering = nextNumbering(storage);
    createFolder(VornFileHandler::getDirPath(storage.type, numbering.folder));
    return numbering;
}

/// Steps through the numbers of a storage device, starting with that of a path. Creates nothing.
class NumberCounter
{
public:
    NumberCounter(const Storage &storage, eFileTypes type, Numbering numbering, const QString &path)
        : mStorage(storage), mType(type), mNumbering(std::move(numbering)), mPath(path),
          mNumber(fileNumber(QFileInfo(path).fileName()).value_or(0))
    {
    }

    const QString &path() const { return mPath; }
    QString folder() const { return QFileInfo(mPath).path(); }

    /// Returns whether neither a recording nor a thumbnail has the number.
    bool isFree() const { return !isNumberTaken(mPath) && !isEntry(thumbnailOf(mPath)); }

    /// Goes on to the next number. Throws Failure if there is none.
    void advance()
    {
        if (mNumbering.left() <= 0 || (mNumber >= LAST_FILE && mNumbering.folder >= mNumbering.lastFolder))
            throw Failure(QString("storage %1 has no numbers left: the number of %2 is taken")
                              .arg(mStorage.name, mPath));
        if (mNumber >= LAST_FILE) {
            mNumber = 0;
            mNumbering.folder = usableFolder(mStorage, mNumbering, mNumbering.folder + 1);
        }
        mPath = VornFileHandler::getFilePath(mStorage.type, mNumbering.folder, ++mNumber,
                                             VornFileHandler::getFileExtension(mType));
    }

private:
    const Storage &mStorage;
    eFileTypes mType;
    Numbering mNumbering;
    QString mPath;
    int mNumber;
};

} // namespace

QString createRecordingFolder(const Storage &storage)
{
    if (QFileInfo(VornFileHandler::getDirPath(storage.type, numberingOf(storage).nextFolder())).isDir())
        return QString();
    createFolder(storage.location);
    const LocationLock lock(storage.location);
    const QString folder = VornFileHandler::getDirPath(storage.type, createNextFolder(storage).folder);
    flushWithFolders({folder});
    return folder;
}

QString claimPath(const Storage &storage, eFileTypes type)
{
    requireReadable(storage.location);
    createFolder(storage.location);
    const LocationLock lock(storage.location);
    const Numbering numbering = createNextFolder(storage);
    NumberCounter counter(storage, type, numbering, VornFileHandler::getNextFileName(storage.type, type));
    reportUnreadable(counter.folder());
    for (;; counter.advance()) {
        createFolder(counter.folder());
        requireFolder(counter.folder());
        requireReadable(counter.folder());
        if (counter.isFree() && createExclusively(counter.path()))
            return counter.path();
    }
}

QString freePath(const Storage &storage, eFileTypes type)
{
    requireReadable(storage.location);
    const Numbering numbering = nextNumbering(storage);
    NumberCounter counter(storage, type, numbering, nextPath(storage, numbering, type));
    reportUnreadable(counter.folder());
    while (!counter.isFree())
        counter.advance();
    requireCreatableFolder(counter.folder());
    requireReadable(counter.folder());
    requireCreatableFile(counter.path());
    return counter.path();
}
