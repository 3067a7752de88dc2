// Reading addresses: a port's IPv4 address and mask through the interface
// requests, and the management IPv6 address the platform script writes.

#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>

#include "os/base/kira_file.h"
#include "os/base/kira_raii.h"
#include "os/base/kira_system.h"
#include "os/net/kira_net.h"
#include "os/net/net_internal.h"
#include "safec/safec.h"

namespace {

constexpr int kIp6LineSize = 40;

// One interface request; an address of 0 is a failure without a message.
bool QueryInterface(int sock, unsigned long request, struct ifreq* req, uint32_t* out) {
    int ret = ioctl(sock, request, req);
    if (ret < 0) {
        syslog(LOG_INFO, "ioctl fails! Ret: (%d), errno: (%d).\n", ret, errno);
        return false;
    }
    struct sockaddr_in in;
    memcpy(&in, &req->ifr_addr, sizeof in);
    if (in.sin_addr.s_addr == 0) {
        return false;
    }
    *out = in.sin_addr.s_addr;
    return true;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_GetMngtIPAddr6(char* buf) {
    if (buf == nullptr) {
        syslog(LOG_INFO, "KIRA_GetMngtIPAddr6 para1 is null.\n");
        return -1;
    }
    if (KIRA_Execute(NET_IP6_SCRIPT) != 0) {
        syslog(LOG_INFO, "Can not get the file(ip6.conf) of the ip6.\n");
        return -1;
    }
    kira::UniqueFd fd(KIRA_open(NET_IP6_CONF, O_RDONLY, 0400));
    if (!fd.valid()) {
        syslog(LOG_INFO, "Can not open the file ip6.conf (%d).\n", fd.get());
        return -1;
    }
    (void)KIRA_lseek(fd.get(), 0, SEEK_SET);
    if (KIRA_readline(fd.get(), buf, kIp6LineSize) == nullptr) {
        syslog(LOG_INFO, "Can not get IP6 address,addr is %s.\n", buf);
        return -1;
    }
    return 0;
}

KIRA_EXPORT int32_t KIRA_GetEthIPAddr(const char* name, uint32_t* addr, uint32_t* mask) {
    if (name == nullptr || addr == nullptr) {
        syslog(LOG_INFO, "param error!\n");
        return -1;
    }
    struct ifreq req;
    memset(&req, 0, sizeof req);
    // A name of IFNAMSIZ characters or more leaves the request's name empty,
    // so the query below fails instead of asking about a cut name.
    if (strlen(name) < IFNAMSIZ) {
        (void)strcpy_s(req.ifr_name, sizeof req.ifr_name, name);
    }
    kira::UniqueFd sock(socket(AF_INET, SOCK_DGRAM, 0));
    if (!sock.valid()) {
        syslog(LOG_INFO, "Create socket fail!\n");
        return -1;
    }
    uint32_t found = 0;
    if (!QueryInterface(sock.get(), SIOCGIFADDR, &req, &found)) {
        return -1;
    }
    *addr = found;
    if (mask != nullptr) {
        if (!QueryInterface(sock.get(), SIOCGIFNETMASK, &req, &found)) {
            return -1;
        }
        *mask = found;
    }
    return 0;
}

KIRA_EXPORT int32_t KIRA_GetPortIP(const char* name, char* addr, char* mask) {
    if (name == nullptr || addr == nullptr || mask == nullptr) {
        return -EINVAL;
    }
    uint32_t address = 0;
    uint32_t netmask = 0;
    int32_t ret = KIRA_GetEthIPAddr(name, &address, &netmask);
    if (ret != 0) {
        syslog(LOG_INFO, "Try to get ethernet ip address failed, the return value is %d.", ret);
        return -1;
    }
    // The dotted text of any address fits the callers' 16 bytes.
    (void)KIRA_inet_ntoa(address, addr);
    (void)KIRA_inet_ntoa(netmask, mask);
    return 0;
}

}  // extern "C"
