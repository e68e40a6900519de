// SPDX-License-Identifier: MIT
#include "surroundings.h"

#include <QRandomGenerator>
#include <QtTest>

#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>

namespace {

using Words = QList<QByteArray>;

/// A program "cp" in front of the real one. "real" calls that with the same arguments.
void standInForCp(ToolRun &tool, const QByteArray &body)
{
    const QString path = tool.path() + "/bin/cp";
    writeFile(path, "#!/bin/sh\nreal() { /bin/cp \"$@\"; }\n" + body + "\n");
    ::chmod(QFile::encodeName(path).constData(), 0755);
    tool.environment.insert("PATH", tool.path() + "/bin:" + qEnvironmentVariable("PATH"));
}

QByteArray pattern(int size, char seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(seed + i * 7 + i / 251);
    return bytes;
}

pid_t startTool(const ToolRun &tool, const Words &arguments)
{
    const pid_t child = ::fork();
    if (child != 0)
        return child;
    const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int channel : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::dup2(nothing, channel);
    becomeTool(tool, arguments);
}

/// Waits for the tool and for a cp that may have outlived it.
void waitForAll()
{
    while (::waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
}

} // namespace

class VornfhTransferTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { mHasMounts = hasOwnMounts(); }

    void copies_data();
    void copies();
    void moves_data();
    void moves();
    void refusesTheCommandLine_data();
    void refusesTheCommandLine();
    void survivesABadCp_data();
    void survivesABadCp();
    void saysThatCpIsMissing();
    void refusesWhenAllCountersAreTaken();
    void keepsModeAndTimes();
    void keepsASourceThatChanges_data();
    void keepsASourceThatChanges();
    void keepsACopyWhoseSourceVanished();
    void stopsBehindTheFileAtHand();
    void refusesAFolderInUse();
    void movesAcrossFileSystems();
    void saysThatTheTargetIsFull_data();
    void saysThatTheTargetIsFull();
    void saysThatTheTargetIsReadOnly();
    void saysThatTheTargetIsMissing_data();
    void saysThatTheTargetIsMissing();
    void showsProgressOnATerminalOnly();
    void losesNothingWhenKilled();

private:
    bool mHasMounts = false;
};

void VornfhTransferTest::copies_data()
{
    QTest::addColumn<Words>("before");
    QTest::addColumn<Words>("arguments");
    QTest::addColumn<Words>("copies"); // "name in the folder <- file with its content"
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");

    QTest::newRow("one-file") << Words{"a.jpg"} << Words{"a.jpg", "sd", "100ABC"} << Words{"a.jpg <- a.jpg"}
                              << QByteArray("@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n") << QByteArray();
    QTest::newRow("storage-in-capitals")
        << Words{"a.jpg"} << Words{"a.jpg", "SD", "100ABC"} << Words{"a.jpg <- a.jpg"}
        << QByteArray("@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n") << QByteArray();
    QTest::newRow("blanks-and-quotes")
        << Words{"a 'b' \"c\".jpg"} << Words{"a 'b' \"c\".jpg", "sd", "my folder"}
        << Words{"a 'b' \"c\".jpg <- a 'b' \"c\".jpg"}
        << QByteArray("@/a 'b' \"c\".jpg -> @/sd/DCIM/my folder/a 'b' \"c\".jpg\n") << QByteArray();
    QTest::newRow("line-feed-in-the-name")
        << Words{"a\nb.jpg"} << Words{"a\nb.jpg", "sd", "100ABC"} << Words{"a\nb.jpg <- a\nb.jpg"}
        << QByteArray("@/a\\x0ab.jpg -> @/sd/DCIM/100ABC/a\\x0ab.jpg\n") << QByteArray();
    QTest::newRow("leading-dash") << Words{"-r.jpg"} << Words{"--", "-r.jpg", "sd", "100ABC"}
                                  << Words{"-r.jpg <- -r.jpg"}
                                  << QByteArray("@/-r.jpg -> @/sd/DCIM/100ABC/-r.jpg\n") << QByteArray();
    QTest::newRow("brackets") << Words{"[a,b]", "a", "b"} << Words{"[a,b]", "sd", "[1,2]"}
                              << Words{"[a,b] <- [a,b]"} << QByteArray("@/[a,b] -> @/sd/DCIM/[1,2]/[a,b]\n")
                              << QByteArray();
    QTest::newRow("markers-in-the-name")
        << Words{"%1 %2%3.%4", "sd/DCIM/100ABC/%1 %2%3.%4"} << Words{"%1 %2%3.%4", "sd", "100ABC"}
        << Words{"%1 %2%3.%4 <- sd/DCIM/100ABC/%1 %2%3.%4", "1 %4%3_%3.%4 <- %1 %2%3.%4"}
        << QByteArray("@/%1 %2%3.%4 -> @/sd/DCIM/100ABC/1 %4%3_%3.%4\n") << QByteArray();
    QTest::newRow("name-taken") << Words{"DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0001.jpg"}
                                << Words{"DCF_0001.jpg", "sd", "100ABC"}
                                << Words{"DCF_0001.jpg <- sd/DCIM/100ABC/DCF_0001.jpg",
                                         "DCF_0001_1.jpg <- DCF_0001.jpg"}
                                << QByteArray("@/DCF_0001.jpg -> @/sd/DCIM/100ABC/DCF_0001_1.jpg\n")
                                << QByteArray();
    QTest::newRow("same-name-twice")
        << Words{"x/a.b.c", "y/a.b.c"} << Words{"x/a.b.c", "y/a.b.c", "sd", "100ABC"}
        << Words{"a.b.c <- x/a.b.c", "a_1.c <- y/a.b.c"}
        << QByteArray("@/x/a.b.c -> @/sd/DCIM/100ABC/a.b.c\n@/y/a.b.c -> @/sd/DCIM/100ABC/a_1.c\n")
        << QByteArray();
    QTest::newRow("link-to-a-file") << Words{"a.jpg", "link.jpg -> a.jpg"}
                                    << Words{"link.jpg", "sd", "100ABC"} << Words{"link.jpg <- a.jpg"}
                                    << QByteArray("@/link.jpg -> @/sd/DCIM/100ABC/link.jpg\n")
                                    << QByteArray();
    QTest::newRow("bad-sources-between-good-ones")
        << Words{"a.jpg", "folder/", "nowhere -> gone", "b.jpg"}
        << Words{"a.jpg",     "folder", "nowhere", "missing", "a.jpg/", "",
                 "/dev/null", "b\xff",  "b.jpg",   "sd",      "100ABC"}
        << Words{"a.jpg <- a.jpg", "b.jpg <- b.jpg"}
        << QByteArray("@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n@/b.jpg -> @/sd/DCIM/100ABC/b.jpg\n")
        << QByteArray("vornfh: @/folder: is a folder\n"
                      "vornfh: @/nowhere: is a dangling symbolic link\n"
                      "vornfh: @/missing: No such file or directory\n"
                      "vornfh: @/a.jpg/: Not a directory\n"
                      "vornfh: '': is no file name\n"
                      "vornfh: /dev/null: is no regular file\n"
                      "vornfh: b\\xff: is not valid UTF-8\n"
                      "vornfh: 7 of 9 files not copied\n");
    QTest::newRow("already-in-the-folder")
        << Words{"sd/DCIM/100ABC/a.jpg"} << Words{"sd/DCIM/100ABC/a.jpg", "sd", "100ABC"}
        << Words{"a.jpg <- sd/DCIM/100ABC/a.jpg"} << QByteArray()
        << QByteArray("vornfh: @/sd/DCIM/100ABC/a.jpg: is already in that folder\n"
                      "vornfh: 1 of 1 files not copied\n");
    QTest::newRow("dangling-link-in-the-way")
        << Words{"a.jpg", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/a.jpg -> @/elsewhere"}
        << Words{"a.jpg", "sd", "100ABC"} << Words{} << QByteArray()
        << QByteArray("vornfh: @/sd/DCIM/100ABC/a.jpg: is a dangling symbolic link\n"
                      "vornfh: 1 of 1 files not copied\n");
    QTest::newRow("file-in-place-of-the-folder")
        << Words{"a.jpg", "sd/DCIM/100ABC"} << Words{"a.jpg", "sd", "100ABC"} << Words{} << QByteArray()
        << QByteArray("vornfh: @/sd/DCIM/100ABC: is not a folder\n");
    QTest::newRow("name-of-the-folder-too-long")
        << Words{"a.jpg"} << Words{"a.jpg", "sd", QByteArray(300, 'x')} << Words{} << QByteArray()
        << "vornfh: @/sd/DCIM/" + QByteArray(300, 'x') + ": cannot be created: File name too long\n";
    const QByteArray longName(255, 'x');
    QTest::newRow("name-too-long-with-a-counter")
        << Words{longName, "sd/DCIM/100ABC/" + longName} << Words{longName, "sd", "100ABC"}
        << Words{longName + " <- sd/DCIM/100ABC/" + longName} << QByteArray()
        << "vornfh: @/" + longName
               + ": cannot be copied: File name too long\nvornfh: 1 of 1 files not copied\n";
}

void VornfhTransferTest::copies()
{
    QFETCH(Words, before);
    QFETCH(Words, arguments);
    QFETCH(Words, copies);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    ToolRun tool;
    make(tool, Words{"sd/DCIM/"} + before, Content::OwnName);
    Words expected = tree(tool.path());

    const QByteArray folder = "sd/DCIM/" + arguments.last();
    const Outcome outcome = tool.runOnStorages(Words{"copy"} + arguments);
    QCOMPARE(outcome, (Outcome{err.isEmpty() ? 0 : 1, tool.expand(out), tool.expand(err)}));
    for (const QByteArray &copy : copies) {
        const QByteArray name = folder + "/" + copy.left(copy.indexOf(" <- "));
        const QByteArray original = copy.mid(copy.indexOf(" <- ") + 4);
        QCOMPARE(tool.content(tool.path() + "/" + QFile::decodeName(name)), original);
        for (const QByteArray &entry : {folder + "/", name}) {
            if (!expected.contains(entry))
                expected.append(entry);
        }
    }
    std::sort(expected.begin(), expected.end());
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhTransferTest::moves_data()
{
    QTest::addColumn<Words>("before");
    QTest::addColumn<Words>("arguments");
    QTest::addColumn<Words>("after");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");

    QTest::newRow("one-file") << Words{"a.jpg"} << Words{"a.jpg"} << Words{"sd/DCIM/100ABC/a.jpg"}
                              << QByteArray("@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n") << QByteArray();
    QTest::newRow("link-alone-goes") << Words{"a.jpg", "link.jpg -> a.jpg"} << Words{"link.jpg"}
                                     << Words{"a.jpg", "sd/DCIM/100ABC/link.jpg"}
                                     << QByteArray("@/link.jpg -> @/sd/DCIM/100ABC/link.jpg\n")
                                     << QByteArray();
    QTest::newRow("same-file-twice") << Words{"a.jpg"} << Words{"a.jpg", "a.jpg"}
                                     << Words{"sd/DCIM/100ABC/a.jpg"}
                                     << QByteArray("@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n")
                                     << QByteArray("vornfh: @/a.jpg: No such file or directory\n"
                                                   "vornfh: 1 of 2 files not moved\n");
    QTest::newRow("already-in-the-folder")
        << Words{"sd/DCIM/100ABC/a.jpg"} << Words{"sd/DCIM/100ABC/../100ABC/a.jpg"}
        << Words{"sd/DCIM/100ABC/a.jpg"} << QByteArray()
        << QByteArray("vornfh: @/sd/DCIM/100ABC/../100ABC/a.jpg: is already in that folder\n"
                      "vornfh: 1 of 1 files not moved\n");
    QTest::newRow("name-taken") << Words{"a.jpg", "sd/DCIM/100ABC/a.jpg"} << Words{"a.jpg"}
                                << Words{"sd/DCIM/100ABC/a.jpg", "sd/DCIM/100ABC/a_1.jpg"}
                                << QByteArray("@/a.jpg -> @/sd/DCIM/100ABC/a_1.jpg\n") << QByteArray();
}

void VornfhTransferTest::moves()
{
    QFETCH(Words, before);
    QFETCH(Words, arguments);
    QFETCH(Words, after);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    ToolRun tool;
    make(tool, Words{"sd/DCIM/"} + before, Content::OwnName);
    const Outcome outcome = tool.runOnStorages(Words{"move"} + arguments + Words{"sd", "100ABC"});
    QCOMPARE(outcome, (Outcome{err.isEmpty() ? 0 : 1, tool.expand(out), tool.expand(err)}));
    Words expected = after + Words{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"};
    std::sort(expected.begin(), expected.end());
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhTransferTest::refusesTheCommandLine_data()
{
    QTest::addColumn<Words>("arguments");
    QTest::addColumn<QByteArray>("reason");

    const QByteArray single = "holds '/': only a folder directly in the storage's location can be named";
    QTest::newRow("no-folder") << Words{"a.jpg", "sd"} << QByteArray("copy needs FILES, STORAGE and FOLDER");
    QTest::newRow("no-such-storage") << Words{"a.jpg", "card", "100ABC"}
                                     << QByteArray("STORAGE: 'card' is not one of mmc, sd, usb");
    QTest::newRow("empty-folder") << Words{"a.jpg", "sd", ""} << QByteArray("the folder name '' is empty");
    QTest::newRow("dot") << Words{"a.jpg", "sd", "."}
                         << QByteArray("the folder name '.' is no folder of the storage's own");
    QTest::newRow("two-dots") << Words{"a.jpg", "sd", ".."}
                              << QByteArray("the folder name '..' is no folder of the storage's own");
    QTest::newRow("path") << Words{"a.jpg", "sd", "../x"} << "the folder name '../x' " + single;
    QTest::newRow("slash-at-the-end") << Words{"a.jpg", "sd", "x/"} << "the folder name 'x/' " + single;
    QTest::newRow("line-feed") << Words{"a.jpg", "sd", "x\n"}
                               << QByteArray("the folder name 'x\\x0a' holds a control character");
    QTest::newRow("no-utf8") << Words{"a.jpg", "sd", "x\xff"}
                             << QByteArray("FOLDER 'x\\xff' is not valid UTF-8");
    QTest::newRow("marker") << Words{"a.jpg", "sd", "50%2"}
                            << QByteArray(
                                   "the folder name '50%2' holds '%' before a digit, which the library "
                                   "fills in when it builds a path");
}

void VornfhTransferTest::refusesTheCommandLine()
{
    QFETCH(Words, arguments);
    QFETCH(QByteArray, reason);
    ToolRun tool;
    make(tool, {"a.jpg", "sd/DCIM/"}, Content::OwnName);
    QCOMPARE(tool.runOnStorages(Words{"copy"} + arguments), (Outcome{2, "", "vornfh: " + reason + "\n"}));
    QCOMPARE(tree(tool.path()), (Words{"a.jpg", "sd/", "sd/DCIM/"}));
}

void VornfhTransferTest::survivesABadCp_data()
{
    QTest::addColumn<QByteArray>("cp");
    QTest::addColumn<QByteArray>("reason");

    QTest::newRow("does-nothing") << QByteArray("exit 1") << QByteArray("cannot be copied: cp failed");
    QTest::newRow("writes-half") << QByteArray("head -c 2 \"$2\" > \"$3\"; exit 1")
                                 << QByteArray("its copy is not the same: cp failed");
    QTest::newRow("writes-half-and-says-nothing")
        << QByteArray("head -c 2 \"$2\" > \"$3\"") << QByteArray("its copy is not the same: cp failed");
    QTest::newRow("writes-something-else")
        << QByteArray("tr a b < \"$2\" > \"$3\"") << QByteArray("its copy is not the same: cp failed");
    QTest::newRow("writes-too-much") << QByteArray("cat \"$2\" \"$2\" > \"$3\"")
                                     << QByteArray("its copy is not the same: cp failed");
    QTest::newRow("is-killed") << QByteArray("head -c 2 \"$2\" > \"$3\"; kill -9 $$")
                               << QByteArray("its copy is not the same: cp failed");
    QTest::newRow("makes-a-hard-link")
        << QByteArray("ln \"$2\" \"$3\"") << QByteArray("changed while it was copied");
}

void VornfhTransferTest::survivesABadCp()
{
    QFETCH(QByteArray, cp);
    QFETCH(QByteArray, reason);
    for (const QByteArray command : {"copy", "move"}) {
        ToolRun tool;
        make(tool, {"sd/DCIM/", "bad.jpg", "good.jpg"}, Content::OwnName);
        standInForCp(tool, "case $2 in */good.jpg) real \"$@\"; exit;; esac\n" + cp);
        const Outcome outcome = tool.runOnStorages({command, "bad.jpg", "good.jpg", "sd", "100ABC"});
        QCOMPARE(outcome.exitCode, 1);
        QCOMPARE(outcome.out, tool.expand("@/good.jpg -> @/sd/DCIM/100ABC/good.jpg\n"));
        const QByteArray summary = "vornfh: 1 of 2 files not "
                                   + (command == "move" ? QByteArray("moved") : QByteArray("copied")) + "\n";
        if (reason != "changed while it was copied") // a hard link is no copy, and its name is reported
            QCOMPARE(outcome.err, tool.expand("vornfh: @/bad.jpg: " + reason + "\n") + summary);
        else
            QVERIFY(outcome.err.endsWith(summary));
        QCOMPARE(tool.content(tool.path() + "/bad.jpg"), QByteArray("bad.jpg"));
        QCOMPARE(tool.content(tool.sd() + "/100ABC/good.jpg"), QByteArray("good.jpg"));
        QCOMPARE(QFile::exists(tool.path() + "/good.jpg"), command == "copy");
        const bool isLink = cp.startsWith("ln ");
        QCOMPARE(QFile::exists(tool.sd() + "/100ABC/bad.jpg"), isLink); // one file with two names stays
    }
}

void VornfhTransferTest::saysThatCpIsMissing()
{
    ToolRun tool;
    make(tool, {"sd/DCIM/", "a.jpg"});
    tool.environment.insert("PATH", tool.path() + "/nowhere");
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             (Outcome{1, "",
                      tool.expand("vornfh: @/a.jpg: cannot be copied: cp is not on the search path\n"
                                  "vornfh: 1 of 1 files not moved\n")}));
    QCOMPARE(tree(tool.path()), (Words{"a.jpg", "sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
}

void VornfhTransferTest::refusesWhenAllCountersAreTaken()
{
    ToolRun tool;
    make(tool, {"README", "sd/DCIM/100ABC/README"}, Content::OwnName);
    for (int i = 1; i <= 998; ++i)
        writeFile(QString("%1/100ABC/README_%2.README").arg(tool.sd()).arg(i), "old");
    QCOMPARE(tool.runOnStorages({"move", "README", "sd", "100ABC"}),
             (Outcome{0, tool.expand("@/README -> @/sd/DCIM/100ABC/README_999.README\n"), ""}));
    make(tool, {"README"}, Content::OwnName);
    writeFile(tool.sd() + "/100ABC/README_999.README", "old");
    const auto before = tool.contents();
    for (const QByteArray command : {"copy", "move"})
        QCOMPARE(tool.runOnStorages({command, "README", "sd", "100ABC"}).err,
                 tool.expand("vornfh: @/sd/DCIM/100ABC/README_999.README: exists, and so do its 999 copies\n"
                             "vornfh: 1 of 1 files not "
                             + QByteArray(command == "move" ? "moved" : "copied") + "\n"));
    QCOMPARE(tool.contents(), before);
}

void VornfhTransferTest::keepsModeAndTimes()
{
    ToolRun tool;
    make(tool, {"a.jpg", "sd/DCIM/"}, Content::OwnName);
    const QByteArray source = tool.path().toUtf8() + "/a.jpg";
    ::chmod(source.constData(), 0440);
    setModified(source, 1234567890123);
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}).exitCode, 0);
    struct stat copy = {};
    QCOMPARE(::stat(QFile::encodeName(tool.sd() + "/100ABC/a.jpg").constData(), &copy), 0);
    QCOMPARE(copy.st_mode & 07777U, 0440U);
    QCOMPARE(qint64(copy.st_mtim.tv_sec), qint64(1234567890));
    QCOMPARE(qint64(copy.st_mtim.tv_nsec), qint64(123000000));
}

void VornfhTransferTest::keepsASourceThatChanges_data()
{
    QTest::addColumn<QByteArray>("change");
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("grows-before-it-is-read")
        << QByteArray("printf x >> \"$2\"; real \"$@\"") << QByteArray("a.jpgx");
    QTest::newRow("grows-behind-the-copy")
        << QByteArray("real \"$@\"; printf x >> \"$2\"") << QByteArray("a.jpgx");
    QTest::newRow("is-replaced") << QByteArray("real \"$@\"; printf new > \"$2.n\"; mv \"$2.n\" \"$2\"")
                                 << QByteArray("new");
}

void VornfhTransferTest::keepsASourceThatChanges()
{
    QFETCH(QByteArray, change);
    QFETCH(QByteArray, content);
    ToolRun tool;
    make(tool, {"a.jpg", "sd/DCIM/"}, Content::OwnName);
    standInForCp(tool, change);
    const Outcome outcome = tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"});
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.out, QByteArray());
    QVERIFY(outcome.err.endsWith("vornfh: 1 of 1 files not moved\n"));
    QCOMPARE(tool.content(tool.path() + "/a.jpg"), content);
}

void VornfhTransferTest::keepsACopyWhoseSourceVanished()
{
    ToolRun tool;
    make(tool, {"a.jpg", "sd/DCIM/"}, Content::OwnName);
    standInForCp(tool, "real \"$@\"; rm \"$2\"");
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             (Outcome{1, "",
                      tool.expand("vornfh: @/a.jpg: changed while it was copied\n"
                                  "vornfh: 1 of 1 files not moved\n")}));
    QCOMPARE(tool.content(tool.sd() + "/100ABC/a.jpg"), QByteArray("a.jpg"));
}

void VornfhTransferTest::stopsBehindTheFileAtHand()
{
    ToolRun tool;
    make(tool, {"a.jpg", "b.jpg", "sd/DCIM/"}, Content::OwnName);
    standInForCp(tool, "head -c 2 \"$2\" > \"$3\"; kill -TERM $PPID; sleep 0.1");
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "b.jpg", "sd", "100ABC"}),
             (Outcome{1, "",
                      tool.expand("vornfh: @/a.jpg: interrupted\n"
                                  "vornfh: interrupted: 2 of 2 files not moved\n")}));
    QCOMPARE(tree(tool.path()),
             (Words{"a.jpg", "b.jpg", "bin/", "bin/cp", "sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
}

void VornfhTransferTest::refusesAFolderInUse()
{
    ToolRun tool;
    make(tool, {"a.jpg", "sd/DCIM/100ABC/"}, Content::OwnName);
    const int folder = ::open(QFile::encodeName(tool.sd() + "/100ABC").constData(), O_RDONLY | O_CLOEXEC);
    QCOMPARE(::flock(folder, LOCK_EX), 0);
    QCOMPARE(
        tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
        (Outcome{1, "",
                 tool.expand("vornfh: @/sd/DCIM/100ABC: another vornfh is copying into this folder\n")}));
    ::close(folder);
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}).exitCode, 0);
}

void VornfhTransferTest::movesAcrossFileSystems()
{
    if (!mHasMounts)
        QSKIP("mounting needs root");
    ToolRun tool;
    make(tool, {"sd/", "a.jpg"}, Content::OwnName);
    const TmpfsMount card(tool.path() + "/sd", "size=4m");
    QVERIFY(card.isMounted());
    QDir().mkpath(tool.sd());
    const QByteArray big = pattern(2500000, 'x');
    writeFile(tool.path() + "/big.avi", big);
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "big.avi", "sd", "100ABC"}),
             (Outcome{0,
                      tool.expand("@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\n"
                                  "@/big.avi -> @/sd/DCIM/100ABC/big.avi\n"),
                      ""}));
    QCOMPARE(tree(tool.path()),
             (Words{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/a.jpg", "sd/DCIM/100ABC/big.avi"}));
    QVERIFY(tool.content(tool.sd() + "/100ABC/big.avi") == big);
}

void VornfhTransferTest::saysThatTheTargetIsFull_data()
{
    QTest::addColumn<QByteArray>("cp");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("before-the-copy")
        << QByteArray() << QByteArray("no space left in @/sd/DCIM/100ABC: 2.4 MiB needed, 1.0 MiB free");
    QTest::newRow("in-the-middle") << QByteArray("truncate -s 2500000 \"$2.x\"; real \"$2.big\" \"$3\"")
                                   << QByteArray("its copy is not the same: No space left on device");
}

void VornfhTransferTest::saysThatTheTargetIsFull()
{
    if (!mHasMounts)
        QSKIP("mounting needs root");
    QFETCH(QByteArray, cp);
    QFETCH(QByteArray, reason);
    for (const QByteArray command : {"copy", "move"}) {
        ToolRun tool;
        make(tool, {"sd/"}, Content::OwnName);
        const TmpfsMount card(tool.path() + "/sd", "size=1m");
        QVERIFY(card.isMounted());
        QDir().mkpath(tool.sd());
        // A device that fills up meanwhile: the tool sees room enough, cp does not find it.
        if (!cp.isEmpty())
            standInForCp(tool, "head -c 2000000 /dev/zero > \"${3%/*}/../filler\"; real \"$@\"");
        const QByteArray content = pattern(cp.isEmpty() ? 2500000 : 500000, 'y');
        writeFile(tool.path() + "/a.avi", content);
        const Outcome outcome = tool.runOnStorages({command, "a.avi", "sd", "100ABC"});
        QCOMPARE(outcome.err,
                 tool.expand("vornfh: @/a.avi: " + reason + "\nvornfh: 1 of 1 files not "
                             + (command == "move" ? QByteArray("moved") : QByteArray("copied")) + "\n"));
        QCOMPARE(outcome.exitCode, 1);
        QVERIFY(tool.content(tool.path() + "/a.avi") == content);
        QCOMPARE(tree(tool.sd() + "/100ABC"), Words());
    }
}

void VornfhTransferTest::saysThatTheTargetIsReadOnly()
{
    if (!mHasMounts)
        QSKIP("mounting needs root");
    ToolRun tool;
    make(tool, {"sd/", "a.jpg"}, Content::OwnName);
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    QDir().mkpath(tool.sd());
    QVERIFY(card.isMounted() && card.makeReadOnly());
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             (Outcome{1, "", tool.expand("vornfh: @/sd/DCIM: is on a read-only file system\n")}));
    QCOMPARE(tree(tool.path()), (Words{"a.jpg", "sd/", "sd/DCIM/"}));
}

void VornfhTransferTest::saysThatTheTargetIsMissing_data()
{
    QTest::addColumn<Words>("before");
    QTest::addColumn<Words>("options");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("no-location") << Words{} << Words{} << QByteArray("@/sd/DCIM: does not exist");
    QTest::newRow("file-as-location")
        << Words{"sd/DCIM"} << Words{} << QByteArray("@/sd/DCIM: is not a folder");
    QTest::newRow("no-block-device") << Words{"sd/DCIM/"} << Words{"--sd-block", "nosuchdevice"}
                                     << QByteArray(
                                            "@/sd/DCIM: the block device nosuchdevice of storage sd is "
                                            "not present");
}

void VornfhTransferTest::saysThatTheTargetIsMissing()
{
    QFETCH(Words, before);
    QFETCH(Words, options);
    QFETCH(QByteArray, reason);
    ToolRun tool;
    make(tool, Words{"a.jpg"} + before, Content::OwnName);
    const auto contents = tool.contents();
    QCOMPARE(tool.runOnStorages(options + Words{"move", "a.jpg", "sd", "100ABC"}),
             (Outcome{1, "", tool.expand("vornfh: " + reason + "\n")}));
    QCOMPARE(tool.contents(), contents);
}

void VornfhTransferTest::showsProgressOnATerminalOnly()
{
    ToolRun tool;
    make(tool, {"a.jpg", "b.jpg", "sd/DCIM/"}, Content::OwnName);
    const Outcome shown = runOnTerminal(tool, {"copy", "a.jpg", "sd", "100ABC"}, "");
    QCOMPARE(shown.exitCode, 0);
    QVERIFY(shown.out.contains("] 0 of 1 files, "));
    QVERIFY(shown.out.contains(tool.expand("\r\x1b[K@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\r\n")));
    const Outcome silent = tool.runOnStorages({"copy", "b.jpg", "sd", "100ABC"});
    QCOMPARE(silent, (Outcome{0, tool.expand("@/b.jpg -> @/sd/DCIM/100ABC/b.jpg\n"), ""}));
}

void VornfhTransferTest::losesNothingWhenKilled()
{
    constexpr int RUNS = 200;
    constexpr quint32 SEED = 20250225;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    const QList<QByteArray> names{"DCF_0001.jpg", "DCF_0002.avi", "DCF_0003.wav"};
    QList<QByteArray> contents;
    for (int i = 0; i < names.size(); ++i)
        contents.append(pattern(200000 + 70000 * i, static_cast<char>(i)));

    quint32 longest = 20000; // microseconds; grows to the length of a whole run
    int interrupted = 0;
    for (int run = 0; run < RUNS; ++run) {
        ToolRun tool;
        make(tool, {"sd/DCIM/"}, Content::OwnName);
        for (int i = 0; i < names.size(); ++i)
            writeFile(tool.path() + "/card/" + names[i], contents[i]);
        QElapsedTimer timer;
        timer.start();
        const pid_t child = startTool(
            tool, {"move", "card/" + names[0], "card/" + names[1], "card/" + names[2], "sd", "100ABC"});
        const auto moment = static_cast<useconds_t>(random.bounded(longest));
        ::usleep(run == 0 ? 0 : moment);
        if (run > 0)
            ::kill(child, SIGKILL);
        waitForAll();
        if (run == 0)
            longest = std::max(longest, static_cast<quint32>(timer.nsecsElapsed() / 1000));
        for (int i = 0; i < names.size(); ++i) {
            const bool isAtSource = tool.content(tool.path() + "/card/" + names[i]) == contents[i];
            const bool isAtTarget = tool.content(tool.sd() + "/100ABC/" + names[i]) == contents[i];
            QVERIFY2(isAtSource || isAtTarget,
                     qPrintable(QString("run %1, after %2 us: %3 is lost").arg(run).arg(moment).arg(i)));
        }
        const int left = tree(tool.path() + "/card").size();
        interrupted += left > 0 && QFile::exists(tool.sd() + "/100ABC/" + names[0]) ? 1 : 0;
    }
    qInfo("%d of %d runs were killed between the first copy and the last deletion", interrupted, RUNS);
    QVERIFY(interrupted > 0);
}

QTEST_GUILESS_MAIN(VornfhTransferTest)
#include "tst_vornfh_transfer.moc"
