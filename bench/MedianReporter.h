// A console reporter that also keeps, per benchmark, the median of its
// throughput (items per second), so that a program can print the ratio of a
// measurement to the baseline taken in the same run. Benchmarks without
// repetitions report one run, which is kept as its own median.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace cxbench
{

class MedianReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
        {
            const bool median = run.aggregate_name == "median";
            const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            if (!median && !single)
                continue;
            const auto found = run.counters.find("items_per_second");
            if (found != run.counters.end())
                _medians[run.run_name.function_name] = found->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Median items per second of the named benchmark; 0 when it did not run.
    double median(const std::string& benchmark) const
    {
        const auto found = _medians.find(benchmark);
        return found == _medians.end() ? 0.0 : found->second;
    }

private:
    std::map<std::string, double> _medians;
};

} // namespace cxbench
