// SPDX-License-Identifier: MIT
#include "filecheck.h"
#include "names.h"
#include "table.h"
#include "vornfh.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include <exiv2/exiv2.hpp>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

// The record of a file

bool isVideo(const QFileInfo &file)
{
    return file.isFile() && (file.suffix() == AVI_FILE_EXT || file.suffix() == MKV_FILE_EXT);
}

/// The record of a video with a path that the library's shell would take apart, read through a link with a
/// harmless one.
Metadata readThroughLink(const QFileInfo &file)
{
    const bool isUsable = unsafeCharacter(absolutePath(QDir::tempPath())) < 0;
    const QTemporaryDir folder((isUsable ? absolutePath(QDir::tempPath()) : "/tmp") + "/vornfh-XXXXXX");
    const QString link = folder.path() + "/video." + file.suffix();
    if (!folder.isValid() || !QFile::link(file.absoluteFilePath(), link))
        throw FileFailure(file.absoluteFilePath(),
                          "a shell would take its name apart, and " + folder.path() + " takes no link to it");
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(link), record);
    record.mFileName = file.fileName();
    return record;
}

void readRecord(const QString &path, Metadata &record)
{
    const QFileInfo file(fromRoot(path));
    struct stat status = {};
    if (path.isEmpty()) // which would be the current folder
        throw UsageError("the path is empty");
    if (!readStatus(file.filePath(), status))
        throw FileFailure(path, errorText(errno));
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) // a pipe would be waited for
        throw FileFailure(path, "neither a file nor a folder");
    if (S_ISDIR(status.st_mode))
        requireReadable(path);
    if (isVideo(file) && unsafeCharacter(file.absoluteFilePath()) >= 0)
        record = readThroughLink(file);
    else
        VornFileHandler::getMetadata(file, record);
}

QJsonValue isoTime(const QDateTime &time)
{
    return time.isValid() ? time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODateWithMs)
                          : QJsonValue();
}

QJsonObject toJson(const Metadata &record)
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
    };
    if (record.mType == FILE_TYPE_DIRECTORY) {
        object["imageCount"] = record.mImageCount;
        object["thumbCount"] = record.mThumbCount;
        object["videoCount"] = record.mVideoCount;
        object["audioCount"] = record.mAudioCount;
    }
    return object;
}

QString typeText(eFileTypes type)
{
    switch (type) {
    case FILE_TYPE_IMAGE: return "image";
    case FILE_TYPE_THUMB: return "thumbnail";
    case FILE_TYPE_VIDEO: return "AVI video";
    case FILE_TYPE_VIDEO_MKV: return "Matroska video";
    case FILE_TYPE_AUDIO: return "WAV sound";
    case FILE_TYPE_DIRECTORY: return "folder";
    default: return "other";
    }
}

QString sizeText(qint64 bytes)
{
    return bytes < 1024 ? humanSize(bytes) : QString("%1 (%2 B)").arg(humanSize(bytes)).arg(bytes);
}

QString timeText(const QDateTime &time)
{
    return time.isValid() ? time.toString("yyyy-MM-dd HH:mm:ss") : QString("unknown");
}

QString pictureText(const Metadata &record)
{
    return record.mWidth > 0 && record.mHeight > 0
               ? QString("%1 x %2 pixels").arg(record.mWidth).arg(record.mHeight)
               : QString("unknown");
}

void printField(const QString &name, const QString &value)
{
    printLine(QString("  %1  %2").arg(name, -8).arg(value));
}

void printRecord(const QString &path, Metadata record)
{
    const int category = record.getMediaCategory();
    printLine(printable(path));
    printField("type", typeText(record.mType));
    printField("size", sizeText(record.mSize));
    printField("created", timeText(record.mCreated));
    printField("modified", timeText(record.mLastModified));
    if (category == FILE_TYPE_IMAGE || category == FILE_TYPE_VIDEO)
        printField("picture", pictureText(record));
}

/// The library's own figures for videos and sounds, which it does not measure and gives no unit for.
void printFixedFigures(const Metadata &record)
{
    const QString note = "%1 (a fixed figure)";
    if (record.mLength != 0)
        printField("length", note.arg(record.mLength));
    if (record.mBitrate != 0)
        printField("bitrate", note.arg(record.mBitrate));
    if (record.mFramerate != 0)
        printField("frames", QString("%1 per second (a fixed figure)").arg(record.mFramerate));
}

void printCounts(const Metadata &record)
{
    printField("images", QString::number(record.mImageCount));
    printField("thumbs", QString::number(record.mThumbCount));
    printField("videos", QString::number(record.mVideoCount));
    printField("sounds", QString::number(record.mAudioCount));
}

ExitCode showInfo(const std::vector<std::string> &arguments, bool json)
{
    QStringList paths;
    for (const std::string &argument : arguments)
        paths += fromCommandLine(argument, "the path");
    ExitCode exitCode = 0;
    QJsonArray array;
    for (const QString &path : paths) {
        try {
            Metadata record;
            readRecord(path, record);
            array.append(toJson(record));
            if (json)
                continue;
            printRecord(path, record);
            record.mType == FILE_TYPE_DIRECTORY ? printCounts(record) : printFixedFigures(record);
        } catch (const Failure &failure) {
            printError(QString::fromUtf8(failure.what()));
            exitCode = 1;
        }
    }
    if (json)
        printJson(QJsonDocument(array));
    return exitCode;
}

// Writing a comment

/// Keeps a signal from ending the tool while a copy lies about.
class SignalsHeldBack
{
public:
    SignalsHeldBack()
    {
        sigset_t endings;
        ::sigemptyset(&endings);
        for (const int number : {SIGINT, SIGTERM, SIGHUP})
            ::sigaddset(&endings, number);
        ::sigprocmask(SIG_BLOCK, &endings, &mBefore);
    }
    ~SignalsHeldBack() { ::sigprocmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalsHeldBack(const SignalsHeldBack &) = delete;
    SignalsHeldBack &operator=(const SignalsHeldBack &) = delete;

private:
    sigset_t mBefore;
};

/// A copy of a photo in the same folder, gone at the end unless it took the photo's place. It is a hidden
/// file, so neither the numbering nor a listing of the library sees it.
class WorkingCopy
{
public:
    explicit WorkingCopy(const QString &photo);
    ~WorkingCopy();
    WorkingCopy(const WorkingCopy &) = delete;
    WorkingCopy &operator=(const WorkingCopy &) = delete;

    QString path() const { return QFile::decodeName(mPath); }
    /// Puts the copy in the photo's place, with the photo's owner, mode, access time and attributes.
    void replacePhoto();

private:
    void copyContent(int target);
    void copyAttributes(int target);

    QString mPhoto;
    Descriptor mSource;
    struct stat mStatus = {};
    QByteArray mPath;
};

WorkingCopy::WorkingCopy(const QString &photo)
    : mPhoto(photo), mSource(::open(QFile::encodeName(photo), O_RDONLY | O_NONBLOCK | O_CLOEXEC)),
      mPath(QFile::encodeName(QFileInfo(photo).path() + "/.vornfh-XXXXXX"))
{
    if (!mSource.isOpen() || ::fstat(mSource.get(), &mStatus) != 0)
        throw FileFailure(photo, errorText(errno));
    if (!S_ISREG(mStatus.st_mode))
        throw FileFailure(photo, "not a regular file");
    const Descriptor target(::mkostemp(mPath.data(), O_CLOEXEC));
    if (!target.isOpen())
        throw FileFailure(photo, "no copy can be made beside it: " + errorText(errno));
    try {
        copyContent(target.get());
    } catch (...) {
        ::unlink(mPath.constData());
        throw;
    }
}

WorkingCopy::~WorkingCopy()
{
    if (!mPath.isEmpty())
        ::unlink(mPath.constData());
}

void WorkingCopy::copyContent(int target)
{
    constexpr size_t AT_ONCE = 1 << 24;
    ssize_t count = 0;
    do {
        count = ::sendfile(target, mSource.get(), nullptr, AT_ONCE);
    } while (count > 0 || (count < 0 && errno == EINTR));
    if (count < 0)
        throw FileFailure(mPhoto, "no copy can be made beside it: " + errorText(errno));
}

void WorkingCopy::copyAttributes(int target)
{
    struct stat copy = {};
    const bool owned = ::fstat(target, &copy) == 0
                       && ((copy.st_uid == mStatus.st_uid && copy.st_gid == mStatus.st_gid)
                           || ::fchown(target, mStatus.st_uid, mStatus.st_gid) == 0);
    const timespec times[2] = {mStatus.st_atim, {0, UTIME_OMIT}};
    if (!owned || ::fchmod(target, mStatus.st_mode & 07777) != 0 || ::futimens(target, times) != 0)
        throw FileFailure(mPhoto, "its owner, mode and access time cannot be kept: " + errorText(errno));

    // A file system that has no extended attributes, or lets this user write none of some kind, is no reason
    // to refuse the comment.
    QByteArray names(XATTR_LIST_MAX, '\0');
    names.truncate(static_cast<int>(
        std::max<ssize_t>(0, ::flistxattr(mSource.get(), names.data(), static_cast<size_t>(names.size())))));
    for (const QByteArray &name : names.split('\0')) {
        QByteArray value(XATTR_SIZE_MAX, '\0');
        const ssize_t size =
            ::fgetxattr(mSource.get(), name.constData(), value.data(), static_cast<size_t>(value.size()));
        if (size >= 0)
            static_cast<void>(
                ::fsetxattr(target, name.constData(), value.constData(), static_cast<size_t>(size), 0));
    }
}

void WorkingCopy::replacePhoto()
{
    // Opened anew: Exiv2 may have put another file into the copy's place.
    const Descriptor target(::open(mPath.constData(), O_RDONLY | O_CLOEXEC));
    if (!target.isOpen())
        throw FileFailure(mPhoto, "its copy cannot be opened: " + errorText(errno));
    copyAttributes(target.get());
    if (!flush(target.get()))
        throw FileFailure(mPhoto, "its copy cannot be written: " + errorText(errno));
    struct stat now = {};
    if (!readLinkStatus(mPhoto, now) || !isSameState(mStatus, now))
        throw FileFailure(mPhoto, "was changed by another program meanwhile");
    if (::rename(mPath.constData(), QFile::encodeName(mPhoto).constData()) != 0)
        throw FileFailure(mPhoto, "cannot be replaced: " + errorText(errno));
    mPath.clear();
    flushFolder(QFileInfo(mPhoto).path());
}

/// The comment as a reader finds it, none if there is none.
std::optional<std::string> readComment(const QString &path)
{
    const auto image = Exiv2::ImageFactory::open(path.toStdString());
    image->readMetadata();
    const Exiv2::ExifData &exif = image->exifData();
    const auto found = exif.findKey(Exiv2::ExifKey("Exif.Photo.UserComment"));
    if (found == exif.end())
        return std::nullopt;
    const auto *value = dynamic_cast<const Exiv2::CommentValue *>(&found->value());
    return value ? value->comment() : found->toString();
}

void writeComment(const QString &path, const QString &text)
{
    const QString photo = QFileInfo(fromRoot(path)).canonicalFilePath();
    if (photo.isEmpty())
        throw FileFailure(path, errorText(ENOENT));
    const SignalsHeldBack signalsHeldBack;
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    WorkingCopy copy(photo);
    std::optional<std::string> stored;
    try {
        if (Metadata().setComment(QFileInfo(copy.path()), text) == 0)
            stored = readComment(copy.path());
    } catch (const std::exception &error) { // Exiv2's, which names the copy
        QString reason = QString::fromUtf8(error.what());
        throw FileFailure(path, "takes no comment: " + reason.replace(copy.path(), photo));
    }
    if (!stored)
        throw FileFailure(path, "no comment can be read back from it, so it was left as it is");
    if (*stored != text.toStdString())
        throw FileFailure(path, "the comment comes back altered, so it was left as it is");
    copy.replacePhoto();
}

void addComment(CLI::App &app, StorageOptions &storages)
{
    struct Request {
        std::string path;
        std::string text;
    };
    const auto request = std::make_shared<Request>();
    CLI::App *command = app.add_subcommand(
        "comment",
        "Writes a comment into the EXIF data of a photo. It is written to a copy, which takes the\n"
        "photo's place if the comment reads back as it was given; otherwise nothing is changed.\n"
        "Other hard links to the photo keep the old content");
    storages.notNeededBy(*command);
    command->add_option("PATH", request->path, "The photo")->required()->type_name("");
    command->add_option("TEXT", request->text, "The comment; one that begins with '-' must follow '--'")
        ->required()
        ->type_name("");
    command->callback([request] {
        const QString path = fromCommandLine(request->path, "the path");
        writeComment(path, fromCommandLine(request->text, "the comment"));
    });
}

} // namespace

void addInfoCommands(CLI::App &app, StorageOptions &storages, ExitCode &exitCode)
{
    const auto json = std::make_shared<bool>(false);
    CLI::App *command = app.add_subcommand("info", "Shows what the library knows of files and folders");
    storages.notNeededBy(*command);
    CLI::Option *paths = addNames(*command, "PATH...", "Files and folders");
    command->add_flag("--json", *json, "Print an array of objects with the raw figures");
    command->callback([paths, json, &exitCode] { exitCode = showInfo(paths->results(), *json); });

    addComment(app, storages);
}
