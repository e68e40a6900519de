// SPDX-License-Identifier: MIT
#include "commands.h"
#include "paths.h"
#include "photo.h"
#include "signals.h"

#include <QFileInfo>

#include <exiv2/exiv2.hpp>

#include <cerrno>
#include <memory>
#include <optional>

namespace {

/// The comment as other programs read it; nullopt if there is none.
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

ExitCode writeComment(const QString &path, const QString &text)
{
    const QString photo = QFileInfo(fromRoot(path)).canonicalFilePath();
    if (photo.isEmpty())
        throw FileFailure(path, errorText(ENOENT));
    const StopSignalsBlocked blocked; // while the copy exists
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    WorkingCopy copy(photo);
    std::optional<std::string> stored;
    try {
        if (Metadata().setComment(QFileInfo(copy.path()), text) == 0)
            stored = readComment(copy.path());
    } catch (const std::exception &error) { // thrown by Exiv2, and names the copy
        QString reason = QString::fromUtf8(error.what());
        throw FileFailure(path, "the comment cannot be written: " + reason.replace(copy.path(), photo));
    }
    if (!stored)
        throw FileFailure(path, "the comment cannot be read back; the file is unchanged");
    if (*stored != text.toStdString())
        throw FileFailure(path, "the comment reads back differently; the file is unchanged");
    copy.replacePhoto();
    return DONE;
}

} // namespace

void addComment(CommandLine &line)
{
    struct Request {
        std::string path;
        std::string text;
    };
    const auto request = std::make_shared<Request>();
    const auto run = [request] {
        const QString path = fromCommandLine(request->path, "the path");
        return writeComment(path, fromCommandLine(request->text, "the comment"));
    };
    CLI::App &command = line.addIndependent(
        "comment",
        "Writes a comment into the EXIF data of a photo. It is written to a copy, which replaces the photo\n"
        "only if the comment reads back as it was given; otherwise nothing is changed. Other hard links to\n"
        "the photo keep the old content",
        run);
    command.add_option("PATH", request->path, "The photo")->required()->type_name("");
    command
        .add_option("TEXT", request->text,
                    "The comment; if it begins with '-', precede it with the argument '--'")
        ->required()
        ->type_name("");
}
