// Task lookup by pid file and events as signals.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "atapi.h"
#include "run_dir.h"

namespace {

class PidFile : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir_.ok()); }
    void write(const std::string& name, const std::string& content) {
        std::filesystem::create_directories(dir_ / "pidfile");
        std::ofstream(dir_ / ("pidfile/" + name + ".pid")) << content;
    }
    atapi_test::RunDir dir_;
};

TEST_F(PidFile, NameToId) {
    const struct {
        const char* content;
        int id;
    } cases[] = {
        {"1234\n", 1234}, {"77", 77}, {"0\n", -1}, {"text\n", -1}, {"", -1}, {"  42 \n", 42},
    };
    for (const auto& c : cases) {
        write("atserver", c.content);
        EXPECT_EQ(ATS_task_name_to_id("atserver"), c.id) << '"' << c.content << '"';
    }
    EXPECT_EQ(ATS_task_name_to_id("absent"), -1);
    EXPECT_EQ(ATS_task_name_to_id(nullptr), -1);
    std::filesystem::remove_all(dir_ / "pidfile");  // missing directory
    EXPECT_EQ(ATS_task_name_to_id("atserver"), -1);
    EXPECT_EQ(ATS_task_name_to_id(std::string(400, 'n').c_str()), -1);  // too long a name: no such file
}

TEST(Task, ExistsAndOwnId) {
    EXPECT_EQ(ATS_task_getid(), getpid());
    EXPECT_EQ(ATS_task_bExist(getpid()), ATS_TRUE);
    EXPECT_EQ(ATS_task_bExist(-1), ATS_FALSE);
    pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(ATS_task_bExist(child), ATS_FALSE);
}

TEST(Event, SendFindsOnlyExactRows) {
    EXPECT_EQ(ATS_event_send(0, 1), ATS_FALSE);
    EXPECT_EQ(ATS_event_send(getpid(), -1), ATS_FALSE);
    EXPECT_EQ(ATS_event_send(getpid(), 3), ATS_FALSE);  // two bits: no row
}

// Events travel to another process as signals and come back as the event bit.
TEST(Event, RoundTripBetweenProcesses) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t child = fork();
    if (child == 0) {
        ATS_event_init(1 | 2);
        char c = 1;
        (void)!write(ready[1], &c, 1);
        int got = 0;
        if (!ATS_event_recv(1 | 2, 5, &got)) _exit(100);
        _exit(got);
    }
    char c = 0;
    ASSERT_EQ(read(ready[0], &c, 1), 1);
    EXPECT_EQ(ATS_event_send(child, 2), ATS_TRUE);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
}

TEST(Event, TimeLimitReadsAsFalse) {
    pid_t child = fork();
    if (child == 0) {
        int got = 0;
        _exit(ATS_event_recv(1, 1, &got) ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    int got = 0;
    EXPECT_EQ(ATS_event_recv(-1, 0, &got), ATS_FALSE);
    EXPECT_EQ(ATS_event_recv(1, 0, nullptr), ATS_FALSE);
}

// With timeout 0 no alarm is armed: the wait ends only with a selected signal.
TEST(Event, ZeroTimeoutWaitsForTheSignal) {
    pid_t child = fork();
    if (child == 0) {
        ATS_event_init(4);
        int got = 0;
        _exit(ATS_event_recv(4, 0, &got) ? got : 100);
    }
    usleep(200 * 1000);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, WNOHANG), 0);  // still waiting, no alarm fired
    // The child may not have blocked signal 31 yet; send until it has answered.
    for (int i = 0; i < 50 && waitpid(child, &status, WNOHANG) == 0; ++i) {
        ATS_event_send(child, 4);
        usleep(20 * 1000);
    }
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 4);
}

}  // namespace
