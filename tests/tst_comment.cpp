// SPDX-License-Identifier: MIT
#include "media.h"
#include "testsupport.h"

#include <exiv2/exiv2.hpp>

#include <QtTest>

#include <cstdlib>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

// The library's calls of these come here first: the program's own definitions stand before those of Exiv2.

static int toolkitCalls = -1; ///< descriptor to which each of "i" and "t" is written
static bool givesNoImage = false;

Exiv2::Image::AutoPtr Exiv2::ImageFactory::open(const std::string &path, bool useCurl)
{
    using Function = Image::AutoPtr(const std::string &, bool);
    static const auto next = reinterpret_cast<Function *>(::dlsym(
        RTLD_NEXT, "_ZN5Exiv212ImageFactory4openERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEb"));
    return givesNoImage ? Image::AutoPtr() : next(path, useCurl);
}

static void tell(const char *call)
{
    if (toolkitCalls >= 0 && ::write(toolkitCalls, call, 1) != 1)
        ::_exit(1);
}

bool Exiv2::XmpParser::initialize(XmpLockFct lock, void *data)
{
    using Function = bool(XmpLockFct, void *);
    static const auto next =
        reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, "_ZN5Exiv29XmpParser10initializeEPFvPvbES1_"));
    tell("i");
    return next(lock, data);
}

void Exiv2::XmpParser::terminate()
{
    static const auto next =
        reinterpret_cast<void (*)()>(::dlsym(RTLD_NEXT, "_ZN5Exiv29XmpParser9terminateEv"));
    tell("t");
    next();
}

namespace {

/// What the program exiv2 finds in a file as the comment, its character set in front.
QString commentIn(const QString &path)
{
    QByteArray output = outputOf("exiv2", {"-K", "Exif.Photo.UserComment", "-Pt", path});
    output.chop(1); // the line feed behind it
    return QString::fromUtf8(output);
}

/// Key and value of every tag but the comment, and but those that say where in the file something lies.
QByteArrayList otherTags(const QString &path)
{
    QByteArrayList tags;
    for (const QByteArray &line : outputOf("exiv2", {"-PEkv", path}).split('\n')) {
        if (!line.contains("UserComment") && !line.contains("ExifTag") && !line.contains("GPSTag"))
            tags.append(line);
    }
    return tags;
}

/// The pixels of a picture, as ffmpeg decodes them.
QByteArray pixels(const QString &path)
{
    return outputOf("ffmpeg",
                    {"-nostdin", "-v", "error", "-i", path, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
}

/// A fresh copy of a picture that was made once for all tests; "png" at the end of the path makes it a PNG.
void writePicture(const QString &path)
{
    static const QByteArray JPEG = pictureData("jpg", QSize(33, 25));
    static const QByteArray PNG = pictureData("png", QSize(33, 25));
    writeFile(path, path.endsWith("png") ? PNG : JPEG);
}

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The bytes that hold the EXIF data: the JPEG file itself; of a PNG, which packs them, what exiv2 unpacks.
QByteArray exifBytes(const QString &path)
{
    return path.endsWith("png") ? outputOf("exiv2", {"-ee-", path}) : content(path);
}

int setComment(const QString &path, const QString &comment)
{
    return Metadata().setComment(QFileInfo(path), comment);
}

/// The calls of the XMP toolkit by a process that comments @p count missing files and ends.
QByteArray callsOfAProcess(int count)
{
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0)
        qFatal("no pipe");
    const pid_t child = ::fork();
    if (child == 0) {
        toolkitCalls = ends[1];
        for (int i = 0; i < count; ++i)
            setComment("/missing.jpg", "x");
        std::exit(0);
    }
    ::close(ends[1]);
    QFile told;
    told.open(ends[0], QIODevice::ReadOnly, QFile::AutoCloseHandle);
    const QByteArray calls = told.readAll();
    ::waitpid(child, nullptr, 0);
    return calls;
}

/// Whether an exception of Exiv2 arrives.
bool throwsExiv2Error(const QString &path)
{
    try {
        setComment(path, "comment");
    } catch (const Exiv2::Error &) {
        return true;
    }
    return false;
}

std::string bytes(const std::vector<uint8_t> &units)
{
    return std::string(units.begin(), units.end());
}

} // namespace

class CommentTest : public QObject
{
    Q_OBJECT

private slots:
    void writesComment_data();
    void writesComment();
    void bytesOfTheComment_data();
    void bytesOfTheComment();
    void secondCommentReplacesTheFirst();
    void foreignCommentIsReplaced();
    void everythingElseInThePictureStays_data();
    void everythingElseInThePictureStays();
    void suffixDoesNotMatter();
    void followsALink();
    void commentOutsideTheBasicPlaneReturnsNormally();
    void missingFile_data();
    void missingFile();
    void filesThatTakeNoComment_data();
    void filesThatTakeNoComment();
    void mediaThatStayUnchanged_data();
    void mediaThatStayUnchanged();
    void recordStaysUnchanged();
    void oneCallAfterAnother();
    void noImageAndNoException();
    void toolkitIsSetUpAndTornDown();
    void widensBytes_data();
    void widensBytes();
    void widensEveryByte();
};

void CommentTest::writesComment_data()
{
    QTest::addColumn<QString>("comment");

    QTest::newRow("ascii") << "Holiday at the sea";
    QTest::newRow("one-character") << "A";
    QTest::newRow("empty") << "";
    QTest::newRow("umlauts") << QString("Gr\u00FC\u00DFe aus \u00D6sterreich");
    QTest::newRow("letters-of-other-scripts") << QString("\u0416\u3042\u05D0\u4E2D");
    QTest::newRow("last-of-the-basic-plane") << QString("\uFFFD");
    QTest::newRow("blanks-around") << "  two in front and behind  ";
    QTest::newRow("quotes-and-backslashes") << "\"quoted\" 'single' \\ back";
    QTest::newRow("several-lines") << "first\nsecond\tthird";
    QTest::newRow("character-set-in-front") << "charset=Ascii text";
    QTest::newRow("quoted-character-set-in-front") << "charset=\"Jis\" text";
    QTest::newRow("markers-and-percent-signs") << "%1 %s %n";
    QTest::newRow("shell-characters") << "$(touch made) `x` ; |";
    QTest::newRow("a-thousand-characters") << QString(1000, QChar(0xE4));
    QTest::newRow("ten-thousand-characters") << QString(10000, 'x');
}

void CommentTest::writesComment()
{
    QFETCH(const QString, comment);
    const QTemporaryDir directory;
    for (const char *name : {"a.jpg", "a.png"}) {
        const QString path = directory.filePath(name);
        writePicture(path);
        StandardErrorCapture capture;
        QCOMPARE(setComment(path, comment), 0);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(commentIn(path), "charset=Unicode " + comment);
    }
    QCOMPARE(tree(directory.path()), (QByteArrayList{"a.jpg", "a.png"}));
}

void CommentTest::bytesOfTheComment_data()
{
    QTest::addColumn<QString>("comment");
    QTest::addColumn<QByteArray>("text");   // hexadecimal
    QTest::addColumn<QByteArray>("length"); // of text and character set, hexadecimal, in four bytes

    QTest::newRow("ascii") << "Sea" << QByteArray("530065006100") << QByteArray("0e000000");
    QTest::newRow("empty") << "" << QByteArray() << QByteArray("08000000");
    QTest::newRow("umlauts") << QString("Gr\u00FC\u00DF") << QByteArray("47007200fc00df00")
                             << QByteArray("10000000");
    QTest::newRow("letters-of-other-scripts")
        << QString("\u0416\u3042\u05D0\u4E2D") << QByteArray("16044230d0052d4e") << QByteArray("10000000");
    QTest::newRow("character-set-in-front")
        << "charset=A" << QByteArray("63006800610072007300650074003d004100") << QByteArray("1a000000");
}

/// As other programs find it: the character set in eight bytes, then the text in UTF-16 without a byte-order
/// mark, in the byte order that Exiv2 chooses where a picture has none yet.
void CommentTest::bytesOfTheComment()
{
    QFETCH(const QString, comment);
    QFETCH(const QByteArray, text);
    QFETCH(const QByteArray, length);
    const QTemporaryDir directory;
    const QByteArray tagAndType = QByteArray::fromHex("86920700"); // a user comment of undefined type
    for (const char *name : {"a.jpg", "a.png"}) {
        const QString path = directory.filePath(name);
        writePicture(path);
        QCOMPARE(setComment(path, comment), 0);
        const QByteArray exif = exifBytes(path);
        QCOMPARE(exif.count(QByteArray("UNICODE\0", 8) + QByteArray::fromHex(text)), 1);
        QCOMPARE(exif.count(tagAndType + QByteArray::fromHex(length)), 1);
    }
}

void CommentTest::secondCommentReplacesTheFirst()
{
    const QTemporaryDir directory;
    for (const char *name : {"a.jpg", "a.png"}) {
        const QString path = directory.filePath(name);
        writePicture(path);
        QCOMPARE(setComment(path, "the first, which is the longer one"), 0);
        QCOMPARE(setComment(path, "second"), 0);
        QCOMPARE(outputOf("exiv2", {"-PEkt", path}).count("UserComment"), 1);
        QCOMPARE(commentIn(path), QString("charset=Unicode second"));
        QCOMPARE(setComment(path, ""), 0);
        QCOMPARE(commentIn(path), QString("charset=Unicode "));
    }
}

void CommentTest::foreignCommentIsReplaced()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("a.jpg");
    writePicture(path);
    outputOf("exiv2", {"-M", "set Exif.Photo.UserComment charset=Ascii from another program", path});
    QCOMPARE(setComment(path, "ours"), 0);
    QCOMPARE(commentIn(path), QString("charset=Unicode ours"));
}

void CommentTest::everythingElseInThePictureStays_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("jpeg") << "a.jpg";
    QTest::newRow("png") << "a.png";
}

void CommentTest::everythingElseInThePictureStays()
{
    QFETCH(const QString, name);
    const QTemporaryDir directory;
    const QString path = directory.filePath(name);
    writePicture(path);
    outputOf("exiv2", {"-M", "set Exif.Image.Make Maker", "-M", "set Exif.Image.Orientation 6", "-M",
                       "set Exif.Photo.DateTimeOriginal 2020:02:29 12:34:56", "-M",
                       "set Exif.GPSInfo.GPSLatitude 1/1 2/1 3/1", "-M", "set Xmp.dc.creator someone", path});
    const QByteArrayList tags = otherTags(path);
    const QByteArray xmp = outputOf("exiv2", {"-PXkv", path});
    const QByteArray picture = pixels(path);
    QVERIFY(tags.size() > 4 && !xmp.isEmpty() && !picture.isEmpty());

    QCOMPARE(setComment(path, "comment"), 0);
    QCOMPARE(otherTags(path), tags);
    QCOMPARE(outputOf("exiv2", {"-PXkv", path}), xmp);
    QCOMPARE(pixels(path), picture);
    QCOMPARE(commentIn(path), QString("charset=Unicode comment"));
}

void CommentTest::suffixDoesNotMatter()
{
    const QTemporaryDir directory;
    for (const char *name : {"a.avi", "notes.txt", "README", "\u00FC b'\"$(x).thumb"}) {
        const QString path = directory.filePath(name);
        writePicture(path);
        QCOMPARE(setComment(path, "comment"), 0);
        QCOMPARE(commentIn(path), QString("charset=Unicode comment"));
    }
}

void CommentTest::followsALink()
{
    const QTemporaryDir directory;
    const CurrentDirectory inside(directory.path());
    writePicture(directory.filePath("a.jpg"));
    makeEntries(directory.path(), {"link.jpg@a.jpg"});
    QCOMPARE(setComment("link.jpg", "comment"), 0);
    QCOMPARE(commentIn("link.jpg"), QString("charset=Unicode comment"));
}

void CommentTest::commentOutsideTheBasicPlaneReturnsNormally()
{
    const QTemporaryDir directory;
    writePicture(directory.filePath("a.jpg"));
    const QByteArray picture = pixels(directory.filePath("a.jpg"));
    const StandardErrorCapture warningOfExiv2;
    QCOMPARE(setComment(directory.filePath("a.jpg"), QString("a\U0001F600b")), 0);
    QCOMPARE(pixels(directory.filePath("a.jpg")), picture);
}

void CommentTest::missingFile_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("reported"); // behind the current directory

    const QString zero(QChar::Null);
    QTest::newRow("missing") << "gone.jpg" << QByteArray("/gone.jpg");
    QTest::newRow("missing-folder") << "gone/gone.jpg" << QByteArray("/gone/gone.jpg");
    QTest::newRow("dangling-link") << "link.jpg" << QByteArray("/link.jpg");
    QTest::newRow("letters-outside-ascii") << "\u00FC.jpg" << QByteArray("/\u00FC.jpg");
    QTest::newRow("percent-signs") << "%s%n.jpg" << QByteArray("/%s%n.jpg");
    QTest::newRow("path-that-is-not-clean") << "x/../gone.jpg" << QByteArray("/gone.jpg");
}

void CommentTest::missingFile()
{
    QFETCH(const QString, path);
    QFETCH(const QByteArray, reported);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"link.jpg@missing"});
    const CurrentDirectory inside(directory.path());
    const QByteArray line = "Error: File does not exist: " + QDir::currentPath().toUtf8() + reported + "\n";
    StandardErrorCapture capture;
    QCOMPARE(setComment(path, "comment"), 1);
    QCOMPARE(capture.take(), line);
    QCOMPARE(setComment(QDir::currentPath() + "/" + path, ""), 1);
    QCOMPARE(capture.take(), line);
    QCOMPARE(tree(directory.path()), QByteArrayList{"link.jpg -> missing"});
}

void CommentTest::filesThatTakeNoComment_data()
{
    QTest::addColumn<QByteArray>("data"); // null: a folder

    QTest::newRow("text") << QByteArray("this is no picture\n");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("bitmap") << QByteArray::fromHex(
        "424d1e000000000000001a0000000c0000000100010001001800ffffff00");
    QTest::newRow("gif") << QByteArray("GIF89a\1\0\1\0\0\0\0;", 14);
    QTest::newRow("damaged-png") << QByteArray::fromHex("89504e470d0a1a0a0000");
    QTest::newRow("damaged-jpeg") << QByteArray::fromHex("ffd8ffe0");
    QTest::newRow("folder") << QByteArray();
}

void CommentTest::filesThatTakeNoComment()
{
    QFETCH(const QByteArray, data);
    const QTemporaryDir directory;
    const QString path = directory.filePath("a.jpg");
    if (data.isNull())
        makeEntries(directory.path(), {"a.jpg/"});
    else
        writeFile(path, data);
    const auto before = tree(directory.path());
    StandardErrorCapture capture;
    QVERIFY(throwsExiv2Error(path));
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(content(path), data);
    QCOMPARE(tree(directory.path()), before);
}

void CommentTest::mediaThatStayUnchanged_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("avi") << "a.avi";
    QTest::newRow("mkv") << "a.mkv";
    QTest::newRow("wav") << "a.wav";
}

void CommentTest::mediaThatStayUnchanged()
{
    QFETCH(const QString, name);
    const QTemporaryDir directory;
    const QString path = directory.filePath(name);
    if (name == "a.wav")
        makeSound(path);
    else
        makeVideo(path, QSize(32, 24));
    const QByteArray before = content(path);
    StandardErrorCapture capture;
    QCOMPARE(setComment(path, "comment"), 0);
    QCOMPARE(capture.take(), QByteArray());
    QVERIFY(content(path) == before);
}

void CommentTest::recordStaysUnchanged()
{
    const QTemporaryDir directory;
    writePicture(directory.filePath("a.jpg"));
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(1000);
    Metadata record;
    record.mType = FILE_TYPE_AUDIO; // and no matter either
    record.mFileName = "former";
    record.mSize = 1;
    record.mCreated = record.mLastModified = time;
    record.mWidth = record.mHeight = record.mLength = record.mBitrate = record.mFramerate = 2;
    record.mImageCount = record.mThumbCount = record.mVideoCount = record.mAudioCount = 3;
    QCOMPARE(record.setComment(QFileInfo(directory.filePath("a.jpg")), "comment"), 0);
    QCOMPARE(record.mType, FILE_TYPE_AUDIO);
    QCOMPARE(record.mFileName, QString("former"));
    QCOMPARE(record.mSize, 1);
    QCOMPARE((QList<QDateTime>{record.mCreated, record.mLastModified}), (QList<QDateTime>{time, time}));
    QCOMPARE((QList<int>{record.mWidth, record.mHeight, record.mLength, record.mBitrate, record.mFramerate}),
             (QList<int>{2, 2, 2, 2, 2}));
    QCOMPARE((QList<int>{record.mImageCount, record.mThumbCount, record.mVideoCount, record.mAudioCount}),
             (QList<int>{3, 3, 3, 3}));
}

// The C library keeps more exit registrations than the 32 that it has to.
void CommentTest::oneCallAfterAnother()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("a.jpg");
    writePicture(path);
    for (int i = 0; i < 100; ++i)
        QCOMPARE(setComment(path, "comment " + QString::number(i)), 0);
    QCOMPARE(commentIn(path), QString("charset=Unicode comment 99"));
}

void CommentTest::noImageAndNoException()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("a.jpg");
    writePicture(path);
    const QByteArray before = content(path);
    StandardErrorCapture capture;
    givesNoImage = true;
    const int result = setComment(path, "x");
    givesNoImage = false;
    QCOMPARE(result, 1);
    QCOMPARE(capture.take(), "Error: Cannot open input file " + path.toUtf8() + "\n");
    QCOMPARE(content(path), before);
}

/// Each call sets the XMP toolkit up, and has it torn down once more when the program ends.
void CommentTest::toolkitIsSetUpAndTornDown()
{
    const StandardErrorCapture capture;
    const QByteArray none = callsOfAProcess(0); // what the other tests have had registered
    const QByteArray two = callsOfAProcess(2);
    QCOMPARE(two.count('i') - none.count('i'), 2);
    QCOMPARE(two.count('t') - none.count('t'), 2);
}

void CommentTest::widensBytes_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("expected"); // hexadecimal

    QTest::newRow("empty") << QByteArray() << QByteArray("fffe0000");
    QTest::newRow("ascii") << QByteArray("A") << QByteArray("fffe41000000");
    QTest::newRow("several") << QByteArray("AbC") << QByteArray("fffe4100620043000000");
    QTest::newRow("two-byte-character") << QByteArray("\xC3\xA9") << QByteArray("fffec300a9000000");
    QTest::newRow("four-byte-character")
        << QByteArray("\xF0\x9F\x98\x80") << QByteArray("fffef0009f00980080000000");
    QTest::newRow("no-valid-utf-8") << QByteArray("\xFF\x80") << QByteArray("fffeff0080000000");
    QTest::newRow("zero-bytes") << QByteArray("\0a\0", 3) << QByteArray("fffe0000610000000000");
    QTest::newRow("order-mark") << QByteArray("\xEF\xBB\xBF") << QByteArray("fffeef00bb00bf000000");
}

void CommentTest::widensBytes()
{
    QFETCH(const QByteArray, text);
    QFETCH(const QByteArray, expected);
    const std::string units = bytes(Metadata().utf8ToUtf16LE(text.toStdString()));
    QCOMPARE(QByteArray::fromStdString(units).toHex(), expected);
}

void CommentTest::widensEveryByte()
{
    std::string text;
    std::string expected = "\xFF\xFE";
    for (int byte = 0; byte < 256; ++byte) {
        text += static_cast<char>(byte);
        expected += static_cast<char>(byte);
        expected += '\0';
    }
    expected += std::string(2, '\0');
    QVERIFY(bytes(Metadata().utf8ToUtf16LE(text)) == expected);
    QCOMPARE(Metadata().utf8ToUtf16LE(std::string(100000, 'x')).size(), size_t(200004));
}

QTEST_GUILESS_MAIN(CommentTest)
#include "tst_comment.moc"
