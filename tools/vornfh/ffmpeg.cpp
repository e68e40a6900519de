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

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

const QStringList QUIET = {"-nostdin", "-hide_banner", "-loglevel", "error"};

pid_t parent = 0; // of a child that is being started

void rememberParent()
{
    parent = ::getpid();
}

/// The first thing that a child of this process does: it asks the kernel to kill it when this process dies.
/// Waiting for setupChildProcess() would be too late: before that, the child of a class derived from QProcess
/// waits until its parent has registered it. A parent that is killed never does, and the child would wait
/// forever, with the recordings of its parent open.
void dieWithParent()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) // the parent is already dead
        ::_exit(1);
}

/// A program that does not outlive this process, and does not receive the signals that the terminal sends to
/// this process. The kernel kills it when the thread that started it ends, so that thread must wait for it:
/// prctl(2), "PR_SET_PDEATHSIG".
class Child : public QProcess
{
public:
    /// Descriptors for its standard input and output; -1 for those that QProcess sets up.
    explicit Child(int input = -1, int output = -1) : mInput(input), mOutput(output)
    {
        static const int registered = ::pthread_atfork(rememberParent, nullptr, dieWithParent);
        if (registered != 0)
            throw Failure("ffmpeg cannot be started: " + errorText(registered));
    }

protected:
    void setupChildProcess() override
    {
        ::setpgid(0, 0);
        if (mInput >= 0)
            ::dup2(mInput, STDIN_FILENO);
        if (mOutput >= 0)
            ::dup2(mOutput, STDOUT_FILENO);
    }

private:
    const int mInput;
    const int mOutput;
};

/// The last line that ffmpeg printed. "Last message repeated 3 times" and a final "Conversion failed!" are
/// skipped.
QString lastLine(const QByteArray &text)
{
    QStringList lines;
    for (const QByteArray &line : QByteArray(text).replace('\r', '\n').split('\n')) {
        if (!line.isEmpty() && !line.trimmed().startsWith("Last message repeated "))
            lines.append(printable(line));
    }
    if (lines.size() > 1 && lines.last() == "Conversion failed!")
        lines.removeLast();
    return lines.isEmpty() ? QString() : lines.last().trimmed();
}

/// The same without the name and address of a part of ffmpeg, as in "[mjpeg @ 0x55d005857500] overread 8".
QString lastLineWithoutAddress(const QByteArray &text)
{
    static const QRegularExpression ADDRESS("^\\[[^]]*\\] ");
    return lastLine(text).remove(ADDRESS);
}

QString failureOf(const QProcess &process, const QByteArray &errors)
{
    if (process.error() == QProcess::FailedToStart)
        return "ffmpeg cannot be started: " + process.errorString();
    if (process.exitStatus() == QProcess::CrashExit)
        return QString("ffmpeg was killed by signal %1").arg(process.exitCode());
    const QString reason = process.exitCode() == 0 ? QString() : lastLine(errors);
    return process.exitCode() == 0 || !reason.isEmpty()
               ? reason
               : QString("ffmpeg exited with code %1").arg(process.exitCode());
}

/// The value of a fraction such as "30000/1001"; 0 if it is not a positive number.
double fraction(const QString &text)
{
    const double denominator = text.section('/', 1).toDouble();
    return denominator > 0 ? text.section('/', 0, 0).toDouble() / denominator : 0;
}

} // namespace

void requireFfmpeg(const QString &what)
{
    if (!missingProgram({"ffmpeg"}).isEmpty())
        throw Failure(QString("%1; %2 needs it").arg(notOnPath("ffmpeg"), what));
}

Ffmpeg::Ffmpeg(const QStringList &arguments, int input, int output)
    : mProcess(std::make_unique<Child>(input, output))
{
    mProcess->setStandardInputFile(QProcess::nullDevice());
    mProcess->start("ffmpeg", QUIET + arguments);
}

Ffmpeg::~Ffmpeg()
{
    if (waitForEnd(0))
        return;
    ::kill(-static_cast<pid_t>(mProcess->processId()), SIGKILL);
    mProcess->kill(); // it may not have its process group yet
    mProcess->waitForFinished(-1);
}

bool Ffmpeg::waitForEnd(int milliseconds)
{
    constexpr int LONGEST_ERRORS = 8192;
    const bool hasEnded =
        mProcess->waitForFinished(milliseconds) || mProcess->state() == QProcess::NotRunning;
    mErrors = (mErrors + mProcess->readAllStandardError()).right(LONGEST_ERRORS);
    return hasEnded;
}

void Ffmpeg::stop()
{
    constexpr int TIME_TO_FINISH = 10000;
    if (waitForEnd(0))
        return;
    // If ffmpeg on PATH is a script, both signals reach the programs that it runs.
    const auto group = -static_cast<pid_t>(mProcess->processId());
    ::kill(group, SIGINT);
    if (waitForEnd(TIME_TO_FINISH))
        return;
    ::kill(group, SIGKILL);
    waitForEnd(-1);
}

QString Ffmpeg::finish(const WhyStop &whyStop)
{
    constexpr int INTERVAL = 100;
    while (!waitForEnd(INTERVAL)) {
        const QByteArray output = takeOutput();
        const QString reason = whyStop ? whyStop(output) : QString();
        if (reason.isEmpty())
            continue;
        stop();
        return reason;
    }
    return failure();
}

QByteArray Ffmpeg::takeOutput()
{
    return mProcess->readAllStandardOutput();
}

QString Ffmpeg::failure()
{
    return failureOf(*mProcess, mErrors);
}

QString Ffmpeg::lastError() const
{
    return lastLineWithoutAddress(mErrors);
}

QStringList fileInput(const QString &path)
{
    return {"-i", "file:" + path};
}

QStringList fileOutput(const QString &path)
{
    // The format is always given and the path begins with "file:", so nothing in the path is interpreted.
    return {"-y", "file:" + path};
}

QString runFfmpeg(const QStringList &arguments, const QString &path)
{
    return Ffmpeg(arguments + fileOutput(path)).finish();
}

QString decodingErrorOf(const QString &path)
{
    Child process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start("ffmpeg", QUIET + fileInput(path)
                                + QStringList{"-map", "0:v?", "-map", "0:a?", "-fps_mode", "passthrough",
                                              "-f", "null", "-"});
    process.waitForFinished(-1);
    const QByteArray errors = process.readAllStandardError();
    const QString line = lastLineWithoutAddress(errors);
    return process.error() == QProcess::FailedToStart || line.isEmpty() ? failureOf(process, errors) : line;
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
        result.failure = notOnPath(missing);
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
