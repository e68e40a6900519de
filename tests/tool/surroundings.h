// SPDX-License-Identifier: MIT
#ifndef SURROUNDINGS_H
#define SURROUNDINGS_H

#include "toolsupport.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <string>
#include <vector>

#include <pty.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

/// What a file holds: what a test counts, or what tells it from others.
enum class Content { FourBytes, OwnName };

/// Makes "folder/", "link -> target" and files.
inline void make(const ToolRun &tool, const QList<QByteArray> &entries, Content content = Content::FourBytes)
{
    for (const QByteArray &entry : entries) {
        const int arrow = entry.indexOf(" -> ");
        const QByteArray path = tool.path().toUtf8() + "/" + (arrow < 0 ? entry : entry.left(arrow));
        if (arrow >= 0)
            QCOMPARE(::symlink(tool.expand(entry.mid(arrow + 4)).constData(), path.constData()), 0);
        else if (entry.endsWith('/'))
            QDir().mkpath(QFile::decodeName(path));
        else
            writeFile(path, content == Content::OwnName ? entry : "1234");
    }
}

/// Replaces this process by the tool, with the storages of ToolRun::runOnStorages().
[[noreturn]] inline void becomeTool(const ToolRun &tool, const QList<QByteArray> &arguments)
{
    std::vector<std::string> words{VORNFH_PATH};
    for (const QByteArray &argument : ToolRun::storageOptions() + arguments)
        words.push_back(tool.expand(argument).toStdString());
    std::vector<char *> pointers;
    for (std::string &word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    ::setenv("HOME", tool.path().toUtf8().constData(), 1);
    if (::chdir(tool.path().toUtf8().constData()) == 0)
        ::execv(VORNFH_PATH, pointers.data());
    ::_exit(127);
}

/// Runs the tool on a terminal and types @p answer. What it prints on both channels is in Outcome::out, and
/// so is what was typed.
inline Outcome runOnTerminal(const ToolRun &tool, const QList<QByteArray> &arguments,
                             const QByteArray &answer)
{
    Outcome outcome;
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0)
        becomeTool(tool, arguments);
    if (::write(terminal, answer.constData(), static_cast<size_t>(answer.size())) != answer.size())
        return outcome;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(terminal, buffer, sizeof buffer)) > 0)
        outcome.out.append(buffer, static_cast<int>(count));
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(terminal);
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return outcome;
}

#endif // SURROUNDINGS_H
