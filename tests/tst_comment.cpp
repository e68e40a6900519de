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

// The library calls these functions instead of those of Exiv2: the program's own definitions take precedence.

static int toolkitCalls = -1; ///< descriptor that each call writes to: "i" to initialise, "t" to terminate
static bool returnsNoImage = false;

Exiv2::Image::AutoPtr Exiv2::ImageFactory::open(const std::string &path, bool useCurl)
{
    using Function = Image::AutoPtr(const std::string &, bool);
    static const auto next = reinterpret_cast<Function *>(::dlsym(
        RTLD_NEXT, "_ZN5Exiv212ImageFactory4openERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEb"));
    return returnsNoImage ? Image::AutoPtr() : next(path, useCurl);
}

static void logCall(const char *call)
{
    if (toolkitCalls >= 0 && ::write(toolkitCalls, call, 1) != 1)
        ::_exit(1);
}

bool Exiv2::XmpParser::initialize(XmpLockFct lock, void *data)
{
    using Function = bool(XmpLockFct, void *);
    static const auto next =
        reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, "_ZN5Exiv29XmpParser10initializeEPFvPvbES1_"));
    logCall("i");
    return next(lock, data);
}

void Exiv2::XmpParser::terminate()
{
    static const auto next =
        reinterpret_cast<void (*)()>(::dlsym(RTLD_NEXT, "_ZN5Exiv29XmpParser9terminateEv"));
    logCall("t");
    next();
}

namespace {

/// The comment that the program exiv2 reads from a file, after its character set.
QString commentIn(const QString &path)
{
    QByteArray output = outputOf("exiv2", {"-K", "Exif.Photo.UserComment", "-Pt", path});
    output.chop(1); // the line feed at the end
    return QString::fromUtf8(output);
}

/// Key and value of every tag except the comment and those that contain file offsets.
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

/// Writes a copy of a picture, which is created once for all tests: a PNG file for the extension "png", a
/// JPEG file for any other.
void writePicture(const QString &path)
{
    static const QByteArray JPEG = pictureData("jpg", QSize(33, 25));
    static const QByteArray PNG = pictureData("png", QSize(33, 25));
    writeFile(path, path.endsWith("png") ? PNG : JPEG);
}

/// The bytes that contain the EXIF data: the JPEG file itself; for a PNG file, which compresses them, the
/// data that exiv2 extracts.
QByteArray exifBytes(const QString &path)
{
    return path.endsWith("png") ? outputOf("exiv2", {"-ee-", path}) : contentOf(path);
}

int setComment(const QString &path, const QString &comment)
{
    return Metadata().setComment(QFileInfo(path), comment);
}

/// The calls to the XMP toolkit by a process that tries to comment @p count missing files and exits.
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
    QFile log;
    log.open(ends[0], QIODevice::ReadOnly, QFile::AutoCloseHandle);
    const QByteArray calls = log.readAll();
    ::waitpid(child, nullptr, 0);
    return calls;
}

/// Returns whether setComment() throws an exception of Exiv2.
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
    void commentOfAnotherProgramIsReplaced();
    void everythingElseInThePictureRemains_data();
    void everythingElseInThePictureRemains();
    void suffixMakesNoDifference();
    void linkIsFollowed();
    void commentOutsideTheBasicPlaneIsNoError();
    void missingFile_data();
    void missingFile();
    void filesThatCannotHoldAComment_data();
    void filesThatCannotHoldAComment();
    void mediaThatRemainUnchanged_data();
    void mediaThatRemainUnchanged();
    void recordRemainsUnchanged();
    void manyCalls();
    void noImageAndNoException();
    void toolkitIsInitialisedAndTerminated();
    void widensBytes_data();
    void widensBytes();
    void widensEveryByte();
};

void CommentTest::writesComment_data()
{
    QTest::addColumn<QString>("comment");

    row("ascii", "Holiday at the sea");
    row("one-character", "A");
    row("empty", "");
    row("umlauts", "Gr\u00FC\u00DFe aus \u00D6sterreich");
    row("other-scripts", "\u0416\u3042\u05D0\u4E2D");
    row("end-of-the-basic-plane", "\uFFFD");
    row("spaces-around", "  two before and after  ");
    row("quotes-and-backslashes", "\"quoted\" 'single' \\ back");
    row("several-lines", "first\nsecond\tthird");
    row("character-set-first", "charset=Ascii text");
    row("quoted-character-set-first", "charset=\"Jis\" text");
    row("place-markers-and-percent-signs", "%1 %s %n");
    row("shell-characters", "$(touch made) `x` ; |");
    row("a-thousand-characters", QString(1000, QChar(0xE4)));
    row("ten-thousand-characters", QString(10000, 'x'));
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
    QCOMPARE(tree(directory.path()), (Tree{"a.jpg", "a.png"}));
}

void CommentTest::bytesOfTheComment_data()
{
    QTest::addColumn<QString>("comment");
    QTest::addColumn<QByteArray>("text");   // hexadecimal
    QTest::addColumn<QByteArray>("length"); // of text and character set, hexadecimal, in four bytes

    const auto row = [](const char *name, const char *comment, const QByteArray &text,
                        const QByteArray &length) { QTest::newRow(name) << comment << text << length; };
    row("ascii", "Sea", "530065006100", "0e000000");
    row("empty", "", "", "08000000");
    row("umlauts", "Gr\u00FC\u00DF", "47007200fc00df00", "10000000");
    row("other-scripts", "\u0416\u3042\u05D0\u4E2D", "16044230d0052d4e", "10000000");
    row("character-set-first", "charset=A", "63006800610072007300650074003d004100", "1a000000");
}

/// The comment as other programs read it: the character set in eight bytes, then the text in UTF-16 without a
/// byte-order mark, in the byte order that Exiv2 chooses if the picture has none yet.
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

void CommentTest::commentOfAnotherProgramIsReplaced()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("a.jpg");
    writePicture(path);
    outputOf("exiv2", {"-M", "set Exif.Photo.UserComment charset=Ascii from another program", path});
    QCOMPARE(setComment(path, "ours"), 0);
    QCOMPARE(commentIn(path), QString("charset=Unicode ours"));
}

void CommentTest::everythingElseInThePictureRemains_data()
{
    QTest::addColumn<QString>("name");

    row("jpeg", "a.jpg");
    row("png", "a.png");
}

void CommentTest::everythingElseInThePictureRemains()
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

void CommentTest::suffixMakesNoDifference()
{
    const QTemporaryDir directory;
    for (const char *name : {"a.avi", "notes.txt", "README", "\u00FC b'\"$(x).thumb"}) {
        const QString path = directory.filePath(name);
        writePicture(path);
        QCOMPARE(setComment(path, "comment"), 0);
        QCOMPARE(commentIn(path), QString("charset=Unicode comment"));
    }
}

void CommentTest::linkIsFollowed()
{
    const QTemporaryDir directory;
    const CurrentDirectory current(directory.path());
    writePicture(directory.filePath("a.jpg"));
    makeTree(directory.path(), {"link.jpg -> a.jpg"});
    QCOMPARE(setComment("link.jpg", "comment"), 0);
    QCOMPARE(commentIn("link.jpg"), QString("charset=Unicode comment"));
}

void CommentTest::commentOutsideTheBasicPlaneIsNoError()
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
    QTest::addColumn<QString>("printed"); // after the current directory
    row("missing", "gone.jpg", "/gone.jpg");
    row("missing-folder", "gone/gone.jpg", "/gone/gone.jpg");
    row("dangling-link", "link.jpg", "/link.jpg");
    row("outside-ascii", "\u00FC.jpg", "/\u00FC.jpg");
    row("percent-signs", "%s%n.jpg", "/%s%n.jpg");
    row("path-is-not-clean", "x/../gone.jpg", "/gone.jpg");
}

void CommentTest::missingFile()
{
    QFETCH(const QString, path);
    QFETCH(const QString, printed);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"link.jpg -> missing"});
    const CurrentDirectory current(directory.path());
    const QByteArray line = ("Error: File does not exist: " + QDir::currentPath() + printed + "\n").toUtf8();
    StandardErrorCapture capture;
    QCOMPARE(setComment(path, "comment"), 1);
    QCOMPARE(capture.take(), line);
    QCOMPARE(setComment(QDir::currentPath() + "/" + path, ""), 1);
    QCOMPARE(capture.take(), line);
    QCOMPARE(tree(directory.path()), Tree{"link.jpg -> missing"});
}

void CommentTest::filesThatCannotHoldAComment_data()
{
    QTest::addColumn<QByteArray>("data"); // null: a folder

    row("text", QByteArray("this is not a picture\n"));
    row("empty", QByteArray(""));
    row("bitmap", QByteArray::fromHex("424d1e000000000000001a0000000c0000000100010001001800ffffff00"));
    row("gif", QByteArray("GIF89a\1\0\1\0\0\0\0;", 14));
    row("damaged-png", QByteArray::fromHex("89504e470d0a1a0a0000"));
    row("damaged-jpeg", QByteArray::fromHex("ffd8ffe0"));
    row("folder", QByteArray());
}

void CommentTest::filesThatCannotHoldAComment()
{
    QFETCH(const QByteArray, data);
    const QTemporaryDir directory;
    const QString path = directory.filePath("a.jpg");
    if (data.isNull())
        makeTree(directory.path(), {"a.jpg/"});
    else
        writeFile(path, data);
    const Tree before = treeWithContents(directory.path());
    StandardErrorCapture capture;
    QVERIFY(throwsExiv2Error(path));
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(treeWithContents(directory.path()), before);
}

void CommentTest::mediaThatRemainUnchanged_data()
{
    QTest::addColumn<QString>("name");

    row("avi", "a.avi");
    row("mkv", "a.mkv");
    row("wav", "a.wav");
}

void CommentTest::mediaThatRemainUnchanged()
{
    QFETCH(const QString, name);
    const QTemporaryDir directory;
    const QString path = directory.filePath(name);
    if (name == "a.wav")
        makeSound(path);
    else
        makeVideo(path, QSize(32, 24));
    const QByteArray before = contentOf(path);
    StandardErrorCapture capture;
    QCOMPARE(setComment(path, "comment"), 0);
    QCOMPARE(capture.take(), QByteArray());
    QVERIFY(contentOf(path) == before);
}

void CommentTest::recordRemainsUnchanged()
{
    const QTemporaryDir directory;
    writePicture(directory.filePath("a.jpg"));
    Metadata record;
    fillRecord(record); // as an audio file: the type makes no difference
    const QVariantList before = fieldsOf(record);
    QCOMPARE(record.setComment(QFileInfo(directory.filePath("a.jpg")), "comment"), 0);
    QCOMPARE(fieldsOf(record), before);
}

/// The C library accepts more functions for atexit() than the 32 that it must accept.
void CommentTest::manyCalls()
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
    const QByteArray before = contentOf(path);
    StandardErrorCapture capture;
    returnsNoImage = true;
    const int result = setComment(path, "x");
    returnsNoImage = false;
    QCOMPARE(result, 1);
    QCOMPARE(capture.take(), "Error: Cannot open input file " + path.toUtf8() + "\n");
    QCOMPARE(contentOf(path), before);
}

/// Each call initialises the XMP toolkit and registers one more termination for the end of the program.
void CommentTest::toolkitIsInitialisedAndTerminated()
{
    const StandardErrorCapture capture;
    const QByteArray none = callsOfAProcess(0); // registered by the other tests
    const QByteArray two = callsOfAProcess(2);
    QCOMPARE(two.count('i') - none.count('i'), 2);
    QCOMPARE(two.count('t') - none.count('t'), 2);
}

void CommentTest::widensBytes_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("expected"); // hexadecimal

    const auto row = [](const char *name, const QByteArray &text, const QByteArray &expected) {
        QTest::newRow(name) << text << expected;
    };
    row("empty", "", "fffe0000");
    row("ascii", "A", "fffe41000000");
    row("several", "AbC", "fffe4100620043000000");
    row("two-byte-character", "\u00E9", "fffec300a9000000");
    row("four-byte-character", "\U0001F600", "fffef0009f00980080000000");
    row("invalid-utf-8", "\377\200", "fffeff0080000000");
    row("nul-bytes", QByteArray("\0a\0", 3), "fffe0000610000000000");
    row("byte-order-mark", "\uFEFF", "fffeef00bb00bf000000");
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
