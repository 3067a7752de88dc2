// "dst ZONE [YEAR]": the daylight-saving periods the library finds for a zone
// in a year (default: this year), and what the query for the zone answers
// this year, so an operator can check a zone on a node. It changes no
// setting; the library may leave the zone's zdump cache in /var/run.

#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "os/time/kira_timezone.h"
#include "tools/runner/runner.h"

namespace zr {

namespace {

using ShowFn = int (*)(int, const char*, KIRA_DST_CONFIG_S*);
using QueryFn = int (*)(const char*, char*, char*, uint32_t*, int32_t*);

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
    if (gmtime_r(&v, &g) != nullptr) strftime(buf, sizeof(buf), "%Y-%m-%d %H:%M:%S", &g);
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
        if (p[i] == '/') p[i] = '_';
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

int Dst(RunnerEnv& env, const std::vector<std::string>& args) {
    char* end = nullptr;
    const long year = args.size() == 2 ? strtol(args[1].c_str(), &end, 10) : ThisYear();
    if (args.empty() || args.size() > 2 || (end != nullptr && (*end != '\0' || end == args[1].c_str()))) {
        fprintf(env.err, "zadi_runner: usage: zadi_runner dst ZONE [YEAR]   (e.g. dst Europe/Berlin 2024)\n");
        return 2;
    }
    if (!LoadLibrary(env)) return 1;
    ShowFn show = reinterpret_cast<ShowFn>(env.library.Symbol("KIRA_show_dst_config"));
    QueryFn query = reinterpret_cast<QueryFn>(env.library.Symbol("KIRA_QueryDstConfInfoForRegion"));
    if (show == nullptr || query == nullptr) {
        fprintf(env.err, "zadi_runner: %s does not export the daylight-saving functions\n", env.library.path().c_str());
        return 1;
    }
    const std::string& zone = args[0];
    KIRA_DST_CONFIG_S config = {};
    if (show(static_cast<int>(year), zone.c_str(), &config) != 0) {
        fprintf(env.err,
                "zadi_runner: no answer for zone \"%s\" in %ld (the year must lie in %d to %d and the zone in "
                "/usr/share/zoneinfo; the reason is in the system log)\n",
                zone.c_str(), year, KIRA_DST_FIRST_YEAR, KIRA_DST_LAST_YEAR);
        return 1;
    }
    if (access(CachePath(zone).c_str(), R_OK) != 0) {
        fprintf(env.err, "zadi_runner: warning: no zdump cache %s (zdump missing or /var/run not writable)\n",
                CachePath(zone).c_str());
    }
    fprintf(env.out, "zone %s, year %ld: %u daylight-saving period%s (year bounds in this process's zone)\n",
            zone.c_str(), year, config.count, config.count == 1 ? "" : "s");
    if (config.count > 0) PrintPeriods(env.out, config);

    char begin[15] = {}, finish[15] = {};
    uint32_t offset = 0;
    int32_t flag = -1;
    const int rc = query(zone.c_str(), begin, finish, &offset, &flag);
    fprintf(env.out, "KIRA_QueryDstConfInfoForRegion (this year, %d): ", ThisYear());
    if (rc != 0) {
        fprintf(env.out, "failed (%d)\n", rc);
    } else {
        fprintf(env.out, "begin %s, end %s, offset %u min, flag %s\n", begin, finish, offset,
                flag == -1 ? "not written" : std::to_string(flag).c_str());
    }
    return 0;
}

}  // namespace

ZADI_RUNNER_SUBCOMMAND(dst, "dst", "ZONE [YEAR]: daylight-saving periods of a zone and the query's answer", Dst);

}  // namespace zr
