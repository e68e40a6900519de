// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QDir>
#include <QRegularExpression>
#include <QStorageInfo>

#include <algorithm>
#include <csignal>
#include <vector>

#include <pty.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QByteArrayList STORAGE_OPTIONS = {"--suffix", "ABC",       "--mmc", "@/mmc/DCIM",
                                        "--sd",     "@/sd/DCIM", "--usb", "@/usb/DCIM"};

[[noreturn]] void becomeTool(const ToolRun &tool, const QByteArrayList &arguments)
{
    QByteArrayList words = QByteArrayList{ToolRun::toolPath().toUtf8()} + tool.expand(arguments);
    std::vector<char *> pointers(static_cast<size_t>(words.size()) + 1); // the last one is null
    std::transform(words.begin(), words.end(), pointers.begin(),
                   [](QByteArray &word) { return word.data(); });
    for (const QString &name : tool.environment.keys())
        qputenv(name.toUtf8().constData(), tool.environment.value(name).toUtf8());
    if (::chdir(QFile::encodeName(tool.path()).constData()) == 0)
        ::execv(pointers.front(), pointers.data());
    ::_exit(127);
}

} // namespace

char *toString(const Outcome &outcome)
{
    return qstrdup("exit " + QByteArray::number(outcome.exitCode) + "\n--- out\n" + outcome.out + "--- err\n"
                   + outcome.err);
}

ToolRun::ToolRun() : environment(QProcessEnvironment::systemEnvironment())
{
    std::signal(SIGHUP, SIG_DFL); // nohup(1) ignores it, and so would the tool
    environment.insert("HOME", path());
    environment.insert("XDG_DATA_HOME", path() + "/data");
    environment.insert("VORNFH_CONFIG", "/dev/null"); // rather than a config file of this machine
    environment.remove("XDG_CONFIG_HOME");
    environment.insert("TZ", "UTC");
    environment.insert("LC_ALL", "C");
    environment.insert("NO_COLOR", "");
    environment.insert("COLUMNS", "");
}

ToolRun::~ToolRun()
{
    clearTree(path()); // QTemporaryDir does not delete names that are not UTF-8
}

void ToolRun::make(const Tree &entries) const
{
    makeTree(path(), expand(entries));
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

void ToolRun::start(QProcess &process, const QByteArrayList &arguments) const
{
    // QProcess encodes arguments in this process's locale. A shell passes any bytes on.
    QByteArray line = "exec " + mLauncher + "'" + toolPath().toUtf8() + "'";
    for (const QByteArray &argument : arguments)
        line += " '" + expand(argument).replace('\'', "'\\''") + "'";
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(path());
    process.start("/bin/sh", QStringList());
    process.write(line + "\n");
    process.waitForBytesWritten(); // or the shell would wait for the next event loop of this process
    process.closeWriteChannel();
}

void ToolRun::startOnStorages(QProcess &process, const QByteArrayList &arguments) const
{
    start(process, STORAGE_OPTIONS + arguments);
}

Outcome ToolRun::run(const QByteArrayList &arguments) const
{
    QProcess process;
    start(process, arguments);
    return finish(process);
}

Outcome ToolRun::runOnStorages(const QByteArrayList &arguments) const
{
    return run(STORAGE_OPTIONS + arguments);
}

Outcome ToolRun::runOnTerminal(const QByteArrayList &arguments, const QByteArray &input, int columns) const
{
    Outcome outcome;
    int terminal = -1;
    winsize size = {};
    size.ws_col = static_cast<unsigned short>(columns);
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0)
        becomeTool(*this, STORAGE_OPTIONS + arguments);
    if (::write(terminal, input.constData(), static_cast<size_t>(input.size())) != input.size())
        return outcome;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(terminal, buffer, sizeof buffer)) > 0)
        outcome.out.append(buffer, static_cast<int>(count));
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(terminal);
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return outcome;
}

Outcome ToolRun::runProgram(const QString &program, const QStringList &arguments) const
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(path());
    process.start(program, arguments);
    return finish(process);
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

bool ToolRun::preload()
{
#ifdef AT_CALL_PATH
    environment.insert("LD_PRELOAD", AT_CALL_PATH);
    // AddressSanitizer need not be the first library.
    environment.insert("ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    return true;
#else
    return false;
#endif
}

bool ToolRun::runBefore(const QByteArray &call, const QByteArray &script, int count)
{
    environment.insert("AT_CALL", call);
    environment.insert("AT_CALL_COUNT", QString::number(count));
    environment.insert("AT_CALL_SCRIPT", QString::fromUtf8(script));
    return preload();
}

bool ToolRun::pretendFat()
{
    environment.insert("PRETEND_FILE_SYSTEM", "fat");
    return preload();
}

bool ToolRun::pretendExfat()
{
    environment.insert("PRETEND_FILE_SYSTEM", "exfat");
    return preload();
}

QString ToolRun::toolPath()
{
    return qEnvironmentVariable("VORNFH", VORNFH_PATH);
}

QByteArray ToolRun::content(const QString &file) const
{
    QFile reader(QDir(path()).filePath(file));
    return reader.open(QIODevice::ReadOnly) ? reader.readAll() : QByteArray();
}

Tree ToolRun::expand(const Tree &entries) const
{
    Tree expanded;
    for (const QByteArray &entry : entries)
        expanded.append(expand(entry));
    return expanded;
}

Outcome ToolRun::success(const QByteArray &out, const QByteArray &err) const
{
    return {0, expand(out), expand(err)};
}

Outcome ToolRun::failure(const QByteArrayList &messages, const QByteArray &out) const
{
    return {1, expand(out), expand(errorLines(messages))};
}

Outcome ToolRun::usageError(const QByteArrayList &messages) const
{
    return {2, "", expand(errorLines(messages))};
}

Tree below(const QByteArray &folder, const Tree &entries)
{
    return inFolder(folder, entries).mid(1);
}

Tree onCard(const Tree &entries)
{
    return Tree{"sd/"} + inFolder("sd/DCIM/", entries);
}

QByteArray pattern(int size, char seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(seed + i * 7 + i / 251);
    return bytes;
}

QByteArray cardLines(const QByteArrayList &paths)
{
    QByteArray lines;
    for (const QByteArray &path : paths)
        lines += "@/sd/DCIM/" + path + "\n";
    return lines;
}

QByteArrayList linesIn(const QByteArray &text)
{
    return text.isEmpty() ? QByteArrayList() : text.trimmed().split('\n');
}

QByteArray errorLines(const QByteArrayList &messages)
{
    QByteArray lines;
    for (const QByteArray &message : messages)
        lines += "vornfh: " + message + "\n";
    return lines;
}

QByteArray withoutColours(QByteArray lines)
{
    for (const char *const colour : {"\x1b[31m", "\x1b[36m", "\x1b[0m"})
        lines.replace(colour, "");
    return lines;
}

QByteArray withoutRandomNames(const QByteArray &text)
{
    static const QRegularExpression NAME(R"(\.vornfh-[0-9]+-[A-Za-z0-9]{6}\b)");
    return QString::fromUtf8(text).replace(NAME, ".vornfh-PID-XXXXXX").toUtf8();
}

Outcome withoutRandomNames(const Outcome &outcome)
{
    return {outcome.exitCode, withoutRandomNames(outcome.out), withoutRandomNames(outcome.err)};
}

QByteArray twoSignals(const QByteArray &first, const QByteArray &second)
{
    // The tool catches SIGHUP (bit 0), SIGINT (1) and SIGTERM (14) until the first of them arrives.
    return "kill -" + first
           + " $PPID\n"
             "while [ $((0x$(sed -n 's/^SigCgt:[^0-9a-f]*//p' /proc/$PPID/status) & 0x4003)) != 0 ]\n"
             "do sleep 0.01; done\n"
             "kill -"
           + second + " $PPID";
}

struct stat statusOf(const ToolRun &tool, const QString &file)
{
    struct stat status = {};
    require(::lstat(QFile::encodeName(tool.path() + "/" + file).constData(), &status) == 0, file.toUtf8());
    return status;
}

void setMode(const ToolRun &tool, const QString &file, mode_t mode)
{
    require(::chmod(QFile::encodeName(tool.path() + "/" + file).constData(), mode) == 0, file.toUtf8());
}

bool isRunning(pid_t number)
{
    QFile file(QString("/proc/%1/stat").arg(number));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray status = file.readAll();
    const char state = status.at(status.lastIndexOf(')') + 2); // after the program's name
    return state != 'Z' && state != 'X';
}

bool isEmulated()
{
#ifdef EMULATED
    return true;
#else
    return false;
#endif
}

bool hasOwnMounts()
{
    static const bool has =
        ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return has;
}

TmpfsMount::TmpfsMount(const QString &path, const QByteArray &options)
    : mPath(QFile::encodeName(path)),
      mIsMounted(::mount("tmpfs", mPath.constData(), "tmpfs", 0, options.constData()) == 0)
{
}

TmpfsMount::~TmpfsMount()
{
    if (mIsMounted)
        ::umount2(mPath.constData(), MNT_DETACH);
}

bool TmpfsMount::makeReadOnly() const
{
    return ::mount("tmpfs", mPath.constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

LoopCard::LoopCard(const ToolRun &tool, const QStringList &mkfs, int mebibytes) : mTool(tool)
{
    tool.make({"sd/", "card.img size " + QByteArray::number(qint64(mebibytes) << 20)});
    mIsMade = hasOwnMounts()
              && tool.runProgram(mkfs[0], mkfs.mid(1) + QStringList{tool.path() + "/card.img"}).exitCode == 0;
}

QByteArray LoopCard::mount(const QString &path, const QString &options)
{
    const QStringList arguments = {"-o", options, mTool.path() + "/card.img", path};
    if (!mIsMade || mTool.runProgram("mount", arguments).exitCode != 0)
        return {};
    mMountPoint = QFile::encodeName(path);
    return QStorageInfo(path).device().mid(5);
}

void LoopCard::unmount()
{
    if (!mMountPoint.isEmpty())
        ::umount2(mMountPoint.constData(), 0);
    mMountPoint.clear();
}

FolderMode::FolderMode(const QString &path, mode_t mode) : mPath(QFile::encodeName(path))
{
    ::chmod(mPath.constData(), mode);
}

FolderMode::~FolderMode()
{
    ::chmod(mPath.constData(), 0755);
}
