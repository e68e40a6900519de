// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "dryrun.h"
#include "durable.h"
#include "files.h"
#include "folders.h"
#include "imagecomment.h"
#include "media.h"
#include "output.h"
#include "paths.h"
#include "report.h"
#include "signals.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/xattr.h>

namespace {

/// A number in a TIFF file, at @p index of @p bytes.
template <typename Number>
Number numberAt(const QByteArray &bytes, int index, bool isBigEndian)
{
    const char *const first = bytes.constData() + index;
    return isBigEndian ? qFromBigEndian<Number>(first) : qFromLittleEndian<Number>(first);
}

/// A photo that stays open from the first check to the last.
class Photo
{
public:
    /// Throws FileFailure unless it is an image that can take a comment.
    explicit Photo(const QString &path) : mPath(path), mFile(openFile(path, O_RDONLY | O_NONBLOCK))
    {
        if (!mFile.isOpen() || ::fstat(mFile.get(), &mStatus) != 0)
            throw FileFailure(path, errorText(errno));
        if (!S_ISREG(mStatus.st_mode))
            throw FileFailure(path, "is not a regular file");
        // Other formats are not given to Exiv2: it may hang on a damaged AVI file.
        const QByteArray start = read(0, HEADER);
        const ImageFormat format = imageFormat(start);
        if (format == ImageFormat::Other)
            throw FileFailure(path, "is not a JPEG, PNG or TIFF image");
        if (format == ImageFormat::Tiff && isRaw(start))
            throw FileFailure(path, "is a raw photo, not a TIFF image");
    }

    QString folder() const { return QFileInfo(mPath).path(); }

    /// A copy of the content in memory.
    Descriptor inMemory() const
    {
        Descriptor copy(::memfd_create("photo", MFD_CLOEXEC));
        if (!copy.isOpen() || !copyContent(mFile.get(), copy.get()))
            throw FileFailure(mPath, "cannot be read: " + errorText(errno));
        return copy;
    }

    /// Replaces the content of the photo and keeps its attributes.
    void replaceContent(int content) const
    {
        TemporaryFile copy(folder(), mPath);
        if (!copyContent(content, copy.descriptor()))
            throw FileFailure(mPath, "a copy cannot be written to its folder: " + errorText(errno));
        if (!setAttributes(copy.descriptor(), mStatus))
            throw FileFailure(mPath, "its owner, mode and times cannot be kept: " + errorText(errno));
        copyExtendedAttributes(copy.descriptor());
        struct stat now = {};
        if (!readLinkStatus(mPath, now) || !isSameState(mStatus, now))
            throw FileFailure(mPath, "was changed by another program in the meantime");
        replaceFile(copy, mPath);
    }

private:
    static constexpr int HEADER = 10; // of a TIFF file, and the mark of CR2

    /// The @p count bytes at @p offset; fewer at the end of the file.
    QByteArray read(qint64 offset, int count) const
    {
        QByteArray bytes(count, '\0');
        if (!readAt(mFile.get(), offset, bytes))
            throw FileFailure(mPath, errorText(errno));
        return bytes;
    }

    /// Returns whether the TIFF file that begins with @p start contains a raw photo. It must stay as the
    /// camera wrote it: converters rely on the manufacturer's own data, which Exiv2 would move.
    bool isRaw(const QByteArray &start) const
    {
        constexpr int ENTRY = 12;             // bytes
        constexpr int NEW_SUBFILE_TYPE = 254; // TIFF 6.0, page 36: bit 0 marks a preview
        constexpr int DNG_VERSION = 50706;
        if (start.size() < HEADER)
            return false;
        if (start.endsWith("CR"))
            return true;
        const bool isBigEndian = start.startsWith("MM");
        const qint64 directory = numberAt<quint32>(start, 4, isBigEndian); // of the first image
        const QByteArray length = read(directory, 2);
        const int count = length.size() == 2 ? numberAt<quint16>(length, 0, isBigEndian) : 0;
        const QByteArray entries = read(directory + 2, count * ENTRY);
        for (int entry = 0; entry + ENTRY <= entries.size(); entry += ENTRY) {
            const int tag = numberAt<quint16>(entries, entry, isBigEndian);
            const auto value = numberAt<quint32>(entries, entry + 8, isBigEndian);
            if (tag == DNG_VERSION || (tag == NEW_SUBFILE_TYPE && (value & 1) != 0))
                return true;
        }
        return false;
    }

    /// Leaves out those that the file system or this user's permissions do not allow.
    void copyExtendedAttributes(int target) const
    {
        QByteArray names(XATTR_LIST_MAX, '\0');
        const ssize_t length = ::flistxattr(mFile.get(), names.data(), static_cast<size_t>(names.size()));
        names.truncate(static_cast<int>(std::max<ssize_t>(0, length)));
        for (const QByteArray &name : names.split('\0')) {
            QByteArray value(XATTR_SIZE_MAX, '\0');
            const ssize_t size =
                ::fgetxattr(mFile.get(), name.constData(), value.data(), static_cast<size_t>(value.size()));
            if (size >= 0)
                static_cast<void>(
                    ::fsetxattr(target, name.constData(), value.constData(), static_cast<size_t>(size), 0));
        }
    }

    QString mPath;
    Descriptor mFile;
    struct stat mStatus = {};
};

/// Why a comment is not stored unchanged, as far as its text shows: the tag has two bytes for each character,
/// and the EXIF data of a JPEG image at most 64 KiB.
QString causeIn(const QString &text)
{
    constexpr int LARGEST = 32000; // characters, with some space for the other tags
    if (text.size() > LARGEST)
        return QString(" (%1 characters; a JPEG image has space for about %2)").arg(text.size()).arg(LARGEST);
    const bool isBeyond =
        std::any_of(text.begin(), text.end(), [](QChar character) { return character.isSurrogate(); });
    return isBeyond ? " (characters above U+FFFF, such as emoji, cannot be stored)" : "";
}

/// Writes the comment into @p copy, a copy of the photo at @p path, and reads it back. The copy is
/// in memory because Exiv2 0.27 does not report that it could not write all of a file. Throws FileFailure.
void writeCommentTo(const Descriptor &copy, const QString &path, const QString &text)
{
    const QString name = QString("/proc/self/fd/%1").arg(copy.get());
    std::optional<std::string> stored;
    try {
        if (Metadata().setComment(QFileInfo(name), text) == 0)
            stored = readComment(name);
    } catch (const std::exception &error) { // thrown by Exiv2; its message names the copy
        QString reason = QString::fromUtf8(error.what());
        throw FileFailure(path, "the comment cannot be written: " + reason.replace(name, path));
    }
    if (!stored || *stored != text.toStdString()) {
        const QString problem = stored ? "reads back differently" : "cannot be read back";
        throw FileFailure(path, "the comment " + problem + causeIn(text) + "; the file is unchanged");
    }
}

ExitCode writeComment(const QString &given, const QString &text, bool isDryRun)
{
    const QString path = QFileInfo(fromRoot(given)).canonicalFilePath();
    struct stat status = {};
    if (path.isEmpty())
        throw FileFailure(given, errorText(readStatus(fromRoot(given), status) ? ENOENT : errno));
    const Photo photo(path);
    catchStopSignals();
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    reportProblems(path);
    if (!isDryRun)
        removeLeftovers(photo.folder());
    reportUnreadable(photo.folder());
    const Descriptor copy = photo.inMemory();
    writeCommentTo(copy, path, text);
    if (isDryRun)
        requireTemporaryFile(photo.folder(), path);
    else
        photo.replaceContent(copy.get());
    if (isJson())
        printResult(toJson(factsOf(path), {{"action", "commented"}}));
    else if (isDryRun)
        printLine(printable(path));
    return DONE;
}

} // namespace

void addComment(CommandLine &line)
{
    struct Request {
        std::string path;
        std::string text;
        bool isDryRun = false;
    };
    const auto request = std::make_shared<Request>();
    const auto run = [request] {
        const QString path = requiredPath(request->path);
        return writeComment(path, fromCommandLine(request->text, "the comment"), request->isDryRun);
    };
    const Command command = line.addIndependent(
        "comment",
        "Writes a comment into the EXIF data of a JPEG, PNG or TIFF image. It is written to a copy, which\n"
        "replaces the image only if the comment reads back as it was given; otherwise nothing is changed.\n"
        "The modification time is kept. Other hard links to the image keep the old content",
        run);
    command.option("PATH", request->path, "The image").required().type("");
    command
        .option("TEXT", request->text,
                "The comment; if it begins with '-', precede it with the argument '--'")
        .required()
        .type("");
    addSingleResultOption(command);
    addDryRun(command, request->isDryRun);
    command.example("vornfh comment /mnt/sd/DCIM/100VORN/DCF_0001.jpg 'Pier 3, left side'");
}
