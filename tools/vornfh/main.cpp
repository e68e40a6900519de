// SPDX-License-Identifier: MIT
#include "colours.h"
#include "commandline.h"
#include "commands/commands.h"
#include "output.h"

#include <QTextCodec>

#include <csignal>
#include <cstdio>
#include <iostream>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// Keeps a file on a storage device from getting the descriptor of a closed standard stream; otherwise,
/// messages would be written to that file. Using the stream still fails, because /dev/null is opened for the
/// other direction.
void occupyStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) < 0)
            static_cast<void>(::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
    }
}

/// A command whose output could not be written has failed.
ExitCode finishOutput(ExitCode exitCode)
{
    std::cout.flush();
    if (std::fflush(stdout) == 0 && !isOutputLost() && std::cout)
        return exitCode;
    printError("cannot write to standard output");
    return exitCode == WRONG_COMMAND_LINE ? exitCode : FAILED;
}

} // namespace

int main(int argc, char *argv[])
{
    occupyStandardStreams();
    removeUnwantedColours();
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is handled like any other write error
    // File names are UTF-8 on every storage device, whatever the locale.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    CommandLine line;
    addNext(line);
    addRecord(line);
    addList(line);
    addInfo(line);
    addComment(line);
    addStatus(line);
    addWatch(line);
    addCheck(line);
    addRepair(line);
    addGallery(line);
    addTransfer(line);
    addOffload(line);
    addMkdir(line);
    addRemove(line);
    addPrune(line);
    addProtect(line);
    return finishOutput(line.run(argc, argv));
}
