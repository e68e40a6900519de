// SPDX-License-Identifier: MIT
#include "standins.h"
#include "testsupport.h"

#include <QtTest>

#include <cerrno>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

#include <sys/wait.h>

namespace {

struct Result {
    int code;
    QString output;
    QString errors;
};

/// Runs with texts left over from an earlier call, which must never show up again.
Result run(const QString &command, const QStringList &arguments = QStringList(), int timeout = -1)
{
    QString output = "old output";
    QString errors = "old errors";
    const int code = VornFileHandler::execCmdLine(command, arguments, output, errors, timeout);
    return {code, output, errors};
}

Result runScript(const QString &script, int timeout = -1)
{
    return run("sh", {"-c", script}, timeout);
}

/// Runs a script that never ends, with limits that grow until its first output came within one.
Result runUntilItHasPrinted(const QString &script)
{
    Result result = {};
    for (int timeout = 250; timeout <= 16000 && result.output.isEmpty(); timeout *= 4)
        result = runScript(script, timeout);
    return result;
}

bool hasChildren()
{
    return ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

int openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System).size();
}

using Arguments = QList<QByteArray>;

} // namespace

class CommandsTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void exitCodes_data();
    void exitCodes();
    void signalledProgram_data();
    void signalledProgram();
    void splitting_data();
    void splitting();
    void programOfTheLine_data();
    void programOfTheLine();
    void argumentList_data();
    void argumentList();
    void programWithBlankInItsName();
    void outputs_data();
    void outputs();
    void largeOutputsOnBothStreams();
    void unstartable_data();
    void unstartable();
    void unclosedQuoteReachesTheShell();
    void limitNotReached_data();
    void limitNotReached();
    void stillRunningAtTheLimit_data();
    void stillRunningAtTheLimit();
    void nothingTimeToStart();
    void standardInputStaysOpen();
    void threads();
    void descriptors();
    void childSignalBlocked();

private:
    std::unique_ptr<StandardErrorCapture> mStandardError;
};

void CommandsTest::init()
{
    mStandardError = std::make_unique<StandardErrorCapture>();
}

void CommandsTest::cleanup()
{
    const QByteArray printed = mStandardError->take();
    mStandardError.reset();
    QCOMPARE(printed, QByteArray());
    QVERIFY(!hasChildren());
}

void CommandsTest::exitCodes_data()
{
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<int>("result");

    QTest::newRow("success") << 0 << 0;
    QTest::newRow("failure") << 1 << 1;
    QTest::newRow("two") << 2 << 2;
    QTest::newRow("highest-positive") << 127 << 127;
    QTest::newRow("first-negative") << 128 << -128;
    QTest::newRow("in-the-negative-half") << 200 << -56;
    QTest::newRow("highest") << 255 << -1;
}

void CommandsTest::exitCodes()
{
    QFETCH(int, exitCode);
    QFETCH(int, result);
    const QString script = QString("echo out; echo err >&2; exit %1").arg(exitCode);

    for (const Result &actual : {runScript(script), run("sh -c \"" + script)}) {
        QCOMPARE(actual.code, result);
        QCOMPARE(actual.output, QString("out\n"));
        QCOMPARE(actual.errors, QString("err\n"));
    }
}

void CommandsTest::signalledProgram_data()
{
    QTest::addColumn<int>("signal");

    QTest::newRow("killed") << SIGKILL;
    QTest::newRow("terminated") << SIGTERM;
    QTest::newRow("user-signal") << SIGUSR1;
}

void CommandsTest::signalledProgram()
{
    QFETCH(int, signal);

    const Result result = runScript(QString("echo out; echo err >&2; kill -%1 $$").arg(signal));

    QCOMPARE(result.code, signal);
    QCOMPARE(result.output, QString("out\n"));
    QCOMPARE(result.errors, QString("err\n"));
}

void CommandsTest::splitting_data()
{
    QTest::addColumn<QString>("rest");
    QTest::addColumn<Arguments>("arguments");

    QTest::newRow("program-alone") << "" << Arguments{};
    QTest::newRow("blank-behind-the-program") << " " << Arguments{};
    QTest::newRow("one") << " a" << Arguments{"a"};
    QTest::newRow("two") << " a bc" << Arguments{"a", "bc"};
    QTest::newRow("several-blanks") << "   a    b  " << Arguments{"a", "b"};
    QTest::newRow("tab") << "\ta\tb" << Arguments{"a", "b"};
    QTest::newRow("line-feed") << "\na\nb\n" << Arguments{"a", "b"};
    QTest::newRow("carriage-return-and-feeds") << " a\rb\fc\vd" << Arguments{"a", "b", "c", "d"};
    QTest::newRow("no-break-space") << QString(" a\u00A0b") << Arguments{"a", "b"};
    QTest::newRow("ideographic-space") << QString(" a\u3000b") << Arguments{"a", "b"};
    QTest::newRow("line-separator") << QString(" a\u2028b") << Arguments{"a", "b"};
    QTest::newRow("zero-width-space-is-none") << QString(" a\u200Bb")
                                              << Arguments{"a\xE2\x80\x8B"
                                                           "b"};
    QTest::newRow("quoted-blank") << " \"a b\"" << Arguments{"a b"};
    QTest::newRow("quoted-tab-and-line-feed") << " \"a\t\nb\"" << Arguments{"a\t\nb"};
    QTest::newRow("quoted-blanks-at-the-ends") << " \"  a  \"" << Arguments{"  a  "};
    QTest::newRow("quote-inside-a-word") << " a\"b c\"d" << Arguments{"ab cd"};
    QTest::newRow("two-quoted-words") << " \"a b\" \"c d\"" << Arguments{"a b", "c d"};
    QTest::newRow("adjoining-quoted-words") << " \"a b\"c\"d e\"" << Arguments{"a bcd e"};
    QTest::newRow("quote-never-closed") << " \"a b  c" << Arguments{"a b  c"};
    QTest::newRow("quote-never-closed-in-a-word") << " x a\"b c" << Arguments{"x", "ab c"};
    QTest::newRow("quote-never-closed-before-blanks") << " \"a b  " << Arguments{"a b  "};
    QTest::newRow("quote-at-the-end") << " a \"" << Arguments{"a"};
    QTest::newRow("nothing-quoted") << " a \"\" b" << Arguments{"a", "b"};
    QTest::newRow("three-quotes") << " \"\"\"" << Arguments{"\""};
    QTest::newRow("three-quotes-around-a-word") << " \"\"\"a b\"\"\"" << Arguments{"\"a", "b\""};
    QTest::newRow("three-quotes-in-a-quote") << " \"a \"\"\"b\"\"\" c\"" << Arguments{"a \"b\" c"};
    QTest::newRow("six-quotes") << " \"\"\"\"\"\"" << Arguments{"\"\""};
    QTest::newRow("four-quotes") << " \"\"\"\"a b" << Arguments{"\"a b"};
    QTest::newRow("single-quotes-are-ordinary") << " 'a b'" << Arguments{"'a", "b'"};
    QTest::newRow("single-quotes-in-a-quote") << " \"'a b'\"" << Arguments{"'a b'"};
    QTest::newRow("backslash-is-ordinary") << " a\\ b \\\"c d" << Arguments{"a\\", "b", "\\c d"};
    QTest::newRow("shell-characters-are-ordinary")
        << " $HOME * ; | >x" << Arguments{"$HOME", "*", ";", "|", ">x"};
    QTest::newRow("percent-and-number") << " %1 %2" << Arguments{"%1", "%2"};
    QTest::newRow("beyond-ascii") << QString::fromUtf8(" \xC3\xA4\xE2\x82\xAC")
                                  << Arguments{"\xC3\xA4\xE2\x82\xAC"};
}

void CommandsTest::splitting()
{
    QFETCH(QString, rest);
    QFETCH(Arguments, arguments);
    StandIns standIns;
    standIns.add("probe", "echo ran; exit 7");

    const Result result = run("probe" + rest);

    QCOMPARE(result.code, 7);
    QCOMPARE(result.output, QString("ran\n"));
    QCOMPARE(standIns.calls("probe"), QList<Arguments>{arguments});
}

void CommandsTest::programOfTheLine_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("program");

    QTest::newRow("blanks-before") << "  \t\nprobe a"
                                   << "probe";
    QTest::newRow("quoted") << "\"probe\" a"
                            << "probe";
    QTest::newRow("half-quoted") << "pr\"ob\"e a"
                                 << "probe";
    QTest::newRow("quoted-with-blank") << "\"my probe\" a"
                                       << "my probe";
    QTest::newRow("three-quotes-in-it") << "my\"\"\"probe a"
                                        << "my\"probe";
    QTest::newRow("nothing-quoted-before") << "\"\" probe a"
                                           << "probe";
}

void CommandsTest::programOfTheLine()
{
    QFETCH(QString, line);
    QFETCH(QString, program);
    StandIns standIns;
    standIns.add(program.toUtf8());

    QCOMPARE(run(line).code, 0);

    QCOMPARE(standIns.calls(program.toUtf8()), QList<Arguments>{Arguments{"a"}});
}

void CommandsTest::argumentList_data()
{
    QTest::addColumn<QStringList>("list");

    QTest::newRow("one") << QStringList{"a"};
    QTest::newRow("empty-one") << QStringList{""};
    QTest::newRow("null-one") << QStringList{QString()};
    QTest::newRow("empty-ones-between") << QStringList{"", "a", "", "b", ""};
    QTest::newRow("blanks") << QStringList{"a b", " ", "  c  ", "\t", "d\ne"};
    QTest::newRow("double-quotes") << QStringList{"\"", "\"a b\"", "\"\"\"", "\"\""};
    QTest::newRow("single-quotes") << QStringList{"'", "'a b'"};
    QTest::newRow("backslashes") << QStringList{"\\", "\\\"", "a\\ b"};
    QTest::newRow("shell-characters") << QStringList{"$HOME", "`id`", "*", ";", "|", "&", ">x", "~"};
    QTest::newRow("options") << QStringList{"-p", "--", "-"};
    QTest::newRow("percent-and-number") << QStringList{"%1", "%2", "%"};
    QTest::newRow("beyond-ascii") << QStringList{QString::fromUtf8("\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x93\xB7")};
    QTest::newRow("very-long") << QStringList{QString(100000, 'x')};
}

void CommandsTest::argumentList()
{
    QFETCH(QStringList, list);
    StandIns standIns;
    standIns.add("probe", "echo ran; exit 7");
    Arguments arguments;
    for (const QString &argument : list)
        arguments.append(argument.toUtf8());

    const Result result = run("probe", list);

    QCOMPARE(result.code, 7);
    QCOMPARE(result.output, QString("ran\n"));
    QCOMPARE(standIns.calls("probe"), QList<Arguments>{arguments});
}

void CommandsTest::programWithBlankInItsName()
{
    StandIns standIns;
    standIns.add("probe", "exit 1");
    standIns.add("probe b\"", "exit 2");

    QCOMPARE(run("probe b\"", {"c"}).code, 2);
    QCOMPARE(run(standIns.path() + "/probe b\"", {"c d"}).code, 2);

    QCOMPARE(standIns.calls("probe b\""), (QList<Arguments>{{"c"}, {"c d"}}));
    QCOMPARE(standIns.calls("probe"), QList<Arguments>{});
}

void CommandsTest::outputs_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");

    const auto row = [](const char *name, const QByteArray &bytes, const QString &text) {
        QTest::newRow(name) << bytes << text;
    };
    row("nothing", "", "");
    row("one-line", "hi\n", "hi\n");
    row("no-line-feed", "hi", "hi");
    row("blanks-at-the-ends", "  \n hi \n\n", "  \n hi \n\n");
    row("carriage-returns", "a\r\nb\r", "a\r\nb\r");
    row("zero-byte", QByteArray("ab\0cd\n", 6), "ab");
    row("zero-byte-first", QByteArray("\0cd\n", 4), "");
    row("zero-byte-last", QByteArray("ab\0", 3), "ab");
    row("two-zero-bytes", QByteArray("ab\0cd\0ef", 8), "ab");
    row("utf-8", "\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x93\xB7", QString::fromUtf16(u"\u00E4 \u20AC \U0001F4F7"));
    row("no-utf-8",
        "a\xFF"
        "b",
        QString::fromUtf16(u"a\uFFFDb"));
    row("latin-1", "a\xE4", QString::fromUtf16(u"a\uFFFD"));
    row("more-than-a-pipe-holds", QByteArray(200000, 'x') + "\n", QString(200000, 'x') + "\n");
}

void CommandsTest::outputs()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, text);
    StandIns standIns;
    standIns.add("out", standIns.prints(bytes));
    standIns.add("err", standIns.prints(bytes).trimmed() + " >&2");

    for (const QStringList &arguments : {QStringList(), QStringList("list-form")}) {
        const Result out = run("out", arguments);
        QCOMPARE(out.output, text);
        QCOMPARE(out.errors, QString());
        const Result err = run("err", arguments);
        QCOMPARE(err.output, QString());
        QCOMPARE(err.errors, text);
    }
}

void CommandsTest::largeOutputsOnBothStreams()
{
    constexpr int MEBIBYTE = 1024 * 1024;
    StandIns standIns;
    standIns.add("out", standIns.prints(QByteArray(MEBIBYTE, 'o')));
    standIns.add("err", standIns.prints(QByteArray(MEBIBYTE, 'e')).trimmed() + " >&2");

    for (const char *const script : {"out; err", "err; out", "out & err; wait"}) {
        const Result result = runScript(script);
        QCOMPARE(result.code, 0);
        QVERIFY(result.output == QString(MEBIBYTE, 'o'));
        QVERIFY(result.errors == QString(MEBIBYTE, 'e'));
    }
}

void CommandsTest::unstartable_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("empty-line") << "" << QStringList();
    QTest::newRow("blank-line") << " \t\n " << QStringList();
    QTest::newRow("nothing-quoted") << "\"\"" << QStringList();
    QTest::newRow("lone-quote") << "\"" << QStringList();
    QTest::newRow("quoted-blank") << "\" \"" << QStringList();
    QTest::newRow("empty-program") << "" << QStringList{"a"};
    QTest::newRow("blank-program") << " " << QStringList{"a"};
    QTest::newRow("missing") << "missing" << QStringList();
    QTest::newRow("missing-with-list") << "missing" << QStringList{"a"};
    QTest::newRow("missing-path") << "%1/missing" << QStringList();
    QTest::newRow("missing-folder") << "%1/missing/program" << QStringList{"a"};
    QTest::newRow("blank-taken-into-the-name") << "echo a" << QStringList{"b"};
    QTest::newRow("not-executable") << "%1/plain" << QStringList();
    QTest::newRow("not-executable-with-list") << "%1/plain" << QStringList{"a"};
    QTest::newRow("not-executable-on-path") << "plain" << QStringList();
    QTest::newRow("folder") << "%1/folder" << QStringList();
    QTest::newRow("missing-interpreter") << "%1/orphan" << QStringList();
    QTest::newRow("no-program-format") << "%1/noise" << QStringList{"a"};
}

void CommandsTest::unstartable()
{
    QFETCH(QString, command);
    QFETCH(QStringList, arguments);
    StandIns standIns;
    writeFile(standIns.path() + "/plain", "#!/bin/sh\necho ran\n");
    writeFile(standIns.path() + "/orphan", "#!/missing/interpreter\n");
    writeFile(standIns.path() + "/noise", QByteArray("\x7F"
                                                     "ELFnoise\0",
                                                     10));
    QVERIFY(QDir(standIns.path()).mkdir("folder"));
    for (const char *const name : {"/orphan", "/noise"})
        QVERIFY(QFile::setPermissions(standIns.path() + name, QFile::ReadOwner | QFile::ExeOwner));

    const Result result = run(command.replace("%1", standIns.path()), arguments);

    QCOMPARE(result.code, 0);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.errors, QString());
}

void CommandsTest::unclosedQuoteReachesTheShell()
{
    const Result result = run("sh -c \"echo hi");

    QCOMPARE(result.code, 0);
    QCOMPARE(result.output, QString("hi\n"));
    QCOMPARE(result.errors, QString());
    QCOMPARE(run("sh -c \"printf 'a b|c' | tr 'a-c' 'x-z' | grep y").output, QString("x y|z\n"));
}

void CommandsTest::limitNotReached_data()
{
    QTest::addColumn<int>("timeout");

    QTest::newRow("no-limit") << -1;
    QTest::newRow("some-limit") << 60000;
}

void CommandsTest::limitNotReached()
{
    QFETCH(int, timeout);

    const Result result = runScript("echo early; sleep 0.3; echo late; echo err >&2; exit 5", timeout);

    QCOMPARE(result.code, 5);
    QCOMPARE(result.output, QString("early\nlate\n"));
    QCOMPARE(result.errors, QString("err\n"));
}

void CommandsTest::stillRunningAtTheLimit_data()
{
    QTest::addColumn<QString>("preparation");

    QTest::newRow("plain") << "";
    QTest::newRow("ignores-termination") << "trap '' TERM; ";
    QTest::newRow("ignores-all-it-can") << "trap '' HUP INT QUIT PIPE TERM; ";
}

void CommandsTest::stillRunningAtTheLimit()
{
    QFETCH(QString, preparation);

    const Result result = runUntilItHasPrinted(preparation + "echo err >&2; echo $$; exec sleep 600");

    QCOMPARE(result.code, 0);
    QCOMPARE(result.errors, QString("err\n"));
    bool isNumber = false;
    const int process = result.output.trimmed().toInt(&isNumber);
    QVERIFY(isNumber);
    QCOMPARE(::kill(process, 0), -1);
    QCOMPARE(errno, ESRCH);
    QVERIFY(!QFileInfo::exists(QString("/proc/%1").arg(process)));
}

void CommandsTest::nothingTimeToStart()
{
    // A child that is ended before it becomes its program would run the handler of Qt Test, which prints.
    const auto handler = std::signal(SIGTERM, SIG_DFL);
    for (int i = 0; i < 20; ++i) {
        QCOMPARE(run("sleep", {"600"}, 0).code, 0);
        QCOMPARE(run("sleep 600", {}, 1).code, 0);
        QCOMPARE(run("missing", {}, 0).code, 0);
        QVERIFY(!hasChildren());
    }
    std::signal(SIGTERM, handler);
}

void CommandsTest::standardInputStaysOpen()
{
    // At the end of its input the shell would go on to the second echo.
    const Result result = runUntilItHasPrinted("echo before; read line; echo after");

    QCOMPARE(result.code, 0);
    QCOMPARE(result.output, QString("before\n"));
}

void CommandsTest::threads()
{
    constexpr int THREADS = 8;
    constexpr int RUNS = 10;
    std::vector<int> correct(THREADS, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([i, &correct] {
            for (int j = 0; j < RUNS; ++j) {
                const QString text = QString("thread %1 run %2\n").arg(i).arg(j);
                const QStringList line = {"sh", "-c", "printf '%s' \"$1\"; printf '%s' \"$1\" >&2; exit $2",
                                          "sh", text, QString::number(i * RUNS + j)};
                const Result result = i % 2 == 0 ? run("env", line) : run(line.first(), line.mid(1));
                const bool good =
                    result.code == i * RUNS + j && result.output == text && result.errors == text;
                correct[static_cast<size_t>(i)] += good ? 1 : 0;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();

    QCOMPARE(correct, std::vector<int>(THREADS, RUNS));
}

void CommandsTest::descriptors()
{
    run("true"); // what Qt opens once and for all
    const int before = openDescriptors();

    for (int i = 0; i < 10; ++i) {
        run("true");
        run("sh", {"-c", "echo a; echo b >&2; exit 3"});
        run("missing");
        run("");
        runScript("kill -9 $$");
        run("sleep", {"600"}, 10);
    }

    QCOMPARE(openDescriptors(), before);
}

/// As hosts do that read their signals from a descriptor.
void CommandsTest::childSignalBlocked()
{
    sigset_t childSignal;
    sigset_t before;
    ::sigemptyset(&childSignal);
    ::sigaddset(&childSignal, SIGCHLD);
    ::pthread_sigmask(SIG_BLOCK, &childSignal, &before);
    ::alarm(60); // a wait for a signal that never comes would have no end
    QString output;
    QString errors;
    const int code = VornFileHandler::execCmdLine("sh", {"-c", "echo hi; exit 3"}, output, errors, -1);
    ::alarm(0);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    QCOMPARE(code, 3);
    QCOMPARE(output, QString("hi\n"));
}

/// A host need not have an application object, so all of it runs without one first.
int main(int argc, char *argv[])
{
    qputenv("LC_ALL", "C.UTF-8"); // what programs are handed is in the encoding of the locale
    CommandsTest test;
    const int without = QTest::qExec(&test, argc, argv);
    const QCoreApplication application(argc, argv);
    return without + QTest::qExec(&test, argc, argv);
}

#include "tst_commands.moc"
