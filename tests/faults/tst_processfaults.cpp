// SPDX-License-Identifier: MIT
#include "resources.h"
#include "shim.h"
#include "standins.h"

#include <QCoreApplication>
#include <QTest>

#include <cerrno>
#include <climits>
#include <csignal>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

Faults forkFails(int error, int unsetDescriptor = 1000)
{
    Faults wanted;
    wanted.forkError = error;
    wanted.unsetDescriptor = unsetDescriptor;
    return wanted;
}

/// Calls each function that starts programs, once.
void useAllPrograms(const QString &file)
{
    run("true", {"x"});
    VornFileHandler::isMounted(STORAGE_SD);
    VornFileHandler::getRemainingPercent(STORAGE_SD);
    VornFileHandler::copyToFolder({file}, STORAGE_SD, "100ABC");
    Metadata metadata;
    metadata.set(FILE_TYPE_VIDEO, QFileInfo(file));
}

} // namespace

class TestProcessFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { run("true", {"x"}); } // lets Qt open the descriptors that it keeps
    void init() { mDescriptors = openDescriptors(); }
    void cleanup()
    {
        faults = Faults();
        ::alarm(0);
        QCOMPARE(openDescriptors(), mDescriptors);
        QVERIFY(!hasChildren());
    }

    void noProcessCanBeCreated_data();
    void noProcessCanBeCreated();
    void shellIsMissing();
    void moveWithoutProcessesLosesTheFile();
    void muchOutput();
    void grandchildHoldsTheOutputOpen();
    void outputsAreClosedEarly();
    void childIsKilled_data();
    void childIsKilled();
    void childThatIgnoresTerminationIsKilledAtTheLimit();
    void childThatCannotBeKilledIsAbandoned();
    void programThatNeverStartedIsNotKept();
    void slowProgramsAreWaitedFor();
    void probeIsKilled();
    void fewDescriptorsAreFree_data();
    void fewDescriptorsAreFree();
    void noDescriptorsAreFree();
    void processesLeakNoBytes_data();
    void processesLeakNoBytes();
    void startAfterFailure_data();
    void startAfterFailure();
    void otherDescriptorsAreNotClosed();

private:
    QByteArrayList mDescriptors;
};

void TestProcessFaults::noProcessCanBeCreated_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("unsetDescriptor");
    row("process-limit", EAGAIN, 1000);
    row("no-memory", ENOMEM, 1000);
    row("process-limit-noticed-by-qt", EAGAIN, -1);
}

void TestProcessFaults::noProcessCanBeCreated()
{
    QFETCH(const int, error);
    QFETCH(const int, unsetDescriptor);
    ::alarm(60); // waiting for a process that was never created would hang
    Storages storages;
    VornFileHandler::mSdBlk = "vda";
    const QString file = storages.sd() + "/100ABC/DCF_0001.avi";
    writeFile(file);
    StandardErrorCapture capture;
    const WithFaults broken(forkFails(error, unsetDescriptor));
    const Result result = run("echo", {"hi"});
    QCOMPARE(result.code, 0);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.errors, QString());
    QCOMPARE(run("sh -c \"echo hi").output, QString());
    QCOMPARE(VornFileHandler::isMounted(STORAGE_SD), false);
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), qint64(0));
    Metadata metadata;
    metadata.mWidth = 7;
    VornFileHandler::getMetadata(QFileInfo(file), metadata);
    QCOMPARE(metadata.mWidth, 7);
    VornFileHandler::copyToFolder({file}, STORAGE_USB, "100ABC");
    QCOMPARE(tree(storages.path() + "/usb"), (Tree{"DCIM/", "DCIM/100ABC/"}));
    run("echo", {"hi"}, 100);
    QVERIFY(!faults.killedAll);
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::shellIsMissing()
{
    Storages storages;
    VornFileHandler::mSdBlk = "vda";
    const StandIns nothing(StandIns::Alone);
    StandardErrorCapture capture;
    const Result result = run("sh -c \"echo hi");
    QCOMPARE(result.code, 0);
    QCOMPARE(result.output, QString());
    QCOMPARE(VornFileHandler::isMounted(STORAGE_SD), false);
    QCOMPARE(VornFileHandler::getRemainingPercent(STORAGE_SD), 0);
    QCOMPARE(VornFileHandler::getUsedBytes(STORAGE_SD), qint64(0));
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::moveWithoutProcessesLosesTheFile()
{
    Storages storages;
    const QString file = storages.sd() + "/100ABC/DCF_0001.avi";
    writeFile(file);
    const WithFaults broken(forkFails(EAGAIN));
    VornFileHandler::moveToFolder({file}, STORAGE_SD, "101ABC");
    QCOMPARE(tree(storages.sd()), (Tree{"100ABC/", "101ABC/"}));
}

void TestProcessFaults::muchOutput()
{
    const int size = 64 * 1024 * 1024;
    const Result result = run(
        QString(
            "sh -c \"head -c %1 /dev/zero | tr '\\000' o; head -c %2 /dev/zero | tr '\\000' e >&2; exit 5")
            .arg(size)
            .arg(1024 * 1024));
    QCOMPARE(result.code, 5);
    QCOMPARE(result.output.size(), size);
    QCOMPARE(result.output.count('o'), size);
    QCOMPARE(result.errors, QString(1024 * 1024, 'e'));
}

void TestProcessFaults::grandchildHoldsTheOutputOpen()
{
    QTemporaryDir directory;
    const QString stop = directory.filePath("stop");
    const QString gone = directory.filePath("gone");
    // The grandchild ends after the call has returned, so a call that waited for it would hang.
    const Result result =
        run(QString("sh -c \"(while ! test -e %1; do sleep 0.02; done; echo > %2) & echo hi; exit 4")
                .arg(stop, gone));
    QCOMPARE(result.code, 4);
    QCOMPARE(result.output, QString("hi\n"));
    writeFile(stop);
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(gone), 60000);
}

void TestProcessFaults::outputsAreClosedEarly()
{
    const Result result = run("sh -c \"echo out; echo err >&2; exec >&- 2>&-; sleep 0.2; exit 6");
    QCOMPARE(result.code, 6);
    QCOMPARE(result.output, QString("out\n"));
    QCOMPARE(result.errors, QString("err\n"));
}

void TestProcessFaults::childIsKilled_data()
{
    QTest::addColumn<int>("number");
    row("kill", SIGKILL);
    row("segmentation-fault", SIGSEGV);
    row("terminate", SIGTERM);
    row("pipe", SIGPIPE);
}

void TestProcessFaults::childIsKilled()
{
    QFETCH(const int, number);
    StandardErrorCapture capture;
    const Result result = run(QString("sh -c \"ulimit -c 0; echo out; kill -%1 $$").arg(number));
    QCOMPARE(result.code, number);
    QCOMPARE(result.output, QString("out\n"));
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::childThatIgnoresTerminationIsKilledAtTheLimit()
{
    StandardErrorCapture capture;
    const Result result = run("sh -c \"trap '' TERM; echo out; while :; do read x; done", {}, 500);
    QCOMPARE(result.code, 0);
    QCOMPARE(result.output, QString("out\n"));
    QCOMPARE(faults.sentSignals, (std::vector<int>{SIGTERM, SIGKILL}));
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::childThatCannotBeKilledIsAbandoned()
{
    const QTemporaryDir directory;
    const QString gate = directory.filePath("gate");
    QElapsedTimer clock;
    clock.start();
    {
        Faults wanted;
        wanted.cannotBeKilled = true;
        wanted.timePasses = true;
        const WithFaults stuck(wanted);
        StandardErrorCapture capture;
        const Result result =
            run(QString("sh -c \"echo out; while ! test -e %1; do sleep 0.02; done").arg(gate), {}, 500);
        QCOMPARE(result.code, 0);
        QCOMPARE(result.output, QString("out\n"));
        QCOMPARE(faults.sentSignals, (std::vector<int>{SIGTERM, SIGKILL}));
        QCOMPARE(capture.take(), QByteArray());
    }
    QVERIFY(clock.elapsed() >= 30000); // by the advanced clock: as long as QProcess waits
    QCOMPARE(run("echo", {"hi"}).output, QString("hi\n"));
    mDescriptors = openDescriptors(); // those of the child remain open
    ::alarm(60);
    writeFile(gate);
    QVERIFY(::waitpid(-1, nullptr, 0) > 0);
}

/// The time limit expires before it is known that the program is missing.
void TestProcessFaults::programThatNeverStartedIsNotKept()
{
    Faults slow;
    slow.killMicroseconds = 5000;
    const WithFaults slowly(slow);
    QVERIFY(heapGrowth([] { run("/none/missing", {"argument"}, 0); }) < SMALLEST_LEAK);
}

/// A limit, however long, would end a copy to a slow card, and a move would then delete the source.
void TestProcessFaults::slowProgramsAreWaitedFor()
{
    const Storages storages;
    StandIns programs;
    const QByteArray slowly = "sleep 0.2\n";
    programs.add("cat", slowly + programs.prints("179 0 1000 vfhblk\n"));
    programs.add("df", slowly
                           + programs.prints("Filesystem 1K-blocks Used Available Use% Mounted on\n"
                                             "/dev/vfhblk 3000 1000 2000 33% /mnt\n"));
    programs.add("cp", slowly + programs.becomes("cp"));
    const StandardErrorCapture banner;
    VornFileHandler::init("ABC", "/dev/null/x", "", storages.sd(), "vfhblk", "/dev/null/x", "");
    const QString source = storages.path() + "/a.jpg";
    writeFile(source, "content");

    Faults wanted;
    wanted.timePasses = true;
    const WithFaults passing(wanted);
    QVERIFY(VornFileHandler::isMounted(STORAGE_SD));
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), qint64(3000 * 1024));
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), qint64(2000 * 1024));
    VornFileHandler::moveToFolder({source}, STORAGE_SD, "100ABC");
    QCOMPARE(contentOf(storages.sd() + "/100ABC/a.jpg"), QByteArray("content"));
}

void TestProcessFaults::probeIsKilled()
{
    Storages storages;
    StandIns programs;
    programs.add("ffprobe", "kill -9 $$");
    const QString file = storages.sd() + "/100ABC/DCF_0001.avi";
    writeFile(file);
    StandardErrorCapture capture;
    Metadata metadata;
    metadata.mWidth = 7;
    VornFileHandler::getMetadata(QFileInfo(file), metadata);
    QCOMPARE(metadata.mWidth, 7);
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::fewDescriptorsAreFree_data()
{
    QTest::addColumn<int>("free");
    QTest::addColumn<QString>("output");
    // Two descriptors for each of four pipes and one for the process. If the system has none for processes,
    // two for a fifth pipe and one for the start.
    const bool hasProcessDescriptors =
        ::syscall(SYS_waitid, P_PIDFD, INT_MAX, nullptr, WEXITED | WNOHANG, nullptr) < 0 && errno == EBADF;
    row("enough", (hasProcessDescriptors ? 9 : 11), "hi\n");
    row("none-for-the-process", 8, "");
    row("none-for-the-last-pipe", 7, "");
    row("one", 1, "");
    row("none", 0, "");
}

void TestProcessFaults::fewDescriptorsAreFree()
{
    QFETCH(const int, free);
    ::alarm(60); // waiting for a process that was never created would hang
    StandardErrorCapture capture;
    rlimit former = {};
    ::getrlimit(RLIMIT_NOFILE, &former);
    rlimit few = former;
    few.rlim_cur = 0;
    for (int found = 0; found < free; ++few.rlim_cur)
        found += ::fcntl(static_cast<int>(few.rlim_cur), F_GETFD) < 0 ? 1 : 0;
    ::setrlimit(RLIMIT_NOFILE, &few);
    const Result result = run("echo", {"hi"});
    ::setrlimit(RLIMIT_NOFILE, &former);
    QCOMPARE(result.code, 0);
    QTEST(result.output, "output");
    QCOMPARE(result.errors, QString());
    QVERIFY(!faults.killedAll);
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::noDescriptorsAreFree()
{
    Storages storages;
    const QString file = storages.sd() + "/100ABC/DCF_0001.avi";
    writeFile(file);
    rlimit former = {};
    ::getrlimit(RLIMIT_NOFILE, &former);
    rlimit none = former;
    none.rlim_cur = 0;
    StandardErrorCapture capture;
    ::setrlimit(RLIMIT_NOFILE, &none);
    useAllPrograms(file);
    const Result result = run("echo", {"hi"});
    ::setrlimit(RLIMIT_NOFILE, &former);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(result.code, 0);
    QCOMPARE(result.output, QString());
}

void TestProcessFaults::processesLeakNoBytes_data()
{
    QTest::addColumn<int>("unsetDescriptor");
    row("noticed-by-qt", -1);
    row("not-noticed-by-qt", 1000);
}

void TestProcessFaults::processesLeakNoBytes()
{
    QFETCH(const int, unsetDescriptor);
    ::alarm(60); // waiting for a process that was never created would hang
    Storages storages;
    const QString file = storages.sd() + "/100ABC/DCF_0001.avi";
    writeFile(file);
    const StandardErrorCapture capture;
    {
        const WithFaults broken(forkFails(EAGAIN, unsetDescriptor));
        QVERIFY(heapGrowth([&file] { useAllPrograms(file); }) < SMALLEST_LEAK);
    }
    QVERIFY(!faults.killedAll);
}

/// The object of a failed start is reused for the next one, which must show no trace of the failure.
void TestProcessFaults::startAfterFailure_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<int>("timeout");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("errors");
    const auto row = [](const char *name, const char *script, int timeout, int code, const char *output,
                        const char *errors) {
        QTest::newRow(name) << script << timeout << code << output << errors;
    };
    row("outputs", "echo out; echo err >&2; exit 3", -1, 3, "out\n", "err\n");
    row("signal", "kill -9 $$", -1, 9, "", "");
    row("input-stays-open", "echo out; read line; echo end", 300, 0, "out\n", "");
    row("missing-program", "", -1, 0, "", "");
}

void TestProcessFaults::startAfterFailure()
{
    QFETCH(const QString, script);
    QFETCH(const int, timeout);
    ::alarm(60); // waiting for a process that was never created would hang
    StandardErrorCapture capture;
    {
        const WithFaults broken(forkFails(EAGAIN));
        run("true", {"x"});
    }
    const Result result = script.isEmpty() ? run("missing-program") : run("sh", {"-c", script}, timeout);
    QTEST(result.code, "code");
    QTEST(result.output, "output");
    QTEST(result.errors, "errors");
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::otherDescriptorsAreNotClosed()
{
    int pipe[2];
    QCOMPARE(::pipe(pipe), 0);
    ::alarm(30); // waiting for data that nobody writes would hang
    {
        const WithFaults broken(forkFails(EAGAIN, pipe[0]));
        QCOMPARE(run("echo", {"hi"}, 100).code, 0);
        QCOMPARE(run("echo", {"hi"}).code, 0);
        QVERIFY(!faults.killedAll);
    }
    QCoreApplication::processEvents(); // the event loop of a host must not handle the abandoned process
    QCOMPARE(::close(pipe[0]), 0);
    QCOMPARE(::close(pipe[1]), 0);
}

QTEST_GUILESS_MAIN(TestProcessFaults)
#include "tst_processfaults.moc"
