// SPDX-License-Identifier: MIT
#ifndef MEDIA_H
#define MEDIA_H

#include <QByteArray>
#include <QSize>
#include <QStringList>

#include <utility>

/// Standard output of a program that must end well.
QByteArray outputOf(const QString &program, const QStringList &arguments);

/// A picture made by ffmpeg; the extension "png" makes a PNG file, any other a JPEG file.
void makePicture(const QString &path, QSize size);

/// The bytes of such a picture.
QByteArray pictureData(const QString &extension, QSize size);

/// A video of two frames made by ffmpeg, its container chosen by the extension.
void makeVideo(const QString &path, QSize size);

/// A short sound made by ffmpeg, in an AVI file too.
void makeSound(const QString &path);

/// The head of a JPEG file that claims a size, with no picture behind it.
QByteArray jpegHeader(quint16 width, quint16 height);

/// An environment variable that has its former value again at the end.
class EnvironmentVariable
{
public:
    /// A null @p value takes the variable out of the environment.
    EnvironmentVariable(const char *name, const QByteArray &value);
    ~EnvironmentVariable();
    EnvironmentVariable(const EnvironmentVariable &) = delete;
    EnvironmentVariable &operator=(const EnvironmentVariable &) = delete;

private:
    const char *mName;
    QByteArray mFormer;
};

/// Makes entries below a folder: "a/" a folder, "a@b" a symbolic link to b, anything else a file of eight
/// bytes. Files have modification times one minute apart in the order given; "=a" has that of the file
/// before it.
void makeEntries(const QString &folder, const QByteArrayList &entries);

/// Deletes everything in a folder at the end, also the names that are no UTF-8, which QTemporaryDir leaves.
class EmptiedAtTheEnd
{
public:
    explicit EmptiedAtTheEnd(QString folder) : mFolder(std::move(folder)) {}
    ~EmptiedAtTheEnd();
    EmptiedAtTheEnd(const EmptiedAtTheEnd &) = delete;
    EmptiedAtTheEnd &operator=(const EmptiedAtTheEnd &) = delete;

private:
    QString mFolder;
};

/// When a file was created, as statx() tells it: the birth time, or the last change of status where the
/// file system keeps none; in milliseconds since 1970.
qint64 creationTime(const QByteArray &path);

#endif // MEDIA_H
