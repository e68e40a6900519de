// SPDX-License-Identifier: MIT
// Runs the tool on a disk whose writes and flushes are recorded, then rebuilds states that the disk can
// have if the power fails at some moment, mounts them, and compares them with what the tool had reported by
// then.
//
// A disk keeps what was written before its last flush. Of the writes after it, any may be lost. The
// test tries every prefix, random subsets, and all of them with the last one cut at the boundary of a sector.
#include "blocklog.h"
#include "disks.h"
#include "media.h"
#include "toolsupport.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <vector>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

constexpr qint64 DISK_BYTES = 8 << 20;
constexpr int SUBSETS = 4; // for each flush and each report
constexpr int SECTOR = 512;

QByteArray fileSystem()
{
    return qEnvironmentVariableIsSet("POWERCUT_FILE_SYSTEM") ? qgetenv("POWERCUT_FILE_SYSTEM") : "ext4";
}

struct Scenario {
    enum Rule {
        Whole,   ///< at any time, a file is absent or whole; if it disappears, its content is there under
                 ///< another name
        Pairs,   ///< the same, and no thumbnail is without its recording
        Objects, ///< the same, and what is deleted has its sum in SHA256SUMS
        InPlace, ///< a new file may have any content until it is reported
        MkPath,  ///< and so may a new folder; on FAT, the library cannot create folders more safely
        Deletes, ///< what is being deleted may have any content until it is reported
    };
    Rule rule;
    Tree setup; ///< "sd/" and "usb/" are the disks; "filler BYTES" leaves as many bytes free on "sd/"
    QByteArrayList arguments; ///< of the tool, or the path of another program and its arguments
    int exitCode = 0;
    Tree unflushed = {};        ///< made while the disks are recorded, before the tool starts
    QByteArray killedAt = {};   ///< ffmpeg is killed when this file has content
    bool hasLateWrites = false; ///< what the kernel writes when the disks are unmounted, it may write earlier

    int disks() const
    {
        const bool hasUsb = std::any_of(arguments.begin(), arguments.end(), [](const QByteArray &word) {
            return word == "usb" || word.startsWith("@/usb/");
        });
        return hasUsb ? 2 : 1;
    }
};

/// A run of the tool and what happened to the disks during it.
struct Recorded {
    Snapshot before;
    Snapshot after;
    QVector<QByteArray> images; ///< before the run
    QVector<LoggedEvent> events;
    Outcome outcome;
};

const QStringList DISKS = {"sd", "usb"};

using Loops = std::vector<std::unique_ptr<LoopDevice>>;

Loops loopsOf(const QStringList &images)
{
    Loops loops;
    for (const QString &image : images)
        loops.push_back(std::make_unique<LoopDevice>(image));
    return loops;
}

/// The disks, mounted below @p folder.
class MountedDisks
{
public:
    MountedDisks(const Loops &loops, const QString &folder, bool isReadOnly = false)
    {
        for (size_t disk = 0; disk < loops.size(); ++disk) {
            mMounts.push_back(std::make_unique<Mount>(
                loops[disk]->path(), folder + "/" + DISKS[static_cast<int>(disk)], fileSystem(), isReadOnly));
            require(mMounts.back()->isMounted(), "mount " + fileSystem());
        }
    }

private:
    std::vector<std::unique_ptr<Mount>> mMounts;
};

Snapshot snapshotOfDisks(const QString &folder)
{
    Snapshot all;
    for (const QString &disk : DISKS) {
        const Snapshot found = snapshotOf(folder + "/" + disk);
        for (auto entry = found.begin(); entry != found.end(); ++entry)
            all[disk.toUtf8() + "/" + entry.key()] = entry.value();
    }
    return all;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    require(file.open(QIODevice::ReadOnly), path.toUtf8());
    return file.readAll();
}

/// Makes the folder work/, which is in memory.
TmpfsMount workFolder(const ToolRun &tool)
{
    tool.make({"work/"});
    return TmpfsMount(tool.path() + "/work", "size=256m");
}

/// Creates an image of a disk in work/ with an empty file system, and returns its path.
QString makeImage(const ToolRun &tool, int number = 0)
{
    static QMap<int, QByteArray> images; // creating a file system takes a second in an emulated machine
    const QString path = tool.path() + "/work/image" + QString::number(number);
    if (images.contains(number)) {
        writeFile(path, images[number]);
    } else {
        makeFileSystem(path, fileSystem(), DISK_BYTES);
        images[number] = readAll(path);
    }
    return path;
}

/// An AVI file whose writer was killed.
const QByteArray &unclosedVideo()
{
    static QByteArray video;
    if (video.isEmpty()) {
        const QTemporaryDir folder;
        makeVideo(folder.filePath("a.avi"), QSize(64, 48));
        video = contentOf(folder.filePath("a.avi")).replace(4, 4, QByteArray(4, '\xff'));
    }
    return video;
}

/// Creates @p entries. "FILE is a photo", "FILE is a PNG photo", "FILE is a large photo" and "FILE is an
/// unclosed video" create media files, "FILE is gone" deletes the file, "FILE is protected" removes its write
/// permission, and "gallery" writes a gallery with pages of 1 MiB.
void setUp(const ToolRun &tool, const Tree &entries)
{
    for (const QByteArray &entry : entries) {
        const QByteArray path = QFile::encodeName(tool.path()) + "/" + entry.left(entry.indexOf(" is "));
        if (entry.startsWith("filler ")) {
            struct statvfs status = {};
            require(::statvfs(QFile::encodeName(tool.path() + "/sd").constData(), &status) == 0, "statvfs");
            const auto free = static_cast<qint64>(status.f_bfree * status.f_frsize);
            writeFile(tool.path() + "/sd/filler",
                      QByteArray(static_cast<int>(free - entry.mid(7).toLongLong()), 'x'));
        } else if (entry.endsWith(" is a photo")) {
            writeFile(path, pictureData("jpg", QSize(320, 240)));
        } else if (entry.endsWith(" is an unclosed video")) {
            writeFile(path, unclosedVideo());
        } else if (entry.endsWith(" is a PNG photo")) {
            writeFile(path, pictureData("png", QSize(320, 240)));
        } else if (entry.endsWith(" is a large photo")) {
            constexpr int SIZE = 290 << 10; // a gallery shows no larger photo without a thumbnail
            writeFile(path, pictureData("jpg", QSize(320, 240)).leftJustified(SIZE, 'x'));
        } else if (entry.endsWith(" is gone")) {
            require(QFile::remove(QFile::decodeName(path)), path);
        } else if (entry.endsWith(" is protected")) {
            struct stat status = {};
            require(::stat(path.constData(), &status) == 0, path);
            // FAT ignores a change of any other permission.
            require(::chmod(path.constData(), status.st_mode & 0555) == 0, path);
        } else if (entry == "gallery") {
            const Outcome outcome =
                tool.runOnStorages({"gallery", "sd", "-o", "@/usb/page.html", "--page-size", "1"});
            require(outcome.exitCode == 0, toString(outcome));
        } else {
            tool.make({entry});
        }
    }
}

/// Kills the program that @p process has started once the file @p path has content.
void killChildAt(const QProcess &process, const QString &path)
{
    constexpr int ENOUGH = 20000; // bytes; more than the header
    constexpr int LIMIT = 60;     // seconds
    QElapsedTimer clock;
    clock.start();
    while (QFileInfo(path).size() < ENOUGH && clock.elapsed() < LIMIT * 1000)
        ::usleep(10000);
    const QString number = QString::number(process.processId());
    const QByteArray child = readAll(QString("/proc/%1/task/%1/children").arg(number)).trimmed();
    require(::kill(child.toInt(), SIGKILL) == 0, "no child is running");
}

/// Runs the tool with each disk recorded. Its standard output is part of the log.
Recorded record(const ToolRun &tool, const Scenario &scenario)
{
    Recorded recorded;
    QStringList images;
    for (int disk = 0; disk < scenario.disks(); ++disk)
        images.append(makeImage(tool, disk));
    {
        const Loops loops = loopsOf(images);
        const MountedDisks disks(loops, tool.path());
        setUp(tool, scenario.disks() > 1 ? Tree{"usb/DCIM/"} + scenario.setup : scenario.setup);
        recorded.before = snapshotOfDisks(tool.path());
    }
    for (const QString &image : images)
        recorded.images.append(readAll(image));
    QStringList disks;
    Recorder recorder(tool.path() + "/work/recorder", tool.path() + "/work/log", images);
    {
        for (int disk = 0; disk < scenario.disks(); ++disk)
            disks.append(recorder.disk(disk));
        const Loops loops = loopsOf(disks);
        const MountedDisks mounted(loops, tool.path());
        setUp(tool, scenario.unflushed);
        QProcess process;
        process.setStandardOutputFile(recorder.reportFile());
        if (scenario.arguments.first().startsWith('/')) {
            QStringList arguments;
            for (const QByteArray &argument : scenario.arguments.mid(1))
                arguments.append(tool.expand(argument));
            process.setProcessEnvironment(tool.environment);
            process.start(scenario.arguments.first(), arguments);
        } else {
            tool.startOnStorages(process, scenario.arguments);
        }
        if (!scenario.killedAt.isEmpty())
            killChildAt(process, tool.path() + "/" + scenario.killedAt);
        recorded.outcome = ToolRun::finish(process);
        QFile report(recorder.reportFile());
        require(report.open(QIODevice::WriteOnly) && report.write("exit\n") > 0, "report");
        report.close();
        recorded.after = snapshotOfDisks(tool.path());
    }
    recorded.events = recorder.stop();
    return recorded;
}

// What must hold

/// The paths that a line of the tool names, relative to @p root.
QByteArrayList namesIn(const QByteArray &line, const QByteArray &root)
{
    QByteArrayList names;
    for (QByteArray part : QString::fromUtf8(line).split(" -> ").join('\n').toUtf8().split('\n')) {
        part = part.left(part.indexOf(": ") < 0 ? part.size() : part.indexOf(": "));
        if (part.startsWith(root + "/"))
            names.append(part.mid(root.size() + 1));
    }
    return names;
}

bool isReported(const QByteArray &path, const QByteArrayList &lines, const QByteArray &root)
{
    for (const QByteArray &line : lines) {
        for (const QByteArray &name : namesIn(line, root)) {
            const bool isThumbnail = path == name.left(name.lastIndexOf('.')) + ".thumb";
            if (path == name || path.startsWith(name + "/") || isThumbnail)
                return true;
        }
    }
    return lines.contains("exit");
}

QByteArray folderOf(const QByteArray &path)
{
    return path.left(path.lastIndexOf('/', path.size() - 2) + 1);
}

bool isTemporary(const QByteArray &path)
{
    // Temporary files of the tool and of the host; on FAT, a file whose long name was lost with its sector
    return path.contains("/.vornfh-") || path.contains("/.new-") || path.contains("/VORNFH~");
}

/// Returns whether the tool has marked that files in @p folder were being renamed.
bool hasMark(const Snapshot &state, const QByteArray &folder)
{
    const QByteArrayList paths = state.keys();
    return std::any_of(paths.begin(), paths.end(), [&folder](const QByteArray &path) {
        return path.startsWith(folder + ".vornfh-") && path.endsWith(".renaming");
    });
}

/// While a file is replaced on exFAT, its name can be missing. The next command gives the name to the first
/// file named in the mark that is there, so that file must be whole.
bool isBeingReplaced(const QByteArray &path, const Snapshot &state, const QByteArrayList &contents)
{
    const QByteArray folder = folderOf(path);
    for (auto mark = state.begin(); mark != state.end(); ++mark) {
        const QByteArrayList names = mark.value().split('\n');
        if (!mark.key().startsWith(folder + ".vornfh-") || !mark.key().endsWith(".renaming")
            || names.size() < 3 || folder + names[1] != path)
            continue;
        for (const QByteArray &name : names.mid(2)) {
            if (state.contains(folder + name))
                return contents.contains(state[folder + name]);
        }
    }
    return false;
}

/// Two names can share their content only while a file is being renamed. One of them is then a temporary one,
/// and a mark keeps it from being deleted.
QByteArray sharedContentIn(const QString &folder, const Snapshot &state)
{
    for (QByteArrayList files : filesThatShareContent(folder)) {
        // exFAT can list a name twice while one file replaces another. The first entry counts.
        files.erase(std::unique(files.begin(), files.end()), files.end());
        const auto isSafe = [&state](const QByteArray &path) {
            return path.contains("/.new-") || (isTemporary(path) && hasMark(state, folderOf(path)));
        };
        // A leftover that was deleted can come back while a new temporary file has its place.
        const bool isNamed = !std::all_of(files.begin(), files.end(), isTemporary);
        if (isNamed && std::count_if(files.begin(), files.end(), isSafe) < files.size() - 1)
            return files.join(" and ") + " share their content";
    }
    return QByteArray();
}

/// The same for folders, whose content cannot be located.
QByteArray sharedFolderIn(const Snapshot &state, const Snapshot &before)
{
    for (const QByteArray &hidden : state.keys()) {
        const QByteArray parent = folderOf(hidden);
        if (!isTemporary(hidden) || !hidden.endsWith('/') || fileSystem() == "ext4" || hasMark(state, parent))
            continue;
        for (const QByteArray &path : state.keys()) {
            if (path.endsWith('/') && folderOf(path) == parent && !isTemporary(path)
                && !before.contains(path))
                return hidden + " and " + path + " may be the same folder";
        }
    }
    return QByteArray();
}

const QByteArray SUMS = "usb/out/SHA256SUMS";

/// The file is replaced after each batch. It may contain some of the lines, but only whole ones.
bool areEarlierSums(const QByteArray &path, const QByteArray &now, const QByteArray &after)
{
    const QByteArrayList found = now.split('\n');
    const QByteArrayList lines = after.split('\n');
    return path == SUMS && !now.isEmpty()
           && std::all_of(found.begin(), found.end(),
                          [&lines](const QByteArray &line) { return lines.contains(line); });
}

/// Before a file is deleted from the card, its line is in SHA256SUMS on the other disk.
QByteArray missingSumIn(const Snapshot &state, const Snapshot &before)
{
    for (auto file = before.begin(); file != before.end(); ++file) {
        const QByteArray sum = QCryptographicHash::hash(file.value(), QCryptographicHash::Sha256).toHex();
        if (file.key().startsWith("sd/") && !state.contains(file.key()) && !state[SUMS].contains(sum))
            return file.key() + " has no sum";
    }
    return QByteArray();
}

/// Returns what is wrong with @p state of the disks; empty if nothing is.
QByteArray problemIn(const Snapshot &state, const Recorded &recorded, Scenario::Rule rule,
                     const QByteArrayList &lines, const QByteArray &root)
{
    static const QByteArray ABSENT("\0absent", 7);
    const bool isInPlace = rule == Scenario::InPlace || rule == Scenario::MkPath;
    QByteArrayList contents; // under names that are old or new
    for (auto entry = state.begin(); entry != state.end(); ++entry) {
        if (recorded.before.contains(entry.key()) || recorded.after.contains(entry.key()))
            contents.append(entry.value());
    }
    for (const QByteArray &path : recorded.before.keys() + recorded.after.keys()) {
        const QByteArray before = recorded.before.value(path, ABSENT);
        const QByteArray after = recorded.after.value(path, ABSENT);
        const QByteArray now = state.value(path, ABSENT);
        if (path.contains("/.vornfh-")) // left by a command, and may go at any time
            continue;
        const bool mayBeOld =
            (before == now || areEarlierSums(path, now, after)) && !isReported(path, lines, root);
        const bool mayBeAnything =
            !isReported(path, lines, root)
            && ((isInPlace && before == ABSENT) || (rule == Scenario::Deletes && after == ABSENT));
        if (now == ABSENT && before != ABSENT && isBeingReplaced(path, state, {before, after}))
            continue;
        if (now != after && !mayBeOld && !mayBeAnything)
            return path
                   + (now == UNREADABLE ? " is unreadable"
                      : now == ABSENT   ? " is missing"
                                        : " differs")
                   + "; there are " + QByteArrayList(state.keys()).join(", ");
        if (now == ABSENT && before != ABSENT && rule != Scenario::Deletes && !contents.contains(before))
            return path + " is lost";
    }
    for (const QByteArray &path : state.keys()) {
        if (isTemporary(path))
            continue;
        const bool isKnown = recorded.before.contains(path) || recorded.after.contains(path);
        // A long name on FAT can take two sectors; without one of them, the file has only its short name.
        const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
        const bool isShortName = fileSystem() == "vfat" && (name.contains('~') || name == name.toUpper())
                                 && recorded.before.values().contains(state.value(path));
        const bool isInNewFolder = rule == Scenario::MkPath && !isReported(path, lines, root)
                                   && !recorded.before.contains(folderOf(path));
        // A recorder that is stopped before the first picture deletes the empty file again.
        const bool isReservedNumber = rule == Scenario::InPlace && state.value(path).isEmpty();
        const bool isFolderBeingDeleted = rule == Scenario::Deletes && recorded.before.contains(path + "/");
        const QByteArray base = path.left(path.lastIndexOf('.') + 1);
        const bool keepsObjects =
            rule == Scenario::Deletes || rule == Scenario::Pairs || rule == Scenario::Objects;
        const auto isAloneIn = [&path, &base](const Snapshot &snapshot) {
            return snapshot.contains(path) && snapshot.lowerBound(base).key() == path;
        };
        const bool isAlone = keepsObjects && path.endsWith(".thumb") && isAloneIn(state)
                             && !isAloneIn(recorded.before) && !isAloneIn(recorded.after);
        if (isAlone)
            return path + " is without its recording";
        if (!isKnown && !isReservedNumber && !isFolderBeingDeleted && !isInNewFolder && !isShortName)
            return path + " is neither old nor new";
    }
    return QByteArray();
}

// Replaying

/// A write that may be lost if the power fails.
struct Write {
    int disk;
    qint64 offset;
    QByteArray data;
};

void apply(QByteArray &image, const Write &write)
{
    image.replace(static_cast<int>(write.offset), write.data.size(), write.data);
}

struct Count {
    int states = 0;
    int bad = 0;
    QByteArrayList problems; // of the first bad states
};

class Replay
{
public:
    Replay(const ToolRun &tool, const Recorded &recorded, const Scenario &scenario)
        : mTool(tool), mRecorded(recorded), mRule(scenario.rule),
          mHasLateWrites(scenario.hasLateWrites && fileSystem() != "ext4"), mDurable(recorded.images)
    {
        for (int disk = 0; disk < recorded.images.size(); ++disk) {
            const QString path = mTool.path() + "/work/state" + QString::number(disk);
            writeFile(path, recorded.images[disk]);
            mImages.push_back(std::make_unique<MappedFile>(path));
            mLoops.push_back(std::make_unique<LoopDevice>(path));
        }
    }

    Count run()
    {
        for (const LoggedEvent &event : mRecorded.events) {
            const bool isOver = mLines.contains("exit");
            if (isOver && !mHasLateWrites)
                break;
            if (event.kind == Event::Write)
                mPending.append({event.disk, event.offset, event.data});
            else
                trySubsets();
            if (event.kind == Event::Flush)
                flush(event.disk);
            else if (!isOver)
                tryState(mPending);
            if (event.kind != Event::Report)
                continue;
            mLines += event.data.split('\n');
            mTried.clear();
            trySubsets();
            tryState(mPending);
            tryState({});
        }
        if (mHasLateWrites)
            trySubsets();
        return mCount;
    }

private:
    void flush(int disk)
    {
        QVector<Write> rest;
        for (const Write &write : mPending) {
            if (write.disk == disk) {
                apply(mDurable[disk], write);
                mImages[static_cast<size_t>(disk)]->replace(write.offset, write.data);
            } else {
                rest.append(write);
            }
        }
        mPending = rest;
        mTried.clear();
        tryState({});
    }

    void trySubsets()
    {
        for (int i = 0; i < SUBSETS && !mPending.isEmpty(); ++i) {
            QVector<Write> subset;
            for (const Write &write : mPending) {
                if (mRandom.bounded(2) == 0)
                    subset.append(write);
            }
            tryState(subset);
        }
        if (mPending.isEmpty())
            return;
        QVector<Write> torn = mPending;
        QByteArray &last = torn.last().data;
        last.truncate(static_cast<int>(mRandom.bounded(last.size() / SECTOR + 1)) * SECTOR);
        tryState(torn);
    }

    /// Tries the state in which the writes @p survived follow the last flush, unless it was tried before.
    void tryState(const QVector<Write> &survived)
    {
        QCryptographicHash hash(QCryptographicHash::Sha1);
        for (const Write &write : survived) {
            const qint64 place = write.offset * mDurable.size() + write.disk;
            hash.addData(QByteArray::number(place) + " " + QByteArray::number(write.data.size()) + " ");
            hash.addData(write.data);
        }
        if (mTried.contains(hash.result()))
            return;
        mTried.insert(hash.result());
        for (size_t disk = 0; disk < mImages.size(); ++disk)
            mImages[disk]->restore(mDurable[static_cast<int>(disk)], fileSystem() == "ext4");
        for (const Write &write : survived)
            mImages[static_cast<size_t>(write.disk)]->replace(write.offset, write.data);
        for (const auto &loop : mLoops)
            loop->dropCache();
        const QByteArray problem = problemOfState();
        ++mCount.states;
        mCount.bad += problem.isEmpty() ? 0 : 1;
        if (!problem.isEmpty() && mCount.problems.size() < 3)
            mCount.problems.append("state " + QByteArray::number(mCount.states) + ", reported "
                                   + QByteArray::number(mLines.size()) + ": " + problem);
    }

    QByteArray problemOfState()
    {
        const QString folder = mTool.path() + "/work/mounted";
        try {
            const MountedDisks disks(mLoops, folder, true);
            const Snapshot state = snapshotOfDisks(folder);
            const QByteArrayList problems = {
                sharedContentIn(folder, state), sharedFolderIn(state, mRecorded.before),
                mRule == Scenario::Objects ? missingSumIn(state, mRecorded.before) : QByteArray(),
                problemIn(state, mRecorded, mRule, mLines, mTool.path().toUtf8()),
                overlookedIn(folder, state)};
            return problems.join();
        } catch (const std::exception &error) {
            return error.what(); // it cannot be mounted
        }
    }

    /// A recording that was cut short by the power cut is a finding of "check". (Lost sectors within
    /// a file are not: finding them takes a decoder.)
    QByteArray overlookedIn(const QString &folder, const Snapshot &state)
    {
        for (auto entry = state.begin(); entry != state.end(); ++entry) {
            const QByteArray &path = entry.key();
            const QByteArray whole = mRecorded.after.value(path);
            const bool isCutShort = mRule == Scenario::InPlace && path.startsWith("sd/DCIM/100ABC/DCF_")
                                    && !mRecorded.before.contains(path)
                                    && entry.value().size() < whole.size();
            if (!isCutShort || mFound.contains(entry.value()))
                continue;
            const QByteArray card = QFile::encodeName(folder + "/sd/DCIM");
            const Outcome outcome = mTool.run({"--suffix", "ABC", "--sd", card, "check", "sd"});
            const QByteArray name = "\n" + QFile::encodeName(folder) + "/" + path + ": ";
            if (!("\n" + outcome.out).contains(name))
                return path + " was overlooked";
            mFound.insert(entry.value());
        }
        return QByteArray();
    }

    const ToolRun &mTool;
    const Recorded &mRecorded;
    const Scenario::Rule mRule;
    const bool mHasLateWrites; // on ext4, the journal puts them in order
    QSet<QByteArray> mFound;   // contents
    QSet<QByteArray> mTried;   // hashes of writes, since the last flush or report
    std::vector<std::unique_ptr<MappedFile>> mImages;
    Loops mLoops;
    QVector<QByteArray> mDurable;
    QVector<Write> mPending;
    QByteArrayList mLines;
    QRandomGenerator mRandom{20261122};
    Count mCount;
};

} // namespace

Q_DECLARE_METATYPE(Scenario)

namespace {

/// Runs the scenario of the current row, and tries the states of the disks.
Count replayOfRow(const ToolRun &tool)
{
    QFETCH(Scenario, scenario);
    const TmpfsMount work = workFolder(tool);
    const Recorded recorded = record(tool, scenario);
    require(recorded.outcome.exitCode == scenario.exitCode, toString(recorded.outcome));
    const QByteArrayList left = recorded.after.keys();
    require(std::none_of(left.begin(), left.end(), isTemporary), "left: " + left.join(", "));
    const Count count = Replay(tool, recorded, scenario).run();
    qInfo("%s: %d states, %d bad", fileSystem().constData(), count.states, count.bad);
    return count;
}

} // namespace

class PowerCutTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void reportedIsKept_data();
    void reportedIsKept();
    void lossesAreFound_data();
    void lossesAreFound();
    void problemsOfTheFileSystemAreReported_data();
    void problemsOfTheFileSystemAreReported();
    void leftoversOfThisSessionAreRemoved_data();
    void leftoversOfThisSessionAreRemoved();
};

void PowerCutTest::initTestCase()
{
    const bool isPossible = ::geteuid() == 0 && ::access("/dev/loop-control", R_OK | W_OK) == 0
                            && ::access("/dev/fuse", R_OK | W_OK) == 0 && hasOwnMounts();
    if (!isPossible)
        QSKIP("needs root, loop devices and FUSE");
}

/// POWERCUT_UNTIL_FAILURE ends the program at the first failure, for tests/mutation/flushes.
void PowerCutTest::cleanup()
{
    if (!QTest::currentTestFailed() || !qEnvironmentVariableIsSet("POWERCUT_UNTIL_FAILURE"))
        return;
    std::fflush(nullptr);
    ::_exit(1);
}

void PowerCutTest::reportedIsKept_data()
{
    QTest::addColumn<Scenario>("scenario");
    const Tree CARD = {"sd/DCIM/100ABC/DCF_0001.jpg is a photo", "sd/DCIM/100ABC/DCF_0001.thumb = one",
                       "sd/DCIM/100ABC/DCF_0002.wav = two"};

    row("record-a-photo", Scenario{Scenario::InPlace, CARD, {"record", "sd", "--type", "jpg"}});
    row("record-on-an-empty-card", Scenario{Scenario::InPlace, {}, {"record", "sd", "--type", "png"}});
    row("record-two-sounds",
        Scenario{
            Scenario::InPlace, CARD, {"record", "sd", "--type", "wav", "--duration", "0.1", "--count", "2"}});
    row("record-a-video",
        Scenario{Scenario::InPlace, CARD, {"record", "sd", "--type", "avi", "--duration", "0.2"}});
    row("record-a-matroska-video",
        Scenario{Scenario::InPlace, CARD, {"record", "sd", "--type", "mkv", "--duration", "0.2"}});
    row("record-in-segments",
        Scenario{Scenario::InPlace,
                 CARD,
                 {"record", "sd", "--type", "wav", "--duration", "2.5", "--segment", "1"}});
    row("record-after-number-9999", Scenario{Scenario::InPlace,
                                             {"sd/DCIM/100ABC/DCF_9999.wav = last"},
                                             {"record", "sd", "--type", "jpg"}});
    row("record-until-the-card-is-full", Scenario{Scenario::InPlace,
                                                  CARD + Tree{"filler 700000"},
                                                  {"record", "sd", "--type", "wav", "--duration", "60"},
                                                  1});

    row("record-until-ffmpeg-is-killed", Scenario{Scenario::InPlace,
                                                  CARD,
                                                  {"record", "sd", "--type", "avi", "--duration", "60"},
                                                  1,
                                                  {},
                                                  "sd/DCIM/100ABC/DCF_0003.avi"});

    row("copy-within-the-card",
        Scenario{Scenario::Whole,
                 CARD,
                 {"copy", "@/sd/DCIM/100ABC/DCF_0001.jpg", "@/sd/DCIM/100ABC/DCF_0002.wav", "sd", "kept"}});
    row("copy-to-another-card", Scenario{Scenario::Whole,
                                         CARD,
                                         {"copy", "@/sd/DCIM/100ABC/DCF_0001.jpg",
                                          "@/sd/DCIM/100ABC/DCF_0001.thumb", "usb", "200ABC"}});
    row("copy-to-a-name-that-is-taken", Scenario{Scenario::Whole,
                                                 CARD + Tree{"sd/DCIM/kept/DCF_0002.wav = other"},
                                                 {"copy", "@/sd/DCIM/100ABC/DCF_0002.wav", "sd", "kept"}});
    row("copy-that-continues-an-interrupted-one",
        Scenario{Scenario::Whole,
                 CARD + Tree{"sd/DCIM/kept/DCF_0002.wav = two", "sd/DCIM/kept/.vornfh-4194304-abcdef = left"},
                 {"copy", "@/sd/DCIM/100ABC/DCF_0002.wav", "@/sd/DCIM/100ABC/DCF_0001.jpg", "sd", "kept"}});
    row("move-within-the-card",
        Scenario{Scenario::Whole,
                 CARD,
                 {"move", "@/sd/DCIM/100ABC/DCF_0001.jpg", "@/sd/DCIM/100ABC/DCF_0002.wav", "sd", "kept"}});
    row("move-a-recording-with-its-thumbnail",
        Scenario{Scenario::Pairs, CARD, {"move", "@/sd/DCIM/100ABC/DCF_0001.jpg", "usb", "kept"}});
    row("move-a-recording-with-its-thumbnail-within-the-card",
        Scenario{Scenario::Pairs, CARD, {"move", "@/sd/DCIM/100ABC/DCF_0001.jpg", "sd", "kept"}});
    row("copy-a-recording-with-its-thumbnail",
        Scenario{Scenario::Pairs, CARD, {"copy", "@/sd/DCIM/100ABC/DCF_0001.jpg", "usb", "kept"}});
    // On FAT, the recording and the thumbnail get their names in different sectors of the folder.
    row("copy-a-recording-with-its-thumbnail-to-a-longer-folder",
        Scenario{Scenario::Pairs,
                 CARD
                     + Tree{"usb/DCIM/kept/DCF_0011.wav = x", "usb/DCIM/kept/DCF_0012.wav = x",
                            "usb/DCIM/kept/DCF_0013.wav = x", "usb/DCIM/kept/DCF_0014.wav = x"},
                 {"copy", "@/sd/DCIM/100ABC/DCF_0001.jpg", "usb", "kept"}});
    const auto longNames = [](const QByteArray &folder) { // on FAT, more than a sector of the folder
        Tree files;
        for (const char number : {'1', '2', '3', '4', '5', '6'})
            files.append(folder + "a-name-that-is-long-enough-for-four-entries-" + number + ".wav");
        return files;
    };
    row("move-files-with-long-names",
        Scenario{Scenario::Whole, longNames("sd/DCIM/100ABC/"),
                 QByteArrayList{"move"} + longNames("@/sd/DCIM/100ABC/") + QByteArrayList{"sd", "kept"}});
    row("move-to-another-card",
        Scenario{Scenario::Whole,
                 CARD,
                 {"move", "@/sd/DCIM/100ABC/DCF_0001.jpg", "@/sd/DCIM/100ABC/DCF_0002.wav", "usb", "kept"}});

    const Tree OBJECTS =
        CARD
        + Tree{"sd/DCIM/100ABC/DCF_0003.jpg is a photo", "sd/DCIM/100ABC/DCF_0003.thumb = three",
               "sd/DCIM/100ABC/DCF_0004.wav = four"};
    row("offload", Scenario{Scenario::Objects, OBJECTS, {"offload", "sd", "@/usb/out"}});
    row("offload-that-continues-an-interrupted-one",
        Scenario{Scenario::Objects,
                 OBJECTS
                     + Tree{"usb/out/100ABC/DCF_0002.wav = two", "usb/out/100ABC/DCF_0004.wav = other",
                            "usb/out/SHA256SUMS = other", "usb/out/.vornfh-4194304-abcdef = left"},
                 {"offload", "sd", "@/usb/out"}});
    row("offload-and-delete", Scenario{Scenario::Objects, OBJECTS, {"offload", "sd", "@/usb/out", "--move"}});
    row("offload-and-delete-what-is-there",
        Scenario{Scenario::Objects,
                 OBJECTS + Tree{"usb/out/100ABC/DCF_0002.wav = two", "usb/out/SHA256SUMS = other"},
                 {"offload", "sd", "@/usb/out", "--move"}});

    row("move-that-continues-an-interrupted-one",
        Scenario{Scenario::Whole,
                 CARD + Tree{"sd/DCIM/kept/DCF_0002.wav = two"},
                 {"move", "@/sd/DCIM/100ABC/DCF_0001.jpg", "@/sd/DCIM/100ABC/DCF_0002.wav", "sd", "kept"}});

    row("comment-a-photo",
        Scenario{Scenario::Whole, CARD, {"comment", "@/sd/DCIM/100ABC/DCF_0001.jpg", "a comment"}});
    row("comment-a-png-photo", Scenario{Scenario::Whole,
                                        {"sd/DCIM/100ABC/DCF_0001.png is a PNG photo"},
                                        {"comment", "@/sd/DCIM/100ABC/DCF_0001.png", "a comment"}});

    row("delete",
        Scenario{Scenario::Deletes,
                 CARD + Tree{"sd/DCIM/101ABC/DCF_0001.wav = three", "sd/DCIM/101ABC/DCF_0002.wav = four"},
                 {"delete", "@/sd/DCIM/100ABC/DCF_0002.wav", "@/sd/DCIM/101ABC/DCF_0001.wav"}});
    row("delete-with-a-thumbnail",
        Scenario{Scenario::Deletes, CARD, {"delete", "@/sd/DCIM/100ABC/DCF_0001.jpg"}});
    row("prune",
        Scenario{Scenario::Deletes,
                 CARD
                     + Tree{"sd/DCIM/101ABC/DCF_0001.jpg is a photo", "sd/DCIM/101ABC/DCF_0001.thumb = three",
                            "sd/DCIM/101ABC/DCF_0002.wav = four"},
                 {"prune", "sd", "--keep-last", "1"}});
    Tree apart; // on FAT and exFAT, recordings and thumbnails are in different sectors of the folder
    for (const QByteArray extension : {"jpg", "thumb"}) {
        for (int number = 10; number < 30; ++number)
            apart.append("sd/DCIM/100ABC/DCF_00" + QByteArray::number(number) + "." + extension + " = x");
    }
    row("delete-in-several-sectors",
        Scenario{Scenario::Deletes,
                 apart,
                 {"delete", "@/sd/DCIM/100ABC/DCF_0010.jpg", "@/sd/DCIM/100ABC/DCF_0011.jpg"}});
    row("prune-in-several-sectors", Scenario{Scenario::Deletes, apart, {"prune", "sd", "--keep-last", "18"}});
    row("repair-a-video",
        Scenario{Scenario::Whole, {"sd/DCIM/100ABC/DCF_0001.avi is an unclosed video"}, {"repair", "sd"}});
    row("repair-a-thumbnail", Scenario{Scenario::Whole,
                                       CARD + Tree{"sd/DCIM/100ABC/DCF_0003.jpg is a photo"},
                                       {"repair", "@/sd/DCIM/100ABC/DCF_0003.jpg"}});
    row("repair-a-damaged-thumbnail",
        Scenario{Scenario::Whole, CARD, {"repair", "@/sd/DCIM/100ABC/DCF_0001.jpg"}});
    row("repair-by-deleting",
        Scenario{Scenario::Deletes,
                 {"sd/DCIM/100ABC/DCF_0001.jpg is a photo", "sd/DCIM/100ABC/DCF_0002.wav",
                  "sd/DCIM/100ABC/DCF_0003.avi", "sd/DCIM/100ABC/DCF_0003.thumb = three",
                  "sd/DCIM/100ABC/DCF_0004.thumb = four", "sd/DCIM/100ABC/.vornfh-4194304-abcdef = left"},
                 {"repair", "sd"}});
    row("protect", Scenario{Scenario::Whole, CARD, {"protect", "@/sd/DCIM/100ABC"}});
    row("unprotect", Scenario{Scenario::Whole,
                              CARD + Tree{"sd/DCIM/100ABC/DCF_0002.wav is protected"},
                              {"unprotect", "@/sd/DCIM/100ABC"}});
    // More entries than fit into one sector, so that a name can span two
    Tree longer = CARD;
    for (const char number : {'3', '4', '5', '6', '7', '8', '9'})
        longer.append(QByteArray("sd/DCIM/100ABC/DCF_000") + number + ".wav = " + number);
    row("comment-in-a-longer-folder",
        Scenario{Scenario::Whole, longer, {"comment", "@/sd/DCIM/100ABC/DCF_0001.jpg", "a comment"}});
    // On FAT, the photo is in the first sector of the folder, the temporary file in the second, where a gap
    // has just enough entries for it, and the mark of its renaming in the fourth.
    const QByteArray gap = "sd/DCIM/100ABC/a-name-of-three-entries";
    Tree scattered = CARD;
    for (int number = 10; number < 28; ++number) {
        if (number == 14)
            scattered.append(gap + " = x");
        scattered.append("sd/DCIM/100ABC/DCF_00" + QByteArray::number(number) + ".wav = x");
    }
    scattered += Tree{"sd/DCIM/100ABC/NAME = x", gap + " is gone"};
    row("comment-in-scattered-sectors", Scenario{Scenario::Whole,
                                                 scattered,
                                                 {"comment", "@/sd/DCIM/100ABC/DCF_0001.jpg", "a comment"},
                                                 0,
                                                 {},
                                                 {},
                                                 true});
    row("unprotect-in-a-longer-folder", Scenario{Scenario::Whole,
                                                 longer + Tree{"sd/DCIM/100ABC/DCF_0004.wav is protected"},
                                                 {"unprotect", "@/sd/DCIM/100ABC"}});
    row("rmdir-that-leaves-a-protected-object",
        Scenario{Scenario::Deletes,
                 CARD + Tree{"sd/DCIM/100ABC/DCF_0002.wav is protected"},
                 {"rmdir", "sd", "100ABC", "--yes"},
                 1});
    row("rmdir", Scenario{Scenario::Deletes,
                          CARD + Tree{"sd/DCIM/kept/DCF_0001.wav = three"},
                          {"rmdir", "sd", "100ABC", "--yes"}});
    row("wipe", Scenario{Scenario::Deletes, CARD + Tree{"sd/other = kept"}, {"wipe", "sd", "--yes"}});
    row("mkdir", Scenario{Scenario::Whole, CARD, {"mkdir", "sd", "kept"}});
    // On FAT, the mark of the renaming fits into a gap in the first sector of the folder; the temporary name
    // and the new one are in the third and the fourth.
    const QByteArray wideGap = "sd/DCIM/a-name-long-enough-for-4-entries";
    Tree folders = Tree{wideGap + " = x"} + CARD;
    for (int number = 101; number < 139; ++number)
        folders.append("sd/DCIM/" + QByteArray::number(number) + "ABC/");
    folders.append(wideGap + " is gone");
    row("mkdir-in-scattered-sectors", Scenario{Scenario::Whole, folders, {"mkdir", "sd", "kept"}});
    row("mkdir-on-an-empty-card", Scenario{Scenario::Whole, {}, {"mkdir", "sd", "kept"}});
    row("host-that-records", Scenario{Scenario::InPlace, CARD, {HOST_PATH, "record", "@/sd/DCIM"}});
    row("host-that-records-on-an-empty-card",
        Scenario{Scenario::MkPath, {}, {HOST_PATH, "record", "@/sd/DCIM"}});
    row("host-that-replaces-a-file",
        Scenario{Scenario::Whole, CARD, {HOST_PATH, "replace", "@/sd/DCIM/100ABC/DCF_0001.jpg"}});
#ifdef RECORDER_PATH
    row("example-recorder",
        Scenario{Scenario::InPlace,
                 CARD,
                 {"/usr/bin/timeout", "--preserve-status", "5", RECORDER_PATH, "@/sd/DCIM", "ABC", "1", "0",
                  "-re", "-f", "lavfi", "-i", "testsrc2=size=160x120:rate=5"}});
#endif
    row("next-on-an-empty-card", Scenario{Scenario::Whole, {}, {"next", "sd", "jpg"}});
    row("next-after-number-9999",
        Scenario{Scenario::Whole, {"sd/DCIM/100ABC/DCF_9999.wav = last"}, {"next", "sd", "jpg"}});
    row("gallery-in-place-of-another", Scenario{Scenario::Whole,
                                                CARD + Tree{"usb/page.html = other"},
                                                {"gallery", "sd", "-o", "@/usb/page.html", "--force"}});
    row("gallery", Scenario{Scenario::Whole, CARD, {"gallery", "sd", "-o", "@/usb/page.html"}});
    const Tree LARGE = {"sd/DCIM/100ABC/DCF_0001.jpg is a large photo",
                        "sd/DCIM/100ABC/DCF_0002.jpg is a large photo",
                        "sd/DCIM/100ABC/DCF_0003.jpg is a large photo"}; // more than 1 MiB on a page
    row("gallery-of-one-page-after-several",
        Scenario{Scenario::Deletes,
                 LARGE
                     + Tree{"gallery", "sd/DCIM/100ABC/DCF_0001.jpg is gone",
                            "sd/DCIM/100ABC/DCF_0002.jpg is gone", "sd/DCIM/100ABC/DCF_0003.jpg is a photo"},
                 {"gallery", "sd", "-o", "@/usb/page.html", "--page-size", "1"}});
    if (fileSystem() == "ext4") // in an emulated machine, it would take minutes
        row("gallery-of-fewer-pages",
            Scenario{Scenario::Deletes,
                     LARGE
                         + Tree{"sd/DCIM/101ABC/DCF_0001.wav = three", "gallery",
                                "sd/DCIM/101ABC/DCF_0001.wav is gone"},
                     {"gallery", "sd", "-o", "@/usb/page.html", "--page-size", "1"}});
    row("gallery-of-one-page-beside-another-file",
        Scenario{Scenario::Deletes,
                 CARD
                     + Tree{"usb/page-pages/1.html = <meta name=\"generator\" content=\"vornfh gallery\"/>"
                            "<link rel=\"up\" href=\"../page.html\"/>",
                            "usb/page-pages/other = x"},
                 {"gallery", "sd", "-o", "@/usb/page.html"}});
    row("gallery-in-a-new-folder",
        Scenario{Scenario::MkPath, CARD, {"gallery", "sd", "-o", "@/sd/out/page.html"}, 0, {"sd/out/"}});
}

void PowerCutTest::reportedIsKept()
{
    const ToolRun tool;
    const Count count = replayOfRow(tool);
    QVERIFY2(count.bad == 0, count.problems.join("; ").constData());
}

void PowerCutTest::lossesAreFound_data()
{
    reportedIsKept_data();
}

/// Without flushes, power cuts must lose files; otherwise the rows above would prove nothing.
void PowerCutTest::lossesAreFound()
{
    ToolRun tool;
    tool.environment.insert("LD_PRELOAD", UNFLUSHED_PATH);
    QVERIFY(replayOfRow(tool).bad > 0);
}

void PowerCutTest::problemsOfTheFileSystemAreReported_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<bool>("isWriting");
    row("status", QByteArrayList{"status", "sd"}, false);
    row("next", QByteArrayList{"next", "sd", "jpg"}, true);
    row("record", QByteArrayList{"record", "sd", "--type", "jpg"}, true);
    row("copy", QByteArrayList{"copy", "@/a.jpg", "sd", "100ABC"}, true);
    row("move", QByteArrayList{"move", "@/a.jpg", "sd", "100ABC"}, true);
    row("offload-and-delete", QByteArrayList{"offload", "sd", "@/out", "--move"}, true);
    row("comment", QByteArrayList{"comment", "@/sd/DCIM/100ABC/DCF_0001.jpg", "text"}, true);
    row("mkdir", QByteArrayList{"mkdir", "sd", "kept"}, true);
    row("delete", QByteArrayList{"delete", "@/sd/DCIM/100ABC/DCF_0001.jpg"}, true);
    row("rmdir", QByteArrayList{"rmdir", "sd", "100ABC", "--yes"}, true);
    row("wipe", QByteArrayList{"wipe", "sd", "--yes"}, true);
    row("prune", QByteArrayList{"prune", "sd", "--keep-last", "1"}, true);
    row("protect", QByteArrayList{"protect", "@/sd/DCIM/100ABC"}, true);
    row("unprotect", QByteArrayList{"unprotect", "@/sd/DCIM/100ABC"}, true);
    row("gallery", QByteArrayList{"gallery", "sd", "-o", "@/sd/page.html"}, true);
}

/// ext4 turns read-only after an error; FAT and exFAT were not unmounted.
void PowerCutTest::problemsOfTheFileSystemAreReported()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(bool, isWriting);
    const bool isJournaled = fileSystem() == "ext4";
    const QByteArray problem =
        isJournaled ? "the kernel has made the file system read-only after an error; unmount and check it"
                    : "since the system started, the kernel has reported that the file system was not "
                      "unmounted properly; unmount and check it";
    const ToolRun tool;
    tool.make({"a.jpg = a"});
    const TmpfsMount work = workFolder(tool);
    const QString image = makeImage(tool);
    {
        const Loops loops = loopsOf({image});
        const MountedDisks disks(loops, tool.path());
        setUp(tool, {"sd/DCIM/100ABC/DCF_0001.jpg is a photo"});
        ::sync();
        tool.make({"sd/unflushed"}); // with everything flushed, exFAT counts as unmounted
        require(QFile::copy(image, tool.path() + "/work/mounted"), "copy of a mounted image");
    }
    const Loops loops = loopsOf({isJournaled ? image : tool.path() + "/work/mounted"});
    const MountedDisks disks(loops, tool.path());
    if (isJournaled) {
        const QByteArray path = tool.path().toUtf8() + "/sd";
        require(::mount(nullptr, path.constData(), nullptr, MS_REMOUNT, "errors=remount-ro") == 0, "remount");
        QFile trigger("/sys/fs/ext4" + loops[0]->path().mid(4) + "/trigger_fs_error");
        require(trigger.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && trigger.write("test") == 4,
                "trigger");
    }
    const Outcome outcome = tool.runOnStorages(arguments);
    const QByteArray &where = isWriting ? outcome.err : outcome.out;
    QVERIFY2(where.contains(problem), toString(outcome));
    if (!isWriting)
        QCOMPARE(outcome.out.contains(", read-only\n"), isJournaled);
    QCOMPARE(outcome.exitCode, isWriting && isJournaled ? 1 : 0);
}

void PowerCutTest::leftoversOfThisSessionAreRemoved_data()
{
    QTest::addColumn<QByteArray>("boot"); // boot ID; empty for the current one
    QTest::addColumn<int>("disksBetween");
    QTest::addColumn<bool>("isRemoved");
    row("killed", QByteArray(), 0, true);
    row("after-a-restart", QByteArray("00000000-0000-4000-8000-000000000000"), 0, false);
    row("pulled-and-back", QByteArray(), 1, false);
}

/// A mark of renamed files keeps leftovers only if the power may have failed since it was made.
void PowerCutTest::leftoversOfThisSessionAreRemoved()
{
    QFETCH(QByteArray, boot);
    QFETCH(int, disksBetween);
    QFETCH(bool, isRemoved);
    const ToolRun tool;
    tool.make({"a.jpg = a"});
    const TmpfsMount work = workFolder(tool);
    const Loops loops = loopsOf({makeImage(tool)});
    const MountedDisks disks(loops, tool.path());
    const int disk = readAll("/sys/class/block" + loops[0]->path().mid(4) + "/diskseq").trimmed().toInt();
    if (boot.isEmpty())
        boot = readAll("/proc/sys/kernel/random/boot_id").trimmed();
    const QByteArray folder = "sd/DCIM/100ABC/";
    tool.make({folder + ".vornfh-4194304-abcdef = left"});
    writeFile(tool.path() + "/" + folder + ".vornfh-4194304-ghijkl.renaming",
              boot + " " + QByteArray::number(disk - disksBetween) + "\n");
    QCOMPARE(tool.runOnStorages({"copy", "a.jpg", "sd", "100ABC"}).exitCode, 0);
    QCOMPARE(tree(tool.path() + "/" + folder).size(), isRemoved ? 1 : 3);
    QCOMPARE(tool.runOnStorages({"rmdir", "sd", "100ABC", "--yes"}).exitCode, isRemoved ? 0 : 1);
}

QTEST_GUILESS_MAIN(PowerCutTest)
#include "tst_powercut.moc"
