// SPDX-License-Identifier: MIT
#ifndef BENCHMARKS_H
#define BENCHMARKS_H

// Each registers the comparisons of one operation.
void addListing();
void addNext();
void addJson();
void addCount();
void addMetadata();
void addCommands();
void addSpawn();

#endif // BENCHMARKS_H
