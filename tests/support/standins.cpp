// SPDX-License-Identifier: MIT
#include "standins.h"

#include <QFile>
#include <QStandardPaths>

#include <sys/stat.h>

namespace {

QByteArray quoted(QByteArray text)
{
    return "'" + text.replace("'", "'\\''") + "'";
}

} // namespace

StandIns::StandIns(Reach reach)
    : mRealPath(qgetenv("PATH")),
      mPath("PATH", QFile::encodeName(path()) + (reach == Alone ? QByteArray() : ":" + mRealPath))
{
    require(mDirectory.isValid(), "temporary directory");
}

QByteArray StandIns::file(const QByteArray &name) const
{
    return QFile::encodeName(path()) + "/" + name;
}

void StandIns::add(const QByteArray &name, const QByteArray &script)
{
    // One printf appends to the log with one write(), so that concurrent programs do not interleave their
    // entries.
    writeFile(file(name), "#!/bin/sh\nprintf '%s\\0' " + quoted(name) + " $# \"$@\" >>" + quoted(file(".log"))
                              + "\n" + script + "\n");
    ::chmod(file(name).constData(), 0755);
}

QByteArray StandIns::prints(const QByteArray &bytes)
{
    const QByteArray output = file(".output" + QByteArray::number(++mOutputs));
    writeFile(output, bytes);
    return real("cat") + " " + quoted(output) + "\n"; // "cat" itself may be a stand-in, or missing
}

QByteArray StandIns::becomes(const QByteArray &name) const
{
    return "exec " + real(name) + " \"$@\"\n";
}

QByteArray StandIns::real(const QByteArray &name) const
{
    const QStringList path = QString::fromLocal8Bit(mRealPath).split(':');
    return quoted(QFile::encodeName(QStandardPaths::findExecutable(QString::fromLatin1(name), path)));
}

Calls StandIns::allCalls() const
{
    QFile log(QFile::decodeName(file(".log")));
    if (!log.open(QIODevice::ReadOnly))
        return {};
    QByteArrayList pieces = log.readAll().split('\0');
    Calls calls;
    for (int at = 0; at + 1 < pieces.size();) {
        const int arguments = pieces.at(at + 1).toInt();
        calls.append(QByteArrayList{pieces.at(at)} + pieces.mid(at + 2, arguments));
        at += 2 + arguments;
    }
    return calls;
}

Calls StandIns::calls(const QByteArray &name) const
{
    Calls calls;
    for (const QByteArrayList &call : allCalls()) {
        if (call.first() == name)
            calls.append(call.mid(1));
    }
    return calls;
}

QByteArrayList StandIns::callOrder() const
{
    QByteArrayList names;
    for (const QByteArrayList &call : allCalls())
        names.append(call.first());
    return names;
}

Result run(const QString &command, const QStringList &arguments, int timeout)
{
    Result result = {0, "earlier output", "earlier errors"};
    result.code = VornFileHandler::execCmdLine(command, arguments, result.output, result.errors, timeout);
    return result;
}
