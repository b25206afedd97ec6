// bench_server.cpp - the AT server and the simulated modem under 1, 8 and 64 client threads.
//
// Each iteration is one whole exchange through the library: request queue, SIGUSR1, the
// server's FIFO, the pseudo-terminal to the simulator and back, reply queue. Reported per run:
// commands per second (items_per_second), the median and 99th-percentile latency of one
// exchange, the server's CPU time per command (all its threads, from /proc/<pid>/task/*/schedstat)
// and its wake-ups per command (context switches of all its threads). BM_Idle measures the
// server with nothing to do; BM_Csq one AT_Csq at a time through the command function.
//
// The library's reply wait is the low-latency one unless ATAPI_REPLY_WAIT says otherwise
// (ATAPI_REPLY_WAIT=poll bench_server measures the 10 ms poll). A summary after the runs gives
// the figures the server and the exchange are held to, with the machine and its load.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <sys/msg.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "../src/reply_bell.h"
#include "e2e/harness.h"
#include "summary.h"

namespace {

std::unique_ptr<e2e::Stack> g_stack;
std::mutex g_mu;
std::vector<double> g_latency_us;

// CPU nanoseconds and context switches of every thread of the server so far.
struct ServerUse {
    double cpu_ns = 0;
    double switches = 0;
};

ServerUse process_use(pid_t pid) {
    ServerUse use;
    const std::string task_dir = "/proc/" + std::to_string(pid) + "/task";
    DIR* dir = opendir(task_dir.c_str());
    if (dir == nullptr) return use;
    while (const dirent* e = readdir(dir)) {
        if (e->d_name[0] == '.') continue;
        const std::string task = task_dir + "/" + e->d_name;
        std::ifstream sched(task + "/schedstat");
        double run_ns = 0;
        if (sched >> run_ns) use.cpu_ns += run_ns;
        std::ifstream status(task + "/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.starts_with("voluntary_ctxt_switches:") || line.starts_with("nonvoluntary_ctxt_switches:"))
                use.switches += std::stod(line.substr(line.find(':') + 1));
        }
    }
    closedir(dir);
    return use;
}

ServerUse server_use() { return process_use(g_stack->server.pid()); }

// This process's CPU, the threads that have ended included (the clients of earlier runs).
double own_cpu_ns() {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return (static_cast<double>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1e6 +
            static_cast<double>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec)) * 1e3;
}

// The server, the simulator and this process (the clients) at the start of a run.
ServerUse g_use_start, g_sim_start;
double g_client_start_ns = 0;

void report_server_use(benchmark::State& state, double commands) {
    const ServerUse now = server_use();
    state.counters["server_cpu_us_per_cmd"] = (now.cpu_ns - g_use_start.cpu_ns) / 1e3 / commands;
    state.counters["server_wakeups_per_cmd"] = (now.switches - g_use_start.switches) / commands;
    state.counters["sim_cpu_us_per_cmd"] = (process_use(g_stack->sim.pid()).cpu_ns - g_sim_start.cpu_ns) / 1e3 / commands;
    state.counters["client_cpu_us_per_cmd"] = (own_cpu_ns() - g_client_start_ns) / 1e3 / commands;
}

// Thread 0 reports for all; the others' counters are zero and sum away. It waits for the others'
// samples by polling the shared count.
void report_latency(benchmark::State& state) {
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
    report_server_use(state, n);
}

void start_run(const benchmark::State& state) {
    if (state.thread_index() != 0) return;
    std::lock_guard lock(g_mu);
    g_latency_us.clear();
    g_use_start = server_use();
    g_sim_start = process_use(g_stack->sim.pid());
    g_client_start_ns = own_cpu_ns();
}

template <typename Call>
void measure(benchmark::State& state, Call call) {
    start_run(state);
    std::vector<double> mine;
    int64_t failed = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        if (!call()) ++failed;
        mine.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count());
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["failed"] = benchmark::Counter(static_cast<double>(failed));
    {
        std::lock_guard lock(g_mu);
        g_latency_us.insert(g_latency_us.end(), mine.begin(), mine.end());
    }
    if (state.thread_index() == 0) report_latency(state);
}

void BM_Exchange(benchmark::State& state) {
    const std::string cmd = "AT+ECHO=" + std::to_string(state.thread_index()) + ",1";
    measure(state, [&] {
        const e2e::Outcome o = e2e::exchange(cmd, "+ECHO", 30);
        return o.rc == 0 && o.ret_val == AT_CMD_OK;
    });
}
BENCHMARK(BM_Exchange)->Threads(1)->Threads(8)->Threads(64)->UseRealTime()->MinTime(3.0);

// The whole command function: request frame, exchange, parse, record.
void BM_Csq(benchmark::State& state) {
    measure(state, [] {
        AT_CSQ_ST csq{};
        return AT_Csq(&csq) == 0 && csq.rssi == 23;
    });
}
BENCHMARK(BM_Csq)->Threads(1)->UseRealTime()->MinTime(2.0);

// Nothing queued for three seconds: what the server costs while it waits.
void BM_Idle(benchmark::State& state) {
    for (auto _ : state) {
        const ServerUse before = server_use();
        std::this_thread::sleep_for(std::chrono::seconds(3));
        const ServerUse after = server_use();
        state.counters["server_cpu_us_per_s"] = (after.cpu_ns - before.cpu_ns) / 1e3 / 3;
        state.counters["server_wakeups_per_s"] = (after.switches - before.switches) / 3;
    }
}
BENCHMARK(BM_Idle)->Iterations(1)->UseRealTime();

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

std::string first_line(const char* path) {
    std::ifstream f(path);
    std::string line;
    std::getline(f, line);
    return line;
}

long mem_total_mib() {
    std::ifstream f("/proc/meminfo");
    std::string key;
    long kib = 0;
    f >> key >> kib;
    return kib / 1024;
}

std::string cpu_model() {
    std::ifstream f("/proc/cpuinfo");
    std::string line;
    while (std::getline(f, line)) {
        if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
    }
    return "unknown CPU";
}

// Records the reply queue holds: 321 when the server could widen it (root with
// CAP_SYS_RESOURCE), else 10, and then at most 8 replies wait before a command does.
long reply_queue_records() {
    msqid_ds ds{};
    const int q = ATS_get_msgQ_id(ATS_QUEUE_ID_SEND);
    if (q == -1 || msgctl(q, IPC_STAT, &ds) != 0) return -1;
    return static_cast<long>(ds.msg_qbytes / (AT_MSG_Q_SIZE - 4));
}

void print_summary(const SummaryReporter& r, long queue_records, bool bell) {
    const char* wait = std::getenv("ATAPI_REPLY_WAIT");
    utsname u{};
    uname(&u);
    std::printf("\nsummary (reply wait: %s%s; reply queue of %ld records)\n", wait ? wait : "poll",
                bell ? ", the server rings its reply bell" : ", no reply bell", queue_records);
    std::printf("  machine: %ld cores, %s (%s), %ld MiB; load average at the end: %s\n",
                sysconf(_SC_NPROCESSORS_ONLN), cpu_model().c_str(), u.machine, mem_total_mib(),
                first_line("/proc/loadavg").c_str());
    std::printf("  1 thread:   median exchange %8.3f ms, p99 %8.3f ms, %7.0f commands/s\n",
                r.get("BM_Exchange/1", "p50_us") / 1e3, r.get("BM_Exchange/1", "p99_us") / 1e3,
                r.get("BM_Exchange/1", "items_per_second"));
    for (int threads : {8, 64}) {
        const std::string run = "BM_Exchange/" + std::to_string(threads);
        std::printf("  %2d threads: %7.0f commands/s, median %8.3f ms; server %6.1f us CPU and %5.2f wake-ups per command"
                    " (simulator %.1f us, clients %.1f us)\n",
                    threads, r.get(run, "items_per_second"), r.get(run, "p50_us") / 1e3,
                    r.get(run, "server_cpu_us_per_cmd"), r.get(run, "server_wakeups_per_cmd"),
                    r.get(run, "sim_cpu_us_per_cmd"), r.get(run, "client_cpu_us_per_cmd"));
    }
    std::printf("  1 thread:   server %6.1f us CPU and %5.2f wake-ups per command\n",
                r.get("BM_Exchange/1", "server_cpu_us_per_cmd"), r.get("BM_Exchange/1", "server_wakeups_per_cmd"));
    std::printf("  AT_Csq:     median %8.3f ms\n", r.get("BM_Csq/1", "p50_us") / 1e3);
    std::printf("  idle:       server %6.1f us CPU and %5.1f wake-ups per second\n",
                r.get("BM_Idle/1", "server_cpu_us_per_s"), r.get("BM_Idle/1", "server_wakeups_per_s"));
    if (r.get("BM_HostileFlood/1", "honest_calls") >= 0)
        std::printf("  flood:      %.1f %% of %.0f honest calls answered, server RSS %.0f KiB\n",
                    r.get("BM_HostileFlood/1", "honest_success_pct"), r.get("BM_HostileFlood/1", "honest_calls"),
                    r.get("BM_HostileFlood/1", "server_rss_kib"));
}

}  // namespace

int main(int argc, char** argv) {
    // The low-latency reply wait unless the environment chose a wait already.
    setenv("ATAPI_REPLY_WAIT", "fast", 0);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    g_stack = std::make_unique<e2e::Stack>(R"(
on AT
on AT\+CSQ
  line +CSQ: 23,99
on AT\+ECHO=(\d+),(\d+)
  line +ECHO: $1,$2
)");
    if (!g_stack->start()) {
        std::fprintf(stderr, "bench_server: the simulator and server did not come up\n");
        return 1;
    }
    const long queue_records = reply_queue_records();
    const bool bell = shmget(ftok(ATS_run_dir(), atapi::bell::kBellIdentity), 0, 0) != -1;
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    print_summary(reporter, queue_records, bell);
    g_stack.reset();
    return 0;
}
