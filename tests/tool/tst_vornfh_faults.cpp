// SPDX-License-Identifier: MIT
#include "media.h"
#include "recordings.h"
#include "standins.h"
#include "toolsupport.h"

#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>

namespace {

constexpr int KILL = -1; // in place of an error: the tool is killed before the call

/// A system call of the tool that fails, as on a faulty device.
struct Fault {
    QByteArray call;
    int number;
    bool isLasting;
    int error;

    bool isFlush() const { return call == "fsync" || call == "syncfs"; }
    bool isKill() const { return error == KILL; }
    QByteArray text() const
    {
        return call + " " + QByteArray::number(number) + (isLasting ? " and later" : "") + ": "
               + (isKill() ? "killed" : QByteArray(std::strerror(error)));
    }
};

const Fault NONE = {"", 0, false, 0};

/// A command and what it finds. "@" is not expanded in the entries, which may contain anything.
struct Situation {
    Tree entries;
    QByteArrayList arguments;
    bool hasMount;               // sd/ is another file system
    bool isUnprotecting = false; // sd/ looks like exFAT, and the files in it are protected
};

struct Run {
    QByteArray command;
    Outcome outcome;       // with "@" for the path of the directory
    Tree before;           // with contents
    Tree after;            // the same
    Tree afterRepetition;  // the same, if the tool was killed: after the same command without a fault
    QByteArrayList faults; // the paths of the calls that failed
};

QByteArray nameOf(const QByteArray &entry)
{
    const int end = entry.indexOf(" = ");
    return end < 0 ? entry : entry.left(end);
}

const QByteArray SUMS = "out/SHA256SUMS";

/// Each line of the file as an entry: it is replaced after each batch, and may contain some of the lines.
Tree linesOfSums(const QByteArray &entry)
{
    Tree entries;
    for (const QByteArray &line : entry.mid(SUMS.size() + 3).split('\n'))
        entries.append(SUMS + " = " + line);
    return entries;
}

Tree contents(const ToolRun &tool)
{
    // The page of a gallery contains times and the free space.
    const auto isOfNumber = [](char character) {
        return (character >= '0' && character <= '9') || character == '.';
    };
    Tree entries;
    for (QByteArray entry : treeWithContents(tool.path())) {
        if (entry.contains("</footer>")) {
            char *const content = entry.begin() + nameOf(entry).size();
            entry.truncate(int(std::remove_if(content, entry.end(), isOfNumber) - entry.begin()));
        }
        entry.replace(tool.path().toUtf8(), "@");
        if (nameOf(entry) == SUMS)
            entries += linesOfSums(entry);
        else
            entries.append(entry);
    }
    return entries;
}

Tree without(const Tree &entries, const Tree &others)
{
    Tree rest;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(rest),
                 [&others](const QByteArray &entry) { return !others.contains(entry); });
    return rest;
}

QByteArrayList namesOf(const Tree &entries)
{
    QByteArrayList names;
    for (const QByteArray &entry : entries)
        names.append(nameOf(entry));
    return names;
}

/// Only calls for files at or below @p path fail.
Run runWith(const Fault &fault, const Situation &situation, const QString &path = ".")
{
    Run run;
    run.command = situation.arguments.first();
    ToolRun tool;
    const QTemporaryDir outside;
    const QString log = outside.filePath("log");
    tool.make({"sd/"});
    const auto card = situation.hasMount ? std::make_unique<TmpfsMount>(tool.path() + "/sd", "size=4m")
                                         : std::unique_ptr<TmpfsMount>();
    makeTree(tool.path(), situation.entries);
    run.before = contents(tool);
    QString libraries = FAULTYIO_PATH;
    if (situation.isUnprotecting) {
        for (const QByteArray &entry : situation.entries)
            setMode(tool, QFile::decodeName(nameOf(entry)), 0444);
        tool.pretendExfat();
        libraries += ":" + tool.environment.value("LD_PRELOAD");
    }
    tool.environment.insert("LD_PRELOAD", libraries);
    tool.environment.insert("FAULTY_CALL", fault.call);
    tool.environment.insert("FAULTY_NUMBER", QString::number(fault.number));
    tool.environment.insert("FAULTY_ONWARDS", fault.isLasting ? "yes" : "");
    tool.environment.insert("FAULTY_ERROR", QString::number(fault.error));
    tool.environment.insert("FAULTY_FOLDER", QDir::cleanPath(tool.path() + "/" + path));
    tool.environment.insert("FAULTY_LOG", log);
    run.outcome = tool.runOnStorages(situation.arguments);
    run.after = contents(tool);
    if (situation.isUnprotecting && !without(namesOf(run.before), namesOf(run.after)).isEmpty()) {
        // The next command gives the recording its name.
        tool.environment.remove("LD_PRELOAD");
        tool.pretendExfat();
        tool.runOnStorages(situation.arguments);
        run.after = contents(tool);
    }
    if (fault.isKill()) {
        tool.environment.insert("FAULTY_NUMBER", "0");
        const bool hasPage = run.command == "gallery";
        tool.runOnStorages(situation.arguments + (hasPage ? QByteArrayList{"--force"} : QByteArrayList()));
        run.afterRepetition = contents(tool);
    }
    const auto shortened = [&tool](QByteArray text) { return text.replace(tool.path().toUtf8(), "@"); };
    run.outcome.out = shortened(run.outcome.out);
    run.outcome.err = shortened(run.outcome.err);
    if (QFile::exists(log))
        run.faults = shortened(contentOf(log)).trimmed().split('\n');
    return run;
}

/// The files of @p entries with the names of temporary files.
Tree hiddenIn(const Tree &entries)
{
    Tree found;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
                 [](const QByteArray &entry) { return ("/" + nameOf(entry)).contains("/.vornfh-"); });
    return found;
}

/// The entry @p path and what is in it.
Tree at(const QByteArray &path, const Tree &entries)
{
    Tree found;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(found), [&path](const QByteArray &entry) {
        const QByteArray name = nameOf(entry);
        return name == path || name.startsWith(path + "/");
    });
    return found;
}

/// The paths, without "@/", that a line on standard output names.
QByteArrayList pathsIn(const QByteArray &line)
{
    QByteArrayList paths;
    for (const QString &path : QString::fromUtf8(line).split(": ").first().split(" -> "))
        paths.append(path.mid(2).toUtf8());
    return paths;
}

// Each of these compares a run that met a fault with one that met none, and returns what is wrong; an empty
// string if nothing is.

/// Whatever has a name is whole: it is as the command found it or as it makes it. Nothing hidden is left,
/// unless nothing can be deleted, or a file has been replaced on exFAT.
QByteArray partialFile(const Fault &fault, const Run &good, const Run &bad)
{
    Tree others = without(without(bad.after, bad.before), good.after);
    // On exFAT, a file that was replaced is kept if the new one may not be on the device.
    if (fault.call == "any" || fault.isKill() || bad.command == "unprotect")
        others = without(others, hiddenIn(others));
    return others.isEmpty() ? "" : "partial or left over: " + others.join(", ").left(200);
}

/// What the command would not have changed is there, and so is the rest: under its old or its new name, with
/// its old or its new content. Only what the command deletes may be missing.
QByteArray lostFile(const Run &good, const Run &bad)
{
    for (const QByteArray &entry : without(good.before, bad.after)) {
        const QByteArray name = nameOf(entry);
        Tree successors = at(name, good.after);
        for (const QByteArray &other : without(good.after, good.before)) {
            if (nameOf(other).endsWith(name.mid(name.lastIndexOf('/'))))
                successors.append(other);
        }
        if (!successors.isEmpty() && without(successors, bad.after).size() == successors.size())
            return "lost: " + entry.left(200);
    }
    return "";
}

/// Each line on standard output is true and concerns something that the fault does not affect. Commands that
/// flush a folder several times may have reported what they flushed before the fault; then another line is
/// missing.
QByteArray wrongReport(const Fault &fault, const Run &good, const Run &bad)
{
    const bool isRecordingSeveral = bad.command == "record" && linesIn(good.outcome.out).size() > 1;
    const bool isFlushedOnce =
        !QByteArrayList{"offload", "repair", "unprotect"}.contains(bad.command) && !isRecordingSeveral;
    for (const QByteArray &line : linesIn(bad.outcome.out)) {
        if (!linesIn(good.outcome.out).contains(line))
            return "not reported without the fault: " + line;
        for (const QByteArray &path : pathsIn(line)) {
            if (at(path, bad.after) != at(path, good.after))
                return "reported, but not done: " + line;
            if (fault.isFlush() && isFlushedOnce && ("@/" + path + "/").startsWith(bad.faults.first() + "/"))
                return "reported, but not flushed: " + line;
        }
    }
    return "";
}

/// Returns whether the fault concerns the sums of copies, or the folders in which they are.
bool concernsSums(const Run &bad)
{
    return std::any_of(bad.faults.begin(), bad.faults.end(), [](const QByteArray &path) {
        return path.startsWith("@/out/") && path.count('/') == 2;
    });
}

/// A command that fails does not report everything. If a fault concerns one of several files, or objects, the
/// others are reported.
QByteArray missingReport(const Fault &fault, const Run &good, const Run &bad)
{
    const int all = linesIn(good.outcome.out).size();
    const int missing = all - linesIn(bad.outcome.out).size();
    const bool concernsAll = fault.isLasting || fault.isFlush() || fault.call == "mkdir" || concernsSums(bad);
    const bool hasObjects = bad.command == "offload" || bad.command == "prune";
    const int largest = hasObjects ? 2 : 1; // a recording and its thumbnail fail as one
    const bool isExpected = all == 0 || (missing > 0 && missing <= largest) || (missing > 1 && concernsAll);
    return bad.outcome.exitCode == 0 || isExpected ? ""
                                                   : QByteArray::number(missing) + " files are not reported";
}

/// What is not reported is as it was, unless only the flush or the deletion at the end has failed.
QByteArray changedFile(const Fault &fault, const Run &good, const Run &bad)
{
    static const QByteArrayList EARLY = {"read", "write", "ftruncate", "close", "rename"};
    if (!EARLY.contains(fault.call))
        return "";
    if (good.outcome.out.isEmpty() && bad.after != bad.before)
        return "changed";
    for (const QByteArray &line : without(linesIn(good.outcome.out), linesIn(bad.outcome.out))) {
        for (const QByteArray &path : pathsIn(line)) {
            // A copy whose sum cannot be written, or whose thumbnail cannot be copied, remains.
            const bool isWholeCopy = bad.command == "offload" && at(path, bad.after) == at(path, good.after);
            if (at(path, bad.after) != at(path, bad.before) && !isWholeCopy)
                return "changed, but not reported: " + path;
        }
    }
    return "";
}

/// Standard error names what failed, what the command was to create or change, or what it would have
/// reported, and the reason.
QByteArray wrongMessage(const Fault &fault, const Run &good, const Run &bad)
{
    QByteArrayList names = bad.faults;
    for (const QByteArray &entry : without(good.before, good.after))
        names.append("@/" + nameOf(entry));
    for (const QByteArray &line : linesIn(good.outcome.out))
        names.append("@/" + pathsIn(line).first());
    for (const QByteArray &entry : without(good.after, good.before)) { // its first name is hidden
        if (entry.endsWith('/'))
            names.append("@/" + entry.left(entry.size() - 1));
        else if (entry.contains("-pages/"))
            names.append("@/" + nameOf(entry));
    }
    const QByteArray &err = bad.outcome.err;
    if (err.contains(".vornfh-"))
        return "names a hidden file: " + err;
    const QByteArray reason = std::strerror(fault.error);
    for (const QByteArray &line : linesIn(err)) {
        // The library does not report why it could not create a folder.
        const bool hasReason = line.contains(reason) || line.endsWith(": cannot be created");
        const auto isAbout = [&line](const QByteArray &name) {
            return line.startsWith("vornfh: " + name + ": ");
        };
        if (hasReason && std::any_of(names.begin(), names.end(), isAbout))
            return "";
    }
    return "not named: " + err;
}

/// A fault is harmless if the tool has tried again, or if it concerns the mark of a replacement, and
/// everything is as it would have been without it.
QByteArray wrongExitCode(const Fault &fault, const Run &good, const Run &bad)
{
    const bool isRepeated = fault.call == "unlink" || fault.call == "mkdir";
    const bool isOfMark = bad.faults.first().contains(".renaming");
    const bool isHarmless =
        (isRepeated || isOfMark) && bad.after == good.after && bad.outcome.out == good.outcome.out;
    return bad.outcome.exitCode == 1 || (bad.outcome.exitCode == 0 && isHarmless)
               ? ""
               : "exit code " + QByteArray::number(bad.outcome.exitCode);
}

/// The same command again does the rest of what a killed one was to do.
QByteArray undone(const Run &good, const Run &bad)
{
    const Tree others = without(bad.afterRepetition, good.after);
    const Tree missing = without(good.after, bad.afterRepetition) + without(others, hiddenIn(others));
    return missing.isEmpty() ? ""
                             : "missing or left over after a repetition: " + missing.join(", ").left(200);
}

QByteArray problemOf(const Fault &fault, const Run &good, const Run &bad)
{
    if (fault.isKill()) {
        const QByteArrayList problems = {bad.outcome.exitCode == 128 + SIGKILL ? "" : "not killed",
                                         partialFile(fault, good, bad), lostFile(good, bad),
                                         wrongReport(fault, good, bad), undone(good, bad)};
        return problems.join(" ").trimmed();
    }
    const QByteArrayList problems = {wrongExitCode(fault, good, bad),
                                     partialFile(fault, good, bad),
                                     lostFile(good, bad),
                                     wrongReport(fault, good, bad),
                                     missingReport(fault, good, bad),
                                     changedFile(fault, good, bad),
                                     bad.outcome.exitCode == 0 ? "" : wrongMessage(fault, good, bad)};
    const auto found = std::find_if(problems.begin(), problems.end(),
                                    [](const QByteArray &problem) { return !problem.isEmpty(); });
    return found == problems.end() ? "" : *found;
}

/// What a command meets in turn, each at the first call and then at each later one.
QList<Fault> faultsOf(const QByteArray &call, const QByteArray &command)
{
    const bool isAny = call == "any";
    QList<Fault> faults;
    for (const int error : call == "write" ? QList<int>{EIO, ENOSPC} : QList<int>{EIO}) {
        if (!isAny)
            faults.append({call, 1, false, error});
        faults.append({call, 1, true, error});
    }
    // Killing the tool before it reads leaves the same as killing it before the next change. Each recording
    // is different, so a repetition cannot be compared; and a gallery has too many calls for one repetition
    // each.
    const bool isKilled = command == "gallery" ? !isAny && call != "write" : isAny && command != "record";
    if (isKilled)
        faults.append({isAny ? "change" : call, 1, false, KILL});
    return faults;
}

} // namespace

/// Every command that writes, on a device where one call fails, or that call and all later ones. See
/// faultyio.cpp.
class VornfhFaultsTest : public QObject
{
    Q_OBJECT

private slots:
    void survivesEveryFault_data();
    void survivesEveryFault();
    void closesARecordingThatEndedEarly_data();
    void closesARecordingThatEndedEarly();
    void namesWhatAFailedRecordingLeaves_data();
    void namesWhatAFailedRecordingLeaves();
    void goesOnIfALeftoverCannotBeDeleted();
    void putsAMovedFileBackIfItCannotBeFlushed();
    void saysThatADeletedSourceWasCopied();
    void doesNotReportARecordingWithLostData();
    void reportsAMarkThatIsNotKept_data();
    void reportsAMarkThatIsNotKept();
    void reportsWhereAFileCannotBeRead_data();
    void reportsWhereAFileCannotBeRead();
    void checkReportsAnEntryThatCannotBeRead();
    void copiesWhatTheKernelDoesNotCopy_data();
    void copiesWhatTheKernelDoesNotCopy();
    void copiesAFileWhoseHolesAreUnknown();
    void namesAnEntryThatCannotBeRead_data();
    void namesAnEntryThatCannotBeRead();
    void failsIfAFolderCannotBeReadToItsEnd_data();
    void failsIfAFolderCannotBeReadToItsEnd();
    void statusIsDamagedIfSomethingCannotBeRead_data();
    void statusIsDamagedIfSomethingCannotBeRead();
};

void VornfhFaultsTest::survivesEveryFault_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<bool>("hasMount");
    QTest::addColumn<bool>("isUnprotecting");
    // One row for each of the calls that the command makes.
    const auto row = [](const char *name, const QByteArrayList &arguments, const Tree &entries,
                        const QByteArrayList &calls, bool hasMount = false, bool isUnprotecting = false) {
        // In parts, so that they can run at the same time: FAULTS_OF=recordings, transfers, galleries or
        // others.
        static const QByteArray part = qgetenv("FAULTS_OF");
        const QByteArray &command = arguments.first();
        const bool isTransfer = command == "copy" || command == "move" || command == "offload";
        const QByteArray own = command == "record"    ? "recordings"
                               : isTransfer           ? "transfers"
                               : command == "gallery" ? "galleries"
                                                      : "others";
        if (!part.isEmpty() && part != own)
            return;
        for (const QByteArray &call : calls + QByteArrayList{"any"})
            QTest::addRow("%s-%s", name, call.constData())
                << call << entries << arguments << hasMount << isUnprotecting;
    };
    // A gallery is ordered by time.
    const Tree card =
        onCard({"100ABC/DCF_0001.jpg at 1 = " + pattern(9000, 'd'), "100ABC/DCF_0002.wav at 2 = wav",
                "100ABC/DCF_0003.avi at 3 = avi", "101ABC/DCF_0001.png at 4 = png", "MISC/a.txt = text"});
    const Tree sources = {"in/a.jpg = " + pattern(10000, 'a'), "in/b.avi = " + pattern(100, 'b'), "in/c.wav"};
    const QByteArrayList files = {"in/a.jpg", "in/b.avi", "in/c.wav"};
    const QByteArray photo = pictureData("jpg", QSize(320, 240));
    const QByteArrayList copying = {"read", "write", "ftruncate", "fsync", "syncfs", "close", "rename"};

    row("copy", QByteArrayList{"copy"} + files + QByteArrayList{"sd", "100ABC"}, sources + card, copying);
    row("copy-to-a-new-folder", QByteArrayList{"copy"} + files + QByteArrayList{"sd", "new"}, sources + card,
        {"mkdir", "syncfs"});
    row("copy-to-another-file-system", QByteArrayList{"copy"} + files + QByteArrayList{"sd", "100ABC"},
        sources + card, {"read", "write"}, true);
    row("copy-what-is-there", {"copy", "in/a.jpg", "sd", "100ABC"},
        sources + Tree{"sd/DCIM/100ABC/a.jpg = " + pattern(10000, 'a')}, {"read", "fsync", "syncfs"});
    row("move", QByteArrayList{"move"} + files + QByteArrayList{"sd", "100ABC"}, sources + card,
        {"fsync", "syncfs", "rename"});
    row("move-to-another-file-system", QByteArrayList{"move"} + files + QByteArrayList{"sd", "100ABC"},
        sources + card, copying + QByteArrayList{"unlink"}, true);
    row("comment", {"comment", "sd/DCIM/100ABC/p.jpg", "a comment"},
        card + Tree{"sd/DCIM/100ABC/p.jpg = " + photo}, {"read", "write", "fsync", "close", "rename"});
    row("mkdir", {"mkdir", "sd", "new"}, card, {"mkdir", "fsync"});
    row("delete",
        {"delete", "sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0002.wav",
         "sd/DCIM/101ABC/DCF_0001.png"},
        card, {"unlink", "fsync"});
    const Tree objects =
        card
        + onCard({"100ABC/DCF_0001.thumb = t", "101ABC/DCF_0001.thumb = t", "101ABC/DCF_0002.png = five"});
    row("delete-with-thumbnails", {"delete", "sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/101ABC/DCF_0001.png"},
        objects, {"unlink", "fsync"});
    const Tree stray = onCard({"100ABC/notes.txt"}); // so that the folder stays
    const Tree out = {"out/100ABC/", "out/101ABC/"};
    const Tree earlier = {"out/100ABC/DCF_0001.jpg = " + pattern(9000, 'd'),
                          "out/SHA256SUMS = " + QByteArray(64, '0') + "  100ABC/DCF_0001.jpg\n"};
    row("offload", {"offload", "sd", "out"}, objects + out, copying);
    row("offload-to-a-new-directory", {"offload", "sd", "out"}, objects, {"mkdir", "fsync", "syncfs"});
    row("offload-again", {"offload", "sd", "out"}, objects + out + earlier,
        {"read", "fsync", "syncfs", "rename"});
    row("offload-and-delete", {"offload", "sd", "out", "--move"}, card + out,
        copying + QByteArrayList{"unlink"}, true);
    row("offload-and-delete-thumbnails", {"offload", "sd", "out", "--move"}, objects + out,
        {"fsync", "syncfs"}, true);
    row("prune", {"prune", "sd", "--keep-last", "1"}, card + stray, {"unlink", "fsync"});
    row("prune-with-thumbnails", {"prune", "sd", "--keep-last", "1"}, objects + stray, {"unlink", "fsync"});
    row("prune-an-empty-folder", {"prune", "sd", "--keep-last", "1"}, objects, {});
    row("protect", {"protect", "sd/DCIM/100ABC"}, objects, {"syncfs", "fsync"});
    row("unprotect-by-copies", {"unprotect", "sd/DCIM/100ABC"},
        {"sd/DCIM/100ABC/DCF_0001.jpg = " + pattern(9000, 'd'), "sd/DCIM/100ABC/DCF_0002.wav = wav"},
        {"read", "write", "fsync", "syncfs", "close", "rename"}, false, true);
    const QTemporaryDir media;
    makeVideo(media.filePath("a.avi"), QSize(64, 48));
    const QByteArray unclosed = contentOf(media.filePath("a.avi")).replace(4, 4, QByteArray(4, '\0'));
    row("repair", {"repair", "sd"},
        // Because of the last thumbnail, the video needs one even after DCF_0002.thumb has been deleted.
        onCard({"100ABC/DCF_0001.avi = " + unclosed, "100ABC/DCF_0002.thumb = alone", "100ABC/DCF_0003.jpg",
                "100ABC/DCF_0004.jpg = " + photo, "100ABC/DCF_0004.thumb = " + photo}),
        {"unlink", "fsync", "rename"});
    row("rmdir", {"rmdir", "sd", "100ABC", "--yes"}, card, {"unlink", "fsync"});
    row("wipe", {"wipe", "sd", "--yes"}, card, {"unlink", "fsync"});
    // On tmpfs, where mounting is possible: it has no block device to ask about, which takes most of the
    // time.
    const bool hasMounts = hasOwnMounts();
    row("gallery", {"gallery", "sd", "-o", "out/page.html"},
        card + Tree{"out/", "sd/DCIM/100ABC/DCF_0009.jpg at 9 = " + photo},
        {"write", "fsync", "close", "rename"}, hasMounts);
    row("gallery-in-place-of-another", {"gallery", "sd", "-o", "out/page.html", "--force"},
        card + Tree{"out/page.html = " + pattern(9000, 'p')}, {"write", "fsync", "close", "rename"},
        hasMounts);
    row("gallery-of-several-pages", {"gallery", "sd", "-o", "out/page.html", "--page-size", "1"},
        card
            + Tree{"out/", "sd/DCIM/100ABC/DCF_0005.jpg at 5 = " + photo.leftJustified(290 << 10, 'x'),
                   "sd/DCIM/100ABC/DCF_0006.jpg at 6 = " + photo.leftJustified(290 << 10, 'x'),
                   "sd/DCIM/100ABC/DCF_0007.jpg at 7 = " + photo.leftJustified(290 << 10, 'x')},
        {"mkdir", "write", "fsync", "close", "rename"}, hasMounts);
    row("record-photo", {"record", "sd", "--type", "jpg"}, card, {"fsync"});
    row("record-video", {"record", "sd", "--type", "avi", "--duration", "0.1"}, card, {"fsync"});
    row("record-in-segments", {"record", "sd", "--type", "wav", "--duration", "2", "--segment", "1"}, card,
        {"fsync"});
    row("record-videos-in-segments",
        {"record", "sd", "--input-format", "lavfi", "--input", "testsrc2=size=64x48:rate=10", "--duration",
         "2", "--segment", "1"},
        card, {"fsync"});
    row("record-on-a-new-card", {"record", "sd", "--type", "wav", "--duration", "0.1"}, {"sd/"},
        {"mkdir", "fsync"});
}

void VornfhFaultsTest::survivesEveryFault()
{
    QFETCH(QByteArray, call);
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, arguments);
    QFETCH(bool, hasMount);
    QFETCH(bool, isUnprotecting);
    if (hasMount && !hasOwnMounts())
        QSKIP("mounting needs root");
    const Situation situation = {entries, arguments, hasMount, isUnprotecting};
    const Run good = runWith(NONE, situation);
    QVERIFY2(good.outcome.exitCode == 0, good.outcome.err);
    for (Fault fault : faultsOf(call, arguments.first())) {
        for (;; ++fault.number) {
            const Run bad = runWith(fault, situation);
            if (bad.faults.isEmpty()) {
                QVERIFY2(fault.number > 1, "never called");
                break;
            }
            const QByteArray problem = problemOf(fault, good, bad);
            QVERIFY2(problem.isEmpty(),
                     QByteArray(fault.text() + " at " + bad.faults.join(", ") + ": " + problem).constData());
        }
    }
}

void VornfhFaultsTest::closesARecordingThatEndedEarly_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("number");
    QTest::addColumn<bool>("isReplaced"); // by the file that was closed
    row("content-is-not-flushed", QByteArray("fsync"), 1, false);
    row("is-not-renamed", QByteArray("rename"), 1, false);
    row("new-name-is-not-flushed", QByteArray("fsync"), 2, true);
    row("folder-is-not-flushed", QByteArray("fsync"), 3, true);
}

void VornfhFaultsTest::closesARecordingThatEndedEarly()
{
    QFETCH(QByteArray, call);
    QFETCH(int, number);
    QFETCH(bool, isReplaced);
    const QTemporaryDir outside;
    makeVideo(outside.filePath("closed.avi"), QSize(64, 48));
    const QByteArray unclosed = contentOf(outside.filePath("closed.avi")).replace(4, 4, QByteArray(4, '\0'));
    StandIns programs;
    programs.add("ffmpeg", FIND_TARGET + "case $* in *lavfi*) {\n" + programs.prints(unclosed)
                               + "} > \"$target\"; exit 1;; esac\n" + programs.becomes("ffmpeg"));
    const Run run = runWith({call, number, false, EIO}, {{"sd/DCIM/100ABC/"}, {"record", "sd"}, false});
    const QByteArray path = "sd/DCIM/100ABC/DCF_0001.avi";
    QCOMPARE(run.faults.size(), 1);
    QCOMPARE(run.outcome.exitCode, 1);
    // The unchanged file is flushed afterwards; a failed flush cannot be repeated.
    QCOMPARE(run.outcome.out, isReplaced ? QByteArray() : "@/" + path + "\n");
    QVERIFY2(run.outcome.err.contains(": Input/output error"), run.outcome.err);
    QCOMPARE(run.after.contains(path + " = " + unclosed), !isReplaced);
    QCOMPARE(hiddenIn(run.after), Tree());
}

void VornfhFaultsTest::namesWhatAFailedRecordingLeaves_data()
{
    QTest::addColumn<QByteArray>("script"); // of ffmpeg
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const char *script, const char *out, const QByteArray &message) {
        QTest::newRow(name) << QByteArray(script) << QByteArray(out)
                            << message
                                   + ": ffmpeg exited with code 1; the incomplete file cannot be deleted: "
                                     "Input/output error";
    };
    row("recording", "exit 1", "", "@/sd/DCIM/100ABC/DCF_0001.jpg: recording failed");
    row("thumbnail", "case $target in *.thumb) exit 1; esac; echo data > \"$target\"",
        "@/sd/DCIM/100ABC/DCF_0001.jpg\n", "@/sd/DCIM/100ABC/DCF_0001.thumb: cannot be created");
}

void VornfhFaultsTest::namesWhatAFailedRecordingLeaves()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, message);
    StandIns programs;
    programs.add("ffmpeg", FIND_TARGET + script);
    const Run run =
        runWith({"unlink", 1, true, EIO}, {{"sd/DCIM/100ABC/"}, {"record", "sd", "--type", "jpg"}, false});
    QCOMPARE(run.outcome, (Outcome{1, out, errorLines({message})}));
}

void VornfhFaultsTest::goesOnIfALeftoverCannotBeDeleted()
{
    const QByteArray leftover = "sd/DCIM/100ABC/.vornfh-999999999-abcdef";
    const Tree before = {"a.jpg = a", leftover + " = x"};
    const Run run = runWith({"unlink", 1, true, EIO}, {before, {"copy", "a.jpg", "sd", "100ABC"}, false});
    const QByteArray message =
        "@/" + leftover + ": left by an interrupted command and cannot be removed: Input/output error";
    QCOMPARE(run.outcome, (Outcome{0, "@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n", errorLines({message})}));
    QCOMPARE(without(run.after, run.before), Tree{"sd/DCIM/100ABC/a.jpg = a"});
    QCOMPARE(without(run.before, run.after), Tree());
}

void VornfhFaultsTest::putsAMovedFileBackIfItCannotBeFlushed()
{
    const Situation situation = {
        {"sd/DCIM/100ABC/a.jpg = a", "sd/DCIM/100ABC/b.jpg = b", "sd/DCIM/kept/a.jpg = other"},
        {"move", "sd/DCIM/100ABC/a.jpg", "sd/DCIM/100ABC/b.jpg", "sd", "kept"},
        false};
    const Run run = runWith({"syncfs", 1, true, EIO}, situation);
    const QByteArray problem = ": @/sd/DCIM/kept: cannot be flushed to the device: Input/output error";
    QCOMPARE(run.outcome,
             (Outcome{1, "",
                      errorLines({"@/sd/DCIM/100ABC/a.jpg" + problem, "@/sd/DCIM/100ABC/b.jpg" + problem,
                                  "2 of 2 files not moved"})}));
    QCOMPARE(run.after, run.before);
}

/// The message says where the only copy is.
void VornfhFaultsTest::saysThatADeletedSourceWasCopied()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const Situation situation = {{"in/a.jpg = a", "other/b.jpg = b", "sd/DCIM/100ABC/"},
                                 {"move", "in/a.jpg", "other/b.jpg", "sd", "100ABC"},
                                 true};
    const Run run = runWith({"fsync", 3, false, EIO}, situation);
    QCOMPARE(run.faults, QByteArrayList{"@/in"});
    QCOMPARE(
        run.outcome,
        (Outcome{1, "@/other/b.jpg -> @/sd/DCIM/100ABC/b.jpg\n",
                 errorLines({"@/in/a.jpg: was copied to @/sd/DCIM/100ABC/a.jpg and deleted; @/in: cannot "
                             "be flushed to the device: Input/output error",
                             "1 of 2 files not moved"})}));
    QCOMPARE(run.after, (Tree{"in/", "other/", "sd/", "sd/DCIM/", "sd/DCIM/100ABC/",
                              "sd/DCIM/100ABC/a.jpg = a", "sd/DCIM/100ABC/b.jpg = b"}));
}

/// The kernel reports an error of the device once. A recording is not reported because a later flush
/// succeeds.
void VornfhFaultsTest::doesNotReportARecordingWithLostData()
{
    StandIns programs;
    programs.add("ffmpeg",
                 FIND_TARGET + "case $* in *lavfi*) echo data > \"$target\"; exec sleep 60; esac; exit 1");
    const Run run =
        runWith({"fsync", 1, false, EIO}, {{"sd/DCIM/100ABC/"}, {"record", "sd", "--type", "wav"}, false});
    const QByteArray path = "sd/DCIM/100ABC/DCF_0001.wav";
    QCOMPARE(run.faults, QByteArrayList{"@/" + path});
    QCOMPARE(run.outcome.exitCode, 1);
    QCOMPARE(run.outcome.out, QByteArray());
    QVERIFY2(
        run.outcome.err.startsWith("vornfh: @/" + path + ": recording ended early: Input/output error\n"),
        run.outcome.err);
    QVERIFY(run.after.contains(path + " = data\n"));
}

void VornfhFaultsTest::reportsAMarkThatIsNotKept_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<QByteArray>("reason");
    row("nothing-changes", 0, QByteArray("the file system does not support the protection of files"));
    row("refused", EPERM, QByteArray("cannot be protected: Operation not permitted"));
}

void VornfhFaultsTest::reportsAMarkThatIsNotKept()
{
    QFETCH(int, error);
    QFETCH(QByteArray, reason);
    const QByteArray file = "sd/DCIM/100ABC/DCF_0001.jpg";
    const Run run = runWith({"fchmod", 1, true, error}, {{file}, {"protect", file}, false});
    QCOMPARE(run.outcome,
             (Outcome{1, "", errorLines({"@/" + file + ": " + reason, "1 of 1 paths not protected"})}));
}

/// The kind of the first finding of "check --jsonl".
static QString firstKindIn(const Run &run)
{
    return QJsonDocument::fromJson(linesIn(run.outcome.out).value(0)).object()["kind"].toString();
}

void VornfhFaultsTest::reportsWhereAFileCannotBeRead_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<int>("number"); // of the call that fails
    QTest::addColumn<int>("offset");
    row("head", QByteArrayList(), 1, 0);
    row("tail", QByteArrayList(), 2, (2 << 20) - 4096);
    row("first-byte", QByteArrayList{"--read-all"}, 3, 0);
    row("middle", QByteArrayList{"--read-all"}, 5, 2 * 8192); // read in parts of 8 KiB
    row("second-block", QByteArrayList{"--read-all"}, 3 + 129, 129 * 8192);
}

void VornfhFaultsTest::reportsWhereAFileCannotBeRead()
{
    QFETCH(QByteArrayList, options);
    QFETCH(int, number);
    QFETCH(int, offset);
    const QByteArray content = "\xff\xd8\xff" + QByteArray((2 << 20) - 5, 'x') + "\xff\xd9";
    Situation situation = {
        {"sd/DCIM/100ABC/DCF_0001.jpg = " + content}, QByteArrayList{"check", "sd"} + options, false};
    const Run run = runWith({"read", number, true, EIO}, situation);
    QCOMPARE(run.outcome.exitCode, 3);
    const QByteArray finding = "@/sd/DCIM/100ABC/DCF_0001.jpg: cannot be read at offset "
                               + QByteArray::number(offset) + ": Input/output error\n";
    QVERIFY2(run.outcome.out.startsWith(finding), run.outcome.out);
    situation.arguments.append("--jsonl");
    QCOMPARE(firstKindIn(runWith({"read", number, true, EIO}, situation)), QString("unreadable"));
}

void VornfhFaultsTest::checkReportsAnEntryThatCannotBeRead()
{
    const QByteArray entry = "sd/DCIM/100ABC/DCF_0001.jpg";
    Situation situation = {{entry + " = x"}, {"check", "sd", "--names"}, false};
    const Run run = runWith({"fstatat", 1, true, EIO}, situation, entry);
    QCOMPARE(run.outcome.exitCode, 3);
    QVERIFY2(run.outcome.out.startsWith("@/" + entry + ": cannot be read: Input/output error\n"),
             run.outcome.out);
    situation.arguments.append("--jsonl");
    QCOMPARE(firstKindIn(runWith({"fstatat", 1, true, EIO}, situation, entry)), QString("unreadable"));
}

void VornfhFaultsTest::copiesWhatTheKernelDoesNotCopy_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("number"); // of the write that fails; the first one is copy_file_range()
    QTest::addColumn<bool>("hasMount");
    row("EXDEV", EXDEV, 1, false);
    row("EINVAL", EINVAL, 1, false);
    row("ENOSYS", ENOSYS, 1, false);
    row("EOPNOTSUPP", EOPNOTSUPP, 1, false);
    row("EPERM", EPERM, 1, false);
    row("EINTR-during-the-copy-by-the-tool", EINTR, 2, true);
}

void VornfhFaultsTest::copiesWhatTheKernelDoesNotCopy()
{
    QFETCH(int, error);
    QFETCH(int, number);
    QFETCH(bool, hasMount);
    if (hasMount && !hasOwnMounts())
        QSKIP("mounting needs root");
    const QByteArray content = pattern(10000, 'a');
    const Run run =
        runWith({"write", number, false, error},
                {{"a.jpg = " + content, "sd/DCIM/"}, {"copy", "a.jpg", "sd", "100ABC"}, hasMount});
    QCOMPARE(run.faults.size(), 1);
    QCOMPARE(run.outcome, (Outcome{0, "@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n", ""}));
    QVERIFY(run.after.contains("sd/DCIM/100ABC/a.jpg = " + content));
}

void VornfhFaultsTest::copiesAFileWhoseHolesAreUnknown()
{
    const QByteArray content = pattern(10000, 'a');
    const Run run = runWith({"lseek", 1, true, EINVAL},
                            {{"a.jpg = " + content, "sd/DCIM/"}, {"copy", "a.jpg", "sd", "100ABC"}, false});
    QVERIFY(!run.faults.isEmpty());
    QCOMPARE(run.outcome, (Outcome{0, "@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n", ""}));
    QVERIFY(run.after.contains("sd/DCIM/100ABC/a.jpg = " + content));
}

void VornfhFaultsTest::namesAnEntryThatCannotBeRead_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");
    QTest::addColumn<QByteArray>("entry");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &out,
                        const QByteArray &err, const QByteArray &entry = "sd/DCIM/100ABC/DCF_0002.jpg") {
        QTest::newRow(name) << arguments << out << err << entry;
    };
    const QByteArray photo = "sd/DCIM/100ABC/DCF_0001.jpg";
    const QByteArray problem = "@/sd/DCIM/100ABC/DCF_0002.jpg: cannot be read: Input/output error";
    row("status", {"status", "sd"}, "\n  problem         " + problem + "\n", "");
    row("next-that-writes-nothing", {"next", "sd", "jpg"}, "@/sd/DCIM/100ABC/DCF_0003.jpg\n", QByteArray());
    row("next-that-creates-a-folder", {"next", "usb", "jpg"}, "@/usb/DCIM/100ABC/DCF_0001.jpg\n",
        errorLines({"@/usb/DCIM/MISC: cannot be read: Input/output error"}), "usb/DCIM/MISC");
    row("record", {"record", "sd", "--type", "wav", "--duration", "0.1"}, "@/sd/DCIM/100ABC/DCF_0003.wav\n",
        errorLines({problem}));
    row("copy", {"copy", "in/a.jpg", "sd", "100ABC"}, "@/in/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n",
        errorLines({problem}));
    row("copy-dry-run", {"copy", "--dry-run", "in/a.jpg", "sd", "100ABC"},
        "@/in/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n", errorLines({problem}));
    row("move", {"move", "in/a.jpg", "sd", "100ABC"}, "@/in/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n",
        errorLines({problem}));
    row("comment", {"comment", photo, "text"}, "", errorLines({problem}));
    row("delete", {"delete", photo}, "@/" + photo + "\n", errorLines({problem}));
    row("protect", {"protect", photo}, "@/" + photo + "\n", errorLines({problem}));
    row("unprotect", {"unprotect", photo}, "@/" + photo + "\n", errorLines({problem}));
    row("gallery", {"gallery", "sd", "-o", "sd/DCIM/100ABC/page.html"}, "@/sd/DCIM/100ABC/page.html\n",
        errorLines({problem}));
    row("mkdir", {"mkdir", "sd", "new"}, "@/sd/DCIM/new\n",
        errorLines({"@/sd/DCIM/MISC: cannot be read: Input/output error"}), "sd/DCIM/MISC");
}

void VornfhFaultsTest::namesAnEntryThatCannotBeRead()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    QFETCH(QByteArray, entry);
    const Situation situation = {{"in/a.jpg = a",
                                  "sd/DCIM/100ABC/DCF_0001.jpg = " + pictureData("jpg", QSize(32, 24)),
                                  "sd/DCIM/100ABC/DCF_0002.jpg", "sd/DCIM/MISC/", "usb/DCIM/MISC/"},
                                 arguments,
                                 false};
    const Run run = runWith({"fstatat", 1, true, EIO}, situation, entry);
    QCOMPARE(run.outcome.exitCode, 0);
    QVERIFY2(run.outcome.out.endsWith(out), run.outcome.out);
    QCOMPARE(run.outcome.err, err);
}

void VornfhFaultsTest::failsIfAFolderCannotBeReadToItsEnd_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("folder");
    QTest::addColumn<int>("number"); // of the entry that cannot be read, counted from "."
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");
    const auto row = [](const QByteArray &name, const QByteArrayList &arguments, const QByteArray &folder,
                        const QByteArray &out = "") {
        const QByteArray err = out.isEmpty() ? errorLines({"@/" + folder + ": Input/output error"}) : "";
        for (const int number : {1, 4})
            QTest::addRow("%s-%d", name.constData(), number) << arguments << folder << number << out << err;
    };
    const QByteArray numbered = "sd/DCIM/100ABC";
    const QByteArray finding = "@/" + numbered + ": cannot be read: Input/output error\n";
    row("list", {"list", "sd"}, numbered);
    row("list-of-images", {"list", "sd", "--images"}, numbered);
    row("list-of-names-outside-ascii", {"list", "sd", "--filter", "other"}, "sd/DCIM/MISC");
    row("folders", {"folders", "sd"}, numbered);
    row("folders-json", {"folders", "sd", "--json"}, numbered);
    row("count", {"count", "sd"}, numbered);
    row("count-json", {"count", "sd", "--json"}, numbered);
    row("gallery", {"gallery", "sd", "-o", "page.html"}, numbered);
    row("check", {"check", "sd"}, numbered, finding);
    row("prune", {"prune", "sd", "--keep-last", "1"}, numbered);
    const QByteArray location = "sd/DCIM";
    row("list-of-the-location", {"list", "sd"}, location);
    row("folders-of-the-location", {"folders", "sd"}, location);
    row("count-of-the-location", {"count", "sd"}, location);
    row("gallery-of-the-location", {"gallery", "sd", "-o", "page.html"}, location);
    row("check-of-the-location", {"check", "sd"}, location);
    row("prune-of-the-location", {"prune", "sd", "--keep-last", "1"}, location);
    row("offload-of-the-location", {"offload", "sd", "out"}, location);
    row("protect-of-the-location", {"protect", "sd/DCIM/100ABC"}, location);
}

/// An error while a folder is read is not the end of the folder.
void VornfhFaultsTest::failsIfAFolderCannotBeReadToItsEnd()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, folder);
    QFETCH(int, number);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    const Situation situation = {{"sd/DCIM/100ABC/DCF_0001.jpg = 1", "sd/DCIM/100ABC/DCF_0002.jpg = 2",
                                  "sd/DCIM/MISC/a.jpg = a", "sd/DCIM/MISC/\xc3\xa4.jpg = b"},
                                 arguments,
                                 false};
    const Run run = runWith({"readdir", number, true, EIO}, situation, folder);
    QCOMPARE(run.outcome.exitCode, out.isEmpty() ? 1 : 3); // check has a finding
    QVERIFY2(run.outcome.out.startsWith(out), run.outcome.out);
    QVERIFY2(run.outcome.err.startsWith(err), run.outcome.err);
    QCOMPARE(run.after, run.before);
}

void VornfhFaultsTest::statusIsDamagedIfSomethingCannotBeRead_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("objects");
    row("entry", QByteArray("fstatat"), QByteArray("sd/DCIM/100ABC/DCF_0002.jpg"),
        QByteArray("2, 0 protected"));
    row("folder", QByteArray("readdir"), QByteArray("sd/DCIM/100ABC"),
        QByteArray("unknown: a folder cannot be read"));
}

void VornfhFaultsTest::statusIsDamagedIfSomethingCannotBeRead()
{
    QFETCH(QByteArray, call);
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, objects);
    const Situation situation = {
        {"sd/DCIM/100ABC/DCF_0001.jpg = x", "sd/DCIM/100ABC/DCF_0002.jpg = x"}, {"status", "sd"}, false};
    const Run run = runWith({call, 1, true, EIO}, situation, path);
    const QByteArray problem = "@/" + path + ": cannot be read: Input/output error\n";
    QVERIFY2(run.outcome.out.startsWith("sd: @/sd/DCIM\n  verdict         damaged: " + problem),
             run.outcome.out);
    QVERIFY2(run.outcome.out.contains("\n  objects         " + objects + "\n"), run.outcome.out);
    QVERIFY2(run.outcome.out.endsWith("\n  problem         " + problem), run.outcome.out);
    QCOMPARE(run.outcome.exitCode, 0);
    QCOMPARE(run.outcome.err, QByteArray());
}

QTEST_GUILESS_MAIN(VornfhFaultsTest)
#include "tst_vornfh_faults.moc"
