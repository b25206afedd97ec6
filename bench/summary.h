// summary.h - keeps the figures of every benchmark run for the summary a benchmark program prints
// after Google Benchmark's table.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
            Figures& f = figures_[run.run_name.function_name + "/" + std::to_string(run.threads)];
            for (const auto& [name, counter] : run.counters) f.sum[name] += counter.value;
            ++f.runs;
        }
    }
    // The mean of `counter` over every run of `run` ("BM_Name/threads"), or -1 when none has it.
    double get(const std::string& run, const char* counter) const {
        const auto r = figures_.find(run);
        if (r == figures_.end() || r->second.runs == 0) return -1;
        const auto c = r->second.sum.find(counter);
        return c == r->second.sum.end() ? -1 : c->second / r->second.runs;
    }

private:
    struct Figures {
        std::map<std::string, double> sum;
        int runs = 0;
    };
    std::map<std::string, Figures> figures_;
};
