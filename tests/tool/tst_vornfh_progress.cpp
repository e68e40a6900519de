// SPDX-License-Identifier: MIT
#include "progress.h"
#include "testsupport.h"

#include <QTest>

Q_DECLARE_METATYPE(ProgressState)

namespace {

constexpr qint64 KIB = 1024;
constexpr qint64 MIB = 1024 * KIB;
constexpr qint64 GIB = 1024 * MIB;

const ProgressState USUAL = {1000, 2000, 512 * MIB, GIB, 60, "comparing"};
const ProgressState LONGEST = {100000, 200000, 640 * GIB, 1000 * GIB, 2e6, "comparing"};

} // namespace

/// The progress line, without a terminal.
class VornfhProgressTest : public QObject
{
    Q_OBJECT

private slots:
    void showsWhatFits_data();
    void showsWhatFits();
    void neverWraps();
};

void VornfhProgressTest::showsWhatFits_data()
{
    QTest::addColumn<ProgressState>("state");
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("line");
    const auto row = [](const char *name, const ProgressState &state, int width, const char *line) {
        QTest::newRow(name) << state << width << QString(line);
    };
    row("start", {0, 3, 0, 300, 0, "starting"}, 80,
        "0 of 3 files, 0 B of 300 B, starting, 0 B/s [--------------------]");
    row("usual", {3, 12, 512 * MIB, 2 * GIB, 40, "copying"}, 80,
        "3 of 12 files, 512.0 MiB of 2.0 GiB, copying, 12.8 MiB/s, 2:00 left [##-------]");
    row("bar-with-twenty-characters", {3, 12, 512 * MIB, 2 * GIB, 40, "copying"}, 92,
        "3 of 12 files, 512.0 MiB of 2.0 GiB, copying, 12.8 MiB/s, 2:00 left [#####---------------]");
    row("no-room-for-a-bar", USUAL, 80,
        "1000 of 2000 files, 512.0 MiB of 1.0 GiB, comparing, 8.5 MiB/s, 1:00 left");
    row("all-in-80-columns", LONGEST, 80,
        "100000/200000 files 640.0 GiB/1000.0 GiB comparing 335.5 KiB/s 312:30:00 left");
    row("short-forms", USUAL, 72, "1000/2000 files 512.0 MiB/1.0 GiB comparing 8.5 MiB/s 1:00 left [##---]");
    row("no-time-left", USUAL, 62, "1000/2000 files 512.0 MiB/1.0 GiB comparing 8.5 MiB/s [##---]");
    row("no-rate", USUAL, 50, "1000/2000 files 512.0 MiB/1.0 GiB comparing");
    row("no-stage", USUAL, 40, "1000/2000 files 512.0 MiB/1.0 GiB");
    row("no-bytes", USUAL, 30, "1000/2000 files comparing");
    row("only-files", USUAL, 20, "1000/2000 files");
    row("nothing", USUAL, 8, "");
    row("no-width", USUAL, 0, "");
    row("all-bytes-are-copied", {0, 1, GIB, GIB, 10, "flushing"}, 80,
        "0 of 1 files, 1.0 GiB of 1.0 GiB, flushing, 102.4 MiB/s [####################]");
    row("a-file-has-grown", {0, 1, GIB + 1, GIB, 10, "flushing"}, 80,
        "0 of 1 files, 1.0 GiB of 1.0 GiB, flushing, 102.4 MiB/s [####################]");
    row("less-than-a-second-left", {0, 1, 999 * KIB, 1000 * KIB, 9.99, "copying"}, 80,
        "0 of 1 files, 999.0 KiB of 1000.0 KiB, copying, 100.0 KiB/s, 0:01 left [#####-]");
    row("empty-files", {5, 10, 0, 0, 1, "copying"}, 80,
        "5 of 10 files, 0 B of 0 B, copying, 0 B/s [##########----------]");
}

void VornfhProgressTest::showsWhatFits()
{
    QFETCH(ProgressState, state);
    QFETCH(int, width);
    QFETCH(QString, line);
    QCOMPARE(progressLine(state, width), line);
}

void VornfhProgressTest::neverWraps()
{
    for (const ProgressState &state : {USUAL, LONGEST, ProgressState{0, 1, 0, 1, 0, "copying"}}) {
        for (int width = 0; width < 200; ++width)
            QVERIFY2(progressLine(state, width).size() < std::max(width, 1), QByteArray::number(width));
    }
}

QTEST_GUILESS_MAIN(VornfhProgressTest)
#include "tst_vornfh_progress.moc"
