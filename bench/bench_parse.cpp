// bench_parse - the reply parser on a corpus of typical replies, beside two trees built here
// over the same replies: a plain one with a heap block per node, name and value (the cost the
// parser must not exceed) and a zero-allocation in-place tokenizer (the floor).
//
// Reports per reply: time, and heap allocations ("allocs_per_reply"), counted by a malloc that
// this program interposes for itself and the library; for the parser also the nodes it builds
// ("nodes_per_reply"). A summary after the runs sets the three side by side.
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "atapi.h"
#include "atplatform.h"
#include "summary.h"

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void __libc_free(void*);

namespace {
size_t g_allocs = 0;
// Replies of every run of each benchmark, so that an instruction count taken over the whole
// program (callgrind) can be divided by them.
size_t g_replies[3] = {};
}

extern "C" void* malloc(size_t n) {
    ++g_allocs;
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t m) {
    ++g_allocs;
    return __libc_calloc(n, m);
}
extern "C" void* realloc(void* p, size_t n) {
    ++g_allocs;
    return __libc_realloc(p, n);
}
extern "C" void free(void* p) { __libc_free(p); }

namespace {

struct Reply {
    const char* name;
    at_function_type func;
    at_operation_type oper;
    const char* templ;  // the template the row uses, for the baseline
    const char* text;
};

const Reply kCorpus[] = {
    {"+CSQ", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_READ, "+CSQ:rssi,ber", "+CSQ: 23,99"},
    {"+CREG", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_READ, "+CREG:n,stat,lac,ci,act",
     "+CREG: 2,1,\"2A3B\",\"0C1D2E3F\",7"},
    {"+COPS", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_READ, "+COPS:mode,format,oper,rat",
     "+COPS: 0,0,\"EXAMPLE MOBILE\",7"},
    {"+COPS", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_TEST,
     "+COPS:(stat,long_oper,short_oper,numeric_oper,rat),,(mode_0,mode_1,mode_2,mode_3,mode_4),"
     "(format_0,format_1,format_2)",
     "+COPS: (2,\"EXAMPLE MOBILE\",\"EXMO\",\"00101\",7),(1,\"TEST-NET\",\"TESTNET\",\"00102\",7),"
     "(1,\"CHN-CT\",\"CT\",\"46011\",7),(3,\"Operator D\",\"OPD\",\"46020\",2),"
     "(3,\"Operator E\",\"OPE\",\"46099\",0),,(0,1,2,3,4),(0,1,2)"},
    {"^SYSCFGEX", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_TEST,
     "^SYSCFGEX:(acqorders),((band,band_name)),(roams),(srvdomains),((lteband,lteband_name))",
     "^SYSCFGEX: (\"00\",\"01\",\"02\",\"03\"),((2000000400380,\"GSM900/GSM1800/WCDMA2100\"),"
     "(3fffffff,\"All bands\")),(0-2),(0-4),((800c5,\"LTE_B1/B3/B7/B8/B20\"),"
     "(7fffffffffffffff,\"All bands\"))"},
    {"+CGDCONT", AT_FUNCTION_CGDCONT_CFG, AT_OPERATION_TYPE_READ,
     "+CGDCONT:cid,PDP_type,APN,PDP_address,d_comp,h_comp,temp7,temp8",
     "+CGDCONT: 1,\"IP\",\"cmnet\",\"0.0.0.0\",0,0\r\n+CGDCONT: 2,\"IPV6\",\"ims\",\"\",0,0\r\n"
     "+CGDCONT: 3,\"IPV4V6\",\"internet\",\"\",0,0"},
    {"^DHCP", AT_FUNCTION_DHCP_INFO_CFG, AT_OPERATION_TYPE_READ,
     "^DHCP:IPAddr,NetMask,GateWay,DHCPserver,pDNS,sDNS,max_rx_data,max_tx_data",
     "^DHCP: 6b0ba8c0,f8ffffff,690ba8c0,690ba8c0,d5e1400a,d6e1400a,150000000,50000000"},
    {"+CMGR", AT_FUNCTION_SMS_CFG, AT_OPERATION_TYPE_READ, "+CMGR:stat,reserved,length\r\npdu",
     "+CMGR: 0,,25\r\n0891683108200105F0040D91683117350000F500001210710170402"
     "30BC8329BFD065DDF72363904"},
};

constexpr size_t kCorpusSize = std::size(kCorpus);

// The reply field of the AT server's record: the parser may write into it, so each parse gets a
// fresh copy, in the baseline as well.
using ReportBuf = std::array<char, AT_REPORT_STR_LEN>;

void load(ReportBuf& buf, const char* text) {
    const size_t n = std::strlen(text);
    memcpy_s(buf.data(), buf.size(), text, n + 1);
}

// Time and heap allocations per reply, the figures both benchmarks are compared by.
void report_per_reply(benchmark::State& state, size_t replies, size_t allocs_before) {
    state.counters["ns_per_reply"] = benchmark::Counter(
        static_cast<double>(replies), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["allocs_per_reply"] =
        static_cast<double>(g_allocs - allocs_before) / static_cast<double>(replies);
    state.SetItemsProcessed(static_cast<int64_t>(replies));
}

// Every node of the tree: the rows along plist, the fields of each row along next, and the
// lists that hang from a field's plist (the groups of a band or operator list).
size_t count_nodes(const AtCmdParse* tree) {
    size_t n = 0;
    for (const AtCmdParse* row = tree; row != nullptr; row = row->plist) {
        for (const AtCmdParse* field = row; field != nullptr; field = field->next) {
            ++n;
            if (field != row) n += count_nodes(field->plist);
        }
    }
    return n;
}

void BM_AtCmdParse(benchmark::State& state) {
    ReportBuf buf{};
    std::array<std::array<char, 16>, kCorpusSize> names{};
    for (size_t i = 0; i < kCorpusSize; ++i) {
        strncpy_s(names[i].data(), names[i].size(), kCorpus[i].name, names[i].size() - 1);
    }
    size_t replies = 0;
    size_t nodes = 0;
    const size_t allocs_before = g_allocs;
    for (auto _ : state) {
        for (size_t i = 0; i < kCorpusSize; ++i) {
            load(buf, kCorpus[i].text);
            AtCmdParse* tree = nullptr;
            const int rc = at_cmd_parse(&tree, names[i].data(), buf.data(), kCorpus[i].func,
                                        kCorpus[i].oper);
            if (rc != 0 || tree == nullptr) {
                state.SkipWithError("a corpus reply did not parse");
                return;
            }
            benchmark::DoNotOptimize(tree);
            if (replies < kCorpusSize) nodes += count_nodes(tree);
            free_at_cmd(tree);
            ++replies;
        }
    }
    report_per_reply(state, replies, allocs_before);
    state.counters["nodes_per_reply"] = static_cast<double>(nodes) / static_cast<double>(kCorpusSize);
    g_replies[0] += replies;
}
BENCHMARK(BM_AtCmdParse);

// --- Baseline: names and values as views into the reply, no allocation at all. ---------------

struct Field {
    std::string_view name;
    std::string_view value;
};

constexpr size_t kMaxTokens = 64;

std::string_view trim_view(std::string_view s, std::string_view chars) {
    const size_t b = s.find_first_not_of(chars);
    if (b == std::string_view::npos) return {};
    return s.substr(b, s.find_last_not_of(chars) - b + 1);
}

// Splits at commas outside quotes and brackets; returns the count.
size_t split(std::string_view text, std::array<std::string_view, kMaxTokens>& out) {
    size_t n = 0;
    size_t start = 0;
    bool quoted = false;
    int depth = 0;
    for (size_t i = 0; i <= text.size() && n < kMaxTokens; ++i) {
        const char c = i < text.size() ? text[i] : ',';
        if (c == '"') quoted = !quoted;
        if (quoted) continue;
        if (c == '(') ++depth;
        if (c == ')') --depth;
        if (c == ',' && depth <= 0) {
            out[n++] = trim_view(text.substr(start, i - start), " \"\r\n()");
            start = i + 1;
        }
    }
    return n;
}

// One reply: each line after the name's colon is split and its values paired with the names of
// the template; bracketed groups are split once more into their members.
size_t tokenize(std::string_view templ, std::string_view reply, std::string_view name,
                std::array<Field, kMaxTokens * 4>& fields) {
    std::array<std::string_view, kMaxTokens> names{};
    std::array<std::string_view, kMaxTokens> values{};
    std::array<std::string_view, kMaxTokens> members{};
    const size_t n_names = split(templ.substr(templ.find(':') + 1), names);
    size_t count = 0;
    size_t pos = reply.find(name);
    while (pos != std::string_view::npos) {
        const size_t colon = reply.find(':', pos);
        if (colon == std::string_view::npos) break;
        const size_t next = reply.find(name, colon);
        const std::string_view line =
            reply.substr(colon + 1, (next == std::string_view::npos ? reply.size() : next) - colon - 1);
        const size_t n = split(line, values);
        for (size_t i = 0; i < n && count < fields.size(); ++i) {
            const std::string_view field_name = i < n_names ? names[i] : std::string_view{};
            if (values[i].find(',') == std::string_view::npos) {
                fields[count++] = {field_name, values[i]};
                continue;
            }
            const size_t m = split(values[i], members);
            for (size_t k = 0; k < m && count < fields.size(); ++k) {
                fields[count++] = {field_name, members[k]};
            }
        }
        pos = next;
    }
    return count;
}

void BM_InPlaceTokenizer(benchmark::State& state) {
    ReportBuf buf{};
    std::array<Field, kMaxTokens * 4> fields{};
    size_t replies = 0;
    const size_t allocs_before = g_allocs;
    for (auto _ : state) {
        for (const Reply& r : kCorpus) {
            load(buf, r.text);
            const size_t n = tokenize(r.templ, std::string_view(buf.data()), r.name, fields);
            if (n == 0) {
                state.SkipWithError("a corpus reply gave no field");
                return;
            }
            benchmark::DoNotOptimize(fields.data());
            benchmark::DoNotOptimize(n);
            ++replies;
        }
    }
    report_per_reply(state, replies, allocs_before);
    g_replies[2] += replies;
}
BENCHMARK(BM_InPlaceTokenizer);

// --- Baseline: the same fields as a plain tree, one heap block per node, name and value. -------

char* copy_text(std::string_view text) {
    auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

void free_plain(AtCmdParse* field) {
    while (field != nullptr) {
        AtCmdParse* next = field->next;
        std::free(field->AtFieldName);
        std::free(field->AtFieldValue);
        std::free(field);
        field = next;
    }
}

AtCmdParse* plain_tree(const std::array<Field, kMaxTokens * 4>& fields, size_t n) {
    AtCmdParse* head = nullptr;
    AtCmdParse** tail = &head;
    for (size_t i = 0; i < n; ++i) {
        auto* node = static_cast<AtCmdParse*>(std::malloc(sizeof(AtCmdParse)));
        if (node == nullptr) break;
        *node = AtCmdParse{};
        node->AtFieldName = fields[i].name.empty() ? nullptr : copy_text(fields[i].name);
        node->AtFieldValue = copy_text(fields[i].value);
        *tail = node;
        tail = &node->next;
    }
    return head;
}

void BM_MallocPerFieldTree(benchmark::State& state) {
    ReportBuf buf{};
    std::array<Field, kMaxTokens * 4> fields{};
    size_t replies = 0;
    size_t nodes = 0;
    const size_t allocs_before = g_allocs;
    for (auto _ : state) {
        for (const Reply& r : kCorpus) {
            load(buf, r.text);
            const size_t n = tokenize(r.templ, std::string_view(buf.data()), r.name, fields);
            if (replies < kCorpusSize) nodes += n;
            AtCmdParse* tree = plain_tree(fields, n);
            if (tree == nullptr) {
                state.SkipWithError("a corpus reply gave no field");
                return;
            }
            benchmark::DoNotOptimize(tree);
            free_plain(tree);
            ++replies;
        }
    }
    report_per_reply(state, replies, allocs_before);
    state.counters["nodes_per_reply"] = static_cast<double>(nodes) / static_cast<double>(kCorpusSize);
    g_replies[1] += replies;
}
BENCHMARK(BM_MallocPerFieldTree);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    // The counter is an inverted rate: seconds of CPU per reply.
    const double parse = reporter.get("BM_AtCmdParse/1", "ns_per_reply") * 1e9;
    const double plain = reporter.get("BM_MallocPerFieldTree/1", "ns_per_reply") * 1e9;
    const double floor = reporter.get("BM_InPlaceTokenizer/1", "ns_per_reply") * 1e9;
    const double nodes = reporter.get("BM_AtCmdParse/1", "nodes_per_reply");
    const double allocs = reporter.get("BM_AtCmdParse/1", "allocs_per_reply");
    std::printf("\nsummary (mean over %zu replies of the corpus, every run of each benchmark):\n", kCorpusSize);
    std::printf("  at_cmd_parse + free_at_cmd   %8.1f ns/reply  %5.2f allocations per node (%.1f nodes)\n",
                parse, nodes > 0 ? allocs / nodes : 0.0, nodes);
    const double plain_nodes = reporter.get("BM_MallocPerFieldTree/1", "nodes_per_reply");
    std::printf("  plain malloc-per-field tree  %8.1f ns/reply  %5.2f allocations per node (%.1f nodes)\n", plain,
                plain_nodes > 0 ? reporter.get("BM_MallocPerFieldTree/1", "allocs_per_reply") / plain_nodes : 0.0,
                plain_nodes);
    std::printf("  in-place tokenizer           %8.1f ns/reply\n", floor);
    std::printf("  replies in all runs: parser %zu, plain tree %zu, tokenizer %zu\n", g_replies[0], g_replies[1],
                g_replies[2]);
    if (plain > 0 && floor > 0) {
        std::printf("  parser / plain tree %.2fx, parser / tokenizer %.2fx\n", parse / plain, parse / floor);
    }
    return 0;
}
