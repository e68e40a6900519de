// SPDX-License-Identifier: MIT
// The maintenance commands on a card that cannot be written to, and without any other program.
#include "standins.h"
#include "toolsupport.h"

#include <QTest>

namespace {

const QByteArray FOLDER = "sd/DCIM/100ABC/";

/// One finding, "DCF_0001.jpg" is empty, and one protected object.
const Tree CARD = onCard({"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.wav = two", "100ABC/DCF_0003.avi = three"});
const QByteArray PROTECTED = FOLDER + "DCF_0002.wav";

const QByteArray CHECKED = "@/" + FOLDER
                           + "DCF_0001.jpg: is empty: it was never written, or its content was lost "
                             "[repairable]\n"
                             "@/"
                           + FOLDER
                           + "DCF_0002.wav: does not begin like a file of type wav\n"
                             "@/"
                           + FOLDER
                           + "DCF_0003.avi: does not begin like a file of type avi\n"
                             "sd: 3 findings in 1 folder with 3 files\n"
                             "sd: numbers left for 8999097 recordings, up to 999ABC/DCF_9999\n";

QByteArray copiedLines()
{
    QByteArray lines;
    for (const QByteArray name : {"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.wav", "100ABC/DCF_0003.avi"})
        lines += "@/sd/DCIM/" + name + " -> @/out/" + name + "\n";
    return lines;
}

} // namespace

class VornfhConditionsTest : public QObject
{
    Q_OBJECT

private slots:
    void aReadOnlyCardIsReported_data();
    void aReadOnlyCardIsReported();
    void noOtherProgramIsNeeded_data();
    void noOtherProgramIsNeeded();
};

void VornfhConditionsTest::aReadOnlyCardIsReported_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArrayList>("messages");
    const auto refused = [](const char *name, const QByteArrayList &arguments,
                            const QByteArrayList &messages = {messages::readOnly("@/sd/DCIM")}) {
        QTest::newRow(name) << arguments << 1 << QByteArray() << messages;
    };
    const auto reads = [](const char *name, const QByteArrayList &arguments, int exitCode,
                          const QByteArray &out) {
        QTest::newRow(name) << arguments << exitCode << out << QByteArrayList();
    };
    const QByteArray file = FOLDER + "DCF_0001.jpg";
    refused("prune", {"prune", "sd", "--keep-last", "1"});
    refused("prune-whose-policy-holds", {"prune", "sd", "--max-size", "1G"});
    refused("protect", {"protect", file},
            {"@/" + file + ": cannot be protected: Read-only file system", "1 of 1 paths not protected"});
    refused("unprotect", {"unprotect", PROTECTED},
            {"@/" + PROTECTED + ": cannot be unprotected: Read-only file system",
             "1 of 1 paths not unprotected"});
    refused("repair", {"repair", "sd"});
    refused("repair-of-a-file", {"repair", file});
    refused("offload-and-delete", {"offload", "sd", "out", "--move"});
    refused("record", {"record", "sd"});
    refused("record-photo", {"record", "sd", "--type", "jpg"});
    refused("record-in-segments", {"record", "sd", "--segment", "60", "--loop"});
    reads("protect-what-is-protected", {"protect", PROTECTED}, 0, "@/" + PROTECTED + "\n");
    reads("offload", {"offload", "sd", "out"}, 0, copiedLines());
    reads("check", {"check", "sd"}, 3, CHECKED);
}

void VornfhConditionsTest::aReadOnlyCardIsReported()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, out);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    LoopCard card(tool);
    if (card.mount(tool.path() + "/sd").isEmpty())
        QSKIP(CANNOT_MOUNT);
    tool.make(CARD);
    setMode(tool, PROTECTED, 0444);
    card.unmount();
    QVERIFY(!card.mount(tool.path() + "/sd", "loop,ro").isEmpty());
    const Tree before = treeWithContents(tool.sd());
    QCOMPARE(tool.runOnStorages(arguments),
             (Outcome{exitCode, tool.expand(out), tool.expand(errorLines(messages))}));
    QCOMPARE(treeWithContents(tool.sd()), before);
}

void VornfhConditionsTest::noOtherProgramIsNeeded_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("out");
    const QByteArrayList files = {FOLDER + "DCF_0001.jpg", FOLDER + "DCF_0003.avi"};
    row("prune", QByteArrayList{"prune", "sd", "--keep-last", "1"}, 0, "@/" + files[0] + "\n");
    row("protect", QByteArrayList{"protect", files[0]}, 0, "@/" + files[0] + "\n");
    row("unprotect", QByteArrayList{"unprotect", PROTECTED}, 0, "@/" + PROTECTED + "\n");
    row("offload", QByteArrayList{"offload", "sd", "out"}, 0, copiedLines());
    row("check", QByteArrayList{"check", "sd"}, 3, CHECKED);
    row("repair-of-an-empty-file", QByteArrayList{"repair", files[0]}, 0, "@/" + files[0] + ": deleted\n");
}

void VornfhConditionsTest::noOtherProgramIsNeeded()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, out);
    const StandIns noPrograms(StandIns::Alone);
    const ToolRun tool;
    tool.make(CARD);
    setMode(tool, PROTECTED, 0444);
    QCOMPARE(tool.runOnStorages(arguments), (Outcome{exitCode, tool.expand(out), QByteArray()}));
}

QTEST_GUILESS_MAIN(VornfhConditionsTest)
#include "tst_vornfh_conditions.moc"
