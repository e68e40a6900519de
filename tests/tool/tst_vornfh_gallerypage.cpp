// SPDX-License-Identifier: MIT
#include "media.h"
#include "toolsupport.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QStandardPaths>
#include <QTest>

#include <cstdio>

namespace {

/// A script that is appended to a copy of the page. It selects each type in turn and reports what is visible
/// and counted, the widths of the loaded pictures, the players that can play, the number of elements wider
/// than the window, the number of columns, the lowest contrast of any text, and for each badge of a protected
/// file whether it is in the upper right corner of its picture.
constexpr char LOOK[] = R"js(<script>
const isSeen = element => element.getClientRects().length > 0;
const numbers = colour => colour.match(/[\d.]+/g).map(Number);
const light = colour => numbers(colour).slice(0, 3).map(c => c / 255)
    .map(c => c <= .04045 ? c / 12.92 : ((c + .055) / 1.055) ** 2.4)
    .reduce((sum, c, i) => sum + c * [.2126, .7152, .0722][i], 0);
const ground = element => {
    const colour = getComputedStyle(element).backgroundColor;
    return numbers(colour)[3] === 0 && element.parentElement ? ground(element.parentElement) : colour;
};
const contrast = element => {
    const both = [light(getComputedStyle(element).color), light(ground(element))].sort((a, b) => b - a);
    return (both[0] + .05) / (both[1] + .05);
};
addEventListener('load', () => {
    document.head.insertAdjacentHTML('beforeend', '<style>* { transition: none !important }</style>');
    const result = {shown: {}, counted: {}, sections: {}};
    for (const choice of document.querySelectorAll('.filter input')) {
        choice.click();
        result.shown[choice.id] = [...document.querySelectorAll('figure')].filter(isSeen)
            .map(figure => figure.querySelector('.name').textContent);
        result.counted[choice.id] = [...document.querySelectorAll('.heading p')].filter(isSeen)
            .map(count => count.textContent.split(' \u00b7 ')[0]);
        result.sections[choice.id] = [...document.querySelectorAll('section')].filter(isSeen).length;
    }
    document.getElementById('only-all').click();
    const texts = document.querySelectorAll('h1, h2, p, .facts span, label, .name, time, .size span, footer');
    result.contrast = Math.min(...[...texts].map(contrast));
    result.pictures = [...document.images].map(image => image.naturalWidth);
    result.players = [...document.querySelectorAll('video, audio')].map(player =>
        [player.localName, player.error ? player.error.message : player.readyState >= 2,
        player.videoWidth || 0].join(' '));
    result.window = innerWidth;
    result.tooWide = [...document.querySelectorAll('main, header, .filter label, figure, .picture, figcaption *')]
        .filter(element => element.getBoundingClientRect().right > innerWidth).length
        + (document.documentElement.scrollWidth > innerWidth);
    result.columns = new Set([...document.querySelectorAll('figure')]
        .map(figure => figure.getBoundingClientRect().left)).size;
    result.locks = [...document.querySelectorAll('.lock')].map(lock => {
        const [badge, picture] = [lock, lock.parentElement].map(element => element.getBoundingClientRect());
        return badge.width > 0 && badge.left > picture.left + picture.width / 2 && badge.right < picture.right
            && badge.top > picture.top && badge.bottom < picture.top + picture.height / 2;
    });
    parent.document.body.textContent = 'RESULT' + JSON.stringify(result) + 'END';
});
</script>)js";

const QString LONG_NAME =
    "a rather long name of a photo in one word_of_forty_characters_that_cannot_break.jpg";

QStringList namesIn(const QJsonValue &array)
{
    QStringList names;
    const QJsonArray all = array.toArray();
    for (const QJsonValue &name : all)
        names.append(name.toString());
    return names;
}

int countColours(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 3) {
        for (int x = 0; x < image.width(); x += 3)
            colours.insert(image.pixel(x, y));
    }
    return colours.size();
}

} // namespace

class VornfhGalleryPageTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void looksRightInABrowser_data();
    void looksRightInABrowser();

private:
    QJsonObject look(const QStringList &view, QSize window) const;
    Outcome browse(const QStringList &arguments) const;

    ToolRun mTool;
    QString mPage; // with LOOK appended
};

void VornfhGalleryPageTest::initTestCase()
{
    mTool.make(onCard({"100ABC/", "101ABC/notes.txt = x"}));
    const QString first = mTool.sd() + "/100ABC/";
    const QString second = mTool.sd() + "/101ABC/";
    for (const QString &photo : {first + "DCF_0001.jpg", second + LONG_NAME})
        makePicture(photo, {640, 480});
    // Too large to be embedded
    makePicture(first + "DCF_0002.jpg", {641, 480});
    writeFile(first + "DCF_0002.jpg", contentOf(first + "DCF_0002.jpg") + QByteArray(300 << 10, 'x'));
    makeVideo(first + "DCF_0003.avi", {64, 48});
    QCOMPARE(mTool.runProgram("ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "testsrc=d=0.4:s=64x48", "-c:v",
                                         "libx264", "-pix_fmt", "yuv420p", first + "DCF_0004.mkv"}),
             (Outcome{0, "", ""}));
    makeSound(first + "DCF_0005.wav");
    qint64 time = 1740492000000;
    for (const char *name : {"DCF_0001.jpg", "DCF_0002.jpg", "DCF_0003.avi", "DCF_0004.mkv", "DCF_0005.wav"})
        setModified((first + name).toUtf8(), time += 60000);
    for (QString medium : {first + "DCF_0001.jpg", second + LONG_NAME, first + "DCF_0003.avi"})
        writeFile(medium.replace(medium.size() - 3, 3, "thumb"), pictureData("jpg", {160, 120}));
    for (const char *name : {"DCF_0001.jpg", "DCF_0003.avi", "DCF_0005.wav"})
        setMode(mTool, "sd/DCIM/100ABC/" + QByteArray(name), 0444);
    QCOMPARE(mTool.runOnStorages({"gallery", "sd", "--probe", "-o", "page.html"}).exitCode, 0);
    QByteArray page = mTool.content("page.html");
    // Allow scripts, and load what would be loaded when it comes into view or is played.
    page.replace("default-src 'none';", "default-src 'none'; script-src 'unsafe-inline';")
        .replace("loading=\"lazy\"", "")
        .replace("preload=\"none\"", "preload=\"auto\"");
    mPage = page.replace("</body>", LOOK + QByteArray("</body>"));
}

Outcome VornfhGalleryPageTest::browse(const QStringList &arguments) const
{
    const QStringList quiet = {"--headless",
                               "--no-sandbox",
                               "--disable-gpu",
                               "--disable-quic",
                               "--no-first-run",
                               "--disable-background-networking",
                               "--disable-component-update",
                               "--disable-sync",
                               "--disable-dev-shm-usage",
                               "--hide-scrollbars",
                               "--force-device-scale-factor=1",
                               "--user-data-dir=" + mTool.path() + "/browser"};
    return mTool.runProgram("chromium", quiet + arguments);
}

/// Returns what LOOK reports. The page is in a frame: a headless window cannot be as narrow as a phone.
QJsonObject VornfhGalleryPageTest::look(const QStringList &view, QSize window) const
{
    const QString frame =
        "<body><iframe style='width:%1px;height:%2px;border:0' srcdoc=\"%3\"></iframe></body>";
    writeFile(mTool.path() + "/look.html",
              frame.arg(window.width()).arg(window.height()).arg(mPage.toHtmlEscaped()).toUtf8());
    const QByteArray dom =
        browse(view + QStringList{"--dump-dom", "file://" + mTool.path() + "/look.html"}).out;
    const int begin = dom.indexOf("RESULT") + 6;
    return QJsonDocument::fromJson(dom.mid(begin, dom.lastIndexOf("END") - begin)).object();
}

void VornfhGalleryPageTest::looksRightInABrowser_data()
{
    QTest::addColumn<QSize>("window");
    QTest::addColumn<bool>("isDark");
    QTest::addColumn<int>("columns");
    const QSize desktop(1280, 900);
    const QSize phone(390, 844);
    row("desktop-light", desktop, false, 5);
    row("desktop-dark", desktop, true, 5);
    row("phone-light", phone, false, 2);
    row("phone-dark", phone, true, 2);
}

void VornfhGalleryPageTest::looksRightInABrowser()
{
    QFETCH(QSize, window);
    QFETCH(bool, isDark);
    QFETCH(int, columns);
    const QStringList view = {QString("--window-size=%1,%2").arg(window.width()).arg(window.height()),
                              QString("--blink-settings=preferredColorScheme=%1").arg(isDark ? 0 : 1)};
    const QJsonObject seen = look(view, window);
    QCOMPARE(seen["window"].toInt(), window.width());
    const QStringList photos = {"DCF_0001.jpg", "DCF_0002.jpg", LONG_NAME};
    const QStringList videos = {"DCF_0003.avi", "DCF_0004.mkv"};
    const QJsonObject shown = seen["shown"].toObject();
    QCOMPARE(namesIn(shown["only-all"]).size(), 7);
    QCOMPARE(namesIn(shown["only-photo"]), photos);
    QCOMPARE(namesIn(shown["only-video"]), videos);
    QCOMPARE(namesIn(shown["only-audio"]), QStringList{"DCF_0005.wav"});
    QCOMPARE(namesIn(shown["only-other"]), QStringList{"notes.txt"});
    QCOMPARE(
        seen["sections"].toObject(),
        (QJsonObject{
            {"only-all", 2}, {"only-photo", 2}, {"only-video", 1}, {"only-audio", 1}, {"only-other", 1}}));
    const QJsonObject counts = seen["counted"].toObject();
    QCOMPARE(namesIn(counts["only-all"]), (QStringList{"5 files", "2 files"}));
    QCOMPARE(namesIn(counts["only-photo"]), (QStringList{"2 photos", "1 photo"}));
    QCOMPARE(namesIn(counts["only-video"]), QStringList{"2 videos"});
    QCOMPARE(namesIn(counts["only-audio"]), QStringList{"1 audio file"});
    QCOMPARE(namesIn(counts["only-other"]), QStringList{"1 other file"});
    QCOMPARE(seen["pictures"].toArray(), (QJsonArray{160, 641, 160, 160}));
    QCOMPARE(seen["players"].toArray(), (QJsonArray{"video true 64", "audio true 0"}));
    QCOMPARE(seen["tooWide"].toInt(-1), 0);
    QCOMPARE(seen["columns"].toInt(), columns);
    QCOMPARE(seen["locks"].toArray(), (QJsonArray{true, true, true}));
    QVERIFY2(seen["contrast"].toDouble() >= 4.5, QByteArray::number(seen["contrast"].toDouble()));

    const QString picture = mTool.path() + "/page.png";
    QFile::remove(picture);
    QCOMPARE(browse(view + QStringList{"--screenshot=" + picture, "file://" + mTool.path() + "/page.html"})
                 .exitCode,
             0);
    const QImage image(picture);
    QCOMPARE(image.size(), window);
    QVERIFY(countColours(image) > 100);
    QCOMPARE(qGray(image.pixel(1, 1)) < 64, isDark);
    QCOMPARE(qGray(image.pixel(1, 1)) > 192, !isDark);
}

int main(int argc, char *argv[])
{
    constexpr int SKIPPED = 77; // SKIP_RETURN_CODE of the test
    if (QStandardPaths::findExecutable("chromium").isEmpty()) {
        std::puts("SKIP: chromium is not installed");
        return SKIPPED;
    }

    VornfhGalleryPageTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_vornfh_gallerypage.moc"
