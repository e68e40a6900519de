// SPDX-License-Identifier: MIT
#include "reference.h"
#include "testsupport.h"

#include <QTextCodec>
#include <QtTest>

#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

namespace {

// A function pointer takes a function of exactly its own type.
constexpr int (*LAST_FILE_NUM)(eStorageType, int) = &VornFileHandler::getLastFileNum;
constexpr int (*NEXT_FILE_NUM)(eStorageType) = &VornFileHandler::getNextFileNum;
constexpr QString (*NEXT_FILE_NAME)(eStorageType, eFileTypes) = &VornFileHandler::getNextFileName;

QByteArray missingFolder(const QString &path)
{
    return diagnosticLine("directory " + path.toUtf8() + " doesn't exist");
}

QByteArray missingLocation(const QString &path)
{
    return diagnosticLine("root dir " + path.toUtf8() + " doesn't exist. Create it");
}

QByteArray noFileNumber(int times)
{
    return diagnosticLine("problem finding the file number in this filename, continue to the next file")
        .repeated(times);
}

QByteArray noFolderNumber(int times)
{
    return diagnosticLine("directory is not a number, continue to check remaining directories")
        .repeated(times);
}

Tree inside(const QByteArray &folder, const Tree &entries)
{
    Tree all = {folder};
    for (const QByteArray &entry : entries)
        all.append(folder + entry);
    return all;
}

QString utf8(const char *text)
{
    return QString::fromUtf8(text);
}

} // namespace

class FileNumberingTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void lastFile_data();
    void lastFile();
    void lastFileOfAnyFolder();
    void lastFileOfMissingFolder_data();
    void lastFileOfMissingFolder();
    void lastFileBelowLinks();
    void fifoIsNoFile();
    void next_data();
    void next();
    void extensionOfTheNextFile_data();
    void extensionOfTheNextFile();
    void freshStorage();
    void sameNameUntilTheFileIsWritten();
    void numbersFollowWhatLiesOnTheStorage();
    void rolloverIntoAnEmptyFolder();
    void usedUpNumbersRepeat();
    void eachStorageIsItsOwn();
    void relativeLocationFollowsTheCurrentDirectory();
    void unsupportedStorageWorksInTmp();
    void readOnlyMedium_data();
    void readOnlyMedium();
    void sameAsQDirOnRandomTrees();
};

void FileNumberingTest::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8")); // of names, whatever the locale
}

void FileNumberingTest::lastFile_data()
{
    QTest::addColumn<Tree>("files");
    QTest::addColumn<int>("passedOver");
    QTest::addColumn<int>("number");
    const auto row = [](const char *name, const Tree &files, int passedOver, int number) {
        QTest::newRow(name) << files << passedOver << number;
    };
    row("empty-folder", {}, 0, 0);
    row("jpeg", {"DCF_0001.jpg"}, 0, 1);
    row("png", {"DCF_0002.png"}, 0, 2);
    row("avi", {"DCF_0003.avi"}, 0, 3);
    row("matroska", {"DCF_0004.mkv"}, 0, 4);
    row("wav", {"DCF_0005.wav"}, 0, 5);
    row("thumbnail-does-not-count", {"DCF_0012.thumb"}, 0, 0);
    row("thumbnail-beside-its-photo", {"DCF_0011.jpg", "DCF_0012.thumb"}, 0, 11);
    row("other-extension-does-not-count", {"DCF_0012.txt", "DCF_0013.jpeg", "DCF_0014"}, 0, 0);
    row("numbers-are-shared-across-types", {"DCF_0003.avi", "DCF_0007.jpg"}, 0, 7);
    row("one-number-with-all-types",
        {"DCF_0008.avi", "DCF_0008.jpg", "DCF_0008.mkv", "DCF_0008.png", "DCF_0008.wav"}, 0, 8);
    row("gap-is-not-filled", {"DCF_0002.jpg", "DCF_0010.jpg"}, 0, 10);
    row("highest-number", {"DCF_0001.jpg", "DCF_9999.jpg"}, 0, 9999);
    row("zero", {"DCF_0000.jpg"}, 0, 0);
    row("fifth-digit-is-cut-off", {"DCF_12345.jpg"}, 0, 1234);
    row("text-behind-four-digits", {"DCF_0006_1.jpg", "DCF_0005.jpg"}, 0, 6);
    row("one-digit", {"DCF_7.jpg"}, 1, 0);
    row("three-digits", {"DCF_007.jpg"}, 1, 0);
    row("no-digit", {"DCF_.jpg"}, 1, 0);
    row("letters", {"DCF_ABCD.jpg"}, 1, 0);
    row("letters-behind-a-number", {"DCF_0003.jpg", "DCF_ABCD.jpg"}, 1, 3);
    row("several-are-passed-over", {"DCF_0003.jpg", "DCF_7.avi", "DCF_9.jpg", "DCF_x.wav"}, 3, 3);
    row("prefix-in-lower-case", {"dcf_0003.JPG"}, 1, 0);
    row("prefix-in-lower-case-behind-a-number", {"DCF_0002.jpg", "dcf_0003.jpg"}, 1, 2);
    row("prefix-in-mixed-case", {"Dcf_0003.jpg"}, 1, 0);
    row("extension-in-upper-case", {"DCF_0003.JPG", "DCF_0004.MkV"}, 0, 4);
    row("prefix-twice", {"DCF_DCF_.jpg"}, 1, 0);
    row("prefix-twice-and-a-number", {"DCF_DCF_0004.jpg"}, 1, 0);
    row("prefix-later-in-the-name", {"DCF_12DCF_.jpg"}, 1, 0);
    row("without-the-prefix", {"0003.jpg", "IMG_0004.jpg"}, 0, 0);
    row("text-in-front-of-the-prefix", {"XDCF_0004.jpg"}, 0, 0);
    row("plus-sign", {"DCF_+012.jpg"}, 0, 12);
    row("minus-sign", {"DCF_-012.jpg"}, 0, -12);
    row("sign-sorts-before-digits", {"DCF_+999.jpg", "DCF_0001.jpg"}, 0, 1);
    row("blank-in-front", {"DCF_ 012.jpg"}, 0, 12);
    row("blank-behind", {"DCF_012 .jpg"}, 0, 12);
    row("blanks-around", {"DCF_ 1  .jpg"}, 0, 1);
    row("blank-inside", {"DCF_0 12.jpg"}, 1, 0);
    row("line-feed-behind", {"DCF_012\n.jpg"}, 0, 12);
    row("line-feed-behind-the-extension", {"DCF_0012.jpg\n"}, 0, 0);
    row("hexadecimal", {"DCF_0x1F.jpg"}, 1, 0);
    row("hexadecimal-digits", {"DCF_00FF.jpg"}, 1, 0);
    row("fraction", {"DCF_1.25.jpg"}, 1, 0);
    row("digits-beyond-ascii", {"DCF_\u0661\u0662\u0663\u0664.jpg"}, 1, 0);
    row("name-of-prefix-and-extension-only", {"DCF_jpg"}, 0, 0);
    row("kelvin-sign-in-the-extension", {"DCF_0009.m\u212av"}, 0, 9);
    row("kelvin-sign-beside-plain-names", {"DCF_0008.mkv", "DCF_0009.m\u212av"}, 0, 9);
    row("long-s-matches-no-filter", {"DCF_0009.\u017fpg"}, 0, 0);
    row("name-beyond-ascii-behind-a-number", {"DCF_0008.jpg", "DCF_\u00e4.jpg"}, 1, 8);
    row("name-beyond-ascii-of-another-kind", {"DCF_0008.jpg", "\u00e4.txt"}, 0, 8);
    row("surrogate-pair-counts-for-two-characters", {"DCF_12\U0001F4F7.jpg", "DCF_0001.jpg"}, 1, 1);
    row("name-that-is-no-utf-8", {"DCF_0008.jpg", "DCF_0009\xff.jpg"}, 0, 8);
    row("only-names-that-are-no-utf-8", {"DCF_0009\xff.jpg"}, 0, 0);
    row("hidden-file", {".DCF_0009.jpg", "DCF_0008.jpg"}, 0, 8);
    row("folder-with-a-file's-name", {"DCF_0008.jpg", "DCF_0009.jpg/"}, 0, 8);
    row("link-to-a-file", {"DCF_0008.jpg", "DCF_0009.jpg -> DCF_0008.jpg"}, 0, 8);
    row("dangling-link", {"DCF_0008.jpg", "DCF_0009.jpg -> none"}, 0, 8);
    row("files-further-down", {"DCF_0008.jpg", "sub/", "sub/DCF_0009.jpg"}, 0, 8);
}

void FileNumberingTest::lastFile()
{
    QFETCH(Tree, files);
    QFETCH(int, passedOver);
    QFETCH(int, number);
    const Storages storages;
    makeTree(storages.sd(), inside("100ABC/", files));
    const Tree before = tree(storages.path());
    StandardErrorCapture capture;
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 100), number);
    QCOMPARE(capture.take(), noFileNumber(passedOver));
    QCOMPARE(tree(storages.path()), before);
    if (number == 9999)
        return; // the next one lies in another folder
    QCOMPARE(NEXT_FILE_NUM(STORAGE_SD), number + 1);
    QCOMPARE(capture.take(), noFileNumber(passedOver));
    QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE_PNG),
             QString("%1/100ABC/DCF_%2.png").arg(storages.sd()).arg(number + 1, 4, 10, QChar('0')));
    QCOMPARE(capture.take(), noFileNumber(passedOver));
    QCOMPARE(tree(storages.path()), before);
}

void FileNumberingTest::lastFileOfAnyFolder()
{
    const Storages storages;
    makeTree(storages.sd(), {"-5ABC/DCF_0001.jpg", "1000ABC/DCF_0002.jpg", "100ABC/DCF_0003.jpg",
                             "101ABC/DCF_0004.jpg", "7ABC/DCF_0005.jpg", "100/DCF_0006.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, -5), 1);
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 1000), 2);
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 100), 3);
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 101), 4);
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 7), 5);
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::lastFileOfMissingFolder_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before");
    QTest::newRow("missing-folder") << "ABC" << Tree{"sd/", "sd/DCIM/"};
    QTest::newRow("missing-location") << "ABC" << Tree{};
    QTest::newRow("suffix-in-another-case") << "ABC" << Tree{"sd/", "sd/DCIM/", "sd/DCIM/100abc/"};
    QTest::newRow("file-in-its-place") << "ABC" << Tree{"sd/", "sd/DCIM/", "sd/DCIM/100ABC"};
    QTest::newRow("dangling-link") << "ABC" << Tree{"sd/", "sd/DCIM/", "sd/DCIM/100ABC -> none"};
    QTest::newRow("marker-in-the-suffix") << "%1" << Tree{};
    QTest::newRow("format-characters-in-the-suffix") << "%s%n" << Tree{};
    QTest::newRow("suffix-beyond-ascii") << utf8("\u00c4") << Tree{};
}

void FileNumberingTest::lastFileOfMissingFolder()
{
    QFETCH(QString, suffix);
    QFETCH(Tree, before);
    const Storages storages(suffix);
    makeTree(storages.path(), before);
    StandardErrorCapture capture;
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 100), 0);
    QCOMPARE(capture.take(), missingFolder(storages.sd() + "/100" + suffix));
    QCOMPARE(tree(storages.path()), before);
}

void FileNumberingTest::lastFileBelowLinks()
{
    const Storages storages;
    makeTree(storages.path(), {"real/folder/DCF_0004.jpg", "real/100ABC -> folder", "sd/DCIM -> ../real"});
    StandardErrorCapture capture;
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 100), 4);
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::fifoIsNoFile()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0001.jpg"});
    QCOMPARE(::mkfifo(QFile::encodeName(storages.sd() + "/100ABC/DCF_0002.jpg").constData(), 0600), 0);
    StandardErrorCapture capture;
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 100), 1);
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::next_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before"); // in the location, which exists
    QTest::addColumn<QString>("diagnostics");
    QTest::addColumn<QString>("diagnosticsOfTheName"); // N, P: no folder's, no file's number; D: no folder
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("name"); // below the location
    QTest::addColumn<Tree>("created");
    const auto row = [](const char *title, const QString &suffix, const Tree &before, const char *diagnostics,
                        const char *more, int number, const char *name, const Tree &created) {
        QTest::newRow(title) << suffix << before << diagnostics << QString(diagnostics) + more << number
                             << utf8(name) << created;
    };
    row("empty-location", "ABC", {}, "", "", 1, "100ABC/DCF_0001.jpg", {"100ABC/"});
    row("other-folders-only", "ABC", {"MISC/"}, "", "", 1, "100ABC/DCF_0001.jpg", {"100ABC/"});
    row("last-folder-counts", "ABC", {"100ABC/", "100ABC/DCF_0009.jpg", "101ABC/", "101ABC/DCF_0002.jpg"}, "",
        "", 3, "101ABC/DCF_0003.jpg", {});
    row("last-folder-is-empty", "ABC", {"100ABC/", "100ABC/DCF_0009.jpg", "101ABC/"}, "", "", 1,
        "101ABC/DCF_0001.jpg", {});
    row("rollover", "ABC", {"100ABC/", "100ABC/DCF_9999.jpg"}, "", "", 1, "101ABC/DCF_0001.jpg", {"101ABC/"});
    row("rollover-by-a-longer-number", "ABC", {"100ABC/", "100ABC/DCF_99990.jpg"}, "", "", 1,
        "101ABC/DCF_0001.jpg", {"101ABC/"});
    row("no-rollover-before", "ABC", {"100ABC/", "100ABC/DCF_9998.jpg"}, "", "", 9999, "100ABC/DCF_9999.jpg",
        {});
    row("no-rollover-by-a-thumbnail", "ABC", {"100ABC/", "100ABC/DCF_9999.thumb"}, "", "", 1,
        "100ABC/DCF_0001.jpg", {});
    row("rollover-out-of-a-folder-with-leading-zeros", "ABC",
        {"0099ABC/", "099ABC/", "99ABC/", "99ABC/DCF_9999.jpg"}, "", "", 1, "99ABC/DCF_0001.jpg",
        {"100ABC/"});
    row("rollover-behind-folder-999", "ABC", {"999ABC/", "999ABC/DCF_9999.jpg"}, "", "", 1,
        "999ABC/DCF_0001.jpg", {"1000ABC/"});
    row("rollover-behind-the-largest-number-there-is", "ABC",
        {"2147483647ABC/", "2147483647ABC/DCF_9999.jpg"}, "", "", 1, "2147483647ABC/DCF_0001.jpg",
        {"-2147483648ABC/"});
    row("rollover-where-a-file-is-in-the-way", "ABC", {"100ABC/", "100ABC/DCF_9999.jpg", "101ABC"}, "", "", 1,
        "100ABC/DCF_0001.jpg", {});
    row("rollover-by-a-number-in-another-spelling", "ABC", {"+12ABC/", "12ABC/", "12ABC/DCF_9999.jpg"}, "",
        "", 1, "13ABC/DCF_0001.jpg", {"13ABC/"});
    row("current-folder-by-another-spelling", "ABC", {"007ABC/", "007ABC/DCF_0005.jpg"}, "D", "", 1,
        "7ABC/DCF_0001.jpg", {});
    row("suffix-in-lower-case-only", "ABC", {"100abc/", "100abc/DCF_0005.jpg"}, "ND", "N", 1,
        "100ABC/DCF_0001.jpg", {});
    row("text-in-front-of-the-suffix", "ABC", {"101ABC/", "101ABC/DCF_0002.jpg", "101ABC/DCF_7.jpg", "XABC/"},
        "NP", "N", 3, "101ABC/DCF_0003.jpg", {});
    row("suffix-twice", "ABC", {"1ABC2ABC/", "1ABC2ABC/DCF_0004.jpg"}, "D", "", 1, "12ABC/DCF_0001.jpg", {});
    row("negative-number-is-counted-on", "ABC", {"100ABC/", "100ABC/DCF_-005.jpg"}, "", "", -4,
        "100ABC/DCF_-004.jpg", {});
    row("file-in-the-place-of-folder-100", "ABC", {"100ABC"}, "D", "", 1, "100ABC/DCF_0001.jpg", {});
    row("empty-suffix", "", {"100/", "100/DCF_0004.jpg"}, "", "", 5, "100/DCF_0005.jpg", {});
    row("empty-suffix-and-nothing-there", "", {}, "NND", "NN", 1, "100/DCF_0001.jpg", {});
    row("empty-suffix-and-other-folders-only", "", {"MISC/"}, "NNND", "NNN", 1, "100/DCF_0001.jpg", {});
    row("empty-suffix-and-rollover", "", {"100/", "100/DCF_9999.wav"}, "", "", 1, "101/DCF_0001.jpg",
        {"101/"});
    row("suffix-that-is-no-wildcard", "A[", {}, "", "", 1, "100A[/DCF_0001.jpg", {"100A[/"});
    row("suffix-that-misses-itself", "A[B]", {"105A[B]/", "105A[B]/DCF_0004.jpg"}, "", "", 1,
        "100A[B]/DCF_0001.jpg", {"100A[B]/"});
    row("suffix-with-a-marker", "%1", {"100%1/", "100%1/DCF_0004.jpg"}, "", "", 5, "100DCF_/0005jpg.%4", {});
    row("suffix-beyond-ascii", utf8("\u00c4"), {"100\u00c4/", "100\u00c4/DCF_0004.jpg"}, "", "", 5,
        "100\u00c4/DCF_0005.jpg", {});
}

void FileNumberingTest::next()
{
    QFETCH(QString, suffix);
    QFETCH(Tree, before);
    QFETCH(QString, diagnostics);
    QFETCH(QString, diagnosticsOfTheName);
    QFETCH(int, number);
    QFETCH(QString, name);
    QFETCH(Tree, created);
    Tree after = before + created;
    std::sort(after.begin(), after.end());
    const auto expand = [&](const QString &letters, const QString &location) {
        QByteArray text;
        for (const QChar letter : letters) {
            text += letter == 'N'   ? noFolderNumber(1)
                    : letter == 'P' ? noFileNumber(1)
                                    : missingFolder(location + "/" + name.section('/', 0, 0));
        }
        return text;
    };
    for (const bool wholeName : {false, true}) {
        const Storages storages(suffix);
        makeTree(storages.sd(), before);
        QVERIFY(QDir().mkpath(storages.sd()));
        StandardErrorCapture capture;
        if (wholeName)
            QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE), storages.sd() + "/" + name);
        else
            QCOMPARE(NEXT_FILE_NUM(STORAGE_SD), number);
        QCOMPARE(capture.take(), expand(wholeName ? diagnosticsOfTheName : diagnostics, storages.sd()));
        QCOMPARE(tree(storages.sd()), after);
    }
}

void FileNumberingTest::extensionOfTheNextFile_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("ending");
    QTest::newRow("image") << 16 << "DCF_0008.jpg";
    QTest::newRow("jpeg") << 17 << "DCF_0008.jpg";
    QTest::newRow("png") << 18 << "DCF_0008.png";
    QTest::newRow("thumbnail") << 20 << "DCF_0008.thumb";
    QTest::newRow("video") << 32 << "DCF_0008.avi";
    QTest::newRow("avi") << 33 << "DCF_0008.avi";
    QTest::newRow("matroska") << 34 << "DCF_0008.mkv";
    QTest::newRow("audio-is-avi") << 64 << "DCF_0008.avi";
    QTest::newRow("wav") << 65 << "DCF_0008.wav";
    QTest::newRow("folder") << 128 << "DCF_0008.";
    QTest::newRow("unknown") << -1 << "DCF_0008.";
    QTest::newRow("any-other-value") << 1000 << "DCF_0008.";
}

void FileNumberingTest::extensionOfTheNextFile()
{
    QFETCH(int, type);
    QFETCH(QString, ending);
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0003.avi", "100ABC/DCF_0007.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, static_cast<eFileTypes>(type)), storages.sd() + "/100ABC/" + ending);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()), Tree({"100ABC/", "100ABC/DCF_0003.avi", "100ABC/DCF_0007.jpg"}));
}

void FileNumberingTest::freshStorage()
{
    for (const bool wholeName : {false, true}) {
        const Storages storages;
        StandardErrorCapture capture;
        if (wholeName) {
            QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_VIDEO_AVI), storages.sd() + "/100ABC/DCF_0001.avi");
        } else {
            QCOMPARE(NEXT_FILE_NUM(STORAGE_SD), 1);
        }
        QCOMPARE(capture.take(), missingLocation(storages.sd()));
        QCOMPARE(tree(storages.path()), Tree({"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
    }
}

void FileNumberingTest::sameNameUntilTheFileIsWritten()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/"});
    StandardErrorCapture capture;
    const QString first = NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE_JPEG);
    QCOMPARE(first, storages.sd() + "/100ABC/DCF_0001.jpg");
    QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE_JPEG), first);
    QVERIFY(!QFile::exists(first));
    writeFile(first);
    QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE_JPEG), storages.sd() + "/100ABC/DCF_0002.jpg");
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::numbersFollowWhatLiesOnTheStorage()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.jpg", "100ABC/DCF_0003.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(NEXT_FILE_NUM(STORAGE_SD), 4);
    QVERIFY(QFile::remove(storages.sd() + "/100ABC/DCF_0003.jpg"));
    QCOMPARE(NEXT_FILE_NUM(STORAGE_SD), 3);
    QVERIFY(QFile::remove(storages.sd() + "/100ABC/DCF_0001.jpg"));
    QCOMPARE(NEXT_FILE_NUM(STORAGE_SD), 3);
    writeFile(storages.sd() + "/100ABC/DCF_0500.wav");
    QCOMPARE(NEXT_FILE_NUM(STORAGE_SD), 501);
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::rolloverIntoAnEmptyFolder()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_9999.jpg"});
    StandardErrorCapture capture;
    const QString name = NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE_JPEG);
    QCOMPARE(name, storages.sd() + "/101ABC/DCF_0001.jpg");
    QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE_JPEG), name);
    QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 101), 0);
    writeFile(name);
    QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_AUDIO_WAV), storages.sd() + "/101ABC/DCF_0002.wav");
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()), Tree({"100ABC/", "100ABC/DCF_9999.jpg", "101ABC/", "101ABC/DCF_0001.jpg"}));
}

void FileNumberingTest::usedUpNumbersRepeat()
{
    const Storages storages;
    makeTree(storages.sd(), {"999ABC/DCF_9999.jpg"});
    StandardErrorCapture capture;
    for (int call = 0; call < 3; ++call) {
        const QString name = NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE_JPEG);
        QCOMPARE(name, storages.sd() + "/999ABC/DCF_0001.jpg");
        writeFile(name);
    }
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()),
             Tree({"1000ABC/", "999ABC/", "999ABC/DCF_0001.jpg", "999ABC/DCF_9999.jpg"}));
}

void FileNumberingTest::eachStorageIsItsOwn()
{
    const Storages storages;
    makeTree(storages.location(STORAGE_MMC), {"101ABC/DCF_0001.jpg"});
    makeTree(storages.location(STORAGE_SD), {"102ABC/DCF_0002.jpg"});
    makeTree(storages.location(STORAGE_USB), {"103ABC/DCF_0003.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(NEXT_FILE_NAME(STORAGE_MMC, FILE_TYPE_IMAGE),
             storages.location(STORAGE_MMC) + "/101ABC/DCF_0002.jpg");
    QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE), storages.sd() + "/102ABC/DCF_0003.jpg");
    QCOMPARE(NEXT_FILE_NAME(STORAGE_USB, FILE_TYPE_IMAGE),
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
        QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE), root + "/one/x/101ABC/DCF_0006.jpg");
    }
    const CurrentDirectory current(root + "/two");
    QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE), root + "/two/x/102ABC/DCF_0001.jpg");
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::unsupportedStorageWorksInTmp()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto answer = withEmptyTmp([] {
        makeTree("/tmp", {"100ABC/DCF_9999.jpg"});
        const int last = LAST_FILE_NUM(anyStorage(1000), 100);
        const int number = NEXT_FILE_NUM(anyStorage(-1));
        const QString name = NEXT_FILE_NAME(anyStorage(3), FILE_TYPE_IMAGE);
        return QString("%1 %2 %3 %4")
            .arg(last)
            .arg(number)
            .arg(name, QString(tree("/tmp").join(' ')))
            .toUtf8();
    });
    if (!answer)
        QSKIP("this user may not mount");
    QCOMPARE(*answer, QByteArray("9999 1 /tmp/101ABC/DCF_0001.jpg 100ABC/ 100ABC/DCF_9999.jpg 101ABC/"));
    QCOMPARE(capture.take(), QByteArray());
}

void FileNumberingTest::readOnlyMedium_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("missing");
    QTest::newRow("without-numbered-folders") << Tree{"MISC/"} << "/100ABC/DCF_0001.jpg" << true;
    QTest::newRow("with-a-file") << Tree{"100ABC/", "100ABC/DCF_0004.jpg"} << "/100ABC/DCF_0005.jpg" << false;
    QTest::newRow("rollover-fails") << Tree{"100ABC/", "100ABC/DCF_9999.jpg"} << "/100ABC/DCF_0001.jpg"
                                    << false;
}

void FileNumberingTest::readOnlyMedium()
{
    QFETCH(Tree, before);
    QFETCH(QString, name);
    QFETCH(bool, missing);
    const Storages storages;
    makeTree(storages.sd(), before);
    StandardErrorCapture capture;
    const auto answer = onReadOnlyMedium(storages.path(),
                                         [] { return NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_IMAGE).toUtf8(); });
    if (!answer)
        QSKIP("this user may not mount");
    QCOMPARE(*answer, (storages.sd() + name).toUtf8());
    QCOMPARE(capture.take(), missing ? missingFolder(storages.sd() + "/100ABC") : QByteArray());
    QCOMPARE(tree(storages.sd()), before);
}

namespace {

QByteArray randomFile(QRandomGenerator &random)
{
    static const Tree HEADS = {"DCF_",
                               "DCF_",
                               "DCF_",
                               "DCF_",
                               "dcf_",
                               "DCF_DCF_",
                               "DCF",
                               ".DCF_",
                               "XDCF_",
                               "DCF_\u00e4",
                               "\xef\xbb\xbf"
                               "DCF_",
                               "DCF_\xff"};
    static const Tree NUMBERS = {"0001", "0009", "9998",         "9999",       "12345",  "7",    "007",
                                 "+012", " 012", "012 ",         "-003",       "01\n2",  "ABCD", "",
                                 "1 23", "99",   "\u0661\u0662", "\U0001F4F7", "\uff61", "0000"};
    static const Tree TAILS = {".jpg",      ".png", ".avi",     ".mkv",   ".wav",
                               ".JPG",      ".Wav", ".thumb",   ".txt",   ".jpg\n",
                               ".m\u212av", "jpg",  ".jpg.txt", "_1.jpg", ".\u017fpg"};
    static const Tree KINDS = {"", "", "", "", "", "", "/", " -> none"};
    return Reference::oneOf(random, HEADS) + Reference::oneOf(random, NUMBERS)
           + Reference::oneOf(random, TAILS) + Reference::oneOf(random, KINDS);
}

/// One folder or several, that of @p suffix first; later ones may be the current folder.
Tree randomLocation(QRandomGenerator &random, const QByteArray &suffix)
{
    QMap<QByteArray, QByteArray> entries; // by the name alone: an entry is of one kind
    static const Tree FOLDERS = {"100", "100", "100", "101", "999", "1000", "007", "X"};
    for (int i = random.bounded(8); i > 0; --i) {
        const QByteArray folder = Reference::oneOf(random, FOLDERS) + suffix + "/";
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
    const QStringList suffixes = {"ABC", "ABC", "ABC", "",  "A*", "A[B]",         "A[",
                                  "k",   "%1",  "A\n", "0", "\\", utf8("\u00c4"), "A?"};
    for (int round = 0; round < 200; ++round) {
        const QString suffix = Reference::oneOf(random, suffixes);
        const Storages storages(suffix);
        const Tree before = randomLocation(random, suffix.toUtf8());
        makeTree(storages.location(STORAGE_MMC), before);
        makeTree(storages.sd(), before);
        const Reference::Storage reference = {QDir(storages.location(STORAGE_MMC)), suffix};
        StandardErrorCapture capture;
        int expectedLast = 0;
        QString expectedName;
        {
            const Reference::QuietQt quiet;
            expectedLast = Reference::lastFileNum(reference, 100);
            expectedName = Reference::nextFileName(reference, "mkv").replace("/mmc/", "/sd/");
        }
        const QByteArray expectedText = capture.take().replace("/mmc/", "/sd/");
        QCOMPARE(LAST_FILE_NUM(STORAGE_SD, 100), expectedLast);
        QCOMPARE(NEXT_FILE_NAME(STORAGE_SD, FILE_TYPE_VIDEO_MKV), expectedName);
        QCOMPARE(capture.take(), expectedText);
        QCOMPARE(tree(storages.sd()), tree(storages.location(STORAGE_MMC)));
    }
}

QTEST_GUILESS_MAIN(FileNumberingTest)
#include "tst_filenumbering.moc"
