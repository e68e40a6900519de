// SPDX-License-Identifier: MIT
#include "ffmpeg.h"

#include "errors.h"
#include "paths.h"
#include "text.h"

#include <QFileInfo>
#include <QHash>
#include <QProcess>
#include <QRegularExpression>

#include <csignal>

#include <sys/prctl.h>
#include <unistd.h>

namespace {

/// A program that does not outlive this process, and does not receive the signals that the terminal sends to
/// this process.
class Child : public QProcess
{
protected:
    void setupChildProcess() override
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != mParent) // the parent is already dead
            ::_exit(1);
        ::setpgid(0, 0);
    }

private:
    const pid_t mParent = ::getpid();
};

/// Asks ffmpeg to finish its file, and kills it if it takes too long. If ffmpeg on PATH is a script, both
/// signals reach the programs that it runs.
void stop(QProcess &process)
{
    constexpr int TIME_TO_FINISH = 10000;
    const auto group = -static_cast<pid_t>(process.processId());
    ::kill(group, SIGINT);
    if (process.waitForFinished(TIME_TO_FINISH))
        return;
    ::kill(group, SIGKILL);
    process.waitForFinished(-1);
}

/// Waits for ffmpeg to exit and returns why it was stopped; empty if it was not.
QString waitForEnd(QProcess &process, const WhyStop &whyStop)
{
    constexpr int INTERVAL = 100;
    while (!process.waitForFinished(INTERVAL) && process.state() != QProcess::NotRunning) {
        const QString reason = whyStop ? whyStop() : QString();
        if (reason.isEmpty())
            continue;
        stop(process);
        return reason;
    }
    return QString();
}

/// The last line that ffmpeg printed. A final "Conversion failed!" is skipped.
QString lastLine(const QByteArray &text)
{
    QStringList lines;
    for (const QByteArray &line : QByteArray(text).replace('\r', '\n').split('\n')) {
        if (!line.isEmpty())
            lines.append(printable(line));
    }
    if (lines.size() > 1 && lines.last() == "Conversion failed!")
        lines.removeLast();
    return lines.isEmpty() ? QString() : lines.last().trimmed();
}

QString failureOf(QProcess &process)
{
    if (process.error() == QProcess::FailedToStart)
        return "ffmpeg cannot be started: " + process.errorString();
    if (process.exitStatus() == QProcess::CrashExit)
        return QString("ffmpeg was killed by signal %1").arg(process.exitCode());
    const QString reason = process.exitCode() == 0 ? QString() : lastLine(process.readAllStandardError());
    return process.exitCode() == 0 || !reason.isEmpty()
               ? reason
               : QString("ffmpeg exited with code %1").arg(process.exitCode());
}

/// The value of "30000/1001"; 0 if it is not a positive number.
double fraction(const QString &text)
{
    const double denominator = text.section('/', 1).toDouble();
    return denominator > 0 ? text.section('/', 0, 0).toDouble() / denominator : 0;
}

} // namespace

void requireFfmpeg(const QString &what)
{
    if (!missingProgram({"ffmpeg"}).isEmpty())
        throw Failure(QString("ffmpeg is not on PATH; %1 needs it").arg(what));
}

QStringList fileInput(const QString &path)
{
    return {"-i", "file:" + path};
}

QString runFfmpeg(const QStringList &arguments, const QString &path, const WhyStop &whyStop)
{
    Child process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    // The format is always given and the path begins with "file:", so nothing in the path is interpreted.
    process.start("ffmpeg", QStringList{"-nostdin", "-hide_banner", "-loglevel", "error", "-y"} + arguments
                                + QStringList{"file:" + path});
    const QString stopped = waitForEnd(process, whyStop);
    return stopped.isEmpty() ? failureOf(process) : stopped;
}

QString decodingErrorOf(const QString &path)
{
    static const QRegularExpression ADDRESS("^\\[[^]]*\\] ");
    Child process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start("ffmpeg", QStringList{"-nostdin", "-hide_banner", "-loglevel", "error"} + fileInput(path)
                                + QStringList{"-map", "0:v?", "-map", "0:a?", "-fps_mode", "passthrough",
                                              "-f", "null", "-"});
    process.waitForFinished(-1);
    const QString line = lastLine(process.readAllStandardError()).remove(ADDRESS);
    return process.error() == QProcess::FailedToStart || line.isEmpty() ? failureOf(process) : line;
}

qint64 packetsIn(const QString &path, int limit)
{
    const QStringList interval =
        limit > 0 ? QStringList{"-read_intervals", QString("%+#%1").arg(limit)} : QStringList();
    Child process;
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start("ffprobe", QStringList{"-v", "error"} + interval
                                 + QStringList{"-show_entries", "packet=codec_type", "-of", "csv=p=0", "-i",
                                               "file:" + path});
    process.waitForFinished(-1);
    const bool isRead = process.error() == QProcess::UnknownError && process.exitCode() == 0;
    return isRead ? process.readAllStandardOutput().count('\n') : -1;
}

Measured measure(const QString &path)
{
    Measured result;
    const QString missing = missingProgram({"ffprobe"});
    if (!missing.isEmpty()) {
        result.failure = missing + " is not on PATH";
        return result;
    }
    Child process;
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start("ffprobe", QStringList{"-v", "error", "-select_streams", "v:0", "-show_entries",
                                         "stream=width,height,avg_frame_rate:format=duration,bit_rate", "-of",
                                         "default=nw=1"}
                                 + fileInput(path));
    process.waitForFinished(-1);
    QHash<QString, QString> values;
    for (const QByteArray &line : process.readAllStandardOutput().split('\n')) {
        const QString name = line.left(line.indexOf('='));
        if (!values.contains(name)) // a stream that is also part of a program is printed twice
            values.insert(name, line.mid(name.size() + 1).trimmed());
    }
    result.width = values["width"].toInt();
    result.height = values["height"].toInt();
    result.seconds = values["duration"].toDouble();
    result.bitrate = values["bit_rate"].toLongLong();
    result.framerate = fraction(values["avg_frame_rate"]);
    return result;
}
