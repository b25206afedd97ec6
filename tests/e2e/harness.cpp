// harness.cpp - process handling and request helpers of the end-to-end tests.
#include "harness.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

namespace e2e {

bool Child::spawn(const std::vector<std::string>& argv, bool quiet) {
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
        if (quiet) dup2(open("/dev/null", O_WRONLY), 1);
        execv(args[0], args.data());
        _exit(127);
    }
    pid_ = pid;
    return true;
}

void Child::signal(int sig) const {
    if (pid_ > 0) kill(pid_, sig);
}

bool Child::wait_exit(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (pid_ > 0 && waitpid(pid_, &status_, WNOHANG) != pid_) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(5ms);
    }
    pid_ = -1;
    return true;
}

void Child::stop() {
    signal(SIGTERM);
    if (!wait_exit(3s)) {
        signal(SIGKILL);
        wait_exit(3s);
    }
}

msg_q request(std::string_view cmd, std::string_view match, int time_out) {
    msg_q m{};
    m.client_id = static_cast<int32_t>(syscall(SYS_gettid));
    m.req_type = AT_REQ;
    m.rsp_type = DIRECT_BACK;
    m.at_mutil = AT_RES_ONE;
    m.time_out = time_out;
    req_msg& s = m.snd_rcv_msg.smsg;
    std::memcpy(s.at_cmd_str, cmd.data(), std::min(cmd.size(), sizeof s.at_cmd_str));
    std::memcpy(s.at_match_ok_str, match.data(), std::min(match.size(), sizeof s.at_match_ok_str - 1));
    return m;
}

Outcome exchange(msg_q& req) {
    Outcome o;
    o.rc = GetDataFromAtServer(&req);
    if (o.rc == 0) {
        const rsp_msg& r = req.snd_rcv_msg.rmsg;
        o.ret_val = r.ret_val;
        o.report.assign(r.at_report_str, strnlen(r.at_report_str, sizeof r.at_report_str));
        o.match.assign(r.at_match_str, strnlen(r.at_match_str, sizeof r.at_match_str));
    }
    return o;
}

Outcome exchange(std::string_view cmd, std::string_view match, int time_out) {
    msg_q m = request(cmd, match, time_out);
    return exchange(m);
}

bool send_raw(long type, std::string_view text) {
    struct {
        long type;
        char text[4096];
    } m{type, {}};
    const size_t n = std::min(text.size(), sizeof m.text);
    std::memcpy(m.text, text.data(), n);
    return msgsnd(ATS_get_msgQ_id(ATS_QUEUE_ID_RECV), &m, n, IPC_NOWAIT) == 0;
}

int hostile_requests(int count, bool paced) {
    const int req_q = ATS_get_msgQ_id(ATS_QUEUE_ID_RECV);
    int taken = 0;
    for (int i = 0; i < count; ++i) {
        // A server that stops taking messages in ends the pacing: the flood goes on regardless.
        const auto give_up = std::chrono::steady_clock::now() + 1s;
        while (paced && ATS_msgQ_num(req_q) >= 8) {
            if (std::chrono::steady_clock::now() > give_up) paced = false;
            std::this_thread::sleep_for(50us);
        }
        msg_q m = request("AT+CSQ", "+CSQ", INT32_MAX);
        const std::string_view text(reinterpret_cast<const char*>(&m) + 4, sizeof m - 4);
        bool sent = false;
        switch (i % 7) {
        case 5: sent = send_raw(kNoThread, std::string(text) + "x"); break;
        case 6: sent = send_raw(kNoThread, text.substr(0, 100)); break;
        default:
            if (i % 7 == 1 || i % 7 == 3) m.req_type = GET_REPORT_REQ;
            if (i % 7 >= 2) m.client_id = static_cast<int32_t>(kNoThread + i);
            if (i % 7 == 4) m.req_type = 42;
            sent = ATS_msgQex_send(req_q, &m, sizeof m, 0) == ATS_TRUE;
        }
        if (sent) ++taken;
        else std::this_thread::yield();  // full: the server is behind, let it work
    }
    return taken;
}

Stack::Stack(std::string_view scenario) {
    link_ = dir_ / "modem";
    control_ = dir_ / "control";
    if (!scenario.empty()) {
        scenario_ = dir_ / "test.scn";
        std::ofstream(scenario_) << scenario;
    }
}

Stack::~Stack() {
    server.stop();
    sim.stop();
}

bool Stack::start_sim() {
    std::vector<std::string> argv = {MODEMSIM_BIN, "--link", link_, "--control", control_};
    if (!scenario_.empty()) argv.insert(argv.end(), {"--scenario", scenario_});
    argv.insert(argv.end(), sim_options.begin(), sim_options.end());
    if (!sim.spawn(argv, true)) return false;
    struct stat st {};
    for (int i = 0; i < 300 && stat(link_.c_str(), &st) != 0; ++i) std::this_thread::sleep_for(10ms);
    return stat(link_.c_str(), &st) == 0;  // the link resolves to the live terminal
}

bool Stack::control(std::string_view line) const {
    const int fd = open(control_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    const std::string text = std::string(line) + "\n";
    const bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return ok;
}

bool Stack::start_server(const std::vector<std::string>& options) {
    std::vector<std::string> argv{ATSERVER_BIN, "--device", link_, "--foreground"};
    argv.insert(argv.end(), options.begin(), options.end());
    return server.spawn(argv, false);
}

long memory_kib(pid_t pid, const char* field) {
    std::ifstream f("/proc/" + std::to_string(pid) + "/status");
    const std::string want = std::string(field) + ":";
    for (std::string line; std::getline(f, line);)
        if (line.rfind(want, 0) == 0) return std::atol(line.c_str() + want.size());
    return -1;
}

bool Stack::serving(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (; std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(20ms)) {
        if (ATS_get_msgQ_id(ATS_QUEUE_ID_RECV) == -1 || ATS_task_name_to_id("atserver") != server.pid()) continue;
        const Outcome o = exchange("AT", "", 1);
        if (o.rc == 0 && o.ret_val == AT_CMD_OK) return true;
    }
    return false;
}

}  // namespace e2e
