// SPDX-License-Identifier: MIT
#include "standins.h"

#include <QtTest>

#include <algorithm>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

class TransferTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void clash_data();
    void clash();
    void lastCounter_data();
    void lastCounter();
    void sources_data();
    void sources();
    void severalFiles_data();
    void severalFiles();
    void folders_data();
    void folders();
    void eachStorage_data();
    void eachStorage();
    void unsupportedStorage();
    void relativeLocation();
    void emptyList_data();
    void emptyList();
    void emptyListWithAFileInPlaceOfTheFolder();
    void commandOfEachFile_data();
    void commandOfEachFile();
    void markersInTheLocation();
    void oneProcessPerFileInOrder();
    void failingProgram_data();
    void failingProgram();
    void missingProgram();
    void failureDoesNotStopTheOthers();
    void fullFileSystem();
    void modeOwnerAndTimesAreKept();
    void largeFile();
    void relativeSource();
    void sourceThatLooksLikeAnOption();
    void moveWithinOneFolder();
    void deleteFile_data();
    void deleteFile();
    void deleteRelativeFile();
    void deleteFileWithNullCharacter();

private:
    QString source(const QString &name) const { return mStorages->path() + "/in/" + name; }

    std::unique_ptr<Storages> mStorages;
    std::unique_ptr<StandardErrorCapture> mStandardError;
    QString mCurrentDirectory;
};

void TransferTest::init()
{
    mCurrentDirectory = QDir::currentPath();
    mStorages = std::make_unique<Storages>();
    mStandardError = std::make_unique<StandardErrorCapture>();
}

void TransferTest::cleanup()
{
    const QByteArray printed = mStandardError->take();
    mStandardError.reset();
    QDir::setCurrent(mCurrentDirectory);
    mStorages.reset();
    QCOMPARE(printed, QByteArray());
}

void TransferTest::clash_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Tree>("present");
    QTest::addColumn<Tree>("added");

    const auto row = [](const char *title, const char *name, const Tree &present, const Tree &added) {
        QTest::newRow(title) << name << present << added;
    };
    row("empty-folder", "DCF_0001.jpg", {}, {"DCF_0001.jpg = new"});
    row("other-names", "DCF_0001.jpg", {"DCF_0001.png = old", "DCF_0001_1.jpg = old"},
        {"DCF_0001.jpg = new"});
    row("taken", "DCF_0001.jpg", {"DCF_0001.jpg = old"}, {"DCF_0001_1.jpg = new"});
    row("taken-and-counted", "DCF_0001.jpg", {"DCF_0001.jpg = old", "DCF_0001_1.jpg = old"},
        {"DCF_0001_2.jpg = new"});
    row("gap-in-the-counters", "a.b", {"a.b = old", "a_1.b = old", "a_3.b = old"}, {"a_2.b = new"});
    row("counters-with-leading-zeros-are-different", "a.b", {"a.b = old", "a_01.b = old"}, {"a_1.b = new"});
    row("counted-source", "a_1.b", {"a_1.b = old"}, {"a_1_1.b = new"});
    row("different-case-is-another-name", "a.b", {"A.B = old"}, {"a.b = new"});
    row("same-content", "a.b", {"a.b = new"}, {"a_1.b = new"});
    row("taken-by-a-folder", "a.b", {"a.b/"}, {"a_1.b = new"});
    row("taken-by-a-full-folder", "a.b", {"a.b/x = old"}, {"a_1.b = new"});
    row("counter-taken-by-a-folder", "a.b", {"a.b = old", "a_1.b/"}, {"a_2.b = new"});
    row("taken-by-a-link", "a.b", {"a.b -> x", "x = old"}, {"a_1.b = new"});
    row("taken-by-a-link-to-a-folder", "a.b", {"a.b -> x", "x/"}, {"a_1.b = new"});
    // A dangling link does not count as taken, and cp does not write through it.
    row("dangling-link", "a.b", {"a.b -> missing"}, {});
    row("counter-dangling-link", "a.b", {"a.b = old", "a_1.b -> missing"}, {});
    row("two-dots", "a.b.c", {"a.b.c = old"}, {"a_1.c = new"});
    row("two-dots-counted", "a.b.c", {"a.b.c = old", "a_1.c = old"}, {"a_2.c = new"});
    row("many-dots", "a.b..c.d", {"a.b..c.d = old"}, {"a_1.d = new"});
    row("no-dot", "README", {"README = old"}, {"README_1.README = new"});
    row("no-dot-counted", "README", {"README = old", "README_1.README = old"}, {"README_2.README = new"});
    row("leading-dot", ".hidden", {".hidden = old"}, {"_1.hidden = new"});
    row("leading-dot-and-extension", ".a.b", {".a.b = old"}, {"_1.b = new"});
    row("trailing-dot", "a.", {"a. = old"}, {"a_1. = new"});
    row("two-trailing-dots", "a..", {"a.. = old"}, {"a_1. = new"});
    row("three-dots", "...", {"... = old"}, {"_1. = new"});
    row("spaces", " a b . c ", {" a b . c  = old"}, {" a b _1. c  = new"});
    row("outside-ascii", "f\u00F6to.j\u20ACg", {"f\u00F6to.j\u20ACg = old"}, {"f\u00F6to_1.j\u20ACg = new"});
    row("place-marker-in-the-extension", "a.%1", {"a.%1 = old"}, {"a_1.%1 = new"});
    row("high-place-marker-in-the-base", "a%7.b", {"a%7.b = old"}, {"a%7_1.b = new"});
    // Each value replaces the lowest remaining place marker, including one in an earlier value.
    row("place-marker-in-the-base", "a%1.b", {"a%1.b = old"}, {"a1_b.%4 = new"});
    row("place-marker-in-the-base-counted", "a%1.b", {"a%1.b = old", "a1_b.%4 = old"}, {"a2_b.%4 = new"});
    row("third-place-marker-in-the-base", "a%3.b", {"a%3.b = old"}, {"a1_1.b = new"});
    row("fourth-place-marker-in-the-base", "a%4.b", {"a%4.b = old"}, {"ab_1.b = new"});
    row("place-marker-without-a-clash", "a%1%2.b", {}, {"a%1%2.b = new"});
}

void TransferTest::clash()
{
    QFETCH(QString, name);
    QFETCH(Tree, present);
    QFETCH(Tree, added);
    makeTree(mStorages->sd() + "/100ABC", present);
    writeFile(source(name), "new");
    const Tree expected = sorted(treeWithContents(mStorages->sd() + "/100ABC") + added);

    VornFileHandler::copyToFolder({source(name)}, STORAGE_SD, "100ABC");

    QCOMPARE(sorted(treeWithContents(mStorages->sd() + "/100ABC")), expected);
    QCOMPARE(contentOf(source(name)), QByteArray("new"));
}

void TransferTest::lastCounter_data()
{
    QTest::addColumn<int>("missing");
    QTest::addColumn<QString>("written");

    row("all-taken", 1000, "README_999.README");
    row("last-free", 999, "README_999.README");
    row("one-before-the-last-free", 998, "README_998.README");
    row("one-in-the-middle-free", 500, "README_500.README");
}

void TransferTest::lastCounter()
{
    QFETCH(int, missing);
    QFETCH(QString, written);
    const QString folder = mStorages->sd() + "/100ABC/";
    writeFile(folder + "README", "old");
    for (int counter = 1; counter <= 1000; ++counter) {
        if (counter != missing || missing == 1000)
            writeFile(folder + QString("README_%1.README").arg(counter), "old");
    }
    writeFile(source("README"), "new");
    Tree expected = treeWithContents(folder);
    const QByteArray name = written.toLatin1();
    expected.removeOne(name + " = old");
    expected.append(name + " = new");

    VornFileHandler::copyToFolder({source("README")}, STORAGE_SD, "100ABC");

    QCOMPARE(sorted(treeWithContents(folder)), sorted(expected));
}

void TransferTest::sources_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QString>("file");
    QTest::addColumn<Tree>("copied");
    QTest::addColumn<Tree>("left");

    const auto row = [](const char *title, const Tree &entries, const char *file, const Tree &copied,
                        const Tree &left) { QTest::newRow(title) << entries << file << copied << left; };
    row("plain", {"a.jpg = x"}, "a.jpg", {"a.jpg = x"}, {});
    row("empty-file", {"a.jpg"}, "a.jpg", {"a.jpg"}, {});
    row("in-a-subfolder", {"b/c/a.jpg = x"}, "b/c/a.jpg", {"a.jpg = x"}, {"b/", "b/c/"});
    row("two-slashes", {"b/a.jpg = x"}, "b//a.jpg", {"a.jpg = x"}, {"b/"});
    row("through-the-parent", {"a.jpg = x", "b/"}, "b/../a.jpg", {"a.jpg = x"}, {"b/"});
    row("missing", {"b.jpg = x"}, "a.jpg", {}, {"b.jpg = x"});
    row("missing-folder", {"b.jpg = x"}, "b/a.jpg", {}, {"b.jpg = x"});
    row("folder", {"b/a.jpg = x"}, "b", {}, {"b/", "b/a.jpg = x"});
    row("empty-folder", {"b/"}, "b", {}, {"b/"});
    row("folder-with-trailing-slash", {"b/a.jpg = x"}, "b/", {}, {"b/", "b/a.jpg = x"});
    row("file-with-trailing-slash", {"a.jpg = x"}, "a.jpg/", {}, {"a.jpg = x"});
    row("parent-folder", {"b/a.jpg = x"}, "b/..", {}, {"b/", "b/a.jpg = x"});
    row("link", {"b -> a.jpg", "a.jpg = x"}, "b", {"b = x"}, {"a.jpg = x"});
    row("dangling-link", {"b -> missing"}, "b", {}, {});
    row("link-to-a-folder", {"b -> c", "c/a.jpg = x"}, "b", {}, {"c/", "c/a.jpg = x"});
    row("spaces", {" a  b .jpg = x"}, " a  b .jpg", {" a  b .jpg = x"}, {});
    row("double-quotes", {"\"a\"\"\"b\".jpg = x"}, "\"a\"\"\"b\".jpg", {"\"a\"\"\"b\".jpg = x"}, {});
    row("single-quotes", {"it's.jpg = x"}, "it's.jpg", {"it's.jpg = x"}, {});
    row("shell-characters", {"$(id);*?`>|&.jpg = x"}, "$(id);*?`>|&.jpg", {"$(id);*?`>|&.jpg = x"}, {});
    row("backslash", {"a\\b.jpg = x"}, "a\\b.jpg", {"a\\b.jpg = x"}, {});
    row("line-feed", {"a\nb.jpg = x"}, "a\nb.jpg", {"a\nb.jpg = x"}, {});
    row("hidden", {".a = x"}, ".a", {".a = x"}, {});
    row("leading-dash", {"-r = x"}, "-r", {"-r = x"}, {});
    row("outside-ascii", {"f\u00F6to\U0001F4F7 = x"}, "f\u00F6to\U0001F4F7", {"f\u00F6to\U0001F4F7 = x"}, {});
    row("decomposed-character", {"fo\u0308to = x"}, "fo\u0308to", {"fo\u0308to = x"}, {});
}

void TransferTest::sources()
{
    QFETCH(Tree, entries);
    QFETCH(QString, file);
    QFETCH(Tree, copied);
    QFETCH(Tree, left);
    makeTree(source(""), entries);
    const Tree before = treeWithContents(source(""));

    VornFileHandler::copyToFolder({source(file)}, STORAGE_SD, "copies");
    QCOMPARE(treeWithContents(source("")), before);
    VornFileHandler::moveToFolder({source(file)}, STORAGE_USB, "moved");

    QCOMPARE(treeWithContents(source("")), left);
    QCOMPARE(treeWithContents(mStorages->sd() + "/copies"), copied);
    QCOMPARE(treeWithContents(mStorages->location(STORAGE_USB) + "/moved"), copied);
}

void TransferTest::severalFiles_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<Tree>("copied");
    QTest::addColumn<Tree>("left");

    const auto row = [](const char *title, const QStringList &files, const Tree &copied, const Tree &left) {
        QTest::newRow(title) << files << copied << left;
    };
    row("all", {"a.jpg", "b.jpg", "x/a.jpg"}, {"a.jpg = 1", "a_1.jpg = 3", "b.jpg = 2"}, {"x/"});
    row("order-of-the-list", {"x/a.jpg", "a.jpg"}, {"a.jpg = 3", "a_1.jpg = 1"}, {"b.jpg = 2", "x/"});
    row("the-same-twice", {"a.jpg", "a.jpg"}, {"a.jpg = 1", "a_1.jpg = 1"},
        {"b.jpg = 2", "x/", "x/a.jpg = 3"});
    row("missing-between", {"a.jpg", "missing.jpg", "b.jpg"}, {"a.jpg = 1", "b.jpg = 2"},
        {"x/", "x/a.jpg = 3"});
    row("missing-first", {"missing.jpg", "b.jpg"}, {"b.jpg = 2"}, {"a.jpg = 1", "x/", "x/a.jpg = 3"});
    row("folder-between", {"a.jpg", "x", "b.jpg"}, {"a.jpg = 1", "b.jpg = 2"}, {"x/", "x/a.jpg = 3"});
}

void TransferTest::severalFiles()
{
    QFETCH(QStringList, files);
    QFETCH(Tree, copied);
    QFETCH(Tree, left);
    makeTree(source(""), {"a.jpg = 1", "b.jpg = 2", "x/a.jpg = 3"});
    for (QString &file : files)
        file = source(file);
    const Tree before = treeWithContents(source(""));

    VornFileHandler::copyToFolder(files, STORAGE_SD, "copies");
    QCOMPARE(treeWithContents(source("")), before);
    VornFileHandler::moveToFolder(files, STORAGE_USB, "moved");

    QCOMPARE(treeWithContents(source("")), left);
    QCOMPARE(treeWithContents(mStorages->sd() + "/copies"), copied);
    QCOMPARE(treeWithContents(mStorages->location(STORAGE_USB) + "/moved"), copied);
}

void TransferTest::folders_data()
{
    QTest::addColumn<Tree>("present"); // in the mount point, whose folder DCIM is the location
    QTest::addColumn<QString>("folder");
    QTest::addColumn<Tree>("after");

    const auto row = [](const char *title, const Tree &present, const char *folder, const Tree &after) {
        QTest::newRow(title) << present << folder << after;
    };
    row("location-missing", {}, "100ABC", {"DCIM/", "DCIM/100ABC/", "DCIM/100ABC/a.jpg = x"});
    row("folder-missing", {"DCIM/"}, "100ABC", {"DCIM/", "DCIM/100ABC/", "DCIM/100ABC/a.jpg = x"});
    row("folder-present", {"DCIM/100ABC/"}, "100ABC", {"DCIM/", "DCIM/100ABC/", "DCIM/100ABC/a.jpg = x"});
    row("name-without-suffix", {}, "MISC", {"DCIM/", "DCIM/MISC/", "DCIM/MISC/a.jpg = x"});
    row("empty-name", {}, "", {"DCIM/", "DCIM/a.jpg = x"});
    row("empty-name-and-taken", {"DCIM/a.jpg = y"}, "", {"DCIM/", "DCIM/a.jpg = y", "DCIM/a_1.jpg = x"});
    row("current", {}, ".", {"DCIM/", "DCIM/a.jpg = x"});
    row("parent", {"DCIM/"}, "..", {"DCIM/", "a.jpg = x"});
    row("beside-the-location", {"DCIM/"}, "../MISC", {"DCIM/", "MISC/", "MISC/a.jpg = x"});
    row("nested", {}, "b/c", {"DCIM/", "DCIM/b/", "DCIM/b/c/", "DCIM/b/c/a.jpg = x"});
    row("trailing-slash", {}, "b/", {"DCIM/", "DCIM/b/", "DCIM/b/a.jpg = x"});
    row("spaces-and-quotes", {}, " b \"c' ", {"DCIM/", "DCIM/ b \"c' /", "DCIM/ b \"c' /a.jpg = x"});
    row("outside-ascii", {}, "\u00E4", {"DCIM/", "DCIM/\u00E4/", "DCIM/\u00E4/a.jpg = x"});
    row("link-to-a-folder", {"DCIM/b -> ../c", "c/"}, "b", {"DCIM/", "DCIM/b -> ../c", "c/", "c/a.jpg = x"});
    row("dangling-link", {"DCIM/b -> ../c"}, "b", {"DCIM/", "DCIM/b -> ../c"});
    row("file-in-place-of-the-folder", {"DCIM/b = y"}, "b", {"DCIM/", "DCIM/b = y"});
    row("file-in-place-of-the-location", {"DCIM = y"}, "b", {"DCIM = y"});
    // The file's name replaces the place marker in the folder's name.
    row("place-marker", {}, "%1", {"DCIM/", "DCIM/%1/"});
    row("place-marker-and-existing-folder", {"DCIM/a.jpg/"}, "%1",
        {"DCIM/", "DCIM/%1/", "DCIM/a.jpg/", "DCIM/a.jpg/%2 = x"});
}

void TransferTest::folders()
{
    QFETCH(Tree, present);
    QFETCH(QString, folder);
    QFETCH(Tree, after);
    const QString mountPoint = mStorages->path() + "/sd";
    makeTree(mountPoint, present);
    writeFile(source("a.jpg"), "x");

    VornFileHandler::copyToFolder({source("a.jpg")}, STORAGE_SD, folder);

    QCOMPARE(treeWithContents(mountPoint), after);
}

void TransferTest::eachStorage_data()
{
    QTest::addColumn<int>("storage");
    QTest::addColumn<Tree>("after");

    const auto row = [](const char *name, int storage, const Tree &after) {
        QTest::newRow(name) << storage << after;
    };
    row("mmc", STORAGE_MMC, {"mmc/", "mmc/DCIM/", "mmc/DCIM/1/", "mmc/DCIM/1/a = x"});
    row("sd", STORAGE_SD, {"sd/", "sd/DCIM/", "sd/DCIM/1/", "sd/DCIM/1/a = x"});
    row("usb", STORAGE_USB, {"usb/", "usb/DCIM/", "usb/DCIM/1/", "usb/DCIM/1/a = x"});
}

void TransferTest::eachStorage()
{
    QFETCH(int, storage);
    QFETCH(Tree, after);
    writeFile(source("a"), "x");

    VornFileHandler::moveToFolder({source("a")}, anyStorage(storage), "1");

    QCOMPARE(treeWithContents(mStorages->path()), Tree{"in/"} + after);
}

/// The location is /tmp. The folder's name leads from there into the temporary directory of the test.
void TransferTest::unsupportedStorage()
{
    const QString folder = "../" + mStorages->path() + "/out";
    StandIns standIns;
    standIns.add("cp", standIns.becomes("cp"));
    writeFile(source("a"), "x");

    for (const int storage : {3, -1})
        VornFileHandler::copyToFolder({source("a")}, anyStorage(storage), folder);
    VornFileHandler::moveToFolder({source("a")}, anyStorage(3), folder);

    QCOMPARE(treeWithContents(mStorages->path()),
             (Tree{"in/", "out/", "out/a = x", "out/a_1.a = x", "out/a_2.a = x"}));
    const QByteArray target = "/tmp/" + QFile::encodeName(folder);
    QCOMPARE(standIns.calls("cp").value(0),
             (QByteArrayList{"-p", QFile::encodeName(source("a")), target + "/a"}));
}

void TransferTest::relativeLocation()
{
    VornFileHandler::mSDLocation = QDir("card/DCIM");
    writeFile(source("a"), "x");
    QVERIFY(QDir::setCurrent(mStorages->path()));

    VornFileHandler::copyToFolder({source("a")}, STORAGE_SD, "1");

    QCOMPARE(treeWithContents(mStorages->path()),
             (Tree{"card/", "card/DCIM/", "card/DCIM/1/", "card/DCIM/1/a = x", "in/", "in/a = x"}));
}

void TransferTest::emptyList_data()
{
    QTest::addColumn<bool>("move");

    row("copy", false);
    row("move", true);
}

void TransferTest::emptyList()
{
    QFETCH(bool, move);
    StandIns standIns;
    standIns.add("cp");

    if (move)
        VornFileHandler::moveToFolder({}, STORAGE_SD, "100ABC");
    else
        VornFileHandler::copyToFolder({}, STORAGE_SD, "100ABC");

    QCOMPARE(tree(mStorages->path()), (Tree{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
    QCOMPARE(standIns.calls("cp"), Calls());
}

void TransferTest::emptyListWithAFileInPlaceOfTheFolder()
{
    writeFile(mStorages->sd() + "/100ABC", "old");

    VornFileHandler::copyToFolder({}, STORAGE_SD, "100ABC");

    QCOMPARE(treeWithContents(mStorages->path()), (Tree{"sd/", "sd/DCIM/", "sd/DCIM/100ABC = old"}));
}

void TransferTest::commandOfEachFile_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("target");

    const auto row = [](const char *name, const char *file, const QString &folder, const char *target) {
        QTest::newRow(name) << file << folder << target;
    };
    row("plain", "/x/a.jpg", "1", "/1/a.jpg");
    row("name-alone", "a.jpg", "1", "/1/a.jpg");
    row("relative", "x/a.jpg", "1", "/1/a.jpg");
    row("option", "-a.jpg", "1", "/1/-a.jpg");
    row("empty-folder-name", "/x/a.jpg", "", "//a.jpg");
    row("slash-after-the-folder", "/x/a.jpg", "1/", "/1//a.jpg");
    row("parent-folder", "/x/a.jpg", "..", "/../a.jpg");
    row("empty-source", "", "1", "/1/_1.");
    row("source-is-the-root", "/", "1", "/1/_1.");
    row("source-with-trailing-slash", "/x/a.jpg/", "1", "/1/_1.");
    row("source-is-the-current-folder", "/x/.", "1", "/1/_1.");
    row("source-is-the-parent-folder", "/x/..", "1", "/1/_1.");
    row("spaces-and-quotes", " /x y/ \"a' b\".jpg ", "1", "/1/ \"a' b\".jpg ");
    row("line-feed", "/x/a\nb", "1", "/1/a\nb");
    row("backslash-is-not-a-separator", "/x/b\\a.jpg", "1", "/1/b\\a.jpg");
    row("place-markers-in-the-name", "/x/%1%2%3.%4", "1", "/1/%1%2%3.%4");
    row("place-marker-in-the-folder", "/x/a.jpg", "%1", "/a.jpg/%2");
    row("place-marker-at-the-end-of-the-folder", "/x/a.jpg", "b%2", "/ba.jpg/a.jpg");
    row("high-place-marker-in-the-folder", "/x/a.jpg", "b%3", "/b%3/a.jpg");
    row("null-character-in-the-folder", "/x/a.jpg", "1" + NUL + "b",
        "/1"); // the argument of a program ends there
}

void TransferTest::commandOfEachFile()
{
    QFETCH(QString, file);
    QFETCH(QString, folder);
    QFETCH(QString, target);
    StandIns standIns;
    standIns.add("cp");
    QVERIFY(QDir::setCurrent(mStorages->path()));

    VornFileHandler::copyToFolder({file}, STORAGE_SD, folder);

    QCOMPARE(standIns.calls("cp"),
             (Calls{{"-p", file.toUtf8(), QFile::encodeName(mStorages->sd() + target)}}));
}

/// The folder's name replaces the place marker in the location, and the file's name that of the folder.
void TransferTest::markersInTheLocation()
{
    VornFileHandler::mSDLocation = QDir(mStorages->path() + "/a%1b");
    StandIns standIns;
    standIns.add("cp");

    VornFileHandler::copyToFolder({"/x/c"}, STORAGE_SD, "1");

    QCOMPARE(tree(mStorages->path()), (Tree{"a1b/", "a1b/%2/"}));
    QCOMPARE(standIns.calls("cp"),
             (Calls{{"-p", "/x/c", QFile::encodeName(mStorages->path() + "/a1b/c/c")}}));
}

void TransferTest::oneProcessPerFileInOrder()
{
    StandIns standIns;
    for (const char *const program : {"cp", "sh", "mv", "rm", "mkdir"})
        standIns.add(program);
    standIns.add("cp", standIns.becomes("cp"));
    const QStringList files = {source("c"), source("a"), source("b/a"), source("missing"), source("a")};
    makeTree(source(""), {"a = 1", "b/a = 2", "c = 3"});

    VornFileHandler::moveToFolder(files, STORAGE_SD, "1");

    const QByteArray folder = QFile::encodeName(mStorages->sd()) + "/1/";
    const QByteArrayList names = {"c", "a", "a_1.a", "missing", "a_2.a"};
    Calls expected;
    for (int i = 0; i < files.size(); ++i)
        expected.append({"-p", QFile::encodeName(files.at(i)), folder + names.at(i)});
    QCOMPARE(standIns.calls("cp"), expected);
    QCOMPARE(standIns.callOrder(), (QByteArrayList{"cp", "cp", "cp", "cp", "cp"}));
    // All files are copied before the first is deleted, so the second copy of the same file succeeds too.
    QCOMPARE(treeWithContents(mStorages->sd()),
             (Tree{"1/", "1/a = 1", "1/a_1.a = 2", "1/a_2.a = 1", "1/c = 3"}));
    QCOMPARE(treeWithContents(source("")), Tree{"b/"});
}

void TransferTest::failingProgram_data()
{
    QTest::addColumn<QByteArray>("script");

    const auto row = [](const char *name, const QByteArray &script) { QTest::newRow(name) << script; };
    row("fails", "exit 1");
    row("fails-with-255", "exit 255");
    row("prints-an-error", "echo out; echo error >&2; exit 1");
    row("is-killed", "kill -9 $$");
    row("succeeds-without-copying", "exit 0");
}

/// A move always deletes its sources, as documented.
void TransferTest::failingProgram()
{
    QFETCH(QByteArray, script);
    StandIns standIns;
    standIns.add("cp", script);
    makeTree(source(""), {"a = 1", "b = 2", "c = 3"});
    makeTree(mStorages->sd(), {"1/b = old"});
    const QStringList files = {source("a"), source("b")};

    VornFileHandler::copyToFolder(files, STORAGE_SD, "1");
    QCOMPARE(treeWithContents(source("")), (Tree{"a = 1", "b = 2", "c = 3"}));
    VornFileHandler::moveToFolder(files, STORAGE_SD, "1");

    QCOMPARE(treeWithContents(source("")), Tree{"c = 3"});
    QCOMPARE(treeWithContents(mStorages->sd()), (Tree{"1/", "1/b = old"}));
    QCOMPARE(standIns.calls("cp").size(), 4);
}

void TransferTest::missingProgram()
{
    const StandIns nothing(StandIns::Alone);
    makeTree(source(""), {"a = 1", "b = 2"});

    VornFileHandler::copyToFolder({source("a")}, STORAGE_SD, "1");
    QCOMPARE(treeWithContents(source("")), (Tree{"a = 1", "b = 2"}));
    VornFileHandler::moveToFolder({source("a")}, STORAGE_SD, "1");

    QCOMPARE(treeWithContents(source("")), Tree{"b = 2"});
    QCOMPARE(treeWithContents(mStorages->sd()), Tree{"1/"});
}

void TransferTest::failureDoesNotStopTheOthers()
{
    StandIns standIns;
    standIns.add("cp", "case \"$2\" in *bad*) exit 1;; esac\n" + standIns.becomes("cp"));
    makeTree(source(""), {"a = 1", "bad = 2", "c = 3"});

    VornFileHandler::moveToFolder({source("a"), source("bad"), source("c")}, STORAGE_SD, "1");

    QCOMPARE(treeWithContents(mStorages->sd()), (Tree{"1/", "1/a = 1", "1/c = 3"}));
    QCOMPARE(treeWithContents(source("")), Tree());
}

/// A file that the real cp could not complete remains on the card, and its name counts as taken. The move
/// deletes its sources nevertheless.
void TransferTest::fullFileSystem()
{
    constexpr int SIZE = 1024 * 1024;
    const QByteArray whole = QByteArray("0123456789").repeated(SIZE / 2);
    makeTree(source(""), {"a = 1", "b.avi = " + whole, "c", "d = 4"});
    const QStringList files = {source("a"), source("b.avi"), source("c")};
    const QString card = QFileInfo(mStorages->sd()).path();
    QVERIFY(QDir().mkpath(card));

    const auto result = onSmallFileSystem(card, SIZE, [&] {
        VornFileHandler::copyToFolder(files, STORAGE_SD, "1");
        const Tree kept = tree(source(""));
        VornFileHandler::moveToFolder(files, STORAGE_SD, "1");
        const QByteArray copy = contentOf(mStorages->sd() + "/1/b.avi");
        const bool isBeginning = !copy.isEmpty() && copy.size() < whole.size() && whole.startsWith(copy);
        return (kept + Tree{"|"} + tree(card)
                + Tree{"|", contentOf(mStorages->sd() + "/1/a"), "|", isBeginning ? "beginning" : "other",
                       contentOf(mStorages->sd() + "/1/b_1.avi")})
            .join(" ");
    });
    if (!result)
        QSKIP("mounting is not permitted");

    QCOMPARE(*result,
             QByteArray("a b.avi c d | DCIM/ DCIM/1/ DCIM/1/a DCIM/1/a_1.a DCIM/1/b.avi DCIM/1/b_1.avi "
                        "DCIM/1/c DCIM/1/c_1.c | 1 | beginning "));
    QCOMPARE(treeWithContents(source("")), Tree{"d = 4"});
    QCOMPARE(tree(card), Tree());
}

void TransferTest::modeOwnerAndTimesAreKept()
{
    const QByteArray file = QFile::encodeName(source("a.jpg"));
    writeFile(file, "x");
    QCOMPARE(::chmod(file.constData(), 0741), 0);
    if (::geteuid() == 0)
        QCOMPARE(::chown(file.constData(), 1234, 5678), 0);
    const timespec times[] = {{1000000000, 123456789}, {1100000000, 987654321}};
    QCOMPARE(::utimensat(AT_FDCWD, file.constData(), times, 0), 0);
    struct stat before = {};
    QCOMPARE(::lstat(file.constData(), &before), 0);

    VornFileHandler::copyToFolder({source("a.jpg")}, STORAGE_SD, "1");
    VornFileHandler::moveToFolder({source("a.jpg")}, STORAGE_USB, "1");

    for (const eStorageType storage : {STORAGE_SD, STORAGE_USB}) {
        const QByteArray copy = QFile::encodeName(mStorages->location(storage) + "/1/a.jpg");
        struct stat after = {};
        QCOMPARE(::lstat(copy.constData(), &after), 0);
        QCOMPARE(after.st_mode, before.st_mode);
        QCOMPARE(after.st_uid, before.st_uid);
        QCOMPARE(after.st_gid, before.st_gid);
        QCOMPARE(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
        QCOMPARE(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    }
}

void TransferTest::largeFile()
{
    QByteArray content(5 * 1024 * 1024, '\0');
    for (int i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 31 % 251);
    writeFile(source("a.avi"), content);

    VornFileHandler::moveToFolder({source("a.avi")}, STORAGE_SD, "1");

    QVERIFY(contentOf(mStorages->sd() + "/1/a.avi") == content);
    QCOMPARE(tree(source("")), Tree());
}

void TransferTest::relativeSource()
{
    makeTree(source(""), {"a = 1", "b/c = 2"});
    QVERIFY(QDir::setCurrent(source("")));

    VornFileHandler::moveToFolder({"a", "b/c"}, STORAGE_SD, "1");

    QCOMPARE(treeWithContents(mStorages->sd()), (Tree{"1/", "1/a = 1", "1/c = 2"}));
    QCOMPARE(treeWithContents(source("")), Tree{"b/"});
}

/// cp fails because of an unknown option. The move deletes the file as after any failed copy.
void TransferTest::sourceThatLooksLikeAnOption()
{
    makeTree(source(""), {"-Z! = 1"});
    QVERIFY(QDir::setCurrent(source("")));

    VornFileHandler::copyToFolder({"-Z!"}, STORAGE_SD, "1");
    QCOMPARE(treeWithContents(source("")), Tree{"-Z! = 1"});
    VornFileHandler::moveToFolder({"-Z!"}, STORAGE_SD, "1");

    QCOMPARE(treeWithContents(source("")), Tree());
    QCOMPARE(treeWithContents(mStorages->sd()), Tree{"1/"});
}

void TransferTest::moveWithinOneFolder()
{
    makeTree(mStorages->sd(), {"1/a.jpg = x"});

    VornFileHandler::moveToFolder({mStorages->sd() + "/1/a.jpg"}, STORAGE_SD, "1");

    QCOMPARE(treeWithContents(mStorages->sd()), (Tree{"1/", "1/a_1.jpg = x"}));
}

void TransferTest::deleteFile_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<Tree>("deleted");

    const auto row = [](const char *name, const QString &file, const Tree &deleted) {
        QTest::newRow(name) << file << deleted;
    };
    row("file", "/a.jpg", {"a.jpg = x"});
    row("read-only-file", "/read-only", {"read-only = x"});
    row("hidden", "/.a", {".a = x"});
    row("in-a-folder", "/full/b", {"full/b = x"});
    row("spaces-and-line-feed", "/ a\nb ", {" a\nb  = x"});
    row("wildcard-is-a-name", "/*", {});
    row("outside-ascii", "/\u00E4", {"\u00E4 = x"});
    row("missing", "/missing", {});
    row("missing-folder", "/missing/a.jpg", {});
    row("file-as-a-folder", "/a.jpg/b", {});
    row("trailing-slash", "/a.jpg/", {});
    row("empty-folder", "/empty", {});
    row("full-folder", "/full", {});
    row("link", "/link", {"link -> a.jpg"});
    row("link-to-a-folder", "/folder-link", {"folder-link -> full"});
    row("dangling-link", "/dangling", {"dangling -> missing"});
    row("name-too-long", "/" + QString(300, 'x'), {});
    row("test-directory", "", {});
}

void TransferTest::deleteFile()
{
    QFETCH(QString, file);
    QFETCH(Tree, deleted);
    const QString base = source("");
    makeTree(base, {" a\nb  = x", ".a = x", "a.jpg = x", "read-only = x", "empty/", "full/b = x",
                    "link -> a.jpg", "folder-link -> full", "dangling -> missing", "\u00E4 = x"});
    QVERIFY(QFile::setPermissions(base + "read-only", QFile::ReadOwner));
    Tree expected = treeWithContents(base);
    for (const QByteArray &entry : deleted)
        QVERIFY(expected.removeOne(entry));

    VornFileHandler::deleteFile(mStorages->path() + "/in" + file);

    QCOMPARE(treeWithContents(base), expected);
}

void TransferTest::deleteRelativeFile()
{
    makeTree(source(""), {"a = 1", "b/a = 2"});
    QVERIFY(QDir::setCurrent(source("b")));

    VornFileHandler::deleteFile("a");
    VornFileHandler::deleteFile("");
    VornFileHandler::deleteFile(QString());
    VornFileHandler::deleteFile(".");
    VornFileHandler::moveToFolder({""}, STORAGE_SD, "1");

    QCOMPARE(treeWithContents(source("")), (Tree{"a = 1", "b/"}));
    QCOMPARE(treeWithContents(mStorages->sd()), Tree{"1/"});
}

void TransferTest::deleteFileWithNullCharacter()
{
    makeTree(source(""), {"a = 1"});

    VornFileHandler::deleteFile(source("a") + NUL + "b");
    VornFileHandler::deleteFile(source("a") + NUL);
    VornFileHandler::deleteFile(NUL + source("a"));

    QCOMPARE(treeWithContents(source("")), Tree{"a = 1"});
}

QTEST_GUILESS_MAIN(TransferTest)
#include "tst_transfer.moc"
