// SPDX-License-Identifier: MIT
#include "colours.h"
#include "media.h"
#include "standins.h"
#include "toolsupport.h"

#include <QPair>
#include <QTest>
#include <QVector>

/// Standard output that cannot be written to (closed, a full device, or a pipe without a reader), and where
/// colours are printed.
class VornfhOutputTest : public QObject
{
    Q_OBJECT

private slots:
    void aResultThatCannotBePrinted_data();
    void aResultThatCannotBePrinted();
    void aChangeThatCannotBePrinted_data();
    void aChangeThatCannotBePrinted();
    void aCommandThatPrintsNothingSucceeds();
    void messagesAreNeverWrittenIntoFiles_data();
    void messagesAreNeverWrittenIntoFiles();
    void diagnosticLinesHaveColoursOnATerminal_data();
    void diagnosticLinesHaveColoursOnATerminal();
    void onlyColoursAreRemoved_data();
    void onlyColoursAreRemoved();
    void diagnosticLinesKeepTheirOrder();
    void diagnosticLinesSurviveAKill();
    void otherProgramsKeepTheirColours();
};

namespace {

const QString CANNOT_WRITE = "cannot write to standard output";

/// The ways in which standard output cannot be written, each with its redirection; 3 is the pipe.
const QVector<QPair<QByteArray, QString>> OUTPUTS = {
    {"closed", ">&-"},
    {"full-device", ">/dev/full"},
    {"unread-pipe", ">&3"},
};

/// Runs the tool on the storage devices with a standard output that cannot be written.
Outcome runWithout(const ToolRun &tool, const QString &redirection, const QStringList &arguments,
                   const QString &limit = QString())
{
    // A pipe without a reader
    const QString pipe = "mkfifo pipe && exec 4<>pipe 3>pipe 4<&- && rm pipe; ";
    QStringList words = {"'" + ToolRun::toolPath() + "'", "--suffix ABC --sd sd/DCIM --usb usb/DCIM"};
    for (const QString &argument : arguments)
        words.append("'" + argument + "'");
    return tool.runProgram("/bin/sh", {"-c", pipe + limit + "exec " + words.join(' ') + " " + redirection});
}

} // namespace

void VornfhOutputTest::aResultThatCannotBePrinted_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("redirection");
    const auto row = [](const QByteArray &name, const QStringList &arguments) {
        for (const auto &output : OUTPUTS)
            QTest::newRow(name + "-" + output.first) << arguments << output.second;
    };
    row("help", {"--help"});
    row("version", {"--version"});
    row("next", {"next", "sd", "jpg"});
    row("folders", {"folders", "sd"});
    row("folders-json", {"folders", "sd", "--json"});
    row("list", {"list", "sd"});
    row("list-json", {"list", "sd", "--json"});
    row("list-json-lines", {"list", "sd", "--jsonl"});
    row("list-library-json", {"list", "sd", "--library-json"});
    row("count", {"count", "sd"});
    row("count-json", {"count", "sd", "--json"});
    row("info", {"info", "a.jpg"});
    row("info-json", {"info", "a.jpg", "--json"});
    row("status", {"status", "sd"});
    row("status-json", {"status", "sd", "--json"});
    row("check", {"check", "sd"});
    row("check-json", {"check", "sd", "--json"});
}

void VornfhOutputTest::aResultThatCannotBePrinted()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, redirection);
    const ToolRun tool;
    tool.make(Tree{"a.jpg = x"} + onCard({"100ABC/DCF_0001.jpg = x"}));
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(runWithout(tool, redirection, arguments), tool.failure({CANNOT_WRITE.toUtf8()}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhOutputTest::aChangeThatCannotBePrinted_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("redirection");
    QTest::addColumn<QByteArrayList>("done"); // the lines that cannot be printed
    QTest::addColumn<QByteArrayList>("notices");
    QTest::addColumn<Tree>("added");
    QTest::addColumn<Tree>("deleted");
    QTest::addColumn<Tree>("entries"); // that are there before
    const auto row = [](const QByteArray &name, const QStringList &arguments, const QByteArrayList &done,
                        const Tree &added, const Tree &deleted = {}, const QByteArrayList &notices = {},
                        const Tree &entries = {}) {
        for (const auto &output : OUTPUTS)
            QTest::newRow(name + "-" + output.first)
                << arguments << output.second << done << notices << added << deleted << entries;
    };
    const QByteArray copies = "sd/DCIM/101ABC/";
    const QByteArrayList copied = {"@/a.jpg -> @/" + copies + "a.jpg", "@/b.jpg -> @/" + copies + "b.jpg"};
    row("copy", {"copy", "a.jpg", "b.jpg", "sd", "101ABC"}, copied,
        {copies, copies + "a.jpg = x", copies + "b.jpg = y"});
    row("copy-json", {"copy", "a.jpg", "b.jpg", "sd", "101ABC", "--json"}, copied,
        {copies, copies + "a.jpg = x", copies + "b.jpg = y"});
    row("move", {"move", "a.jpg", "b.jpg", "sd", "101ABC"}, copied,
        {copies, copies + "a.jpg = x", copies + "b.jpg = y"}, {"a.jpg = x", "b.jpg = y"});
    const QByteArray recordings = "sd/DCIM/100ABC/";
    row("record", {"record", "sd", "--type", "wav", "--count", "2"},
        {"@/" + recordings + "DCF_0002.wav", "@/" + recordings + "DCF_0003.wav"},
        {recordings + "DCF_0002.wav = data\n", recordings + "DCF_0003.wav = data\n"});
    row("gallery", {"gallery", "usb", "-o", "page.html"}, {"@/page.html"}, {"page.html = <"});
    row("delete", {"delete", "sd/DCIM/100ABC/DCF_0001.jpg"}, {"@/" + recordings + "DCF_0001.jpg"}, {},
        {recordings + "DCF_0001.jpg = x"});
    row("mkdir", {"mkdir", "sd", "MISC"}, {"@/sd/DCIM/MISC"}, {"sd/DCIM/MISC/"});
    row("rmdir", {"rmdir", "sd", "100ABC", "--yes"}, {"@/sd/DCIM/100ABC: deleted 1 file, 1 B"}, {},
        {recordings, recordings + "DCF_0001.jpg = x"}, {"@/sd/DCIM/100ABC: will delete 1 file, 1 B"});
    row("wipe", {"wipe", "sd", "--yes"}, {"@/sd/DCIM: deleted 1 file and 1 folder, 1 B"}, {},
        {"sd/DCIM/", recordings, recordings + "DCF_0001.jpg = x"},
        {"@/sd/DCIM: will delete 1 file and 1 folder, 1 B"});
    row("next-in-a-new-folder", {"next", "usb", "jpg"}, {"@/usb/DCIM/100ABC"}, {"usb/DCIM/100ABC/"});
    const QByteArray oldest = "usb/DCIM/100ABC/DCF_0001.jpg";
    const Tree two = {oldest + " = x", "usb/DCIM/100ABC/DCF_0002.jpg = yz"};
    row("prune", {"prune", "usb", "--keep-last", "1"}, {"@/" + oldest}, {}, {oldest + " = x"}, {}, two);
    row("prune-json", {"prune", "usb", "--keep-last", "1", "--json"}, {"@/" + oldest}, {}, {oldest + " = x"},
        {}, two);
    row("prune-that-is-not-enough", {"prune", "usb", "--max-size", "1", "--json"}, {}, {}, {},
        {"@/usb/DCIM: the objects take up 2 B instead of at most 1 B; nothing more can be deleted"},
        {two[1]});
    row("prune-json-lines", {"prune", "usb", "--keep-last", "1", "--jsonl"}, {"@/" + oldest}, {},
        {oldest + " = x"}, {}, two);
    row("protect", {"protect", "sd/DCIM/100ABC"}, {"@/" + recordings + "DCF_0001.jpg"}, {});
    row("unprotect", {"unprotect", "sd/DCIM/100ABC"}, {"@/" + recordings + "DCF_0001.jpg"}, {});
    row("delete-dry-run", {"delete", recordings + "DCF_0001.jpg", "--dry-run"}, {}, {});
    row("protect-dry-run-json", {"protect", "sd/DCIM/100ABC", "--dry-run", "--json"}, {}, {});
    row("prune-dry-run-json", {"prune", "usb", "--keep-last", "1", "--dry-run", "--json"}, {}, {}, {}, {},
        two);
}

void VornfhOutputTest::aChangeThatCannotBePrinted()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, redirection);
    QFETCH(QByteArrayList, done);
    QFETCH(QByteArrayList, notices);
    QFETCH(Tree, added);
    QFETCH(Tree, deleted);
    QFETCH(Tree, entries);
    StandIns programs;
    programs.add("ffmpeg", "for target; do :; done\necho data > \"${target#file:}\"");
    const ToolRun tool;
    tool.make(Tree{"a.jpg = x", "b.jpg = y", "usb/DCIM/"} + onCard({"100ABC/DCF_0001.jpg = x"}) + entries);
    Tree expected = treeWithContents(tool.path()) + added;
    for (const QByteArray &entry : deleted)
        expected.removeOne(entry);

    QByteArrayList messages = notices;
    for (const QByteArray &line : done)
        messages.append("done, but not written to standard output: " + line);
    messages.append(CANNOT_WRITE.toUtf8());
    QCOMPARE(runWithout(tool, redirection, arguments), tool.failure(messages));
    Tree found = treeWithContents(tool.path());
    for (QByteArray &entry : found) { // only the start of a page
        if (entry.startsWith("page.html = "))
            entry.truncate(13);
    }
    QCOMPARE(found, sorted(expected));
}

void VornfhOutputTest::aCommandThatPrintsNothingSucceeds()
{
    const ToolRun tool;
    makePicture(tool.path() + "/a.jpg", QSize(64, 48));
    for (const auto &output : OUTPUTS)
        QCOMPARE(runWithout(tool, output.second, {"comment", "a.jpg", "x"}), tool.success());
}

void VornfhOutputTest::messagesAreNeverWrittenIntoFiles_data()
{
    QTest::addColumn<QString>("redirection");
    row("standard-output-closed", ">&-");
    row("standard-error-closed", "2>&-");
    row("both-closed", ">&- 2>&-");
    row("all-closed", "<&- >&- 2>&-");
}

/// With few descriptors, files are copied in many batches, and one file after another gets the lowest free
/// descriptor, which must not be that of standard output or standard error.
void VornfhOutputTest::messagesAreNeverWrittenIntoFiles()
{
    QFETCH(QString, redirection);
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QByteArrayList names;
    QStringList files;
    for (int i = 100; i < 160; ++i) {
        names.append("DCF_0" + QByteArray::number(i) + ".jpg");
        files.append(names.last());
        writeFile(tool.path() + "/" + files.last(), QByteArray(1000, static_cast<char>(i)));
    }
    const QStringList arguments = QStringList{"copy", "none.jpg"} + files + QStringList{"sd", "100ABC"};
    const Outcome outcome = runWithout(tool, redirection, arguments, "ulimit -n 24; ");
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.out.isEmpty(), redirection.contains(" >&-") || redirection.startsWith('>'));
    QCOMPARE(outcome.err.isEmpty(), redirection.contains("2>&-"));
    for (const QByteArray &name : names)
        QCOMPARE(tool.content("sd/DCIM/100ABC/" + name), tool.content(name));
}

void VornfhOutputTest::diagnosticLinesHaveColoursOnATerminal_data()
{
    QTest::addColumn<bool>("isTerminal");
    QTest::addColumn<QString>("noColour"); // the variable NO_COLOR
    QTest::addColumn<bool>("isColoured");
    row("pipe", false, "", false);
    row("pipe-with-no-color", false, "1", false);
    row("terminal", true, "", true);
    row("terminal-with-no-color", true, "1", false);
}

void VornfhOutputTest::diagnosticLinesHaveColoursOnATerminal()
{
    QFETCH(bool, isTerminal);
    QFETCH(QString, noColour);
    QFETCH(bool, isColoured);
    ToolRun tool;
    tool.environment.insert("NO_COLOR", noColour);
    tool.make(onCard({"100ABC/", "XABC/"}));
    const Outcome outcome =
        isTerminal ? tool.runOnTerminal({"next", "sd", "jpg"}) : tool.runOnStorages({"next", "sd", "jpg"});
    QByteArray line = isColoured ? noFolderNumberLine() : withoutColours(noFolderNumberLine());
    if (isTerminal)
        line.replace("\n", "\r\n");
    const QByteArray all = outcome.err + outcome.out;
    QCOMPARE(outcome.exitCode, 0);
    QVERIFY2(all.startsWith(line), all.constData());
    QCOMPARE(all.contains('\x1b'), isColoured);
}

void VornfhOutputTest::onlyColoursAreRemoved_data()
{
    QTest::addColumn<QByteArrayList>("parts");
    QTest::addColumn<QByteArray>("result");
    row("none", QByteArrayList{"a b\n"}, QByteArray("a b\n"));
    row("colours", QByteArrayList{"\x1b[36m a \x1b[0m\n"}, QByteArray(" a \n"));
    row("several-parameters", QByteArrayList{"\x1b[1;38:5:9mb"}, QByteArray("b"));
    row("no-parameter", QByteArrayList{"\x1b[mb"}, QByteArray("b"));
    row("in-parts", QByteArrayList{"a\x1b", "[3", "6", "mb"}, QByteArray("ab"));
    row("other-sequence", QByteArrayList{"a\x1b[31;2Jb"}, QByteArray("a\x1b[31;2Jb"));
    row("other-sequence-in-parts", QByteArrayList{"a\x1b", "[2", "Jb"}, QByteArray("a\x1b[2Jb"));
    row("not-a-sequence", QByteArrayList{"a\x1bm[m"}, QByteArray("a\x1bm[m"));
    row("colour-after-an-escape-character", QByteArrayList{"\x1b\x1b[31ma"},
        QByteArray("\x1b"
                   "a"));
    row("colour-after-an-incomplete-one", QByteArrayList{"\x1b[3\x1b[31ma"}, QByteArray("\x1b[3a"));
}

void VornfhOutputTest::onlyColoursAreRemoved()
{
    QFETCH(QByteArrayList, parts);
    QFETCH(QByteArray, result);
    ColourFilter filter;
    QByteArray filtered;
    for (const QByteArray &part : parts)
        filtered += filter.filtered(part);
    QCOMPARE(filtered, result);
}

void VornfhOutputTest::diagnosticLinesKeepTheirOrder()
{
    const ToolRun tool;
    const QByteArray location = "data/vornfh/sd/DCIM/";
    tool.make({location + "100VORN/", location + "XVORN/"});
    const Outcome outcome =
        tool.runProgram("/bin/sh", {"-c", "exec '" + ToolRun::toolPath() + "' next sd jpg >&-"});
    const QByteArray data = "@/data/vornfh/";
    const QByteArray first = "no storage device is configured; using " + data + "mmc/DCIM, " + data
                             + "sd/DCIM and " + data + "usb/DCIM";
    QCOMPARE(outcome,
             (Outcome{1, "",
                      tool.expand(errorLines({first})) + withoutColours(noFolderNumberLine().repeated(3))
                          + errorLines({CANNOT_WRITE.toUtf8()})}));
}

void VornfhOutputTest::diagnosticLinesSurviveAKill()
{
    ToolRun tool;
    tool.make(onCard({"XABC/"}));
    if (!tool.runBefore("fsync", "kill -KILL $PPID"))
        QSKIP(CANNOT_PRELOAD);
    const Outcome outcome = tool.runOnStorages({"next", "sd", "jpg"});
    QCOMPARE(outcome, (Outcome{137, "", withoutColours(noFolderNumberLine().repeated(2))}));
}

void VornfhOutputTest::otherProgramsKeepTheirColours()
{
    ToolRun tool;
    tool.make({"sd/DCIM/"});
    if (!tool.runBefore("fsync", "printf '\\033[31mx\\n' >&2"))
        QSKIP(CANNOT_PRELOAD);
    const Outcome outcome = tool.runOnStorages({"mkdir", "sd", "MISC"});
    QCOMPARE(outcome, tool.success("@/sd/DCIM/MISC\n", "\x1b[31mx\n"));
}

QTEST_GUILESS_MAIN(VornfhOutputTest)
#include "tst_vornfh_output.moc"
