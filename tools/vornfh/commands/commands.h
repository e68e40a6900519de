// SPDX-License-Identifier: MIT
#ifndef COMMANDS_H
#define COMMANDS_H

#include "commandline.h"

void addNext(CommandLine &line);
void addRecord(CommandLine &line);
void addList(CommandLine &line); // folders, list, count
void addInfo(CommandLine &line);
void addComment(CommandLine &line);
void addStatus(CommandLine &line);
void addCheck(CommandLine &line);
void addRepair(CommandLine &line);
void addGallery(CommandLine &line);
void addTransfer(CommandLine &line); // copy, move
void addOffload(CommandLine &line);
void addMkdir(CommandLine &line);
void addPrune(CommandLine &line);
void addProtect(CommandLine &line); // protect, unprotect
void addWatch(CommandLine &line);
void addRemove(CommandLine &line); // delete, rmdir, wipe

#endif // COMMANDS_H
