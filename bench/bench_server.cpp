// bench_server.cpp - the AT server and the simulated modem under 1, 8 and 64 client threads.
//
// Each iteration is one whole exchange through the library: request queue, SIGUSR1, the
// server's FIFO, the pseudo-terminal to the simulator and back, reply queue. Reported per run:
// commands per second (items_per_second), the median and 99th-percentile latency of one
// exchange, and the server's CPU time (user + system, from /proc) per command.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "e2e/harness.h"

namespace {

std::unique_ptr<e2e::Stack> g_stack;
std::mutex g_mu;
std::vector<double> g_latency_us;
long g_cpu_ticks_start = 0;

long server_cpu_ticks() {
    std::ifstream f("/proc/" + std::to_string(g_stack->server.pid()) + "/stat");
    std::string line;
    std::getline(f, line);
    std::istringstream in(line.substr(line.rfind(')') + 2));
    std::string field;
    long utime = 0, stime = 0;
    for (int i = 3; in >> field; ++i) {
        if (i == 14) utime = std::stol(field);
        if (i == 15) {
            stime = std::stol(field);
            break;
        }
    }
    return utime + stime;
}

void BM_Exchange(benchmark::State& state) {
    if (state.thread_index() == 0) {
        std::lock_guard lock(g_mu);
        g_latency_us.clear();
        g_cpu_ticks_start = server_cpu_ticks();
    }
    std::vector<double> mine;
    const std::string cmd = "AT+ECHO=" + std::to_string(state.thread_index()) + ",1";
    int64_t failed = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        const e2e::Outcome o = e2e::exchange(cmd, "+ECHO", 30);
        mine.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count());
        if (o.rc != 0 || o.ret_val != AT_CMD_OK) ++failed;
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["failed"] = benchmark::Counter(static_cast<double>(failed));
    {
        std::lock_guard lock(g_mu);
        g_latency_us.insert(g_latency_us.end(), mine.begin(), mine.end());
    }
    if (state.thread_index() == 0) {
        // Thread 0 reports for all; the others' counters are zero and sum away. It waits for the
        // others' samples by spinning on the shared count.
        const size_t want = static_cast<size_t>(state.iterations()) * static_cast<size_t>(state.threads());
        for (;;) {
            {
                std::lock_guard lock(g_mu);
                if (g_latency_us.size() >= want) break;
            }
            usleep(1000);
        }
        std::lock_guard lock(g_mu);
        std::sort(g_latency_us.begin(), g_latency_us.end());
        const double n = static_cast<double>(g_latency_us.size());
        state.counters["p50_us"] = g_latency_us[g_latency_us.size() / 2];
        state.counters["p99_us"] = g_latency_us[static_cast<size_t>(n * 0.99)];
        const double ticks = static_cast<double>(server_cpu_ticks() - g_cpu_ticks_start);
        state.counters["server_cpu_us_per_cmd"] = ticks * 1e6 / static_cast<double>(sysconf(_SC_CLK_TCK)) / n;
    }
}
BENCHMARK(BM_Exchange)->Threads(1)->Threads(8)->Threads(64)->UseRealTime()->MinTime(3.0);

// 100,000 messages from a client that breaks every rule (e2e::hostile_requests) while one honest
// thread calls on: the honest calls' success rate, the server's memory after the flood and the
// flood's own rate. One pass; the figures are the point, not a time per iteration.
void BM_HostileFlood(benchmark::State& state) {
    for (auto _ : state) {
        std::atomic<bool> flooding{true};
        int taken = 0;
        const auto t0 = std::chrono::steady_clock::now();
        std::thread flood([&] {
            taken = e2e::hostile_requests(100000, false);
            flooding = false;
        });
        int64_t honest = 0, answered = 0;
        while (flooding) {
            ++honest;
            const e2e::Outcome o = e2e::exchange("AT+ECHO=1,1", "+ECHO", 5);
            if (o.rc == 0 && o.ret_val == AT_CMD_OK && o.report == "+ECHO: 1,1") ++answered;
        }
        flood.join();
        const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        state.counters["honest_calls"] = static_cast<double>(honest);
        state.counters["honest_success_pct"] = honest > 0 ? 100.0 * static_cast<double>(answered) / static_cast<double>(honest) : 0;
        state.counters["hostile_taken"] = taken;
        state.counters["hostile_per_s"] = taken / secs;
        state.counters["server_rss_kib"] = static_cast<double>(e2e::memory_kib(g_stack->server.pid(), "VmRSS"));
        state.counters["server_hwm_kib"] = static_cast<double>(e2e::memory_kib(g_stack->server.pid(), "VmHWM"));
    }
}
BENCHMARK(BM_HostileFlood)->Iterations(1)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    g_stack = std::make_unique<e2e::Stack>(R"(
on AT
on AT\+ECHO=(\d+),(\d+)
  line +ECHO: $1,$2
)");
    if (!g_stack->start()) {
        std::fprintf(stderr, "bench_server: the simulator and server did not come up\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_stack.reset();
    return 0;
}
