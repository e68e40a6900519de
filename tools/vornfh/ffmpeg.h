// SPDX-License-Identifier: MIT
#ifndef FFMPEG_H
#define FFMPEG_H

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class QProcess;

/// Throws Failure unless ffmpeg is on PATH. @p what is the operation that needs it, for the message.
void requireFfmpeg(const QString &what);

/// Called several times a second while ffmpeg runs, with what it has written to standard output since the
/// last call. Returns the reason to stop it, or an empty string.
using WhyStop = std::function<QString(const QByteArray &output)>;

/// An ffmpeg process. It is killed when the object is destroyed or this process dies.
class Ffmpeg
{
public:
    /// Starts it. @p input and @p output are descriptors for its standard input and output, of which it gets
    /// copies. If @p input is -1, it has no input; if @p output is -1, takeOutput() returns its output.
    explicit Ffmpeg(const QStringList &arguments, int input = -1, int output = -1);
    ~Ffmpeg();
    Ffmpeg(const Ffmpeg &) = delete;
    Ffmpeg &operator=(const Ffmpeg &) = delete;

    /// Waits until it has ended, but not longer than @p milliseconds. Returns whether it has. Call this
    /// regularly: it also reads what ffmpeg prints.
    bool waitForEnd(int milliseconds);

    /// Asks it to finish its file, kills it if it does not, and waits for it.
    void stop();

    /// Waits until it has ended, or until there is a reason to stop it. Returns why it was stopped or failed;
    /// empty on success.
    QString finish(const WhyStop &whyStop = {});

    /// What it has written to standard output since the last call.
    QByteArray takeOutput();

    /// Returns why it failed; empty on success. It must have ended.
    QString failure();

    /// The last line that it has printed on standard error; empty if there is none. Without a failure, this
    /// is an error that did not end it, or an input error, which ffmpeg treats as the end of the
    /// input.
    QString lastError() const;

private:
    std::unique_ptr<QProcess> mProcess;
    QByteArray mErrors; // the last lines that it printed
};

/// Arguments that make ffmpeg write the file @p path, whatever its name. The file is overwritten.
QStringList fileOutput(const QString &path);

/// Runs ffmpeg to write @p path, which must exist and is overwritten, and waits for it. @p arguments are
/// those before the output. Returns why ffmpeg failed; empty on success.
QString runFfmpeg(const QStringList &arguments, const QString &path);

/// Arguments that make ffmpeg read the file @p path, whatever its name.
QStringList fileInput(const QString &path);

/// Decodes the media file @p path. Returns the last error that ffmpeg printed; empty if there was none.
QString decodingErrorOf(const QString &path);

/// The number of packets in the media file @p path, as ffprobe counts them, at most @p limit if that is not
/// 0; -1 if it cannot be read.
qint64 packetsIn(const QString &path, int limit = 0);

/// What ffprobe determines for a media file; 0 for a value that it cannot determine.
struct Measured {
    int width = 0; // of the first video stream, in pixels
    int height = 0;
    double seconds = 0;
    qint64 bitrate = 0;   // bits per second
    double framerate = 0; // average of the first video stream, frames per second
    QString failure;      // why ffprobe cannot be started
};

/// Starts ffprobe once and waits for it. All values are 0 if it cannot be started or cannot read the file.
Measured measure(const QString &path);

#endif // FFMPEG_H
