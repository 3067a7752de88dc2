// dst_probe ZONE [YEAR]: the daylight-saving periods the library finds for a
// zone in a year (default: this year), and what the query for the zone
// answers this year, so an operator can check a zone on a node. It changes
// no setting; the library may leave the zone's zdump cache in /var/run.
// In order: the texts of a period, the table, main.

#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "os/time/kira_timezone.h"

namespace {

int ThisYear() {
    const time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    return local.tm_year + 1900;
}

std::string UtcText(int64_t t) {
    const time_t v = static_cast<time_t>(t);
    struct tm g;
    char buf[40] = "?";
    if (gmtime_r(&v, &g) != nullptr) {
        strftime(buf, sizeof(buf), "%Y-%m-%d %H:%M:%S", &g);
    }
    return buf;
}

std::string OffsetText(int32_t seconds) {
    const int32_t m = seconds < 0 ? -seconds : seconds;
    char buf[16];
    snprintf(buf, sizeof(buf), "%c%02d:%02d", seconds < 0 ? '-' : '+', m / 3600, m % 3600 / 60);
    return buf;
}

std::string CachePath(const std::string& zone) {
    std::string p = "/var/run/timezone_" + zone;
    for (size_t i = sizeof("/var/run/timezone_") - 1; i < p.size(); i++) {
        if (p[i] == '/') {
            p[i] = '_';
        }
    }
    return p;
}

void PrintPeriods(FILE* out, const KIRA_DST_CONFIG_S& config) {
    fprintf(out, "%2s  %-19s  %-19s  %-14s  %-14s  %6s  %s\n", "#", "BEGIN (UTC)", "END (UTC)", "BEGIN (LOCAL)",
            "END (LOCAL)", "GMTOFF", "SHIFT");
    for (uint32_t i = 0; i < config.count && i < KIRA_DST_MAX_PERIODS; i++) {
        const KIRA_DST_PERIOD_S& p = config.periods[i];
        fprintf(out, "%2u  %-19s  %-19s  %-14s  %-14s  %6s  %d min\n", i, UtcText(p.begin).c_str(),
                UtcText(p.end).c_str(), p.beginText, p.endText, OffsetText(p.gmtoff).c_str(), p.offsetMinutes);
    }
}

}  // namespace

int main(int argc, char** argv) {
    char* end = nullptr;
    const long year = argc == 3 ? strtol(argv[2], &end, 10) : ThisYear();
    if (argc < 2 || argc > 3 || (end != nullptr && (*end != '\0' || end == argv[2]))) {
        fprintf(stderr, "usage: dst_probe ZONE [YEAR]   (e.g. dst_probe Europe/Berlin 2024)\n");
        return 2;
    }
    const std::string zone = argv[1];
    KIRA_DST_CONFIG_S config = {};
    if (KIRA_show_dst_config(static_cast<int>(year), zone.c_str(), &config) != 0) {
        fprintf(stderr,
                "dst_probe: no answer for zone \"%s\" in %ld (the year must lie in %d to %d and the zone in "
                "/usr/share/zoneinfo; the reason is in the system log)\n",
                zone.c_str(), year, KIRA_DST_FIRST_YEAR, KIRA_DST_LAST_YEAR);
        return 1;
    }
    if (access(CachePath(zone).c_str(), R_OK) != 0) {
        fprintf(stderr, "dst_probe: warning: no zdump cache %s (zdump missing or /var/run not writable)\n",
                CachePath(zone).c_str());
    }
    printf("zone %s, year %ld: %u daylight-saving period%s (year bounds in this process's zone)\n", zone.c_str(), year,
           config.count, config.count == 1 ? "" : "s");
    if (config.count > 0) {
        PrintPeriods(stdout, config);
    }

    char begin[15] = {}, finish[15] = {};
    uint32_t offset = 0;
    int32_t flag = -1;
    const int rc = KIRA_QueryDstConfInfoForRegion(zone.c_str(), begin, finish, &offset, &flag);
    printf("KIRA_QueryDstConfInfoForRegion (this year, %d): ", ThisYear());
    if (rc != 0) {
        printf("failed (%d)\n", rc);
    } else {
        printf("begin %s, end %s, offset %u min, flag %s\n", begin, finish, offset,
               flag == -1 ? "not written" : std::to_string(flag).c_str());
    }
    return 0;
}
