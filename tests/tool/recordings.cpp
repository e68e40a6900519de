// SPDX-License-Identifier: MIT
#include "recordings.h"

#include "media.h"

#include <QStandardPaths>
#include <QtEndian>

#include <algorithm>

QByteArray onlyToRecord(const QByteArray &argument)
{
    const QByteArray real = QStandardPaths::findExecutable("ffmpeg").toUtf8(); // not a stand-in yet
    return "real='" + real + "'\ncase \" $* \" in *' " + argument
           + " '*) ;; *) exec \"$real\" \"$@\";; esac\n" + FIND_TARGET;
}

QByteArray paths(int first, int last, const QByteArray &extension)
{
    QByteArray lines;
    for (int number = first; number <= last; ++number)
        lines += FOLDER + "DCF_" + QByteArray::number(number).rightJustified(4, '0') + "." + extension + "\n";
    return lines;
}

QByteArray endedEarly(const QByteArray &name, const QByteArray &reason)
{
    return FOLDER + name + ": recording ended early: " + reason;
}

void fill(const ToolRun &tool, const QByteArray &name, int bytes)
{
    writeFile(tool.expand("@/sd/" + name), QByteArray(bytes, 'x'));
}

QByteArray probe(const QString &file, const QString &entries, const QStringList &options)
{
    return outputOf("ffprobe", QStringList{"-v", "error", "-of", "csv=p=0"} + options
                                   + QStringList{"-show_entries", entries, file})
        .simplified();
}

int packetsIn(const QString &file)
{
    return outputOf("ffprobe", {"-v", "error", "-of", "csv=p=0", "-show_entries", "packet=pts", file})
        .count('\n');
}

QByteArrayList packetsOf(const QString &file, const QString &stream)
{
    return outputOf("ffprobe", {"-v", "error", "-of", "csv=p=0", "-select_streams", stream, "-show_data_hash",
                                "md5", "-show_entries", "packet=data_hash", file})
        .trimmed()
        .split('\n');
}

QByteArray whyNotPlayable(const QString &file)
{
    const QByteArray packets = outputOf(
        "ffprobe", {"-v", "error", "-of", "csv=p=0", "-show_entries", "packet=pts_time,duration_time", file});
    double end = 0;
    for (const QByteArray &packet : packets.trimmed().split('\n'))
        end = std::max(end, packet.split(',').value(0).toDouble() + packet.split(',').value(1).toDouble());
    const double duration = probe(file, "format=duration").toDouble();
    if (end <= 0 || qAbs(duration - end) > 0.1)
        return "its duration is " + QByteArray::number(duration) + ", and its last packet ends at "
               + QByteArray::number(end);
    const QByteArray content = contentOf(file);
    const qint64 size = qFromLittleEndian<quint32>(content.constData() + 4);
    if (content.startsWith("RIFF") && size != content.size() - 8)
        return "the size in its header is " + QByteArray::number(size);
    return QByteArray();
}

pid_t processIn(const ToolRun &tool, const QString &file)
{
    return tool.content(file).trimmed().toInt();
}
