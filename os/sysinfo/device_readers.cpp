// Readers of one network device (byte counters from /proc/net/dev, link
// speed from the driver) and of one disk's busy time (/proc/diskstats).
// Both skip two characters before scanning; the resulting digit loss and
// field shift are part of what callers see and are kept.

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>

#include "os/base/kira_raii.h"
#include "os/sysinfo/sysinfo_internal.h"
#include "safec/safec.h"

namespace kira_sysinfo {
namespace {

const char kNetdevPath[] = "/proc/net/dev";
const char kDiskstatsPath[] = "/proc/diskstats";
constexpr size_t kScanSkip = 2;

// Moves at most kScanSkip characters on, never past the terminator.
const char* SkipForScan(const char* p) {
    for (size_t i = 0; i < kScanSkip && *p != '\0'; i++) {
        p++;
    }
    return p;
}

// The first occurrence of name directly followed by ':' (it may be the tail
// of a longer name); the colon, or null.
const char* FindNameColon(const char* line, const char* name, size_t nameLen) {
    for (const char* p = strstr(line, name); p != nullptr; p = strstr(p + 1, name)) {
        if (p[nameLen] == ':') {
            return p + nameLen;
        }
    }
    return nullptr;
}

// Failures are silent: the speed simply stays 0.
uint64_t LinkSpeed(const char* name) {
    kira::UniqueFd sock(socket(AF_INET, SOCK_DGRAM, 0));
    if (!sock.valid()) {
        return 0;
    }
    struct ifreq request = {};
    (void)strncpy_s(request.ifr_name, sizeof(request.ifr_name), name, IFNAMSIZ - 1);
    struct ethtool_cmd settings = {};
    settings.cmd = ETHTOOL_GSET;
    request.ifr_data = reinterpret_cast<char*>(&settings);
    if (ioctl(sock.get(), SIOCETHTOOL, &request) != 0) {
        return 0;
    }
    return settings.speed;
}

}  // namespace

int ParseNetdev(char* const* lines, uint32_t count, const char* name, netdev_info_t* stat) {
    size_t nameLen = strlen(name);
    for (uint32_t i = 0; i < count; i++) {
        const char* colon = lines[i] != nullptr ? FindNameColon(lines[i], name, nameLen) : nullptr;
        if (colon == nullptr) {
            continue;
        }
        unsigned long long v[16] = {};
        (void)sscanf_s(SkipForScan(colon),
                       "%llu %llu %llu %llu %llu %llu %llu %llu \t\t\t\t\t\t%llu %llu %llu %llu %llu %llu %llu %llu",
                       &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &v[9], &v[10], &v[11], &v[12],
                       &v[13], &v[14], &v[15]);
        stat->rxBytes = v[0];
        stat->txBytes = v[8];
        return 0;
    }
    return -1;
}

int ParseDiskstats(char* const* lines, uint32_t count, const char* key, disk_stats_t* stat) {
    size_t keyLen = strlen(key);
    for (uint32_t i = 0; i < count; i++) {
        const char* found = lines[i] != nullptr ? strstr(lines[i], key) : nullptr;
        if (found == nullptr) {
            continue;
        }
        unsigned long long v[11] = {};
        (void)sscanf_s(SkipForScan(found + keyLen), "%llu %llu %llu %llu %llu %llu \t\t\t\t\t%llu %llu %llu %llu %llu",
                       &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &v[9], &v[10]);
        stat->ioBusyMs = v[9];
        return 0;
    }
    return -1;
}

}  // namespace kira_sysinfo

using namespace kira_sysinfo;

extern "C" {

KIRA_EXPORT int KIRA_get_netdev_info(const char* name, netdev_info_t* stat) {
    if (name == nullptr || stat == nullptr) {
        syslog(LOG_INFO, "Argument NULL in KIRA_get_netdev_info\n");
        return -22;
    }
    *stat = netdev_info_t{};
    if (name[0] == '\0') {
        syslog(LOG_INFO, "netdev_name_info is empty!\n");
        return -22;
    }
    stat->speed = LinkSpeed(name);
    FileLines file;
    if (LoadLines(kNetdevPath, &file) != 0) {
        return -1;
    }
    return ParseNetdev(file.lines, file.count, name, stat);
}

KIRA_EXPORT int KIRA_get_disk_stats(const char* name, disk_stats_t* stat) {
    if (name == nullptr || stat == nullptr) {
        syslog(LOG_INFO, "Argument NULL in KIRA_get_disk_stats!\n");
        return -22;
    }
    stat->ioBusyMs = 0;
    if (name[0] == '\0') {
        syslog(LOG_INFO, "disk_name is empty in KIRA_get_disk_stats!\n");
        return -22;
    }
    FileLines file;
    if (LoadLines(kDiskstatsPath, &file) != 0) {
        return -1;
    }
    size_t keySize = strlen(name) + 2;
    kira::UniqueBlock key(malloc(keySize));
    if (!key) {
        syslog(LOG_INFO, "Failed to malloc disk_new_name!\n");
        return -1;
    }
    char* text = static_cast<char*>(key.get());
    if (snprintf_s(text, keySize, keySize - 1, "%s ", name) < 0) {
        return -1;
    }
    return ParseDiskstats(file.lines, file.count, text, stat);
}

}  // extern "C"
