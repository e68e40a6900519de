// SPDX-License-Identifier: MIT
#include "standins.h"

#include "testsupport.h"

#include <QFile>
#include <QStandardPaths>

#include <stdexcept>

#include <sys/stat.h>

namespace {

QByteArray quoted(QByteArray text)
{
    return "'" + text.replace("'", "'\\''") + "'";
}

} // namespace

StandIns::StandIns(Reach reach) : mRealPath(qgetenv("PATH"))
{
    if (!mDirectory.isValid())
        throw std::runtime_error("temporary directory");
    const QByteArray own = QFile::encodeName(mDirectory.path());
    qputenv("PATH", reach == Alone ? own : own + ":" + mRealPath);
}

StandIns::~StandIns()
{
    qputenv("PATH", mRealPath);
}

QByteArray StandIns::file(const QByteArray &name) const
{
    return QFile::encodeName(mDirectory.path()) + "/" + name;
}

void StandIns::add(const QByteArray &name, const QByteArray &script)
{
    // One printf is one write at the end of the log, so that programs which run at once do not mix theirs.
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

QList<QList<QByteArray>> StandIns::allCalls() const
{
    QFile log(QFile::decodeName(file(".log")));
    if (!log.open(QIODevice::ReadOnly))
        return {};
    QList<QByteArray> pieces = log.readAll().split('\0');
    QList<QList<QByteArray>> calls;
    for (int at = 0; at + 1 < pieces.size();) {
        const int arguments = pieces.at(at + 1).toInt();
        calls.append(QList<QByteArray>{pieces.at(at)} + pieces.mid(at + 2, arguments));
        at += 2 + arguments;
    }
    return calls;
}

QList<QList<QByteArray>> StandIns::calls(const QByteArray &name) const
{
    QList<QList<QByteArray>> calls;
    for (const QList<QByteArray> &call : allCalls()) {
        if (call.first() == name)
            calls.append(call.mid(1));
    }
    return calls;
}

QList<QByteArray> StandIns::callOrder() const
{
    QList<QByteArray> names;
    for (const QList<QByteArray> &call : allCalls())
        names.append(call.first());
    return names;
}

void StandIns::forgetCalls()
{
    QFile::remove(QFile::decodeName(file(".log")));
}
