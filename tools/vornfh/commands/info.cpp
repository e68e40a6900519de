// SPDX-License-Identifier: MIT
#include "commands.h"
#include "files.h"
#include "folders.h"
#include "media.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "text.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <thread>
#include <vector>

using namespace VORN_FILE_HANDLER;

namespace {

/// Fills the record of a video whose path contains characters that a shell might interpret, through a link
/// whose path does not.
void readThroughLink(const QFileInfo &file, Metadata &record)
{
    const bool isSafe = unsafeCharacter(absolutePath(QDir::tempPath())) < 0;
    const QTemporaryDir folder((isSafe ? absolutePath(QDir::tempPath()) : "/tmp") + "/vornfh-XXXXXX");
    const QString link = folder.path() + "/video." + file.suffix();
    if (!folder.isValid() || !QFile::link(file.absoluteFilePath(), link))
        throw FileFailure(file.absoluteFilePath(),
                          "a shell might misinterpret its path, and no link can be created in "
                              + folder.path());
    VornFileHandler::getMetadata(QFileInfo(link), record);
    record.mFileName = file.fileName();
}

/// Fills @p record, which is not returned because a copy would lose the counts.
void readRecord(const QString &path, Metadata &record)
{
    const QFileInfo file(fromRoot(path));
    struct stat status = {};
    if (path.isEmpty()) // it would be the current folder
        throw UsageError("the path is empty");
    if (!readStatus(file.filePath(), status))
        throw FileFailure(path, errorText(errno));
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) // reading a pipe would block
        throw FileFailure(path, "is neither a file nor a folder");
    if (S_ISDIR(status.st_mode))
        requireReadable(path);
    const bool isVideo = S_ISREG(status.st_mode) && kindOf(file.fileName()) == VIDEO;
    if (isVideo && unsafeCharacter(file.absoluteFilePath()) >= 0)
        readThroughLink(file, record);
    else
        VornFileHandler::getMetadata(file, record);
}

/// Reads the records of several files and folders, as many at a time as there are processors: for a video,
/// the library waits for ffprobe.
class RecordReader
{
public:
    explicit RecordReader(const QStringList &paths) : mRecords(static_cast<size_t>(paths.size()))
    {
        for (size_t i = 0; i < mRecords.size(); ++i)
            mReadings.emplace_back(
                [this, i, path = paths[static_cast<int>(i)]] { readRecord(path, mRecords[i]); });
        const size_t processors = std::max(std::thread::hardware_concurrency(), 1U);
        for (size_t i = 0; i < std::min(processors, mReadings.size()); ++i)
            mThreads.push_back(std::async(std::launch::async, [this] { readAll(); }));
    }
    ~RecordReader() { mNext = mReadings.size(); }
    RecordReader(const RecordReader &) = delete;
    RecordReader &operator=(const RecordReader &) = delete;

    /// The record of path number @p index, once it has been read. Call this once for each. Throws what
    /// readRecord() throws.
    const Metadata &record(size_t index)
    {
        mReadings[index].get_future().get();
        return mRecords[index];
    }

private:
    void readAll()
    {
        for (size_t i = mNext++; i < mReadings.size(); i = mNext++)
            mReadings[i]();
    }

    std::vector<Metadata> mRecords;
    std::vector<std::packaged_task<void()>> mReadings;
    std::atomic<size_t> mNext{0};
    std::vector<std::future<void>> mThreads; // last, because its destructor waits for the threads
};

QJsonValue isoTime(const QDateTime &time)
{
    return time.isValid() ? time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODateWithMs)
                          : QJsonValue();
}

QJsonObject toJson(const Metadata &record, bool isMarked)
{
    QJsonObject object = {
        {"type", record.mType},
        {"name", record.mFileName},
        {"size", record.mSize},
        {"created", isoTime(record.mCreated)},
        {"modified", isoTime(record.mLastModified)},
        {"width", record.mWidth},
        {"height", record.mHeight},
        {"length", record.mLength},
        {"bitrate", record.mBitrate},
        {"framerate", record.mFramerate},
        {"protected", isMarked},
    };
    if (record.mType == FILE_TYPE_DIRECTORY) {
        object["imageCount"] = record.mImageCount;
        object["thumbCount"] = record.mThumbCount;
        object["videoCount"] = record.mVideoCount;
        object["audioCount"] = record.mAudioCount;
    }
    return object;
}

QString typeText(const Metadata &record)
{
    if (record.mType == FILE_TYPE_DIRECTORY)
        return "folder";
    const MediaType *type = findType(record.mFileName);
    return type ? type->name : "other";
}

QString sizeText(qint64 bytes)
{
    return bytes < 1024 ? humanSize(bytes) : QString("%1 (%2 B)").arg(humanSize(bytes)).arg(bytes);
}

QString pictureText(const Metadata &record)
{
    return record.mWidth > 0 && record.mHeight > 0
               ? QString("%1 x %2 pixels").arg(record.mWidth).arg(record.mHeight)
               : QString("unknown");
}

void print(const QString &name, const QString &value)
{
    constexpr int WIDTH = 8;
    printField(name, value, WIDTH);
}

/// One of the values that the library uses for every video or audio file.
void printFixed(const QString &name, int value, const QString &unit = QString())
{
    if (value != 0)
        print(name, QString("%1%2 (fixed value, not measured)").arg(value).arg(unit));
}

void printFolder(const Metadata &record)
{
    print("images", QString::number(record.mImageCount));
    print("thumbs", QString::number(record.mThumbCount));
    print("videos", QString::number(record.mVideoCount));
    print("audio", QString::number(record.mAudioCount));
}

void printRecord(const QString &path, const Metadata &record)
{
    const Kind kind = kindOf(record.mFileName);
    printLine(printable(path));
    print("type", typeText(record));
    print("size", sizeText(record.mSize));
    print("created", timeText(record.mCreated));
    print("modified", timeText(record.mLastModified));
    if (isProtected(fromRoot(path)))
        print("mark", "protected");
    if (record.mType == FILE_TYPE_DIRECTORY) {
        printFolder(record);
        return;
    }
    if (kind != AUDIO && kind != OTHER)
        print("picture", pictureText(record));
    printFixed("length", record.mLength);
    printFixed("bitrate", record.mBitrate);
    printFixed("frames", record.mFramerate, " per second");
}

ExitCode showInfo(const QStringList &paths, bool isJson)
{
    QJsonArray array;
    RecordReader reader(paths);
    size_t index = 0;
    const int failures = forEachReporting(paths, [&](const QString &path) {
        const Metadata &record = reader.record(index++);
        if (isJson)
            array.append(toJson(record, isProtected(fromRoot(path))));
        else
            printRecord(path, record);
    });
    if (isJson)
        printJson(QJsonDocument(array));
    return failures > 0 ? FAILED : DONE;
}

} // namespace

void addInfo(CommandLine &line)
{
    struct Request {
        CLI::Option *paths = nullptr;
        bool isJson = false;
    };
    const auto request = std::make_shared<Request>();
    const auto run = [request] {
        QStringList paths;
        for (const std::string &path : request->paths->results())
            paths.append(fromCommandLine(path, "the path"));
        return showInfo(paths, request->isJson);
    };
    CLI::App &command =
        line.addIndependent("info", "Shows what the library knows about files and folders", run);
    request->paths = addNames(command, "PATH...", "Files and folders");
    command.add_flag("--json", request->isJson, "Print an array of objects with the raw values");
}
