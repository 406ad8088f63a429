// What the benchmark programs share: a console reporter that also keeps, per
// benchmark, the median of its throughput (items per second), so that a
// program can print the ratio of a measurement to the baseline taken in the
// same run (benchmarks without repetitions report one run, kept as its own
// median), and a start that interleaves the repetitions of all benchmarks.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <memory>
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

/** Initializes Google Benchmark with the repetitions of all benchmarks run
  * in random interleaved order, so that a change of the machine's speed
  * during the run (other work, clock changes) touches a measurement and its
  * baseline alike. An option on the command line comes after, and wins.
  * Returns the arguments Google Benchmark did not take, `*argc` of them. */
inline char** initializeInterleaved(int* argc, char** argv)
{
    static std::vector<char*> args;
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.assign(argv, argv + *argc);
    args.insert(args.begin() + (args.empty() ? 0 : 1), interleave);
    args.push_back(nullptr);
    int count = static_cast<int>(args.size()) - 1;
    benchmark::Initialize(&count, args.data());
    *argc = count;
    return args.data();
}

/** Runs the benchmarks of the program, interleaved, into `reporter`, after
  * `prepare` (the data made before timing, once the arguments are known to
  * be good). False (after saying so) on arguments Google Benchmark does not
  * know. */
inline bool runInterleaved(int argc, char** argv, MedianReporter& reporter, const std::function<void()>& prepare = {})
{
    argv = initializeInterleaved(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return false;
    if (prepare)
        prepare();
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return true;
}

} // namespace cxbench
