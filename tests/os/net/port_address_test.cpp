// Reading a port's address and mask from real interfaces (veth pairs in a
// private network namespace), and the management IPv6 address file. Every
// path must leave the descriptor count as it found it.

#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <tuple>
#include <vector>

#include "os/net/kira_net.h"
#include "tests/os/base/base_test_util.h"
#include "tests/os/net/net_test_util.h"

namespace {

using net_test::Messages;
// The first syslog call of a process opens the log socket: tests log once
// before they start counting.
using base_test::OpenFdCount;

std::atomic<bool> g_refuseSockets{false};

bool Ip(const std::string& args) { return system(("ip " + args + " >/dev/null 2>&1").c_str()) == 0; }

std::string Dotted(uint32_t addr) {
    char text[16];
    return KIRA_inet_ntoa(addr, text);
}

const char kMissing[] = "ioctl fails! Ret: (-1), errno: (19).\n";    // ENODEV
const char kNoAddress[] = "ioctl fails! Ret: (-1), errno: (99).\n";  // EADDRNOTAVAIL
const char kPortFailed[] = "Try to get ethernet ip address failed, the return value is -1.";

void RealInterfacesBody() {
    if (!Ip("link add v0 type veth peer name v1")) GTEST_SKIP() << "veth devices cannot be created here";
    ASSERT_TRUE(Ip("addr add 10.1.2.3/24 dev v0"));
    ASSERT_TRUE(Ip("link add abcdefghijklmno type veth peer name v2"));  // 15 characters, the longest name
    ASSERT_TRUE(Ip("addr add 172.16.5.6/12 dev abcdefghijklmno"));
    ASSERT_TRUE(Ip("addr add 10.9.9.9/0 dev v2"));  // a mask of 0
    // The port, whether a mask is asked for, the result, the address and mask
    // written ("" for none) and the messages.
    const std::tuple<const char*, bool, int, const char*, const char*, std::vector<std::string>> cases[] = {
        {"v0", true, 0, "10.1.2.3", "255.255.255.0", {}},
        {"lo", true, 0, "127.0.0.1", "255.0.0.0", {}},
        {"abcdefghijklmno", true, 0, "172.16.5.6", "255.240.0.0", {}},
        // One more character leaves the request's name empty, not cut to an existing port.
        {"abcdefghijklmnoX", true, -1, "", "", {kMissing}},
        {"nosuch0", true, -1, "", "", {kMissing}},
        {"v1", true, -1, "", "", {kNoAddress}},
        {"v2", true, -1, "10.9.9.9", "", {}},  // the address is kept, the zero mask refused silently
        {"v2", false, 0, "10.9.9.9", "", {}},
    };
    syslog(LOG_INFO, "start\n");
    for (const auto& [name, withMask, result, wantAddr, wantMask, messages] : cases) {
        const int fds = OpenFdCount();
        uint32_t addr = 0;
        uint32_t mask = 0;
        kt::SyslogClear();
        EXPECT_EQ(KIRA_GetEthIPAddr(name, &addr, withMask ? &mask : nullptr), result) << name;
        EXPECT_EQ(addr == 0 ? "" : Dotted(addr), wantAddr) << name;
        EXPECT_EQ(mask == 0 ? "" : Dotted(mask), wantMask) << name;
        EXPECT_EQ(Messages(), messages) << name;

        char addrText[16] = "";
        char maskText[16] = "";
        kt::SyslogClear();
        const int port = KIRA_GetPortIP(name, addrText, maskText);
        if (withMask) {
            EXPECT_EQ(port, result) << name;
            EXPECT_EQ(std::string(addrText) + "/" + maskText,
                      result == 0 ? std::string(wantAddr) + "/" + wantMask : "/");
            std::vector<std::string> expected = messages;
            if (result != 0) expected.push_back(kPortFailed);
            EXPECT_EQ(Messages(), expected) << name;
        }
        EXPECT_EQ(OpenFdCount(), fds) << name;
    }
}

}  // namespace

extern "C" int socket(int domain, int type, int protocol) {
    if (g_refuseSockets) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

TEST(NetPortAddress, RealInterfacesInAPrivateNamespace) { net_test::RunInOwnNetwork(RealInterfacesBody); }

SANDBOX_TEST(NetPortAddress, ArgumentsAndSocketFailure) {
    uint32_t addr = 0;
    char text[16];
    kt::SyslogClear();
    EXPECT_EQ(KIRA_GetEthIPAddr(nullptr, &addr, &addr), -1);
    EXPECT_EQ(KIRA_GetEthIPAddr("lo", nullptr, &addr), -1);
    EXPECT_EQ(KIRA_GetPortIP(nullptr, text, text), -22);
    EXPECT_EQ(KIRA_GetPortIP("lo", nullptr, text), -22);
    EXPECT_EQ(KIRA_GetPortIP("lo", text, nullptr), -22);
    g_refuseSockets = true;
    EXPECT_EQ(KIRA_GetEthIPAddr("lo", &addr, nullptr), -1);
    g_refuseSockets = false;
    EXPECT_EQ(Messages(), (std::vector<std::string>{"param error!\n", "param error!\n", "Create socket fail!\n"}));
}

SANDBOX_TEST(NetPortAddress, ManagementIp6FromTheScriptsFile) {
    const std::string longLine(60, 'a');
    // The script's exit status, the file it leaves (null: none), the result,
    // the line read and the messages.
    const std::tuple<int, const char*, int, std::string, std::vector<std::string>> cases[] = {
        {1, "fe80::1\n", -1, "", {"Can not get the file(ip6.conf) of the ip6.\n"}},
        {0, nullptr, -1, "", {"Can not open the file ip6.conf (-1).\n"}},
        {0, "", -1, "", {"Can not get IP6 address,addr is .\n"}},
        {0, "fe80::1\nfe80::2\n", 0, "fe80::1\n", {}},  // the first line, newline kept
        {0, longLine.c_str(), 0, longLine.substr(0, 39), {}},
    };
    syslog(LOG_INFO, "start\n");
    for (const auto& [status, file, result, line, messages] : cases) {
        kt::FakeCommand script("/ZUK/script/os_get_ip6.sh", status);
        unlink("/ZUK/conf/ip6.conf");
        if (file != nullptr) kt::WriteFile("/ZUK/conf/ip6.conf", file);
        const int fds = OpenFdCount();
        char buf[40] = "";
        kt::SyslogClear();
        EXPECT_EQ(KIRA_GetMngtIPAddr6(buf), result);
        EXPECT_EQ(buf, line);
        EXPECT_EQ(Messages(), messages);
        EXPECT_EQ(script.Calls().size(), 1u);
        EXPECT_EQ(OpenFdCount(), fds);
    }
    kt::FakeCommand script("/ZUK/script/os_get_ip6.sh");
    kt::SyslogClear();
    EXPECT_EQ(KIRA_GetMngtIPAddr6(nullptr), -1);
    EXPECT_EQ(Messages(), std::vector<std::string>{"KIRA_GetMngtIPAddr6 para1 is null.\n"});
    EXPECT_TRUE(script.Calls().empty());
}
