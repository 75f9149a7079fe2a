// A benchmark that measures work against its raw limit in the same run: both sides alternate, and
// the counter "ratio" is the median of the ratios of neighbours, so that a noisy machine disturbs
// both sides alike; "total" is the ratio of the sums, in which rare dear calls count. Compare
// ratios, never times of two runs.
#pragma once

#include <algorithm>
#include <chrono>
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
    double rawTotal = 0;
    double ourTotal = 0;
    for ([[maybe_unused]] auto iteration : state) {
        reset();
        const double rawSeconds = SecondsOf(raw);
        reset();
        const double ourSeconds = SecondsOf(ours);
        ratios.push_back(ourSeconds / rawSeconds);
        rawTotal += rawSeconds;
        ourTotal += ourSeconds;
        state.SetIterationTime(ourSeconds);
    }
    state.counters["ratio"] = Median(ratios);
    state.counters["total"] = ourTotal / rawTotal;
    if (target != kNoTarget)
        state.counters["target"] = target;
}

template <class TRaw, class TOurs>
void Compare(benchmark::State& state, double target, TRaw&& raw, TOurs&& ours)
{
    Compare(state, target, raw, ours, [] {});
}
} // namespace bench
