// SPDX-License-Identifier: MIT
#ifndef IMAGEPROVIDER_H
#define IMAGEPROVIDER_H

#include <QQuickAsyncImageProvider>
#include <QThreadPool>

/// The names of the two image providers: one crops a picture to the size of a tile and rounds its corners;
/// the other scales it down so that all of it is visible.
inline const QString TILES = QStringLiteral("tiles");
inline const QString PICTURES = QStringLiteral("pictures");

/// The URL of the picture @p path; empty for an empty path. @p version distinguishes a picture from an
/// earlier one with the same path, which may still be in the cache of QML, because numbers are used again.
QString imageUrl(const QString &provider, const QString &path, qint64 version);

/// Reads pictures in its own threads. A file that cannot be read results in an empty picture.
class ImageProvider : public QQuickAsyncImageProvider
{
public:
    explicit ImageProvider(const QString &name);
    ~ImageProvider() override;

    QQuickImageResponse *requestImageResponse(const QString &id, const QSize &requestedSize) override;

private:
    const bool mIsTile;
    QThreadPool mThreads;
};

#endif // IMAGEPROVIDER_H
