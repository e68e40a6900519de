// SPDX-License-Identifier: MIT
#include "ratios.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <sys/resource.h>

static constexpr char TARGET[] = "target";
static constexpr char BOUND[] = "bound";
static constexpr char FLOOR[] = "floor";
static constexpr char VALUE[] = "value";
static constexpr double LEAST_SECONDS = 0.02;

static double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

static double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// Processor time of this process and of those that it has waited for, so that other programs on the machine
/// do not count.
static double processorTime()
{
    rusage children = {};
    ::getrusage(RUSAGE_CHILDREN, &children);
    timespec own = {};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &own);
    return seconds(children.ru_utime) + seconds(children.ru_stime) + static_cast<double>(own.tv_sec)
           + static_cast<double>(own.tv_nsec) / 1e9;
}

/// Seconds for one run of @p way.
static double measure(const Comparison &comparison, const Way &way)
{
    double passed = 0;
    int runs = 0;
    for (; passed < LEAST_SECONDS; ++runs) {
        comparison.between();
        const double start = processorTime();
        way.run();
        passed += processorTime() - start;
    }
    return passed / runs;
}

/// Name of the counter of a way. Counters are kept in the order of their names.
static std::string counterName(std::size_t index, const Way &way)
{
    return std::to_string(index) + ' ' + way.name;
}

static void runRounds(benchmark::State &state, const Comparison &comparison)
{
    std::vector<double> bounds;
    std::vector<std::vector<double>> ratios(comparison.ways.size());
    std::vector<double> floorRatios;
    comparison.prepare();
    int round = 0;
    for ([[maybe_unused]] auto iteration : state) {
        bounds.push_back(measure(comparison, comparison.ways.front()));
        for (std::size_t i = 1; i < ratios.size(); ++i) {
            if (round < comparison.ways[i].rounds)
                ratios[i].push_back(measure(comparison, comparison.ways[i]) / bounds.back());
        }
        if (comparison.floor) {
            const double floor = measure(comparison, *comparison.floor);
            floorRatios.push_back(ratios[1].back() * bounds.back() / floor);
        }
        ++round;
    }
    comparison.finish();
    state.counters[TARGET] = comparison.target;
    state.counters[BOUND] = median(bounds);
    if (comparison.floor)
        state.counters[FLOOR] = median(floorRatios);
    for (std::size_t i = 1; i < ratios.size(); ++i)
        state.counters[counterName(i, comparison.ways[i])] = median(ratios[i]);
}

void compare(const Comparison &comparison)
{
    const auto run = [comparison](benchmark::State &state) { runRounds(state, comparison); };
    benchmark::RegisterBenchmark(comparison.name.c_str(), run)
        ->Iterations(comparison.ways.front().rounds)
        ->Repetitions(1);
}

static void setZone(const char *zone)
{
    if (zone)
        ::setenv("TZ", zone, 1);
    else
        ::unsetenv("TZ");
    ::tzset();
}

void compareInZones(const Comparison &comparison)
{
    Comparison inZone = comparison;
    inZone.name = comparison.name + ", TZ unset";
    compare(inZone);
    inZone.name = comparison.name + ", TZ set";
    inZone.prepare = [prepare = comparison.prepare] {
        prepare();
        setZone("Europe/Berlin");
    };
    inZone.finish = [finish = comparison.finish] {
        finish();
        setZone(nullptr);
    };
    compare(inZone);
}

void report(const Measurement &measurement)
{
    const auto run = [measurement](benchmark::State &state) {
        for ([[maybe_unused]] auto iteration : state)
            state.counters[VALUE] = measurement.value();
        state.counters[TARGET] = measurement.target;
        state.SetLabel(measurement.unit);
    };
    benchmark::RegisterBenchmark(measurement.name.c_str(), run)->Iterations(1)->Repetitions(1);
}

bool RatioReporter::ReportContext(const Context & /*context*/)
{
    std::printf("%-62s %9s %8s %7s %8s  %s\n", "operation", "bound ms", "library", "target", "to floor",
                "other ways");
    return true;
}

static std::string number(const char *format, double value)
{
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

static void printRun(const benchmark::BenchmarkReporter::Run &run)
{
    const auto &counters = run.counters;
    const double target = counters.at(TARGET);
    const bool isMeasurement = counters.count(VALUE) != 0;
    std::string others = isMeasurement ? run.report_label : std::string();
    std::string library = isMeasurement ? number("%.0f", counters.at(VALUE)) : std::string();
    for (const auto &[name, counter] : counters) {
        if (name[0] == '1')
            library = number("%.2f", counter);
        else if (name[0] == '2')
            others += name.substr(2) + number(" %.2f", counter);
    }
    const bool hasFloor = counters.count(FLOOR) != 0;
    std::printf("%-62s %9s %8s %7s %8s  %s\n", run.run_name.function_name.c_str(),
                isMeasurement ? "-" : number("%.3f", counters.at(BOUND) * 1000).c_str(), library.c_str(),
                target > 0 ? number("%g", target).c_str() : "-",
                hasFloor ? number("%.2f", counters.at(FLOOR)).c_str() : "-", others.c_str());
    std::fflush(stdout);
}

void RatioReporter::ReportRuns(const std::vector<Run> &runs)
{
    for (const Run &run : runs) {
        if (run.run_type == Run::RT_Iteration)
            printRun(run);
    }
}
