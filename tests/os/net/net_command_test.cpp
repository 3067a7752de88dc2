// Port, bond and route commands: the exact command text (seen through the
// recorded arguments and the failure message that quotes it), the runners'
// results, the bond loops' stop and go-on rules, and bad arguments, after
// which nothing may run.

#include <stdlib.h>

#include <functional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "os/net/kira_net.h"
#include "tests/os/net/net_test_util.h"

namespace {

using net_test::Messages;
using Calls = std::vector<std::vector<std::string>>;

const std::string kAddressScript = "/ZUK/script/os_policy_route_process.sh";
const std::string kRouteScript = "/ZUK/script/os_port_route_process.sh";
constexpr size_t kLongestCommand = 127;
const std::string kLongIp6 = "2001:db8:1234:5678:9abc:def0:1234:5678";

// Pieces of text between separators; a final separator ends the last piece.
std::vector<std::string> Split(const std::string& text, char sep) {
    std::vector<std::string> pieces;
    std::istringstream in(text);
    for (std::string piece; std::getline(in, piece, sep);) pieces.push_back(piece);
    return pieces;
}

std::string Printed(const char* format, const std::string& command, int status) {
    char text[512];
    snprintf(text, sizeof text, format, command.c_str(), status);
    return text;
}

// A stand-in on PATH that records "$*" per call and exits 1 for a call
// holding the argument `failOn`; FakeCommand's status is the same for every call.
class PickyCommand {
public:
    PickyCommand(const std::string& name, const std::string& failOn) : record_("/tmp/picky/" + name + ".calls") {
        kt::WriteFile("/tmp/picky/" + name,
                      "#!/bin/sh\necho \"$*\" >> " + record_ + "\nfor a in \"$@\"; do [ \"$a\" = '" + failOn +
                          "' ] && exit 1; done\nexit 0\n",
                      0755);
        kt::WriteFile(record_, "");
        setenv("PATH", ("/tmp/picky:" + std::string(getenv("PATH"))).c_str(), 1);
    }
    std::vector<std::string> Calls() const { return Split(kt::ReadFile(record_), '\n'); }

private:
    std::string record_;
};

using Texts = std::vector<const char*>;

struct Entry {
    const char* function;
    Texts texts;  // usable arguments
    std::function<int(const Texts&)> call;
    int invalid;              // the result for a refused text
    const char* nullMessage;  // "" when a null is refused silently
    std::string command;      // as formatted, before the cut to the buffer; "" for the bond functions
    const char* failure;
};

template <int32_t (*Bond)(const char*, char* const*, uint32_t)>
int BondCall(const Texts& t) {
    char* ports[] = {const_cast<char*>(t[1]), const_cast<char*>(t[2])};
    return Bond(t[0], ports, 2);
}

const char kIp6Null[] = "Wrong parameter is NULL for interface or ipv6 address.";
const char kRoute6Null[] = "Wrong parameter is NULL for interface or ipv6 address or gateway.";

// Real port names and address texts, each allowed character among them.
// clang-format off
const Entry kEntries[] = {
    {"KIRA_SetPortIP", {"vnic+1", "192.168.1.10", "255.255.255.0"}, [](const Texts& t) { return KIRA_SetPortIP(t[0], t[1], t[2]); },
     -22, "", kAddressScript + " vnic+1 set ipv4 192.168.1.10 255.255.255.0",
     "Can not execute ifconfig command(%s) when set port ip, the return value is %d."},
    {"KIRA_DelPortIP", {"bond0.100", "10.0.0.1/8", "255.0.0.0"}, [](const Texts& t) { return KIRA_DelPortIP(t[0], t[1], t[2]); },
     -22, "", kAddressScript + " bond0.100 del ipv4 10.0.0.1/8 255.0.0.0",
     "Execute ifconfig command(%s) when del port ip failed, the return value is %d."},
    {"KIRA_AddPortRoute", {"eth1", "10.2.0.0", "255.255.0.0", "10.2.0.1"}, [](const Texts& t) { return KIRA_AddPortRoute(t[0], t[1], t[2], t[3]); },
     -22, "", kRouteScript + " eth1 set ipv4 10.2.0.0 255.255.0.0 10.2.0.1",
     "Execute route add command(%s) when adding route failed,the return value is %d."},
    {"KIRA_DelPortRoute", {"eth_2", "0.0.0.0", "0.0.0.0", "10.2.0.1"}, [](const Texts& t) { return KIRA_DelPortRoute(t[0], t[1], t[2], t[3]); },
     -22, "", kRouteScript + " eth_2 del ipv4 0.0.0.0 0.0.0.0 10.2.0.1",
     "Execute route delete command(%s) when deleting route failed,the return value is %d."},
    {"KIRA_SetPortIP6", {"eth0", "fe80::1%eth0"}, [](const Texts& t) { return KIRA_SetPortIP6(t[0], t[1], 0xFFFFFFFFu); },
     -1, kIp6Null, kAddressScript + " eth0 set ipv6 fe80::1%eth0 4294967295",  // unsigned
     "Execute ifconfig command(%s) when set port ip failed, the return value is %d."},
    {"KIRA_DelPortIP6", {"eth0@if3", "2001:db8::1"}, [](const Texts& t) { return KIRA_DelPortIP6(t[0], t[1], 64); },
     -1, kIp6Null, kAddressScript + " eth0@if3 del ipv6 2001:db8::1 64",
     "Execute ifconfig command(%s) when delete port ip failed, the return value is %d."},
    {"KIRA_AddPortRoute6", {"eth-3", "2001:db8::", "2001:db8::ffff"}, [](const Texts& t) { return KIRA_AddPortRoute6(t[0], t[1], -1, t[2]); },
     -1, kRoute6Null, kRouteScript + " eth-3 set ipv6 2001:db8:: -1 2001:db8::ffff",  // signed
     "Execute route add command(%s) when adding route failed,the return value is %d."},
    {"KIRA_DelPortRoute6", {"eth0", kLongIp6.c_str(), kLongIp6.c_str()}, [](const Texts& t) { return KIRA_DelPortRoute6(t[0], t[1], 64, t[2]); },
     -1, kRoute6Null, kRouteScript + " eth0 del ipv6 " + kLongIp6 + " 64 " + kLongIp6,  // longer than the buffer
     "Execute route delete command(%s) when deleting route failed,the return value is %d."},
    {"KIRA_InitBond", {"bond0"}, [](const Texts& t) { return KIRA_InitBond(t[0]); }, -1, "", "", ""},
    {"KIRA_SetBond", {"bond+0", "eth0", "eth1"}, BondCall<KIRA_SetBond>, -22, "", "", ""},
    {"KIRA_CancelBond", {"bond0", "eth0", "eth1"}, BondCall<KIRA_CancelBond>, -22, "", "", ""},
};
// clang-format on

}  // namespace

// The command text is seen twice: split into the script's arguments, and
// whole in the failure message.
SANDBOX_TEST(NetCommand, ScriptCommandsExactTextResultAndFailureMessage) {
    for (int status : {0, 3}) {
        kt::FakeCommand addressScript(kAddressScript, status);
        kt::FakeCommand routeScript(kRouteScript, status);
        size_t ran = 0;
        for (const Entry& e : kEntries) {
            if (e.command.empty()) continue;
            kt::SyslogClear();
            const std::string command = e.command.substr(0, kLongestCommand);
            EXPECT_EQ(e.call(e.texts), status == 0 ? 0 : -1) << command;
            const bool route = command.compare(0, kRouteScript.size(), kRouteScript) == 0;
            EXPECT_EQ((route ? routeScript : addressScript).Calls().back(),
                      Split(command.substr(command.find(' ') + 1), ' '));
            // The raw wait status is reported: exit 3 reads 768.
            EXPECT_EQ(Messages(), status == 0 ? std::vector<std::string>{}
                                              : std::vector<std::string>{Printed(e.failure, command, status << 8)});
            ran++;
        }
        EXPECT_EQ(addressScript.Calls().size() + routeScript.Calls().size(), ran);
    }
}

SANDBOX_TEST(NetCommand, BondStepsStopOrGoOnAsEachFunctionDoes) {
    char eth0[] = "eth0", eth1[] = "eth1", eth2[] = "eth2";
    char* ports[] = {eth0, eth1, eth2};
    const std::string setLine = "set bond port(bond0) default ip when init bond port.\n";
    const std::string finish = "Reset bond port finish.\n";
    const std::string down = "Execute reset port failed(256) when init bond port, cmd(ifconfig bond0 down).\n";
    const std::string up = "Execute reset port failed(256) when init bond port, cmd(ifconfig bond0 up).\n";
    // The argument ifconfig fails on, its calls, the messages.
    const std::tuple<std::string, std::vector<std::string>, std::vector<std::string>> initCases[] = {
        {"none", {"bond0 0.0.0.0", "bond0 down", "bond0 up"}, {setLine, finish}},
        {"0.0.0.0", {"bond0 0.0.0.0"}, {"Execute bash failed(256), cmd(ifconfig bond0 0.0.0.0).\n"}},
        {"down", {"bond0 0.0.0.0", "bond0 down"}, {setLine, down}},
        {"up", {"bond0 0.0.0.0", "bond0 down", "bond0 up"}, {setLine, up}},
    };
    for (const auto& [failOn, calls, messages] : initCases) {
        PickyCommand ifconfig("ifconfig", failOn);
        kt::SyslogClear();
        EXPECT_EQ(KIRA_InitBond("bond0"), failOn == "none" ? 0 : -1) << failOn;
        EXPECT_EQ(ifconfig.Calls(), calls) << failOn;
        EXPECT_EQ(Messages(), messages) << failOn;
    }

    for (const std::string failOn : {"none", "eth1"}) {
        PickyCommand ifenslave("ifenslave", failOn);
        const bool fails = failOn != "none";
        kt::SyslogClear();
        EXPECT_EQ(KIRA_SetBond("bond0", ports, 3), fails ? -1 : 0);
        EXPECT_EQ(KIRA_CancelBond("bond0", ports, 3), fails ? -1 : 0);
        // Enslaving stops at the failing port; releasing goes on past it.
        std::vector<std::string> expected = {"bond0 eth0", "bond0 eth1", "bond0 eth2"};
        if (fails) expected.pop_back();
        for (const char* p : {"eth0", "eth1", "eth2"}) expected.push_back(std::string("-d bond0 ") + p);
        EXPECT_EQ(ifenslave.Calls(), expected);
        const std::vector<std::string> failures = {
            "Execute set bonding command(ifenslave bond0 eth1) failed,the return value is 256.",
            "Execute cancel bonding command(ifenslave -d bond0 eth1) failed,the return value is 256."};
        EXPECT_EQ(Messages(), fails ? failures : std::vector<std::string>{});
    }
}

// Every text argument of every command function, in turn null and holding
// each character a shell would act on: the function's own result and
// message, and no command run.
SANDBOX_TEST(NetCommand, BadArgumentsAreRefusedBeforeAnythingRuns) {
    kt::FakeCommand fakes[] = {kt::FakeCommand(kAddressScript), kt::FakeCommand(kRouteScript),
                               kt::FakeCommand("ifenslave"), kt::FakeCommand("ifconfig")};
    const std::string hostile = ";&|$`'\"<>\\()*? \n\t!#{}~";
    for (const Entry& e : kEntries) {
        const std::vector<std::string> refusal = {std::string(e.function) +
                                                  ": argument holds a character not allowed in a command, nothing "
                                                  "executed."};
        for (size_t i = 0; i < e.texts.size(); i++) {
            Texts texts = e.texts;
            texts[i] = nullptr;
            kt::SyslogClear();
            EXPECT_EQ(e.call(texts), e.nullMessage[0] == '\0' ? e.invalid : -1) << e.function << " null " << i;
            EXPECT_EQ(Messages(),
                      e.nullMessage[0] == '\0' ? std::vector<std::string>{} : std::vector<std::string>{e.nullMessage});
            for (char h : hostile) {
                const std::string bad = std::string("eth0") + h + "x";
                texts[i] = bad.c_str();
                kt::SyslogClear();
                EXPECT_EQ(e.call(texts), e.invalid) << e.function << " " << i << " " << h;
                EXPECT_EQ(Messages(), refusal);
            }
        }
    }
    char eth0[] = "eth0";
    char* ports[] = {eth0};
    kt::SyslogClear();
    EXPECT_EQ(KIRA_SetBond("bond0", nullptr, 1), -22);
    EXPECT_EQ(KIRA_CancelBond("bond0", nullptr, 1), -22);
    EXPECT_EQ(KIRA_SetBond(nullptr, ports, 0), -22);  // nulls come before the count
    EXPECT_EQ(KIRA_SetBond("bond0", ports, 0), -1);
    EXPECT_EQ(KIRA_CancelBond("bond0", ports, 0), -1);
    EXPECT_EQ(KIRA_CancelBond("bond0;", ports, 0), -1);  // and the count before the screen
    EXPECT_EQ(Messages(), (std::vector<std::string>{"Input para error, v_uiPortNum=(0).\n",
                                                    "Input the ethernet port number is zero (invalid).",
                                                    "Input the ethernet port number is zero (invalid)."}));
    for (const kt::FakeCommand& fake : fakes) EXPECT_EQ(fake.Calls(), Calls{}) << fake.name();
}
