// SPDX-License-Identifier: MIT
#include "media.h"
#include "toolsupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <unistd.h>

namespace {

using Words = QList<QByteArray>;

/// Files of one byte in the SD card's location; "a/" is a folder, "a!" an empty file, "a@b" a link to b.
void make(const ToolRun &tool, const Words &entries)
{
    const QByteArray location = QFile::encodeName(tool.sd()) + "/";
    QDir().mkpath(tool.sd());
    for (const QByteArray &entry : entries) {
        const int link = entry.indexOf('@');
        if (entry.endsWith('/'))
            QDir().mkpath(tool.sd() + "/" + QFile::decodeName(entry));
        else if (link >= 0)
            QCOMPARE(::symlink(entry.mid(link + 1).constData(), (location + entry.left(link)).constData()),
                     0);
        else if (entry.endsWith('!'))
            writeFile(location + entry.left(entry.size() - 1));
        else
            writeFile(location + entry, "x");
    }
}

QByteArray notANumber()
{
    return diagnosticLine("directory is not a number, continue to check remaining directories");
}

QByteArray noFileNumber()
{
    return diagnosticLine("problem finding the file number in this filename, continue to the next file");
}

/// The finding about a file that is no photo, video, sound or thumbnail.
QByteArray unlisted(const QByteArray &name)
{
    return "@/" + name
           + ": has none of the extensions jpg, png, avi, mkv, wav, thumb: the media lists, the count and "
             "the "
             "numbering pass it over\n";
}

QJsonObject jsonOf(const Outcome &outcome)
{
    return QJsonDocument::fromJson(outcome.out).object();
}

} // namespace

class VornfhCheckTest : public QObject
{
    Q_OBJECT

private slots:
    void findsNothingOnACleanStorage_data();
    void findsNothingOnACleanStorage();
    void findsOddFolders_data();
    void findsOddFolders();
    void findsOddFiles_data();
    void findsOddFiles();
    void tellsHowManyRecordingsAreLeft_data();
    void tellsHowManyRecordingsAreLeft();
    void printsAnObject();
    void worksWithoutASuffix();
    void saysThatAFolderCannotBeRead_data();
    void saysThatAFolderCannotBeRead();
    void refusesAMissingLocation();
};

void VornfhCheckTest::findsNothingOnACleanStorage_data()
{
    QTest::addColumn<Words>("entries");
    QTest::addColumn<QByteArray>("summary");
    QTest::newRow("empty-location") << Words{}
                                    << QByteArray("sd: no findings in 0 folders with 0 files\n"
                                                  "sd: 8999100 recordings until 999ABC/DCF_9999\n");
    QTest::newRow("recordings-of-all-types")
        << Words{"100ABC/DCF_0001.jpg",   "100ABC/DCF_0001.thumb", "100ABC/DCF_0002.avi",
                 "100ABC/DCF_0002.thumb", "100ABC/DCF_0003.wav",   "100ABC/DCF_0004.png",
                 "101ABC/DCF_0001.mkv"}
        << QByteArray("sd: no findings in 2 folders with 7 files\n"
                      "sd: 8989100 recordings until 999ABC/DCF_9999\n");
    QTest::newRow("folders-and-files-of-others")
        << Words{"MISC/a b.txt",   ".loose.jpg",        "103CANON/IMG_0001.JPG", "100ABC/DCF_0001.jpg",
                 "100ABC/.hidden", "100ABC/.notes.txt", "100ABC/.jpg/",          ".101ABC/"}
        << QByteArray("sd: no findings in 1 folder with 1 file\n"
                      "sd: 8999099 recordings until 999ABC/DCF_9999\n");
}

void VornfhCheckTest::findsNothingOnACleanStorage()
{
    QFETCH(Words, entries);
    QFETCH(QByteArray, summary);
    ToolRun tool;
    make(tool, entries);
    const auto before = tree(tool.path());
    QCOMPARE(tool.runOnStorages({"check", "sd"}), (Outcome{0, summary, ""}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhCheckTest::findsOddFolders_data()
{
    QTest::addColumn<Words>("entries");
    QTest::addColumn<QByteArray>("findings");
    QTest::addColumn<QByteArray>("err");

    QTest::newRow("no-number") << Words{"100ABC/", "XABC/"}
                               << QByteArray("@/XABC: has no number in front of the suffix: numbering and "
                                             "players pass it over\n")
                               << notANumber();
    QTest::newRow("suffix-in-small-letters")
        << Words{"100ABC/", "101abc/"}
        << QByteArray("@/101abc: does not end in 'ABC' with these capital and small letters: the numbering "
                      "passes it over\n")
        << notANumber();
    QTest::newRow("number-twice")
        << Words{"100ABC/", "100abc/", "100XYZ/"}
        << QByteArray("@/100XYZ: has the number of 100ABC: a player shows only one of them, or none\n"
                      "@/100abc: has the number of 100ABC: a player shows only one of them, or none\n"
                      "@/100abc: does not end in 'ABC' with these capital and small letters: the numbering "
                      "passes it over\n")
        << notANumber();
    QTest::newRow("four-digits-before-the-current-folder")
        << Words{"1000ABC/", "100ABC/", "999ABC/"}
        << QByteArray("@/1000ABC: comes before 999ABC in the order of names: the numbering never gets to it, "
                      "and players pass it over\n")
        << QByteArray();
    QTest::newRow("four-digits-alone")
        << Words{"1000ABC/"}
        << QByteArray("@/1000ABC: the number has not three digits from 100 to 999: players pass it over\n")
        << QByteArray();
    QTest::newRow("two-digits")
        << Words{"99ABC/"}
        << QByteArray("@/99ABC: the number has not three digits from 100 to 999: players pass it over\n")
        << QByteArray();
    QTest::newRow("leading-zeros")
        << Words{"007ABC/", "7ABC/"}
        << QByteArray("@/007ABC: the numbering takes it for folder 7 and looks for files in 7ABC\n"
                      "@/7ABC: has the number of 007ABC: a player shows only one of them, or none\n"
                      "@/7ABC: the number has not three digits from 100 to 999: players pass it over\n")
        << QByteArray();
    QTest::newRow("suffix-in-the-middle")
        << Words{"1ABC2ABC/", "200ABC/"}
        << QByteArray("@/1ABC2ABC: the numbering takes it for folder 12 and looks for files in 12ABC\n")
        << QByteArray();
    QTest::newRow("no-folder-for-the-next-recording")
        << Words{"XABC/"}
        << QByteArray("@/100ABC: recordings belong here, but the folder does not exist and the library does "
                      "not create it\n"
                      "@/XABC: has no number in front of the suffix: numbering and players pass it over\n")
        << notANumber();
    QTest::newRow("file-and-link-in-place-of-a-folder")
        << Words{"100ABC/", "101ABC", "102ABC@100ABC"}
        << QByteArray("@/101ABC: is named like a numbered folder but is none: the numbering cannot use it\n"
                      "@/102ABC: is named like a numbered folder but is none: the numbering cannot use it\n")
        << QByteArray();
    QTest::newRow("loose-file-and-links-beside-the-folders")
        << Words{"100ABC/", "loose.jpg", "link@100ABC", "dangling@nowhere", ".hidden"}
        << QByteArray("@/dangling: lies beside the folders: the library lists only what lies in one\n"
                      "@/link: lies beside the folders: the library lists only what lies in one\n"
                      "@/loose.jpg: lies beside the folders: the library lists only what lies in one\n")
        << QByteArray();
    QTest::newRow("names-that-nobody-can-use")
        << Words{"100ABC/", "a b/", "x\xff"}
        << QByteArray("@/a b: the name holds ' ', at which a shell takes it apart: the library hands names "
                      "of videos to one\n"
                      "@/x\\xff: the name is not valid UTF-8: the library never lists it\n")
        << QByteArray();
}

void VornfhCheckTest::findsOddFolders()
{
    QFETCH(Words, entries);
    QFETCH(QByteArray, findings);
    QFETCH(QByteArray, err);
    ToolRun tool;
    const EmptiedAtTheEnd emptied(tool.path());
    make(tool, entries);
    const auto before = tree(tool.path());
    const Outcome outcome = tool.runOnStorages({"check", "sd"});
    const int summary = outcome.out.indexOf("sd: ");
    QCOMPARE(outcome.out.left(summary), findings.replace("@", QFile::encodeName(tool.sd())));
    QCOMPARE(outcome.err, err);
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(tree(tool.path()), before);
}

void VornfhCheckTest::findsOddFiles_data()
{
    QTest::addColumn<Words>("files"); // in folder 100ABC
    QTest::addColumn<QByteArray>("findings");
    QTest::addColumn<QByteArray>("err");

    QTest::newRow("number-twice")
        << Words{"DCF_0001.avi", "DCF_0001.jpg", "DCF_0001.thumb"}
        << QByteArray("@/DCF_0001.jpg: has the number of DCF_0001.avi: a player shows only one of them, or "
                      "none\n")
        << QByteArray();
    QTest::newRow("number-of-another-prefix")
        << Words{"DCF_0001.jpg", "IMG_0001.jpg"}
        << QByteArray("@/IMG_0001.jpg: does not begin with 'DCF_': the numbering passes it over\n"
                      "@/IMG_0001.jpg: has the number of DCF_0001.jpg: a player shows only one of them, or "
                      "none\n")
        << QByteArray();
    QTest::newRow("small-and-capital-letters")
        << Words{"dcf_0001.JPG"}
        << QByteArray("@/dcf_0001.JPG: ends in '.JPG' instead of '.jpg': the library lists it, but as of no "
                      "known type\n"
                      "@/dcf_0001.JPG: begins with 'dcf_' instead of 'DCF_': the numbering passes it over "
                      "and names its number again\n")
        << noFileNumber();
    QTest::newRow("five-digits")
        << Words{"DCF_12345.jpg"}
        << QByteArray("@/DCF_12345.jpg: has not four digits between 'DCF_' and the extension: the numbering "
                      "takes it for number 1234, a player passes it over\n")
        << QByteArray();
    QTest::newRow("copy-with-a-counter")
        << Words{"DCF_0001_1.png"}
        << QByteArray("@/DCF_0001_1.png: has not four digits between 'DCF_' and the extension: the numbering "
                      "takes it for number 1, a player passes it over\n")
        << QByteArray();
    QTest::newRow("one-digit") << Words{"DCF_7.jpg"}
                               << QByteArray("@/DCF_7.jpg: has no number behind 'DCF_': numbering and "
                                             "players pass it over\n")
                               << noFileNumber();
    QTest::newRow("number-zero") << Words{"DCF_0000.jpg"}
                                 << QByteArray(
                                        "@/DCF_0000.jpg: the number is 0000: a player takes 0001 to 9999\n")
                                 << QByteArray();
    QTest::newRow("empty-file") << Words{"DCF_0001.avi!"}
                                << QByteArray("@/DCF_0001.avi: is empty: a recording that was never written, "
                                              "or was lost\n")
                                << QByteArray();
    QTest::newRow("thumbnails-alone-and-of-a-sound")
        << Words{"DCF_0001.thumb", "DCF_0002.thumb", "DCF_0002.wav"}
        << QByteArray("@/DCF_0001.thumb: the thumbnail's photo or video is missing\n"
                      "@/DCF_0002.thumb: the thumbnail's photo or video is missing\n")
        << QByteArray();
    QTest::newRow("extensions-that-the-library-does-not-list")
        << Words{"DCF_0001.jpeg", "DCF_0002.mp4", "DCF_0003", "archive.tar.gz", "notes.txt!"}
        << unlisted("DCF_0001.jpeg") + unlisted("DCF_0002.mp4") + unlisted("DCF_0003")
               + unlisted("archive.tar.gz") + unlisted("notes.txt")
        << QByteArray();
    QTest::newRow("hidden-media")
        << Words{".DCF_0001.JPG", "._DCF_0002.thumb", ".DS_Store"}
        << QByteArray("@/.DCF_0001.JPG: the name begins with '.': the library never lists it\n"
                      "@/._DCF_0002.thumb: the name begins with '.': the library never lists it\n")
        << QByteArray();
    QTest::newRow("folder-and-links")
        << Words{"DCF_0001.jpg@nothing", "sub/"}
        << QByteArray("@/DCF_0001.jpg: is a link or a special file: the library never lists it\n"
                      "@/sub: is a folder in a numbered folder: the library lists nothing in it\n")
        << QByteArray();
    QTest::newRow("names-that-nobody-can-use")
        << Words{"a\nb.txt", "a;b.txt", "\xc3\xa4.txt", "\xe4.txt"}
        << QByteArray("@/a\\x0ab.txt: the name holds '\\x0a', at which a shell takes it apart: the library "
                      "hands names of videos to one\n"
                      "@/a;b.txt: the name holds ';', at which a shell takes it apart: the library hands "
                      "names of videos to one\n"
                      "@/\\xe4.txt: the name is not valid UTF-8: the library never lists it\n")
               + unlisted("a\\x0ab.txt") + unlisted("a;b.txt") + unlisted("\xc3\xa4.txt")
        << QByteArray();
}

void VornfhCheckTest::findsOddFiles()
{
    QFETCH(Words, files);
    QFETCH(QByteArray, findings);
    QFETCH(QByteArray, err);
    ToolRun tool;
    const EmptiedAtTheEnd emptied(tool.path());
    make(tool, {"100ABC/"});
    for (const QByteArray &file : files)
        make(tool, {"100ABC/" + file});
    const auto before = tree(tool.path());
    const Outcome outcome = tool.runOnStorages({"check", "sd"});
    const int summary = outcome.out.indexOf("sd: ");
    QCOMPARE(outcome.out.left(summary), findings.replace("@", QFile::encodeName(tool.sd()) + "/100ABC"));
    QCOMPARE(outcome.err, err);
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(tree(tool.path()), before);
}

void VornfhCheckTest::tellsHowManyRecordingsAreLeft_data()
{
    QTest::addColumn<Words>("entries");
    QTest::addColumn<QByteArray>("summary");
    QTest::addColumn<bool>("isUsedUp");
    QTest::newRow("first-folder-full")
        << Words{"100ABC/DCF_9999.jpg"} << QByteArray("sd: 8989101 recordings until 999ABC/DCF_9999\n")
        << false;
    QTest::newRow("the-last-one") << Words{"999ABC/DCF_9998.jpg"}
                                  << QByteArray("sd: 1 recording until 999ABC/DCF_9999\n") << false;
    QTest::newRow("used-up") << Words{"999ABC/DCF_9999.jpg"}
                             << QByteArray("sd: 0 recordings until 999ABC/DCF_9999\n") << true;
    QTest::newRow("no-folder-of-three-digits-comes-behind-99")
        << Words{"99ABC/DCF_9990.jpg"} << QByteArray("sd: 9 recordings until 99ABC/DCF_9999\n") << false;
}

void VornfhCheckTest::tellsHowManyRecordingsAreLeft()
{
    QFETCH(Words, entries);
    QFETCH(QByteArray, summary);
    QFETCH(bool, isUsedUp);
    ToolRun tool;
    make(tool, entries);
    const QByteArray out = tool.runOnStorages({"check", "sd"}).out;
    QVERIFY2(out.endsWith(summary), out.constData());
    const QByteArray finding = QFile::encodeName(tool.sd())
                               + "/999ABC: no number is left: the library names DCF_0001 in this folder for "
                                 "ever\n";
    QCOMPARE(out.contains(finding), isUsedUp);
}

void VornfhCheckTest::printsAnObject()
{
    ToolRun tool;
    const EmptiedAtTheEnd emptied(tool.path());
    make(tool, {"100ABC/DCF_0005.jpg!", "100ABC/\xff.jpg"});
    const Outcome outcome = tool.runOnStorages({"check", "sd", "--json"});
    const QString folder = tool.sd() + "/100ABC/";
    const QJsonObject expected = {
        {"storage", "sd"},
        {"location", tool.sd()},
        {"folders", 1},
        {"files", 1},
        {"recordingsLeft", 8999095},
        {"findings",
         QJsonArray{QJsonObject{{"path", folder + "\\xff.jpg"},
                                {"kind", "not-utf8"},
                                {"text", "the name is not valid UTF-8: the library never lists it"}},
                    QJsonObject{{"path", folder + "DCF_0005.jpg"},
                                {"kind", "empty-file"},
                                {"text", "is empty: a recording that was never written, or was lost"}}}},
    };
    QCOMPARE(jsonOf(outcome), expected);
    QCOMPARE(outcome.exitCode, 1);
}

void VornfhCheckTest::worksWithoutASuffix()
{
    {
        // The location and the folder above it are listed, so that the library creates no folder.
        const ToolRun fresh;
        QDir().mkpath(fresh.sd());
        QCOMPARE(fresh.run({"--suffix", "", "--sd", "@/sd/DCIM", "check", "sd"}),
                 (Outcome{1,
                          fresh.expand("@/sd/DCIM/100: recordings belong here, but the folder does not exist "
                                       "and the library does not create it\nsd: 1 finding in 0 folders with "
                                       "0 files\nsd: 8999100 recordings until 999/DCF_9999\n"),
                          notANumber() + notANumber()}));
    }
    ToolRun tool;
    make(tool, {"100/DCF_0001.jpg", "101"});
    const Outcome outcome = tool.run({"--suffix", "", "--sd", "@/sd/DCIM", "check", "sd"});
    QCOMPARE(outcome,
             (Outcome{1,
                      QFile::encodeName(tool.sd())
                          + "/101: is named like a numbered folder but is none: the numbering cannot use it\n"
                            "sd: 1 finding in 1 folder with 1 file\n"
                            "sd: 8999099 recordings until 999/DCF_9999\n",
                      ""}));
}

void VornfhCheckTest::saysThatAFolderCannotBeRead_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("nothing-allowed") << 0;
    QTest::newRow("names-can-be-read") << 0444;
}

void VornfhCheckTest::saysThatAFolderCannotBeRead()
{
    QFETCH(int, mode);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot be run as another user");
    make(tool, {"100ABC/DCF_0001.jpg", "101ABC/DCF_0001.jpg"});
    const FolderMode unreadable(tool.sd() + "/100ABC", static_cast<mode_t>(mode));
    QCOMPARE(tool.runOnStorages({"check", "sd"}),
             (Outcome{1,
                      tool.expand("@/sd/DCIM/100ABC: cannot be read: Permission denied\n"
                                  "sd: 1 finding in 2 folders with 1 file\n"
                                  "sd: 8989100 recordings until 999ABC/DCF_9999\n"),
                      ""}));
}

void VornfhCheckTest::refusesAMissingLocation()
{
    ToolRun tool;
    QCOMPARE(tool.runOnStorages({"check", "sd"}),
             (Outcome{1, "", tool.expand("vornfh: @/sd/DCIM: No such file or directory\n")}));
    QCOMPARE(tree(tool.path()), Words());
    writeFile(tool.sd());
    QCOMPARE(tool.runOnStorages({"check", "sd"}),
             (Outcome{1, "", tool.expand("vornfh: @/sd/DCIM: Not a directory\n")}));
    QCOMPARE(tool.run({"--mmc", "@/mmc", "check", "sd"}),
             (Outcome{2, "", "vornfh: storage sd is not configured\n"}));
}

QTEST_GUILESS_MAIN(VornfhCheckTest)
#include "tst_vornfh_check.moc"
