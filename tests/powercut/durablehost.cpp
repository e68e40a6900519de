// SPDX-License-Identifier: MIT
// durablehost record LOCATION: records a file of 20,000 bytes and prints its path.
// durablehost replace FILE: replaces its content with "new" and prints its path.
// The functions are those of docs/integration.md, "Durable recording".
#include "vornfilehandler.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

//! [durable]
/// Waits until the content of a file, or the entries of a folder, are on the medium.
bool flush(const QString &path)
{
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    const bool isFlushed = descriptor >= 0 && ::fsync(descriptor) == 0;
    ::close(descriptor);
    return isFlushed;
}

/// Writes a new recording. When it returns true, the recording survives a power failure.
bool record(const QString &path, const QByteArray &content)
{
    QFile file(path);
    const bool isWritten = file.open(QIODevice::WriteOnly | QIODevice::NewOnly) // O_CREAT | O_EXCL
                           && file.write(content) == content.size() && file.flush();
    file.close();
    const QString folder = QFileInfo(path).path();         // 100CAM, which holds the entry of the file
    const QString location = QFileInfo(folder).path();     // DCIM, which holds the entry of the folder
    const QString mountPoint = QFileInfo(location).path(); // holds the entry of DCIM
    return isWritten && flush(path) && flush(folder) && flush(location) && flush(mountPoint);
}

/// Replaces the content of a file. Whenever the power fails, the file has its old or its new content, except
/// on exFAT.
bool replace(const QString &path, const QByteArray &content)
{
    const QString folder = QFileInfo(path).path();
    const QString hidden = QString("%1/.new-%2").arg(folder).arg(QDateTime::currentMSecsSinceEpoch());
    QFile file(hidden);
    const bool isWritten = file.open(QIODevice::WriteOnly | QIODevice::NewOnly)
                           && file.write(content) == content.size() && file.flush();
    file.close();
    if (!isWritten || !flush(hidden))
        return false;
    // Keep the old file open: vfat frees its content when the last user closes it.
    const int old = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    const bool isReplaced =
        ::rename(QFile::encodeName(hidden).constData(), QFile::encodeName(path).constData()) == 0
        && flush(path) // only now does vfat record the location of the content
        && flush(folder);
    ::close(old);
    return isReplaced;
}
//! [durable]

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 3)
        return 2;
    QString path = QString::fromUtf8(argv[2]);
    const bool isRecording = QByteArray(argv[1]) == "record";
    if (isRecording) {
        VornFileHandler::init("ABC", QString(), QString(), path, QString(), QString(), QString());
        path = VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_AUDIO_WAV);
    }
    const bool isDone = isRecording ? record(path, QByteArray(20000, 'r')) : replace(path, "new");
    std::printf("%s\n", path.toUtf8().constData());
    return isDone ? 0 : 1;
}
