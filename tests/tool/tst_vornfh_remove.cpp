// SPDX-License-Identifier: MIT
#include "surroundings.h"

#include <QtTest>

#include <sys/stat.h>

namespace {

using Words = QList<QByteArray>;

const Words MEDIA{"mmc/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0001.jpg",
                  "sd/DCIM/100ABC/DCF_0002.AVI", "sd/DCIM/101ABC/DCF_0001.wav"};

} // namespace

class VornfhRemoveTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { mHasMounts = hasOwnMounts(); }

    void runsACommand_data();
    void runsACommand();
    void asksOnATerminal_data();
    void asksOnATerminal();
    void refusesToWipeTheHomeFolder();
    void refusesToWipeTheLocationOfAnother_data();
    void refusesToWipeTheLocationOfAnother();
    void refusesTheRootFolder();
    void leavesOtherFileSystemsAlone();
    void emptiesALocationThatIsAMountPoint();
    void tellsWhatCannotBeDeleted();
    void refusesWhatCannotBeRead_data();
    void refusesWhatCannotBeRead();
    void wipesWithoutASuffix();
    void saysThatTheStorageIsReadOnly_data();
    void saysThatTheStorageIsReadOnly();

private:
    bool mHasMounts = false;
};

void VornfhRemoveTest::runsACommand_data()
{
    QTest::addColumn<Words>("before");
    QTest::addColumn<Words>("arguments");
    QTest::addColumn<Words>("gone"); // of MEDIA, the entries before it, and their folders
    QTest::addColumn<Words>("created");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");
    const auto row = [](const char *name, const Words &before, const Words &arguments, int exitCode,
                        const QByteArray &out, const QByteArray &err, const Words &gone = {},
                        const Words &created = {}) {
        QTest::newRow(name) << before << arguments << gone << created << exitCode << out << err;
    };
    const QByteArray outside = ": is not inside the location of a configured storage\n";
    const QByteArray oneNot = "vornfh: 1 of 1 files not deleted\n";
    const QByteArray single = "holds '/': only a folder directly in the storage's location can be named\n";

    row("delete-two-files", {}, {"delete", "sd/DCIM/100ABC/DCF_0001.jpg", "@/mmc/DCIM/100ABC/DCF_0001.jpg"},
        0, "@/sd/DCIM/100ABC/DCF_0001.jpg\n@/mmc/DCIM/100ABC/DCF_0001.jpg\n", "",
        {"sd/DCIM/100ABC/DCF_0001.jpg", "mmc/DCIM/100ABC/DCF_0001.jpg"});
    row("delete-goes-on", {}, {"delete", "missing", "sd/DCIM/100ABC", "sd/DCIM/100ABC/DCF_0001.jpg"}, 1,
        "@/sd/DCIM/100ABC/DCF_0001.jpg\n",
        "vornfh: @/missing: No such file or directory\nvornfh: @/sd/DCIM/100ABC: is a folder\n"
        "vornfh: 2 of 3 files not deleted\n",
        {"sd/DCIM/100ABC/DCF_0001.jpg"});
    row("delete-outside", {"a.jpg"}, {"delete", "a.jpg"}, 1, "", "vornfh: @/a.jpg" + outside + oneNot);
    row("delete-outside-by-dots", {"sd/a.jpg"}, {"delete", "sd/DCIM/../a.jpg"}, 1, "",
        "vornfh: @/sd/DCIM/../a.jpg" + outside + oneNot);
    row("delete-name-that-begins-like-the-location", {"sd/DCIM2/a.jpg"}, {"delete", "sd/DCIM2/a.jpg"}, 1, "",
        "vornfh: @/sd/DCIM2/a.jpg" + outside + oneNot);
    row("delete-through-a-link-out", {"x/a.jpg", "sd/DCIM/out -> @/x"}, {"delete", "sd/DCIM/out/a.jpg"}, 1,
        "", "vornfh: @/sd/DCIM/out/a.jpg" + outside + oneNot);
    row("delete-through-a-link-in", {"in -> sd/DCIM/100ABC"}, {"delete", "in/DCF_0001.jpg"}, 0,
        "@/in/DCF_0001.jpg\n", "", {"sd/DCIM/100ABC/DCF_0001.jpg"});
    row("delete-the-link-not-its-target", {"a.jpg", "sd/DCIM/l.jpg -> @/a.jpg"}, {"delete", "sd/DCIM/l.jpg"},
        0, "@/sd/DCIM/l.jpg\n", "", {"sd/DCIM/l.jpg -> @/a.jpg"});
    row("delete-odd-names", {"sd/DCIM/-f [a,b] 'x'\n"}, {"delete", "sd/DCIM/-f [a,b] 'x'\n"}, 0,
        "@/sd/DCIM/-f [a,b] 'x'\\x0a\n", "", {"sd/DCIM/-f [a,b] 'x'\n"});
    row("delete-brackets", {"sd/DCIM/[a]", "sd/DCIM/a"}, {"delete", "sd/DCIM/[a]"}, 0, "@/sd/DCIM/[a]\n", "",
        {"sd/DCIM/[a]"});
    row("delete-no-utf8", {}, {"delete", "sd/DCIM/\xff"}, 1, "",
        "vornfh: PATH 'sd/DCIM/\\xff' is not valid UTF-8\n" + oneNot);
    row("delete-nothing", {}, {"delete"}, 2, "", "vornfh: PATH... is required\n");

    row("mkdir", {}, {"mkdir", "sd", "MISC"}, 0, "@/sd/DCIM/MISC\n", "", {}, {"sd/DCIM/MISC/"});
    row("mkdir-name-of-a-command", {}, {"mkdir", "sd", "list"}, 0, "@/sd/DCIM/list\n", "", {},
        {"sd/DCIM/list/"});
    row("mkdir-creates-the-location", {}, {"mkdir", "usb", "MISC"}, 0, "@/usb/DCIM/MISC\n", "", {},
        {"usb/", "usb/DCIM/", "usb/DCIM/MISC/"});
    row("mkdir-of-what-is-there", {}, {"mkdir", "sd", "100ABC"}, 1, "",
        "vornfh: @/sd/DCIM/100ABC: exists already\n");
    row("mkdir-below-a-file", {"usb"}, {"mkdir", "usb", "MISC"}, 1, "",
        "vornfh: @/usb/DCIM/MISC: cannot be created: Not a directory\n");
    row("mkdir-path", {}, {"mkdir", "sd", "a/b"}, 2, "", "vornfh: the folder name 'a/b' " + single);
    row("mkdir-dots", {}, {"mkdir", "sd", ".."}, 2, "",
        "vornfh: the folder name '..' is no folder of the storage's own\n");
    row("mkdir-nothing", {}, {"mkdir", "sd", ""}, 2, "", "vornfh: the folder name '' is empty\n");

    row("rmdir", {}, {"rmdir", "sd", "100ABC", "--yes"}, 0, "@/sd/DCIM/100ABC: deleted 2 files, 8 B\n",
        "vornfh: @/sd/DCIM/100ABC: 2 files, 8 B will be deleted\n",
        {"sd/DCIM/100ABC/", "sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0002.AVI"});
    row("rmdir-with-other-files", {"sd/DCIM/101ABC/x/notes.txt", "sd/DCIM/101ABC/l.jpg -> nowhere"},
        {"rmdir", "sd", "101ABC", "--yes"}, 0, "@/sd/DCIM/101ABC: deleted 3 files and 1 folder, 8 B\n",
        "vornfh: @/sd/DCIM/101ABC: 3 files and 1 folder, 8 B will be deleted\n"
        "vornfh: @/sd/DCIM/101ABC: not media among them: l.jpg, x/notes.txt\n",
        {"sd/DCIM/101ABC/", "sd/DCIM/101ABC/x/", "sd/DCIM/101ABC/x/notes.txt", "sd/DCIM/101ABC/DCF_0001.wav",
         "sd/DCIM/101ABC/l.jpg -> nowhere"});
    row("rmdir-unasked", {}, {"rmdir", "sd", "101ABC"}, 2, "",
        "vornfh: @/sd/DCIM/101ABC: 1 file, 4 B will be deleted\n"
        "vornfh: @/sd/DCIM/101ABC: nobody can be asked, standard input is no terminal: needs --yes\n");
    row("rmdir-missing", {}, {"rmdir", "sd", "102ABC", "--yes"}, 1, "",
        "vornfh: @/sd/DCIM/102ABC: does not exist\n");
    row("rmdir-file", {"sd/DCIM/x"}, {"rmdir", "sd", "x", "--yes"}, 1, "",
        "vornfh: @/sd/DCIM/x: is not a folder\n");
    row("rmdir-link", {"x/a.jpg", "sd/DCIM/link -> @/x"}, {"rmdir", "sd", "link", "--yes"}, 1, "",
        "vornfh: @/sd/DCIM/link: is a symbolic link, what it leads to is not deleted\n");
    row("rmdir-location", {}, {"rmdir", "sd", "", "--yes"}, 2, "", "vornfh: the folder name '' is empty\n");
    row("rmdir-above", {}, {"rmdir", "sd", "..", "--yes"}, 2, "",
        "vornfh: the folder name '..' is no folder of the storage's own\n");
    row("rmdir-other-storage", {}, {"rmdir", "card", "100ABC", "--yes"}, 2, "",
        "vornfh: STORAGE: 'card' is not one of mmc, sd, usb\n");

    row("wipe", {"sd/DCIM/loose.txt", "sd/beside.jpg"}, {"wipe", "sd", "--yes"}, 0,
        "@/sd/DCIM: deleted 4 files and 2 folders, 16 B\n",
        "vornfh: @/sd/DCIM: 4 files and 2 folders, 16 B will be deleted\n"
        "vornfh: @/sd/DCIM: not media among them: loose.txt\n",
        {"sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/101ABC/", "sd/DCIM/loose.txt", MEDIA[1], MEDIA[2],
         MEDIA[3]});
    row("wipe-unasked", {}, {"wipe", "mmc"}, 2, "",
        "vornfh: @/mmc/DCIM: 1 file and 1 folder, 4 B will be deleted\n"
        "vornfh: @/mmc/DCIM: nobody can be asked, standard input is no terminal: needs --yes\n");
    row("wipe-missing", {}, {"wipe", "usb", "--yes"}, 1, "",
        "vornfh: @/usb/DCIM: does not exist, there is nothing to wipe\n");
    row("wipe-link", {"x/a.jpg", "usb/", "usb/DCIM -> @/x"}, {"wipe", "usb", "--yes"}, 1, "",
        "vornfh: @/usb/DCIM: is a symbolic link, what it leads to is not deleted\n");
}

void VornfhRemoveTest::runsACommand()
{
    QFETCH(Words, before);
    QFETCH(Words, arguments);
    QFETCH(Words, gone);
    QFETCH(Words, created);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    ToolRun tool;
    make(tool, MEDIA + before);
    Words expected = tree(tool.path()) + created;
    QCOMPARE(tool.runOnStorages(arguments), (Outcome{exitCode, tool.expand(out), tool.expand(err)}));
    for (const QByteArray &entry : gone)
        QVERIFY2(expected.removeOne(tool.expand(entry)), entry.constData());
    std::sort(expected.begin(), expected.end());
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhRemoveTest::asksOnATerminal_data()
{
    QTest::addColumn<Words>("arguments");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("last");
    const QByteArray wiped = "@/sd/DCIM: deleted 3 files and 2 folders, 12 B\r\n";
    const QByteArray kept = "vornfh: @/sd/DCIM: not deleted\r\n";
    QTest::newRow("yes") << Words{"wipe", "sd"} << QByteArray("y\n") << 0 << wiped;
    QTest::newRow("yes-in-full") << Words{"wipe", "sd"} << QByteArray("yes\n") << 0 << wiped;
    QTest::newRow("no") << Words{"wipe", "sd"} << QByteArray("n\n") << 1 << kept;
    QTest::newRow("just-return") << Words{"wipe", "sd"} << QByteArray("\n") << 1 << kept;
    QTest::newRow("end-of-input") << Words{"wipe", "sd"} << QByteArray("\x04") << 1 << kept;
    QTest::newRow("folder") << Words{"rmdir", "sd", "100ABC"} << QByteArray("y\n") << 0
                            << QByteArray("@/sd/DCIM/100ABC: deleted 2 files, 8 B\r\n");
}

void VornfhRemoveTest::asksOnATerminal()
{
    QFETCH(Words, arguments);
    QFETCH(QByteArray, answer);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, last);
    ToolRun tool;
    make(tool, MEDIA);
    const Outcome outcome = runOnTerminal(tool, arguments, answer);
    QVERIFY2(outcome.out.endsWith(tool.expand(last)), outcome.out.constData());
    QVERIFY(outcome.out.contains("Delete all of it? [y/N] "));
    QCOMPARE(outcome.exitCode, exitCode);
    QCOMPARE(QFile::exists(tool.sd() + "/100ABC"), exitCode != 0);
}

void VornfhRemoveTest::refusesToWipeTheHomeFolder()
{
    ToolRun tool;
    make(tool, {"sd/DCIM/user/a.jpg"});
    tool.environment.insert("HOME", tool.sd() + "/user");
    const auto before = tool.contents();
    QCOMPARE(tool.runOnStorages({"wipe", "sd", "--yes"}),
             (Outcome{2, "", tool.expand("vornfh: @/sd/DCIM: holds the home folder @/sd/DCIM/user\n")}));
    QCOMPARE(tool.contents(), before);
}

void VornfhRemoveTest::refusesToWipeTheLocationOfAnother_data()
{
    QTest::addColumn<QByteArray>("other");
    QTest::newRow("same") << QByteArray("@/sd/DCIM");
    QTest::newRow("same-by-a-link") << QByteArray("@/link/DCIM");
    QTest::newRow("inside") << QByteArray("@/sd/DCIM/100ABC");
    QTest::newRow("inside-but-missing") << QByteArray("@/sd/DCIM/later/on");
}

void VornfhRemoveTest::refusesToWipeTheLocationOfAnother()
{
    QFETCH(QByteArray, other);
    ToolRun tool;
    make(tool, MEDIA + Words{"link -> sd"});
    const auto before = tool.contents();
    QCOMPARE(tool.run({"--suffix", "ABC", "--sd", "@/sd/DCIM", "--usb", other, "wipe", "sd", "--yes"}),
             (Outcome{2, "",
                      tool.expand("vornfh: @/sd/DCIM: is or holds the location of storage usb, " + other
                                  + "\n")}));
    QCOMPARE(tool.contents(), before);
}

void VornfhRemoveTest::refusesTheRootFolder()
{
    ToolRun tool;
    make(tool, {"root -> /"});
    for (const QByteArray location : {"/", "@/root"}) {
        for (const Words &command : {Words{"wipe", "sd"}, Words{"rmdir", "sd", "no-such-folder"}}) {
            const Outcome outcome = tool.run(Words{"--sd", location} + command);
            QCOMPARE(outcome, (Outcome{2, "",
                                       tool.expand("vornfh: " + location
                                                   + ": the root folder is no location to delete in\n")}));
        }
    }
}

void VornfhRemoveTest::leavesOtherFileSystemsAlone()
{
    if (!mHasMounts)
        QSKIP("mounting needs root");
    ToolRun tool;
    make(tool, {"sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/card/"});
    const TmpfsMount card(tool.sd() + "/100ABC/card", "size=1m");
    QVERIFY(card.isMounted());
    make(tool, {"sd/DCIM/100ABC/card/a.jpg"});
    const auto before = tool.contents();
    QCOMPARE(tool.runOnStorages({"rmdir", "sd", "100ABC", "--yes"}),
             (Outcome{1, "",
                      tool.expand("vornfh: @/sd/DCIM/100ABC: another file system is mounted at "
                                  "@/sd/DCIM/100ABC/card\n")}));
    QCOMPARE(tool.runOnStorages({"wipe", "sd", "--yes"}),
             (Outcome{1, "",
                      tool.expand("vornfh: @/sd/DCIM: another file system is mounted at "
                                  "@/sd/DCIM/100ABC/card\n")}));
    QCOMPARE(tool.contents(), before);
}

void VornfhRemoveTest::emptiesALocationThatIsAMountPoint()
{
    if (!mHasMounts)
        QSKIP("mounting needs root");
    ToolRun tool;
    make(tool, {"sd/DCIM/"});
    const TmpfsMount card(tool.sd(), "size=1m");
    QVERIFY(card.isMounted());
    make(tool, {"sd/DCIM/100ABC/DCF_0001.jpg"});
    QCOMPARE(
        tool.runOnStorages({"wipe", "sd", "--yes"}),
        (Outcome{0,
                 tool.expand("@/sd/DCIM: deleted 1 file and 1 folder, 4 B; the folder itself stays, a file "
                             "system is mounted on it\n"),
                 tool.expand("vornfh: @/sd/DCIM: 1 file and 1 folder, 4 B will be deleted\n")}));
    QCOMPARE(tree(tool.path()), (Words{"sd/", "sd/DCIM/"}));
}

void VornfhRemoveTest::tellsWhatCannotBeDeleted()
{
    ToolRun tool;
    make(tool, {"sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/x\xff.jpg"});
    const Outcome outcome = tool.runOnStorages({"rmdir", "sd", "100ABC", "--yes"});
    const Words left = tree(tool.path());
    ::unlink((tool.sd().toUtf8() + "/100ABC/x\xff.jpg").constData()); // QTemporaryDir cannot, either
    QCOMPARE(outcome,
             (Outcome{1, "",
                      tool.expand("vornfh: @/sd/DCIM/100ABC: 2 files, 8 B will be deleted\n"
                                  "vornfh: @/sd/DCIM/100ABC: could not be deleted: x\\xff.jpg: names "
                                  "that are not valid UTF-8 cannot be handled\n")}));
    QCOMPARE(left, (Words{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/x\xff.jpg"}));
}

void VornfhRemoveTest::refusesWhatCannotBeRead_data()
{
    QTest::addColumn<Words>("arguments");
    QTest::addColumn<QByteArray>("folder");
    QTest::newRow("folder") << Words{"rmdir", "sd", "100ABC", "--yes"} << QByteArray("sd/DCIM/100ABC");
    QTest::newRow("folder-further-down")
        << Words{"rmdir", "sd", "101ABC", "--yes"} << QByteArray("sd/DCIM/101ABC/a/b");
    QTest::newRow("folder-of-the-storage") << Words{"wipe", "sd", "--yes"} << QByteArray("sd/DCIM/100ABC");
}

void VornfhRemoveTest::refusesWhatCannotBeRead()
{
    QFETCH(Words, arguments);
    QFETCH(QByteArray, folder);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot be run as another user");
    make(tool, MEDIA + Words{"sd/DCIM/101ABC/a/b/c.jpg"});
    for (const char *parent : {"sd", "sd/DCIM", "sd/DCIM/100ABC", "sd/DCIM/101ABC"}) // else nothing could go
        ::chmod(QFile::encodeName(tool.path() + "/" + parent).constData(), 0777);
    const auto before = tool.contents();
    Outcome outcome;
    {
        const FolderMode unreadable(tool.path() + "/" + folder, 0);
        outcome = tool.runOnStorages(arguments);
    }
    QCOMPARE(outcome, (Outcome{1, "", tool.expand("vornfh: @/" + folder + ": Permission denied\n")}));
    QCOMPARE(tool.contents(), before);
}

void VornfhRemoveTest::wipesWithoutASuffix()
{
    ToolRun tool;
    make(tool, {"sd/beside.jpg", "sd/DCIM/100/DCF_0001.jpg"});
    QCOMPARE(tool.run({"--suffix", "", "--sd", "@/sd/DCIM", "wipe", "sd", "--yes"}).exitCode, 0);
    QCOMPARE(tree(tool.path()), (Words{"sd/", "sd/beside.jpg"}));
}

void VornfhRemoveTest::saysThatTheStorageIsReadOnly_data()
{
    QTest::addColumn<Words>("arguments");
    QTest::addColumn<QByteArray>("err");
    const QByteArray readOnly = "vornfh: @/sd/DCIM: is on a read-only file system\n";
    QTest::newRow("mkdir") << Words{"mkdir", "sd", "MISC"} << readOnly;
    QTest::newRow("rmdir") << Words{"rmdir", "sd", "100ABC", "--yes"} << readOnly;
    QTest::newRow("wipe") << Words{"wipe", "sd", "--yes"} << readOnly;
    QTest::newRow("delete") << Words{"delete", "sd/DCIM/100ABC/DCF_0001.jpg"}
                            << QByteArray(
                                   "vornfh: @/sd/DCIM/100ABC/DCF_0001.jpg: cannot be deleted: Read-only "
                                   "file system\nvornfh: 1 of 1 files not deleted\n");
}

void VornfhRemoveTest::saysThatTheStorageIsReadOnly()
{
    if (!mHasMounts)
        QSKIP("mounting needs root");
    QFETCH(Words, arguments);
    QFETCH(QByteArray, err);
    ToolRun tool;
    make(tool, {"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    make(tool, {"sd/DCIM/100ABC/DCF_0001.jpg"});
    QVERIFY(card.isMounted() && card.makeReadOnly());
    QCOMPARE(tool.runOnStorages(arguments), (Outcome{1, "", tool.expand(err)}));
    QCOMPARE(tree(tool.path()), (Words{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/DCF_0001.jpg"}));
}

QTEST_GUILESS_MAIN(VornfhRemoveTest)
#include "tst_vornfh_remove.moc"
