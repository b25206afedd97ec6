// harness.cpp - process handling and request helpers of the end-to-end tests.
#include "harness.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

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
    while (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) != pid_) {
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

bool Stack::start_server() { return server.spawn({ATSERVER_BIN, "--device", link_, "--foreground"}, false); }

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
