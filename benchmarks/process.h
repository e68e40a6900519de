// SPDX-License-Identifier: MIT
#ifndef PROCESS_H
#define PROCESS_H

#include <string>
#include <vector>

// Each starts one program, reads its standard output and standard error, and waits until it ends.

using CommandLine = std::vector<std::string>;

void runByQt(const CommandLine &line);
void runBySpawn(const CommandLine &line);

#endif // PROCESS_H
