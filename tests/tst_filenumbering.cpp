// SPDX-License-Identifier: MIT
#include "literal.h"
#include "testsupport.h"

#include <QtTest>

#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

class FileNumberingTest : public QObject
{
    Q_OBJECT

private slots:
    void lastFile_data();
    void lastFile();
    void lastFileOfEachFolder();
    void lastFileOfMissingFolder_data();
    void lastFileOfMissingFolder();
    void lastFileBelowLinks();
    void fifoIsNotAFile();
    void next_data();
    void next();
    void extensionOfTheNextFile_data();
    void extensionOfTheNextFile();
    void missingLocation();
    void sameNameUntilTheFileExists();
    void numbersFollowTheFilesOnTheDevice();
    void rolloverIntoAnEmptyFolder();
    void usedUpNumbersRepeat();
    void storageDevicesAreSeparate();
    void relativeLocationFollowsTheCurrentDirectory();
    void unsupportedStorageUsesTmp();
    void readOnlyFileSystem_data();
    void readOnlyFileSystem();
    void sameAsQDirOnRandomTrees();
};

void FileNumberingTest::lastFile_data()
{
    QTest::addColumn<Tree>("files");
    QTest::addColumn<int>("skipped");
    QTest::addColumn<int>("number");
    const auto row = [](const char *name, const Tree &files, int skipped, int number) {
        QTest::newRow(name) << files << skipped << number;
    };
    row("empty-folder", {}, 0, 0);
    row("jpeg", {"DCF_0001.jpg"}, 0, 1);
    row("png", {"DCF_0002.png"}, 0, 2);
    row("avi", {"DCF_0003.avi"}, 0, 3);
    row("matroska", {"DCF_0004.mkv"}, 0, 4);
    row("wav", {"DCF_0005.wav"}, 0, 5);
    row("thumbnail-is-not-counted", {"DCF_0012.thumb"}, 0, 0);
    row("thumbnail-beside-its-photo", {"DCF_0011.jpg", "DCF_0012.thumb"}, 0, 11);
    row("other-extension-is-not-counted", {"DCF_0012.txt", "DCF_0013.jpeg", "DCF_0014"}, 0, 0);
    row("numbers-are-shared-across-types", {"DCF_0003.avi", "DCF_0007.jpg"}, 0, 7);
    row("one-number-with-all-types",
        {"DCF_0008.avi", "DCF_0008.jpg", "DCF_0008.mkv", "DCF_0008.png", "DCF_0008.wav"}, 0, 8);
    row("gap-is-not-filled", {"DCF_0002.jpg", "DCF_0010.jpg"}, 0, 10);
    row("highest-number", {"DCF_0001.jpg", "DCF_9999.jpg"}, 0, 9999);
    row("zero", {"DCF_0000.jpg"}, 0, 0);
    row("fifth-digit-is-cut-off", {"DCF_12345.jpg"}, 0, 1234);
    row("text-after-four-digits", {"DCF_0006_1.jpg", "DCF_0005.jpg"}, 0, 6);
    row("one-digit", {"DCF_7.jpg"}, 1, 0);
    row("three-digits", {"DCF_007.jpg"}, 1, 0);
    row("no-digit", {"DCF_.jpg"}, 1, 0);
    row("letters", {"DCF_ABCD.jpg"}, 1, 0);
    row("letters-after-a-number", {"DCF_0003.jpg", "DCF_ABCD.jpg"}, 1, 3);
    row("several-are-skipped", {"DCF_0003.jpg", "DCF_7.avi", "DCF_9.jpg", "DCF_x.wav"}, 3, 3);
    row("prefix-in-lower-case", {"dcf_0003.JPG"}, 1, 0);
    row("prefix-in-lower-case-after-a-number", {"DCF_0002.jpg", "dcf_0003.jpg"}, 1, 2);
    row("prefix-in-mixed-case", {"Dcf_0003.jpg"}, 1, 0);
    row("extension-in-upper-case", {"DCF_0003.JPG", "DCF_0004.MkV"}, 0, 4);
    row("prefix-twice", {"DCF_DCF_.jpg"}, 1, 0);
    row("prefix-twice-and-a-number", {"DCF_DCF_0004.jpg"}, 1, 0);
    row("prefix-later-in-the-name", {"DCF_12DCF_.jpg"}, 1, 0);
    row("without-the-prefix", {"0003.jpg", "IMG_0004.jpg"}, 0, 0);
    row("text-before-the-prefix", {"XDCF_0004.jpg"}, 0, 0);
    row("plus-sign", {"DCF_+012.jpg"}, 0, 12);
    row("minus-sign", {"DCF_-012.jpg"}, 0, -12);
    row("sign-sorts-before-digits", {"DCF_+999.jpg", "DCF_0001.jpg"}, 0, 1);
    row("leading-space", {"DCF_ 012.jpg"}, 0, 12);
    row("trailing-space", {"DCF_012 .jpg"}, 0, 12);
    row("spaces-around", {"DCF_ 1  .jpg"}, 0, 1);
    row("space-inside", {"DCF_0 12.jpg"}, 1, 0);
    row("trailing-line-feed", {"DCF_012\n.jpg"}, 0, 12);
    row("line-feed-after-the-extension", {"DCF_0012.jpg\n"}, 0, 0);
    row("hexadecimal", {"DCF_0x1F.jpg"}, 1, 0);
    row("hexadecimal-digits", {"DCF_00FF.jpg"}, 1, 0);
    row("fraction", {"DCF_1.25.jpg"}, 1, 0);
    row("digits-outside-ascii", {"DCF_\u0661\u0662\u0663\u0664.jpg"}, 1, 0);
    row("name-of-prefix-and-extension-only", {"DCF_jpg"}, 0, 0);
    row("kelvin-sign-in-the-extension", {"DCF_0009.m\u212av"}, 0, 9);
    row("kelvin-sign-and-ascii-names", {"DCF_0008.mkv", "DCF_0009.m\u212av"}, 0, 9);
    row("long-s-matches-no-filter", {"DCF_0009.\u017fpg"}, 0, 0);
    row("name-outside-ascii-after-a-number", {"DCF_0008.jpg", "DCF_\u00e4.jpg"}, 1, 8);
    row("name-outside-ascii-with-another-extension", {"DCF_0008.jpg", "\u00e4.txt"}, 0, 8);
    row("surrogate-pair-counts-as-two-characters", {"DCF_12\U0001F4F7.jpg", "DCF_0001.jpg"}, 1, 1);
    row("name-is-not-utf-8", {"DCF_0008.jpg", "DCF_0009\377.jpg"}, 0, 8);
    row("the-only-name-is-not-utf-8", {"DCF_0009\377.jpg"}, 0, 0);
    row("hidden-file", {".DCF_0009.jpg", "DCF_0008.jpg"}, 0, 8);
    row("folder-named-like-a-file", {"DCF_0008.jpg", "DCF_0009.jpg/"}, 0, 8);
    row("link-to-a-file", {"DCF_0008.jpg", "DCF_0009.jpg -> DCF_0008.jpg"}, 0, 8);
    row("dangling-link", {"DCF_0008.jpg", "DCF_0009.jpg -> none"}, 0, 8);
    row("file-in-a-subfolder", {"DCF_0008.jpg", "sub/", "sub/DCF_0009.jpg"}, 0, 8);
}

void FileNumberingTest::lastFile()
{
    QFETCH(Tree, files);
    QFETCH(int, skipped);
    QFETCH(int, number);
    const Storages storages;
    makeTree(storages.sd(), inFolder("100ABC/", files));
    const Tree before = tree(storages.path());
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 100), number);
    QCOMPARE(capture.take(), noFileNumberLine().repeated(skipped));
    QCOMPARE(tree(storages.path()), before);
    if (number == 9999)
        return; // the next file is in another folder
    QCOMPARE(VornFileHandler::getNextFileNum(STORAGE_SD), number + 1);
    QCOMPARE(capture.take(), noFileNumberLine().repeated(skipped));
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_PNG),
             QString("%1/100ABC/DCF_%2.png").arg(storages.sd()).arg(number + 1, 4, 10, QChar('0')));
    QCOMPARE(capture.take(), noFileNumberLine().repeated(skipped));
    QCOMPARE(tree(storages.path()), before);
}

void FileNumberingTest::lastFileOfEachFolder()
{
    const Storages storages;
    makeTree(storages.sd(), {"-5ABC/DCF_0001.jpg", "1000ABC/DCF_0002.jpg", "100ABC/DCF_0003.jpg",
                             "101ABC/DCF_0004.jpg", "7ABC/DCF_0005.jpg", "100/DCF_0006.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, -5), 1);
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 1000), 2);
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 100), 3);
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 101), 4);
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 7), 5);
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::lastFileOfMissingFolder_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before");
    const auto row = [](const char *name, const QString &suffix, const Tree &before) {
        QTest::newRow(name) << suffix << before;
    };
    row("missing-folder", "ABC", {"sd/", "sd/DCIM/"});
    row("missing-location", "ABC", {});
    row("suffix-in-another-case", "ABC", {"sd/", "sd/DCIM/", "sd/DCIM/100abc/"});
    row("file-in-place-of-the-folder", "ABC", {"sd/", "sd/DCIM/", "sd/DCIM/100ABC"});
    row("dangling-link", "ABC", {"sd/", "sd/DCIM/", "sd/DCIM/100ABC -> none"});
    row("place-marker-in-the-suffix", "%1", {});
    row("format-characters-in-the-suffix", "%s%n", {});
    row("suffix-outside-ascii", "\u00c4", {});
}

void FileNumberingTest::lastFileOfMissingFolder()
{
    QFETCH(QString, suffix);
    QFETCH(Tree, before);
    const Storages storages(suffix);
    makeTree(storages.path(), before);
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 100), 0);
    QCOMPARE(capture.take(), missingDirectoryLine(storages.sd() + "/100" + suffix));
    QCOMPARE(tree(storages.path()), before);
}

void FileNumberingTest::lastFileBelowLinks()
{
    const Storages storages;
    makeTree(storages.path(), {"real/folder/DCF_0004.jpg", "real/100ABC -> folder", "sd/DCIM -> ../real"});
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 100), 4);
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::fifoIsNotAFile()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0001.jpg"});
    QCOMPARE(::mkfifo(QFile::encodeName(storages.sd() + "/100ABC/DCF_0002.jpg").constData(), 0600), 0);
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 100), 1);
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::next_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before"); // in the location, which exists
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("name"); // below the location
    QTest::addColumn<Tree>("created");
    QTest::addColumn<QString>("diagnostics"); // N: no folder number, P: no file number, D: no folder
    QTest::addColumn<QString>("diagnosticsOfTheName");
    const auto row = [](const char *title, const QString &suffix, const Tree &before, int number,
                        const char *name, const Tree &created = {}, const char *diagnostics = "",
                        const char *more = "") {
        QTest::newRow(title) << suffix << before << number << name << created << diagnostics
                             << QString(diagnostics) + more;
    };
    row("empty-location", "ABC", {}, 1, "100ABC/DCF_0001.jpg", {"100ABC/"});
    row("other-folders-only", "ABC", {"MISC/"}, 1, "100ABC/DCF_0001.jpg", {"100ABC/"});
    row("last-folder-is-the-current-one", "ABC", {"100ABC/DCF_0009.jpg", "101ABC/DCF_0002.jpg"}, 3,
        "101ABC/DCF_0003.jpg");
    row("last-folder-is-empty", "ABC", {"100ABC/DCF_0009.jpg", "101ABC/"}, 1, "101ABC/DCF_0001.jpg");
    row("rollover", "ABC", {"100ABC/DCF_9999.jpg"}, 1, "101ABC/DCF_0001.jpg", {"101ABC/"});
    row("rollover-at-a-longer-number", "ABC", {"100ABC/DCF_99990.jpg"}, 1, "101ABC/DCF_0001.jpg",
        {"101ABC/"});
    row("no-rollover-at-9998", "ABC", {"100ABC/DCF_9998.jpg"}, 9999, "100ABC/DCF_9999.jpg");
    row("no-rollover-at-a-thumbnail", "ABC", {"100ABC/DCF_9999.thumb"}, 1, "100ABC/DCF_0001.jpg");
    row("rollover-from-a-folder-with-leading-zeros", "ABC", {"0099ABC/", "099ABC/", "99ABC/DCF_9999.jpg"}, 1,
        "99ABC/DCF_0001.jpg", {"100ABC/"});
    row("rollover-after-folder-999", "ABC", {"999ABC/DCF_9999.jpg"}, 1, "999ABC/DCF_0001.jpg", {"1000ABC/"});
    row("rollover-after-the-largest-number", "ABC", {"2147483647ABC/DCF_9999.jpg"}, 1,
        "2147483647ABC/DCF_0001.jpg", {"-2147483648ABC/"});
    row("rollover-blocked-by-a-file", "ABC", {"100ABC/DCF_9999.jpg", "101ABC"}, 1, "100ABC/DCF_0001.jpg");
    row("rollover-with-the-same-number-in-another-spelling", "ABC", {"+12ABC/", "12ABC/DCF_9999.jpg"}, 1,
        "13ABC/DCF_0001.jpg", {"13ABC/"});
    row("current-folder-in-another-spelling", "ABC", {"007ABC/DCF_0005.jpg"}, 1, "7ABC/DCF_0001.jpg", {},
        "D");
    row("suffix-in-lower-case-only", "ABC", {"100abc/DCF_0005.jpg"}, 1, "100ABC/DCF_0001.jpg", {}, "ND", "N");
    row("text-before-the-suffix", "ABC", {"101ABC/DCF_0002.jpg", "101ABC/DCF_7.jpg", "XABC/"}, 3,
        "101ABC/DCF_0003.jpg", {}, "NP", "N");
    row("suffix-twice", "ABC", {"1ABC2ABC/DCF_0004.jpg"}, 1, "12ABC/DCF_0001.jpg", {}, "D");
    row("negative-number-is-incremented", "ABC", {"100ABC/DCF_-005.jpg"}, -4, "100ABC/DCF_-004.jpg");
    row("file-in-place-of-folder-100", "ABC", {"100ABC"}, 1, "100ABC/DCF_0001.jpg", {}, "D");
    row("empty-suffix", "", {"100/DCF_0004.jpg"}, 5, "100/DCF_0005.jpg");
    row("empty-suffix-and-empty-location", "", {}, 1, "100/DCF_0001.jpg", {}, "NND", "NN");
    row("empty-suffix-and-other-folders-only", "", {"MISC/"}, 1, "100/DCF_0001.jpg", {}, "NNND", "NNN");
    row("empty-suffix-and-rollover", "", {"100/DCF_9999.wav"}, 1, "101/DCF_0001.jpg", {"101/"});
    row("suffix-is-an-invalid-wildcard", "A[", {}, 1, "100A[/DCF_0001.jpg", {"100A[/"});
    row("suffix-does-not-match-itself", "A[B]", {"105A[B]/DCF_0004.jpg"}, 1, "100A[B]/DCF_0001.jpg",
        {"100A[B]/"});
    row("suffix-with-a-place-marker", "%1", {"100%1/DCF_0004.jpg"}, 5, "100DCF_/0005jpg.%4");
    row("suffix-outside-ascii", "\u00c4", {"100\u00c4/DCF_0004.jpg"}, 5, "100\u00c4/DCF_0005.jpg");
}

void FileNumberingTest::next()
{
    QFETCH(QString, suffix);
    QFETCH(Tree, before);
    QFETCH(int, number);
    QFETCH(QString, name);
    QFETCH(Tree, created);
    QFETCH(QString, diagnostics);
    QFETCH(QString, diagnosticsOfTheName);
    const auto expand = [&](const QString &letters, const QString &location) {
        QByteArray text;
        for (const QChar letter : letters) {
            text += letter == 'N'   ? noFolderNumberLine()
                    : letter == 'P' ? noFileNumberLine()
                                    : missingDirectoryLine(location + "/" + name.section('/', 0, 0));
        }
        return text;
    };
    for (const bool wholeName : {false, true}) {
        const Storages storages(suffix);
        makeTree(storages.path(), inFolder("sd/DCIM/", before));
        const Tree after = sorted(tree(storages.sd()) + created);
        StandardErrorCapture capture;
        if (wholeName)
            QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE),
                     storages.sd() + "/" + name);
        else
            QCOMPARE(VornFileHandler::getNextFileNum(STORAGE_SD), number);
        QCOMPARE(capture.take(), expand(wholeName ? diagnosticsOfTheName : diagnostics, storages.sd()));
        QCOMPARE(tree(storages.sd()), after);
    }
}

void FileNumberingTest::extensionOfTheNextFile_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("name");
    row("image", 16, "DCF_0008.jpg");
    row("jpeg", 17, "DCF_0008.jpg");
    row("png", 18, "DCF_0008.png");
    row("thumbnail", 20, "DCF_0008.thumb");
    row("video", 32, "DCF_0008.avi");
    row("avi", 33, "DCF_0008.avi");
    row("matroska", 34, "DCF_0008.mkv");
    row("audio-is-avi", 64, "DCF_0008.avi");
    row("wav", 65, "DCF_0008.wav");
    row("folder", 128, "DCF_0008.");
    row("unknown", -1, "DCF_0008.");
    row("undefined-value", 1000, "DCF_0008.");
}

void FileNumberingTest::extensionOfTheNextFile()
{
    QFETCH(int, type);
    QFETCH(QString, name);
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0003.avi", "100ABC/DCF_0007.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, anyType(type)), storages.sd() + "/100ABC/" + name);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()), Tree({"100ABC/", "100ABC/DCF_0003.avi", "100ABC/DCF_0007.jpg"}));
}

void FileNumberingTest::missingLocation()
{
    for (const bool wholeName : {false, true}) {
        const Storages storages;
        StandardErrorCapture capture;
        if (wholeName)
            QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_AVI),
                     storages.sd() + "/100ABC/DCF_0001.avi");
        else
            QCOMPARE(VornFileHandler::getNextFileNum(STORAGE_SD), 1);
        QCOMPARE(capture.take(), missingLocationLine(storages.sd()));
        QCOMPARE(tree(storages.path()), Tree({"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
    }
}

void FileNumberingTest::sameNameUntilTheFileExists()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/"});
    StandardErrorCapture capture;
    const QString first = VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG);
    QCOMPARE(first, storages.sd() + "/100ABC/DCF_0001.jpg");
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG), first);
    QVERIFY(!QFile::exists(first));
    writeFile(first);
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG),
             storages.sd() + "/100ABC/DCF_0002.jpg");
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::numbersFollowTheFilesOnTheDevice()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.jpg", "100ABC/DCF_0003.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getNextFileNum(STORAGE_SD), 4);
    QVERIFY(QFile::remove(storages.sd() + "/100ABC/DCF_0003.jpg"));
    QCOMPARE(VornFileHandler::getNextFileNum(STORAGE_SD), 3);
    QVERIFY(QFile::remove(storages.sd() + "/100ABC/DCF_0001.jpg"));
    QCOMPARE(VornFileHandler::getNextFileNum(STORAGE_SD), 3);
    writeFile(storages.sd() + "/100ABC/DCF_0500.wav");
    QCOMPARE(VornFileHandler::getNextFileNum(STORAGE_SD), 501);
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::rolloverIntoAnEmptyFolder()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_9999.jpg"});
    StandardErrorCapture capture;
    const QString name = VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG);
    QCOMPARE(name, storages.sd() + "/101ABC/DCF_0001.jpg");
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG), name);
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 101), 0);
    writeFile(name);
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_AUDIO_WAV),
             storages.sd() + "/101ABC/DCF_0002.wav");
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()), Tree({"100ABC/", "100ABC/DCF_9999.jpg", "101ABC/", "101ABC/DCF_0001.jpg"}));
}

void FileNumberingTest::usedUpNumbersRepeat()
{
    const Storages storages;
    makeTree(storages.sd(), {"999ABC/DCF_9999.jpg"});
    StandardErrorCapture capture;
    for (int call = 0; call < 3; ++call) {
        const QString name = VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG);
        QCOMPARE(name, storages.sd() + "/999ABC/DCF_0001.jpg");
        writeFile(name);
    }
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()),
             Tree({"1000ABC/", "999ABC/", "999ABC/DCF_0001.jpg", "999ABC/DCF_9999.jpg"}));
}

void FileNumberingTest::storageDevicesAreSeparate()
{
    const Storages storages;
    makeTree(storages.location(STORAGE_MMC), {"101ABC/DCF_0001.jpg"});
    makeTree(storages.location(STORAGE_SD), {"102ABC/DCF_0002.jpg"});
    makeTree(storages.location(STORAGE_USB), {"103ABC/DCF_0003.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_MMC, FILE_TYPE_IMAGE),
             storages.location(STORAGE_MMC) + "/101ABC/DCF_0002.jpg");
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE),
             storages.sd() + "/102ABC/DCF_0003.jpg");
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_USB, FILE_TYPE_IMAGE),
             storages.location(STORAGE_USB) + "/103ABC/DCF_0004.jpg");
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::relativeLocationFollowsTheCurrentDirectory()
{
    const Storages storages;
    makeTree(storages.path(), {"one/x/101ABC/DCF_0005.jpg", "two/x/102ABC/"});
    const QString root = QDir(storages.path()).canonicalPath();
    StandardErrorCapture capture;
    VornFileHandler::mSDLocation = QDir("x");
    {
        const CurrentDirectory current(root + "/one");
        QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE),
                 root + "/one/x/101ABC/DCF_0006.jpg");
    }
    const CurrentDirectory current(root + "/two");
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE),
             root + "/two/x/102ABC/DCF_0001.jpg");
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::unsupportedStorageUsesTmp()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto result = withEmptyTmp([] {
        makeTree("/tmp", {"100ABC/DCF_9999.jpg"});
        const int last = VornFileHandler::getLastFileNum(anyStorage(1000), 100);
        const int number = VornFileHandler::getNextFileNum(anyStorage(-1));
        const QString name = VornFileHandler::getNextFileName(anyStorage(3), FILE_TYPE_IMAGE);
        return QString("%1 %2 %3 %4")
            .arg(last)
            .arg(number)
            .arg(name, QString(tree("/tmp").join(' ')))
            .toUtf8();
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, QByteArray("9999 1 /tmp/101ABC/DCF_0001.jpg 100ABC/ 100ABC/DCF_9999.jpg 101ABC/"));
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::readOnlyFileSystem_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("missing");
    const auto row = [](const char *title, const Tree &before, const char *name, bool missing) {
        QTest::newRow(title) << before << name << missing;
    };
    row("without-numbered-folders", {"MISC/"}, "/100ABC/DCF_0001.jpg", true);
    row("with-a-file", {"100ABC/", "100ABC/DCF_0004.jpg"}, "/100ABC/DCF_0005.jpg", false);
    row("rollover-fails", {"100ABC/", "100ABC/DCF_9999.jpg"}, "/100ABC/DCF_0001.jpg", false);
}

void FileNumberingTest::readOnlyFileSystem()
{
    QFETCH(Tree, before);
    QFETCH(QString, name);
    QFETCH(bool, missing);
    const Storages storages;
    makeTree(storages.sd(), before);
    StandardErrorCapture capture;
    const auto result = onReadOnlyFileSystem(storages.path(), [] {
        return VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE).toUtf8();
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, (storages.sd() + name).toUtf8());
    QCOMPARE(capture.take(), missing ? missingDirectoryLine(storages.sd() + "/100ABC") : QByteArray());
    QCOMPARE(tree(storages.sd()), before);
}

namespace {

QByteArray randomFile(QRandomGenerator &random)
{
    static const QByteArrayList HEADS = {"DCF_", "DCF_",  "DCF_",  "DCF_",       "dcf_",       "DCF_DCF_",
                                         "DCF",  ".DCF_", "XDCF_", "DCF_\u00e4", "\uFEFFDCF_", "DCF_\377"};
    static const QByteArrayList NUMBERS = {
        "0001", "0009",  "9998", "9999", "12345", "7",  "007",          "+012",       " 012",   "012 ",
        "-003", "01\n2", "ABCD", "",     "1 23",  "99", "\u0661\u0662", "\U0001F4F7", "\uff61", "0000"};
    static const QByteArrayList TAILS = {".jpg",      ".png", ".avi",     ".mkv",   ".wav",
                                         ".JPG",      ".Wav", ".thumb",   ".txt",   ".jpg\n",
                                         ".m\u212av", "jpg",  ".jpg.txt", "_1.jpg", ".\u017fpg"};
    static const QByteArrayList KINDS = {"", "", "", "", "", "", "/", " -> none"};
    return oneOf(random, HEADS) + oneOf(random, NUMBERS) + oneOf(random, TAILS) + oneOf(random, KINDS);
}

Tree randomLocation(QRandomGenerator &random, const QByteArray &suffix)
{
    QMap<QByteArray, QByteArray> entries; // by the name, because a name is that of a file, a folder or a link
    static const QByteArrayList FOLDERS = {"100", "100", "100", "101", "999", "1000", "007", "X"};
    for (int i = random.bounded(8); i > 0; --i) {
        const QByteArray folder = oneOf(random, FOLDERS) + suffix + "/";
        const QByteArray file = randomFile(random);
        QByteArray name = file.left(file.indexOf(" -> ") < 0 ? file.size() : file.indexOf(" -> "));
        name.replace('/', "");
        entries[folder + name] = folder + file;
    }
    return entries.values();
}

} // namespace

void FileNumberingTest::sameAsQDirOnRandomTrees()
{
    constexpr quint32 SEED = 20250226;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    const QStringList suffixes = {"ABC", "ABC", "ABC", "",  "A*", "A[B]",   "A[",
                                  "k",   "%1",  "A\n", "0", "\\", "\u00c4", "A?"};
    for (int round = 0; round < 200; ++round) {
        const QString suffix = oneOf(random, suffixes);
        const Storages storages(suffix);
        const Tree before = randomLocation(random, suffix.toUtf8());
        makeTree(storages.location(STORAGE_MMC), before);
        makeTree(storages.sd(), before);
        StandardErrorCapture capture;
        const int expectedLast = literal::lastFile(STORAGE_MMC, 100);
        const QString expectedName = literal::nextName(STORAGE_MMC, "mkv").replace("/mmc/", "/sd/");
        const QByteArray expectedText = capture.take().replace("/mmc/", "/sd/");
        QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 100), expectedLast);
        QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_MKV), expectedName);
        QCOMPARE(capture.take(), expectedText);
        QCOMPARE(tree(storages.sd()), tree(storages.location(STORAGE_MMC)));
    }
}

QTEST_GUILESS_MAIN(FileNumberingTest)
#include "tst_filenumbering.moc"
