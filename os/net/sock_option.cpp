// Socket keep-alive and send/receive time-outs.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>

#include "os/net/kira_net.h"

namespace {

constexpr int32_t kNoSocket = -1;
constexpr int32_t kReceiveTimeout = 20;
constexpr int32_t kSendTimeout = 21;

// Logs the first failure with its own message and returns its result.
int SetIntOption(int sock, int level, int name, int32_t value, const char* failure) {
    int ret = setsockopt(sock, level, name, &value, sizeof value);
    if (ret < 0) {
        syslog(LOG_INFO, failure, ret);
    }
    return ret;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_SetSockKeepAlive(int32_t sock, int32_t enable, int32_t idle, int32_t interval, int32_t count) {
    if (sock == kNoSocket) {
        syslog(LOG_INFO, "Input socket error.\n");
        return -1;
    }
    int ret = SetIntOption(sock, SOL_SOCKET, SO_KEEPALIVE, enable, "set socket SO_KEEPALIVE fail, ret = (%d).\n");
    if (ret < 0) {
        return ret;
    }
    if (enable == 0) {
        return 0;
    }
    struct TcpOption {
        int name;
        int32_t value;
        const char* failure;
    };
    const TcpOption options[] = {
        {TCP_KEEPIDLE, idle, "set socket TCP_KEEPIDLE fail, ret = (%d).\n"},
        {TCP_KEEPINTVL, interval, "set socket TCP_KEEPINTVL fail, ret = (%d).\n"},
        {TCP_KEEPCNT, count, "set socket TCP_KEEPCNT fail, ret = (%d).\n"},
    };
    for (const TcpOption& option : options) {
        ret = SetIntOption(sock, IPPROTO_TCP, option.name, option.value, option.failure);
        if (ret < 0) {
            return ret;
        }
    }
    return 0;
}

KIRA_EXPORT int32_t KIRA_SetSockSendRecvTimeout(int32_t sock, int32_t option, uint32_t ms) {
    if (sock == kNoSocket || (option != kReceiveTimeout && option != kSendTimeout)) {
        syslog(LOG_INFO, "Input param error.\n");
        return -1;
    }
    struct timeval limit = {};
    limit.tv_sec = static_cast<time_t>(ms / 1000);
    limit.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
    int ret = setsockopt(sock, SOL_SOCKET, option, &limit, sizeof limit);
    if (ret < 0) {
        syslog(LOG_INFO, "setsockopt error.\n");
    }
    return ret;
}

}  // extern "C"
