// SPDX-License-Identifier: MIT
#ifndef MEDIA_H
#define MEDIA_H

#include <QByteArray>
#include <QSize>
#include <QStringList>

/// Standard output of a program, which must succeed.
QByteArray outputOf(const QString &program, const QStringList &arguments);

/// Creates a picture with ffmpeg: a PNG file for the extension "png", a JPEG file for any other.
void makePicture(const QString &path, QSize size);

/// The bytes of such a picture.
QByteArray pictureData(const QString &extension, QSize size);

/// Creates a video of two frames with ffmpeg, in the container of the extension.
void makeVideo(const QString &path, QSize size);

/// Creates a short audio file with ffmpeg, in the container of the extension.
void makeSound(const QString &path);

/// The content of a file of each type, as a camera leaves it.
QByteArray wholeFile(const QByteArray &extension);

/// The start of an AVI file whose recording was killed.
inline const QByteArray UNCLOSED_AVI = QByteArray::fromHex("52494646ffffffff41564920"  // RIFF, the size, AVI
                                                           "4c495354ffffffff6864726c") // LIST, the size, hdrl
                                       + QByteArray(4096, '\0');

/// A JPEG header that declares a size, with no image data after it.
QByteArray jpegHeader(quint16 width, quint16 height);

#endif // MEDIA_H
