// SPDX-License-Identifier: MIT
#include "resources.h"
#include "shim.h"
#include "standins.h"
#include "testsupport.h"

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

struct Outcome {
    int code;
    QString output;
    QString errors;
};

Outcome run(const QString &command, const QStringList &arguments = {}, int timeout = -1)
{
    Outcome outcome = {0, "before", "before"};
    outcome.code = VornFileHandler::execCmdLine(command, arguments, outcome.output, outcome.errors, timeout);
    return outcome;
}

Faults forkFails(int error, int unsetDescriptor = 1000)
{
    Faults wanted;
    wanted.forkError = error;
    wanted.unsetDescriptor = unsetDescriptor;
    return wanted;
}

/// One call of everything that starts programs.
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
    void initTestCase() { run("true", {"x"}); } // what Qt opens once and for all is open
    void init() { mDescriptors = openDescriptors(); }
    void cleanup()
    {
        faults = Faults();
        ::alarm(0);
        QCOMPARE(openDescriptors(), mDescriptors);
        QVERIFY(!hasChildren());
    }

    void noProcessCanBeMade_data();
    void noProcessCanBeMade();
    void shellIsMissing();
    void moveWithoutProcessesLosesTheFile();
    void muchOutput();
    void grandchildHoldsTheOutputOpen();
    void outputsAreClosedEarly();
    void childIsKilled_data();
    void childIsKilled();
    void childThatIgnoresTheEndIsKilledAtTheLimit();
    void childThatCannotBeKilledIsGivenUp();
    void probeIsKilled();
    void fewDescriptorsAreLeft_data();
    void fewDescriptorsAreLeft();
    void noDescriptorsAreLeft();
    void processesLeakNoBytes_data();
    void processesLeakNoBytes();
    void startAfterFailure_data();
    void startAfterFailure();
    void otherDescriptorsAreNeitherAwaitedNorClosed();

private:
    QByteArrayList mDescriptors;
};

void TestProcessFaults::noProcessCanBeMade_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("unsetDescriptor");
    QTest::newRow("process-limit") << EAGAIN << 1000;
    QTest::newRow("no-memory") << ENOMEM << 1000;
    QTest::newRow("process-limit-seen-by-Qt") << EAGAIN << -1;
}

void TestProcessFaults::noProcessCanBeMade()
{
    QFETCH(const int, error);
    QFETCH(const int, unsetDescriptor);
    ::alarm(60); // a wait for a process that was never made would have no end
    Storages storages;
    VornFileHandler::mSdBlk = "vda";
    const QString file = storages.sd() + "/100ABC/DCF_0001.avi";
    writeFile(file);
    StandardErrorCapture capture;
    const WithFaults broken(forkFails(error, unsetDescriptor));
    const Outcome outcome = run("echo", {"hi"});
    QCOMPARE(outcome.code, 0);
    QCOMPARE(outcome.output, QString());
    QCOMPARE(outcome.errors, QString());
    QCOMPARE(run("sh -c \"echo hi").output, QString());
    QCOMPARE(VornFileHandler::isMounted(STORAGE_SD), false);
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), qint64(0));
    Metadata metadata;
    metadata.mWidth = 7;
    VornFileHandler::getMetadata(QFileInfo(file), metadata);
    QCOMPARE(metadata.mWidth, 7);
    VornFileHandler::copyToFolder({file}, STORAGE_USB, "100ABC");
    QCOMPARE(tree(storages.path() + "/usb"), (QList<QByteArray>{"DCIM/", "DCIM/100ABC/"}));
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
    const Outcome outcome = run("sh -c \"echo hi");
    QCOMPARE(outcome.code, 0);
    QCOMPARE(outcome.output, QString());
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
    QCOMPARE(tree(storages.sd()), (QList<QByteArray>{"100ABC/", "101ABC/"}));
}

void TestProcessFaults::muchOutput()
{
    const int size = 64 * 1024 * 1024;
    const Outcome outcome = run(
        QString(
            "sh -c \"head -c %1 /dev/zero | tr '\\000' o; head -c %2 /dev/zero | tr '\\000' e >&2; exit 5")
            .arg(size)
            .arg(1024 * 1024));
    QCOMPARE(outcome.code, 5);
    QCOMPARE(outcome.output.size(), size);
    QCOMPARE(outcome.output.count('o'), size);
    QCOMPARE(outcome.errors, QString(1024 * 1024, 'e'));
}

void TestProcessFaults::grandchildHoldsTheOutputOpen()
{
    QTemporaryDir directory;
    const QString stop = directory.filePath("stop");
    const QString gone = directory.filePath("gone");
    // It ends when the call has returned: a call that waited for it would not return at all.
    const Outcome outcome =
        run(QString("sh -c \"(while ! test -e %1; do sleep 0.02; done; echo > %2) & echo hi; exit 4")
                .arg(stop, gone));
    QCOMPARE(outcome.code, 4);
    QCOMPARE(outcome.output, QString("hi\n"));
    writeFile(stop);
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(gone), 60000);
}

void TestProcessFaults::outputsAreClosedEarly()
{
    const Outcome outcome = run("sh -c \"echo out; echo err >&2; exec >&- 2>&-; sleep 0.2; exit 6");
    QCOMPARE(outcome.code, 6);
    QCOMPARE(outcome.output, QString("out\n"));
    QCOMPARE(outcome.errors, QString("err\n"));
}

void TestProcessFaults::childIsKilled_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("kill") << SIGKILL;
    QTest::newRow("segmentation-fault") << SIGSEGV;
    QTest::newRow("terminate") << SIGTERM;
    QTest::newRow("pipe") << SIGPIPE;
}

void TestProcessFaults::childIsKilled()
{
    QFETCH(const int, number);
    StandardErrorCapture capture;
    const Outcome outcome = run(QString("sh -c \"ulimit -c 0; echo out; kill -%1 $$").arg(number));
    QCOMPARE(outcome.code, number);
    QCOMPARE(outcome.output, QString("out\n"));
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::childThatIgnoresTheEndIsKilledAtTheLimit()
{
    StandardErrorCapture capture;
    const Outcome outcome = run("sh -c \"trap '' TERM; echo out; while :; do read x; done", {}, 500);
    QCOMPARE(outcome.code, 0);
    QCOMPARE(outcome.output, QString("out\n"));
    QCOMPARE(faults.sentSignals, (std::vector<int>{SIGTERM, SIGKILL}));
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::childThatCannotBeKilledIsGivenUp()
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
        const Outcome outcome =
            run(QString("sh -c \"echo out; while ! test -e %1; do sleep 0.02; done").arg(gate), {}, 500);
        QCOMPARE(outcome.code, 0);
        QCOMPARE(outcome.output, QString("out\n"));
        QCOMPARE(faults.sentSignals, (std::vector<int>{SIGTERM, SIGKILL}));
        QCOMPARE(capture.take(), QByteArray());
    }
    QVERIFY(clock.elapsed() >= 30000); // by the clock that runs ahead: as long as QProcess waits
    QCOMPARE(run("echo", {"hi"}).output, QString("hi\n"));
    mDescriptors = openDescriptors(); // those for the child stay open
    ::alarm(60);
    writeFile(gate);
    QVERIFY(::waitpid(-1, nullptr, 0) > 0);
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

void TestProcessFaults::fewDescriptorsAreLeft_data()
{
    QTest::addColumn<int>("free");
    QTest::addColumn<QString>("output");
    // Both ends of four pipes, and one for the process; where the system has none for processes, both ends of
    // a fifth pipe and one for the start.
    const bool isOne =
        ::syscall(SYS_waitid, P_PIDFD, INT_MAX, nullptr, WEXITED | WNOHANG, nullptr) < 0 && errno == EBADF;
    QTest::newRow("enough") << (isOne ? 9 : 11) << "hi\n";
    QTest::newRow("none-for-the-process") << 8 << "";
    QTest::newRow("none-for-the-last-pipe") << 7 << "";
    QTest::newRow("one") << 1 << "";
    QTest::newRow("none") << 0 << "";
}

void TestProcessFaults::fewDescriptorsAreLeft()
{
    QFETCH(const int, free);
    ::alarm(60); // a wait for a process that was never made would have no end
    StandardErrorCapture capture;
    rlimit former = {};
    ::getrlimit(RLIMIT_NOFILE, &former);
    rlimit few = former;
    few.rlim_cur = 0;
    for (int found = 0; found < free; ++few.rlim_cur)
        found += ::fcntl(static_cast<int>(few.rlim_cur), F_GETFD) < 0 ? 1 : 0;
    ::setrlimit(RLIMIT_NOFILE, &few);
    const Outcome outcome = run("echo", {"hi"});
    ::setrlimit(RLIMIT_NOFILE, &former);
    QCOMPARE(outcome.code, 0);
    QTEST(outcome.output, "output");
    QCOMPARE(outcome.errors, QString());
    QVERIFY(!faults.killedAll);
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::noDescriptorsAreLeft()
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
    const Outcome outcome = run("echo", {"hi"});
    ::setrlimit(RLIMIT_NOFILE, &former);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(outcome.code, 0);
    QCOMPARE(outcome.output, QString());
}

void TestProcessFaults::processesLeakNoBytes_data()
{
    QTest::addColumn<int>("unsetDescriptor");
    QTest::newRow("seen-by-Qt") << -1;
    QTest::newRow("overlooked-by-Qt") << 1000;
}

void TestProcessFaults::processesLeakNoBytes()
{
    QFETCH(const int, unsetDescriptor);
    ::alarm(60); // a wait for a process that was never made would have no end
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

/// The object that a failed start leaves is used for the next one: nothing of the failure may show in it.
void TestProcessFaults::startAfterFailure_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("timeout");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("errors");
    QTest::newRow("outputs") << QStringList{"-c", "echo out; echo err >&2; exit 3"} << -1 << 3 << "out\n"
                             << "err\n";
    QTest::newRow("signal") << QStringList{"-c", "kill -9 $$"} << -1 << 9 << ""
                            << "";
    QTest::newRow("input-stays-open")
        << QStringList{"-c", "echo out; read line; echo end"} << 300 << 0 << "out\n"
        << "";
    QTest::newRow("no-such-program") << QStringList() << -1 << 0 << ""
                                     << "";
}

void TestProcessFaults::startAfterFailure()
{
    QFETCH(const QStringList, arguments);
    ::alarm(60); // a wait for a process that was never made would have no end
    StandardErrorCapture capture;
    {
        const WithFaults broken(forkFails(EAGAIN));
        run("true", {"x"});
    }
    QFETCH(const int, timeout);
    const Outcome outcome = run(arguments.isEmpty() ? "missing-program" : "sh", arguments, timeout);
    QTEST(outcome.code, "code");
    QTEST(outcome.output, "output");
    QTEST(outcome.errors, "errors");
    QCOMPARE(capture.take(), QByteArray());
}

void TestProcessFaults::otherDescriptorsAreNeitherAwaitedNorClosed()
{
    int pipe[2];
    QCOMPARE(::pipe(pipe), 0);
    ::alarm(30); // a wait for what no one writes would have no end
    {
        const WithFaults broken(forkFails(EAGAIN, pipe[0]));
        QCOMPARE(run("echo", {"hi"}, 100).code, 0);
        QCOMPARE(run("echo", {"hi"}).code, 0);
        QVERIFY(!faults.killedAll);
    }
    QCoreApplication::processEvents(); // a host's event loop must not see what was given up
    QCOMPARE(::close(pipe[0]), 0);
    QCOMPARE(::close(pipe[1]), 0);
}

QTEST_GUILESS_MAIN(TestProcessFaults)
#include "tst_processfaults.moc"
