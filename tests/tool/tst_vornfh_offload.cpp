// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTest>

#include <algorithm>
#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Three objects with thumbnails and one without, in two folders. The last one is the newest.
const Tree CARD = {"100ABC/DCF_0001.jpg = photo", "100ABC/DCF_0001.thumb = small photo",
                   "100ABC/DCF_0002.avi = video", "100ABC/DCF_0002.thumb = small video",
                   "101ABC/DCF_0001.png = png",   "101ABC/DCF_0001.thumb = small png",
                   "101ABC/DCF_0002.wav = tone"};

QByteArray nameOf(const QByteArray &entry)
{
    return entry.contains(" = ") ? entry.left(entry.indexOf(" = ")) : entry;
}

QByteArrayList namesOf(const Tree &entries)
{
    QByteArrayList names;
    for (const QByteArray &entry : entries)
        names.append(nameOf(entry));
    return names;
}

Tree without(Tree entries, const QByteArrayList &names)
{
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&names](const QByteArray &entry) { return names.contains(nameOf(entry)); }),
                  entries.end());
    return entries;
}

/// The lines about files of the card that were copied to @/out, each "NAME" or "NAME -> NAME".
QByteArray lines(const QByteArrayList &files)
{
    QByteArray text;
    for (const QByteArray &file : files) {
        const QByteArrayList names = QString::fromUtf8(file).split(" -> ").join('\n').toUtf8().split('\n');
        text += "@/sd/DCIM/" + names.first() + " -> @/out/" + names.last() + "\n";
    }
    return text;
}

/// The line of sha256sum(1) for an entry "NAME = CONTENT".
QByteArray sumLine(const QByteArray &entry)
{
    const QByteArray name = nameOf(entry);
    return QCryptographicHash::hash(entry.mid(name.size() + 3), QCryptographicHash::Sha256).toHex() + "  "
           + name + "\n";
}

/// @p files in out/, with their folders and SHA256SUMS.
Tree offloaded(const Tree &files)
{
    Tree entries = inFolder("out/", files);
    QByteArray sums;
    for (const QByteArray &file : sorted(files)) {
        sums += sumLine(file);
        const QByteArray folder = "out/" + file.left(file.indexOf('/') + 1);
        if (!entries.contains(folder))
            entries.append(folder);
    }
    if (!sums.isEmpty())
        entries.append("out/SHA256SUMS = " + sums);
    return entries;
}

/// The card with @p files in its folders, of which the two of CARD always exist.
Tree card(const Tree &files)
{
    return onCard(Tree{"100ABC/", "101ABC/"} + files);
}

QByteArray notOffloaded(int failed, int all)
{
    return QByteArray::number(failed) + " of " + QByteArray::number(all) + " files not offloaded";
}

QByteArray isProtected(const QByteArray &path)
{
    return "@/sd/DCIM/" + path + ": is protected and stays on the storage device";
}

/// What sha256sum(1) reports about the files in out/.
Outcome checkedSums(const ToolRun &tool)
{
    return tool.runProgram("/bin/sh", {"-c", "cd out && sha256sum --check --strict --quiet SHA256SUMS"});
}

const Outcome SUMS_ARE_RIGHT = {0, "", ""};

} // namespace

class VornfhOffloadTest : public QObject
{
    Q_OBJECT

private slots:
    void copies_data();
    void copies();
    void moves_data();
    void moves();
    void selectsByDay_data();
    void selectsByDay();
    void keepsTheLinesOfOtherFiles_data();
    void keepsTheLinesOfOtherFiles();
    void agreesWithSha256sum();
    void keepsTheModeOfTheSums();
    void canBeRepeated();
    void keepsAFileThatWasChangedOnTheComputer();
    void leavesOutWhatIsBeingWritten_data();
    void leavesOutWhatIsBeingWritten();
    void keepsWhatChangesMeanwhile_data();
    void keepsWhatChangesMeanwhile();
    void countsWhatChangesMeanwhile();
    void survivesABadCopy();
    void readsAReadOnlyCard();
    void refusesToMoveFromAReadOnlyCard();
    void removesLeftoversOnlyWhereItWrites();
    void goesOnAfterWhatCannotBeRead_data();
    void goesOnAfterWhatCannotBeRead();
    void reportsAFullDisk();
    void reportsSumsThatCannotBeWritten();
    void refusesAFolderInUse();
    void refusesDirectories_data();
    void refusesDirectories();
    void refusesAReadOnlyDirectory();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void refusesStorages_data();
    void refusesStorages();
    void stopsAfterTheCurrentObject_data();
    void stopsAfterTheCurrentObject();
    void continuesAfterBeingKilled_data();
    void continuesAfterBeingKilled();
};

void VornfhOffloadTest::copies_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<Tree>("copies");
    QTest::addColumn<QByteArray>("out");
    const auto row = [](const char *name, const Tree &before, const QByteArrayList &arguments,
                        const Tree &copies, const QByteArray &out) {
        QTest::newRow(name) << before << arguments << copies << out;
    };
    /// All or some files of CARD, with their own names.
    const auto ofCard = [&row](const char *name, const QByteArrayList &arguments, const Tree &copies) {
        row(name, onCard(CARD), arguments, copies, lines(namesOf(copies)));
    };
    ofCard("everything", {}, CARD);
    ofCard("one-folder", {"--folder", "100ABC"}, CARD.mid(0, 4));
    ofCard("two-folders", {"--folder", "101ABC", "--folder", "100ABC"}, CARD);
    ofCard("one-folder-twice", {"--folder=101ABC", "--folder=101ABC"}, CARD.mid(4));
    ofCard("images", {"--type", "images"}, CARD.mid(0, 2) + CARD.mid(4, 2));
    ofCard("videos", {"--type", "videos"}, CARD.mid(2, 2));
    ofCard("audio", {"--type", "audio"}, CARD.mid(6));
    ofCard("images-in-a-folder", {"--type", "images", "--folder", "100ABC"}, CARD.mid(0, 2));
    ofCard("nothing-of-the-type", {"--type", "audio", "--folder", "100ABC"}, {});
    row("empty-card", onCard({}), {}, {}, "");
    row("two-formats-of-one-shot",
        onCard({"100ABC/DCF_0001.avi = a", "100ABC/DCF_0001.jpg = j", "100ABC/DCF_0001.thumb = t"}),
        {"--type", "images"},
        {"100ABC/DCF_0001.avi = a", "100ABC/DCF_0001.jpg = j", "100ABC/DCF_0001.thumb = t"},
        lines({"100ABC/DCF_0001.avi", "100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb"}));
    row("names-in-upper-case", onCard({"100ABC/DCF_0001.JPG = x"}), {}, {"100ABC/DCF_0001.JPG = x"},
        lines({"100ABC/DCF_0001.JPG"}));
    row("thumbnail-that-is-alone", onCard({"100ABC/DCF_0001.thumb = t"}), {}, {"100ABC/DCF_0001.thumb = t"},
        lines({"100ABC/DCF_0001.thumb"}));
    row("thumbnail-that-is-alone-has-no-type", onCard({"100ABC/DCF_0001.thumb = t"}), {"--type", "images"},
        {}, "");
    row("what-is-not-an-object",
        onCard({"100ABC/IMG_0001.jpg", "100ABC/DCF_0000.jpg", "100ABC/DCF_0001_1.jpg", "100ABC/notes.txt",
                "100ABC/.DCF_0001.jpg", "100ABC/DCF_0002.jpg -> @/elsewhere", "0100ABC/DCF_0001.jpg",
                "MISC/DCF_0001.jpg", "DCF_0001.jpg"}),
        {}, {}, "");
    row("same-content-is-there", onCard({"100ABC/DCF_0001.jpg = x"}) + Tree{"out/100ABC/DCF_0001.jpg = x"},
        {}, {"100ABC/DCF_0001.jpg = x"}, lines({"100ABC/DCF_0001.jpg"}));
    row("same-content-is-there-with-a-counter",
        onCard({"100ABC/DCF_0001.jpg = x"})
            + Tree{"out/100ABC/DCF_0001.jpg = other", "out/100ABC/DCF_0001_1.jpg = x"},
        {}, {"100ABC/DCF_0001_1.jpg = x"}, lines({"100ABC/DCF_0001.jpg -> 100ABC/DCF_0001_1.jpg"}));
    row("other-content-is-there",
        onCard({"100ABC/DCF_0001.jpg = x"})
            + Tree{"out/100ABC/DCF_0001.jpg = other", "out/100ABC/DCF_0001_1.jpg = others"},
        {}, {"100ABC/DCF_0001_2.jpg = x"}, lines({"100ABC/DCF_0001.jpg -> 100ABC/DCF_0001_2.jpg"}));
}

void VornfhOffloadTest::copies()
{
    QFETCH(Tree, before);
    QFETCH(QByteArrayList, arguments);
    QFETCH(Tree, copies);
    QFETCH(QByteArray, out);
    for (const QByteArray directory : {"out", "@/out/", "./new/../out/."}) {
        const ToolRun tool;
        tool.make(before);
        Tree expected = treeWithContents(tool.path());
        for (const QByteArray &entry : offloaded(copies)) {
            if (!expected.contains(entry))
                expected.append(entry);
        }
        QCOMPARE(tool.runOnStorages(QByteArrayList{"offload", "sd", directory} + arguments),
                 tool.success(out));
        QCOMPARE(sorted(treeWithContents(tool.path())), sorted(expected));
        if (!copies.isEmpty())
            QCOMPARE(checkedSums(tool), SUMS_ARE_RIGHT);
    }
}

void VornfhOffloadTest::moves_data()
{
    QTest::addColumn<Tree>("before"); // on the card
    QTest::addColumn<QByteArrayList>("protectedFiles");
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<Tree>("copies");
    QTest::addColumn<QByteArrayList>("deleted");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const Tree &before, const QByteArrayList &arguments,
                        const Tree &copies, const QByteArrayList &deleted,
                        const QByteArrayList &protectedFiles = {}, const QByteArrayList &messages = {}) {
        QTest::newRow(name) << before << protectedFiles << arguments << copies << deleted << messages;
    };
    const QByteArrayList names = namesOf(CARD);
    row("newest-stays", CARD, {}, CARD, names.mid(0, 6));
    row("only-one", {"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = t"}, {},
        {"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = t"}, {});
    row("newest-in-another-folder", CARD, {"--folder", "100ABC"}, CARD.mid(0, 4), names.mid(0, 4));
    row("newest-of-another-type", CARD, {"--type", "images"}, CARD.mid(0, 2) + CARD.mid(4, 2),
        names.mid(0, 2) + names.mid(4, 2));
    row("later-folder-without-objects", CARD + Tree{"102ABC/"}, {}, CARD, names.mid(0, 6));
    row("thumbnail-is-not-the-newest", CARD + Tree{"102ABC/DCF_0001.thumb = t"}, {},
        CARD + Tree{"102ABC/DCF_0001.thumb = t"}, names.mid(0, 6) + QByteArrayList{"102ABC/DCF_0001.thumb"});
    row("protected-recording", CARD, {}, CARD, names.mid(2, 4), {names[0]}, {isProtected(names[0])});
    row("protected-thumbnail", CARD, {}, CARD, names.mid(0, 2) + names.mid(4, 2), {names[3]},
        {isProtected(names[2])});
    row("protected-newest", CARD, {}, CARD, names.mid(0, 6), {names[6]});
    row("others-stay", CARD + Tree{"100ABC/notes.txt", "100ABC/DCF_0001_1.jpg = x", "MISC/a.jpg = a"}, {},
        CARD, names.mid(0, 6));
}

void VornfhOffloadTest::moves()
{
    QFETCH(Tree, before);
    QFETCH(QByteArrayList, protectedFiles);
    QFETCH(QByteArrayList, arguments);
    QFETCH(Tree, copies);
    QFETCH(QByteArrayList, deleted);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    tool.make(onCard(before));
    for (const QByteArray &file : protectedFiles)
        setMode(tool, "sd/DCIM/" + file, 0444);
    const Tree expected =
        without(treeWithContents(tool.path()), below("sd/DCIM/", deleted)) + offloaded(copies);
    QCOMPARE(tool.runOnStorages(QByteArrayList{"offload", "--move", "sd", "out"} + arguments),
             tool.success(lines(namesOf(copies)), errorLines(messages)));
    QCOMPARE(sorted(treeWithContents(tool.path())), sorted(expected));
    QCOMPARE(checkedSums(tool), SUMS_ARE_RIGHT);
}

void VornfhOffloadTest::selectsByDay_data()
{
    QTest::addColumn<QString>("zone");
    QTest::addColumn<QByteArrayList>("days");
    QTest::addColumn<QByteArrayList>("copied");
    const auto row = [](const char *name, const QString &zone, const QByteArrayList &days,
                        const QByteArrayList &copied) { QTest::newRow(name) << zone << days << copied; };
    const QByteArrayList all = {"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.jpg", "100ABC/DCF_0002.thumb",
                                "100ABC/DCF_0003.wav"};
    row("first-day", "UTC", {"--since", "1970-01-01"}, all);
    row("second-day", "UTC", {"--since", "1970-01-02"}, all.mid(1));
    row("third-day", "UTC", {"--since", "1970-01-03"}, {});
    row("leap-day", "UTC", {"--since", "2024-02-29"}, {});
    row("east", "EAST-9", {"--since", "1970-01-02"}, all);
    row("until-the-first-day", "UTC", {"--until", "1970-01-01"}, all.mid(0, 1));
    row("until-the-second-day", "UTC", {"--until", "1970-01-02"}, all);
    row("until-in-the-west", "WEST5", {"--until", "1970-01-01"}, all);
    row("days", "UTC", {"--since", "1970-01-02", "--until", "1970-01-02"}, all.mid(1));
    row("west", "WEST5", {"--since", "1970-01-02"}, {});
}

/// A thumbnail that is newer than its recording, and files around the beginning of the second day.
void VornfhOffloadTest::selectsByDay()
{
    QFETCH(QString, zone);
    QFETCH(QByteArrayList, days);
    QFETCH(QByteArrayList, copied);
    ToolRun tool;
    tool.environment.insert("TZ", zone);
    tool.make(onCard({"100ABC/DCF_0001.jpg at 86399", "100ABC/DCF_0002.jpg at 100",
                      "100ABC/DCF_0002.thumb at 86400", "100ABC/DCF_0003.wav at 86401"}));
    QCOMPARE(tool.runOnStorages(QByteArrayList{"offload", "sd", "out"} + days), tool.success(lines(copied)));
}

void VornfhOffloadTest::keepsTheLinesOfOtherFiles_data()
{
    QTest::addColumn<QByteArray>("before"); // in SHA256SUMS; "@" is the sum of "old"
    QTest::addColumn<QByteArray>("after");  // without the line of the new file, which is the last one
    const auto row = [](const char *name, const QByteArray &before, const QByteArray &after) {
        const QByteArray sum = QCryptographicHash::hash("old", QCryptographicHash::Sha256).toHex();
        QTest::newRow(name) << QByteArray(before).replace('@', sum) << QByteArray(after).replace('@', sum);
    };
    row("files-that-are-there", "@  100ABC/DCF_0001.jpg\n@  a\n", "@  100ABC/DCF_0001.jpg\n@  a\n");
    row("files-in-another-order", "@  a\n@  100ABC/DCF_0001.jpg\n", "@  100ABC/DCF_0001.jpg\n@  a\n");
    row("file-that-is-gone", "@  gone\n@  a\n@  100ABC/gone.jpg\n@  a/b\n", "@  a\n");
    row("file-in-binary-mode", "@ *a\n", "@  a\n");
    row("file-by-its-whole-path", "@  /dev/null\n", "@  /dev/null\n");
    row("escapes", "\\@  l\\nf\n\\@  b\\\\s\n\\@  c\\rr\n", "\\@  b\\\\s\n\\@  c\\rr\n\\@  l\\nf\n");
    row("backslash-without-escapes", "@  b\\s\n", "\\@  b\\\\s\n");
    row("name-that-is-not-utf-8", "@  \xff\n", "@  \xff\n");
    row("no-line-feed-at-the-end", "@  a", "@  a\n");
    row("old-line-of-the-new-file", "@  100ABC/DCF_0002.jpg\n", "");
    row("two-lines-of-one-file", QByteArray(64, '0') + "  a\n@  a\n", "@  a\n");
    row("other-lines", "# a comment\n@ a\n\\@  a\\x\n@  a\nnot a sum\n\n",
        "# a comment\n@ a\n\\@  a\\x\nnot a sum\n@  a\n");
}

void VornfhOffloadTest::keepsTheLinesOfOtherFiles()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0002.jpg = new"})
              + below("out/", {"100ABC/DCF_0001.jpg = old", "a = old", "l\nf = old", "b\\s = old",
                               "c\rr = old", "\xff = old"}));
    writeFile(tool.path() + "/out/SHA256SUMS", before);
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out"}), tool.success(lines({"100ABC/DCF_0002.jpg"})));
    const QByteArray own = sumLine("100ABC/DCF_0002.jpg = new");
    QCOMPARE(tool.content("out/SHA256SUMS").replace(own, ""), after);
}

/// sha256sum(1), which reads the file, would write the same lines.
void VornfhOffloadTest::agreesWithSha256sum()
{
    const ToolRun tool;
    const QByteArrayList offload = {"--suffix", "A\\C", "--sd", "@/sd/DCIM", "offload", "sd", "out"};
    tool.make(onCard({"100A\\C/DCF_0001.jpg = photo", "100A\\C/DCF_0002.wav"})
              + Tree{"out/l\nf = x", "out/b\\s = y", "out/c\rr = z", "out/plain = w"});
    const QString sums = "cd out && sha256sum b* c* l* p* > SHA256SUMS";
    QCOMPARE(tool.runProgram("/bin/sh", {"-c", sums}).exitCode, 0);
    QCOMPARE(tool.run(offload).exitCode, 0);
    const Outcome expected = tool.runProgram("/bin/sh", {"-c", "cd out && sha256sum 1*/* b* c* l* p*"});
    QCOMPARE(tool.content("out/SHA256SUMS"), expected.out);
    QCOMPARE(checkedSums(tool), SUMS_ARE_RIGHT);
    tool.make({"out/100A\\C/DCF_0001.jpg = photos"});
    QCOMPARE(checkedSums(tool).exitCode, 1);
}

void VornfhOffloadTest::keepsTheModeOfTheSums()
{
    const ToolRun tool;
    const mode_t mask = ::umask(022);
    ::umask(mask);
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out"}).exitCode, 0);
    QCOMPARE(statusOf(tool, "out/SHA256SUMS").st_mode & 07777U, 0666U & ~mask);
    setMode(tool, "out/SHA256SUMS", 0640);
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out"}).exitCode, 0);
    QCOMPARE(statusOf(tool, "out/SHA256SUMS").st_mode & 07777U, 0640U);
}

void VornfhOffloadTest::canBeRepeated()
{
    const ToolRun tool;
    tool.make(onCard(CARD));
    const Outcome all = tool.success(lines(namesOf(CARD)));
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out"}), all);
    const ino_t copy = statusOf(tool, "out/100ABC/DCF_0001.jpg").st_ino;
    const Tree before = treeWithContents(tool.path());
    QVERIFY(QFile::remove(tool.path() + "/out/101ABC/DCF_0002.wav"));
    QVERIFY(QFile::remove(tool.path() + "/out/SHA256SUMS"));
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out"}), all);
    QCOMPARE(treeWithContents(tool.path()), before);
    QCOMPARE(statusOf(tool, "out/100ABC/DCF_0001.jpg").st_ino, copy);
    // The next recordings have other numbers.
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out", "--move"}), all);
    const Tree newer = {"101ABC/DCF_0003.jpg = new"};
    tool.make(onCard(newer));
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out", "--move"}),
             tool.success(lines({"101ABC/DCF_0002.wav", "101ABC/DCF_0003.jpg"})));
    QCOMPARE(sorted(treeWithContents(tool.path())), sorted(card(newer) + offloaded(CARD + newer)));
    QCOMPARE(statusOf(tool, "out/100ABC/DCF_0001.jpg").st_ino, copy);
}

void VornfhOffloadTest::keepsAFileThatWasChangedOnTheComputer()
{
    const ToolRun tool;
    tool.make(onCard(CARD));
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out"}).exitCode, 0);
    tool.make({"out/100ABC/DCF_0001.jpg = edited"});
    QByteArrayList targets = namesOf(CARD);
    targets[0] += " -> 100ABC/DCF_0001_1.jpg";
    targets[1] += " -> 100ABC/DCF_0001_1.thumb"; // an object gets one counter
    for (const QByteArrayList &options : {QByteArrayList{}, QByteArrayList{"--move"}})
        QCOMPARE(tool.runOnStorages(QByteArrayList{"offload", "sd", "out"} + options),
                 tool.success(lines(targets)));
    QCOMPARE(tool.content("out/100ABC/DCF_0001.jpg"), QByteArray("edited"));
    QCOMPARE(tool.content("out/100ABC/DCF_0001_1.jpg"), QByteArray("photo"));
    QCOMPARE(tool.content("out/100ABC/DCF_0001_1.thumb"), QByteArray("small photo"));
    // The line of the old content remains, so that the change is detected.
    QCOMPARE(checkedSums(tool).exitCode, 1);
    const QByteArray sums = tool.content("out/SHA256SUMS");
    QVERIFY(sums.contains(sumLine("100ABC/DCF_0001.jpg = photo")));
    QVERIFY(sums.contains(sumLine("100ABC/DCF_0001_1.jpg = photo")));
}

void VornfhOffloadTest::leavesOutWhatIsBeingWritten_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("isWriting"); // or locked
    QTest::addColumn<QByteArrayList>("options");
    const auto row = [](const QByteArray &name, const QByteArray &file, bool isWriting) {
        QTest::newRow(name) << file << isWriting << QByteArrayList();
        QTest::newRow(name + "--move") << file << isWriting << QByteArrayList{"--move"};
    };
    row("open-for-writing", "100ABC/DCF_0001.jpg", true);
    row("thumbnail", "100ABC/DCF_0001.thumb", true);
    row("locked", "100ABC/DCF_0001.jpg", false);
}

void VornfhOffloadTest::leavesOutWhatIsBeingWritten()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, isWriting);
    QFETCH(QByteArrayList, options);
    const ToolRun tool;
    tool.make(onCard(CARD));
    const QByteArray path = QFile::encodeName(tool.sd()) + "/" + file;
    const int descriptor = ::open(path.constData(), (isWriting ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
    QVERIFY(descriptor >= 0 && (isWriting || ::flock(descriptor, LOCK_EX) == 0));
    const QByteArrayList arguments = QByteArrayList{"offload", "sd", "out"} + options;
    const Outcome outcome = tool.runOnStorages(arguments);
    ::close(descriptor);
    const QByteArray message = "@/sd/DCIM/100ABC/DCF_0001.jpg: is being written and is not offloaded";
    QCOMPARE(outcome,
             (Outcome{3, tool.expand(lines(namesOf(CARD.mid(2)))), tool.expand(errorLines({message}))}));
    const Tree left = options.isEmpty() ? CARD : CARD.mid(0, 2) + CARD.mid(6);
    QCOMPARE(sorted(treeWithContents(tool.path())), sorted(card(left) + offloaded(CARD.mid(2))));
    const QByteArrayList again = namesOf(left);
    QCOMPARE(tool.runOnStorages(arguments), tool.success(lines(again)));
}

void VornfhOffloadTest::keepsWhatChangesMeanwhile_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArrayList>("messages");
    QTest::addColumn<bool>("isDone");
    const QByteArray path = "sd/DCIM/100ABC/DCF_0001.jpg";
    const QByteArray changed = "@/" + path + ": has changed since it was opened";
    row("is-protected", "chmod a-w " + path, QByteArrayList{isProtected("100ABC/DCF_0001.jpg")}, true);
    row("thumbnail-is-protected", QByteArray("chmod a-w sd/DCIM/100ABC/DCF_0001.thumb"),
        QByteArrayList{isProtected("100ABC/DCF_0001.jpg")}, true);
    row("is-opened-for-writing", "(exec 3>>" + path + "; exec sleep 3) > /dev/null 2>&1 & sleep 0.3",
        QByteArrayList{"@/" + path + ": is being written and stays on the storage device"}, true);
    row("grows", "printf x >> " + path, QByteArrayList{changed, notOffloaded(2, 7)}, false);
    row("is-touched", "touch " + path, QByteArrayList{changed, notOffloaded(2, 7)}, false);
    row("is-replaced", "printf new > n; mv n " + path, QByteArrayList{changed, notOffloaded(2, 7)}, false);
}

/// The change happens after the copies of the first folder have been named.
void VornfhOffloadTest::keepsWhatChangesMeanwhile()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArrayList, messages);
    QFETCH(bool, isDone);
    ToolRun tool;
    if (!tool.runBefore("syncfs", script, 2))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard(CARD));
    const QByteArrayList names = namesOf(CARD);
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out", "--move"}),
             isDone ? tool.success(lines(names), errorLines(messages))
                    : tool.failure(messages, lines(names.mid(2))));
    const QByteArrayList left = tree(tool.sd());
    QCOMPARE(left, (QByteArrayList{"100ABC/", names[0], names[1], "101ABC/", names[6]}));
    QCOMPARE(tool.content("out/100ABC/DCF_0001.jpg"), QByteArray("photo"));
}

/// An object that stays because it has changed is counted in the progress line, too.
void VornfhOffloadTest::countsWhatChangesMeanwhile()
{
    ToolRun tool;
    const QByteArray script = "echo >> calls; case $(grep -c '' calls) in\n"
                              "2) touch sd/DCIM/100ABC/DCF_0001.jpg;;\n"
                              "3) sleep 0.5;;\nesac"; // in the second folder, so that the line is drawn
    if (!tool.runBefore("syncfs", script, 0))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard({"100ABC/DCF_0001.jpg = 1", "100ABC/DCF_0002.jpg = 2", "101ABC/DCF_0001.jpg = 3"}));
    const QByteArray out = tool.runOnTerminal({"offload", "sd", "out", "--move"}).out;
    QVERIFY2(out.contains("\r2 of 3 files, 3 B of 3 B, flushing, "), out.constData());
}

void VornfhOffloadTest::survivesABadCopy()
{
    ToolRun tool;
    const QByteArray script = "bad=$(grep -lx photo out/100ABC/.vornfh-*); printf PHOTO > \"$bad\"";
    if (!tool.runBefore("syncfs", script))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard(CARD));
    QCOMPARE(
        tool.runOnStorages({"offload", "sd", "out", "--move"}),
        tool.failure({"@/sd/DCIM/100ABC/DCF_0001.jpg: the copy on the device differs", notOffloaded(2, 7)},
                     lines(namesOf(CARD.mid(2)))));
    QCOMPARE(sorted(treeWithContents(tool.path())),
             sorted(card(CARD.mid(0, 2) + CARD.mid(6)) + offloaded(CARD.mid(2))));
}

void VornfhOffloadTest::readsAReadOnlyCard()
{
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount mount(tool.path() + "/sd", "size=1m");
    tool.make(onCard(CARD + Tree{"100ABC/.vornfh-4194304-abcdef = left"}));
    QVERIFY(mount.isMounted() && mount.makeReadOnly());
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out", "-n"}), tool.success(lines(namesOf(CARD))));
    QCOMPARE(treeWithContents(tool.path()), before);
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out"}), tool.success(lines(namesOf(CARD))));
    QCOMPARE(sorted(treeWithContents(tool.path())), sorted(before + offloaded(CARD)));
}

void VornfhOffloadTest::refusesToMoveFromAReadOnlyCard()
{
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount mount(tool.path() + "/sd", "size=1m");
    tool.make(onCard(CARD));
    QVERIFY(mount.isMounted() && mount.makeReadOnly());
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages({"offload", "sd", "out", "--move"}),
             tool.failure({messages::readOnly("@/sd/DCIM")}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhOffloadTest::removesLeftoversOnlyWhereItWrites()
{
    const ToolRun tool;
    const QByteArray left = ".vornfh-4194304-abcdef";
    tool.make(onCard(CARD + Tree{"100ABC/" + left})
              + below("out/", {left, "100ABC/" + left, "102ABC/" + left}));
    const Outcome copied = tool.runOnStorages({"offload", "sd", "out"});
    QCOMPARE(copied,
             tool.success(lines(namesOf(CARD)), errorLines({messages::removed("@/out/" + left),
                                                            messages::removed("@/out/100ABC/" + left)})));
    QVERIFY(tree(tool.sd()).contains("100ABC/" + left));
    const Outcome moved = tool.runOnStorages({"offload", "sd", "out", "--move"});
    QCOMPARE(moved,
             tool.success(lines(namesOf(CARD)), errorLines({messages::removed("@/sd/DCIM/100ABC/" + left)})));
    QCOMPARE(sorted(treeWithContents(tool.path())),
             sorted(card(CARD.mid(6)) + offloaded(CARD) + Tree{"out/102ABC/", "out/102ABC/" + left}));
}

void VornfhOffloadTest::goesOnAfterWhatCannotBeRead_data()
{
    QTest::addColumn<QByteArray>("entry");
    QTest::addColumn<QByteArrayList>("messages");
    QTest::addColumn<QByteArrayList>("copied");
    QTest::addColumn<QByteArrayList>("left"); // on the card after --move
    const QByteArrayList names = namesOf(CARD);
    row("folder", QByteArray("100ABC"), QByteArrayList{"@/sd/DCIM/100ABC: Permission denied"}, names.mid(4),
        names.mid(6));
    row("recording", QByteArray(names[0]),
        QByteArrayList{"@/sd/DCIM/" + names[0] + ": Permission denied", notOffloaded(2, 7)}, names.mid(2),
        names.mid(0, 2) + names.mid(6));
    row("thumbnail", QByteArray(names[1]),
        QByteArrayList{"@/sd/DCIM/" + names[1] + ": Permission denied", notOffloaded(1, 7)},
        names.mid(0, 1) + names.mid(2), names.mid(0, 2) + names.mid(6));
}

void VornfhOffloadTest::goesOnAfterWhatCannotBeRead()
{
    QFETCH(QByteArray, entry);
    QFETCH(QByteArrayList, messages);
    QFETCH(QByteArrayList, copied);
    QFETCH(QByteArrayList, left);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("cannot become another user");
    tool.make(onCard(CARD) + Tree{"out/"});
    if (::geteuid() == 0) {
        for (const QByteArray &path : QByteArrayList{"out"} + below("sd/DCIM/", {"100ABC", "101ABC"})
                                          + below("sd/DCIM/", namesOf(CARD)))
            QCOMPARE(::chown((QFile::encodeName(tool.path()) + "/" + path).constData(), 65534, 65534), 0);
    }
    setMode(tool, "sd/DCIM/" + entry, 0);
    const Outcome outcome = tool.runOnStorages({"offload", "sd", "out"});
    const Outcome moved = tool.runOnStorages({"offload", "sd", "out", "--move"});
    setMode(tool, "sd/DCIM/" + entry, 0755);
    QCOMPARE(outcome, tool.failure(messages, lines(copied)));
    QCOMPARE(moved, tool.failure(messages, lines(copied)));
    Tree files = tree(tool.sd());
    files.removeAll("100ABC/");
    files.removeAll("101ABC/");
    QCOMPARE(files, (entry == "100ABC" ? namesOf(CARD.mid(0, 4)) : QByteArrayList()) + left);
}

void VornfhOffloadTest::reportsAFullDisk()
{
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const ToolRun tool;
    tool.make({"out/"});
    const TmpfsMount disk(tool.path() + "/out", "size=1m");
    QVERIFY(disk.isMounted());
    const Tree big = {"100ABC/DCF_0003.avi = " + QByteArray(2 << 20, 'x'), "100ABC/DCF_0003.thumb = small"};
    tool.make(onCard(CARD + big));
    const Outcome outcome = tool.runOnStorages({"offload", "sd", "out", "--move"});
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.out, tool.expand(lines(namesOf(CARD))));
    const QByteArray message =
        "@/sd/DCIM/100ABC/DCF_0003.avi: not enough space in @/out/100ABC: 2.0 MiB needed, ";
    QVERIFY2(outcome.err.startsWith(tool.expand(errorLines({message}).chopped(1))), outcome.err);
    QVERIFY2(outcome.err.endsWith(errorLines({notOffloaded(2, 9)})), outcome.err);
    QCOMPARE(outcome.err.count('\n'), 2);
    QCOMPARE(sorted(treeWithContents(tool.path())), sorted(card(big + CARD.mid(6)) + offloaded(CARD)));
    QCOMPARE(checkedSums(tool), SUMS_ARE_RIGHT);
}

void VornfhOffloadTest::reportsSumsThatCannotBeWritten()
{
    const ToolRun tool;
    tool.make(onCard(CARD) + Tree{"out/SHA256SUMS/"});
    const Tree before = treeWithContents(tool.path());
    const Outcome outcome = tool.runOnStorages({"offload", "sd", "out", "--move"});
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.out, QByteArray());
    QVERIFY2(outcome.err.startsWith(tool.expand("vornfh: @/out/SHA256SUMS: cannot be read: ")), outcome.err);
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhOffloadTest::refusesAFolderInUse()
{
    const ToolRun tool;
    tool.make(onCard(CARD) + Tree{"out/100ABC/"});
    const int folder =
        ::open(QFile::encodeName(tool.path() + "/out/100ABC").constData(), O_RDONLY | O_CLOEXEC);
    QCOMPARE(::flock(folder, LOCK_EX), 0);
    const Outcome outcome = tool.runOnStorages({"offload", "sd", "out"});
    ::close(folder);
    QCOMPARE(outcome, tool.failure({"@/out/100ABC: another vornfh is copying into this folder"}));
}

void VornfhOffloadTest::refusesDirectories_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QByteArray>("directory");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArray &directory, const QByteArray &message,
                        int exitCode = 2, const Tree &before = {}) {
        QTest::newRow(name) << before << directory << exitCode << message;
    };
    const QByteArray location = " @/sd/DCIM, the location of storage sd";
    row("the-location", "@/sd/DCIM", "@/sd/DCIM: is" + location);
    row("the-location-by-a-link", "link", "@/link: is" + location, 2, {"link -> sd/DCIM"});
    row("folder-in-the-location", "@/sd/DCIM/100ABC", "@/sd/DCIM/100ABC: is inside" + location);
    row("new-folder-in-the-location", "sd/DCIM/a/b", "@/sd/DCIM/a/b: is inside" + location);
    row("new-folder-by-a-link", "link/a/b", "@/link/a/b: is inside" + location, 2,
        {"link -> sd/DCIM/101ABC"});
    row("folder-above-the-location", "@/sd", "@/sd: contains" + location);
    row("root", "/", "/: contains" + location);
    row("empty", "", "DIRECTORY: the path is empty");
    row("not-utf-8", "x\xff", messages::notUtf8("DIRECTORY: the path", "x\\xff"));
    row("file", "file", "@/file: is not a folder", 1, {"file = x"});
    row("below-a-file", "file/a", "@/file/a: cannot be created: Not a directory", 1, {"file = x"});
    row("dangling-link", "link", "@/link: is not a folder", 1, {"link -> gone"});
}

void VornfhOffloadTest::refusesDirectories()
{
    QFETCH(Tree, before);
    QFETCH(QByteArray, directory);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(onCard(CARD) + before);
    const Tree contents = treeWithContents(tool.path());
    for (const QByteArrayList &options : {QByteArrayList{}, QByteArrayList{"--move"}})
        QCOMPARE(tool.runOnStorages(QByteArrayList{"offload", "sd", directory} + options),
                 (Outcome{exitCode, "", tool.expand(errorLines({message}))}));
    QCOMPARE(treeWithContents(tool.path()), contents);
}

void VornfhOffloadTest::refusesAReadOnlyDirectory()
{
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const ToolRun tool;
    tool.make(Tree{"disk/"} + onCard(CARD));
    const TmpfsMount disk(tool.path() + "/disk", "size=1m");
    QVERIFY(disk.isMounted() && disk.makeReadOnly());
    QCOMPARE(tool.runOnStorages({"offload", "sd", "disk/new/out"}),
             tool.failure({messages::readOnly("@/disk/new/out")}));
}

void VornfhOffloadTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &message) {
        QTest::newRow(name) << arguments << message;
    };
    row("no-storage", {}, "STORAGE is required");
    row("no-directory", {"sd"}, "DIRECTORY is required");
    row("unknown-storage", {"card", "out"}, messages::unknownStorage("card"));
    row("since-without-a-value", {"sd", "out", "--since"}, "--since needs a value: DATE");
    for (const char *value : {"today", "2025-02-30", "2025-2-3", "25-02-25", "2025-02-25 ", " 2025-02-25",
                              "2025-02-25T00:00", "2025/02/25", "20250225", "-001-02-25"})
        row(QByteArray("since-").append(value), {"sd", "out", QByteArray("--since=") + value},
            QByteArray("--since: '") + value + "' is not a date such as 2025-02-25");
    row("until", {"sd", "out", "--until=2025-02-30"},
        "--until: '2025-02-30' is not a date such as 2025-02-25");
    row("type-without-a-value", {"sd", "out", "--type"}, "--type needs a value: images|videos|audio");
    row("unknown-type", {"sd", "out", "--type", "jpg"}, "--type: jpg not in {images,videos,audio}");
    row("folder-without-a-value", {"sd", "out", "--folder"}, "--folder needs a value: NAME");
    row("folder-with-a-slash", {"sd", "out", "--folder", "100ABC/"},
        messages::folderNameWithSlash("100ABC/"));
    row("two-dots-as-folder", {"sd", "out", "--folder", ".."}, messages::reservedFolderName(".."));
    row("folder-that-is-not-utf-8", {"sd", "out", "--folder", "x\xff"},
        messages::notUtf8("--folder", "x\\xff"));
}

void VornfhOffloadTest::refusesWrongCommandLines()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(onCard(CARD));
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages(QByteArrayList{"offload"} + arguments), tool.usageError({message}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhOffloadTest::refusesStorages_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const Tree &entries, const QByteArrayList &options,
                        const QByteArray &message) { QTest::newRow(name) << entries << options << message; };
    row("missing", {}, {}, "@/sd/DCIM: does not exist");
    row("file", {"sd/DCIM"}, {}, "@/sd/DCIM: is not a folder");
    row("absent-device", onCard(CARD), {"--sd-block", "nosuchdevice"},
        "@/sd/DCIM: the block device nosuchdevice of storage sd is not present");
    row("absent-device-without-the-location", {}, {"--sd-block", "nosuchdevice"},
        "@/sd/DCIM: the block device nosuchdevice of storage sd is not present");
    for (const QByteArray name : {"102ABC", "0100ABC", "MISC"})
        row("folder-" + name, onCard(CARD + Tree{"0100ABC/", "MISC/"}), {"--folder", name},
            "@/sd/DCIM/" + name + ": is not a numbered folder");
}

void VornfhOffloadTest::refusesStorages()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(entries);
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages(QByteArrayList{"offload", "sd", "out"} + options), tool.failure({message}));
    QCOMPARE(tool.runOnStorages(QByteArrayList{"offload", "sd", "out", "--move"} + options),
             tool.failure({message}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhOffloadTest::stopsAfterTheCurrentObject_data()
{
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<QByteArrayList>("options");
    for (const QByteArray signal : {"INT", "TERM", "HUP"}) {
        row("SIG" + signal, signal, QByteArrayList());
        row("move-SIG" + signal, signal, QByteArrayList{"--move"});
    }
}

/// The signal arrives while the first file of the second object is copied.
void VornfhOffloadTest::stopsAfterTheCurrentObject()
{
    QFETCH(QByteArray, signal);
    QFETCH(QByteArrayList, options);
    ToolRun tool;
    const QProcessEnvironment usual = tool.environment;
    if (!tool.runBefore("copy_file_range", "kill -" + signal + " $PPID", 3))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard(CARD));
    const QByteArrayList offload = QByteArrayList{"offload", "sd", "out"} + options;
    QCOMPARE(tool.runOnStorages(offload),
             tool.failure({"interrupted: " + notOffloaded(3, 7)}, lines(namesOf(CARD.mid(0, 4)))));
    const Tree left = options.isEmpty() ? CARD : CARD.mid(4);
    QCOMPARE(sorted(treeWithContents(tool.path())), sorted(card(left) + offloaded(CARD.mid(0, 4))));

    tool.environment = usual;
    QCOMPARE(tool.runOnStorages(offload), tool.success(lines(namesOf(left))));
    QCOMPARE(sorted(treeWithContents(tool.path())),
             sorted(card(options.isEmpty() ? CARD : CARD.mid(6)) + offloaded(CARD)));
}

namespace {

/// Returns what is wrong with the card and the directory after a run that was killed; empty if nothing is.
QByteArray problemAfterKill(const ToolRun &tool, const Tree &files)
{
    const Tree card = treeWithContents(tool.sd());
    const Tree directory = treeWithContents(tool.path() + "/out");
    for (const QByteArray &file : files) {
        if (!card.contains(file) && !directory.contains(file))
            return "lost: " + nameOf(file);
        // What was deleted from the card is in SHA256SUMS.
        if (!card.contains(file) && !tool.content("out/SHA256SUMS").contains(sumLine(file)))
            return "without a sum: " + nameOf(file);
    }
    for (const QByteArray &file : directory) {
        const QByteArray name = nameOf(file);
        const bool isOwn = name.endsWith('/') || name.contains(".vornfh-") || name == "SHA256SUMS";
        if (!isOwn && !files.contains(file))
            return "not whole: " + name;
    }
    for (const QByteArrayList &names : {namesOf(card), namesOf(directory)}) {
        for (const QByteArray &name : names) {
            const QByteArray base = name.left(name.lastIndexOf('.'));
            const auto isOfObject = [&base](const QByteArray &other) { return other.startsWith(base + "."); };
            if (name.endsWith(".thumb") && std::count_if(names.begin(), names.end(), isOfObject) < 2)
                return "alone: " + name;
        }
    }
    if (!tool.content("out/SHA256SUMS").isEmpty() && !(checkedSums(tool) == SUMS_ARE_RIGHT))
        return "wrong sums";
    return QByteArray();
}

} // namespace

void VornfhOffloadTest::continuesAfterBeingKilled_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("copied"); // files that have their names
    QTest::addColumn<int>("left");   // files on the card
    const auto row = [](const char *name, const QByteArrayList &options, const QByteArray &call, int count,
                        int copied,
                        int left = 7) { QTest::newRow(name) << options << call << count << copied << left; };
    const QByteArrayList move = {"--move"};
    row("before-the-directory-is-named", {}, "renameat2", 1, 0);
    row("before-the-folder-is-named", {}, "renameat2", 2, 0);
    row("while-the-first-file-is-written", {}, "copy_file_range", 1, 0);
    row("while-the-second-file-is-written", {}, "copy_file_range", 2, 0);
    row("before-the-copies-are-flushed", {}, "syncfs", 1, 0);
    row("before-the-copies-are-named", {}, "renameat2", 3, 0);
    row("after-the-first-copy-is-named", {}, "renameat2", 4, 1);
    row("before-the-names-are-flushed", {}, "syncfs", 3, 4);
    row("in-the-second-folder", {}, "syncfs", 4, 4);
    row("move-before-the-names-are-flushed", move, "syncfs", 3, 4);
    row("move-before-the-first-thumbnail-is-deleted", move, "unlink", 1, 4);
    row("move-before-the-second-thumbnail-is-deleted", move, "unlink", 2, 4, 6);
    row("move-before-the-first-recording-is-deleted", move, "unlink", 3, 4, 5);
    row("move-before-the-second-recording-is-deleted", move, "unlink", 4, 4, 4);
    row("move-in-the-second-folder", move, "syncfs", 4, 4, 3);
    row("move-before-the-last-recording-is-deleted", move, "unlink", 6, 7, 2);
}

void VornfhOffloadTest::continuesAfterBeingKilled()
{
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, call);
    QFETCH(int, count);
    QFETCH(int, copied);
    QFETCH(int, left);
    ToolRun tool;
    const QProcessEnvironment usual = tool.environment;
    if (!tool.runBefore(call, "kill -9 $PPID", count))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard(CARD));
    const QByteArrayList offload = QByteArrayList{"offload", "sd", "out"} + options;
    QCOMPARE(tool.runOnStorages(offload).exitCode, 128 + SIGKILL);
    tool.environment = usual;
    QCOMPARE(problemAfterKill(tool, CARD), QByteArray());
    Tree files;
    for (const QByteArray &entry : treeWithContents(tool.path() + "/out")) {
        if (CARD.contains(entry))
            files.append(entry);
    }
    Tree rest;
    for (const QByteArray &entry : treeWithContents(tool.sd())) {
        if (CARD.contains(entry))
            rest.append(entry);
    }
    QCOMPARE(files.size(), copied);
    QCOMPARE(rest.size(), left);

    const Outcome outcome = tool.runOnStorages(offload);
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out, tool.expand(lines(namesOf(rest))));
    QCOMPARE(sorted(treeWithContents(tool.path())),
             sorted(card(options.isEmpty() ? CARD : CARD.mid(6)) + offloaded(CARD)));
    QCOMPARE(checkedSums(tool), SUMS_ARE_RIGHT);
}

QTEST_GUILESS_MAIN(VornfhOffloadTest)
#include "tst_vornfh_offload.moc"
