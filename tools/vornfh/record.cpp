// SPDX-License-Identifier: MIT
#include "device.h"
#include "filecheck.h"
#include "names.h"
#include "table.h"
#include "vornfh.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>

#include <cerrno>
#include <csignal>
#include <map>
#include <memory>

#include <fcntl.h>
#include <sys/file.h>

using namespace VORN_FILE_HANDLER;

namespace {

const std::map<std::string, eFileTypes> MEDIA_TYPES = {
    {"avi", FILE_TYPE_VIDEO_AVI}, {"mkv", FILE_TYPE_VIDEO_MKV}, {"jpg", FILE_TYPE_IMAGE_JPEG},
    {"png", FILE_TYPE_IMAGE_PNG}, {"wav", FILE_TYPE_AUDIO_WAV},
};

struct Order {
    eStorageType storage = STORAGE_MMC;
    std::string type = "avi";
    int count = 1;
    double duration = 2;
    std::string input;

    eFileTypes fileType() const { return MEDIA_TYPES.at(type); }
    bool isVideo() const { return type == "avi" || type == "mkv"; }
    bool isSound() const { return type == "wav"; }
};

// Claiming a number

/// One process at a time allocates on a storage. The lock is on the folder itself and leaves nothing behind.
class LocationLock
{
public:
    explicit LocationLock(const QString &location)
        : mFolder(::open(QFile::encodeName(location), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        if (!mFolder.isOpen() || ::flock(mFolder.get(), LOCK_EX) != 0)
            throw Failure(QString("%1: cannot be locked: %2").arg(location, errorText(errno)));
    }

private:
    Descriptor mFolder;
};

QString thumbnailOf(const QString &path)
{
    const QFileInfo file(path);
    return file.path() + "/" + file.completeBaseName() + "." + THUMB_FILE_EXT;
}

bool hasThumbnail(const QString &path)
{
    struct stat status = {};
    return readLinkStatus(thumbnailOf(path), status);
}

/// Whether any medium has the number of @p path: DCF_0001.avi and DCF_0001.jpg are one number.
bool isNumberTaken(const QString &path)
{
    const QFileInfo file(path);
    QStringList names;
    for (const auto &type : MEDIA_TYPES)
        names += file.completeBaseName() + "." + VornFileHandler::getFileExtension(type.second);
    const auto everything = QDir::AllEntries | QDir::Hidden | QDir::System;
    return !file.dir().entryList(names, everything).isEmpty();
}

int fileNumber(const QString &path)
{
    return QFileInfo(path).completeBaseName().section('_', -1).toInt();
}

/// The path that the library names, or one behind it: the numbering does not see a thumbnail that was left
/// behind, which would show another picture than that of the recording.
QString nextPath(eStorageType storage, eFileTypes type)
{
    QString path = VornFileHandler::getNextFileName(storage, type);
    const auto isLeftBehind = [](const QString &one) { return hasThumbnail(one) && !isNumberTaken(one); };
    if (!isLeftBehind(path))
        return path;
    const int folder = VornFileHandler::getLastDirectoryNum(storage);
    for (int number = fileNumber(path); number < LAST_FILE && isLeftBehind(path);)
        path = VornFileHandler::getFilePath(storage, folder, ++number, QFileInfo(path).suffix());
    return path;
}

/// Creates @p path as an empty file. False if there is something of that name.
bool createFile(const QString &path)
{
    const Descriptor file(::open(QFile::encodeName(path), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666));
    if (file.isOpen())
        return true;
    if (errno == EEXIST)
        return false;
    throw Failure(QString("%1: cannot be created: %2").arg(path, errorText(errno)));
}

Failure clash(eStorageType storage, const QString &path)
{
    const int folder = VornFileHandler::getLastDirectoryNum(storage);
    if (folder >= LAST_FOLDER && VornFileHandler::getLastFileNum(storage, folder) == LAST_FILE)
        return Failure(
            QString("the numbers of storage %1 are used up: %2 would be next, and its number is taken")
                .arg(storageName(storage), path));
    return Failure(QString("%1: its number is taken by something that the numbering passes over").arg(path));
}

/// Throws Failure unless the folder of @p path is there and can be read.
void requireFolderOf(const QString &path)
{
    const QString folder = QFileInfo(path).absolutePath();
    requireFolder(folder);
    requireReadable(folder);
}

/// Reserves the next number of the storage by creating the file. What the numbering sees is passed at the
/// second look; the same name twice is one that it will name for ever.
QString claimPath(eStorageType storage, eFileTypes type)
{
    const QString location = locationOf(storage);
    requireReadable(location);
    if (!QFileInfo(location).isDir())
        VornFileHandler::getDCIMFolders(storage); // creates it and says so
    requireFolder(location);
    const LocationLock lock(location);
    QString refused;
    while (true) {
        const QString path = nextPath(storage, type);
        requireFolderOf(path);
        if (!isNumberTaken(path) && !hasThumbnail(path) && createFile(path))
            return path;
        if (path == refused)
            throw clash(storage, path);
        refused = path;
    }
}

// ffmpeg

volatile std::sig_atomic_t stopRequested = 0;

void catchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { stopRequested = 1; };
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGHUP, &action, nullptr);
}

void waitForEnd(QProcess &process)
{
    constexpr int LOOK_FOR_SIGNALS = 100;
    constexpr int TIME_TO_END = 2000;
    while (!process.waitForFinished(LOOK_FOR_SIGNALS) && process.state() != QProcess::NotRunning) {
        if (!stopRequested)
            continue;
        process.terminate();
        if (!process.waitForFinished(TIME_TO_END)) {
            process.kill();
            process.waitForFinished(-1);
        }
    }
}

/// The last line of what ffmpeg says. Behind it may stand one that says only that it failed.
QString lastLine(const QByteArray &text)
{
    QStringList lines = printable(QByteArray(text).replace('\r', '\n').replace('\n', '\0'))
                            .split("\\x00", Qt::SkipEmptyParts);
    if (lines.size() > 1 && lines.last() == "Conversion failed!")
        lines.removeLast();
    return lines.isEmpty() ? QString() : lines.last().trimmed();
}

/// Runs ffmpeg to write @p path, which exists and is overwritten. The reason of a failure, otherwise nothing.
QString runFfmpeg(const QStringList &arguments, const QString &path)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    // The format is always named and "file:" is in front, so that nothing in the path means anything.
    process.start("ffmpeg", QStringList{"-nostdin", "-hide_banner", "-loglevel", "error", "-y"} + arguments
                                + QStringList{"file:" + path});
    waitForEnd(process);
    if (process.error() == QProcess::FailedToStart)
        return "ffmpeg cannot be started: " + process.errorString();
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return QFileInfo(path).size() > 0 ? QString() : "ffmpeg wrote nothing";
    if (stopRequested)
        return "interrupted";
    const QString reason = lastLine(process.readAllStandardError());
    return reason.isEmpty() ? QString("ffmpeg ended with exit code %1").arg(process.exitCode()) : reason;
}

/// A moving picture and a tone; a photo is tinted by its number, so that no two are alike.
QString testSource(const Order &order, int number)
{
    const QString picture = "testsrc2=size=640x480:rate=25";
    const QString tone = "sine=frequency=440";
    if (order.isSound())
        return tone;
    return order.isVideo() ? picture + "[out0];" + tone + "[out1]"
                           : QString("%1,hue=h=%2").arg(picture).arg(number * 37 % 360);
}

QStringList inputArguments(const Order &order, const QString &path)
{
    const QString input = fromCommandLine(order.input, "--input");
    if (input.isEmpty())
        return {"-f", "lavfi", "-i", testSource(order, fileNumber(path))};
    if (input.startsWith("/dev/video"))
        return {"-f", "v4l2", "-i", input};
    return {"-i", input};
}

QStringList outputArguments(const Order &order)
{
    static const QStringList PICTURE = {"-map", "0:v:0", "-frames:v", "1", "-update", "1", "-f", "image2"};
    static const QStringList VIDEO = {"-map", "0:v:0", "-map", "0:a:0?"};
    const QStringList end = {"-t", QString::number(order.duration, 'f', 3), "-abort_on", "empty_output"};
    switch (order.fileType()) {
    case FILE_TYPE_IMAGE_JPEG:
        return PICTURE + QStringList{"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-q:v", "3"};
    case FILE_TYPE_IMAGE_PNG: return PICTURE + QStringList{"-c:v", "png"};
    case FILE_TYPE_AUDIO_WAV:
        return QStringList{"-map", "0:a:0", "-c:a", "pcm_s16le"} + end + QStringList{"-f", "wav"};
    case FILE_TYPE_VIDEO_MKV:
        return VIDEO + QStringList{"-c:v", "mpeg4", "-pix_fmt", "yuv420p", "-q:v", "5", "-c:a", "aac"} + end
               + QStringList{"-f", "matroska"};
    default:
        return VIDEO + QStringList{"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-q:v", "5", "-c:a", "pcm_s16le"}
               + end + QStringList{"-f", "avi"};
    }
}

// Recording

/// Puts a small picture beside the recording @p path. The reason of a failure, otherwise nothing.
QString makeThumbnail(const QString &path)
{
    const QString thumbnail = thumbnailOf(path);
    if (!createFile(thumbnail))
        return thumbnail + ": came in the meantime and is left as it is";
    const QString reason =
        runFfmpeg({"-i", "file:" + path, "-map", "0:v:0", "-frames:v", "1", "-vf", "scale=160:-2", "-c:v",
                   "mjpeg", "-pix_fmt", "yuvj420p", "-update", "1", "-f", "image2"},
                  thumbnail);
    if (reason.isEmpty())
        return QString();
    QFile::remove(thumbnail);
    return thumbnail + ": cannot be made: " + reason;
}

void recordOne(const Order &order)
{
    const QString path = claimPath(order.storage, order.fileType());
    const QString reason = runFfmpeg(inputArguments(order, path) + outputArguments(order), path);
    if (!reason.isEmpty()) {
        QFile::remove(path);
        throw Failure(QString("%1: cannot be recorded: %2").arg(path, reason));
    }
    const QString problem = order.isSound() ? QString() : makeThumbnail(path);
    printLine(path);
    if (!problem.isEmpty())
        throw Failure(problem);
}

void record(const Order &order)
{
    static_cast<void>(fromCommandLine(order.input, "--input"));
    if (!missingProgram({"ffmpeg"}).isEmpty())
        throw Failure("ffmpeg is not on the search path; recording needs it");
    requireWritable(order.storage);
    catchStopSignals();
    for (int i = 0; i < order.count; ++i) {
        if (stopRequested)
            throw Failure(QString("interrupted after %1 of %2 recordings").arg(i).arg(order.count));
        recordOne(order);
    }
}

CLI::Validator between(double lowest, double highest)
{
    const auto check = [lowest, highest](const std::string &text) {
        double value = 0;
        const bool inside = CLI::detail::lexical_cast(text, value) && value >= lowest && value <= highest;
        const QString range = QString("'%1' is no number from %2 to %3");
        return inside ? std::string()
                      : range.arg(QString::fromStdString(text)).arg(lowest).arg(highest).toStdString();
    };
    return CLI::Validator(check, "");
}

void addNext(CLI::App &app, StorageOptions &storages)
{
    struct Request {
        eStorageType storage = STORAGE_MMC;
        std::string type;
    };
    const auto request = std::make_shared<Request>();
    CLI::App *command = app.add_subcommand(
        "next", "Prints the path for the next recording. The file is not created, the folder "
                "that it belongs in\nis, if it is missing");
    addStorageArgument(*command, request->storage);
    command->add_option("TYPE", request->type, "avi, mkv, jpg, png, wav or thumb")
        ->required()
        ->check(CLI::IsMember({"avi", "mkv", "jpg", "png", "wav", "thumb"}).description(""))
        ->type_name("");
    command->callback([request, &storages] {
        storages.require(request->storage);
        requireWritable(request->storage);
        requireReadable(locationOf(request->storage));
        const auto type = MEDIA_TYPES.find(request->type);
        const QString path = VornFileHandler::getNextFileName(
            request->storage, type == MEDIA_TYPES.end() ? FILE_TYPE_THUMB : type->second);
        requireFolderOf(path);
        printLine(path);
    });
}

} // namespace

void addRecordCommands(CLI::App &app, StorageOptions &storages, ExitCode &)
{
    addNext(app, storages);

    const auto order = std::make_shared<Order>();
    CLI::App *command = app.add_subcommand(
        "record",
        "Records with ffmpeg into the next files of a storage and prints their paths.\n"
        "Photos and videos get a thumbnail beside them. A recording that fails or is interrupted is\n"
        "removed again (SIGINT, SIGTERM, SIGHUP); those finished before it stay");
    addStorageArgument(*command, order->storage);
    command->add_option("--type", order->type, "What to record")
        ->check(CLI::IsMember({"avi", "mkv", "jpg", "png", "wav"}).description(""))
        ->type_name("avi|mkv|jpg|png|wav")
        ->capture_default_str();
    command->add_option("--count", order->count, "How many recordings, one after the other")
        ->check(between(1, LAST_FILE))
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--duration", order->duration, "Length of a video or sound")
        ->check(between(0.1, 86400))
        ->type_name("SECONDS")
        ->capture_default_str();
    command
        ->add_option("--input", order->input,
                     "What to record from: /dev/video0 or any other input of ffmpeg. Without it, a moving\n"
                     "test picture and a tone")
        ->type_name("INPUT");
    command->callback([order, &storages] {
        storages.require(order->storage);
        record(*order);
    });
}
