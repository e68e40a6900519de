// SPDX-License-Identifier: MIT
#include "imageprovider.h"

#include <QImageReader>
#include <QMutex>
#include <QPainter>
#include <QRunnable>

#include <atomic>
#include <memory>

namespace {

constexpr auto ENCODING = QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals;

QImage withRoundCorners(const QImage &picture, QSize size)
{
    constexpr qreal RADIUS = 8;
    QImage tile(size, QImage::Format_ARGB32_Premultiplied);
    tile.fill(Qt::transparent);
    QPainter painter(&tile);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    QRect source(QPoint(), size);
    source.moveCenter(picture.rect().center());
    painter.setBrush(picture.copy(source));
    painter.drawRoundedRect(tile.rect(), RADIUS, RADIUS);
    return tile;
}

/// Reads a picture for @p size. Returns a null image if that is not possible.
QImage readPicture(const QString &path, QSize size, bool isTile)
{
    constexpr qint64 LARGEST = 64'000'000; // pixels; a camera has little memory
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true); // a thumbnail is a JPEG file with another extension
    reader.setAutoTransform(true);
    const QSize full = reader.size();
    const bool isTurned = (reader.transformation() & QImageIOHandler::TransformationRotate90) != 0;
    const QSize scaled = full.scaled(isTurned ? size.transposed() : size,
                                     isTile ? Qt::KeepAspectRatioByExpanding : Qt::KeepAspectRatio);
    if (isTile || scaled.width() < full.width())
        reader.setScaledSize(scaled); // a JPEG file is then decoded at this size
    QImage picture;
    if (qint64(full.width()) * full.height() > LARGEST || !reader.read(&picture))
        return QImage();
    return isTile ? withRoundCorners(picture, size) : picture;
}

/// Lives in the QML thread that waits for pictures.
class Response : public QQuickImageResponse
{
public:
    /// Shared with the thread that reads the picture, which may end after the response.
    struct Job {
        QMutex mutex;
        Response *response;
        std::atomic<bool> isCancelled;
    };

    Response() : mJob(std::make_shared<Job>()) { mJob->response = this; }
    ~Response() override
    {
        const QMutexLocker lock(&mJob->mutex);
        mJob->response = nullptr;
    }
    Q_DISABLE_COPY(Response)

    std::shared_ptr<Job> job() const { return mJob; }

    void finish(const QImage &picture)
    {
        mPicture = picture;
        emit finished();
    }

    void cancel() override { mJob->isCancelled = true; }
    // There is no errorString(): QML would print a warning for every file that is not a picture.
    QQuickTextureFactory *textureFactory() const override
    {
        return QQuickTextureFactory::textureFactoryForImage(mPicture);
    }

private:
    const std::shared_ptr<Job> mJob;
    QImage mPicture;
};

void runJob(Response::Job &job, const QString &path, QSize size, bool isTile)
{
    const QImage picture = job.isCancelled ? QImage() : readPicture(path, size, isTile);
    const QMutexLocker lock(&job.mutex);
    Response *response = job.response;
    if (response)
        QMetaObject::invokeMethod(
            response, [=] { response->finish(picture); }, Qt::QueuedConnection);
}

} // namespace

QString imageUrl(const QString &provider, const QString &path, qint64 version)
{
    if (path.isEmpty())
        return QString();
    const QString id = QString::fromLatin1(path.toUtf8().toBase64(ENCODING));
    return QString("image://%1/%2/%3").arg(provider).arg(version).arg(id);
}

ImageProvider::ImageProvider(const QString &name) : mIsTile(name == TILES)
{
    mThreads.setMaxThreadCount(2);
}

ImageProvider::~ImageProvider()
{
    mThreads.waitForDone();
}

QQuickImageResponse *ImageProvider::requestImageResponse(const QString &id, const QSize &requestedSize)
{
    const QByteArray path = QByteArray::fromBase64(id.section('/', 1).toLatin1(), ENCODING);
    auto *response = new Response;
    mThreads.start(QRunnable::create([job = response->job(), path = QString::fromUtf8(path), requestedSize,
                                      isTile = mIsTile] { runJob(*job, path, requestedSize, isTile); }));
    return response;
}
