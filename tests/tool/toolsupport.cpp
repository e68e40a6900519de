// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QFile>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

char *toString(const Outcome &outcome)
{
    return qstrdup("exit " + QByteArray::number(outcome.exitCode) + "\n--- out\n" + outcome.out + "--- err\n"
                   + outcome.err);
}

ToolRun::ToolRun() : environment(QProcessEnvironment::systemEnvironment())
{
    environment.insert("HOME", path());
    environment.insert("XDG_DATA_HOME", path() + "/data");
    environment.insert("TZ", "UTC");
    environment.insert("LC_ALL", "C");
}

QList<QByteArray> ToolRun::storageOptions()
{
    return {"--suffix", "ABC", "--mmc", "@/mmc/DCIM", "--sd", "@/sd/DCIM", "--usb", "@/usb/DCIM"};
}

Outcome ToolRun::finish(QProcess &process)
{
    Outcome outcome;
    if (process.error() == QProcess::FailedToStart || !process.waitForFinished(60000))
        return outcome;
    outcome.exitCode =
        process.exitStatus() == QProcess::CrashExit ? 128 + process.exitCode() : process.exitCode();
    outcome.out = process.readAllStandardOutput();
    outcome.err = process.readAllStandardError();
    return outcome;
}

QString ToolRun::toolPath()
{
    return VORNFH_PATH;
}

void ToolRun::start(QProcess &process, const QList<QByteArray> &arguments) const
{
    // QProcess encodes arguments by the locale of this process. A shell that reads them passes any bytes on.
    QByteArray line = "exec " + mLauncher + "'" VORNFH_PATH "'";
    for (const QByteArray &argument : arguments)
        line += " '" + expand(argument).replace('\'', "'\\''") + "'";
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(path());
    process.start("/bin/sh", QStringList());
    process.write(line + "\n");
    process.closeWriteChannel();
    process.waitForStarted();
}

bool ToolRun::dropPrivileges()
{
    if (::geteuid() != 0)
        return true;
    ::umask(022);
    ::chmod(QFile::encodeName(path()).constData(), 0755);
    mLauncher = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
    return run({"--version"}).exitCode == 0;
}

Outcome ToolRun::run(const QList<QByteArray> &arguments) const
{
    QProcess process;
    start(process, arguments);
    return finish(process);
}

Outcome ToolRun::runOnStorages(const QList<QByteArray> &arguments) const
{
    return run(storageOptions() + arguments);
}

Outcome ToolRun::runProgram(const QString &program, const QStringList &arguments) const
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(path());
    process.start(program, arguments);
    return finish(process);
}

QByteArray ToolRun::content(const QString &file) const
{
    QFile reader(file);
    return reader.open(QIODevice::ReadOnly) ? reader.readAll() : QByteArray();
}

QMap<QByteArray, QByteArray> ToolRun::contents() const
{
    QMap<QByteArray, QByteArray> files;
    for (const QByteArray &name : tree(path()))
        files.insert(name, content(path() + "/" + QFile::decodeName(name)));
    return files;
}

FolderMode::FolderMode(const QString &path, mode_t mode) : mPath(QFile::encodeName(path))
{
    ::chmod(mPath.constData(), mode);
}

FolderMode::~FolderMode()
{
    ::chmod(mPath.constData(), 0755);
}
