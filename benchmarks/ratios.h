// SPDX-License-Identifier: MIT
#ifndef RATIOS_H
#define RATIOS_H

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

/// One way of getting an operation's result.
struct Way {
    std::string name;
    std::function<void()> run;
    int rounds = 5;
};

/// Several ways beside each other. The first is the bound that the others are measured by, the second the
/// library's.
struct Comparison {
    std::string name;
    double target; ///< highest ratio wanted of the library; 0 for none
    std::vector<Way> ways;
    std::function<void()> prepare; ///< called once before the first round
    std::function<void()> finish = [] {};
    std::function<void()> between = [] {}; ///< called before each run, outside the time measured
};

/// Registers a benchmark in which the ways take turns: in each round each of them once, for some
/// milliseconds. The speed of a machine changes in the course of a run, so ratios are those of neighbours.
void compare(const Comparison &comparison);

/// compare() twice: with TZ unset, and with TZ=Europe/Berlin.
void compareInZones(const Comparison &comparison);

/// A figure that is no time, such as memory.
struct Figure {
    std::string name;
    std::string unit;
    double target; ///< highest value wanted; 0 for none
    std::function<double()> value;
};

void report(const Figure &figure);

/// Prints one line per comparison: the median time of the bound, and the medians of the ratios to it.
class RatioReporter : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;
};

#endif // RATIOS_H
