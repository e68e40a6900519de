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
    // The benchmarks that start processes run first: they become slower with the memory that the others leave
    // allocated.
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
