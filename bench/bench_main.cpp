// The main of qimg_bench: runs every registered benchmark, then prints, for each benchmark named
// qimg_X/..., its rate next to peer_X/... (the library a user would pick instead) and base_X/...
// (the plain memory operation of the same bytes) when those exist, with the ratios.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "bench_summary.h"

namespace {

std::vector<BenchSummary>& summaries() {
    static std::vector<BenchSummary> registered;
    return registered;
}

// Remembers the "Mpix/s" counter of every run while printing as usual.
class RateCollector : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        // With --benchmark_repetitions the median of the repetitions is kept.
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type != Run::RT_Iteration && !median) continue;
            const auto it = run.counters.find("Mpix/s");
            if (it == run.counters.end()) continue;
            std::string name = run.run_name.str();
            if (median || !medians_.count(name)) rates[name] = it->second.value;
            if (median) medians_.insert(name);
        }
        ConsoleReporter::ReportRuns(runs);
    }
    BenchRates rates;

private:
    std::set<std::string> medians_;
};

// "qimg_copy32/1920/1080" -> ("qimg", "copy32/1920/1080").
bool split(const std::string& name, std::string* family, std::string* rest) {
    const size_t underscore = name.find('_');
    if (underscore == std::string::npos) return false;
    *family = name.substr(0, underscore);
    *rest = name.substr(underscore + 1);
    return true;
}

}  // namespace

bool register_bench_summary(BenchSummary summary) {
    summaries().push_back(summary);
    return true;
}

int main(int argc, char** argv) {
    // Other programs share this machine, so by default every benchmark is repeated in random
    // order and the medians are compared; flags given on the command line replace these.
    std::vector<char*> args(argv, argv + argc);
    std::string repetitions = "--benchmark_repetitions=3";
    std::string min_time = "--benchmark_min_time=0.1";
    std::string interleave = "--benchmark_enable_random_interleaving=true";
    std::string brief = "--benchmark_report_aggregates_only=true";
    if (argc == 1) {
        args.insert(args.end(),
                    {repetitions.data(), min_time.data(), interleave.data(), brief.data()});
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
    RateCollector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    benchmark::Shutdown();

    bool header = false;
    for (const auto& [name, rate] : collector.rates) {
        std::string family, rest;
        if (!split(name, &family, &rest) || family != "qimg") continue;
        if (!header) {
            std::printf("\n%-34s %12s %12s %8s %12s %8s\n", "operation", "qimg Mpix/s",
                        "peer Mpix/s", "qimg/peer", "base Mpix/s", "qimg/base");
            header = true;
        }
        const auto peer = collector.rates.find("peer_" + rest);
        const auto base = collector.rates.find("base_" + rest);
        std::printf("%-34s %12.0f", rest.c_str(), rate);
        if (peer != collector.rates.end()) {
            std::printf(" %12.0f %8.2f", peer->second, rate / peer->second);
        } else {
            std::printf(" %12s %8s", "-", "-");
        }
        if (base != collector.rates.end()) {
            std::printf(" %12.0f %8.2f", base->second, rate / base->second);
        }
        std::printf("\n");
    }
    for (BenchSummary summary : summaries()) summary(collector.rates);
    return 0;
}
