// SPDX-License-Identifier: MIT
#include "commandline.h"
#include "commands/commands.h"
#include "output.h"

#include <QTextCodec>

#include <cstdio>
#include <iostream>

namespace {

/// A command whose output could not be written has failed.
ExitCode finishOutput(ExitCode exitCode)
{
    std::cout.flush();
    if (std::fflush(stdout) == 0 && !std::ferror(stdout) && std::cout)
        return exitCode;
    printError("cannot write to standard output");
    return exitCode == DONE ? FAILED : exitCode;
}

} // namespace

int main(int argc, char *argv[])
{
    // File names are UTF-8 on every storage device, whatever the locale.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    CommandLine line;
    addNext(line);
    addRecord(line);
    addList(line);
    addInfo(line);
    addComment(line);
    addStatus(line);
    addCheck(line);
    addGallery(line);
    addTransfer(line);
    addMkdir(line);
    addRemove(line);
    return finishOutput(line.run(argc, argv));
}
