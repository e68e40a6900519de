// SPDX-License-Identifier: MIT
#ifndef VIDEO_H
#define VIDEO_H

#include <QImage>
#include <QProcess>
#include <QQuickPaintedItem>

#include <atomic>

/// Decodes a video with ffmpeg, in real time, into pictures of one size. Runs in its own thread.
class VideoDecoder : public QObject
{
    Q_OBJECT

public:
    /// Accepts the next picture. Until then, pictures are dropped, because the interface cannot keep up. May
    /// be called from any thread.
    void acceptNext() { mIsAccepting = true; }

public slots:
    void start(const QString &path, QSize size, double seconds);
    void stop();

signals:
    void decoded(const QImage &picture, double seconds);
    void ended();

private:
    void readPictures();

    QProcess *mProcess = nullptr;
    QSize mSize;
    double mSeconds = 0;
    std::atomic<bool> mIsAccepting = true;
};

/// Plays a video without its sound.
class Video : public QQuickPaintedItem
{
    Q_OBJECT
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    /// False while there is nothing to see yet.
    Q_PROPERTY(bool hasPicture READ hasPicture NOTIFY hasPictureChanged)
    Q_PROPERTY(double seconds READ seconds NOTIFY secondsChanged)

public:
    Video();
    ~Video() override;

    bool isPlaying() const { return mIsPlaying; }
    bool hasPicture() const { return !mPicture.isNull(); }
    double seconds() const { return mSeconds; }
    /// Plays @p path from the position seconds() on.
    Q_INVOKABLE void play(const QString &path);
    Q_INVOKABLE void pause();
    /// Removes the picture, and returns to the start.
    Q_INVOKABLE void stop();

    void paint(QPainter *painter) override;

signals:
    void isPlayingChanged();
    void hasPictureChanged();
    void secondsChanged();

private:
    void show(const QImage &picture, double seconds);
    void setPlaying(bool isPlaying);

    QThread *mThread;
    VideoDecoder *mDecoder;
    bool mIsPlaying = false;
    QImage mPicture;
    double mSeconds = 0;
};

#endif // VIDEO_H
