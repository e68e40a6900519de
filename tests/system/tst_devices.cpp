// SPDX-License-Identifier: MIT
#include "device.h"

#include "testsupport.h"

#include <QJsonObject>
#include <QtTest>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <memory>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

#define NEED(fileSystem)                                                       \
    if (const QString why = whyNot(anyFileSystem(fileSystem)); !why.isEmpty()) \
    QSKIP(qPrintable(why))

namespace {

constexpr int SKIPPED = 77;
constexpr qint64 NEW_YEAR = 1577836800; // FAT stores times in units of two seconds

struct Name {
    FileSystem fileSystem;
    const char *name;
};

constexpr Name FILE_SYSTEMS[] = {{EXT4, "ext4"}, {EXFAT, "exfat"}, {FAT16, "fat16"}, {FAT32, "fat32"}};

FileSystem anyFileSystem(int value)
{
    return static_cast<FileSystem>(value);
}

void addFileSystems()
{
    QTest::addColumn<int>("fileSystem");
    for (const Name &row : FILE_SYSTEMS)
        QTest::newRow(row.name) << int(row.fileSystem);
}

/// Bytes that differ from one position to the next, so that any part of a file can be identified.
QByteArray content(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 31 % 251);
    return bytes;
}

qint64 modifiedSeconds(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mtim.tv_sec : 0;
}

/// Writes a file until the file system is full.
void fillUp(const QString &path)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    for (int length = 256 * 1024; length >= 512;) {
        if (file.write(QByteArray(length, 'f')) <= 0)
            length /= 2;
    }
    ::fsync(file.handle());
}

/// Returns whether @p text consists of diagnostic lines of the library.
bool isDiagnostic(const QByteArray &text)
{
    const QList<QByteArray> lines = text.split('\n');
    return std::all_of(lines.begin(), lines.end(), [](const QByteArray &line) {
        return line.isEmpty() || (line.startsWith("\x1b[36m ") && line.endsWith(" \x1b[0m"));
    });
}

} // namespace

/// The library on the file systems of memory cards, where their behaviour differs.
class DevicesTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void capacity_data() { addFileSystems(); }
    void capacity();
    void recording_data() { addFileSystems(); }
    void recording();
    void listing_data() { addFileSystems(); }
    void listing();
    void emptySuffix_data() { addFileSystems(); }
    void emptySuffix();
    void transfer_data();
    void transfer();
    void namesInDifferentCase_data();
    void namesInDifferentCase();
    void namesOutsideAscii_data() { addFileSystems(); }
    void namesOutsideAscii();
    void invalidName_data();
    void invalidName();
    void fullDevice_data() { addFileSystems(); }
    void fullDevice();
    void readOnly_data() { addFileSystems(); }
    void readOnly();
    void readOnlyWithoutFolders_data() { addFileSystems(); }
    void readOnlyWithoutFolders();
    void removed_data() { addFileSystems(); }
    void removed();
    void unmounted_data() { addFileSystems(); }
    void unmounted();
    void everythingDeleted_data() { addFileSystems(); }
    void everythingDeleted();

private:
    Device &insert(eStorageType storage, int fileSystem);
    QString mountPoint(eStorageType storage) const { return QFileInfo(mStorages->location(storage)).path(); }
    QString sd() const { return mStorages->sd(); }

    std::unique_ptr<Storages> mStorages;
    std::vector<std::unique_ptr<Device>> mDevices;
    std::unique_ptr<StandardErrorCapture> mStandardError;
};

void DevicesTest::init()
{
    mStorages = std::make_unique<Storages>();
    mStandardError = std::make_unique<StandardErrorCapture>();
}

void DevicesTest::cleanup()
{
    const QByteArray printed = mStandardError->take();
    mStandardError.reset();
    mDevices.clear();
    mStorages.reset();
    QCOMPARE(printed, QByteArray());
}

/// Mounts a new device at the parent of the location of @p storage, and configures it as its block device.
Device &DevicesTest::insert(eStorageType storage, int fileSystem)
{
    mDevices.push_back(std::make_unique<Device>(anyFileSystem(fileSystem), mountPoint(storage)));
    (storage == STORAGE_SD ? VornFileHandler::mSdBlk : VornFileHandler::mUsbBlk) = mDevices.back()->block();
    return *mDevices.back();
}

void DevicesTest::capacity()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    insert(STORAGE_SD, fileSystem);
    writeFile(sd() + "/100ABC/DCF_0001.avi", content(3000000));
    ::sync();
    struct statvfs status = {};
    QCOMPARE(::statvfs(QFile::encodeName(sd()).constData(), &status), 0);
    const qint64 size = qint64(status.f_blocks * status.f_frsize + 1023) / 1024 * 1024;
    const qint64 free = qint64(status.f_bavail * status.f_frsize + 1023) / 1024 * 1024;
    const float ratio = static_cast<float>(free) / static_cast<float>(size);
    if (fileSystem == FAT32 && isInUserSpace(FAT32))
        QCOMPARE(size, 0); // fusefat does not report a size
    else
        QVERIFY(free > 0 && size - free >= 3000000);

    QVERIFY(VornFileHandler::isMounted(STORAGE_SD));
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), size);
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), free);
    QCOMPARE(VornFileHandler::getRemainingPercent(STORAGE_SD),
             size == 0 ? 0 : static_cast<int>(::roundf(ratio * 100.0F)));
    QCOMPARE(VornFileHandler::getUsedBytes(STORAGE_SD),
             static_cast<qint64>(static_cast<float>(size) - static_cast<float>(free)));
    QVERIFY(!VornFileHandler::isMounted(STORAGE_USB));
}

void DevicesTest::recording()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    struct Recording {
        const char *name;
        eFileTypes type;
        int jsonType;
    };
    // A thumbnail does not use up its number: the next photo has the same number.
    constexpr Recording RECORDINGS[] = {
        {"100ABC/DCF_9999.avi", FILE_TYPE_VIDEO_AVI, 32}, {"101ABC/DCF_0001.png", FILE_TYPE_IMAGE_PNG, 16},
        {"101ABC/DCF_0002.mkv", FILE_TYPE_VIDEO_MKV, 34}, {"101ABC/DCF_0003.wav", FILE_TYPE_AUDIO_WAV, 64},
        {"101ABC/DCF_0004.thumb", FILE_TYPE_THUMB, 20},   {"101ABC/DCF_0004.jpg", FILE_TYPE_IMAGE_JPEG, 16},
    };
    insert(STORAGE_SD, fileSystem);
    makeTree(sd(), {"100ABC/DCF_9998.jpg at " + QByteArray::number(NEW_YEAR)});

    qint64 seconds = NEW_YEAR;
    for (const Recording &recording : RECORDINGS) {
        const QString path = VornFileHandler::getNextFileName(STORAGE_SD, recording.type);
        QCOMPARE(path, sd() + "/" + recording.name);
        writeFile(path, content(1000));
        setModified(QFile::encodeName(path), (seconds += 60) * 1000);
    }

    QCOMPARE(tree(sd()), (Tree{"100ABC/", "100ABC/DCF_9998.jpg", "100ABC/DCF_9999.avi", "101ABC/",
                               "101ABC/DCF_0001.png", "101ABC/DCF_0002.mkv", "101ABC/DCF_0003.wav",
                               "101ABC/DCF_0004.jpg", "101ABC/DCF_0004.thumb"}));
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 101);
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 100), 9999);
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 101), 4);
    QCOMPARE(VornFileHandler::getMediaFileCount(STORAGE_SD), 6);
    QCOMPARE(fileNames(VornFileHandler::getImageList(STORAGE_SD, true, DIRECTORY_FILTER_DCIM)),
             (QStringList{"DCF_9998.jpg", "DCF_0004.thumb", "DCF_0004.jpg", "DCF_0001.png"}));
    QCOMPARE(fileNames(VornFileHandler::getVideoList(STORAGE_SD, DIRECTORY_FILTER_DCIM)),
             (QStringList{"DCF_9999.avi", "DCF_0002.mkv"}));
    QCOMPARE(fileNames(VornFileHandler::getAudioList(STORAGE_SD, DIRECTORY_FILTER_DCIM)),
             QStringList{"DCF_0003.wav"});

    QJsonArray expected;
    for (const Recording &recording : RECORDINGS) {
        const QFileInfo file(sd() + "/" + recording.name);
        const QDateTime created = file.birthTime().isValid() ? file.birthTime() : file.metadataChangeTime();
        expected.append(QJsonObject{{"filename", recording.name},
                                    {"size", "0x3e8"},
                                    {"type", recording.jsonType},
                                    {"moddate", created.date().toString("yyyy-MM-dd")},
                                    {"modtime", created.time().toString("HH:mm:ss")}});
    }
    QVERIFY(QFile::remove(sd() + "/100ABC/DCF_9998.jpg"));
    QCOMPARE(VornFileHandler::getJSONDirectoryContents(STORAGE_SD), expected);
}

/// Some of these file systems do not report the types of the entries of a directory.
void DevicesTest::listing()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    constexpr int FILES = 60;
    insert(STORAGE_SD, fileSystem);
    QStringList oldestFirst;
    QStringList byName;
    for (int number = 1; number <= FILES; ++number) {
        const QString name = QString("DCF_%1.JPG").arg(number, 4, 10, QChar('0'));
        const QByteArray time = QByteArray::number(NEW_YEAR - number * 2);
        makeTree(sd(), {"100ABC/" + name.toUtf8() + " at " + time + " = " + content(number)});
        oldestFirst.prepend(name);
        byName.append(name);
    }
    makeTree(sd(), {"100ABC/.hidden.jpg", "100ABC/DCF_0100.jpg/DCF_0101.jpg", "DCF_0102.jpg", "MISC/",
                    ".hiddenABC/"});

    QCOMPARE(fileNames(VornFileHandler::getImageList(STORAGE_SD, false, DIRECTORY_FILTER_DCIM)), oldestFirst);
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(sd() + "/100ABC", QStringList(), QDir::Name)),
             byName);
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 100), FILES);
    QCOMPARE(VornFileHandler::getMediaFileCount(STORAGE_SD), FILES);
    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), QStringList{"100ABC"});
    QCOMPARE(fileNames(VornFileHandler::getFolders(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM)),
             QStringList{"MISC"});
    const QJsonArray json = VornFileHandler::getJSONImageList(STORAGE_SD, true);
    QCOMPARE(json.size(), FILES);
    QCOMPARE(json.first().toObject().value("size").toString(), QString("0x3c"));
}

void DevicesTest::emptySuffix()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    insert(STORAGE_SD, fileSystem);
    VornFileHandler::mFolderSuffix.clear();
    makeTree(sd(), {"MISC/DCF_0001.jpg", "DCF_0002.jpg"});

    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), (QStringList{".", "..", "MISC"}));
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 100);
    QCOMPARE(mStandardError->take(), noFolderNumberLine().repeated(3));
    QCOMPARE(VornFileHandler::getMediaFileCount(STORAGE_SD), 2);
}

void DevicesTest::transfer_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");

    for (const Name &from : FILE_SYSTEMS) {
        for (const Name &to : FILE_SYSTEMS)
            QTest::addRow("%s-to-%s", from.name, to.name) << int(from.fileSystem) << int(to.fileSystem);
    }
}

void DevicesTest::transfer()
{
    QFETCH(int, from);
    QFETCH(int, to);
    NEED(from);
    NEED(to);
    insert(STORAGE_SD, from);
    insert(STORAGE_USB, to);
    const QHash<QString, QByteArray> contents = {
        {"DCF_0001.jpg", content(300000)}, {"DCF_0002.avi", content(1)}, {"my photo.b.c", content(4096)}};
    QStringList files;
    for (auto file = contents.begin(); file != contents.end(); ++file) {
        files.append(sd() + "/100ABC/" + file.key());
        writeFile(files.last(), file.value());
        setModified(QFile::encodeName(files.last()), NEW_YEAR * 1000);
    }
    const Tree before = tree(sd());

    VornFileHandler::copyToFolder(files, STORAGE_USB, "200ABC");
    QCOMPARE(tree(sd()), before);
    VornFileHandler::moveToFolder(files, STORAGE_USB, "200ABC");

    QCOMPARE(tree(sd()), Tree{"100ABC/"});
    const QString folder = mStorages->location(STORAGE_USB) + "/200ABC/";
    QCOMPARE(tree(folder), (Tree{"DCF_0001.jpg", "DCF_0001_1.jpg", "DCF_0002.avi", "DCF_0002_1.avi",
                                 "my photo.b.c", "my photo_1.c"}));
    for (const QString name : {"DCF_0001.jpg", "DCF_0002.avi", "my photo.b.c"}) {
        const QString second = name.section('.', 0, 0) + "_1." + name.section('.', -1);
        for (const QString &copy : {folder + name, folder + second}) {
            QVERIFY(contentOf(copy) == contents.value(name));
            QCOMPARE(modifiedSeconds(copy), NEW_YEAR);
        }
    }
}

void DevicesTest::namesInDifferentCase_data()
{
    QTest::addColumn<int>("fileSystem");
    QTest::addColumn<bool>("areTheSame");
    row("ext4", EXT4, false);
    row("exfat", EXFAT, true);
    row("fat16", FAT16, true);
    row("fat32", FAT32, true);
}

void DevicesTest::namesInDifferentCase()
{
    QFETCH(int, fileSystem);
    QFETCH(bool, areTheSame);
    NEED(fileSystem);
    insert(STORAGE_SD, fileSystem);
    makeTree(sd(), {"100ABC/dcf_0001.JPG = old"});
    makeTree(mountPoint(STORAGE_USB), {"DCF_0001.jpg = new"});

    // The number in a name in lower case is not read. On a case-insensitive file system, the host therefore
    // receives a name that is taken and must check before it writes.
    const QString next = VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG);
    QCOMPARE(mStandardError->take(), noFileNumberLine());
    QCOMPARE(next, sd() + "/100ABC/DCF_0001.jpg");
    QCOMPARE(QFile::exists(next), areTheSame);

    VornFileHandler::moveToFolder({mountPoint(STORAGE_USB) + "/DCF_0001.jpg"}, STORAGE_SD, "100ABC");

    const QByteArray name = areTheSame ? "DCF_0001_1.jpg" : "DCF_0001.jpg";
    QCOMPARE(treeWithContents(sd()),
             (Tree{"100ABC/", "100ABC/" + name + " = new", "100ABC/dcf_0001.JPG = old"}));
}

void DevicesTest::invalidName_data()
{
    QTest::addColumn<int>("fileSystem");
    QTest::addColumn<Tree>("copied");
    row("ext4", EXT4, Tree{"a:b.jpg", "c.jpg"});
    row("exfat", EXFAT, Tree{"c.jpg"});
    row("fat16", FAT16, Tree{"c.jpg"});
    row("fat32", FAT32, Tree{"c.jpg"});
}

void DevicesTest::namesOutsideAscii()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    if ((fileSystem == FAT16 || fileSystem == FAT32) && isInUserSpace(anyFileSystem(fileSystem)))
        QSKIP("fusefat refuses such names");
    insert(STORAGE_SD, fileSystem);
    makeTree(mountPoint(STORAGE_USB), {"\u00e4\u65e5.jpg = 1", "\U0001F4F7.avi = 2"});
    const QString source = mountPoint(STORAGE_USB);

    VornFileHandler::moveToFolder({source + "/\u00e4\u65e5.jpg", source + "/\U0001F4F7.avi"}, STORAGE_SD,
                                  "100ABC");

    QCOMPARE(treeWithContents(sd()),
             Tree({"100ABC/", "100ABC/\u00e4\u65e5.jpg = 1", "100ABC/\U0001F4F7.avi = 2"}));
    QCOMPARE(fileNames(VornFileHandler::getImageList(STORAGE_SD, false, DIRECTORY_FILTER_DCIM)),
             QStringList("\u00e4\u65e5.jpg"));
    QCOMPARE(fileNames(VornFileHandler::getVideoList(STORAGE_SD, DIRECTORY_FILTER_DCIM)),
             QStringList("\U0001F4F7.avi"));
}

void DevicesTest::invalidName()
{
    QFETCH(int, fileSystem);
    QFETCH(Tree, copied);
    NEED(fileSystem);
    insert(STORAGE_SD, fileSystem);
    const QString source = mountPoint(STORAGE_USB);
    makeTree(source, {"a:b.jpg = 1", "c.jpg = 2"});

    VornFileHandler::moveToFolder({source + "/a:b.jpg", source + "/c.jpg"}, STORAGE_SD, "100ABC");

    QCOMPARE(tree(sd() + "/100ABC"), copied);
    QCOMPARE(tree(source), Tree());
}

/// A file that cp could not complete remains, and a move deletes the source nevertheless. The operations
/// report nothing, so the host must check the free space and compare the files before it relies on them.
void DevicesTest::fullDevice()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    insert(STORAGE_SD, fileSystem);
    const QString source = mountPoint(STORAGE_USB) + "/a.avi";
    const QByteArray whole = content(1000000);
    writeFile(source, whole);
    makeTree(sd(), {"100ABC/"});
    fillUp(sd() + "/filler");
    QFile filler(sd() + "/filler");
    QVERIFY(filler.resize(filler.size() - 200000));
    const QString copy = sd() + "/100ABC/a.avi";

    VornFileHandler::copyToFolder({source}, STORAGE_SD, "100ABC");

    QCOMPARE(tree(sd() + "/100ABC"), Tree{"a.avi"});
    QVERIFY(contentOf(copy).size() < whole.size());
    QVERIFY(whole.startsWith(contentOf(copy)));
    QVERIFY(contentOf(source) == whole);

    VornFileHandler::moveToFolder({source}, STORAGE_SD, "100ABC");

    QCOMPARE(tree(mountPoint(STORAGE_USB)), Tree());
    for (const QFileInfo &file : VornFileHandler::getDirectoryContents(sd() + "/100ABC", {}, QDir::Name))
        QVERIFY(file.size() < whole.size());
}

void DevicesTest::readOnly()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    Device &device = insert(STORAGE_SD, fileSystem);
    makeTree(sd(), {"100ABC/DCF_0007.jpg = old", "101ABC/DCF_9999.jpg = old"});
    makeTree(mountPoint(STORAGE_USB), {"a.jpg = new"});
    const QString source = mountPoint(STORAGE_USB) + "/a.jpg";
    device.remountReadOnly();
    const Tree before = treeWithContents(sd());

    // The next folder cannot be created, so the numbers start again in the last folder.
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG),
             sd() + "/101ABC/DCF_0001.jpg");
    QCOMPARE(VornFileHandler::getLastFileNum(STORAGE_SD, 100), 7);
    QCOMPARE(fileNames(VornFileHandler::getImageList(STORAGE_SD, true, DIRECTORY_FILTER_DCIM)),
             (QStringList{"DCF_0007.jpg", "DCF_9999.jpg"}));
    QCOMPARE(VornFileHandler::getMediaFileCount(STORAGE_SD), 2);
    QVERIFY(VornFileHandler::isMounted(STORAGE_SD));

    VornFileHandler::copyToFolder({source}, STORAGE_SD, "100ABC");
    VornFileHandler::copyToFolder({source}, STORAGE_SD, "102ABC");
    VornFileHandler::deleteFile(sd() + "/100ABC/DCF_0007.jpg");
    VornFileHandler::deleteFolder(STORAGE_SD, "100ABC");
    VornFileHandler::deleteAllFiles(STORAGE_SD);
    VornFileHandler::moveToFolder({sd() + "/100ABC/DCF_0007.jpg"}, STORAGE_USB, "copies");

    QCOMPARE(treeWithContents(sd()), before);
    QCOMPARE(treeWithContents(mountPoint(STORAGE_USB)),
             (Tree{"DCIM/", "DCIM/copies/", "DCIM/copies/DCF_0007.jpg = old", "a.jpg = new"}));
    VornFileHandler::moveToFolder({source}, STORAGE_SD, "100ABC");
    QVERIFY(!QFile::exists(source)); // lost, as after any failed copy
}

void DevicesTest::readOnlyWithoutFolders()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    Device &device = insert(STORAGE_SD, fileSystem);
    makeTree(sd(), {"MISC/"});
    device.remountReadOnly();

    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), QStringList());
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 100);
    QCOMPARE(VornFileHandler::getMediaFileCount(STORAGE_SD), 0);
    QCOMPARE(mStandardError->take(), QByteArray());
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG),
             sd() + "/100ABC/DCF_0001.jpg");
    QCOMPARE(mStandardError->take(), missingDirectoryLine(sd() + "/100ABC"));
    QCOMPARE(tree(sd()), Tree{"MISC/"});
}

void DevicesTest::removed()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    Device &device = insert(STORAGE_SD, fileSystem);
    insert(STORAGE_USB, EXT4);
    const QString other = mStorages->location(STORAGE_USB) + "/100ABC/";
    for (const QString name : {"DCF_0001.jpg", "DCF_0002.jpg"}) {
        writeFile(sd() + "/100ABC/" + name, content(100000));
        writeFile(other + name, content(100));
    }
    if (!device.pullOut())
        QSKIP("the kernel cannot simulate it here; see tests/powercut/pulled");

    for (const eDIRECTORY_FILTER filter : {DIRECTORY_FILTER_DCIM, DIRECTORY_FILTER_NON_DCIM}) {
        VornFileHandler::getImageList(STORAGE_SD, true, filter);
        VornFileHandler::getVideoList(STORAGE_SD, filter);
    }
    VornFileHandler::getJSONDirectoryContents(STORAGE_SD);
    VornFileHandler::getMediaFileCount(STORAGE_SD);
    QVERIFY(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_AVI).startsWith(sd() + "/100ABC/"));
    QVERIFY(VornFileHandler::getRemainingBytes(STORAGE_SD) >= 0);
    QVERIFY(VornFileHandler::getRemainingPercent(STORAGE_SD) >= 0);
    QVERIFY(VornFileHandler::getUsedBytes(STORAGE_SD) >= 0);
    VornFileHandler::deleteFile(sd() + "/100ABC/DCF_0001.jpg");
    // Neither copy succeeds, and the sources that can still be deleted are deleted.
    VornFileHandler::moveToFolder({sd() + "/100ABC/DCF_0002.jpg"}, STORAGE_USB, "100ABC");
    VornFileHandler::moveToFolder({other + "DCF_0002.jpg"}, STORAGE_SD, "100ABC");
    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QVERIFY(isDiagnostic(mStandardError->take()));

    QCOMPARE(tree(other), Tree{"DCF_0001.jpg"});
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_USB, FILE_TYPE_VIDEO_AVI), other + "DCF_0002.avi");
    device.unmount();
    QCOMPARE(tree(mountPoint(STORAGE_SD)), Tree());
}

/// An empty mount point cannot be distinguished from a new card: the library starts again on the file system
/// below. A host must call isMounted() first.
void DevicesTest::unmounted()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    Device &device = insert(STORAGE_SD, fileSystem);
    writeFile(sd() + "/105ABC/DCF_0001.jpg");
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 105);
    device.unmount();

    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE_JPEG),
             sd() + "/100ABC/DCF_0001.jpg");

    QCOMPARE(mStandardError->take(), missingLocationLine(sd()));
    QCOMPARE(tree(mountPoint(STORAGE_SD)), (Tree{"DCIM/", "DCIM/100ABC/"}));
}

void DevicesTest::everythingDeleted()
{
    QFETCH(int, fileSystem);
    NEED(fileSystem);
    insert(STORAGE_SD, fileSystem);
    makeTree(mountPoint(STORAGE_SD), {"DCIM/100ABC/DCF_0001.jpg = " + content(5000), "DCIM/MISC/a/b/c.txt",
                                      "DCIM/loose", "beside/file"});

    VornFileHandler::deleteFile(sd() + "/100ABC/DCF_0001.jpg");
    QVERIFY(!QFile::exists(sd() + "/100ABC/DCF_0001.jpg"));
    VornFileHandler::deleteAllFiles(STORAGE_SD);

    Tree left = tree(mountPoint(STORAGE_SD));
    left.removeOne("lost+found/");
    QCOMPARE(left, (Tree{"beside/", "beside/file"}));
}

int main(int argc, char *argv[])
{
    QString why = enterOwnMounts();
    const auto isPossible = [](const Name &row) { return whyNot(row.fileSystem).isEmpty(); };
    if (why.isEmpty() && std::none_of(std::begin(FILE_SYSTEMS), std::end(FILE_SYSTEMS), isPossible))
        why = "no file system can be created and mounted"; // otherwise all tests would be skipped, and pass
    if (!why.isEmpty()) {
        std::printf("tst_devices: skipped: %s\n", qPrintable(why));
        return SKIPPED;
    }
    qputenv("TZ", "UTC"); // fusefat writes times as UTC and reads them as local
    const QCoreApplication application(argc, argv);
    DevicesTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_devices.moc"
