// SPDX-License-Identifier: MIT
#include "media.h"

#include "testsupport.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void require(bool condition, const QByteArray &what)
{
    if (!condition)
        throw std::runtime_error(what.toStdString());
}

void runFfmpeg(const QString &source, const QStringList &options, const QString &path)
{
    outputOf("ffmpeg",
             QStringList{"-nostdin", "-v", "error", "-f", "lavfi", "-i", source} + options << "-y" << path);
}

QByteArray sizeText(QSize size)
{
    return QByteArray::number(size.width()) + "x" + QByteArray::number(size.height());
}

} // namespace

QByteArray outputOf(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(-1);
    require(process.error() == QProcess::UnknownError && process.exitCode() == 0,
            program.toUtf8() + ": " + process.readAllStandardError());
    return process.readAllStandardOutput();
}

void makePicture(const QString &path, QSize size)
{
    const QString codec = path.endsWith(".png") ? "png" : "mjpeg";
    runFfmpeg("testsrc=s=" + sizeText(size), {"-frames:v", "1", "-c:v", codec, "-f", "image2"}, path);
}

QByteArray pictureData(const QString &extension, QSize size)
{
    const QTemporaryDir directory;
    QFile file(directory.filePath("picture." + extension));
    makePicture(file.fileName(), size);
    require(file.open(QIODevice::ReadOnly), "picture");
    return file.readAll();
}

void makeVideo(const QString &path, QSize size)
{
    runFfmpeg("testsrc=r=5:d=0.4:s=" + sizeText(size), {"-c:v", "mjpeg"}, path);
}

void makeSound(const QString &path)
{
    runFfmpeg("sine=d=0.1", {"-c:a", "pcm_s16le"}, path);
}

QByteArray jpegHeader(quint16 width, quint16 height)
{
    const auto word = [](quint16 value) {
        return QByteArray().append(static_cast<char>(value >> 8)).append(static_cast<char>(value & 0xFF));
    };
    return QByteArray::fromHex("ffd8" // start of image
                               "ffe000104a46494600010100000100010000"
                               "ffc0001108") // frame: eight bits
           + word(height) + word(width) + QByteArray::fromHex("03011100021101031101")
           + QByteArray::fromHex("ffda000c03010002110311003f00"); // scan
}

EnvironmentVariable::EnvironmentVariable(const char *name, const QByteArray &value)
    : mName(name), mFormer(qgetenv(name))
{
    if (value.isNull())
        qunsetenv(name);
    else
        qputenv(name, value);
}

EnvironmentVariable::~EnvironmentVariable()
{
    if (mFormer.isNull())
        qunsetenv(mName);
    else
        qputenv(mName, mFormer);
}

void makeEntries(const QString &folder, const QByteArrayList &entries)
{
    const QByteArray root = QFile::encodeName(folder) + "/";
    qint64 time = 1600000000000;
    for (QByteArray entry : entries) {
        const bool sameTime = entry.startsWith('=');
        if (sameTime)
            entry.remove(0, 1);
        else
            time += 60000;
        const int link = entry.indexOf('@');
        if (link >= 0) {
            require(::symlink(entry.mid(link + 1).constData(), (root + entry.left(link)).constData()) == 0,
                    "symlink " + entry);
        } else if (entry.endsWith('/')) {
            writeFile(root + entry + "x");
            require(::unlink((root + entry + "x").constData()) == 0, "unlink " + entry);
        } else {
            writeFile(root + entry, "contents");
            setModified(root + entry, time);
        }
    }
}

EmptiedAtTheEnd::~EmptiedAtTheEnd()
{
    std::error_code ignored;
    std::filesystem::remove_all(mFolder.toStdString(), ignored);
}

qint64 creationTime(const QByteArray &path)
{
    struct statx status = {};
    require(::statx(AT_FDCWD, path.constData(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) == 0,
            "statx " + path);
    const statx_timestamp &time = status.stx_mask & STATX_BTIME ? status.stx_btime : status.stx_ctime;
    return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}
