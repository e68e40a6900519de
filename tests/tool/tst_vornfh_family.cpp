// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QDir>
#include <QDirIterator>
#include <QStorageInfo>
#include <QTest>

#include <algorithm>
#include <map>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

// What all commands have in common.

class VornfhFamilyTest : public QObject
{
    Q_OBJECT

private slots:
    void changesNothingInADryRun_data();
    void changesNothingInADryRun();
    void failsInADryRunAsInARealRun_data();
    void failsInADryRunAsInARealRun();
    void aDryRunListsWhatPruneDeletes_data();
    void aDryRunListsWhatPruneDeletes();
    void printsThePagesThatAGalleryWouldDelete();
    void offersADryRunForEachCommandThatWrites();
    void exitsWith_data();
    void exitsWith();
    void exitsWith3IfAnObjectIsBeingWritten();
    void readsNamesFromAFile_data();
    void readsNamesFromAFile();
    void refusesAListOfNames_data();
    void refusesAListOfNames();
    void suggestsAWord_data();
    void suggestsAWord();
    void showsAnExample_data();
    void showsAnExample();
    void helpFitsOnAScreen_data();
    void helpFitsOnAScreen();
};

namespace {

/// The content of a picture of one pixel.
QByteArray png()
{
    return QByteArray::fromBase64(
        "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNkYPhfDwAChwGA60e6kgAAAABJ"
        "RU5ErkJggg==");
}

/// A storage device with leftovers of an interrupted command, and files on the computer.
const Tree ENTRIES =
    onCard({"100ABC/DCF_0001.jpg = one", "100ABC/DCF_0001.thumb = t", "100ABC/DCF_0002.jpg = two",
            "100ABC/DCF_0002.avi = two", "100ABC/DCF_0002.thumb = u", "100ABC/DCF_0003.jpg = three",
            "100ABC/.vornfh-4194304-abcdef = left", ".vornfh-4194304-abcdef = left",
            "kept/DCF_0001.jpg = other"})
    + Tree{"usb/",
           "usb/DCIM/",
           "usb/DCIM/.vornfh-4194304-abcdef = left",
           "photos/",
           "photos/DCF_0001.jpg = photo",
           "photos/DCF_0001.thumb = thumbnail",
           "photos/DCF_0003.jpg = three",
           "photos/.vornfh-4194304-abcdef = left",
           "out/",
           "out/.vornfh-4194304-abcdef = left"};

/// Everything below the directory of @p tool with modes, sizes and times, except the time of the last access.
QByteArrayList snapshot(const ToolRun &tool)
{
    QByteArrayList entries;
    QDirIterator iterator(tool.path(), QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                          QDirIterator::Subdirectories);
    QStringList paths{"."};
    while (iterator.hasNext())
        paths.append(QDir(tool.path()).relativeFilePath(iterator.next()));
    for (const QString &path : paths) {
        const struct stat status = statusOf(tool, path);
        const auto number = [](auto value) { return " " + QByteArray::number(qint64(value)); };
        entries.append(path.toUtf8() + number(status.st_mode) + number(status.st_size)
                       + number(status.st_mtim.tv_sec) + number(status.st_mtim.tv_nsec)
                       + number(status.st_ctim.tv_sec) + number(status.st_ctim.tv_nsec));
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

/// The names of all commands.
QByteArrayList commands()
{
    const QByteArray help = ToolRun().run({"--help"}).out;
    QByteArrayList names;
    for (const QByteArray &line : help.mid(help.indexOf("\nCommands:\n") + 11).split('\n')) {
        if (line.isEmpty())
            break;
        const QByteArray name = line.trimmed().split(' ').first();
        if (line.startsWith("  ") && !line.startsWith("   "))
            names.append(name);
    }
    return names;
}

/// What the help prints in a line "Example: ".
QByteArray exampleOf(const QByteArray &command)
{
    const QByteArray help = ToolRun().run({command, "--help"}).out;
    const int start = help.indexOf("\nExample: ");
    return start < 0 ? QByteArray() : help.mid(start + 10).split('\n').first();
}

const QByteArray CARD = "@/sd/DCIM/";
const QByteArray PHOTO_COMMAND =
    "-map 0:v:0 -frames:v 1 -update 1 -c:v mjpeg -pix_fmt yuvj420p -q:v 3 -f image2 -y ";

} // namespace

// --dry-run

void VornfhFamilyTest::changesNothingInADryRun_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArrayList>("messages"); // "*" matches any
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &out,
                        const QByteArrayList &messages = {}, int exitCode = 0) {
        QTest::newRow(name) << arguments << exitCode << out << messages;
    };
    const auto failing = [&row](const char *name, const QByteArrayList &arguments,
                                const QByteArrayList &messages,
                                const QByteArray &out = {}) { row(name, arguments, out, messages, 1); };
    const QByteArray one = CARD + "100ABC/DCF_0001";
    const QByteArray two = CARD + "100ABC/DCF_0002";
    const QByteArray allButOneByte = QByteArray::number(QStorageInfo(QDir::tempPath()).bytesTotal() - 1);
    const QByteArray notMedia = ": including files that are not media files: ";

    row("record-photo", {"record", "sd", "--type", "jpg"},
        CARD + "100ABC/DCF_0004.jpg\nffmpeg -f lavfi -i testsrc2=size=640x480:rate=25,hue=h=148 "
            + PHOTO_COMMAND + "file:" + CARD + "100ABC/DCF_0004.jpg\n");
    row("record-into-a-folder-that-is-missing", {"record", "usb", "--type", "jpg", "--input", "/dev/video9"},
        "@/usb/DCIM/100ABC/DCF_0001.jpg\nffmpeg -f v4l2 -i /dev/video9 " + PHOTO_COMMAND
            + "file:@/usb/DCIM/100ABC/DCF_0001.jpg\n");
    row("record-on-a-storage-device-that-is-missing",
        {"record", "mmc", "--type", "wav", "--input", "a file", "--duration", "3"},
        "@/mmc/DCIM/100ABC/DCF_0001.wav\nffmpeg -i 'a file' -map 0:a:0 -c:a pcm_s16le -t 3.000 -abort_on "
        "empty_output "
        "-f wav -y file:@/mmc/DCIM/100ABC/DCF_0001.wav\n");
    row("record-loop",
        {"record", "sd", "--type", "jpg", "--count", "2", "--loop", "--keep-free", allButOneByte},
        one + ".jpg: would be deleted\n" + one + ".thumb: would be deleted\n" + two
            + ".avi: would be deleted\n" + two + ".jpg: would be deleted\n" + two
            + ".thumb: would be deleted\n" + CARD
            + "100ABC/DCF_0004.jpg\nffmpeg -f lavfi -i testsrc2=size=640x480:rate=25,hue=h=148 "
            + PHOTO_COMMAND + "file:" + CARD + "100ABC/DCF_0004.jpg\n",
        {"*"});
    row("comment", {"comment", "picture.png", "text"}, "@/picture.png\n");
    failing("comment-on-no-picture", {"comment", "photos/DCF_0001.jpg", "text"},
            {"@/photos/DCF_0001.jpg: is not a JPEG, PNG or TIFF image"});

    row("copy-with-the-thumbnail", {"copy", "photos/DCF_0001.jpg", "usb", "new"},
        "@/photos/DCF_0001.jpg -> @/usb/DCIM/new/DCF_0001.jpg\n@/photos/DCF_0001.thumb -> "
        "@/usb/DCIM/new/DCF_0001.thumb\n");
    row("copy-with-a-counter",
        {"copy", "--only", "photos/DCF_0001.jpg", "photos/DCF_0001.jpg", "sd", "100ABC"},
        "@/photos/DCF_0001.jpg -> " + CARD + "100ABC/DCF_0001_1.jpg\n@/photos/DCF_0001.jpg -> " + CARD
            + "100ABC/DCF_0001_2.jpg\n");
    row("copy-of-what-is-there", {"copy", "photos/DCF_0003.jpg", "sd", "100ABC"},
        "@/photos/DCF_0003.jpg -> " + CARD + "100ABC/DCF_0003.jpg\n");
    failing("copy-of-a-missing-file", {"copy", "photos/none", "photos/DCF_0003.jpg", "usb", "new"},
            {"@/photos/none: No such file or directory", "1 of 2 files not copied"},
            "@/photos/DCF_0003.jpg -> @/usb/DCIM/new/DCF_0003.jpg\n");
    row("move", {"move", "photos/DCF_0001.jpg", "usb", "new"},
        "@/photos/DCF_0001.jpg -> @/usb/DCIM/new/DCF_0001.jpg\n@/photos/DCF_0001.thumb -> "
        "@/usb/DCIM/new/DCF_0001.thumb\n");
    failing("move-of-a-file-in-the-folder", {"move", CARD + "kept/DCF_0001.jpg", "sd", "kept"},
            {CARD + "kept/DCF_0001.jpg: is already in that folder", "1 of 1 files not moved"});
    failing("move-of-a-protected-file", {"move", CARD + "100ABC/DCF_0003.jpg", "usb", "new"},
            {CARD + "100ABC/DCF_0003.jpg: is protected; use --force", "1 of 1 files not moved"});

    const auto offloaded = [](const QByteArrayList &names) {
        QByteArray lines;
        for (const QByteArray &name : names)
            lines += CARD + "100ABC/" + name + " -> @/new/100ABC/" + name + "\n";
        return lines;
    };
    row("offload", {"offload", "sd", "new"},
        offloaded({"DCF_0001.jpg", "DCF_0001.thumb", "DCF_0002.avi", "DCF_0002.jpg", "DCF_0002.thumb",
                   "DCF_0003.jpg"}));
    row("offload-and-delete", {"offload", "sd", "new", "--move"},
        offloaded({"DCF_0001.jpg", "DCF_0001.thumb"}) + one + ".jpg: would be deleted\n" + one
            + ".thumb: would be deleted\n" + offloaded({"DCF_0002.avi", "DCF_0002.jpg", "DCF_0002.thumb"})
            + two + ".avi: would be deleted\n" + two + ".jpg: would be deleted\n" + two
            + ".thumb: would be deleted\n" + offloaded({"DCF_0003.jpg"}));
    failing("offload-into-a-file", {"offload", "sd", "picture.png"}, {"@/picture.png: is not a folder"});

    row("delete", {"delete", one + ".jpg"}, one + ".jpg\n" + one + ".thumb\n");
    row("delete-both-recordings-of-a-thumbnail", {"delete", two + ".jpg", two + ".avi", two + ".thumb"},
        two + ".jpg\n" + two + ".avi\n" + two + ".thumb\n");
    row("delete-the-thumbnail-before-the-recording", {"delete", one + ".thumb", one + ".jpg"},
        one + ".thumb\n" + one + ".jpg\n");
    failing("delete-twice", {"delete", "--only", one + ".jpg", one + ".jpg"},
            {one + ".jpg: No such file or directory", "1 of 2 files not deleted"}, one + ".jpg\n");
    failing("delete-a-protected-file", {"delete", CARD + "100ABC/DCF_0003.jpg"},
            {CARD + "100ABC/DCF_0003.jpg: is protected; use --force", "1 of 1 files not deleted"});

    row("rmdir", {"rmdir", "sd", "kept"}, CARD + "kept/DCF_0001.jpg\n" + CARD + "kept\n",
        {CARD + "kept: would delete 1 file, 5 B"});
    failing("rmdir-with-a-protected-object", {"rmdir", "sd", "100ABC"},
            {CARD + "100ABC: would delete 6 files, 15 B",
             CARD + "100ABC" + notMedia + ".vornfh-4194304-abcdef",
             CARD
                 + "100ABC: keeps 1 file of objects that are protected or being written; use --force to "
                   "delete them too"},
            "*");
    row("wipe", {"wipe", "usb"}, "@/usb/DCIM/.vornfh-4194304-abcdef\n@/usb/DCIM\n",
        {"@/usb/DCIM: would delete 1 file, 4 B", "@/usb/DCIM" + notMedia + ".vornfh-4194304-abcdef"});
    failing("wipe-what-is-missing", {"wipe", "mmc"},
            {"@/mmc/DCIM: does not exist; there is nothing to delete"});

    row("mkdir", {"mkdir", "mmc", "new"}, "@/mmc/DCIM/new\n");
    failing("mkdir-of-what-is-there", {"mkdir", "sd", "kept"}, {CARD + "kept: already exists"});

    row("prune", {"prune", "sd", "--keep-last", "2"}, one + ".jpg\n" + one + ".thumb\n");
    row("prune-that-is-not-enough", {"prune", "sd", "--max-size", "1"},
        one + ".jpg\n" + one + ".thumb\n" + two + ".avi\n" + two + ".jpg\n" + two + ".thumb\n",
        {"@/sd/DCIM: the objects take up 5 B instead of at most 1 B; nothing more can be deleted"}, 3);

    row("protect", {"protect", one + ".jpg"}, one + ".jpg\n" + one + ".thumb\n");
    failing("protect-what-is-missing", {"protect", CARD + "100ABC/none"},
            {CARD + "100ABC/none: No such file or directory", "1 of 1 paths not protected"});
    row("unprotect", {"unprotect", CARD + "100ABC/DCF_0003.jpg"}, CARD + "100ABC/DCF_0003.jpg\n");

    row("repair", {"repair", "usb"}, "@/usb/DCIM/.vornfh-4194304-abcdef: would be deleted\n");

    row("gallery", {"gallery", "sd", "-o", "page.html"}, "@/page.html\n");
    failing("gallery-on-another-file", {"gallery", "sd", "-o", "other.html"},
            {"@/other.html: exists and is not a vornfh gallery; use --force to replace it"});
    failing("gallery-in-a-missing-folder", {"gallery", "sd", "-o", "none/page.html"},
            {"@/none/page.html: no file can be created in @/none: No such file or directory"});
}

void VornfhFamilyTest::changesNothingInADryRun()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, out);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    tool.make(ENTRIES + Tree{"other.html = other"});
    writeFile(tool.path() + "/picture.png", png());
    setMode(tool, "sd/DCIM/100ABC/DCF_0003.jpg", 0444);
    const QByteArrayList before = snapshot(tool);
    const Outcome longOption = tool.runOnStorages(arguments + QByteArrayList{"--dry-run"});
    Outcome expected = {exitCode, tool.expand(out), tool.expand(errorLines(messages))};
    if (messages == QByteArrayList{"*"})
        expected.err = longOption.err;
    if (out == "*")
        expected.out = longOption.out;
    QCOMPARE(longOption, expected);
    QCOMPARE(tool.runOnStorages(QByteArrayList{"-n"} + arguments).exitCode, 2); // it belongs to the command
    QCOMPARE(tool.runOnStorages(arguments.mid(0, 1) + QByteArrayList{"-n"} + arguments.mid(1)), expected);
    QCOMPARE(snapshot(tool), before);
}

void VornfhFamilyTest::failsInADryRunAsInARealRun_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<bool>("isReadOnly"); // the file system; otherwise, the folder of the files
    const QByteArray photo = CARD + "100ABC/DCF_0001.jpg";
    const QList<QByteArrayList> table = {
        {"record", "sd", "--type", "jpg"},
        {"comment", CARD + "100ABC/picture.png", "text"},
        {"copy", "photo.jpg", "sd", "100ABC"},
        {"move", photo, "usb", "new"},
        {"move", photo, "sd", "kept"},
        {"offload", "usb", CARD + "100ABC/out"},
        {"delete", photo},
        {"mkdir", "sd", "100ABC"},
        {"rmdir", "sd", "100ABC", "--yes"},
        {"wipe", "sd", "--yes"},
        {"prune", "sd", "--keep-last", "1"},
        {"gallery", "sd", "-o", CARD + "100ABC/page.html"},
    };
    for (const QByteArrayList &arguments : table) {
        const QByteArray name = arguments.join('-');
        QTest::newRow(name + "-read-only-device") << arguments << true;
        QTest::newRow(name + "-folder-without-permission") << arguments << false;
    }
    QTest::newRow("protect-read-only-device") << QByteArrayList{"protect", photo} << true;
    QTest::newRow("unprotect-read-only-device")
        << QByteArrayList{"unprotect", CARD + "100ABC/DCF_0002.jpg"} << true;
}

void VornfhFamilyTest::failsInADryRunAsInARealRun()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(bool, isReadOnly);
    ToolRun tool;
    if (!hasOwnMounts() || !tool.dropPrivileges())
        QSKIP(CANNOT_MOUNT);
    tool.make({"sd/", "usb/", "usb/DCIM/", "usb/DCIM/100ABC/DCF_0001.jpg = usb", "photo.jpg = photo"});
    const TmpfsMount mount(tool.path() + "/sd", "mode=0777");
    QVERIFY(mount.isMounted());
    tool.make(onCard({"100ABC/DCF_0001.jpg = one", "100ABC/DCF_0002.jpg = two", "kept/"}));
    writeFile(tool.sd() + "/100ABC/picture.png", png());
    setMode(tool, "sd/DCIM/100ABC/DCF_0002.jpg", 0444);
    const FolderMode mode(tool.sd() + "/100ABC", isReadOnly ? 0755 : 0555);
    QVERIFY(!isReadOnly || mount.makeReadOnly());
    const QByteArrayList before = snapshot(tool);
    Outcome dry = tool.runOnStorages(arguments + QByteArrayList{"-n"});
    QVERIFY2(dry.exitCode == 1, dry.out.constData());
    QCOMPARE(snapshot(tool), before);
    QCOMPARE(dry.err.replace(": would delete ", ": will delete "), tool.runOnStorages(arguments).err);
}

/// The deletions of a dry run are computed, so they are compared with those of a real run.
void VornfhFamilyTest::aDryRunListsWhatPruneDeletes_data()
{
    QTest::addColumn<QByteArrayList>("policies");
    row("last", QByteArrayList{"--keep-last", "3"});
    row("all-but-the-newest", QByteArrayList{"--keep-last", "1"});
    row("size", QByteArrayList{"--max-size", "9K"});
    row("size-that-is-not-reached", QByteArrayList{"--max-size", "1"});
    row("nothing", QByteArrayList{"--max-size", "1G"});
}

void VornfhFamilyTest::aDryRunListsWhatPruneDeletes()
{
    QFETCH(QByteArrayList, policies);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg size 4000", "100ABC/DCF_0001.thumb size 10",
                      "100ABC/DCF_0002.avi size 3000", "100ABC/.vornfh-4194304-abcdef = left",
                      "101ABC/DCF_0001.jpg size 2000", "101ABC/note", "102ABC/DCF_0001.png size 5000",
                      "102ABC/\xff", "103ABC/DCF_0001.jpg size 3000", "103ABC/DCF_0002.thumb"}));
    const QByteArrayList arguments = QByteArrayList{"prune", "sd"} + policies;
    const Outcome dry = tool.runOnStorages(arguments + QByteArrayList{"-n"});
    const Outcome real = tool.runOnStorages(arguments); // also reports the leftovers on standard error
    QCOMPARE(dry.out, real.out);
    QCOMPARE(dry.exitCode, real.exitCode);
}

void VornfhFamilyTest::printsThePagesThatAGalleryWouldDelete()
{
    const ToolRun tool;
    Tree photos;
    for (const QByteArray number : {"1", "2", "3", "4", "5"})
        photos.append("100ABC/DCF_000" + number + ".jpg size 300000");
    tool.make(onCard(photos));
    const QByteArrayList gallery = {"gallery", "sd", "-o", "page.html", "--page-size", "1"};
    QCOMPARE(tool.runOnStorages(gallery), tool.success("@/page.html\n"));
    const QStringList pages = QDir(tool.path() + "/page-pages").entryList({"*.html"});
    QVERIFY(pages.size() > 1);
    for (const QByteArray number : {"2", "3", "4", "5"})
        QVERIFY(QFile::remove(tool.sd() + "/100ABC/DCF_000" + number + ".jpg"));
    QByteArray lines = "@/page.html\n";
    for (const QString &page : pages)
        lines += "@/page-pages/" + page.toUtf8() + ": would be deleted\n";
    const QByteArrayList before = snapshot(tool);
    QCOMPARE(tool.runOnStorages(gallery + QByteArrayList{"-n"}), tool.success(lines));
    QCOMPARE(snapshot(tool), before);
    QCOMPARE(tool.runOnStorages(gallery), tool.success("@/page.html\n"));
    QVERIFY(!QDir(tool.path() + "/page-pages").exists());
}

void VornfhFamilyTest::offersADryRunForEachCommandThatWrites()
{
    QByteArrayList writing;
    for (const QByteArray &command : commands()) {
        if (ToolRun().run({command, "--help"}).out.contains("-n,--dry-run"))
            writing.append(command);
    }
    std::sort(writing.begin(), writing.end());
    QCOMPARE(writing.join(' '), QByteArray("comment copy delete gallery mkdir move offload protect prune "
                                           "record repair rmdir unprotect wipe"));
}

// Exit codes

void VornfhFamilyTest::exitsWith_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<int>("exitCode");
    const QByteArray photo = CARD + "100ABC/DCF_0001.jpg";
    const QByteArray missing = CARD + "100ABC/none.jpg";
    struct Command {
        QByteArrayList done;
        QByteArrayList failed;
        QByteArrayList wrong;
    };
    const std::map<QByteArray, Command> table = {
        {"next", {{"sd", "avi"}, {"mmc", "avi"}, {"sd", "bmp"}}},
        {"record", {{"sd", "--type", "jpg"}, {"mmc", "--type", "jpg"}, {"sd", "--type", "bmp"}}},
        {"folders", {{"sd"}, {"mmc"}, {"sd", "--filter", "none"}}},
        {"list", {{"sd"}, {"mmc"}, {}}},
        {"count", {{"sd"}, {"mmc"}, {"floppy"}}},
        {"info", {{photo}, {missing}, {}}},
        {"comment", {{"picture.png", "text"}, {missing, "text"}, {"picture.png"}}},
        {"status", {{"sd"}, {"mmc"}, {"floppy"}}},
        {"check", {{"usb"}, {"mmc"}, {}}},
        {"repair", {{"usb"}, {"mmc"}, {}}},
        {"gallery", {{"sd", "-o", "page.html"}, {"mmc", "-o", "page.html"}, {"sd"}}},
        {"copy", {{photo, "usb", "new"}, {missing, "usb", "new"}, {photo, "usb"}}},
        {"move", {{photo, "usb", "new"}, {missing, "usb", "new"}, {photo, "usb"}}},
        {"offload", {{"sd", "out"}, {"mmc", "out"}, {"sd", ""}}},
        {"mkdir", {{"sd", "new"}, {"mmc", "new"}, {"sd", "a/b"}}},
        {"delete", {{photo}, {missing}, {}}},
        {"rmdir", {{"sd", "100ABC", "--yes"}, {"sd", "none", "--yes"}, {"sd", "100ABC"}}},
        {"wipe", {{"sd", "--yes"}, {"mmc", "--yes"}, {"sd"}}},
        {"prune", {{"sd", "--keep-last", "1"}, {"mmc", "--keep-last", "1"}, {"sd"}}},
        {"protect", {{photo}, {missing}, {}}},
        {"unprotect", {{photo}, {missing}, {}}},
    };
    const auto row = [](const QByteArray &command, const QByteArrayList &arguments, int exitCode) {
        QTest::newRow(command + "-" + QByteArray::number(exitCode))
            << QByteArrayList{command} + arguments << exitCode;
    };
    QByteArrayList names = commands();
    for (const auto &[command, arguments] : table) {
        row(command, arguments.done, 0);
        row(command, arguments.failed, 1);
        row(command, arguments.wrong, 2);
        names.removeAll(command);
    }
    names.removeAll("watch");                  // ends only on a signal: tst_vornfh_watch
    require(names.isEmpty(), names.join(' ')); // each command has its rows
    row("check", {"sd"}, 3);
    row("repair", {"sd"}, 3);
    row("prune", {"sd", "--max-size", "1"}, 3);
}

void VornfhFamilyTest::exitsWith()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(int, exitCode);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = damaged", "100ABC/DCF_0002.jpg = damaged"})
              + Tree{"usb/", "usb/DCIM/", "mmc/", "mmc/DCIM = a file"});
    writeFile(tool.path() + "/picture.png", png());
    const Outcome outcome = tool.runOnStorages(arguments);
    QVERIFY2(outcome.exitCode == exitCode, outcome.err.constData());
    QVERIFY(!outcome.err.isEmpty() || exitCode == 0 || exitCode == 3);
}

void VornfhFamilyTest::exitsWith3IfAnObjectIsBeingWritten()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    const int file =
        ::open(QFile::encodeName(tool.sd() + "/100ABC/DCF_0001.jpg").constData(), O_RDWR | O_CLOEXEC);
    QVERIFY(file >= 0 && ::flock(file, LOCK_EX) == 0);
    const QByteArray message = CARD + "100ABC/DCF_0001.jpg: is being written and is not offloaded";
    const Outcome expected = {3, "", tool.expand(errorLines({message}))};
    const QByteArrayList before = snapshot(tool);
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out", "--dry-run"}), expected);
    QCOMPARE(snapshot(tool), before);
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out"}), expected);
    ::close(file);
}

// --files-from

void VornfhFamilyTest::readsNamesFromAFile_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("list");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &list,
                        const QByteArray &out, const QByteArrayList &messages = {}) {
        QTest::newRow(name) << arguments << list << out << messages;
    };
    const QByteArray one = CARD + "100ABC/DCF_0001.jpg";
    const QByteArray three = CARD + "100ABC/DCF_0003.jpg";
    row("copy", {"copy", "usb", "new"}, one + "\n" + three + "\n",
        one + " -> @/usb/DCIM/new/DCF_0001.jpg\n" + three + " -> @/usb/DCIM/new/DCF_0003.jpg\n");
    row("move", {"move", "usb", "new"}, one + "\n", one + " -> @/usb/DCIM/new/DCF_0001.jpg\n");
    row("delete", {"delete"}, one + "\n" + three + "\n", one + "\n" + three + "\n");
    row("protect", {"protect"}, one + "\n", one + "\n");
    row("unprotect", {"unprotect"}, one + "\n", one + "\n");
    row("repair", {"repair"}, CARD + "100ABC/DCF_0005.jpg\n", CARD + "100ABC/DCF_0005.jpg: deleted\n");
    row("after-those-on-the-command-line", {"delete", three}, one + "\n", three + "\n" + one + "\n");
    row("files-of-copy-on-the-command-line-too", {"copy", three, "usb", "new"}, one + "\n",
        three + " -> @/usb/DCIM/new/DCF_0003.jpg\n" + one + " -> @/usb/DCIM/new/DCF_0001.jpg\n");
    row("without-a-line-feed-at-the-end", {"delete"}, one + "\n" + three, one + "\n" + three + "\n");
    row("separated-by-null-characters", {"delete", "-0"}, one + "|" + three + "|", one + "\n" + three + "\n");
    row("without-a-null-character-at-the-end", {"delete", "--null"}, one + "|" + three,
        one + "\n" + three + "\n");
    row("line-feed-in-a-name", {"delete", "-0"}, CARD + "100ABC/a\nb|", CARD + "100ABC/a\\x0ab\n");
    row("space-at-the-end-of-a-name", {"delete"}, CARD + "100ABC/c \n", CARD + "100ABC/c \n");
    row("leading-dash", {"delete"}, "-x\n", "",
        {"@/-x: is not in the location of a configured storage device"});
    row("carriage-return", {"delete"}, one + "\r\n" + three + "\r\n", "",
        {one + "\\x0d: No such file or directory", three + "\\x0d: No such file or directory"});
    row("empty-line", {"delete"}, one + "\n\n", one + "\n", {"'': is not a file name"});
    row("not-utf-8", {"delete"}, "\xff\n", "", {"\\xff: the name is not valid UTF-8"});
}

void VornfhFamilyTest::readsNamesFromAFile()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, list);
    QFETCH(QByteArray, out);
    QFETCH(QByteArrayList, messages);
    for (const bool isStandardInput : {false, true}) {
        const ToolRun tool;
        tool.make(onCard({"100ABC/DCF_0001.jpg = one", "100ABC/DCF_0003.jpg = three", "100ABC/DCF_0005.jpg",
                          "100ABC/a\nb = x", "100ABC/c  = x"})
                  + Tree{"usb/", "usb/DCIM/", "-x = x"});
        writeFile(tool.path() + "/list", tool.expand(list).replace('|', '\0'));
        QByteArray command =
            "'" + ToolRun::toolPath().toUtf8() + "' --sd @/sd/DCIM --usb @/usb/DCIM --suffix ABC";
        for (const QByteArray &argument : arguments)
            command += " '" + argument + "'";
        command += isStandardInput ? " --files-from - < @/list" : " --files-from @/list";
        Outcome outcome = tool.runProgram("/bin/sh", {"-c", QString::fromUtf8(tool.expand(command))});
        const QByteArray count = "vornfh: " + QByteArray::number(messages.size()) + " of ";
        if (!messages.isEmpty())
            outcome.err.truncate(outcome.err.indexOf(count));
        QCOMPARE(outcome,
                 (Outcome{messages.isEmpty() ? 0 : 1, tool.expand(out), tool.expand(errorLines(messages))}));
    }
}

void VornfhFamilyTest::refusesAListOfNames_data()
{
    QTest::addColumn<QByteArray>("arguments"); // of a shell
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("message");
    row("missing", QByteArray("delete --files-from @/none"), 1,
        QByteArray("@/none: No such file or directory"));
    row("folder", QByteArray("delete --files-from @/sd"), 1, QByteArray("@/sd: Is a directory"));
    row("closed-standard-input", QByteArray("delete --files-from - <&-"), 1,
        QByteArray("standard input: Bad file descriptor"));
    row("empty", QByteArray("delete --files-from /dev/null"), 2,
        QByteArray("--files-from: '/dev/null' contains no names"));
    row("empty-for-info", QByteArray("info --files-from /dev/null"), 2,
        QByteArray("--files-from: '/dev/null' contains no names"));
    row("empty-standard-input-for-copy", QByteArray("copy --files-from - sd new </dev/null"), 2,
        QByteArray("--files-from: '-' contains no names"));
    row("empty-name", QByteArray("delete --files-from ''"), 2, QByteArray("--files-from: the path is empty"));
    row("null-characters-in-lines", QByteArray("delete --files-from @/nulls"), 2,
        QByteArray("--files-from: '@/nulls' contains null characters; use --null"));
    row("null-without-a-list", QByteArray("delete -0 @/sd/DCIM/a"), 2,
        QByteArray("--null requires --files-from"));
    row("neither", QByteArray("delete"), 2, QByteArray("PATH... is required"));
    row("neither-for-repair", QByteArray("repair"), 2, QByteArray("STORAGE|PATH... is required"));
    row("copy-without-a-folder", QByteArray("copy --files-from @/nulls sd"), 2,
        QByteArray("copy needs FILE..., STORAGE and FOLDER"));
    row("second-name-empty-for-info", QByteArray("info @/sd/DCIM/a ''"), 2, QByteArray("the path is empty"));
    row("second-storage-not-configured-for-repair", QByteArray("repair sd usb"), 2,
        QByteArray("storage usb is not configured; use --usb DIR, or usb=DIR in the config file"));
}

void VornfhFamilyTest::refusesAListOfNames()
{
    QFETCH(QByteArray, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(onCard({"a = x", "100VORN/DCF_0001.thumb = repair would delete it"}));
    writeFile(tool.path() + "/nulls", tool.expand("@/sd/DCIM/a|").replace('|', '\0'));
    const QByteArray command = "'" + ToolRun::toolPath().toUtf8() + "' --sd @/sd/DCIM " + arguments;
    const QByteArrayList before = snapshot(tool);
    QCOMPARE(tool.runProgram("/bin/sh", {"-c", QString::fromUtf8(tool.expand(command))}),
             (Outcome{exitCode, "", tool.expand(errorLines({message}))}));
    QCOMPARE(snapshot(tool), before);
}

// Hints

void VornfhFamilyTest::suggestsAWord_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &message) {
        QTest::newRow(name) << arguments << message;
    };
    const auto command = [](const QByteArray &word, const QByteArray &similar) {
        return "'" + word + "' is not a command; did you mean '" + similar + "'? See vornfh --help";
    };
    const auto option = [](const QByteArray &word, const QByteArray &similar, const QByteArray &ofCommand) {
        return "'" + word + "' is not an option; did you mean '" + similar + "'? See vornfh " + ofCommand
               + "--help";
    };
    row("letters-exchanged", {"lits"}, command("lits", "list"));
    row("letter-missing", {"chck", "sd"}, command("chck", "check"));
    row("extra-letter", {"--sd", "@", "statuss"}, command("statuss", "status"));
    row("two-letters", {"protetc-x"}, "'protetc-x' is not a command; see vornfh --help");
    row("plural-of-a-longer-word", {"gallerys"}, command("gallerys", "gallery"));
    row("nothing-similar", {"xyz"}, "'xyz' is not a command; see vornfh --help");
    row("option-before-its-value", {"record", "--typ", "jpg", "sd"}, option("--typ", "--type", "record "));
    row("option-with-its-value", {"record", "sd", "--typ=jpg"}, option("--typ=jpg", "--type", "record "));
    row("option-with-one-dash", {"record", "-type", "jpg", "sd"}, option("-type", "--type", "record "));
    row("option-of-all-commands", {"list", "sd", "--sufix", "X"}, option("--sufix", "--suffix", "list "));
    row("option-of-all-commands-before-the-command", {"--cofnig", "f", "list", "sd"},
        option("--cofnig", "--config", "list "));
    row("option-without-a-command", {"--verion"}, option("--verion", "--version", ""));
    row("option-of-another-command", {"list", "sd", "--loop"},
        "'--loop' is not an option; see vornfh list --help");
    row("name-of-a-file", {"delete", "-x.jpg"},
        "'-x.jpg' is not an option; to name the file '-x.jpg', put -- before it or write ./-x.jpg");
    row("name-of-a-file-that-is-like-an-option", {"info", "--jsno"},
        "'--jsno' is not an option; to name the file '--jsno', put -- before it or write ./--jsno");
    row("not-the-name-of-a-file", {"delete", "-y.jpg"},
        "'-y.jpg' is not an option; see vornfh delete --help");
}

void VornfhFamilyTest::suggestsAWord()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make({"-x.jpg = x", "--jsno = x"});
    QCOMPARE(tool.run(arguments), tool.usageError({message}));
}

// Help

void VornfhFamilyTest::showsAnExample_data()
{
    QTest::addColumn<QByteArray>("command");
    for (const QByteArray &command : commands())
        row(command, command);
}

void VornfhFamilyTest::showsAnExample()
{
    QFETCH(QByteArray, command);
    const QByteArray example = exampleOf(command);
    QVERIFY2(example.startsWith("vornfh " + command + " "), example.constData());
    ToolRun tool;
    tool.make({"config = mmc=~/mmc/DCIM\nsd=~/sd/DCIM\nusb=~/usb/DCIM\n"});
    tool.environment.insert("VORNFH_CONFIG", tool.path() + "/config");
    const QByteArray help = tool.run({command, "--help"}).out;
    QCOMPARE(help.contains("\nOptions for storage devices: vornfh --help\n"),
             command != "info" && command != "comment");
    QVERIFY(!help.contains("--suffix"));
    const bool isWriting = help.contains("--dry-run") && !example.contains("--dry-run");
    const QString run = "'" + ToolRun::toolPath() + "'" + QString::fromUtf8(example.mid(6));
    const QString watch = run + " > watched & "
                          + "until grep -q watching watched || ! kill -0 $!; do sleep 0.1; done; "
                            "kill $!; wait $!";
    const QString line = command == "watch" ? watch : "exec " + run + (isWriting ? " -n" : "");
    const Outcome outcome = tool.runProgram("/bin/sh", {"-c", line});
    QVERIFY2(outcome.exitCode == 0 || outcome.exitCode == 1, outcome.err.constData());
}

void VornfhFamilyTest::helpFitsOnAScreen_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::newRow("all-commands") << QByteArrayList();
    for (const QByteArray &command : commands())
        row(command, QByteArrayList{command});
}

void VornfhFamilyTest::helpFitsOnAScreen()
{
    QFETCH(QByteArrayList, arguments);
    constexpr int COLUMNS = 100;
    constexpr int LINES = 42;
    const QByteArrayList lines =
        ToolRun().run(arguments + QByteArrayList{"--help"}).out.trimmed().split('\n');
    QVERIFY2(lines.size() <= LINES, QByteArray::number(lines.size()));
    for (const QByteArray &line : lines)
        QVERIFY2(line.size() <= COLUMNS, line.constData());
}

QTEST_GUILESS_MAIN(VornfhFamilyTest)
#include "tst_vornfh_family.moc"
