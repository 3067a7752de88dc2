// Bond ports: resetting a bond port, enslaving member ports (stopping at the
// first failure) and releasing them (going on past failures).

#include <errno.h>
#include <syslog.h>

#include "os/base/kira_system.h"
#include "os/net/kira_net.h"
#include "os/net/net_internal.h"

using kira_net::FormatCommand;
using kira_net::RunCommandLine;
using kira_net::ShellSafe;

namespace {

// Every member is screened before the first command runs, so a bad member
// late in the array cannot leave the bond half built. A null member is
// refused like a null array.
bool MembersUsable(const char* function, const char* bond, char* const* ports, uint32_t count) {
    if (!ShellSafe(function, {bond})) {
        return false;
    }
    for (uint32_t i = 0; i < count; i++) {
        if (ports[i] == nullptr || !ShellSafe(function, {ports[i]})) {
            return false;
        }
    }
    return true;
}

int ResetBondPort(const char* format, const char* bond) __attribute__((format(printf, 1, 0)));

int ResetBondPort(const char* format, const char* bond) {
    char command[NET_COMMAND_SIZE];
    FormatCommand(command, format, bond);
    int status = KIRA_system(command);
    if (status != 0) {
        syslog(LOG_INFO, "Execute reset port failed(%d) when init bond port, cmd(%s).\n", status, command);
        return -1;
    }
    return 0;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_InitBond(const char* bond) {
    if (bond == nullptr || !ShellSafe(__func__, {bond})) {
        return -1;
    }
    char command[NET_COMMAND_SIZE];
    FormatCommand(command, "ifconfig %s %s", bond, "0.0.0.0");
    int status = KIRA_system(command);
    if (status != 0) {
        syslog(LOG_INFO, "Execute bash failed(%d), cmd(%s).\n", status, command);
        return -1;
    }
    syslog(LOG_INFO, "set bond port(%s) default ip when init bond port.\n", bond);
    if (ResetBondPort("ifconfig %s down", bond) != 0 || ResetBondPort("ifconfig %s up", bond) != 0) {
        return -1;
    }
    syslog(LOG_INFO, "Reset bond port finish.\n");
    return 0;
}

KIRA_EXPORT int32_t KIRA_SetBond(const char* bond, char* const* ports, uint32_t count) {
    if (bond == nullptr || ports == nullptr) {
        return -EINVAL;
    }
    if (count == 0) {
        syslog(LOG_INFO, "Input para error, v_uiPortNum=(%u).\n", count);
        return -1;
    }
    if (!MembersUsable(__func__, bond, ports, count)) {
        return -EINVAL;
    }
    for (uint32_t i = 0; i < count; i++) {
        if (RunCommandLine(KIRA_Execute, "Execute set bonding command(%s) failed,the return value is %d.",
                           "ifenslave %s %s", bond, ports[i]) != 0) {
            return -1;
        }
    }
    return 0;
}

KIRA_EXPORT int32_t KIRA_CancelBond(const char* bond, char* const* ports, uint32_t count) {
    if (bond == nullptr || ports == nullptr) {
        return -EINVAL;
    }
    if (count == 0) {
        syslog(LOG_INFO, "Input the ethernet port number is zero (invalid).");
        return -1;
    }
    if (!MembersUsable(__func__, bond, ports, count)) {
        return -EINVAL;
    }
    int32_t result = 0;
    for (uint32_t i = 0; i < count; i++) {
        if (RunCommandLine(KIRA_Execute, "Execute cancel bonding command(%s) failed,the return value is %d.",
                           "ifenslave -d %s %s", bond, ports[i]) != 0) {
            result = -1;
        }
    }
    return result;
}

}  // extern "C"
