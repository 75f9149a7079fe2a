// A benchmark that measures work against its raw limit in the same run: both sides alternate, and
// the counter "ratio" is the median of the ratios of adjacent runs, so that a noisy machine
// disturbs both sides alike; "total" is the ratio of the sums, which includes rare expensive calls;
// "cpu" is the median of the ratios of processor time, which other work on the machine disturbs
// least. Compare ratios, never times of two runs.
#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench
{
template <class TWork>
double SecondsOf(TWork&& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double ProcessorSeconds()
{
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Of the measuring thread: waiting and the work of other threads are not included.
template <class TWork>
double ProcessorSecondsOf(TWork&& work)
{
    const double start = ProcessorSeconds();
    work();
    return ProcessorSeconds() - start;
}

constexpr double kNoTarget = 0;

inline double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

/// Runs both once an iteration; the time shown is that of `ours`. `target` is what the ratio is
/// meant to stay below; none (kNoTarget) for a peer. `reset` runs unmeasured before each side.
template <class TRaw, class TOurs, class TReset>
void Compare(benchmark::State& state, double target, TRaw&& raw, TOurs&& ours, TReset&& reset)
{
    std::vector<double> ratios;
    std::vector<double> processorRatios;
    double rawTotal = 0;
    double ourTotal = 0;
    for ([[maybe_unused]] auto iteration : state) {
        double rawSeconds = 0;
        double ourSeconds = 0;
        reset();
        const double rawProcessor = ProcessorSecondsOf([&] { rawSeconds = SecondsOf(raw); });
        reset();
        const double ourProcessor = ProcessorSecondsOf([&] { ourSeconds = SecondsOf(ours); });
        ratios.push_back(ourSeconds / rawSeconds);
        processorRatios.push_back(ourProcessor / rawProcessor);
        rawTotal += rawSeconds;
        ourTotal += ourSeconds;
        state.SetIterationTime(ourSeconds);
    }
    state.counters["ratio"] = Median(ratios);
    state.counters["total"] = ourTotal / rawTotal;
    state.counters["cpu"] = Median(processorRatios);
    if (target != kNoTarget)
        state.counters["target"] = target;
}

template <class TRaw, class TOurs>
void Compare(benchmark::State& state, double target, TRaw&& raw, TOurs&& ours)
{
    Compare(state, target, raw, ours, [] {});
}
} // namespace bench
