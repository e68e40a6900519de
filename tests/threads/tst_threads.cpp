// SPDX-License-Identifier: MIT
#include "literal.h"
#include "standins.h"

#include <QImage>
#include <QTest>

#include <functional>
#include <thread>
#include <vector>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr int THREADS = 4;
constexpr int ROUNDS = 6;

/// The results of @p action(number of the thread) in each round of each of several concurrent threads.
std::vector<QByteArray> onThreads(const std::function<QByteArray(int)> &action)
{
    std::vector<QByteArray> results(THREADS * ROUNDS);
    std::vector<std::thread> threads;
    threads.reserve(THREADS);
    for (int i = 0; i < THREADS; ++i)
        threads.emplace_back([&results, &action, i] {
            for (int round = 0; round < ROUNDS; ++round)
                results[static_cast<size_t>(i * ROUNDS + round)] = action(i);
        });
    for (std::thread &thread : threads)
        thread.join();
    return results;
}

void compareWithOneThread(const std::function<QByteArray(int)> &action)
{
    std::vector<QByteArray> expected;
    for (int i = 0; i < THREADS; ++i)
        expected.insert(expected.end(), ROUNDS, action(i));
    const std::vector<QByteArray> results = onThreads(action);
    for (size_t i = 0; i < expected.size(); ++i)
        QCOMPARE(results[i], expected[i]);
}

QByteArray describe(const QString &path)
{
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(path), record);
    QByteArray text;
    for (const QVariant &field : fieldsOf(record))
        text += field.toByteArray() + " ";
    return text;
}

} // namespace

class TestThreads : public QObject
{
    Q_OBJECT

private slots:
    void recordsOfFilesAndFolders();
    void commands();
    void sameStorage();
    void differentStorages();
    void storageWithNamesForQDir();
};

void TestThreads::recordsOfFilesAndFolders()
{
    Storages storages;
    StandIns programs;
    programs.add("ffprobe", programs.prints("1920\n1080\n"));
    const QString folder = storages.sd() + "/100ABC/";
    makeTree(storages.sd(), {"100ABC/DCF_0001.avi", "100ABC/DCF_0002.mkv", "100ABC/DCF_0005.wav = 12345678"});
    QImage(7, 5, QImage::Format_RGB32).save(folder + "DCF_0003.jpg");
    QImage(9, 3, QImage::Format_RGB32).save(folder + "DCF_0004.png");
    compareWithOneThread([&folder](int) {
        QByteArray text;
        for (const char *name : {"DCF_0001.avi", "DCF_0002.mkv", "DCF_0003.jpg", "DCF_0004.png",
                                 "DCF_0005.wav", "missing.jpg", "missing.avi", ""})
            text += describe(folder + name) + "\n";
        return text;
    });
}

void TestThreads::commands()
{
    compareWithOneThread([](int thread) {
        QString output;
        QString errors;
        const QString script = QString("echo out %1; echo err %1 >&2; exit %1").arg(thread);
        QByteArray code =
            QByteArray::number(VornFileHandler::execCmdLine("sh", {"-c", script}, output, errors, -1));
        code += VornFileHandler::execCmdLine("missing-program", {"x"}, output, errors, -1) == 0 ? "" : "!";
        VornFileHandler::execCmdLine("sh -c \"" + script, {}, output, errors, -1);
        return code + output.toUtf8() + errors.toUtf8();
    });
}

void TestThreads::sameStorage()
{
    Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0001.jpg at 60", "100ABC/DCF_0002.png at 60", "100abc/DCF_0003.JPG",
                             "101ABC/DCF_0009.wav", "MISC/x.avi", "XYZABC/"});
    const StandardErrorCapture capture;
    compareWithOneThread([](int) { return literal::libraryReport(STORAGE_SD); });
}

void TestThreads::differentStorages()
{
    Storages storages;
    for (int i = 0; i < 3; ++i)
        makeTree(storages.location(anyStorage(i)),
                 {"100ABC/DCF_000" + QByteArray::number(i) + ".jpg", "101ABC/DCF_9999.avi"});
    const StandardErrorCapture capture;
    literal::libraryReport(STORAGE_MMC);
    compareWithOneThread([](int thread) { return literal::libraryReport(anyStorage(thread % 3)); });
}

void TestThreads::storageWithNamesForQDir()
{
    Storages storages("\u00C4[BC]");
    makeTree(storages.sd(), {"100\u00C4B/DCF_0001.jpg", "100\u00C4B/\u00e9.png", "101\u00E4c/x.wav"});
    const StandardErrorCapture capture;
    compareWithOneThread([](int) { return literal::libraryReport(STORAGE_SD); });
}

QTEST_GUILESS_MAIN(TestThreads)
#include "tst_threads.moc"
