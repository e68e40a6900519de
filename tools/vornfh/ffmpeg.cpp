// SPDX-License-Identifier: MIT
#include "ffmpeg.h"

#include "errors.h"
#include "paths.h"
#include "signals.h"
#include "text.h"

#include <QFileInfo>
#include <QProcess>

namespace {

void waitForEnd(QProcess &process)
{
    constexpr int SIGNAL_CHECK = 100;
    constexpr int TIME_TO_END = 2000;
    while (!process.waitForFinished(SIGNAL_CHECK) && process.state() != QProcess::NotRunning) {
        if (!isStopped())
            continue;
        process.terminate();
        if (!process.waitForFinished(TIME_TO_END)) {
            process.kill();
            process.waitForFinished(-1);
        }
    }
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

} // namespace

void requireFfmpeg()
{
    if (!missingProgram({"ffmpeg"}).isEmpty())
        throw Failure("ffmpeg is not on PATH; recording needs it");
}

QStringList fileInput(const QString &path)
{
    return {"-i", "file:" + path};
}

QString runFfmpeg(const QStringList &arguments, const QString &path)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    // The format is always given and the path begins with "file:", so nothing in the path is interpreted.
    process.start("ffmpeg", QStringList{"-nostdin", "-hide_banner", "-loglevel", "error", "-y"} + arguments
                                + QStringList{"file:" + path});
    waitForEnd(process);
    if (process.error() == QProcess::FailedToStart)
        return "ffmpeg cannot be started: " + process.errorString();
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return QFileInfo(path).size() > 0 ? QString() : "ffmpeg wrote nothing";
    if (isStopped())
        return "interrupted";
    const QString reason = lastLine(process.readAllStandardError());
    return reason.isEmpty() ? QString("ffmpeg exited with code %1").arg(process.exitCode()) : reason;
}
