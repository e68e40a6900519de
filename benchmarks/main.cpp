// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "ratios.h"

#include <cstdlib>

int main(int argc, char *argv[])
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    ::unsetenv("TZ");
    // First what starts processes: that gets slower with the memory that the other benchmarks leave behind.
    addSpawn();
    addCommands();
    addListing();
    addNext();
    addJson();
    addCount();
    addMetadata();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    removeDataSets();
    return 0;
}
