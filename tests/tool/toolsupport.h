// SPDX-License-Identifier: MIT
#ifndef TOOLSUPPORT_H
#define TOOLSUPPORT_H

#include "testsupport.h"

#include <QJsonDocument>
#include <QProcess>
#include <QProcessEnvironment>

#include <sys/stat.h>
#include <sys/types.h>

/// The outcome of running a program.
struct Outcome {
    int exitCode = -1; ///< 128 + n if signal n killed the program, -1 if it did not start
    QByteArray out;
    QByteArray err;

    QJsonDocument json() const { return QJsonDocument::fromJson(out); }
    bool operator==(const Outcome &other) const
    {
        return exitCode == other.exitCode && out == other.out && err == other.err;
    }
};

/// For QCOMPARE.
char *toString(const Outcome &outcome);

/// A fresh temporary directory in which the tool runs. It is the tool's current directory and HOME, and holds
/// its data directory. The tool runs in UTC, with the PATH that this process has when the object is made. "@"
/// in trees, arguments and expected output stands for the path of the directory.
class ToolRun
{
public:
    ToolRun();
    ~ToolRun();
    ToolRun(const ToolRun &) = delete;
    ToolRun &operator=(const ToolRun &) = delete;

    /// Makes @p entries below the directory.
    void make(const Tree &entries) const;

    /// Runs the tool. @p arguments may be any bytes.
    Outcome run(const QByteArrayList &arguments) const;
    /// The same with "--suffix ABC --mmc @/mmc/DCIM --sd @/sd/DCIM --usb @/usb/DCIM" before @p arguments.
    Outcome runOnStorages(const QByteArrayList &arguments) const;
    /// The same on a terminal with @p input; its width is unknown if @p columns is 0. Both output streams and
    /// the echo of the input are in Outcome::out.
    Outcome runOnTerminal(const QByteArrayList &arguments, const QByteArray &input = QByteArray(),
                          int columns = 0) const;
    /// Starts what runOnStorages() runs.
    void startOnStorages(QProcess &process, const QByteArrayList &arguments) const;
    /// Waits for the end of @p process.
    static Outcome finish(QProcess &process);
    /// Runs another program in the same environment.
    Outcome runProgram(const QString &program, const QStringList &arguments) const;
    /// From now on the tool runs as an unprivileged user. Call this before files are made. Returns false if
    /// that is not possible.
    bool dropPrivileges();
    /// From now on, a shell runs @p script immediately before call number @p count of the function @p call
    /// that the tool makes, before each call if it is 0; the functions are those in atcall.cpp. To the
    /// script, the tool is $PPID. Returns false if that is not possible.
    bool runBefore(const QByteArray &call, const QByteArray &script, int count = 1);
    /// From now on, every file system looks like FAT to the tool. Returns false if that is not possible.
    bool pretendFat();
    /// The same for exFAT with a driver that cannot clear the read-only attribute.
    bool pretendExfat();

    QString path() const { return mDirectory.path(); }
    QString sd() const { return path() + "/sd/DCIM"; }
    /// The tool of this build, or that of the environment variable VORNFH, for example one with sanitizers.
    static QString toolPath();
    /// The content of @p file, a path relative to the directory; empty if the file cannot be read.
    QByteArray content(const QString &file) const;
    /// @p text or @p entries with the path of the directory for "@".
    QByteArray expand(QByteArray text) const { return text.replace('@', path().toUtf8()); }
    Tree expand(const Tree &entries) const;

    /// Expected outcomes with exit code 0, 1 and 2; the last two print errorLines(@p messages).
    Outcome success(const QByteArray &out = QByteArray(), const QByteArray &err = QByteArray()) const;
    Outcome failure(const QByteArrayList &messages, const QByteArray &out = QByteArray()) const;
    Outcome usageError(const QByteArrayList &messages) const;

    QProcessEnvironment environment;

private:
    void start(QProcess &process, const QByteArrayList &arguments) const;
    bool preload();

    QTemporaryDir mDirectory;
    QByteArray mLauncher; // the start of the command line, before the tool
};

/// @p entries in @p folder.
Tree below(const QByteArray &folder, const Tree &entries);

/// "sd/" and "sd/DCIM/", with @p entries in them.
Tree onCard(const Tree &entries);

/// Content without repetition; a different seed makes different content.
QByteArray pattern(int size, char seed);

/// A line "@/sd/DCIM/PATH" for each path.
QByteArray cardLines(const QByteArrayList &paths);

/// The lines of @p text, which ends with a line feed unless it is empty.
QByteArrayList linesIn(const QByteArray &text);

/// A line "vornfh: MESSAGE" for each message.
QByteArray errorLines(const QByteArrayList &messages);

/// The library's @p lines as the tool prints them when standard error is not a terminal.
QByteArray withoutColours(QByteArray lines);

/// @p text with ".vornfh-PID-XXXXXX" in place of the name of each temporary file of the tool.
QByteArray withoutRandomNames(const QByteArray &text);
Outcome withoutRandomNames(const Outcome &outcome);

/// A script for ToolRun::runBefore() that sends two signals, such as "INT", to the tool, the second one after
/// the tool has handled the first.
QByteArray twoSignals(const QByteArray &first, const QByteArray &second);

/// The status of @p file, a path relative to the directory of @p tool. A symbolic link is not followed.
struct stat statusOf(const ToolRun &tool, const QString &file);

/// Sets the permissions of such a file.
void setMode(const ToolRun &tool, const QString &file, mode_t mode);

/// Returns whether process @p number exists and is not a zombie.
bool isRunning(pid_t number);

/// Whether an emulator runs the tool: in /proc, the program and the signal handlers are then the emulator's.
bool isEmulated();

/// Why a test is skipped.
inline const char *const CANNOT_MOUNT = "mounting needs root";
inline const char *const CANNOT_PRELOAD = "nothing can be preloaded";
inline const char *const IS_EMULATED = "/proc shows the emulator instead of the tool";

/// Messages that more than one test expects.
namespace messages {

inline QByteArray notConfigured(const QByteArray &storage)
{
    return "storage " + storage + " is not configured; use --" + storage + " DIR, or " + storage
           + "=DIR in the config file";
}
inline QByteArray unknownStorage(const QByteArray &name)
{
    return "STORAGE: '" + name + "' is not one of mmc, sd, usb";
}
inline QByteArray notUtf8(const QByteArray &argument, const QByteArray &value)
{
    return argument + " '" + value + "' is not valid UTF-8";
}
inline QByteArray emptyFolderName()
{
    return "the folder name '' is empty";
}
inline QByteArray reservedFolderName(const QByteArray &name)
{
    return "the folder name '" + name + "' is not the name of a folder in the location";
}
inline QByteArray folderNameWithSlash(const QByteArray &name)
{
    return "the folder name '" + name
           + "' contains '/'; it must be the name of a folder directly in the location";
}
/// About a file that an interrupted command has left.
inline QByteArray removed(const QByteArray &path)
{
    return path + ": left by an interrupted command; removed";
}
inline QByteArray readOnly(const QByteArray &location)
{
    return location + ": is on a read-only file system";
}

} // namespace messages

/// Gives this process its own mount namespace on the first call. Returns false if this user may not do that.
bool hasOwnMounts();

/// A tmpfs that is mounted on a folder for the lifetime of the object.
class TmpfsMount
{
public:
    TmpfsMount(const QString &path, const QByteArray &options);
    ~TmpfsMount();
    TmpfsMount(const TmpfsMount &) = delete;
    TmpfsMount &operator=(const TmpfsMount &) = delete;

    bool isMounted() const { return mIsMounted; }
    bool makeReadOnly() const;

private:
    QByteArray mPath;
    bool mIsMounted;
};

/// An ext4 on a loop device, or what @p mkfs makes. The kernel detaches the device when it is unmounted.
class LoopCard
{
public:
    explicit LoopCard(const ToolRun &tool, const QStringList &mkfs = {"mkfs.ext4", "-q", "-F"},
                      int mebibytes = 16);
    ~LoopCard() { unmount(); }
    LoopCard(const LoopCard &) = delete;
    LoopCard &operator=(const LoopCard &) = delete;

    /// Returns the name of the loop device; empty if it cannot be mounted.
    QByteArray mount(const QString &path, const QString &options = "loop");
    void unmount();

private:
    const ToolRun &mTool;
    QByteArray mMountPoint;
    bool mIsMade = false;
};

/// Gives a folder another mode for the lifetime of the object.
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
