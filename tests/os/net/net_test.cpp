// The network layer: address texts, subnet conflicts, port, bond and route commands, real ports, socket options.

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <tuple>

#include "os/net/kira_net.h"
#include "tests/os/net/inet_diff.h"
#include "tests/support/sandbox.h"

namespace {

using Ints = std::vector<int>;
using Strings = std::vector<std::string>;
using Texts = std::vector<const char*>;

// Texts logged since the last call (or kt::SyslogClear), marked unless at the layer's priority.
Strings Messages() {
    Strings out;
    for (const kt::SyslogLine& l : kt::SyslogLines()) {
        out.push_back((l.priority == 6 ? "" : "not info: ") + l.message);
    }
    kt::SyslogClear();
    return out;
}

// clang-format off
// IPv4: digits, leading zeros, 255, part count, tails. IPv6: groups, "::" placement, 16 bytes, IPv4 tails, strays.
const char* const kTexts[] = {
    "0.0.0.0", "192.168.9.99", "255.255.255.255", "01.2.3.4", "256.1.1.1", "1234.1.1.1", "1.2.3", "1.2.3.4.5",
    "1..2.3", "1.2.3.", "1.2.3.4x", "", "::", "::1", "1::", "1::8", "1:2::7:8", "1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7::",
    "::2:3:4:5:6:7:8", "1234::", "12345::", "abcd:EF01:9aBc:def0::", "00001::", ":1::", ":", "1::2::3",
    "1:2:3:4::5:6:7:8", "1:2:3:4:5:6:7:8:9", "g::", "1g2::", "::ffff:1.2.3.4", "1:2:3:4:5:6:1.2.3.4",
    "1:2:3:4:5:6:7:1.2.3.4", "::1.2.3", "::1.2.3.4:5", "::01.2.3.4", "::1 ", "fe80::1%eth0", "1::2:",
    "1:2:3:4:5:6:7:8:", "1:", "1::2::"};

const std::string kAddress = "/ZUK/script/os_policy_route_process.sh", kRoute = "/ZUK/script/os_port_route_process.sh";
const std::string kLongIp6 = "2001:db8:1234:5678:9abc:def0:1234:5678";
const char kIp6Null[] = "Wrong parameter is NULL for interface or ipv6 address.";
const char kRoute6Null[] = "Wrong parameter is NULL for interface or ipv6 address or gateway.";

// The function, usable arguments (every allowed punctuation shows among them), the call, the result for a shell
// character (and for a null when refused silently), the null message, the command before the cut, its failure.
using Entry = std::tuple<const char*, Texts, std::function<int(const Texts&)>, int, const char*, std::string, const char*>;
const Entry kEntries[] = {
    {"KIRA_SetPortIP", {"vnic+1", "192.168.1.10", "255.255.255.0"}, [](const Texts& t) { return KIRA_SetPortIP(t[0], t[1], t[2]); }, -22, "",
     kAddress + " vnic+1 set ipv4 192.168.1.10 255.255.255.0", "Can not execute ifconfig command(%s) when set port ip, the return value is %d."},
    {"KIRA_DelPortIP", {"bond0.100", "10.0.0.1/8", "255.0.0.0"}, [](const Texts& t) { return KIRA_DelPortIP(t[0], t[1], t[2]); }, -22, "",
     kAddress + " bond0.100 del ipv4 10.0.0.1/8 255.0.0.0", "Execute ifconfig command(%s) when del port ip failed, the return value is %d."},
    {"KIRA_AddPortRoute", {"eth1", "10.2.0.0", "255.255.0.0", "10.2.0.1"}, [](const Texts& t) { return KIRA_AddPortRoute(t[0], t[1], t[2], t[3]); }, -22, "",
     kRoute + " eth1 set ipv4 10.2.0.0 255.255.0.0 10.2.0.1", "Execute route add command(%s) when adding route failed,the return value is %d."},
    {"KIRA_DelPortRoute", {"eth_2", "0.0.0.0", "0.0.0.0", "10.2.0.1"}, [](const Texts& t) { return KIRA_DelPortRoute(t[0], t[1], t[2], t[3]); }, -22, "",
     kRoute + " eth_2 del ipv4 0.0.0.0 0.0.0.0 10.2.0.1", "Execute route delete command(%s) when deleting route failed,the return value is %d."},
    {"KIRA_SetPortIP6", {"eth0", "fe80::1%eth0"}, [](const Texts& t) { return KIRA_SetPortIP6(t[0], t[1], 0xFFFFFFFFu); }, -1, kIp6Null,
     kAddress + " eth0 set ipv6 fe80::1%eth0 4294967295", "Execute ifconfig command(%s) when set port ip failed, the return value is %d."},
    {"KIRA_DelPortIP6", {"eth0@if3", "2001:db8::1"}, [](const Texts& t) { return KIRA_DelPortIP6(t[0], t[1], 64); }, -1, kIp6Null,
     kAddress + " eth0@if3 del ipv6 2001:db8::1 64", "Execute ifconfig command(%s) when delete port ip failed, the return value is %d."},
    {"KIRA_AddPortRoute6", {"eth-3", "2001:db8::", "2001:db8::ffff"}, [](const Texts& t) { return KIRA_AddPortRoute6(t[0], t[1], -1, t[2]); }, -1, kRoute6Null,
     kRoute + " eth-3 set ipv6 2001:db8:: -1 2001:db8::ffff", "Execute route add command(%s) when adding route failed,the return value is %d."},
    {"KIRA_DelPortRoute6", {"eth0", kLongIp6.c_str(), kLongIp6.c_str()}, [](const Texts& t) { return KIRA_DelPortRoute6(t[0], t[1], 64, t[2]); }, -1, kRoute6Null,
     kRoute + " eth0 del ipv6 " + kLongIp6 + " 64 " + kLongIp6, "Execute route delete command(%s) when deleting route failed,the return value is %d."},
    {"KIRA_InitBond", {"bond0"}, [](const Texts& t) { return KIRA_InitBond(t[0]); }, -1, "", "", ""},
    {"KIRA_SetBond", {"bond+0", "eth0", "eth1"}, 
     [](const Texts& t) { char* p[] = {const_cast<char*>(t[1]), const_cast<char*>(t[2])}; return KIRA_SetBond(t[0], p, 2); }, -22, "", "", ""},
    {"KIRA_CancelBond", {"bond0", "eth0", "eth1"}, 
     [](const Texts& t) { char* p[] = {const_cast<char*>(t[1]), const_cast<char*>(t[2])}; return KIRA_CancelBond(t[0], p, 2); }, -22, "", "", ""},
};
// clang-format on

}  // namespace

TEST(NetText, ParsersAgreeWithTheCLibrary) {
    for (const char* text : kTexts) {
        EXPECT_EQ(inet_diff::Compare(text), "") << text;
    }
    unsigned char out[16];
    EXPECT_EQ(
        (Ints{KIRA_inet_pton6("1::2:", out), KIRA_inet_pton(2, "1.2.3.4", out), KIRA_inet_pton(10, "1.2.3.4", out),
              KIRA_inet_pton(3, "1.2.3.4", out), KIRA_inet_pton(3, nullptr, out), KIRA_inet_pton(10, "::", nullptr),
              KIRA_inet_pton4(nullptr, out), KIRA_inet_pton4("1.2.3.4", nullptr), KIRA_inet_pton6(nullptr, out),
              KIRA_inet_pton6("::", nullptr)}),
        (Ints{1, 1, 0, 0, -1, -1, -1, -1, -1, -1}));            // "1::2:" let through; nulls before the family
    char* shared = KIRA_inet_ntoa(htonl(0x0A09C764), nullptr);  // without a buffer, one static buffer for all
    EXPECT_EQ((Strings{shared, KIRA_inet_ntoa(0xFFFFFFFFu, nullptr) == shared ? shared : "elsewhere"}),
              (Strings{"10.9.199.100", "255.255.255.255"}));
    EXPECT_EQ(KIRA_inet_addr(nullptr), 0xFFFFFFFFu);
}

TEST(NetConflict, Ip4MasksAndIp6Prefixes) {
    const char* n = nullptr;
    const auto v4 = KIRA_IfIpConflict;
    EXPECT_EQ((Ints{v4("10.0.1.1", "255.255.255.0", "10.0.2.1", "255.255.255.0"),
                    v4("10.0.1.1", "255.255.255.0", "10.0.2.1", "255.255.0.0"),  // the shorter mask decides
                    v4("10.0.0.1", "300.1.1.1", "10.9.9.9", "255.255.255.0"),    // unparsable texts
                    v4("1.0.0.1", "255.0.0.0", "9.9.9.9", "mask"), v4("300.1.1.1", "255.0.0.0", "9.9.9.9", "255.0.0.0"),
                    v4("10.0.0.1", "255.255.255.255", "10.0.0.2", "255.255.255.255"),   // all ones
                    v4("10.0.0.1", "255.255.255.2550", "10.0.0.2", "255.255.255.255"),  // refused; all ones prefix
                    // Masks compare as stored values: on these little-endian targets 255.255.0.0 is below 255.0.255.0.
                    v4("10.1.0.1", "255.0.255.0", "10.2.0.1", "255.255.0.0"), v4(n, "a", "a", "a"),
                    v4("a", n, "a", "a"), v4("a", "a", n, "a"), v4("a", "a", "a", n)}),
              (Ints{0, 1, 1, 1, 1, 0, 0, 0, -EINVAL, -EINVAL, -EINVAL, -EINVAL}));
    const auto v6 = KIRA_IfIpV6Conflict;  // 48 bits compared, then 52, 0, 128 and the whole address beyond 128
    EXPECT_EQ((Ints{v6("a:b:c:1::", 64, "a:b:c:2::", 48), v6("a:b:2::", 64, "a:b:1::", 48),
                    v6("a:b:c:1000::", 52, "a:b:c:1fff::", 64), v6("a:b:c:1000::", 52, "a:b:c:2000::", 64),
                    v6("a::", 0, "fe80::1", 64), v6("::1", 128, "::", 128), v6("::1", 200, "::", 300),
                    v6("zz::", 64, "::1", 64)}),
              (Ints{1, 0, 1, 0, 1, 0, 0, 1}));
}

// Each function with usable arguments (the script exits 3: the message quotes the command cut to 127
// characters, and the raw wait status), then with each text argument null and holding each shell character.
SANDBOX_TEST(NetCommand, ExactTextsShellScreenAndBondSteps) {
    kt::FakeCommand fakes[] = {kt::FakeCommand(kAddress, 3), kt::FakeCommand(kRoute, 3), kt::FakeCommand("ifenslave"),
                               kt::FakeCommand("ifconfig")};
    const std::string hostile = ";&|$`'\"<>\\()*? \n\t!#{}~";
    for (const auto& [function, usable, call, refused, nullMessage, command, failure] : kEntries) {
        if (!command.empty()) {
            EXPECT_EQ(call(usable), -1) << command;
            char text[256];
            snprintf(text, sizeof text, failure, command.substr(0, 127).c_str(), 768);
            EXPECT_EQ(Messages(), Strings{text});
        }
        const std::string refusal =
            std::string(function) + ": argument holds a character not allowed in a command, nothing executed.";
        for (size_t i = 0; i < usable.size(); i++) {
            for (size_t h = 0; h <= hostile.size(); h++) {  // each shell character, then a null
                Texts texts = usable;
                const std::string bad = "eth0" + hostile.substr(h, 1) + "x";
                texts[i] = h < hostile.size() ? bad.c_str() : nullptr;
                const bool silentNull = h == hostile.size() && nullMessage[0] == '\0';
                EXPECT_EQ(call(texts), silentNull || h < hostile.size() ? refused : -1) << function << i << h;
                EXPECT_EQ(Messages(), silentNull ? Strings{} : Strings{h < hostile.size() ? refusal : nullMessage});
            }
        }
    }
    char eth0[] = "eth0", eth1[] = "eth1", eth2[] = "eth2";
    char* ports[] = {eth0, eth1, eth2};
    EXPECT_EQ((Ints{KIRA_SetBond("bond0", nullptr, 1), KIRA_CancelBond("bond0", nullptr, 1),
                    KIRA_SetBond(nullptr, ports, 0),  // nulls come before the count
                    KIRA_SetBond("bond0", ports, 0),
                    KIRA_CancelBond("bond0;", ports, 0)}),  // and the count before the screen
              (Ints{-22, -22, -22, -1, -1}));
    EXPECT_EQ(Messages(),
              (Strings{"Input para error, v_uiPortNum=(0).\n", "Input the ethernet port number is zero (invalid)."}));
    EXPECT_EQ(fakes[0].Calls().size() + fakes[1].Calls().size(), 8u);  // one run each, seen in the status
    EXPECT_EQ(fakes[2].Calls().size() + fakes[3].Calls().size(), 0u);

    // Resetting a bond and enslaving stop at the first failure; releasing goes on. Rows: the argument ifconfig
    // fails on, its calls, the messages.
    const std::string set = "set bond port(bond0) default ip when init bond port.\n";
    const std::tuple<const char*, size_t, Strings> initCases[] = {
        {"", 3, {set, "Reset bond port finish.\n"}},
        {"0.0.0.0", 1, {"Execute bash failed(256), cmd(ifconfig bond0 0.0.0.0).\n"}},
        {"down", 2, {set, "Execute reset port failed(256) when init bond port, cmd(ifconfig bond0 down).\n"}},
    };
    for (const auto& [failOn, calls, messages] : initCases) {
        kt::FakeCommand ifconfig("ifconfig", 0, "", failOn);
        EXPECT_EQ(KIRA_InitBond("bond0"), failOn[0] == '\0' ? 0 : -1) << failOn;
        EXPECT_EQ(ifconfig.Calls().size(), calls) << failOn;
        EXPECT_EQ(Messages(), messages) << failOn;
    }
    for (const std::string failOn : {"", "eth1"}) {
        kt::FakeCommand ifenslave("ifenslave", 0, "", failOn);
        EXPECT_EQ(KIRA_SetBond("bond0", ports, 3), failOn.empty() ? 0 : -1);
        EXPECT_EQ(KIRA_CancelBond("bond0", ports, 3), failOn.empty() ? 0 : -1);
        EXPECT_EQ(ifenslave.Calls().size(), failOn.empty() ? 6u : 5u);
        const Strings failures = {
            "Execute set bonding command(ifenslave bond0 eth1) failed,the return value is 256.",
            "Execute cancel bonding command(ifenslave -d bond0 eth1) failed,the return value is 256."};
        EXPECT_EQ(Messages(), failOn.empty() ? Strings{} : failures);
    }
}

// A 15-character name (the longest) holds a zero mask, refused silently with the address kept; one character
// more empties the name rather than cut it.
TEST(NetPort, AddressesManagementFileAndSocketOptions) {
    kt::RunSandboxed(
        [] {
            ASSERT_EQ(system("ip link add abcdefghijklmno type veth peer name v1 && "
                             "ip addr add 10.9.9.9/0 dev abcdefghijklmno"),
                      0);
            uint32_t addr = 0, mask = 0;
            char text[16], maskText[16];
            EXPECT_EQ(KIRA_GetPortIP("lo", text, maskText), 0);
            EXPECT_EQ(std::string(text) + "/" + maskText, "127.0.0.1/255.0.0.0");
            EXPECT_EQ(KIRA_GetEthIPAddr("abcdefghijklmno", &addr, nullptr), 0);
            EXPECT_EQ(KIRA_GetEthIPAddr("abcdefghijklmno", &addr, &mask), -1);
            EXPECT_EQ((std::vector<uint32_t>{addr, mask}), (std::vector<uint32_t>{htonl(0x0A090909), 0}));
            EXPECT_EQ((Ints{KIRA_GetEthIPAddr("abcdefghijklmnoX", &addr, &mask), KIRA_GetPortIP("v1", text, text),
                            KIRA_GetEthIPAddr(nullptr, &addr, &mask), KIRA_GetEthIPAddr("lo", nullptr, &mask),
                            KIRA_GetPortIP(nullptr, text, text), KIRA_GetPortIP("lo", nullptr, text),
                            KIRA_GetPortIP("lo", text, nullptr)}),
                      (Ints{-1, -1, -1, -1, -EINVAL, -EINVAL, -EINVAL}));
            struct rlimit old, noFiles;
            getrlimit(RLIMIT_NOFILE, &old);
            noFiles = {0, old.rlim_max};
            setrlimit(RLIMIT_NOFILE, &noFiles);
            EXPECT_EQ(KIRA_GetEthIPAddr("lo", &addr, nullptr), -1);  // logged: the log socket is open by now
            setrlimit(RLIMIT_NOFILE, &old);

            EXPECT_EQ(Messages(), (Strings{"ioctl fails! Ret: (-1), errno: (19).\n",
                                           "ioctl fails! Ret: (-1), errno: (99).\n",  // v1 has no address
                                           "Try to get ethernet ip address failed, the return value is -1.",
                                           "param error!\n", "param error!\n", "Create socket fail!\n"}));

            // The script's exit status, the file it leaves, the result, the line read, the message.
            const std::tuple<int, std::string, int, std::string, const char*> cases[] = {
                {1, "fe80::1\n", -1, "", "Can not get the file(ip6.conf) of the ip6.\n"},
                {0, "", -1, "", "Can not get IP6 address,addr is .\n"},
                {0, "fe80::1\nfe80::2\n", 0, "fe80::1\n", nullptr},  // the first line, new line kept
                {0, std::string(60, 'a'), 0, std::string(39, 'a'), nullptr},
            };
            for (const auto& [status, file, result, line, message] : cases) {
                kt::FakeCommand script("/ZUK/script/os_get_ip6.sh", status);
                kt::WriteFile("/ZUK/conf/ip6.conf", file);
                char buf[40] = "";
                EXPECT_EQ(KIRA_GetMngtIPAddr6(buf), result);
                EXPECT_EQ(buf, line);
                EXPECT_EQ(Messages(), message == nullptr ? Strings{} : Strings{message});
            }
            EXPECT_EQ(KIRA_GetMngtIPAddr6(nullptr), -1);  // before the script runs: nothing is read into null
            EXPECT_EQ(Messages(), Strings{"KIRA_GetMngtIPAddr6 para1 is null.\n"});

            // Keep-alive values go out in order up to the first the kernel refuses (0); time-outs in 20 ms ticks.
            const int sock = socket(AF_INET, SOCK_STREAM, 0), closed = 900;
            auto get = [sock](int name) {
                int value = -1;
                socklen_t len = sizeof value;
                getsockopt(sock, name == SO_KEEPALIVE ? SOL_SOCKET : IPPROTO_TCP, name, &value, &len);
                return value;
            };
            EXPECT_EQ(KIRA_SetSockKeepAlive(sock, 1, 30, 0, 4), -1);  // idle before the interval, the count (9) after
            EXPECT_EQ((Ints{get(SO_KEEPALIVE), get(TCP_KEEPIDLE), get(TCP_KEEPCNT)}), (Ints{1, 30, 9}));
            EXPECT_EQ(KIRA_SetSockKeepAlive(sock, 1, 31, 5, 4), 0);
            EXPECT_EQ((Ints{get(TCP_KEEPIDLE), get(TCP_KEEPINTVL), get(TCP_KEEPCNT)}), (Ints{31, 5, 4}));
            EXPECT_EQ((Ints{KIRA_SetSockKeepAlive(sock, 0, 0, 0, 0), get(SO_KEEPALIVE)}), (Ints{0, 0}));  // off alone
            EXPECT_EQ(KIRA_SetSockSendRecvTimeout(sock, 20, 1500) + KIRA_SetSockSendRecvTimeout(sock, 21, 2020), 0);
            struct timeval tv = {};
            socklen_t len = sizeof tv;
            getsockopt(sock, SOL_SOCKET, 21, &tv, &len);  // send (20: receive)
            EXPECT_EQ(tv.tv_sec * 1000000 + tv.tv_usec, 2020000);
            EXPECT_EQ((Ints{KIRA_SetSockKeepAlive(sock, 1, 0, 5, 4), KIRA_SetSockKeepAlive(sock, 1, 30, 5, 0),
                            KIRA_SetSockKeepAlive(-1, 1, 30, 5, 4),
                            KIRA_SetSockKeepAlive(-2, 0, 0, 0, 0),  // only -1 is screened; -2 reaches the kernel
                            KIRA_SetSockSendRecvTimeout(-1, 20, 10), KIRA_SetSockSendRecvTimeout(closed, 19, 10),
                            KIRA_SetSockSendRecvTimeout(closed, 22, 10), KIRA_SetSockSendRecvTimeout(closed, 21, 10)}),
                      Ints(8, -1));
            close(sock);
            EXPECT_EQ(Messages(), (Strings{"set socket TCP_KEEPINTVL fail, ret = (-1).\n",
                                           "set socket TCP_KEEPIDLE fail, ret = (-1).\n",
                                           "set socket TCP_KEEPCNT fail, ret = (-1).\n", "Input socket error.\n",
                                           "set socket SO_KEEPALIVE fail, ret = (-1).\n", "Input param error.\n",
                                           "Input param error.\n", "Input param error.\n", "setsockopt error.\n"}));
        },
        {true});
}
