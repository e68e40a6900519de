// SPDX-License-Identifier: MIT
#include "media.h"
#include "toolsupport.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>
#include <QUrl>
#include <QXmlStreamReader>

#include <algorithm>
#include <csignal>

#include <sys/stat.h>
#include <unistd.h>

namespace {

/// A figure as it appears on the page.
struct Figure {
    QString kind;
    QString link;
    QByteArray picture; // its content or link; empty if there is an icon
    QString player;     // "video" or "audio", and its link
    QString alt;
    QStringList labels; // of icons
    QStringList caption;
};

struct Page {
    bool isValid = false;
    QStringList sections;
    QStringList choices;
    QList<Figure> figures;
    QStringList links; // to other pages
    int grids = 0;
    QString text;
};

QByteArray pictureOf(const QString &uri)
{
    const int comma = uri.indexOf(',');
    return uri.startsWith("data:image/") ? QByteArray::fromBase64(uri.mid(comma + 1).toUtf8()) : uri.toUtf8();
}

void readStart(const QXmlStreamReader &xml, Page &page)
{
    const auto attribute = [&xml](const char *name) { return xml.attributes().value(name).toString(); };
    if (xml.name() == "section")
        page.sections.append(attribute("aria-label"));
    else if (xml.name() == "input")
        page.choices.append(attribute("id"));
    else if (xml.name() == "figure")
        page.figures.append({attribute("class"), "", "", "", "", {}, {}});
    else if (xml.name() == "a" && page.figures.isEmpty())
        page.links.append(attribute("href"));
    else if (xml.name() == "a")
        page.figures.last().link = attribute("href");
    else if (xml.name() == "svg")
        page.figures.last().labels.append(attribute("aria-label"));
    else if (xml.name() == "div" && attribute("class") == "grid")
        ++page.grids;
    else if (xml.name() == "video" || xml.name() == "audio") {
        page.figures.last().player = xml.name() + " " + attribute("src");
        page.figures.last().picture = pictureOf(attribute("poster"));
        page.figures.last().alt = attribute("aria-label");
    } else if (xml.name() == "img") {
        page.figures.last().picture = pictureOf(attribute("src"));
        page.figures.last().alt = attribute("alt");
    }
}

Page parsed(const QByteArray &html)
{
    Page page;
    QXmlStreamReader xml(html);
    bool isCaption = false;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement())
            readStart(xml, page);
        if (xml.name() == "figcaption")
            isCaption = xml.isStartElement();
        if (xml.isCharacters())
            page.text += xml.text();
        if (xml.isCharacters() && isCaption)
            page.figures.last().caption.append(xml.text().toString());
    }
    page.isValid = !xml.hasError();
    return page;
}

QStringList linksOf(const Page &page)
{
    QStringList links;
    for (const Figure &figure : page.figures)
        links.append(figure.link);
    return links;
}

QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}

/// The segments of a JPEG header.
const QByteArrayList HEADER = {
    hex("ffd8"),
    hex("ffe000104a46494600010100000100010000"),
    hex("ffdb004300") + QByteArray(64, 1),                                // quantization table
    hex("ffc400140001000000000000000000000000000000") + QByteArray(1, 5), // Huffman table
    hex("ffdd00040008"),                                                  // restart interval
    hex("ffc000110800200030") + hex("03012200021101031101"),              // frame
    hex("ffda000c03010002110311003f00"),                                  // scan
};

/// Segments that are valid or not, in place of others or in addition to them.
const QByteArrayList OTHER_SEGMENTS = {
    hex("fffe0004abcd"),                                                    // comment
    hex("ffdb008310") + QByteArray(128, 1),                                 // table of 16-bit values
    hex("ffdb008320") + QByteArray(128, 1),                                 // and of unknown values
    hex("ffdb004304") + QByteArray(64, 1),                                  // fifth table
    hex("ffdb008400") + QByteArray(64, 1) + hex("01") + QByteArray(64, 1),  // two tables
    hex("ffdb008300") + QByteArray(64, 1) + hex("01") + QByteArray(63, 1),  // and one byte missing
    hex("ffc4013f00ff2d0000000000000000000000000000") + QByteArray(300, 0), // table of 300 codes
    hex("ffc400141301000000000000000000000000000000") + QByteArray(1, 5),
    hex("ffc400140401000000000000000000000000000000") + QByteArray(1, 5), // fifth table
    hex("ffc400142001000000000000000000000000000000") + QByteArray(1, 5),
    hex("ffc400150001000000000000000000000000000000") + QByteArray(2, 5), // one byte too many
    hex("ffdd0005000800"),
    hex("ffc200110800200030") + hex("03012200021101031101"), // progressive
    hex("ffc900110800200030") + hex("03012200021101031101"), // arithmetic coding
    hex("ffc300110800200030") + hex("03012200021101031101"), // lossless
    hex("ffc100110c00200030") + hex("03012200021101031101"), // 12 bits
    hex("ffc0000b080020003001011100"),                       // grey
    hex("ffc000140800200030") + hex("04011100021100031100041100"),
    hex("ffc0001108ffffffff") + hex("03012200021101031101"),
    hex("ffc000110800000030") + hex("03012200021101031101"),
    hex("ffc000110800200030") + hex("03015500021101031101"), // sampling factors
    hex("ffc000110800200030") + hex("03010200021101031101"),
    hex("ffc000110800200030") + hex("03012200011101031101"), // two components with one number
    hex("ffc000110800200030") + hex("03522200471101421101"), // R, G and B
    hex("ffda0008010100003f00"),                             // scan of one component
    hex("ffda0008010400003f00"),
    hex("ffda000c03010001110311003f00"),
};

/// The header of a JPEG file with one or more changes.
QByteArray changedHeader(QRandomGenerator &random)
{
    QByteArrayList segments = HEADER;
    for (int count = random.bounded(3); count >= 0; --count) {
        const int place = random.bounded(segments.size());
        QByteArray &segment = segments[place];
        switch (random.bounded(8)) {
        case 0: segments.insert(place, oneOf(random, OTHER_SEGMENTS)); break;
        case 1:
        case 2: segment = oneOf(random, OTHER_SEGMENTS); break;
        case 3: segments.swapItemsAt(place, random.bounded(segments.size())); break;
        case 4: segment.chop(1 + random.bounded(2)); break;
        case 5: segment.append(static_cast<char>(random.bounded(2) * 0xff)); break;
        default:
            if (!segment.isEmpty())
                segment[random.bounded(std::min(20, segment.size()))] =
                    static_cast<char>(random.bounded(256));
        }
    }
    return segments.join()
        .leftJustified(1000, '\0')
        .left(random.bounded(10) == 0 ? random.bounded(300) : 1000);
}

/// The size that a caption ends with; invalid if it contains none.
QSize sizeIn(const QStringList &caption)
{
    const auto match = QRegularExpression("^(\\d+)\u00a0\u00d7\u00a0(\\d+)$").match(caption.last());
    return match.hasMatch() ? QSize(match.captured(1).toInt(), match.captured(2).toInt()) : QSize();
}

QSize sizeByLibrary(const QString &path)
{
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(path), record);
    const QSize size(record.mWidth, record.mHeight);
    return size.isEmpty() ? QSize() : size;
}

/// An element of a Matroska file with less than 127 bytes.
QByteArray element(const char *id, const QByteArray &content)
{
    return hex(id) + static_cast<char>(0x80 | content.size()) + content;
}

/// The beginning of a Matroska file with one track for each of @p codecs. @p size is the size of the segment.
QByteArray matroska(const QByteArrayList &codecs, const QByteArray &size = "10100000")
{
    QByteArray tracks;
    for (const QByteArray &codec : codecs)
        tracks += element("ae", element("d7", "\x01") + element("86", codec));
    return element("1a45dfa3", element("4282", "matroska")) + hex("18538067") + QByteArray::fromHex(size)
           + element("1549a966", "") + element("1654ae6b", tracks);
}

const QByteArrayList GALLERY = {"gallery", "sd", "-o", "page.html"};
const QByteArrayList DIVIDED = GALLERY + QByteArrayList{"--page-size", "1"};
const QByteArray PRINTED = "@/page.html\n";

/// Makes photos in 100ABC of which two fit on a page of 1 MiB.
void makeLargePhotos(const ToolRun &tool, int count)
{
    for (int i = 1; i <= count; ++i) {
        const QString path = QString("%1/100ABC/DCF_000%2.jpg").arg(tool.sd()).arg(i);
        writeFile(path, jpegHeader(64, 48) + QByteArray(290 << 10, 'x'));
        setModified(path.toUtf8(), 1740492000000 + i * 60000);
    }
}

} // namespace

class VornfhGalleryTest : public QObject
{
    Q_OBJECT

private slots:
    void showsEveryFile();
    void showsOtherFiles_data();
    void showsOtherFiles();
    void readsTheSizeOfVideosOnRequest();
    void readsTheSizeOfPhotosAsTheLibraryDoes();
    void countsEachKindInAFolder();
    void playsWhatBrowsersPlay_data();
    void playsWhatBrowsersPlay();
    void aPlayerShowsTheThumbnail();
    void showsLargePhotosThemselves_data();
    void showsLargePhotosThemselves();
    void marksProtectedFiles_data();
    void marksProtectedFiles();
    void dividesALongFolderIntoGrids();
    void dividesALargeGallery();
    void dividesByTheNumberOfFiles();
    void removesPagesThatAreNoLongerNeeded();
    void writesOnlyIntoItsOwnFolder_data();
    void writesOnlyIntoItsOwnFolder();
    void escapesNames_data();
    void escapesNames();
    void isSelfContained();
    void saysThatAStorageIsEmpty_data();
    void saysThatAStorageIsEmpty();
    void skipsTheLocationWithoutASuffix();
    void linksFromAnyFolder_data();
    void linksFromAnyFolder();
    void replacesOnlyAGallery();
    void keepsALinkToThePage_data();
    void keepsALinkToThePage();
    void keepsTheModeOfAPage();
    void reportsWhatCannotBeWritten_data();
    void reportsWhatCannotBeWritten();
    void aSecondSignalEndsTheToolAtOnce_data();
    void aSecondSignalEndsTheToolAtOnce();
};

void VornfhGalleryTest::showsEveryFile()
{
    const ToolRun tool;
    tool.make(
        onCard({"100ABC/DCF_0004.avi size 1536", "100ABC/DCF_0005.mkv = x",
                "100ABC/DCF_0005.thumb = not a picture", "100ABC/notes.txt = x", "101ABC/DCF_0001.wav = x"}));
    const QString folder = tool.sd() + "/100ABC/";
    makePicture(folder + "DCF_0001.jpg", {640, 480});
    writeFile(folder + "DCF_0001.thumb", pictureData("jpg", {160, 120}));
    makePicture(folder + "DCF_0002.png", {320, 200});
    writeFile(folder + "DCF_0003.jpg", pictureData("jpg", {64, 48}) + QByteArray(300 * 1024, 'x'));
    writeFile(folder + "DCF_0004.thumb", pictureData("png", {160, 120}));
    qint64 time = 1740492000000;
    for (const char *name :
         {"DCF_0001.jpg", "DCF_0002.png", "DCF_0003.jpg", "DCF_0004.avi", "DCF_0005.mkv", "notes.txt"})
        setModified((folder + name).toUtf8(), time += 60000);
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    const QByteArray html = tool.content("page.html");
    QVERIFY(QFile::remove(tool.path() + "/page.html"));
    QCOMPARE(treeWithContents(tool.path()), before);

    const Page page = parsed(html);
    QVERIFY(page.isValid);
    QCOMPARE(page.sections, (QStringList{"Folder 100ABC", "Folder 101ABC"}));
    QCOMPARE(page.choices, (QStringList{"only-all", "only-photo", "only-video", "only-audio", "only-other"}));
    struct Expected {
        const char *kind;
        QString file;
        QByteArray picture;
    };
    const QList<Expected> expected = {
        {"photo", "100ABC/DCF_0001.jpg", tool.content("sd/DCIM/100ABC/DCF_0001.thumb")},
        {"photo", "100ABC/DCF_0002.png", tool.content("sd/DCIM/100ABC/DCF_0002.png")},
        {"photo", "100ABC/DCF_0003.jpg", "sd/DCIM/100ABC/DCF_0003.jpg"},
        {"video", "100ABC/DCF_0004.avi", tool.content("sd/DCIM/100ABC/DCF_0004.thumb")},
        {"video", "100ABC/DCF_0005.mkv", ""},
        {"other", "100ABC/notes.txt", ""},
        {"audio", "101ABC/DCF_0001.wav", ""},
    };
    QCOMPARE(page.figures.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        const Figure &figure = page.figures[i];
        QCOMPARE(figure.kind, expected[i].kind);
        QCOMPARE(figure.link, "sd/DCIM/" + expected[i].file);
        QCOMPARE(figure.picture, expected[i].picture);
        QCOMPARE(figure.caption.first(), expected[i].file.section('/', 1));
    }
    QCOMPARE(page.figures[0].alt, QString("Photo DCF_0001.jpg"));
    QVERIFY(page.figures[0].caption.last().endsWith(QString("640\u00a0\u00d7\u00a0480")));
    QCOMPARE(page.figures[3].caption.last(), QString("1.5 KiB"));
    QVERIFY(page.text.contains("3 photos 2 videos 1 audio file 1 other file"));
}

void VornfhGalleryTest::showsOtherFiles_data()
{
    QTest::addColumn<QByteArrayList>("files");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("hasPicture");
    const auto row = [](const char *name, const QByteArrayList &files, bool hasPicture = false) {
        QTest::newRow(name) << files << QString(files.first()) << hasPicture;
    };
    row("photo-in-upper-case", {"DCF_0003.JPG"});
    row("photo-in-upper-case-with-a-thumbnail", {"DCF_0003.JPG", "DCF_0003.thumb"}, true);
    row("unknown-extension", {"DCF_0003.mp4"});
    row("no-extension", {"README"});
    row("thumbnail-alone", {"DCF_0003.thumb"});
    row("thumbnail-of-an-audio-file", {"DCF_0003.thumb", "DCF_0003.wav"});
}

void VornfhGalleryTest::showsOtherFiles()
{
    QFETCH(QByteArrayList, files);
    QFETCH(QString, name);
    QFETCH(bool, hasPicture);
    const ToolRun tool;
    for (const QByteArray &file : files)
        writeFile(tool.sd() + "/100ABC/" + file, pictureData("jpg", {16, 16}));
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    const QByteArray html = tool.content("page.html");
    const Page page = parsed(html);
    QVERIFY(page.isValid);
    QVERIFY(page.choices.contains("only-other"));
    QList<Figure> others;
    std::copy_if(page.figures.begin(), page.figures.end(), std::back_inserter(others),
                 [](const Figure &figure) { return figure.kind == "other"; });
    QCOMPARE(others.size(), 1);
    QCOMPARE(others[0].link, "sd/DCIM/100ABC/" + name);
    QCOMPARE(others[0].caption.first(), name);
    QCOMPARE(!others[0].picture.isEmpty(), hasPicture);
    QCOMPARE(html.contains("aria-label=\"Other\""), !hasPicture);
}

void VornfhGalleryTest::readsTheSizeOfVideosOnRequest()
{
    const ToolRun tool;
    tool.make({"sd/DCIM/100ABC/"});
    makeVideo(tool.sd() + "/100ABC/DCF_0001.avi", {64, 48});
    QVERIFY(QFile::copy(tool.sd() + "/100ABC/DCF_0001.avi", tool.sd() + "/100ABC/a b.avi"));
    for (const bool isProbing : {false, true}) {
        const QByteArrayList options = isProbing ? QByteArrayList{"--probe"} : QByteArrayList();
        QCOMPARE(tool.runOnStorages(GALLERY + options), tool.success(PRINTED));
        const Page page = parsed(tool.content("page.html"));
        QCOMPARE(page.figures.size(), 2);
        for (const Figure &figure : page.figures)
            QCOMPARE(figure.caption.last().endsWith(QString("64\u00a0\u00d7\u00a048")),
                     isProbing && figure.caption.first() == "DCF_0001.avi");
    }
}

void VornfhGalleryTest::readsTheSizeOfPhotosAsTheLibraryDoes()
{
    constexpr int COUNT = 4000;
    QRandomGenerator random(20261122);
    const ToolRun tool;
    tool.make({"sd/DCIM/100ABC/"});
    for (int i = 0; i < COUNT; ++i)
        writeFile(QString("%1/100ABC/%2.%3").arg(tool.sd()).arg(i).arg(i % 8 == 0 ? "png" : "jpg"),
                  changedHeader(random));
    QCOMPARE(tool.runOnStorages(GALLERY).exitCode, 0);
    const Page page = parsed(tool.content("page.html"));
    QCOMPARE(page.figures.size(), COUNT);
    // Qt warns of damaged images.
    const auto handler =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    QStringList different;
    int known = 0;
    for (const Figure &figure : page.figures) {
        const QString name = figure.caption.first();
        const QSize expected = sizeByLibrary(tool.sd() + "/100ABC/" + name);
        if (sizeIn(figure.caption) != expected)
            different.append(name);
        known += expected.isValid() ? 1 : 0;
    }
    qInstallMessageHandler(handler);
    QCOMPARE(different, QStringList());
    QVERIFY(known > COUNT / 10 && known < COUNT * 9 / 10);
}

void VornfhGalleryTest::countsEachKindInAFolder()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/a.jpg size 1024", "100ABC/b.jpg size 1024", "100ABC/c.wav size 512"}));
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    const QString html = QString::fromUtf8(tool.content("page.html"));
    QVERIFY(html.contains("<section class=\"photo audio\""));
    for (const char *count : {"all\">3 files \u00b7 2.5 KiB<", "photo\">2 photos \u00b7 2.0 KiB<",
                              "audio\">1 audio file \u00b7 512 B<"})
        QVERIFY2(html.contains(QString("<p class=\"") + QString::fromUtf8(count)), count);
    QVERIFY(!html.contains("<p class=\"video"));
}

void VornfhGalleryTest::playsWhatBrowsersPlay_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("element"); // empty if there is only a link
    QTest::addColumn<QString>("note");
    const auto row = [](const char *situation, const QByteArray &name, const QByteArray &content,
                        const QString &element, const QString &obstacle = QString()) {
        const QString note = "Browsers do not play " + obstacle + "; download the file";
        QTest::newRow(situation) << name << content << element << (obstacle.isEmpty() ? QString() : note);
    };
    row("vp8", "a.mkv", matroska({"V_VP8"}), "video");
    row("vp9", "a.mkv", matroska({"V_VP9"}), "video");
    row("av1", "a.mkv", matroska({"V_AV1"}), "video");
    row("h264", "a.mkv", matroska({"V_MPEG4/ISO/AVC"}), "video");
    row("audio-before-video", "a.mkv", matroska({"A_OPUS", "V_VP9"}), "video");
    row("still-being-recorded", "a.mkv", matroska({"V_VP8"}, "01ffffffffffffff"), "video");
    row("mpeg4", "a.mkv", matroska({"V_MPEG4/ISO/ASP"}), "", "MPEG-4 Visual");
    row("h265", "a.mkv", matroska({"V_MPEGH/ISO/HEVC"}), "", "H.265");
    row("motion-jpeg", "a.mkv", matroska({"V_MJPEG"}), "", "Motion JPEG");
    row("first-video-counts", "a.mkv", matroska({"V_MJPEG", "V_VP8"}), "", "Motion JPEG");
    row("unknown-codec", "a.mkv", matroska({"V_NEW"}), "");
    row("audio-only", "a.mkv", matroska({"A_OPUS"}), "");
    row("no-tracks", "a.mkv", matroska({}), "");
    row("cut-within-the-tracks", "a.mkv", matroska({"V_VP8"}).chopped(3), "");
    row("cut-within-the-header", "a.mkv", matroska({"V_VP8"}).left(5), "");
    row("not-a-video", "a.mkv", "x", "");
    row("empty-video", "a.mkv", "", "");
    row("avi", "a.avi", "x", "", "AVI");
    row("wav", "a.wav", "x", "audio");
    row("photo", "a.jpg", "x", "");
    row("other", "a.webm", matroska({"V_VP8"}), "");
}

void VornfhGalleryTest::playsWhatBrowsersPlay()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, content);
    QFETCH(QString, element);
    QFETCH(QString, note);
    const ToolRun tool;
    writeFile(tool.sd() + "/100ABC/" + name, content);
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    const Page page = parsed(tool.content("page.html"));
    QVERIFY(page.isValid);
    QCOMPARE(page.figures.size(), 1);
    const QString link = "sd/DCIM/100ABC/" + name;
    QCOMPARE(page.figures[0].link, link);
    QCOMPARE(page.figures[0].player, element.isEmpty() ? "" : element + " " + link);
    QCOMPARE(page.figures[0].caption.filter("rowsers").join(""), note);
}

void VornfhGalleryTest::aPlayerShowsTheThumbnail()
{
    const ToolRun tool;
    const QByteArray thumbnail = pictureData("jpg", {160, 120});
    writeFile(tool.sd() + "/100ABC/a&b.mkv", matroska({"V_VP8"}));
    writeFile(tool.sd() + "/100ABC/a&b.thumb", thumbnail);
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    const Page page = parsed(tool.content("page.html"));
    QVERIFY(page.isValid);
    QCOMPARE(page.figures.size(), 1);
    QCOMPARE(page.figures[0].player, QString("video sd/DCIM/100ABC/a%26b.mkv"));
    QCOMPARE(page.figures[0].picture, thumbnail);
    QCOMPARE(page.figures[0].alt, QString("Video a&b.mkv"));
    // Nothing is read from the device before a video is played.
    QVERIFY(tool.content("page.html").contains("controls=\"controls\" preload=\"none\""));
}

void VornfhGalleryTest::showsLargePhotosThemselves_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("isShown");
    row("jpeg", pictureData("jpg", {64, 48}), true);
    row("png", pictureData("png", {64, 48}), true);
    row("not-a-picture", QByteArray("x"), false);
}

void VornfhGalleryTest::showsLargePhotosThemselves()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, isShown);
    const ToolRun tool;
    writeFile(tool.sd() + "/100ABC/a b.jpg", content + QByteArray(300 << 10, 'x'));
    const QByteArray link = "sd/DCIM/100ABC/a%20b.jpg";
    for (const bool hasThumbnail : {false, true}) {
        if (hasThumbnail)
            writeFile(tool.sd() + "/100ABC/a b.thumb", pictureData("jpg", {16, 16}));
        QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
        const Page page = parsed(tool.content("page.html"));
        QVERIFY(page.isValid);
        QCOMPARE(page.figures.size(), 1);
        QCOMPARE(page.figures[0].picture, hasThumbnail ? pictureData("jpg", {16, 16})
                                          : isShown    ? link
                                                       : QByteArray());
        QCOMPARE(tool.content("page.html").count("loading=\"lazy\""), isShown || hasThumbnail ? 1 : 0);
    }
}

void VornfhGalleryTest::marksProtectedFiles_data()
{
    QTest::addColumn<QByteArrayList>("marked"); // the files without write permission
    QTest::addColumn<QStringList>("shown");     // the files that are shown as protected
    const auto row = [](const char *name, const QByteArrayList &marked, const QStringList &shown) {
        QTest::newRow(name) << marked << shown;
    };
    row("none", {}, {});
    row("photo", {"DCF_0001.jpg"}, {"DCF_0001.jpg"});
    row("thumbnail", {"DCF_0001.thumb"}, {"DCF_0001.jpg"});
    row("video", {"DCF_0002.mkv"}, {"DCF_0002.mkv"});
    row("without-a-picture", {"DCF_0003.wav"}, {"DCF_0003.wav"});
    row("other-file", {"notes.txt"}, {"notes.txt"});
    row("several", {"DCF_0001.jpg", "DCF_0001.thumb", "DCF_0002.thumb"}, {"DCF_0001.jpg", "DCF_0002.mkv"});
}

void VornfhGalleryTest::marksProtectedFiles()
{
    QFETCH(QByteArrayList, marked);
    QFETCH(QStringList, shown);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0002.mkv = x", "100ABC/DCF_0003.wav = x", "100ABC/notes.txt = x"}));
    const QString folder = tool.sd() + "/100ABC/";
    for (const char *name : {"DCF_0001.jpg", "DCF_0001.thumb", "DCF_0002.thumb"})
        writeFile(folder + name, pictureData("jpg", {16, 16}));
    for (const QByteArray &name : marked)
        setMode(tool, "sd/DCIM/100ABC/" + name, 0444);
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    const Page page = parsed(tool.content("page.html"));
    QVERIFY(page.isValid);
    QStringList found;
    for (const Figure &figure : page.figures) {
        if (figure.labels.contains("Protected"))
            found.append(figure.caption.first());
    }
    found.sort();
    QCOMPARE(found, shown);
}

void VornfhGalleryTest::dividesALongFolderIntoGrids()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/", "101ABC/a.wav"}));
    for (int i = 1; i <= 481; ++i)
        writeFile(QString("%1/100ABC/DCF_%2.wav").arg(tool.sd()).arg(i, 4, 10, QChar('0')), "");
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    const Page page = parsed(tool.content("page.html"));
    QVERIFY(page.isValid);
    QCOMPARE(page.figures.size(), 482);
    QCOMPARE(page.grids, 4);
}

void VornfhGalleryTest::dividesALargeGallery()
{
    const ToolRun tool;
    tool.make(onCard({"101ABC/DCF_0001.wav = x", "102ABC/"}));
    makeLargePhotos(tool, 5);
    QCOMPARE(tool.runOnStorages(DIVIDED), tool.success(PRINTED));
    QCOMPARE(
        QDir(tool.path() + "/page-pages").entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        (QStringList{"1.html", "2.html", "3.html", "4.html"}));
    const Page index = parsed(tool.content("page.html"));
    QVERIFY(index.isValid);
    QVERIFY(index.text.contains("5 photos 1 audio file"));
    QCOMPARE(index.choices, QStringList());
    QCOMPARE(linksOf(index), (QStringList{"page-pages/1.html", "page-pages/2.html", "page-pages/3.html",
                                          "page-pages/4.html"}));
    QCOMPARE(index.figures[1].caption.first(), QString("100ABC (2 of 3)"));
    QCOMPARE(index.figures[3].caption.first(), QString("101ABC"));
    const QList<QStringList> others = {{"../page.html", "2.html"},
                                       {"../page.html", "1.html", "3.html"},
                                       {"../page.html", "2.html", "4.html"},
                                       {"../page.html", "3.html"}};
    QStringList files;
    for (int i = 0; i < others.size(); ++i) {
        const Page page = parsed(tool.content(QString("page-pages/%1.html").arg(i + 1)));
        QVERIFY(page.isValid);
        QCOMPARE(page.links, others[i]);
        QCOMPARE(page.sections, QStringList{i < 3 ? "Folder 100ABC" : "Folder 101ABC"});
        QVERIFY(page.choices.contains("only-all"));
        files += linksOf(page);
    }
    QCOMPARE(files, (QStringList{"../sd/DCIM/100ABC/DCF_0001.jpg", "../sd/DCIM/100ABC/DCF_0002.jpg",
                                 "../sd/DCIM/100ABC/DCF_0003.jpg", "../sd/DCIM/100ABC/DCF_0004.jpg",
                                 "../sd/DCIM/100ABC/DCF_0005.jpg", "../sd/DCIM/101ABC/DCF_0001.wav"}));
}

void VornfhGalleryTest::dividesByTheNumberOfFiles()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/"}));
    for (int i = 1; i <= 10000; ++i)
        writeFile(QString("%1/100ABC/%2.wav").arg(tool.sd()).arg(i), "");
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    QVERIFY(!QFile::exists(tool.path() + "/page-pages"));
    tool.make(onCard({"101ABC/a.wav"}));
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    QCOMPARE(QDir(tool.path() + "/page-pages").entryList(QDir::Files), (QStringList{"1.html", "2.html"}));
}

void VornfhGalleryTest::removesPagesThatAreNoLongerNeeded()
{
    const ToolRun tool;
    tool.make(onCard({}));
    makeLargePhotos(tool, 5);
    const auto pages = [&tool] { return QDir(tool.path() + "/page-pages").entryList(QDir::Files); };
    QCOMPARE(tool.runOnStorages(DIVIDED), tool.success(PRINTED));
    QCOMPARE(pages(), (QStringList{"1.html", "2.html", "3.html"}));
    QVERIFY(QFile::remove(tool.sd() + "/100ABC/DCF_0005.jpg"));
    QCOMPARE(tool.runOnStorages(DIVIDED), tool.success(PRINTED));
    QCOMPARE(pages(), (QStringList{"1.html", "2.html"}));
    // Files that are not pages of this gallery stay.
    tool.make({"page-pages/mine.txt = x", "page-pages/9.html = <p>mine</p>"});
    QVERIFY(QFile::copy(tool.path() + "/page.html", tool.path() + "/page-pages/8.html"));
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    QCOMPARE(pages(), (QStringList{"8.html", "9.html", "mine.txt"}));
    // An empty folder is deleted.
    for (const char *name : {"8.html", "9.html", "mine.txt"})
        QVERIFY(QFile::remove(tool.path() + "/page-pages/" + name));
    QCOMPARE(tool.runOnStorages(DIVIDED), tool.success(PRINTED));
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    QVERIFY(!QFile::exists(tool.path() + "/page-pages"));
}

void VornfhGalleryTest::writesOnlyIntoItsOwnFolder_data()
{
    QTest::addColumn<QByteArray>("entry");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<Tree>("after"); // with --force
    row("other-file", QByteArray("page-pages/a.txt = x"), QByteArray("a.txt"),
        Tree{"1.html", "2.html", "a.txt"});
    row("other-page", QByteArray("page-pages/2.html = <p>mine</p>"), QByteArray("2.html"),
        Tree{"1.html", "2.html"});
    row("page-of-another-gallery",
        QByteArray("page-pages/1.html = <meta name=\"generator\" content=\"vornfh gallery 1\"/>"),
        QByteArray("1.html"), Tree{"1.html", "2.html"});
    row("folder", QByteArray("page-pages/3.html/"), QByteArray("3.html"),
        Tree{"1.html", "2.html", "3.html/"});
}

void VornfhGalleryTest::writesOnlyIntoItsOwnFolder()
{
    QFETCH(QByteArray, entry);
    QFETCH(QByteArray, name);
    QFETCH(Tree, after);
    const ToolRun tool;
    tool.make(onCard({}));
    makeLargePhotos(tool, 4);
    tool.make({entry});
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(
        tool.runOnStorages(DIVIDED),
        tool.failure({"@/page-pages: exists and contains '" + name
                      + "', which is not a page of this gallery; use --force to write into this folder"}));
    QCOMPARE(treeWithContents(tool.path()), before);
    QCOMPARE(tool.runOnStorages(DIVIDED + QByteArrayList{"--force"}), tool.success(PRINTED));
    QCOMPARE(tree(tool.path() + "/page-pages"), after);
    QVERIFY(tool.content("page-pages/2.html").startsWith("<!DOCTYPE html>"));
}

void VornfhGalleryTest::escapesNames_data()
{
    QTest::addColumn<QByteArray>("folder");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("shown");
    const auto row = [](const char *name, const QByteArray &file, const char *shown = nullptr,
                        const QByteArray &folder = "100ABC") {
        QTest::newRow(name) << folder << file << QString::fromUtf8(shown ? shown : file.constData());
    };
    row("markup", "a<script>b&amp;.jpg");
    row("quotes", "\"'`.jpg");
    row("end-of-a-section", "]]>.jpg");
    row("percent-sign", "100%41%.jpg");
    row("spaces", " a  b .jpg");
    row("parts-of-a-link", "?a#b;c:d.jpg");
    row("backslash", "a\\b.jpg");
    row("line-feed", "a\nb.jpg", "a\\x0ab.jpg");
    row("escape-sequence", "\x1b[31m\x01.jpg", "\\x1b[31m\\x01.jpg");
    row("letters-outside-ascii", "\u00e4\U0001F4F7.jpg");
    row("right-to-left-override", "a" + QString(QChar(0x202e)).toUtf8() + "b.jpg", "a\\u202eb.jpg");
    row("folder", "DCF_0001.jpg", "DCF_0001.jpg", "<i>&\"'%\nABC");
}

void VornfhGalleryTest::escapesNames()
{
    QFETCH(QByteArray, folder);
    QFETCH(QByteArray, file);
    QFETCH(QString, shown);
    const ToolRun tool;
    const QByteArray path = QFile::encodeName(tool.sd()) + "/" + folder + "/" + file;
    writeFile(path, pictureData("jpg", {16, 16}));
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    const QByteArray html = tool.content("page.html");
    const Page page = parsed(html);
    QVERIFY2(page.isValid, html.constData());
    QVERIFY(!html.contains("<script") && !html.contains("<i>"));
    QCOMPARE(page.figures.size(), 1);
    QCOMPARE(page.figures[0].caption.first(), shown);
    QCOMPARE(page.figures[0].alt, "Photo " + shown);
    const QUrl base = QUrl::fromLocalFile(tool.path() + "/page.html");
    const QUrl link = base.resolved(QUrl(page.figures[0].link, QUrl::StrictMode));
    QCOMPARE(QFile::encodeName(link.toLocalFile()), path);
}

void VornfhGalleryTest::isSelfContained()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    QByteArray html = tool.content("page.html");
    QVERIFY(html.startsWith("<!DOCTYPE html>\n"));
    for (const char *outside :
         {"<script", "@import", "url(", "@font-face", "<iframe", "<object", "javascript:"})
        QVERIFY2(!html.contains(outside), outside);
    html.replace("\"http://www.w3.org/1999/xhtml\"", "").replace("\"http://www.w3.org/2000/svg\"", "");
    QVERIFY(!html.contains("http:") && !html.contains("https:"));
    QVERIFY(html.contains("content=\"default-src 'none'; img-src data: 'self' file:; "
                          "media-src 'self' file:; style-src 'unsafe-inline'\""));
    // HTML ignores the slash of a self-closing tag such as <p/>, so the element would stay open.
    for (const char *element : {"span", "div", "p", "a", "style", "title", "svg", "figure"})
        QVERIFY2(!QString(html).contains(QRegularExpression(QString("<%1(\\s[^>]*)?/>").arg(element))),
                 element);
}

void VornfhGalleryTest::saysThatAStorageIsEmpty_data()
{
    QTest::addColumn<Tree>("entries");
    row("location-only", onCard({}));
    row("other-folder", onCard({"MISC/", "MISC/a.jpg"}));
    row("empty-folder", onCard({"100ABC/"}));
    row("files-beside-the-folders-and-hidden", onCard({"100ABC/", "100ABC/.a.jpg", "b.jpg"}));
}

void VornfhGalleryTest::saysThatAStorageIsEmpty()
{
    QFETCH(Tree, entries);
    const ToolRun tool;
    tool.make(entries);
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    const Page page = parsed(tool.content("page.html"));
    QVERIFY(page.isValid);
    QVERIFY(page.text.contains("There are no files in the numbered folders of this storage device."));
    QCOMPARE(page.choices, QStringList());
    QCOMPARE(page.sections, QStringList());
    QCOMPARE(tree(tool.path()), Tree{"page.html"} + entries);
}

void VornfhGalleryTest::skipsTheLocationWithoutASuffix()
{
    const ToolRun tool;
    tool.make({"sd/DCIM/100/DCF_0001.wav", "sd/DCIM/loose.jpg", "sd/outside.jpg"});
    QCOMPARE(tool.run(QByteArrayList{"--suffix", "", "--sd", "@/sd/DCIM"} + GALLERY), tool.success(PRINTED));
    const Page page = parsed(tool.content("page.html"));
    QCOMPARE(page.sections, QStringList{"Folder 100"});
    QCOMPARE(page.figures.size(), 1);
}

void VornfhGalleryTest::linksFromAnyFolder_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("link");
    const auto row = [](const char *name, const char *file, const char *link) {
        QTest::newRow(name) << QByteArray(file) << QString(link);
    };
    row("on-the-card", "sd/index.html", "DCIM/100ABC/DCF_0001.wav");
    row("in-the-location", "@/sd/DCIM/index.htm", "100ABC/DCF_0001.wav");
    row("elsewhere", "a b/../a b/page.html", "../sd/DCIM/100ABC/DCF_0001.wav");
}

void VornfhGalleryTest::linksFromAnyFolder()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, link);
    const ToolRun tool;
    tool.make({"a b/", "sd/DCIM/100ABC/DCF_0001.wav = x"});
    const Outcome outcome = tool.runOnStorages({"gallery", "sd", "--output", file});
    QCOMPARE(outcome.exitCode, 0);
    const Page page = parsed(tool.content(outcome.out.trimmed()));
    QCOMPARE(page.figures.size(), 1);
    QCOMPARE(page.figures[0].link, link);
}

void VornfhGalleryTest::replacesOnlyAGallery()
{
    const ToolRun tool;
    tool.make({"sd/DCIM/", "page.html = <p>mine</p>"});
    QCOMPARE(tool.runOnStorages(GALLERY),
             tool.failure({"@/page.html: exists and is not a vornfh gallery; use --force to replace it"}));
    QCOMPARE(tool.content("page.html"), QByteArray("<p>mine</p>"));
    QCOMPARE(tool.runOnStorages(GALLERY + QByteArrayList{"--force"}), tool.success(PRINTED));
    const QByteArray empty = tool.content("page.html");
    tool.make(onCard({"100ABC/DCF_0001.wav = x"}));
    QCOMPARE(tool.runOnStorages(GALLERY), tool.success(PRINTED));
    QVERIFY(tool.content("page.html") != empty);
    QCOMPARE(QDir(tool.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"page.html"});
}

void VornfhGalleryTest::keepsALinkToThePage_data()
{
    QTest::addColumn<Tree>("files");
    row("existing-page", Tree{"a/page.html = old", "link.html -> a/page.html"});
    row("link-to-a-link", Tree{"a/page.html = old", "a/link.html -> page.html", "link.html -> a/link.html"});
    row("missing-page", Tree{"a/", "link.html -> a/page.html"});
}

void VornfhGalleryTest::keepsALinkToThePage()
{
    QFETCH(Tree, files);
    const ToolRun tool;
    tool.make(Tree{"sd/DCIM/100ABC/"} + files);
    Tree after = tree(tool.path());
    if (!after.contains("a/page.html"))
        after.append("a/page.html");
    QCOMPARE(tool.runOnStorages({"gallery", "sd", "--force", "-o", "link.html"}),
             tool.success("@/link.html\n"));
    QVERIFY(tool.content("a/page.html").startsWith("<!DOCTYPE html>"));
    QCOMPARE(tree(tool.path()), sorted(after));
}

void VornfhGalleryTest::keepsTheModeOfAPage()
{
    const ToolRun tool;
    tool.make({"sd/DCIM/100ABC/", "page.html = old"});
    const QByteArray page = QFile::encodeName(tool.path() + "/page.html");
    const mode_t mask = ::umask(027);
    struct stat status = {};
    ::chmod(page.constData(), 0604);
    for (const mode_t mode : {0604U, 0640U}) { // of the old page, and of a new one
        QCOMPARE(tool.runOnStorages({"gallery", "sd", "--force", "-o", "page.html"}).exitCode, 0);
        QCOMPARE(::stat(page.constData(), &status), 0);
        QCOMPARE(status.st_mode & 07777, mode);
        ::unlink(page.constData());
    }
    ::umask(mask);
}

void VornfhGalleryTest::reportsWhatCannotBeWritten_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArrayList &arguments, int exitCode,
                        const char *message) {
        QTest::newRow(name) << arguments << exitCode << QByteArray(message);
    };
    row("missing-location", {"mmc", "-o", "page.html"}, 1, "@/mmc/DCIM: does not exist");
    row("file-as-location", {"usb", "-o", "page.html"}, 1, "@/usb/DCIM: is not a folder");
    row("output-is-a-folder", {"sd", "--force", "-o", "sd.html"}, 1,
        "@/sd.html: exists and is not a regular file");
    row("output-in-a-missing-folder", {"sd", "-o", "a/page.html"}, 1,
        "@/a/page.html: no file can be created in @/a: No such file or directory");
    row("output-below-a-file", {"sd", "-o", "usb/DCIM/page.html"}, 1,
        "@/usb/DCIM/page.html: Not a directory");
    row("output-is-a-media-file", {"sd", "--force", "-o", "DCF_0001.jpg"}, 2,
        "--output: '@/DCF_0001.jpg' does not end in .html or .htm");
    row("page-size-too-small", {"sd", "--page-size", "0", "-o", "page.html"}, 2,
        "--page-size: '0' is not a number from 1 to 1024");
    row("page-size-too-large", {"sd", "--page-size", "1025", "-o", "page.html"}, 2,
        "--page-size: '1025' is not a number from 1 to 1024");
    row("no-output", {"sd"}, 2, "--output is required");
    row("empty-output", {"sd", "--output", ""}, 2, "--output: the path is empty");
}

void VornfhGalleryTest::reportsWhatCannotBeWritten()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make({"sd/DCIM/100ABC/", "sd.html/", "usb/DCIM"});
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages(QByteArrayList{"gallery"} + arguments),
             (Outcome{exitCode, "", tool.expand(errorLines({message}))}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhGalleryTest::aSecondSignalEndsTheToolAtOnce_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<int>("number"); // of the second
    row("SIGINT-twice", QByteArray("INT"), QByteArray("INT"), SIGINT);
    row("SIGTERM-twice", QByteArray("TERM"), QByteArray("TERM"), SIGTERM);
}

void VornfhGalleryTest::aSecondSignalEndsTheToolAtOnce()
{
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, second);
    QFETCH(int, number);
    ToolRun tool;
    if (!tool.runBefore("fsync", twoSignals(first, second)))
        QSKIP("nothing can be preloaded");
    tool.make(onCard({"100ABC/DCF_0001.wav = x"}));
    QCOMPARE(tool.runOnStorages(GALLERY), (Outcome{128 + number, "", ""}));
    QVERIFY(!QFile::exists(tool.path() + "/page.html"));
}

QTEST_GUILESS_MAIN(VornfhGalleryTest)
#include "tst_vornfh_gallery.moc"
