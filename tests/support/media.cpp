// SPDX-License-Identifier: MIT
#include "media.h"

#include "testsupport.h"

#include <QHash>
#include <QProcess>
#include <QTemporaryDir>

namespace {

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
    static QHash<QByteArray, QByteArray> pictures; // starting ffmpeg takes seconds in an emulated machine
    const QByteArray name = sizeText(size) + "." + extension.toUtf8();
    if (!pictures.contains(name)) {
        const QTemporaryDir directory;
        const QString path = directory.filePath(QFile::decodeName(name));
        makePicture(path, size);
        pictures[name] = contentOf(path);
    }
    return pictures[name];
}

void makeVideo(const QString &path, QSize size)
{
    runFfmpeg("testsrc=r=5:d=0.4:s=" + sizeText(size), {"-c:v", "mjpeg"}, path);
}

void makeSound(const QString &path)
{
    runFfmpeg("sine=d=0.1", {"-c:a", "pcm_s16le"}, path);
}

QByteArray wholeFile(const QByteArray &extension)
{
    if (extension == "jpg" || extension == "png" || extension == "thumb")
        return pictureData(extension, QSize(1280, 960));
    static QHash<QByteArray, QByteArray> files;
    if (!files.contains(extension)) {
        const QTemporaryDir folder;
        const QString path = folder.filePath("file." + extension);
        extension == "wav" ? makeSound(path) : makeVideo(path, QSize(320, 240));
        files[extension] = contentOf(path);
    }
    return files[extension];
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
