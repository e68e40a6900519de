// SPDX-License-Identifier: MIT
#include "media.h"
#include "toolsupport.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>
#include <QUrl>
#include <QXmlStreamReader>

#include <algorithm>

namespace {

using Words = QList<QByteArray>;

/// A figure as it stands on the page.
struct Figure {
    QString kind;
    QString link;
    QByteArray picture; // none if there is an icon
    QString alt;
    QStringList caption;
};

struct Page {
    bool isValid = false;
    QStringList sections;
    QStringList choices;
    QList<Figure> figures;
    QString text;
};

/// The picture of a data: URI.
QByteArray pictureOf(const QString &uri)
{
    const int comma = uri.indexOf(',');
    return uri.startsWith("data:image/") ? QByteArray::fromBase64(uri.mid(comma + 1).toUtf8())
                                         : "no data: URI";
}

void readStart(const QXmlStreamReader &xml, Page &page)
{
    const auto attribute = [&xml](const char *name) { return xml.attributes().value(name).toString(); };
    if (xml.name() == "section")
        page.sections.append(attribute("aria-label"));
    else if (xml.name() == "input")
        page.choices.append(attribute("id"));
    else if (xml.name() == "figure")
        page.figures.append({attribute("class"), "", "", "", {}});
    else if (xml.name() == "a")
        page.figures.last().link = attribute("href");
    else if (xml.name() == "img") {
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

QByteArray pagePath(const ToolRun &tool)
{
    return tool.expand("@/page.html");
}

Outcome written(const ToolRun &tool)
{
    return {0, pagePath(tool) + "\n", ""};
}

} // namespace

class VornfhGalleryTest : public QObject
{
    Q_OBJECT

private slots:
    void showsEveryFile();
    void showsOtherFilesWithAnIcon_data();
    void showsOtherFilesWithAnIcon();
    void showsTheSizeOfVideosOnlyWhenAsked();
    void escapesNames_data();
    void escapesNames();
    void needsNothingBesideItself();
    void tellsThatAStorageIsEmpty_data();
    void tellsThatAStorageIsEmpty();
    void passesOverTheLocationWithoutASuffix();
    void linksFromAnyFolder_data();
    void linksFromAnyFolder();
    void replacesOnlyAGallery();
    void refusesWhatCannotBeWritten_data();
    void refusesWhatCannotBeWritten();
};

void VornfhGalleryTest::showsEveryFile()
{
    ToolRun tool;
    const QString folder = tool.sd() + "/100ABC/";
    QDir().mkpath(folder);
    makePicture(folder + "DCF_0001.jpg", {640, 480});
    writeFile(folder + "DCF_0001.thumb", pictureData("jpg", {160, 120}));
    makePicture(folder + "DCF_0002.png", {320, 200});
    writeFile(folder + "DCF_0003.jpg", pictureData("jpg", {64, 48}) + QByteArray(300 * 1024, 'x'));
    writeFile(folder + "DCF_0004.avi", QByteArray(1536, 'x'));
    writeFile(folder + "DCF_0004.thumb", pictureData("png", {160, 120}));
    writeFile(folder + "DCF_0005.mkv", "x");
    writeFile(folder + "DCF_0005.thumb", "no picture");
    writeFile(folder + "notes.txt", "x");
    writeFile(tool.sd() + "/101ABC/DCF_0001.wav", "x");
    for (const char *name : {"1.jpg", "2.png", "3.jpg", "4.avi", "5.mkv"})
        setModified((folder + "DCF_000" + name).toUtf8(), 1740492000000 + name[0] * 60000LL);
    setModified((folder + "notes.txt").toUtf8(), 1740498000000);
    const auto before = tool.contents();
    QCOMPARE(tool.runOnStorages({"gallery", "sd", "-o", "page.html"}), written(tool));
    auto after = tool.contents();
    const Page page = parsed(after.take("page.html"));
    QCOMPARE(after, before);

    QVERIFY(page.isValid);
    QCOMPARE(page.sections, (QStringList{"Folder 100ABC", "Folder 101ABC"}));
    QCOMPARE(page.choices, (QStringList{"only-all", "only-photo", "only-video", "only-sound", "only-other"}));
    QCOMPARE(page.figures.size(), 7);
    const QStringList kinds = {"photo", "photo", "photo", "video", "video", "other", "sound"};
    const QStringList links = {"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.png", "100ABC/DCF_0003.jpg",
                               "100ABC/DCF_0004.avi", "100ABC/DCF_0005.mkv", "100ABC/notes.txt",
                               "101ABC/DCF_0001.wav"};
    const QList<QByteArray> pictures = {tool.content(folder + "DCF_0001.thumb"),
                                        tool.content(folder + "DCF_0002.png"),
                                        "",
                                        tool.content(folder + "DCF_0004.thumb"),
                                        "",
                                        "",
                                        ""};
    for (int i = 0; i < 7; ++i) {
        const Figure &figure = page.figures[i];
        QCOMPARE(figure.kind, kinds[i]);
        QCOMPARE(figure.link, "sd/DCIM/" + links[i]);
        QCOMPARE(figure.picture, pictures[i]);
        QCOMPARE(figure.caption.first(), links[i].section('/', 1));
    }
    QCOMPARE(page.figures[0].alt, QString("Photo DCF_0001.jpg"));
    QVERIFY(page.figures[0].caption.last().endsWith(QString("640\u00a0\u00d7\u00a0480")));
    QCOMPARE(page.figures[3].caption.last(), QString("1.5 KiB"));
    QVERIFY(page.text.contains("3 photos 2 videos 1 sound 1 other"));
}

void VornfhGalleryTest::showsOtherFilesWithAnIcon_data()
{
    QTest::addColumn<Words>("files");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("hasPicture");
    QTest::newRow("photo-in-capital-letters") << Words{"DCF_0003.JPG"} << QString("DCF_0003.JPG") << false;
    QTest::newRow("photo-in-capital-letters-with-a-thumbnail")
        << Words{"DCF_0003.JPG", "DCF_0003.thumb"} << QString("DCF_0003.JPG") << true;
    QTest::newRow("unknown-extension") << Words{"DCF_0003.mp4"} << QString("DCF_0003.mp4") << false;
    QTest::newRow("no-extension") << Words{"README"} << QString("README") << false;
    QTest::newRow("thumbnail-alone") << Words{"DCF_0003.thumb"} << QString("DCF_0003.thumb") << false;
    QTest::newRow("thumbnail-of-a-sound")
        << Words{"DCF_0003.thumb", "DCF_0003.wav"} << QString("DCF_0003.thumb") << false;
}

void VornfhGalleryTest::showsOtherFilesWithAnIcon()
{
    QFETCH(Words, files);
    QFETCH(QString, name);
    QFETCH(bool, hasPicture);
    ToolRun tool;
    for (const QByteArray &file : files)
        writeFile(QFile::encodeName(tool.sd()) + "/100ABC/" + file, pictureData("jpg", {16, 16}));
    QCOMPARE(tool.runOnStorages({"gallery", "sd", "-o", "page.html"}), written(tool));
    const QByteArray html = tool.content(pagePath(tool));
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

void VornfhGalleryTest::showsTheSizeOfVideosOnlyWhenAsked()
{
    ToolRun tool;
    QDir().mkpath(tool.sd() + "/100ABC");
    makeVideo(tool.sd() + "/100ABC/DCF_0001.avi", {64, 48});
    QVERIFY(QFile::copy(tool.sd() + "/100ABC/DCF_0001.avi", tool.sd() + "/100ABC/a b.avi"));
    for (const bool isProbing : {false, true}) {
        QCOMPARE(tool.runOnStorages(Words{"gallery", "sd", "-o", "page.html"}
                                    + (isProbing ? Words{"--probe"} : Words())),
                 written(tool));
        const Page page = parsed(tool.content(pagePath(tool)));
        QCOMPARE(page.figures.size(), 2);
        for (const Figure &figure : page.figures)
            QCOMPARE(figure.caption.last().endsWith(QString("64\u00a0\u00d7\u00a048")),
                     isProbing && figure.caption.first() == "DCF_0001.avi");
    }
}

void VornfhGalleryTest::escapesNames_data()
{
    QTest::addColumn<QByteArray>("folder");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("shown");
    const QByteArray usual = "100ABC";
    QTest::newRow("markup") << usual << QByteArray("a<script>b&amp;.jpg") << QString("a<script>b&amp;.jpg");
    QTest::newRow("quotes") << usual << QByteArray("\"'`.jpg") << QString("\"'`.jpg");
    QTest::newRow("end-of-a-section") << usual << QByteArray("]]>.jpg") << QString("]]>.jpg");
    QTest::newRow("percent") << usual << QByteArray("100%41%.jpg") << QString("100%41%.jpg");
    QTest::newRow("blanks") << usual << QByteArray(" a  b .jpg") << QString(" a  b .jpg");
    QTest::newRow("parts-of-a-link") << usual << QByteArray("?a#b;c:d.jpg") << QString("?a#b;c:d.jpg");
    QTest::newRow("backslash") << usual << QByteArray("a\\b.jpg") << QString("a\\b.jpg");
    QTest::newRow("line-feed") << usual << QByteArray("a\nb.jpg") << QString("a\\x0ab.jpg");
    QTest::newRow("escape") << usual << QByteArray("\x1b[31m\x01.jpg") << QString("\\x1b[31m\\x01.jpg");
    QTest::newRow("other-letters") << usual << QByteArray("\xc3\xa4\xf0\x9f\x93\xb7.jpg")
                                   << QString::fromUtf8("\xc3\xa4\xf0\x9f\x93\xb7.jpg");
    QTest::newRow("right-to-left") << usual
                                   << QByteArray("a\xe2\x80")
                                          + "\xae"
                                            "b.jpg"
                                   << QString("a\\u202eb.jpg");
    QTest::newRow("folder") << QByteArray("<i>&\"'%\nABC") << QByteArray("DCF_0001.jpg")
                            << QString("DCF_0001.jpg");
}

void VornfhGalleryTest::escapesNames()
{
    QFETCH(QByteArray, folder);
    QFETCH(QByteArray, name);
    QFETCH(QString, shown);
    ToolRun tool;
    const QByteArray path = QFile::encodeName(tool.sd()) + "/" + folder + "/" + name;
    writeFile(path, pictureData("jpg", {16, 16}));
    QCOMPARE(tool.runOnStorages({"gallery", "sd", "-o", "page.html"}), written(tool));
    const QByteArray html = tool.content(pagePath(tool));
    const Page page = parsed(html);
    QVERIFY2(page.isValid, html.constData());
    QVERIFY(!html.contains("<script") && !html.contains("<i>"));
    QCOMPARE(page.figures.size(), 1);
    QCOMPARE(page.figures[0].caption.first(), shown);
    QCOMPARE(page.figures[0].alt, "Photo " + shown);
    const QUrl link =
        QUrl::fromLocalFile(pagePath(tool)).resolved(QUrl(page.figures[0].link, QUrl::StrictMode));
    QCOMPARE(QFile::encodeName(link.toLocalFile()), path);
}

void VornfhGalleryTest::needsNothingBesideItself()
{
    ToolRun tool;
    writeFile(tool.sd() + "/100ABC/DCF_0001.jpg", "x");
    QCOMPARE(tool.runOnStorages({"gallery", "sd", "-o", "page.html"}), written(tool));
    QByteArray html = tool.content(pagePath(tool));
    QVERIFY(html.startsWith("<!DOCTYPE html>\n"));
    for (const char *outside :
         {"<script", "@import", "url(", "@font-face", "<iframe", "<object", "javascript:"})
        QVERIFY2(!html.contains(outside), outside);
    html.replace("\"http://www.w3.org/1999/xhtml\"", "").replace("\"http://www.w3.org/2000/svg\"", "");
    QVERIFY(!html.contains("http:") && !html.contains("https:"));
    QVERIFY(html.contains("content=\"default-src 'none'; img-src data:; style-src 'unsafe-inline'\""));
    // What XML closes and HTML does not must be void in HTML or be SVG.
    for (const char *element : {"span", "div", "p", "a", "style", "title", "svg", "figure"})
        QVERIFY2(!QString(html).contains(QRegularExpression(QString("<%1(\\s[^>]*)?/>").arg(element))),
                 element);
}

void VornfhGalleryTest::tellsThatAStorageIsEmpty_data()
{
    QTest::addColumn<Words>("entries");
    QTest::newRow("location-only") << Words{"sd/", "sd/DCIM/"};
    QTest::newRow("other-folder") << Words{"sd/", "sd/DCIM/", "sd/DCIM/MISC/", "sd/DCIM/MISC/a.jpg"};
    QTest::newRow("empty-folder") << Words{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"};
    QTest::newRow("loose-and-hidden-files")
        << Words{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/.a.jpg", "sd/DCIM/b.jpg"};
}

void VornfhGalleryTest::tellsThatAStorageIsEmpty()
{
    QFETCH(Words, entries);
    ToolRun tool;
    makeTree(tool.path(), entries);
    QCOMPARE(tool.runOnStorages({"gallery", "sd", "-o", "page.html"}), written(tool));
    const Page page = parsed(tool.content(pagePath(tool)));
    QVERIFY(page.isValid);
    QVERIFY(page.text.contains("There are no files in the numbered folders of this storage."));
    QCOMPARE(page.choices, QStringList());
    QCOMPARE(page.sections, QStringList());
    auto after = tree(tool.path());
    after.removeOne("page.html");
    std::sort(entries.begin(), entries.end());
    QCOMPARE(after, entries);
}

void VornfhGalleryTest::passesOverTheLocationWithoutASuffix()
{
    ToolRun tool;
    makeTree(tool.path(), {"sd/", "sd/DCIM/", "sd/DCIM/100/", "sd/DCIM/100/DCF_0001.wav", "sd/DCIM/loose.jpg",
                           "sd/outside.jpg"});
    QCOMPARE(tool.run({"--suffix", "", "--sd", "@/sd/DCIM", "gallery", "sd", "-o", "page.html"}),
             written(tool));
    const Page page = parsed(tool.content(pagePath(tool)));
    QCOMPARE(page.sections, QStringList{"Folder 100"});
    QCOMPARE(page.figures.size(), 1);
}

void VornfhGalleryTest::linksFromAnyFolder_data()
{
    QTest::addColumn<QByteArray>("page");
    QTest::addColumn<QString>("link");
    QTest::newRow("on-the-card") << QByteArray("sd/index.html") << QString("DCIM/100ABC/DCF_0001.wav");
    QTest::newRow("in-the-location") << QByteArray("@/sd/DCIM/index.htm") << QString("100ABC/DCF_0001.wav");
    QTest::newRow("elsewhere") << QByteArray("a b/../a b/page.html")
                               << QString("../sd/DCIM/100ABC/DCF_0001.wav");
}

void VornfhGalleryTest::linksFromAnyFolder()
{
    QFETCH(QByteArray, page);
    QFETCH(QString, link);
    ToolRun tool;
    QDir().mkpath(tool.path() + "/a b");
    writeFile(tool.sd() + "/100ABC/DCF_0001.wav", "x");
    const Outcome outcome = tool.runOnStorages({"gallery", "sd", "--output", page});
    QCOMPARE(outcome.exitCode, 0);
    const Page found = parsed(tool.content(QString(outcome.out).trimmed()));
    QCOMPARE(found.figures.size(), 1);
    QCOMPARE(found.figures[0].link, link);
}

void VornfhGalleryTest::replacesOnlyAGallery()
{
    ToolRun tool;
    const Words command = {"gallery", "sd", "-o", "page.html"};
    QDir().mkpath(tool.sd());
    writeFile(tool.path() + "/page.html", "<p>mine</p>");
    QCOMPARE(
        tool.runOnStorages(command),
        (Outcome{1, "",
                 tool.expand("vornfh: @/page.html: exists and is no gallery: only --force replaces it\n")}));
    QCOMPARE(tool.content(pagePath(tool)), QByteArray("<p>mine</p>"));
    QCOMPARE(tool.runOnStorages(command + Words{"--force"}), written(tool));
    const QByteArray empty = tool.content(pagePath(tool));
    writeFile(tool.sd() + "/100ABC/DCF_0001.wav", "x");
    QCOMPARE(tool.runOnStorages(command), written(tool));
    QVERIFY(tool.content(pagePath(tool)) != empty);
    QCOMPARE(QDir(tool.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"page.html"});
}

void VornfhGalleryTest::refusesWhatCannotBeWritten_data()
{
    QTest::addColumn<Words>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("err");
    QTest::newRow("missing-location")
        << Words{"mmc", "-o", "page.html"} << 1 << QByteArray("@/mmc/DCIM: No such file or directory");
    QTest::newRow("file-as-location")
        << Words{"usb", "-o", "page.html"} << 1 << QByteArray("@/usb/DCIM: Not a directory");
    QTest::newRow("folder") << Words{"sd", "--force", "-o", "sd.html"} << 1
                            << QByteArray("@/sd.html: exists and is no regular file");
    QTest::newRow("missing-folder") << Words{"sd", "-o", "a/page.html"} << 1
                                    << QByteArray(
                                           "@/a/page.html: cannot be written: No such file or directory");
    QTest::newRow("below-a-file") << Words{"sd", "-o", "usb/DCIM/page.html"} << 1
                                  << QByteArray("@/usb/DCIM/page.html: Not a directory");
    QTest::newRow("medium") << Words{"sd", "--force", "-o", "DCF_0001.jpg"} << 2
                            << QByteArray("--output: '@/DCF_0001.jpg' does not end in .html");
    QTest::newRow("no-page") << Words{"sd"} << 2 << QByteArray("--output is required");
}

void VornfhGalleryTest::refusesWhatCannotBeWritten()
{
    QFETCH(Words, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, err);
    ToolRun tool;
    makeTree(tool.path(), {"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd.html/", "usb/", "usb/DCIM"});
    const auto before = tree(tool.path());
    QCOMPARE(tool.runOnStorages(Words{"gallery"} + arguments),
             (Outcome{exitCode, "", "vornfh: " + tool.expand(err) + "\n"}));
    QCOMPARE(tree(tool.path()), before);
}

QTEST_GUILESS_MAIN(VornfhGalleryTest)
#include "tst_vornfh_gallery.moc"
