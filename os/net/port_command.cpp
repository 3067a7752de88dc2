// Port address and route commands: each builds one command line for the
// address or route script and runs it through KIRA_system. The IPv4 forms
// refuse a null argument with -22, the IPv6 forms with a message and -1.

#include <errno.h>
#include <syslog.h>

#include "os/base/kira_system.h"
#include "os/net/kira_net.h"
#include "os/net/net_internal.h"

using kira_net::AnyNull;
using kira_net::RunCommandLine;
using kira_net::ShellSafe;

namespace {

const char kNullIp6Address[] = "Wrong parameter is NULL for interface or ipv6 address.";
const char kNullIp6Route[] = "Wrong parameter is NULL for interface or ipv6 address or gateway.";

// The IPv4 forms refuse a null silently, the IPv6 forms with a message.
bool Ip4ArgsUsable(const char* function, std::initializer_list<const char*> args) {
    return !AnyNull(args) && ShellSafe(function, args);
}

bool Ip6ArgsUsable(const char* function, std::initializer_list<const char*> args, const char* nullMessage) {
    if (AnyNull(args)) {
        syslog(LOG_INFO, "%s", nullMessage);
        return false;
    }
    return ShellSafe(function, args);
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_SetPortIP(const char* port, const char* addr, const char* mask) {
    if (!Ip4ArgsUsable(__func__, {port, addr, mask})) {
        return -EINVAL;
    }
    return RunCommandLine(KIRA_system, "Can not execute ifconfig command(%s) when set port ip, the return value is %d.",
                          "%s %s set ipv4 %s %s", NET_ADDRESS_SCRIPT, port, addr, mask);
}

KIRA_EXPORT int32_t KIRA_DelPortIP(const char* port, const char* addr, const char* mask) {
    if (!Ip4ArgsUsable(__func__, {port, addr, mask})) {
        return -EINVAL;
    }
    return RunCommandLine(KIRA_system, "Execute ifconfig command(%s) when del port ip failed, the return value is %d.",
                          "%s %s del ipv4 %s %s", NET_ADDRESS_SCRIPT, port, addr, mask);
}

KIRA_EXPORT int32_t KIRA_AddPortRoute(const char* port, const char* addr, const char* mask, const char* gateway) {
    if (!Ip4ArgsUsable(__func__, {port, addr, mask, gateway})) {
        return -EINVAL;
    }
    return RunCommandLine(KIRA_system, "Execute route add command(%s) when adding route failed,the return value is %d.",
                          "%s %s set ipv4 %s %s %s", NET_ROUTE_SCRIPT, port, addr, mask, gateway);
}

KIRA_EXPORT int32_t KIRA_DelPortRoute(const char* port, const char* addr, const char* mask, const char* gateway) {
    if (!Ip4ArgsUsable(__func__, {port, addr, mask, gateway})) {
        return -EINVAL;
    }
    return RunCommandLine(KIRA_system,
                          "Execute route delete command(%s) when deleting route failed,the return value is %d.",
                          "%s %s del ipv4 %s %s %s", NET_ROUTE_SCRIPT, port, addr, mask, gateway);
}

KIRA_EXPORT int32_t KIRA_SetPortIP6(const char* port, const char* addr, uint32_t prefix) {
    if (!Ip6ArgsUsable(__func__, {port, addr}, kNullIp6Address)) {
        return -1;
    }
    return RunCommandLine(KIRA_system, "Execute ifconfig command(%s) when set port ip failed, the return value is %d.",
                          "%s %s set ipv6 %s %u", NET_ADDRESS_SCRIPT, port, addr, prefix);
}

KIRA_EXPORT int32_t KIRA_DelPortIP6(const char* port, const char* addr, uint32_t prefix) {
    if (!Ip6ArgsUsable(__func__, {port, addr}, kNullIp6Address)) {
        return -1;
    }
    return RunCommandLine(KIRA_system,
                          "Execute ifconfig command(%s) when delete port ip failed, the return value is %d.",
                          "%s %s del ipv6 %s %u", NET_ADDRESS_SCRIPT, port, addr, prefix);
}

KIRA_EXPORT int32_t KIRA_AddPortRoute6(const char* port, const char* addr, int32_t prefix, const char* gateway) {
    if (!Ip6ArgsUsable(__func__, {port, addr, gateway}, kNullIp6Route)) {
        return -1;
    }
    return RunCommandLine(KIRA_system, "Execute route add command(%s) when adding route failed,the return value is %d.",
                          "%s %s set ipv6 %s %d %s", NET_ROUTE_SCRIPT, port, addr, prefix, gateway);
}

KIRA_EXPORT int32_t KIRA_DelPortRoute6(const char* port, const char* addr, int32_t prefix, const char* gateway) {
    if (!Ip6ArgsUsable(__func__, {port, addr, gateway}, kNullIp6Route)) {
        return -1;
    }
    return RunCommandLine(KIRA_system,
                          "Execute route delete command(%s) when deleting route failed,the return value is %d.",
                          "%s %s del ipv6 %s %d %s", NET_ROUTE_SCRIPT, port, addr, prefix, gateway);
}

}  // extern "C"
