// SPDX-License-Identifier: MIT
#include "standins.h"
#include "testsupport.h"

#include <QThread>
#include <QtTest>

#include <cstring>
#include <new>
#include <type_traits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

// Hosts are built against the layout, which tests/abi pins.
static_assert(std::is_standard_layout_v<Metadata> && sizeof(eFileTypes) == 4);

namespace {

using Values = QVector<int>;

/// Width, height, length, bitrate, frame rate.
Values mediaValues(const Metadata &record)
{
    return {record.mWidth, record.mHeight, record.mLength, record.mBitrate, record.mFramerate};
}

/// Images, thumbnails, videos, audio files.
Values counts(const Metadata &record)
{
    return {record.mImageCount, record.mThumbCount, record.mVideoCount, record.mAudioCount};
}

/// Every field except the counts, which are not copied.
QVariantList copied(const Metadata &record)
{
    return fieldsOf(record).mid(0, 10);
}

const Values FORMER_VALUES = {1, 2, 3, 4, 5};
const Values FORMER_COUNTS = {6, 7, 8, 9};

/// A record in memory that is not zero, so that its constructor must set every field.
class DirtyRecord
{
public:
    template <typename... Arguments>
    explicit DirtyRecord(Arguments &&...arguments)
    {
        std::memset(mMemory, 0x55, sizeof mMemory);
        mRecord = new (mMemory) Metadata(std::forward<Arguments>(arguments)...);
    }
    ~DirtyRecord() { mRecord->~Metadata(); }
    Q_DISABLE_COPY(DirtyRecord)

    const Metadata &record() const { return *mRecord; }

private:
    alignas(Metadata) unsigned char mMemory[sizeof(Metadata)];
    Metadata *mRecord = nullptr;
};

} // namespace

class MetadataTest : public QObject
{
    Q_OBJECT

private slots:
    void defaults();
    void categories_data();
    void categories();
    void setTypeStoresNothingElse();
    void assignmentLeavesTheCounts();
    void assignmentToItself();
    void copyHasNoCounts();
    void typesByName_data();
    void typesByName();
    void typeOfLinks();
    void valuesByType_data();
    void valuesByType();
    void valuesOneByOne_data();
    void valuesOneByOne();
    void typedConstructorSetsEveryField_data();
    void typedConstructorSetsEveryField();
    void fillsFromAFile();
    void fillsFromAFileOfUnknownType();
    void fillsFromAMissingFile();
    void fillsWithoutAnExistingFile_data();
    void fillsWithoutAnExistingFile();
    void setFileFollowsTheStoredType();
    void setFileReadsNameDatesAndSizeForEveryType_data();
    void setFileReadsNameDatesAndSizeForEveryType();
    void folderAfterAVideoKeepsTheValues();
    void fileAfterAFolderKeepsTheCounts();
    void summary_data();
    void summary();
    void summaryOfLargeFiles();
    void summaryOfALinkToAFolder();
    void summaryOfAMissingFolder_data();
    void summaryOfAMissingFolder();
    void contentRequiresAFolderRecord_data();
    void contentRequiresAFolderRecord();
    void sizeDoesNotRequireAFolderRecord_data();
    void sizeDoesNotRequireAFolderRecord();
};

void MetadataTest::defaults()
{
    const DirtyRecord dirty;
    QCOMPARE(copied(dirty.record()),
             (QVariantList{-1, QString(), qint64(0), QDateTime(), QDateTime(), 0, 0, 0, 0, 0}));
    QVERIFY(dirty.record().mFileName.isEmpty());
    QVERIFY(dirty.record().mCreated.isNull());
    QVERIFY(dirty.record().mLastModified.isNull());
    QCOMPARE(counts(dirty.record()), (Values{0, 0, 0, 0}));
    QCOMPARE(Metadata().getMediaCategory(), 240);
}

void MetadataTest::categories_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("expected");

    row("image", FILE_TYPE_IMAGE, 16);
    row("jpeg", FILE_TYPE_IMAGE_JPEG, 16);
    row("png", FILE_TYPE_IMAGE_PNG, 16);
    row("thumbnail", FILE_TYPE_THUMB, 16);
    row("video", FILE_TYPE_VIDEO, 32);
    row("avi", FILE_TYPE_VIDEO_AVI, 32);
    row("mkv", FILE_TYPE_VIDEO_MKV, 32);
    row("audio", FILE_TYPE_AUDIO, 64);
    row("wav", FILE_TYPE_AUDIO_WAV, 64);
    row("folder", FILE_TYPE_DIRECTORY, 128);
    row("unknown", FILE_TYPE_UNKNOWN, 240);
    row("zero", 0, 0);
    row("low-bits-only", 15, 0);
    row("high-bits", 0x7FFFFF25, 32);
}

void MetadataTest::categories()
{
    QFETCH(const int, type);
    QFETCH(const int, expected);
    Metadata record;
    record.setType(anyType(type));
    QCOMPARE(int(record.mType), type);
    QCOMPARE(record.getMediaCategory(), expected);
    QCOMPARE(int(record.mType), type);
}

void MetadataTest::setTypeStoresNothingElse()
{
    Metadata record;
    fillRecord(record);
    QVariantList expected = copied(record);
    expected[0] = 33;
    record.setType(FILE_TYPE_VIDEO_AVI);
    QCOMPARE(copied(record), expected);
    QCOMPARE(counts(record), FORMER_COUNTS);
}

void MetadataTest::assignmentLeavesTheCounts()
{
    Metadata target;
    fillRecord(target);
    Metadata source;
    fillRecord(source, 100);
    const QVariantList fields = copied(source);

    QCOMPARE(&(target = source), &target);
    QCOMPARE(copied(target), fields);
    QCOMPARE(counts(target), FORMER_COUNTS);
    QCOMPARE(copied(source), fields);
    QCOMPARE(counts(source), (Values{106, 107, 108, 109}));
}

void MetadataTest::assignmentToItself()
{
    Metadata record;
    fillRecord(record);
    const QVariantList fields = copied(record);
    const Metadata &same = record;
    record = same;
    QCOMPARE(copied(record), fields);
    QCOMPARE(counts(record), FORMER_COUNTS);
}

void MetadataTest::copyHasNoCounts()
{
    Metadata source;
    fillRecord(source);
    const DirtyRecord copy(source);
    QCOMPARE(copied(copy.record()), copied(source));
    QCOMPARE(counts(copy.record()), (Values{0, 0, 0, 0}));
    QCOMPARE(counts(source), FORMER_COUNTS);
}

void MetadataTest::typesByName_data()
{
    QTest::addColumn<QByteArray>("entry"); // "x/" is a folder
    QTest::addColumn<int>("expected");

    const auto row = [](const char *name, const char *entry, int expected) {
        QTest::newRow(name) << QByteArray(entry) << expected;
    };
    row("avi", "clip.avi", 32);
    row("mkv", "clip.mkv", 34);
    row("jpeg", "pic.jpg", 16);
    row("png", "pic.png", 16);
    row("thumbnail", "x.thumb", 20);
    row("wav", "rec.wav", 64);
    row("other-suffix", "notes.txt", -1);
    row("no-suffix", "README", -1);
    row("upper-case", "PIC.JPG", -1);
    row("mixed-case", "clip.Mkv", -1);
    row("longer-suffix", "pic.jpeg", -1);
    row("last-of-several-suffixes", "a.avi.wav", 64);
    row("trailing-dot", "a.avi.", -1);
    row("hidden-file-that-is-only-a-suffix", ".wav", 64);
    row("suffix-without-a-dot", "wav", -1);
    row("folder", "100ABC/", 128);
    row("folder-named-like-a-photo", "album.jpg/", 128);
    row("hidden-folder", ".x/", 128);
}

void MetadataTest::typesByName()
{
    QFETCH(const QByteArray, entry);
    QFETCH(const int, expected);
    const QTemporaryDir directory;
    const bool isFolder = entry.endsWith('/');
    makeTree(directory.path(), {isFolder ? entry : entry + " size 8"});
    StandIns programs;
    programs.add("ffprobe");

    StandardErrorCapture capture;
    Metadata record;
    const QFileInfo file(QDir::cleanPath(directory.filePath(QString::fromUtf8(entry))));
    VornFileHandler::getMetadata(file, record);
    QCOMPARE(int(record.mType), expected);
    QCOMPARE(record.mFileName, QString::fromUtf8(entry).remove('/'));
    QCOMPARE(record.mSize, isFolder ? 0 : 8);
    QCOMPARE(capture.take(), QByteArray());
}

void MetadataTest::typeOfLinks()
{
    const QTemporaryDir directory;
    makeTree(directory.path(),
             {"folder/a.wav size 8", "link.jpg -> folder", "b.wav -> folder/a.wav", "c.wav -> missing"});
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("link.jpg")), record);
    QCOMPARE(record.mType, FILE_TYPE_DIRECTORY);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("b.wav")), record);
    QCOMPARE(record.mType, FILE_TYPE_AUDIO);
    QCOMPARE(record.mSize, 8);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("c.wav")), record);
    QCOMPARE(record.mType, FILE_TYPE_AUDIO);
    QCOMPARE(record.mSize, 0);
}

void MetadataTest::valuesByType_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Values>("expected"); // initially 1, 2, 3, 4, 5
    QTest::addColumn<int>("probes");

    const Values image = {-1, -1, 3, 4, 5};
    const Values video = {640, 480, 60, 6000, 30};
    const Values audio = {1, 2, 60, 6000, 5};
    row("image", FILE_TYPE_IMAGE, image, 0);
    row("jpeg", FILE_TYPE_IMAGE_JPEG, image, 0);
    row("png", FILE_TYPE_IMAGE_PNG, image, 0);
    row("thumbnail", FILE_TYPE_THUMB, image, 0);
    row("video", FILE_TYPE_VIDEO, video, 1);
    row("avi", FILE_TYPE_VIDEO_AVI, video, 1);
    row("mkv", FILE_TYPE_VIDEO_MKV, video, 1);
    row("audio", FILE_TYPE_AUDIO, audio, 0);
    row("wav", FILE_TYPE_AUDIO_WAV, audio, 0);
    row("unknown", FILE_TYPE_UNKNOWN, FORMER_VALUES, 0);
    row("zero", 0, FORMER_VALUES, 0);
    row("bits-of-image-and-video", 48, FORMER_VALUES, 0);
    row("bits-of-video-and-audio", 96, FORMER_VALUES, 0);
    row("bits-of-audio-and-folder", 192, FORMER_VALUES, 0);
    row("video-with-higher-bits", 0x100 + 32, video, 1);
}

void MetadataTest::valuesByType()
{
    QFETCH(const int, type);
    QFETCH(const Values, expected);
    QFETCH(const int, probes);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.dat size 8"});
    StandIns programs;
    programs.add("ffprobe", programs.prints("640\n480\n"));

    StandardErrorCapture capture;
    Metadata record;
    fillRecord(record);
    record.set(anyType(type), QFileInfo(directory.filePath("a.dat")));
    QCOMPARE(int(record.mType), type);
    QCOMPARE(record.mFileName, QString("a.dat"));
    QCOMPARE(record.mSize, 8);
    QCOMPARE(mediaValues(record), expected);
    QCOMPARE(counts(record), FORMER_COUNTS);
    QCOMPARE(programs.calls("ffprobe").size(), probes);
    QCOMPARE(capture.take(), QByteArray());
}

void MetadataTest::valuesOneByOne_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Values>("expected"); // length, bitrate and frame rate, initially 3, 4, 5

    row("image", FILE_TYPE_IMAGE, Values{3, 4, 5});
    row("thumbnail", FILE_TYPE_THUMB, Values{3, 4, 5});
    row("video", FILE_TYPE_VIDEO, Values{60, 6000, 30});
    row("avi", FILE_TYPE_VIDEO_AVI, Values{60, 6000, 30});
    row("mkv", FILE_TYPE_VIDEO_MKV, Values{60, 6000, 30});
    row("audio", FILE_TYPE_AUDIO, Values{60, 6000, 5});
    row("wav", FILE_TYPE_AUDIO_WAV, Values{60, 6000, 5});
    row("folder", FILE_TYPE_DIRECTORY, Values{3, 4, 5});
    row("unknown", FILE_TYPE_UNKNOWN, Values{3, 4, 5});
}

void MetadataTest::valuesOneByOne()
{
    QFETCH(const int, type);
    QFETCH(const Values, expected);
    QFileInfo nothing;
    StandardErrorCapture capture;
    Values values;
    const auto set = {&Metadata::setLength, &Metadata::setBitrate, &Metadata::setFramerate};
    for (const auto operation : set) {
        Metadata record;
        fillRecord(record);
        record.setType(anyType(type));
        QVariantList fields = copied(record);
        (record.*operation)(nothing);
        const int field = 7 + values.size();
        values.append(copied(record).at(field).toInt());
        fields[field] = values.last();
        QCOMPARE(copied(record), fields);
        QCOMPARE(counts(record), FORMER_COUNTS);
    }
    QCOMPARE(values, expected);
    QCOMPARE(capture.take(), QByteArray());
}

void MetadataTest::typedConstructorSetsEveryField_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Values>("expected");

    const Values image = {-1, -1, 0, 0, 0};
    const Values video = {0, 0, 60, 6000, 30};
    const Values audio = {0, 0, 60, 6000, 0};
    const Values none = {0, 0, 0, 0, 0};
    row("image", FILE_TYPE_IMAGE, image);
    row("jpeg", FILE_TYPE_IMAGE_JPEG, image);
    row("png", FILE_TYPE_IMAGE_PNG, image);
    row("thumbnail", FILE_TYPE_THUMB, image);
    row("video", FILE_TYPE_VIDEO, video);
    row("avi", FILE_TYPE_VIDEO_AVI, video);
    row("mkv", FILE_TYPE_VIDEO_MKV, video);
    row("audio", FILE_TYPE_AUDIO, audio);
    row("wav", FILE_TYPE_AUDIO_WAV, audio);
    row("folder", FILE_TYPE_DIRECTORY, none);
    row("unknown", FILE_TYPE_UNKNOWN, none);
    row("zero", 0, none);
}

void MetadataTest::typedConstructorSetsEveryField()
{
    QFETCH(const int, type);
    QFETCH(const Values, expected);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"100ABC/"});
    StandIns programs;
    programs.add("ffprobe");
    const bool folder = type == FILE_TYPE_DIRECTORY;
    const QFileInfo file(directory.filePath(folder ? "100ABC" : "missing"));

    StandardErrorCapture capture;
    const DirtyRecord dirty(anyType(type), file);
    QCOMPARE(int(dirty.record().mType), type);
    QCOMPARE(dirty.record().mFileName, file.fileName());
    QCOMPARE(dirty.record().mSize, 0);
    QCOMPARE(dirty.record().mCreated.isNull(), !folder);
    QCOMPARE(dirty.record().mLastModified.isNull(), !folder);
    QCOMPARE(mediaValues(dirty.record()), expected);
    QCOMPARE(counts(dirty.record()), (Values{0, 0, 0, 0}));
    QCOMPARE(capture.take(), QByteArray());
}

void MetadataTest::fillsFromAFile()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("rec.wav");
    writeFile(path, QByteArray(4097, 'x'));
    setModified(path.toUtf8(), 1000000000123);

    StandardErrorCapture capture;
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(path), record);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(copied(record),
             (QVariantList{64, "rec.wav", qint64(4097),
                           QDateTime::fromMSecsSinceEpoch(creationTime(path.toUtf8())),
                           QDateTime::fromMSecsSinceEpoch(1000000000123), 0, 0, 60, 6000, 0}));
    QCOMPARE(record.mCreated.timeSpec(), Qt::LocalTime);
    QCOMPARE(record.mLastModified.timeSpec(), Qt::LocalTime);
    QCOMPARE(counts(record), (Values{0, 0, 0, 0}));
}

void MetadataTest::fillsFromAFileOfUnknownType()
{
    const QTemporaryDir directory;
    makeTree(directory.path(), {"notes.txt size 8"});
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("notes.txt")), record);
    QCOMPARE(record.mType, FILE_TYPE_UNKNOWN);
    QCOMPARE(record.mFileName, QString("notes.txt"));
    QCOMPARE(record.mSize, 8);
    QVERIFY(record.mCreated.isValid());
    QVERIFY(record.mLastModified.isValid());
    QCOMPARE(mediaValues(record), (Values{0, 0, 0, 0, 0}));
    QCOMPARE(counts(record), (Values{0, 0, 0, 0}));
}

void MetadataTest::fillsFromAMissingFile()
{
    const QTemporaryDir directory;
    StandardErrorCapture capture;
    Metadata record;
    fillRecord(record);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("gone.wav")), record);
    QCOMPARE(copied(record),
             (QVariantList{64, "gone.wav", qint64(0), QDateTime(), QDateTime(), 1, 2, 60, 6000, 5}));
    QVERIFY(record.mCreated.isNull());
    QVERIFY(record.mLastModified.isNull());
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(directory.path()), Tree());
}

void MetadataTest::fillsWithoutAnExistingFile_data()
{
    QTest::addColumn<QFileInfo>("file");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("name");

    row("null", QFileInfo(), -1, "");
    row("empty-path", QFileInfo(""), -1, "");
    row("missing-audio-file", QFileInfo("gone.wav"), 64, "gone.wav");
    row("missing-photo", QFileInfo("gone.jpg"), 16, "gone.jpg");
    row("missing-path-with-a-slash", QFileInfo("gone.jpg/"), -1, "");
    row("null-character", QFileInfo("/a" + NUL + "b.wav"), 64, "a" + NUL + "b.wav");
    row("null-character-in-a-photo", QFileInfo("a" + NUL + "b.jpg"), 16, "a" + NUL + "b.jpg");
}

void MetadataTest::fillsWithoutAnExistingFile()
{
    QFETCH(const QFileInfo, file);
    QFETCH(const int, type);
    QFETCH(const QString, name);
    const QTemporaryDir directory;
    const CurrentDirectory current(directory.path());
    StandardErrorCapture capture;
    Metadata record;
    fillRecord(record);
    VornFileHandler::getMetadata(file, record);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(copied(record).mid(0, 5), (QVariantList{type, name, qint64(0), QDateTime(), QDateTime()}));
}

void MetadataTest::setFileFollowsTheStoredType()
{
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.wav", "100ABC/a.jpg"});
    Metadata record;
    fillRecord(record);
    record.setType(FILE_TYPE_UNKNOWN);
    record.setFile(QFileInfo(directory.filePath("a.wav")));
    QCOMPARE(record.mType, FILE_TYPE_UNKNOWN);
    QCOMPARE(mediaValues(record), FORMER_VALUES);

    const QFileInfo folder(directory.filePath("100ABC"));
    record.setFile(folder);
    QCOMPARE(record.mFileName, QString("100ABC"));
    QCOMPARE(record.mSize, folder.size());
    QCOMPARE(counts(record), FORMER_COUNTS);
}

void MetadataTest::setFileReadsNameDatesAndSizeForEveryType_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("name");

    row("unknown", FILE_TYPE_UNKNOWN, "notes.txt");
    row("unknown-for-a-photo", FILE_TYPE_UNKNOWN, "a.jpg");
    row("unknown-for-an-audio-file", FILE_TYPE_UNKNOWN, "a.wav");
    row("undefined-type", 0, "a.avi");
    row("image", FILE_TYPE_IMAGE, "notes.txt");
    row("audio", FILE_TYPE_AUDIO, "a.jpg");
}

void MetadataTest::setFileReadsNameDatesAndSizeForEveryType()
{
    QFETCH(const int, type);
    QFETCH(const QString, name);
    const QTemporaryDir directory;
    const QByteArray path = QFile::encodeName(directory.filePath(name));
    writeFile(path, "12345");
    QThread::msleep(100); // so that the last status change differs from the birth time
    const timespec accessAndChange[] = {{1100000000, 0}, {1000000000, 123000000}};
    QCOMPARE(::utimensat(AT_FDCWD, path.constData(), accessAndChange, 0), 0);
    StandardErrorCapture capture;
    Metadata record;
    fillRecord(record);
    record.setType(anyType(type));
    record.setFile(QFileInfo(directory.filePath(name)));
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(copied(record).mid(0, 5),
             (QVariantList{type, name, qint64(5), QDateTime::fromMSecsSinceEpoch(creationTime(path)),
                           QDateTime::fromMSecsSinceEpoch(1000000000123)}));
}

void MetadataTest::folderAfterAVideoKeepsTheValues()
{
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.avi", "100ABC/a.jpg"});
    StandIns programs;
    programs.add("ffprobe", programs.prints("640\n480\n"));
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("a.avi")), record);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("100ABC")), record);
    QCOMPARE(record.mType, FILE_TYPE_DIRECTORY);
    QCOMPARE(record.mFileName, QString("100ABC"));
    QCOMPARE(mediaValues(record), (Values{640, 480, 60, 6000, 30}));
    QCOMPARE(counts(record), (Values{1, 0, 0, 0}));
    QCOMPARE(programs.calls("ffprobe").size(), 1);
}

void MetadataTest::fileAfterAFolderKeepsTheCounts()
{
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.wav size 8", "100ABC/a.jpg", "100ABC/b.png"});
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("100ABC")), record);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("a.wav")), record);
    QCOMPARE(record.mType, FILE_TYPE_AUDIO);
    QCOMPARE(record.mSize, 8);
    QCOMPARE(counts(record), (Values{2, 0, 0, 0}));
}

void MetadataTest::summary_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<Values>("expected");
    QTest::addColumn<int>("size");
    const auto row = [](const char *name, const Tree &before, const Values &expected, int size = 0) {
        QTest::newRow(name) << before << expected << size;
    };
    row("every-kind",
        {"DCF_0001.jpg size 1", "DCF_0001.thumb size 2", "DCF_0002.png size 4", "DCF_0003.avi size 8",
         "DCF_0004.mkv size 16", "DCF_0005.wav size 32", "notes.txt size 64", "sub/"},
        {2, 1, 2, 1}, 127);
    row("empty", {}, {0, 0, 0, 0});
    row("jpeg", {"a.jpg size 8"}, {1, 0, 0, 0}, 8);
    row("png", {"a.png size 8"}, {1, 0, 0, 0}, 8);
    row("thumbnail", {"a.thumb size 8"}, {0, 1, 0, 0}, 8);
    row("avi", {"a.avi size 8"}, {0, 0, 1, 0}, 8);
    row("mkv", {"a.mkv size 8"}, {0, 0, 1, 0}, 8);
    row("wav", {"a.wav size 8"}, {0, 0, 0, 1}, 8);
    row("names-without-the-prefix", {"a.jpg", "b.jpg", "c.d.jpg"}, {3, 0, 0, 0});
    row("upper-case-has-only-a-size",
        {"A.JPG size 1", "a.Png size 2", "a.THUMB size 4", "a.AVI size 8", "a.MKV size 16", "a.WAV size 32",
         "b.m\u212Av size 64"},
        {0, 0, 0, 0}, 127);
    row("other-files-have-only-a-size",
        {"a.txt size 1", "jpg size 2", "a.jpeg size 4", "a.jpg~ size 8", "a.jpg. size 16"}, {0, 0, 0, 0}, 31);
    row("links-to-files", {"a.jpg size 8", "b.jpg -> a.jpg", "c.jpg -> missing"}, {1, 0, 0, 0}, 8);
    row("hidden-files", {".x.jpg size 1", ".jpg size 2", "a.jpg size 8"}, {1, 0, 0, 0}, 8);
    row("files-in-subfolders", {"sub/a.jpg size 1", "sub/b.avi size 2", "c.wav size 8"}, {0, 0, 0, 1}, 8);
    row("subfolder-named-like-a-photo", {"a.jpg/b.jpg size 8"}, {0, 0, 0, 0});
    row("outside-ascii", {"\u00FC.jpg size 8", "\U0001F600.wav size 8", "a.png size 8"}, {2, 0, 0, 1}, 24);
}

void MetadataTest::summary()
{
    QFETCH(const Tree, before);
    QFETCH(const Values, expected);
    QFETCH(const int, size);
    const QTemporaryDir directory;
    makeTree(directory.path(), inFolder("album.jpg/", before));
    const Tree all = tree(directory.path());

    StandardErrorCapture capture;
    Metadata record;
    fillRecord(record);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("album.jpg")), record);
    QCOMPARE(record.mType, FILE_TYPE_DIRECTORY);
    QCOMPARE(record.mFileName, QString("album.jpg"));
    QCOMPARE(record.mSize, qint64(size));
    QCOMPARE(counts(record), expected);
    QCOMPARE(mediaValues(record), FORMER_VALUES);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(directory.path()), all);
}

void MetadataTest::summaryOfLargeFiles()
{
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.avi size 3221225473", "b.avi size 3221225473", "c.txt size 3221225473"});
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.path()), record);
    QCOMPARE(record.mSize, 3 * qint64(3221225473));
    QCOMPARE(counts(record), (Values{0, 0, 2, 0}));
}

void MetadataTest::summaryOfALinkToAFolder()
{
    const QTemporaryDir directory;
    makeTree(directory.path(), {"folder/a.jpg size 8", "link -> folder"});
    StandardErrorCapture capture;
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("link")), record);
    QCOMPARE(record.mFileName, QString("link"));
    QCOMPARE(record.mSize, 8);
    QCOMPARE(counts(record), (Values{1, 0, 0, 0}));
    VornFileHandler::getMetadata(QFileInfo(directory.path() + "/folder/"), record);
    QCOMPARE(record.mFileName, QString());
    QCOMPARE(record.mSize, 8);
    QCOMPARE(capture.take(), QByteArray());
}

void MetadataTest::summaryOfAMissingFolder_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("printed");
    row("missing", "gone", "gone");
    row("file", "file.jpg", "file.jpg");
    row("dangling-link", "link", "link");
    row("outside-ascii", "\u00FC", "\u00FC");
    row("null-character", "a" + NUL + "b", "a");
}

void MetadataTest::summaryOfAMissingFolder()
{
    QFETCH(const QString, name);
    QFETCH(const QString, printed);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"file.jpg", "link -> missing"});
    const CurrentDirectory current(directory.path());
    QFileInfo folder(directory.path() + "/" + name);
    const QByteArray line = missingDirectoryLine(directory.path() + "/" + printed);

    StandardErrorCapture capture;
    Metadata record;
    fillRecord(record);
    record.set(FILE_TYPE_DIRECTORY, folder);
    QCOMPARE(capture.take(), line + line);
    QCOMPARE(record.mSize, 0);
    QCOMPARE(counts(record), (Values{0, 0, 0, 0}));
    QCOMPARE(mediaValues(record), FORMER_VALUES);
    record.setDirectorySize(folder);
    QCOMPARE(capture.take(), line);
    record.setDirectoryContent(folder);
    QCOMPARE(capture.take(), line);
    QCOMPARE(tree(directory.path()), (Tree{"file.jpg", "link -> missing"}));
}

void MetadataTest::contentRequiresAFolderRecord_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Values>("expected"); // initially 6, 7, 8, 9

    const Values found = {1, 0, 0, 2};
    for (const int type : {16, 17, 18, 20, 32, 33, 34, 64, 65, -1, 0, 192})
        row("type-" + QByteArray::number(type), type, FORMER_COUNTS);
    row("folder", FILE_TYPE_DIRECTORY, found);
    row("folder-with-further-bits", 128 + 3, found);
}

void MetadataTest::contentRequiresAFolderRecord()
{
    QFETCH(const int, type);
    QFETCH(const Values, expected);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.jpg", "b.wav", "c.wav"});
    StandardErrorCapture capture;
    Metadata record;
    fillRecord(record);
    record.setType(anyType(type));
    const QVariantList before = copied(record);
    QFileInfo folder(directory.path());
    record.setDirectoryContent(folder);
    QCOMPARE(counts(record), expected);
    QCOMPARE(copied(record), before);
    QFileInfo gone(directory.filePath("gone"));
    record.setDirectoryContent(gone);
    QCOMPARE(capture.take(),
             record.getMediaCategory() == 128 ? missingDirectoryLine(gone.absoluteFilePath()) : QByteArray());
}

void MetadataTest::sizeDoesNotRequireAFolderRecord_data()
{
    QTest::addColumn<int>("type");

    for (const int type : {16, 20, 32, 34, 64, 65, 128, -1, 0})
        QTest::addRow("type-%d", type) << type;
}

void MetadataTest::sizeDoesNotRequireAFolderRecord()
{
    QFETCH(const int, type);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.jpg size 8", "b.txt size 8", "sub/c.jpg size 8"});
    StandardErrorCapture capture;
    Metadata record;
    fillRecord(record);
    record.setType(anyType(type));
    QVariantList expected = copied(record);
    expected[2] = qint64(16);
    QFileInfo folder(directory.path());
    record.setDirectorySize(folder);
    QCOMPARE(copied(record), expected);
    QCOMPARE(counts(record), FORMER_COUNTS);
    QCOMPARE(capture.take(), QByteArray());
    QFileInfo gone(directory.filePath("gone"));
    record.setDirectorySize(gone);
    QCOMPARE(record.mSize, 0);
    QCOMPARE(capture.take(), missingDirectoryLine(gone.absoluteFilePath()));
}

QTEST_GUILESS_MAIN(MetadataTest)
#include "tst_metadata.moc"
