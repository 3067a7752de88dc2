// Keep-alive and time-outs on real TCP sockets, read back with getsockopt:
// the order of the options, the first failure's message and result.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <tuple>

#include "os/net/kira_net.h"
#include "tests/os/net/net_test_util.h"

namespace {

int IntOption(int sock, int level, int name) {
    int value = -1;
    socklen_t len = sizeof value;
    return getsockopt(sock, level, name, &value, &len) == 0 ? value : -100;
}

// Keep-alive switch, idle, interval, count.
std::vector<int> KeepAliveState(int sock) {
    return {IntOption(sock, SOL_SOCKET, SO_KEEPALIVE), IntOption(sock, IPPROTO_TCP, TCP_KEEPIDLE),
            IntOption(sock, IPPROTO_TCP, TCP_KEEPINTVL), IntOption(sock, IPPROTO_TCP, TCP_KEEPCNT)};
}

constexpr int kClosedFd = 900;  // a descriptor number nothing holds

}  // namespace

SANDBOX_TEST(NetSocket, KeepAliveSetsInOrderAndStopsAtTheFirstFailure) {
    // The kernel refuses 0 for each TCP value, which stops the walk there.
    struct Case {
        int enable, idle, interval, count, result;
        const char* message;    // logged, "" for none
        bool tcpValuesFrom[3];  // which TCP values were set before the stop
    };
    // clang-format off
    const Case cases[] = {
        {1, 30, 5, 4, 0, "", {true, true, true}},
        {0, 30, 5, 4, 0, "", {false, false, false}},  // the switch alone
        {1, 0, 5, 4, -1, "set socket TCP_KEEPIDLE fail, ret = (-1).\n", {false, false, false}},
        {1, 30, 0, 4, -1, "set socket TCP_KEEPINTVL fail, ret = (-1).\n", {true, false, false}},
        {1, 30, 5, 0, -1, "set socket TCP_KEEPCNT fail, ret = (-1).\n", {true, true, false}},
    };
    // clang-format on
    for (const Case& c : cases) {
        int sock = socket(AF_INET, SOCK_STREAM, 0);
        ASSERT_GE(sock, 0);
        const std::vector<int> before = KeepAliveState(sock);
        kt::SyslogClear();
        EXPECT_EQ(KIRA_SetSockKeepAlive(sock, c.enable, c.idle, c.interval, c.count), c.result) << c.idle;
        const std::vector<int> after = KeepAliveState(sock);
        const int wanted[] = {c.idle, c.interval, c.count};
        EXPECT_EQ(after[0], c.enable);
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(after[i + 1], c.tcpValuesFrom[i] ? wanted[i] : before[i + 1]) << i;
        }
        EXPECT_EQ(net_test::Messages(),
                  c.message[0] != '\0' ? std::vector<std::string>{c.message} : std::vector<std::string>{});
        close(sock);
    }
    kt::SyslogClear();
    EXPECT_EQ(KIRA_SetSockKeepAlive(-1, 1, 30, 5, 4), -1);
    EXPECT_EQ(KIRA_SetSockKeepAlive(kClosedFd, 1, 30, 5, 4), -1);
    EXPECT_EQ(KIRA_SetSockKeepAlive(-2, 0, 0, 0, 0), -1);  // only -1 is screened; -2 reaches the kernel
    EXPECT_EQ(kt::SyslogCount("Input socket error.\n", 6), 1);
    EXPECT_EQ(kt::SyslogCount("set socket SO_KEEPALIVE fail, ret = (-1).\n", 6), 2);
}

SANDBOX_TEST(NetSocket, TimeoutsSplitMillisecondsAndScreenTheOption) {
    int sock = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(sock, 0);
    // The option, the milliseconds, and the seconds and microseconds read back
    // (in whole kernel ticks: values are multiples of 20 ms).
    const std::tuple<int, uint32_t, long, long> cases[] = {
        {20, 1500, 1, 500000}, {21, 2020, 2, 20000}, {21, 120000, 120, 0}};
    for (const auto& [option, ms, sec, usec] : cases) {
        EXPECT_EQ(KIRA_SetSockSendRecvTimeout(sock, option, ms), 0);
        struct timeval tv = {};
        socklen_t len = sizeof tv;
        ASSERT_EQ(getsockopt(sock, SOL_SOCKET, option, &tv, &len), 0);
        EXPECT_EQ(tv.tv_sec, sec) << ms;
        EXPECT_EQ(tv.tv_usec, usec) << ms;
    }
    close(sock);
    kt::SyslogClear();
    EXPECT_EQ(KIRA_SetSockSendRecvTimeout(-1, 20, 10), -1);
    EXPECT_EQ(KIRA_SetSockSendRecvTimeout(sock, 19, 10), -1);
    EXPECT_EQ(KIRA_SetSockSendRecvTimeout(sock, 22, 10), -1);
    EXPECT_EQ(kt::SyslogCount("Input param error.\n", 6), 3);
    EXPECT_EQ(KIRA_SetSockSendRecvTimeout(kClosedFd, 21, 10), -1);
    EXPECT_EQ(kt::SyslogCount("setsockopt error.\n", 6), 1);
}
