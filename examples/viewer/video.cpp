// SPDX-License-Identifier: MIT
#include "video.h"

#include <QPainter>
#include <QThread>

namespace {

constexpr int RATE = 25; // pictures per second

} // namespace

void VideoDecoder::start(const QString &path, QSize size, double seconds)
{
    stop();
    mSize = size;
    mSeconds = seconds;
    mIsAccepting = true;
    mProcess = new QProcess(this);
    connect(mProcess, &QProcess::readyReadStandardOutput, this, &VideoDecoder::readPictures);
    connect(mProcess, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this, &VideoDecoder::ended);
    connect(mProcess, &QProcess::errorOccurred, this, &VideoDecoder::ended);
    const QString filter = QString("fps=%1,scale=%2:%3:force_original_aspect_ratio=decrease,"
                                   "pad=%2:%3:(ow-iw)/2:(oh-ih)/2")
                               .arg(RATE)
                               .arg(size.width())
                               .arg(size.height());
    mProcess->start("ffmpeg",
                    {"-nostdin", "-v", "quiet", "-re", "-ss", QString::number(seconds), "-i", "file:" + path,
                     "-an", "-vf", filter, "-f", "rawvideo", "-pix_fmt", "bgra", "-"});
}

void VideoDecoder::stop()
{
    if (!mProcess)
        return;
    mProcess->disconnect(this);
    mProcess->kill();
    mProcess->waitForFinished();
    delete mProcess;
    mProcess = nullptr;
}

void VideoDecoder::readPictures()
{
    QImage picture(mSize, QImage::Format_RGB32); // its bytes are B, G, R, A
    while (mProcess->bytesAvailable() >= picture.sizeInBytes()) {
        mProcess->read(reinterpret_cast<char *>(picture.bits()), picture.sizeInBytes());
        mSeconds += 1.0 / RATE;
        if (mIsAccepting.exchange(false))
            emit decoded(picture, mSeconds);
    }
}

Video::Video() : mThread(new QThread), mDecoder(new VideoDecoder)
{
    mDecoder->moveToThread(mThread);
    // Neither is waited for: ffmpeg, which the decoder kills, may be waiting for a storage device.
    connect(mThread, &QThread::finished, mDecoder, &QObject::deleteLater);
    connect(mThread, &QThread::finished, mThread, &QObject::deleteLater);
    connect(mDecoder, &VideoDecoder::decoded, this, &Video::show);
    connect(mDecoder, &VideoDecoder::ended, this, [this] {
        mSeconds = 0;
        setPlaying(false);
    });
    mThread->start();
}

Video::~Video()
{
    mThread->quit();
}

void Video::play(const QString &path)
{
    const QSize size(static_cast<int>(width()), static_cast<int>(height()));
    QMetaObject::invokeMethod(mDecoder, [decoder = mDecoder, path, size, seconds = mSeconds] {
        decoder->start(path, size, seconds);
    });
    setPlaying(true);
}

void Video::pause()
{
    QMetaObject::invokeMethod(mDecoder, &VideoDecoder::stop);
    setPlaying(false);
}

void Video::stop()
{
    pause();
    mSeconds = 0;
    mPicture = QImage();
    emit secondsChanged();
    emit hasPictureChanged();
    update();
}

void Video::paint(QPainter *painter)
{
    painter->drawImage(0, 0, mPicture);
}

void Video::show(const QImage &picture, double seconds)
{
    mDecoder->acceptNext();
    if (!mIsPlaying)
        return;
    const bool isFirst = mPicture.isNull();
    mPicture = picture;
    mSeconds = seconds;
    if (isFirst)
        emit hasPictureChanged();
    emit secondsChanged();
    update();
}

void Video::setPlaying(bool isPlaying)
{
    if (isPlaying == mIsPlaying)
        return;
    mIsPlaying = isPlaying;
    emit isPlayingChanged();
}
