// SPDX-License-Identifier: MIT
#include "process.h"

#include <QProcess>

#include <array>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

void runByQt(const CommandLine &line)
{
    QStringList arguments;
    for (const std::string &argument : line)
        arguments.append(QString::fromStdString(argument));
    QProcess process;
    const QString program = arguments.takeFirst();
    process.start(program, arguments);
    process.waitForFinished(-1);
    process.readAllStandardOutput();
    process.readAllStandardError();
}

using Pipe = std::array<int, 2>;

static Pipe makePipe()
{
    Pipe ends = {-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        qFatal("no pipe");
    return ends;
}

static void readAll(const Pipe &output, const Pipe &errors)
{
    std::array<pollfd, 2> ends = {pollfd{output[0], POLLIN, 0}, pollfd{errors[0], POLLIN, 0}};
    std::array<char, 4096> buffer;
    for (int open = 2; open > 0;) {
        ::poll(ends.data(), ends.size(), -1);
        for (pollfd &end : ends) {
            if (end.revents && ::read(end.fd, buffer.data(), buffer.size()) <= 0) {
                end.fd = -1;
                --open;
            }
        }
    }
}

static pid_t spawn(const CommandLine &line, const std::array<int, 3> &channels)
{
    std::vector<char *> arguments;
    for (const std::string &argument : line)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    for (int channel = 0; channel < 3; ++channel)
        ::posix_spawn_file_actions_adddup2(&actions, channels[static_cast<std::size_t>(channel)], channel);
    pid_t child = -1;
    if (::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) != 0)
        qFatal("cannot start %s", arguments[0]);
    ::posix_spawn_file_actions_destroy(&actions);
    return child;
}

void runBySpawn(const CommandLine &line)
{
    const Pipe input = makePipe();
    const Pipe output = makePipe();
    const Pipe errors = makePipe();
    const pid_t child = spawn(line, {input[0], output[1], errors[1]});
    for (const int end : {input[0], output[1], errors[1]})
        ::close(end);
    readAll(output, errors);
    ::waitpid(child, nullptr, 0);
    for (const int end : {input[1], output[0], errors[0]})
        ::close(end);
}
