// The simulator as the families' scenarios use it, through atserver and the library: the
// built-in default, events and lines from the control input, a port that drops and comes back.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "e2e/harness.h"

namespace {

using namespace std::chrono_literals;

using e2e::eventually;

std::string rssi() {
    StRssiInfo r{};
    return AT_Rssi(&r) == 0 ? std::string(r.rssi, strnlen(r.rssi, sizeof r.rssi)) : "";
}

TEST(Simulator, BuiltInDefaultIsTheFictionalModem) {
    e2e::Stack stack;
    stack.sim_options = {"--set", "rssi=11"};
    ASSERT_TRUE(stack.start());
    const e2e::Outcome o = e2e::exchange("AT+CGMI");
    EXPECT_EQ(o.ret_val, AT_CMD_OK);
    EXPECT_EQ(o.report, "Example Modems");
    EXPECT_EQ(e2e::exchange("AT+CSQ", "+CSQ").report, "+CSQ: 11,99");
}

TEST(Simulator, ControlInputAndADroppedPort) {
    e2e::Stack stack(R"(
on AT
on @report (\d+)
  line ^RSSI: $1
on AT\+DROP
  after 300 @drop
on @drop
  hangup 600
on AT\+SLOW
  delay 5000
)");
    ASSERT_TRUE(stack.start());
    ASSERT_TRUE(stack.control("@report 17"));
    EXPECT_TRUE(eventually([] { return rssi() == "17"; }));
    ASSERT_TRUE(stack.control("^RSSI: 21"));
    EXPECT_TRUE(eventually([] { return rssi() == "21"; }));

    // The port drops while a command is at the modem (or just before it is sent), and comes back
    // as a new terminal that the server finds through the link.
    EXPECT_EQ(e2e::exchange("AT+DROP").ret_val, AT_CMD_OK);
    EXPECT_EQ(e2e::exchange("AT+SLOW", "", 10).ret_val, AT_DEVICE_DOWN);
    EXPECT_TRUE(eventually([] { return e2e::exchange("AT", "", 1).ret_val == AT_CMD_OK; }));
}

}  // namespace
