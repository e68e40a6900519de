// SPDX-License-Identifier: MIT
#ifndef TOOLSUPPORT_H
#define TOOLSUPPORT_H

#include "testsupport.h"

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>
#include <QTemporaryDir>

#include <sys/types.h>

/// What a program left behind.
struct Outcome {
    int exitCode = -1; ///< 128 + n for a program that signal n ended, -1 for one that never started
    QByteArray out;
    QByteArray err;

    bool operator==(const Outcome &other) const
    {
        return exitCode == other.exitCode && out == other.out && err == other.err;
    }
};

/// For QCOMPARE.
char *toString(const Outcome &outcome);

/// A fresh temporary directory in which the tool runs: it is the current directory, HOME and the data
/// directory lie in it, times are UTC. In expected texts and arguments "@" stands for its path.
class ToolRun
{
public:
    ToolRun();

    /// Runs the tool. @p arguments may be any bytes.
    Outcome run(const QList<QByteArray> &arguments) const;
    /// The same with "--suffix ABC --mmc @/mmc/DCIM --sd @/sd/DCIM --usb @/usb/DCIM" in front.
    Outcome runOnStorages(const QList<QByteArray> &arguments) const;
    /// The tool as a process that is still running.
    void start(QProcess &process, const QList<QByteArray> &arguments) const;
    /// From here on the tool runs as a user to whom permissions apply. To be called before files are made.
    /// False where that is not possible.
    bool dropPrivileges();
    /// Waits for it to end.
    static Outcome finish(QProcess &process);
    /// Runs any other program in the same surroundings.
    Outcome runProgram(const QString &program, const QStringList &arguments) const;

    QString path() const { return mDirectory.path(); }
    QString sd() const { return path() + "/sd/DCIM"; }
    /// @p text with "@" as the path of the directory.
    QByteArray expand(QByteArray text) const { return text.replace('@', path().toUtf8()); }
    QByteArray content(const QString &file) const;
    /// All files below the directory with their contents.
    QMap<QByteArray, QByteArray> contents() const;

    static QList<QByteArray> storageOptions();
    static QString toolPath();

    QProcessEnvironment environment;

private:
    QTemporaryDir mDirectory;
    QByteArray mLauncher; // in front of the tool
};

/// A folder with @p mode, 0 for instance, for as long as the object lives.
class FolderMode
{
public:
    FolderMode(const QString &path, mode_t mode);
    ~FolderMode();
    FolderMode(const FolderMode &) = delete;
    FolderMode &operator=(const FolderMode &) = delete;

private:
    QByteArray mPath;
};

#endif // TOOLSUPPORT_H
