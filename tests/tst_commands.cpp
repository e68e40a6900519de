// SPDX-License-Identifier: MIT
#include "resources.h"
#include "standins.h"

#include <QtTest>

#include <cerrno>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

#include <sys/wait.h>

namespace {

Result runScript(const QString &script, int timeout = -1)
{
    return run("sh", {"-c", script}, timeout);
}

/// Runs a script that does not end by itself, with increasing time limits, until its first output arrives
/// within one of them.
Result runUntilItPrints(const QString &script)
{
    Result result = {};
    for (int timeout = 250; timeout <= 16000 && result.output.isEmpty(); timeout *= 4)
        result = runScript(script, timeout);
    return result;
}

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
    void programWithSpaceInItsName();
    void outputs_data();
    void outputs();
    void largeOutputsOnBothStreams();
    void unstartable_data();
    void unstartable();
    void unclosedQuoteReachesTheShell();
    void limitIsNotReached_data();
    void limitIsNotReached();
    void stillRunningAtTheLimit_data();
    void stillRunningAtTheLimit();
    void noTimeToStart();
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

    row("success", 0, 0);
    row("failure", 1, 1);
    row("two", 2, 2);
    row("highest-positive", 127, 127);
    row("first-negative", 128, -128);
    row("negative", 200, -56);
    row("highest", 255, -1);
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

    row("killed", SIGKILL);
    row("terminated", SIGTERM);
    row("user-signal", SIGUSR1);
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
    QTest::addColumn<QByteArrayList>("arguments");

    const auto row = [](const char *name, const QString &rest, const QByteArrayList &arguments) {
        QTest::newRow(name) << rest << arguments;
    };
    row("program-alone", "", {});
    row("space-after-the-program", " ", {});
    row("one", " a", {"a"});
    row("two", " a bc", {"a", "bc"});
    row("several-spaces", "   a    b  ", {"a", "b"});
    row("tab", "\ta\tb", {"a", "b"});
    row("line-feed", "\na\nb\n", {"a", "b"});
    row("carriage-return-and-feeds", " a\rb\fc\vd", {"a", "b", "c", "d"});
    row("no-break-space", " a\u00A0b", {"a", "b"});
    row("ideographic-space", " a\u3000b", {"a", "b"});
    row("line-separator", " a\u2028b", {"a", "b"});
    row("zero-width-space-is-not-a-separator", " a\u200Bb", {"a\u200Bb"});
    row("quoted-space", " \"a b\"", {"a b"});
    row("quoted-tab-and-line-feed", " \"a\t\nb\"", {"a\t\nb"});
    row("quoted-spaces-at-the-ends", " \"  a  \"", {"  a  "});
    row("quote-inside-a-word", " a\"b c\"d", {"ab cd"});
    row("two-quoted-words", " \"a b\" \"c d\"", {"a b", "c d"});
    row("adjoining-quoted-words", " \"a b\"c\"d e\"", {"a bcd e"});
    row("unterminated-quote", " \"a b  c", {"a b  c"});
    row("unterminated-quote-in-a-word", " x a\"b c", {"x", "ab c"});
    row("unterminated-quote-before-spaces", " \"a b  ", {"a b  "});
    row("quote-at-the-end", " a \"", {"a"});
    row("empty-quotes", " a \"\" b", {"a", "b"});
    row("three-quotes", " \"\"\"", {"\""});
    row("three-quotes-around-a-word", " \"\"\"a b\"\"\"", {"\"a", "b\""});
    row("three-quotes-in-a-quote", " \"a \"\"\"b\"\"\" c\"", {"a \"b\" c"});
    row("six-quotes", " \"\"\"\"\"\"", {"\"\""});
    row("four-quotes", " \"\"\"\"a b", {"\"a b"});
    row("single-quotes-are-ordinary", " 'a b'", {"'a", "b'"});
    row("single-quotes-in-a-quote", " \"'a b'\"", {"'a b'"});
    row("backslash-is-ordinary", " a\\ b \\\"c d", {"a\\", "b", "\\c d"});
    row("shell-characters-are-ordinary", " $HOME * ; | >x", {"$HOME", "*", ";", "|", ">x"});
    row("percent-sign-and-number", " %1 %2", {"%1", "%2"});
    row("outside-ascii", " \u00E4\u20AC", {"\u00E4\u20AC"});
}

void CommandsTest::splitting()
{
    QFETCH(QString, rest);
    QFETCH(QByteArrayList, arguments);
    StandIns standIns;
    standIns.add("probe", "echo ran; exit 7");

    const Result result = run("probe" + rest);

    QCOMPARE(result.code, 7);
    QCOMPARE(result.output, QString("ran\n"));
    QCOMPARE(standIns.calls("probe"), Calls{arguments});
}

void CommandsTest::programOfTheLine_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("program");

    row("spaces-before", "  \t\nprobe a", "probe");
    row("quoted", "\"probe\" a", "probe");
    row("half-quoted", "pr\"ob\"e a", "probe");
    row("quoted-with-space", "\"my probe\" a", "my probe");
    row("three-quotes-inside", "my\"\"\"probe a", "my\"probe");
    row("empty-quotes-before", "\"\" probe a", "probe");
}

void CommandsTest::programOfTheLine()
{
    QFETCH(QString, line);
    QFETCH(QString, program);
    StandIns standIns;
    standIns.add(program.toUtf8());

    QCOMPARE(run(line).code, 0);

    QCOMPARE(standIns.calls(program.toUtf8()), Calls{{"a"}});
}

void CommandsTest::argumentList_data()
{
    QTest::addColumn<QStringList>("list");

    const auto row = [](const char *name, const QStringList &list) { QTest::newRow(name) << list; };
    row("one", {"a"});
    row("empty", {""});
    row("null", {QString()});
    row("empty-between", {"", "a", "", "b", ""});
    row("spaces", {"a b", " ", "  c  ", "\t", "d\ne"});
    row("double-quotes", {"\"", "\"a b\"", "\"\"\"", "\"\""});
    row("single-quotes", {"'", "'a b'"});
    row("backslashes", {"\\", "\\\"", "a\\ b"});
    row("shell-characters", {"$HOME", "`id`", "*", ";", "|", "&", ">x", "~"});
    row("options", {"-p", "--", "-"});
    row("percent-sign-and-number", {"%1", "%2", "%"});
    row("outside-ascii", {"\u00E4 \u20AC \U0001F4F7"});
    row("very-long", {QString(100000, 'x')});
}

void CommandsTest::argumentList()
{
    QFETCH(QStringList, list);
    StandIns standIns;
    standIns.add("probe", "echo ran; exit 7");
    QByteArrayList arguments;
    for (const QString &argument : list)
        arguments.append(argument.toUtf8());

    const Result result = run("probe", list);

    QCOMPARE(result.code, 7);
    QCOMPARE(result.output, QString("ran\n"));
    QCOMPARE(standIns.calls("probe"), Calls{arguments});
}

void CommandsTest::programWithSpaceInItsName()
{
    StandIns standIns;
    standIns.add("probe", "exit 1");
    standIns.add("probe b\"", "exit 2");

    QCOMPARE(run("probe b\"", {"c"}).code, 2);
    QCOMPARE(run(standIns.path() + "/probe b\"", {"c d"}).code, 2);

    QCOMPARE(standIns.calls("probe b\""), (Calls{{"c"}, {"c d"}}));
    QCOMPARE(standIns.calls("probe"), Calls{});
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
    row("spaces-at-the-ends", "  \n hi \n\n", "  \n hi \n\n");
    row("carriage-returns", "a\r\nb\r", "a\r\nb\r");
    row("nul", QByteArray("ab\0cd\n", 6), "ab");
    row("leading-nul", QByteArray("\0cd\n", 4), "");
    row("trailing-nul", QByteArray("ab\0", 3), "ab");
    row("two-nuls", QByteArray("ab\0cd\0ef", 8), "ab");
    row("utf-8", "\u00E4 \u20AC \U0001F4F7", "\u00E4 \u20AC \U0001F4F7");
    row("invalid-utf-8", "a\377b", "a\uFFFDb");
    row("latin-1", "a\344", "a\uFFFD");
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

    const auto row = [](const char *name, const char *command, const QStringList &arguments = {}) {
        QTest::newRow(name) << command << arguments;
    };
    row("empty-line", "");
    row("spaces-only", " \t\n ");
    row("empty-quotes", "\"\"");
    row("lone-quote", "\"");
    row("quoted-space", "\" \"");
    row("empty-program", "", {"a"});
    row("program-name-is-a-space", " ", {"a"});
    row("missing", "missing");
    row("missing-with-list", "missing", {"a"});
    row("missing-path", "%1/missing");
    row("missing-folder", "%1/missing/program", {"a"});
    row("space-is-part-of-the-name", "echo a", {"b"});
    row("not-executable", "%1/plain");
    row("not-executable-with-list", "%1/plain", {"a"});
    row("not-executable-on-path", "plain");
    row("folder", "%1/folder");
    row("missing-interpreter", "%1/orphan");
    row("not-an-executable-format", "%1/noise", {"a"});
}

void CommandsTest::unstartable()
{
    QFETCH(QString, command);
    QFETCH(QStringList, arguments);
    StandIns standIns;
    makeTree(standIns.path(), {"plain = #!/bin/sh\necho ran\n", "orphan = #!/missing/interpreter\n",
                               "noise = \177ELFnoise", "folder/"});
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

void CommandsTest::limitIsNotReached_data()
{
    QTest::addColumn<int>("timeout");

    row("no-limit", -1);
    row("some-limit", 60000);
}

void CommandsTest::limitIsNotReached()
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

    row("plain", "");
    row("ignores-termination", "trap '' TERM; ");
    row("ignores-every-signal-it-can", "trap '' HUP INT QUIT PIPE TERM; ");
}

void CommandsTest::stillRunningAtTheLimit()
{
    QFETCH(QString, preparation);

    const Result result = runUntilItPrints(preparation + "echo err >&2; echo $$; exec sleep 600");

    QCOMPARE(result.code, 0);
    QCOMPARE(result.errors, QString("err\n"));
    bool isNumber = false;
    const int process = result.output.trimmed().toInt(&isNumber);
    QVERIFY(isNumber);
    QCOMPARE(::kill(process, 0), -1);
    QCOMPARE(errno, ESRCH);
    QVERIFY(!QFileInfo::exists(QString("/proc/%1").arg(process)));
}

void CommandsTest::noTimeToStart()
{
    // A child that is killed before its exec would run Qt Test's handler, which prints.
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
    // At the end of its input the shell would run the second echo.
    const Result result = runUntilItPrints("echo before; read line; echo after");

    QCOMPARE(result.code, 0);
    QCOMPARE(result.output, QString("before\n"));
}

void CommandsTest::threads()
{
    constexpr int THREADS = 8;
    constexpr int RUNS = 10;
    std::vector<int> correct(THREADS, 0);
    std::vector<std::thread> threads;
    threads.reserve(THREADS);
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
    run("true"); // lets Qt open the descriptors that it keeps
    const QByteArrayList before = openDescriptors();

    for (int i = 0; i < 10; ++i) {
        run("true");
        runScript("echo a; echo b >&2; exit 3");
        run("missing");
        run("");
        runScript("kill -9 $$");
        run("sleep", {"600"}, 10);
    }

    QCOMPARE(openDescriptors(), before);
}

/// As in hosts that read their signals from a descriptor.
void CommandsTest::childSignalBlocked()
{
    sigset_t childSignal;
    sigset_t before;
    ::sigemptyset(&childSignal);
    ::sigaddset(&childSignal, SIGCHLD);
    ::pthread_sigmask(SIG_BLOCK, &childSignal, &before);
    ::alarm(60); // waiting for a signal that never arrives would hang
    const Result result = runScript("echo hi; exit 3");
    ::alarm(0);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    QCOMPARE(result.code, 3);
    QCOMPARE(result.output, QString("hi\n"));
}

/// A host may have no application object, so all tests run without one first.
int main(int argc, char *argv[])
{
    CommandsTest test;
    const int without = QTest::qExec(&test, argc, argv);
    const QCoreApplication application(argc, argv);
    return without + QTest::qExec(&test, argc, argv);
}

#include "tst_commands.moc"
