// SPDX-License-Identifier: MIT
// recorder LOCATION SUFFIX SECONDS PERCENT [INPUT...]: makes recordings of SECONDS seconds with ffmpeg until
// SIGTERM, and keeps PERCENT % of the card free by deleting the oldest. Prints the path of each once it is on
// the card. INPUT is ffmpeg's input (-f v4l2 -i /dev/video0), by default a test picture. Only one thread uses
// the card, which can block forever. docs/integration.md quotes the parts between "//! [name]".
#include <vornfilehandler.h>

#include <QtCore>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// Waits until the content of a file, or the entries of a folder, are on the card.
bool flush(const QString &path)
{
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    const bool isFlushed = descriptor >= 0 && ::fsync(descriptor) == 0;
    ::close(descriptor);
    return isFlushed;
}

/// The path without the extension, which all files of a number share.
QString baseOf(const QFileInfo &file)
{
    return file.path() + "/" + file.completeBaseName();
}

//! [exists]
bool createExclusively(const QString &path)
{
    const int file = ::open(QFile::encodeName(path).constData(), O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    return file >= 0 && ::close(file) == 0;
}

/// Creates the file of the next recording and returns its path; an empty string on failure.
QString createNext()
{
    QString path = VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_MKV);
    int folder = VornFileHandler::getLastDirectoryNum(STORAGE_SD);
    int number = QFileInfo(path).completeBaseName().section('_', 1).toInt();
    while (!createExclusively(path)) {
        if (errno != EEXIST || (folder == 999 && number == 9999))
            return QString();
        // The numbering does not see what has this name, and would return the name again.
        folder += number == 9999 ? 1 : 0;
        number = number == 9999 ? 1 : number + 1;
        VornFileHandler::createDCIMFolder(STORAGE_SD, folder);
        path = VornFileHandler::getFilePath(STORAGE_SD, folder, number, MKV_FILE_EXT);
    }
    return path;
}
//! [exists]

//! [claim]
/// Only a file reserves its number, so this lock, which vornfh takes too, is held until the file exists.
QString claim(const QString &location)
{
    VornFileHandler::createFolder(location);
    const int lock = ::open(QFile::encodeName(location).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const QString path = lock >= 0 && ::flock(lock, LOCK_EX) == 0 ? createNext() : QString();
    if (lock >= 0) // otherwise errno would be that of close()
        ::close(lock);
    return path;
}
//! [claim]

//! [prune]
/// Deletes the files with the lowest numbers until @p percent % of the card is free. Write-protected files
/// remain, and so do @p current and the newest recording, after which the numbering continues.
void prune(QStorageInfo &card, int percent, const QString &current)
{
    const auto isEnough = [&] { return card.bytesAvailable() >= card.bytesTotal() / 100 * percent; };
    const int last = isEnough() ? 0 : VornFileHandler::getLastDirectoryNum(STORAGE_SD);
    QFileInfoList files;
    for (int folder = 100; folder <= last; ++folder)
        files += QDir(VornFileHandler::getDirPath(STORAGE_SD, folder))
                     .entryInfoList({"DCF_[0-9][0-9][0-9][0-9].*"}, QDir::Files, QDir::Name);
    QString deleted;
    for (const QFileInfo &file : qAsConst(files)) {
        if (std::exchange(deleted, baseOf(file)) != baseOf(file)) // a recording goes with its thumbnail
            card.refresh();
        if (isEnough() || baseOf(file) == baseOf(current) || baseOf(file) == baseOf(files.last()))
            return;
        if (file.permission(QFile::WriteOwner))
            VornFileHandler::deleteFile(file.filePath());
    }
}
//! [prune]

/// Prints what has changed, in the main thread, where a user interface would show it.
void show(const QString &subject, const QString &text)
{
    QMetaObject::invokeMethod(qApp, [subject, text] {
        static QHash<QString, QString> shown;
        if (std::exchange(shown[subject], text) != text)
            QTextStream(stderr) << subject << ": " << text << Qt::endl;
    });
}

class Recorder : public QObject
{
public:
    Recorder(QString seconds, int keepFree, QStringList input)
        : mSeconds(std::move(seconds)), mKeepFree(keepFree), mInput(std::move(input))
    {
        mFfmpeg.setProcessChannelMode(QProcess::ForwardedChannels);
        connect(&mFfmpeg, &QProcess::errorOccurred, [&] { show(mFfmpeg.program(), mFfmpeg.errorString()); });
        connect(&mFfmpeg, &QProcess::stateChanged, this, &Recorder::keep);
        connect(&mTimer, &QTimer::timeout, this, &Recorder::check);
        mTimer.start(1000);
    }

private:
    //! [check]
    /// Ends the recording if the card is full, read-only or removed; begins the next when there is space.
    void check()
    {
        constexpr qint64 RESERVE = 1 << 20; // bytes for the end of a recording and its thumbnail
        const bool isStopping = thread()->isInterruptionRequested();
        QStorageInfo card(mMountPoint); // statvfs(), and no process
        const bool isMounted = card.isReady() && card.rootPath() == QDir(mMountPoint).canonicalPath();
        const bool isWritable = isMounted && !card.isReadOnly();
        if (isWritable)
            prune(card, mKeepFree, mPath);
        const qint64 free = card.bytesAvailable() - RESERVE;
        show(mMountPoint, isWritable ? QString("%1 MB free").arg(free / 1000000) : "no writable card");
        if (mFfmpeg.state() != QProcess::NotRunning) {
            // Only a flush shows that the card has been pulled, and the kernel reports lost data only once.
            mIsSaved = mIsSaved && flush(mPath);
            if (isStopping || !isWritable || free < 0 || !mIsSaved)
                mFfmpeg.terminate(); // ffmpeg closes its file; the fourth signal ends it at once
        } else if (isStopping) {
            thread()->quit();
        } else if (isWritable && free > RESERVE && mPause.hasExpired()) {
            begin(std::min<qint64>(free, 1 << 30)); // at most 1 GiB; FAT allows 4 GiB
        }
    }
    //! [check]

    void begin(qint64 bytes)
    {
        mPath = claim(mLocation);
        show(mLocation, mPath.isEmpty() ? qt_error_string(errno) : "recording " + mPath);
        if (mPath.isEmpty())
            return;
        //! [thumbnail]
        // getNextFileName() would now return the next number, because the recording exists.
        mThumbnail = baseOf(mPath) + "." + VornFileHandler::getFileExtension(FILE_TYPE_THUMB);
        //! [thumbnail]
        mIsSaved = save({mPath});
        // If this process is killed, ffmpeg gets SIGTERM and closes the file, which is no longer flushed.
        const QStringList options = {"--pdeathsig", "TERM", "ffmpeg", "-nostdin", "-loglevel", "error", "-y"};
        const QStringList limits = {"-t", mSeconds, "-fs", QString::number(bytes)};
        const QStringList video = {"-c:v", "mpeg4", "-q:v", "5", "-flush_packets", "1", "-f", "matroska"};
        const QStringList picture = {"-vf", "trim=end_frame=1,scale=160:-2", "-f", "mjpeg"};
        mFfmpeg.start("setpriv", options + mInput + limits + video + QStringList("file:" + mPath) + picture
                                     + QStringList("file:" + mThumbnail));
    }

    //! [keep]
    /// Waits until @p files, and the folders that contain them, are on the card.
    bool save(const QStringList &files) const
    {
        const QStringList paths = files + QStringList{QFileInfo(mPath).path(), mLocation, mMountPoint};
        return std::all_of(paths.begin(), paths.end(), flush);
    }

    /// Called when ffmpeg has ended, for whatever reason. What it has recorded is kept.
    void keep(QProcess::ProcessState state)
    {
        if (state != QProcess::NotRunning)
            return;
        for (const QString &file : {mThumbnail, mPath}) {
            if (const QFileInfo info(file); info.exists() && info.size() == 0)
                VornFileHandler::deleteFile(file);
        }
        mPause.setRemainingTime(mFfmpeg.exitCode() == 0 ? 0 : 10000); // the camera may be missing
        if (!mIsSaved || !save({mThumbnail, mPath}))
            return show(mPath, "missing or incomplete on the card");
        QTextStream(stdout) << mPath << Qt::endl;
        QTimer::singleShot(0, this, &Recorder::check); // the next one begins at once
    }
    //! [keep]

    const QString mLocation = VornFileHandler::getStorageDir(STORAGE_SD).path();
    const QString mMountPoint = QFileInfo(mLocation).path();
    const QString mSeconds;
    const int mKeepFree;
    const QStringList mInput;
    QString mPath, mThumbnail;
    bool mIsSaved = true;
    QDeadlineTimer mPause; // after a failure
    QProcess mFfmpeg;
    QTimer mTimer;
};

//! [stop]
const int stopEvent = ::eventfd(0, EFD_CLOEXEC);
const pid_t host = ::getpid();

/// Wakes the event loop. Until a child of QProcess calls exec, it has this handler too.
void onStop(int)
{
    if (::getpid() == host)
        ::eventfd_write(stopEvent, 1);
}
//! [stop]

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 5) {
        QTextStream(stderr) << "Usage: recorder LOCATION SUFFIX SECONDS PERCENT [INPUT...]" << Qt::endl;
        return 2;
    }
    const QStringList picture = {"-re", "-f", "lavfi", "-i", "testsrc2=size=640x480:rate=25"};
    const QStringList input = arguments.size() > 5 ? QStringList(arguments.mid(5)) : picture;
    VornFileHandler::init(arguments[2], QString(), QString(), arguments[1], QString(), QString(), QString());

    //! [thread]
    const QScopedPointer<QThread> card(QThread::create([&] {
        const Recorder recorder(arguments[3], arguments[4].toInt(), input);
        QEventLoop().exec();
    }));
    QObject::connect(card.data(), &QThread::finished, &application, &QCoreApplication::quit);
    QSocketNotifier stop(stopEvent, QSocketNotifier::Read);
    QObject::connect(&stop, &QSocketNotifier::activated, &application, [&] {
        stop.setEnabled(false);
        card->requestInterruption();
    });
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        std::signal(number, onStop);
    card->start();
    QCoreApplication::exec();
    card->wait();
    //! [thread]
}
