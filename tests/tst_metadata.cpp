// SPDX-License-Identifier: MIT
#include "media.h"
#include "standins.h"
#include "testsupport.h"

#include <QThread>
#include <QtTest>

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

// Hosts are built against this layout.
static_assert(std::is_standard_layout_v<Metadata> && !std::is_polymorphic_v<Metadata>);
static_assert(offsetof(Metadata, mType) == 0);
static_assert(offsetof(Metadata, mFileName) < offsetof(Metadata, mSize));
static_assert(offsetof(Metadata, mType) < offsetof(Metadata, mFileName));
static_assert(offsetof(Metadata, mSize) < offsetof(Metadata, mCreated));
static_assert(offsetof(Metadata, mCreated) < offsetof(Metadata, mLastModified));
static_assert(offsetof(Metadata, mLastModified) < offsetof(Metadata, mWidth));
static_assert(offsetof(Metadata, mWidth) < offsetof(Metadata, mHeight));
static_assert(offsetof(Metadata, mHeight) < offsetof(Metadata, mLength));
static_assert(offsetof(Metadata, mLength) < offsetof(Metadata, mBitrate));
static_assert(offsetof(Metadata, mBitrate) < offsetof(Metadata, mFramerate));
static_assert(offsetof(Metadata, mFramerate) < offsetof(Metadata, mImageCount));
static_assert(offsetof(Metadata, mImageCount) < offsetof(Metadata, mThumbCount));
static_assert(offsetof(Metadata, mThumbCount) < offsetof(Metadata, mVideoCount));
static_assert(offsetof(Metadata, mVideoCount) < offsetof(Metadata, mAudioCount));
static_assert(std::is_same_v<decltype(Metadata::mType), eFileTypes> && sizeof(eFileTypes) == 4);
static_assert(std::is_same_v<decltype(Metadata::mFileName), QString>);
static_assert(std::is_same_v<decltype(Metadata::mSize), qint64>);
static_assert(std::is_same_v<decltype(Metadata::mCreated), QDateTime>);
static_assert(std::is_same_v<decltype(Metadata::mLastModified), QDateTime>);
static_assert(std::is_same_v<decltype(Metadata::mWidth), int>);
static_assert(std::is_same_v<decltype(Metadata::mHeight), int>);
static_assert(std::is_same_v<decltype(Metadata::mLength), int>);
static_assert(std::is_same_v<decltype(Metadata::mBitrate), int>);
static_assert(std::is_same_v<decltype(Metadata::mFramerate), int>);
static_assert(std::is_same_v<decltype(Metadata::mImageCount), int>);
static_assert(std::is_same_v<decltype(Metadata::mThumbCount), int>);
static_assert(std::is_same_v<decltype(Metadata::mVideoCount), int>);
static_assert(std::is_same_v<decltype(Metadata::mAudioCount), int>);

namespace {

using Figures = QVector<int>;

/// Width, height, length, bitrate, frame rate.
Figures pictureFigures(const Metadata &record)
{
    return {record.mWidth, record.mHeight, record.mLength, record.mBitrate, record.mFramerate};
}

/// Images, thumbnails, videos, sounds.
Figures counts(const Metadata &record)
{
    return {record.mImageCount, record.mThumbCount, record.mVideoCount, record.mAudioCount};
}

/// Every field but the counts.
QVariantList copied(const Metadata &record)
{
    QVariantList fields = {int(record.mType), record.mFileName, record.mSize, record.mCreated,
                           record.mLastModified};
    for (const int figure : pictureFigures(record))
        fields.append(figure);
    return fields;
}

/// Gives every field a value that is not its default and that no other field has.
void fill(Metadata &record, int base = 0)
{
    record.mType = FILE_TYPE_AUDIO_WAV;
    record.mFileName = "former" + QString::number(base);
    record.mSize = base + 77;
    record.mCreated = QDateTime::fromMSecsSinceEpoch(base + 1000);
    record.mLastModified = QDateTime::fromMSecsSinceEpoch(base + 2000);
    int figure = base;
    for (int *field : {&record.mWidth, &record.mHeight, &record.mLength, &record.mBitrate, &record.mFramerate,
                       &record.mImageCount, &record.mThumbCount, &record.mVideoCount, &record.mAudioCount})
        *field = ++figure;
}

const Figures FORMER_FIGURES = {1, 2, 3, 4, 5};
const Figures FORMER_COUNTS = {6, 7, 8, 9};

eFileTypes anyType(int value)
{
    return static_cast<eFileTypes>(value);
}

QByteArray missingFolderLine(const QString &path)
{
    return diagnosticLine("directory " + path.toUtf8() + " doesn't exist");
}

/// Memory that is not zero, for a record whose constructor has to set every field.
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
    DirtyRecord(const DirtyRecord &) = delete;
    DirtyRecord &operator=(const DirtyRecord &) = delete;
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
    void figuresByType_data();
    void figuresByType();
    void figuresOneByOne_data();
    void figuresOneByOne();
    void typedConstructorSetsEveryField_data();
    void typedConstructorSetsEveryField();
    void fillsFromAFile();
    void fillsFromAFileOfUnknownType();
    void fillsFromAMissingFile();
    void fillsWithoutAFile_data();
    void fillsWithoutAFile();
    void setFileGoesByTheStoredType();
    void setFileTakesNameDatesAndSizeForEveryType_data();
    void setFileTakesNameDatesAndSizeForEveryType();
    void folderAfterAVideoKeepsTheFigures();
    void fileAfterAFolderKeepsTheCounts();
    void summary_data();
    void summary();
    void summaryOfLargeFiles();
    void summaryOfALinkToAFolder();
    void summaryOfAMissingFolder_data();
    void summaryOfAMissingFolder();
    void contentNeedsAFolderRecord_data();
    void contentNeedsAFolderRecord();
    void sizeNeedsNoFolderRecord_data();
    void sizeNeedsNoFolderRecord();
};

void MetadataTest::defaults()
{
    const DirtyRecord dirty;
    QCOMPARE(copied(dirty.record()),
             (QVariantList{-1, QString(), qint64(0), QDateTime(), QDateTime(), 0, 0, 0, 0, 0}));
    QVERIFY(dirty.record().mFileName.isEmpty());
    QVERIFY(dirty.record().mCreated.isNull());
    QVERIFY(dirty.record().mLastModified.isNull());
    QCOMPARE(counts(dirty.record()), (Figures{0, 0, 0, 0}));
    QCOMPARE(Metadata().getMediaCategory(), 240);
}

void MetadataTest::categories_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("expected");

    QTest::newRow("image") << int(FILE_TYPE_IMAGE) << 16;
    QTest::newRow("jpeg") << int(FILE_TYPE_IMAGE_JPEG) << 16;
    QTest::newRow("png") << int(FILE_TYPE_IMAGE_PNG) << 16;
    QTest::newRow("thumbnail") << int(FILE_TYPE_THUMB) << 16;
    QTest::newRow("video") << int(FILE_TYPE_VIDEO) << 32;
    QTest::newRow("avi") << int(FILE_TYPE_VIDEO_AVI) << 32;
    QTest::newRow("mkv") << int(FILE_TYPE_VIDEO_MKV) << 32;
    QTest::newRow("audio") << int(FILE_TYPE_AUDIO) << 64;
    QTest::newRow("wav") << int(FILE_TYPE_AUDIO_WAV) << 64;
    QTest::newRow("directory") << int(FILE_TYPE_DIRECTORY) << 128;
    QTest::newRow("unknown") << int(FILE_TYPE_UNKNOWN) << 240;
    QTest::newRow("zero") << 0 << 0;
    QTest::newRow("low-bits-only") << 15 << 0;
    QTest::newRow("high-bits") << 0x7FFFFF25 << 32;
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
    fill(record);
    QVariantList expected = copied(record);
    expected[0] = 33;
    record.setType(FILE_TYPE_VIDEO_AVI);
    QCOMPARE(copied(record), expected);
    QCOMPARE(counts(record), FORMER_COUNTS);
}

void MetadataTest::assignmentLeavesTheCounts()
{
    Metadata target;
    fill(target);
    Metadata source;
    fill(source, 100);
    const QVariantList fields = copied(source);

    QCOMPARE(&(target = source), &target);
    QCOMPARE(copied(target), fields);
    QCOMPARE(counts(target), FORMER_COUNTS);
    QCOMPARE(copied(source), fields);
    QCOMPARE(counts(source), (Figures{106, 107, 108, 109}));
}

void MetadataTest::assignmentToItself()
{
    Metadata record;
    fill(record);
    const QVariantList fields = copied(record);
    const Metadata &same = record;
    record = same;
    QCOMPARE(copied(record), fields);
    QCOMPARE(counts(record), FORMER_COUNTS);
}

void MetadataTest::copyHasNoCounts()
{
    Metadata source;
    fill(source);
    const DirtyRecord copy(source);
    QCOMPARE(copied(copy.record()), copied(source));
    QCOMPARE(counts(copy.record()), (Figures{0, 0, 0, 0}));
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
    row("capitals", "PIC.JPG", -1);
    row("mixed-case", "clip.Mkv", -1);
    row("longer-suffix", "pic.jpeg", -1);
    row("last-of-several-suffixes", "a.avi.wav", 64);
    row("dot-at-the-end", "a.avi.", -1);
    row("hidden-file-that-is-all-suffix", ".wav", 64);
    row("name-without-a-dot-like-a-suffix", "wav", -1);
    row("folder", "100ABC/", 128);
    row("folder-named-like-a-photo", "album.jpg/", 128);
    row("hidden-folder", ".x/", 128);
}

void MetadataTest::typesByName()
{
    QFETCH(const QByteArray, entry);
    QFETCH(const int, expected);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {entry});
    StandIns programs;
    programs.add("ffprobe");

    StandardErrorCapture capture;
    Metadata record;
    const QFileInfo file(QDir::cleanPath(directory.filePath(QString::fromUtf8(entry))));
    VornFileHandler::getMetadata(file, record);
    QCOMPARE(int(record.mType), expected);
    QCOMPARE(record.mFileName, QString::fromUtf8(entry).remove('/'));
    QCOMPARE(record.mSize, expected == 128 ? 0 : 8);
    QCOMPARE(capture.take(), QByteArray());
}

void MetadataTest::typeOfLinks()
{
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"folder/a.wav", "link.jpg@folder", "b.wav@folder/a.wav", "c.wav@missing"});
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

void MetadataTest::figuresByType_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Figures>("expected"); // from 1, 2, 3, 4, 5
    QTest::addColumn<int>("probes");

    const Figures image = {-1, -1, 3, 4, 5};
    const Figures video = {640, 480, 60, 6000, 30};
    const Figures audio = {1, 2, 60, 6000, 5};
    QTest::newRow("image") << int(FILE_TYPE_IMAGE) << image << 0;
    QTest::newRow("jpeg") << int(FILE_TYPE_IMAGE_JPEG) << image << 0;
    QTest::newRow("png") << int(FILE_TYPE_IMAGE_PNG) << image << 0;
    QTest::newRow("thumbnail") << int(FILE_TYPE_THUMB) << image << 0;
    QTest::newRow("video") << int(FILE_TYPE_VIDEO) << video << 1;
    QTest::newRow("avi") << int(FILE_TYPE_VIDEO_AVI) << video << 1;
    QTest::newRow("mkv") << int(FILE_TYPE_VIDEO_MKV) << video << 1;
    QTest::newRow("audio") << int(FILE_TYPE_AUDIO) << audio << 0;
    QTest::newRow("wav") << int(FILE_TYPE_AUDIO_WAV) << audio << 0;
    QTest::newRow("unknown") << int(FILE_TYPE_UNKNOWN) << FORMER_FIGURES << 0;
    QTest::newRow("zero") << 0 << FORMER_FIGURES << 0;
    QTest::newRow("image-and-video-at-once") << 48 << FORMER_FIGURES << 0;
    QTest::newRow("video-and-audio-at-once") << 96 << FORMER_FIGURES << 0;
    QTest::newRow("audio-and-folder-at-once") << 192 << FORMER_FIGURES << 0;
    QTest::newRow("video-with-bits-above") << 0x100 + 32 << video << 1;
}

void MetadataTest::figuresByType()
{
    QFETCH(const int, type);
    QFETCH(const Figures, expected);
    QFETCH(const int, probes);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"a.dat"});
    StandIns programs;
    programs.add("ffprobe", programs.prints("640\n480\n"));

    StandardErrorCapture capture;
    Metadata record;
    fill(record);
    record.set(anyType(type), QFileInfo(directory.filePath("a.dat")));
    QCOMPARE(int(record.mType), type);
    QCOMPARE(record.mFileName, QString("a.dat"));
    QCOMPARE(record.mSize, 8);
    QCOMPARE(pictureFigures(record), expected);
    QCOMPARE(counts(record), FORMER_COUNTS);
    QCOMPARE(programs.calls("ffprobe").size(), probes);
    QCOMPARE(capture.take(), QByteArray());
}

void MetadataTest::figuresOneByOne_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Figures>("expected"); // length, bitrate, frame rate, from 3, 4, 5

    QTest::newRow("image") << int(FILE_TYPE_IMAGE) << Figures{3, 4, 5};
    QTest::newRow("thumbnail") << int(FILE_TYPE_THUMB) << Figures{3, 4, 5};
    QTest::newRow("video") << int(FILE_TYPE_VIDEO) << Figures{60, 6000, 30};
    QTest::newRow("avi") << int(FILE_TYPE_VIDEO_AVI) << Figures{60, 6000, 30};
    QTest::newRow("mkv") << int(FILE_TYPE_VIDEO_MKV) << Figures{60, 6000, 30};
    QTest::newRow("audio") << int(FILE_TYPE_AUDIO) << Figures{60, 6000, 5};
    QTest::newRow("wav") << int(FILE_TYPE_AUDIO_WAV) << Figures{60, 6000, 5};
    QTest::newRow("directory") << int(FILE_TYPE_DIRECTORY) << Figures{3, 4, 5};
    QTest::newRow("unknown") << int(FILE_TYPE_UNKNOWN) << Figures{3, 4, 5};
}

void MetadataTest::figuresOneByOne()
{
    QFETCH(const int, type);
    QFETCH(const Figures, expected);
    QFileInfo nothing;
    StandardErrorCapture capture;
    Figures figures;
    const auto set = {&Metadata::setLength, &Metadata::setBitrate, &Metadata::setFramerate};
    for (const auto operation : set) {
        Metadata record;
        fill(record);
        record.setType(anyType(type));
        QVariantList fields = copied(record);
        (record.*operation)(nothing);
        const int field = 7 + figures.size();
        figures.append(copied(record).at(field).toInt());
        fields[field] = figures.last();
        QCOMPARE(copied(record), fields);
        QCOMPARE(counts(record), FORMER_COUNTS);
    }
    QCOMPARE(figures, expected);
    QCOMPARE(capture.take(), QByteArray());
}

void MetadataTest::typedConstructorSetsEveryField_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Figures>("expected");

    const Figures image = {-1, -1, 0, 0, 0};
    const Figures video = {0, 0, 60, 6000, 30};
    const Figures audio = {0, 0, 60, 6000, 0};
    const Figures none = {0, 0, 0, 0, 0};
    QTest::newRow("image") << int(FILE_TYPE_IMAGE) << image;
    QTest::newRow("jpeg") << int(FILE_TYPE_IMAGE_JPEG) << image;
    QTest::newRow("png") << int(FILE_TYPE_IMAGE_PNG) << image;
    QTest::newRow("thumbnail") << int(FILE_TYPE_THUMB) << image;
    QTest::newRow("video") << int(FILE_TYPE_VIDEO) << video;
    QTest::newRow("avi") << int(FILE_TYPE_VIDEO_AVI) << video;
    QTest::newRow("mkv") << int(FILE_TYPE_VIDEO_MKV) << video;
    QTest::newRow("audio") << int(FILE_TYPE_AUDIO) << audio;
    QTest::newRow("wav") << int(FILE_TYPE_AUDIO_WAV) << audio;
    QTest::newRow("directory") << int(FILE_TYPE_DIRECTORY) << none;
    QTest::newRow("unknown") << int(FILE_TYPE_UNKNOWN) << none;
    QTest::newRow("zero") << 0 << none;
}

void MetadataTest::typedConstructorSetsEveryField()
{
    QFETCH(const int, type);
    QFETCH(const Figures, expected);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"100ABC/"});
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
    QCOMPARE(pictureFigures(dirty.record()), expected);
    QCOMPARE(counts(dirty.record()), (Figures{0, 0, 0, 0}));
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
    QCOMPARE(counts(record), (Figures{0, 0, 0, 0}));
}

void MetadataTest::fillsFromAFileOfUnknownType()
{
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"notes.txt"});
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("notes.txt")), record);
    QCOMPARE(record.mType, FILE_TYPE_UNKNOWN);
    QCOMPARE(record.mFileName, QString("notes.txt"));
    QCOMPARE(record.mSize, 8);
    QVERIFY(record.mCreated.isValid());
    QVERIFY(record.mLastModified.isValid());
    QCOMPARE(pictureFigures(record), (Figures{0, 0, 0, 0, 0}));
    QCOMPARE(counts(record), (Figures{0, 0, 0, 0}));
}

void MetadataTest::fillsFromAMissingFile()
{
    const QTemporaryDir directory;
    StandardErrorCapture capture;
    Metadata record;
    fill(record);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("gone.wav")), record);
    QCOMPARE(copied(record),
             (QVariantList{64, "gone.wav", qint64(0), QDateTime(), QDateTime(), 1, 2, 60, 6000, 5}));
    QVERIFY(record.mCreated.isNull());
    QVERIFY(record.mLastModified.isNull());
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(directory.path()), QByteArrayList());
}

void MetadataTest::fillsWithoutAFile_data()
{
    QTest::addColumn<QFileInfo>("file");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("name");
    QTest::addColumn<qint64>("size");

    const QString zero(QChar::Null);
    QTest::newRow("null") << QFileInfo() << -1 << "" << qint64(0);
    QTest::newRow("empty-path") << QFileInfo("") << -1 << "" << qint64(0);
    QTest::newRow("missing-relative-sound") << QFileInfo("gone.wav") << 64 << "gone.wav" << qint64(0);
    QTest::newRow("missing-photo") << QFileInfo("gone.jpg") << 16 << "gone.jpg" << qint64(0);
    QTest::newRow("missing-path-with-a-slash") << QFileInfo("gone.jpg/") << -1 << "" << qint64(0);
    QTest::newRow("zero-character") << QFileInfo("/a" + zero + "b.wav") << 64 << "a" + zero + "b.wav"
                                    << qint64(0);
    QTest::newRow("zero-character-in-a-photo")
        << QFileInfo("a" + zero + "b.jpg") << 16 << "a" + zero + "b.jpg" << qint64(0);
}

void MetadataTest::fillsWithoutAFile()
{
    QFETCH(const QFileInfo, file);
    QFETCH(const int, type);
    QFETCH(const QString, name);
    QFETCH(const qint64, size);
    const QTemporaryDir directory;
    const CurrentDirectory inside(directory.path());
    StandardErrorCapture capture;
    Metadata record;
    fill(record);
    VornFileHandler::getMetadata(file, record);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(copied(record).mid(0, 5), (QVariantList{type, name, size, QDateTime(), QDateTime()}));
}

void MetadataTest::setFileGoesByTheStoredType()
{
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"a.wav", "100ABC/a.jpg"});
    Metadata record;
    fill(record);
    record.setType(FILE_TYPE_UNKNOWN);
    record.setFile(QFileInfo(directory.filePath("a.wav")));
    QCOMPARE(record.mType, FILE_TYPE_UNKNOWN);
    QCOMPARE(pictureFigures(record), FORMER_FIGURES);

    const QFileInfo folder(directory.filePath("100ABC"));
    record.setFile(folder);
    QCOMPARE(record.mFileName, QString("100ABC"));
    QCOMPARE(record.mSize, folder.size());
    QCOMPARE(counts(record), FORMER_COUNTS);
}

void MetadataTest::setFileTakesNameDatesAndSizeForEveryType_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("name");

    QTest::newRow("unknown") << int(FILE_TYPE_UNKNOWN) << "notes.txt";
    QTest::newRow("unknown-for-a-photo") << int(FILE_TYPE_UNKNOWN) << "a.jpg";
    QTest::newRow("unknown-for-a-sound") << int(FILE_TYPE_UNKNOWN) << "a.wav";
    QTest::newRow("no-type-of-the-list") << 0 << "a.avi";
    QTest::newRow("image") << int(FILE_TYPE_IMAGE) << "notes.txt";
    QTest::newRow("audio") << int(FILE_TYPE_AUDIO) << "a.jpg";
}

void MetadataTest::setFileTakesNameDatesAndSizeForEveryType()
{
    QFETCH(const int, type);
    QFETCH(const QString, name);
    const QTemporaryDir directory;
    const QByteArray path = QFile::encodeName(directory.filePath(name));
    writeFile(path, "12345");
    QThread::msleep(100); // so that the last change of status is told apart from the creation
    const timespec accessAndChange[] = {{1100000000, 0}, {1000000000, 123000000}};
    QCOMPARE(::utimensat(AT_FDCWD, path.constData(), accessAndChange, 0), 0);
    StandardErrorCapture capture;
    Metadata record;
    fill(record);
    record.setType(anyType(type));
    record.setFile(QFileInfo(directory.filePath(name)));
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(copied(record).mid(0, 5),
             (QVariantList{type, name, qint64(5), QDateTime::fromMSecsSinceEpoch(creationTime(path)),
                           QDateTime::fromMSecsSinceEpoch(1000000000123)}));
}

void MetadataTest::folderAfterAVideoKeepsTheFigures()
{
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"a.avi", "100ABC/a.jpg"});
    StandIns programs;
    programs.add("ffprobe", programs.prints("640\n480\n"));
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("a.avi")), record);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("100ABC")), record);
    QCOMPARE(record.mType, FILE_TYPE_DIRECTORY);
    QCOMPARE(record.mFileName, QString("100ABC"));
    QCOMPARE(pictureFigures(record), (Figures{640, 480, 60, 6000, 30}));
    QCOMPARE(counts(record), (Figures{1, 0, 0, 0}));
    QCOMPARE(programs.calls("ffprobe").size(), 1);
}

void MetadataTest::fileAfterAFolderKeepsTheCounts()
{
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"a.wav", "100ABC/a.jpg", "100ABC/b.png"});
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("100ABC")), record);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("a.wav")), record);
    QCOMPARE(record.mType, FILE_TYPE_AUDIO);
    QCOMPARE(record.mSize, 8);
    QCOMPARE(counts(record), (Figures{2, 0, 0, 0}));
}

void MetadataTest::summary_data()
{
    QTest::addColumn<QByteArrayList>("entries"); // of eight bytes each
    QTest::addColumn<Figures>("expected");
    QTest::addColumn<qint64>("size");

    using Names = QByteArrayList;
    QTest::newRow("every-kind") << Names{"DCF_0001.jpg", "DCF_0001.thumb", "DCF_0002.png", "DCF_0003.avi",
                                         "DCF_0004.mkv", "DCF_0005.wav",   "notes.txt",    "sub/"}
                                << Figures{2, 1, 2, 1} << qint64(7 * 8);
    QTest::newRow("empty") << Names{} << Figures{0, 0, 0, 0} << qint64(0);
    QTest::newRow("jpeg") << Names{"a.jpg"} << Figures{1, 0, 0, 0} << qint64(8);
    QTest::newRow("png") << Names{"a.png"} << Figures{1, 0, 0, 0} << qint64(8);
    QTest::newRow("thumbnail") << Names{"a.thumb"} << Figures{0, 1, 0, 0} << qint64(8);
    QTest::newRow("avi") << Names{"a.avi"} << Figures{0, 0, 1, 0} << qint64(8);
    QTest::newRow("mkv") << Names{"a.mkv"} << Figures{0, 0, 1, 0} << qint64(8);
    QTest::newRow("wav") << Names{"a.wav"} << Figures{0, 0, 0, 1} << qint64(8);
    QTest::newRow("names-without-the-prefix")
        << Names{"a.jpg", "b.jpg", "c.d.jpg"} << Figures{3, 0, 0, 0} << qint64(24);
    QTest::newRow("capitals-have-a-size-only")
        << Names{"A.JPG", "a.Png", "a.THUMB", "a.AVI", "a.MKV", "a.WAV", "b.m\u212Av"} << Figures{0, 0, 0, 0}
        << qint64(7 * 8);
    QTest::newRow("other-files-have-a-size-only")
        << Names{"a.txt", "jpg", "a.jpeg", "a.jpg~", "a.jpg."} << Figures{0, 0, 0, 0} << qint64(5 * 8);
    QTest::newRow("links-to-files") << Names{"a.jpg", "b.jpg@a.jpg", "c.jpg@missing"} << Figures{1, 0, 0, 0}
                                    << qint64(8);
    QTest::newRow("hidden-files") << Names{".x.jpg", ".jpg", "a.jpg"} << Figures{1, 0, 0, 0} << qint64(8);
    QTest::newRow("contents-of-sub-folders")
        << Names{"sub/a.jpg", "sub/b.avi", "c.wav"} << Figures{0, 0, 0, 1} << qint64(8);
    QTest::newRow("sub-folder-named-like-a-photo")
        << Names{"a.jpg/b.jpg"} << Figures{0, 0, 0, 0} << qint64(0);
    QTest::newRow("letters-outside-ascii")
        << Names{"\u00FC.jpg", "\U0001F600.wav", "a.png"} << Figures{2, 0, 0, 1} << qint64(24);
}

void MetadataTest::summary()
{
    QFETCH(const QByteArrayList, entries);
    QFETCH(const Figures, expected);
    QFETCH(const qint64, size);
    const QTemporaryDir directory;
    QVERIFY(QDir(directory.path()).mkdir("album.jpg"));
    makeEntries(directory.filePath("album.jpg"), entries);
    const auto before = tree(directory.path());

    StandardErrorCapture capture;
    Metadata record;
    fill(record);
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("album.jpg")), record);
    QCOMPARE(record.mType, FILE_TYPE_DIRECTORY);
    QCOMPARE(record.mFileName, QString("album.jpg"));
    QCOMPARE(record.mSize, size);
    QCOMPARE(counts(record), expected);
    QCOMPARE(pictureFigures(record), FORMER_FIGURES);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(directory.path()), before);
}

void MetadataTest::summaryOfLargeFiles()
{
    const QTemporaryDir directory;
    for (const char *name : {"a.avi", "b.avi", "c.txt"}) {
        writeFile(directory.filePath(name));
        QVERIFY(::truncate(QFile::encodeName(directory.filePath(name)).constData(), 0xC0000001) == 0);
    }
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.path()), record);
    QCOMPARE(record.mSize, 3 * qint64(0xC0000001));
    QCOMPARE(counts(record), (Figures{0, 0, 2, 0}));
}

void MetadataTest::summaryOfALinkToAFolder()
{
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"folder/a.jpg", "link@folder"});
    StandardErrorCapture capture;
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("link")), record);
    QCOMPARE(record.mFileName, QString("link"));
    QCOMPARE(record.mSize, 8);
    QCOMPARE(counts(record), (Figures{1, 0, 0, 0}));
    VornFileHandler::getMetadata(QFileInfo(directory.path() + "/folder/"), record);
    QCOMPARE(record.mFileName, QString());
    QCOMPARE(record.mSize, 8);
    QCOMPARE(capture.take(), QByteArray());
}

void MetadataTest::summaryOfAMissingFolder_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("reported");

    QTest::newRow("missing") << "gone"
                             << "gone";
    QTest::newRow("file") << "file.jpg"
                          << "file.jpg";
    QTest::newRow("dangling-link") << "link"
                                   << "link";
    QTest::newRow("letters-outside-ascii") << "\u00FC"
                                           << "\u00FC";
    QTest::newRow("zero-character") << "a" + QString(QChar::Null) + "b"
                                    << "a";
}

void MetadataTest::summaryOfAMissingFolder()
{
    QFETCH(const QString, name);
    QFETCH(const QString, reported);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"file.jpg", "link@missing"});
    const CurrentDirectory inside(directory.path());
    QFileInfo folder(directory.path() + "/" + name);
    const QByteArray line = missingFolderLine(directory.path() + "/" + reported);

    StandardErrorCapture capture;
    Metadata record;
    fill(record);
    record.set(FILE_TYPE_DIRECTORY, folder);
    QCOMPARE(capture.take(), line + line);
    QCOMPARE(record.mSize, 0);
    QCOMPARE(counts(record), (Figures{0, 0, 0, 0}));
    QCOMPARE(pictureFigures(record), FORMER_FIGURES);
    record.setDirectorySize(folder);
    QCOMPARE(capture.take(), line);
    record.setDirectoryContent(folder);
    QCOMPARE(capture.take(), line);
    QCOMPARE(tree(directory.path()), (QByteArrayList{"file.jpg", "link -> missing"}));
}

void MetadataTest::contentNeedsAFolderRecord_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Figures>("expected"); // from 6, 7, 8, 9

    const Figures found = {1, 0, 0, 2};
    for (const int type : {16, 17, 18, 20, 32, 33, 34, 64, 65, -1, 0, 192})
        QTest::addRow("type-%d", type) << type << FORMER_COUNTS;
    QTest::newRow("directory") << int(FILE_TYPE_DIRECTORY) << found;
    QTest::newRow("directory-with-further-bits") << 128 + 3 << found;
}

void MetadataTest::contentNeedsAFolderRecord()
{
    QFETCH(const int, type);
    QFETCH(const Figures, expected);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"a.jpg", "b.wav", "c.wav"});
    StandardErrorCapture capture;
    Metadata record;
    fill(record);
    record.setType(anyType(type));
    const QVariantList before = copied(record);
    QFileInfo folder(directory.path());
    record.setDirectoryContent(folder);
    QCOMPARE(counts(record), expected);
    QCOMPARE(copied(record), before);
    QFileInfo gone(directory.filePath("gone"));
    record.setDirectoryContent(gone);
    QCOMPARE(capture.take(),
             record.getMediaCategory() == 128 ? missingFolderLine(gone.absoluteFilePath()) : QByteArray());
}

void MetadataTest::sizeNeedsNoFolderRecord_data()
{
    QTest::addColumn<int>("type");

    for (const int type : {16, 20, 32, 34, 64, 65, 128, -1, 0})
        QTest::addRow("type-%d", type) << type;
}

void MetadataTest::sizeNeedsNoFolderRecord()
{
    QFETCH(const int, type);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"a.jpg", "b.txt", "sub/c.jpg"});
    StandardErrorCapture capture;
    Metadata record;
    fill(record);
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
    QCOMPARE(capture.take(), missingFolderLine(gone.absoluteFilePath()));
}

QTEST_GUILESS_MAIN(MetadataTest)
#include "tst_metadata.moc"
