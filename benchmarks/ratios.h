// SPDX-License-Identifier: MIT
#ifndef RATIOS_H
#define RATIOS_H

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// One way to obtain an operation's result.
struct Way {
    std::string name;
    std::function<void()> run;
    int rounds = 5;
};

/// Several ways to compare. The first is the bound that the others are measured against, the second is
/// the library.
struct Comparison {
    std::string name;
    double target; ///< highest acceptable ratio for the library; 0 if there is none
    std::vector<Way> ways;
    std::function<void()> prepare; ///< called once before the first round
    std::function<void()> finish = [] {};
    std::function<void()> between = [] {}; ///< called before each run, not measured
    /// The least work for the kind of result that the library returns, if that is more than the bound.
    std::optional<Way> floor = {};
};

/// Registers a benchmark in which the ways take turns: each of them runs once per round, for some
/// milliseconds. The speed of a machine drifts during a run, so a ratio compares measurements of the same
/// round.
void compare(const Comparison &comparison);

/// compare() twice: with TZ unset, and with TZ=Europe/Berlin.
void compareInZones(const Comparison &comparison);

/// A measured value other than a time, such as memory.
struct Measurement {
    std::string name;
    std::string unit;
    double target; ///< highest acceptable value; 0 if there is none
    std::function<double()> value;
};

void report(const Measurement &measurement);

/// Prints one line per comparison: the median time of the bound, the medians of the ratios to it, and that of
/// the library's ratio to the floor.
class RatioReporter : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;
};

#endif // RATIOS_H
