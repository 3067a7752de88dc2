// Readers of the processor description (/proc/cpuinfo) and of the
// aggregate processor counters (/proc/stat). The parsers work on a loaded
// line array so that they can be driven without the files.

#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "os/base/kira_raii.h"
#include "os/sysinfo/sysinfo_internal.h"
#include "safec/safec.h"

namespace kira_sysinfo {
namespace {

const char kCpuinfoPath[] = "/proc/cpuinfo";
const char kStatPath[] = "/proc/stat";
const char kProcessorKey[] = "processor\t: ";

enum LscpuKey { kFlags, kStepping, kMhz, kProcessor, kPhysicalId, kCores, kSiblings, kLscpuKeyCount };

// Tried in this order; a line is used by the first key it holds.
const char* const kLscpuKeys[kLscpuKeyCount] = {
    "flags\t\t: ", "stepping\t: ", "cpu MHz\t\t: ", kProcessorKey, "physical id\t: ", "cpu cores\t: ", "siblings\t: ",
};

// The frequency goes through single precision on purpose: 2099.999 MHz
// gives 2099999 kHz, where double arithmetic would give 2099998.
uint32_t MhzToKhz(float mhz) {
    float khz = mhz * 1000.0f;
    if (!(khz > 0.0f)) {
        return 0;
    }
    return khz >= 4294967295.0f ? UINT32_MAX : static_cast<uint32_t>(khz);
}

// A value that does not scan leaves the field as it was.
void ScanUnsigned(const char* value, uint32_t* field) { (void)sscanf_s(value, "%u", field); }

void KeepMaximum(const char* value, uint32_t* field) {
    uint32_t v = 0;
    ScanUnsigned(value, &v);
    if (v > *field) {
        *field = v;
    }
}

void ApplyLscpuLine(const char* line, lscpu_t* info, uint32_t* siblings) {
    for (int key = 0; key < kLscpuKeyCount; key++) {
        const char* value = ValueAfter(line, kLscpuKeys[key]);
        if (value == nullptr) {
            continue;
        }
        switch (key) {
            case kFlags:
                info->addressBits = strstr(value, "lm") != nullptr ? 64 : 32;
                break;
            case kStepping:
                ScanUnsigned(value, &info->stepping);
                break;
            case kMhz: {
                float mhz = 0.0f;
                if (sscanf_s(value, "%f", &mhz) == 1) {
                    info->frequencyKHz = MhzToKhz(mhz);
                }
                break;
            }
            case kProcessor:
                KeepMaximum(value, &info->cpuCount);
                break;
            case kPhysicalId:
                KeepMaximum(value, &info->socketCount);
                break;
            case kCores:
                ScanUnsigned(value, &info->coresPerSocket);
                break;
            default:
                ScanUnsigned(value, siblings);
                break;
        }
        return;
    }
}

// False only when the copy cannot be allocated.
bool CopyModelName(const char* line, cpuinfo_t* desc) {
    kira::UniqueBlock text(copy_string_part_after_delim(line, "model name\t: "));
    if (!text) {
        return false;
    }
    const char* src = static_cast<const char*>(text.get());
    size_t len = strnlen(src, sizeof(desc->modelName) - 1);
    (void)memcpy_s(desc->modelName, sizeof(desc->modelName), src, len);
    desc->modelName[len] = '\0';
    return true;
}

// The common frame of the /proc/cpuinfo readers: -22 for a null record,
// the record zeroed before the file is read, -1 when it cannot be.
template <typename Record, typename Parse>
int ParseCpuinfoInto(Record* record, const char* nullMessage, Parse parse) {
    if (record == nullptr) {
        syslog(LOG_INFO, "%s", nullMessage);
        return -22;
    }
    *record = Record{};
    FileLines file;
    if (LoadLines(kCpuinfoPath, &file) != 0) {
        return -1;
    }
    return parse(file);
}

}  // namespace

void ParseLscpu(char* const* lines, uint32_t count, lscpu_t* info) {
    uint32_t siblings = 0;
    for (uint32_t i = 0; i < count; i++) {
        if (lines[i] != nullptr) {
            ApplyLscpuLine(lines[i], info, &siblings);
        }
    }
    // A processor count is always raised by one, a socket count only when
    // the cores are known: callers rely on this asymmetry.
    info->cpuCount += 1;
    info->threadsPerCore = siblings;
    if (info->coresPerSocket != 0) {
        info->socketCount += 1;
        info->threadsPerCore = siblings / info->coresPerSocket;
    }
}

int ParseCpuinfo(char* const* lines, uint32_t count, uint32_t processor, cpuinfo_t* desc) {
    uint32_t current = 0;
    bool found = false;
    for (uint32_t i = 0; i < count; i++) {
        const char* line = lines[i];
        if (line == nullptr) {
            continue;
        }
        const char* number = ValueAfter(line, kProcessorKey);
        if (number != nullptr) {
            ScanUnsigned(number, &current);
            if (current > processor) {
                break;
            }
            continue;
        }
        if (current != processor) {
            continue;
        }
        const char* sizes = ValueAfter(line, "address sizes\t: ");
        if (sizes != nullptr) {
            ScanUnsigned(sizes, &desc->addressSizes);
        } else if (ValueAfter(line, "model name\t: ") != nullptr) {
            if (!CopyModelName(line, desc)) {
                return -1;
            }
        } else {
            found = true;
        }
    }
    return found ? 0 : -1;
}

int ParseProcessorStats(const char* firstLine, processor_stat_t* counters) {
    if (strstr(firstLine, "cpu  ") == nullptr) {
        return -1;
    }
    unsigned long long v[10] = {};
    (void)sscanf_s(firstLine + 5, "%llu %llu %llu %llu %llu %llu %llu %llu %llu %llu", &v[0], &v[1], &v[2], &v[3],
                   &v[4], &v[5], &v[6], &v[7], &v[8], &v[9]);
    counters->user = v[0];
    counters->nice = v[1];
    counters->system = v[2];
    counters->idle = v[3];
    counters->iowait = v[4];
    counters->irq = v[5];
    counters->softirq = v[6];
    counters->steal = v[7];
    counters->guest = v[8];
    counters->guest_nice = v[9];
    return 0;
}

}  // namespace kira_sysinfo

using namespace kira_sysinfo;

extern "C" {

KIRA_EXPORT int KIRA_lscpu(lscpu_t* info) {
    return ParseCpuinfoInto(info, "lscpu_t is NULL in KIRA_lscpu!\n", [info](const FileLines& file) {
        ParseLscpu(file.lines, file.count, info);
        return 0;
    });
}

KIRA_EXPORT int KIRA_get_cpuinfo(cpuinfo_t* desc, uint32_t processor) {
    return ParseCpuinfoInto(desc, "cpuinfo is NULL in KIRA_get_cpuinfo!\n", [desc, processor](const FileLines& file) {
        return ParseCpuinfo(file.lines, file.count, processor, desc);
    });
}

KIRA_EXPORT int KIRA_get_all_processor_stats(processor_stat_t* counters) {
    if (counters == nullptr) {
        syslog(LOG_INFO, "processor_stat is NULL in KIRA_get_all_processor_stats!\n");
        return -22;
    }
    *counters = processor_stat_t{};
    kira::UniqueFile fp(fopen(kStatPath, "r"));
    if (!fp) {
        syslog(LOG_INFO, "Failed to open %s file.\n", kStatPath);
        return -1;
    }
    char* line = nullptr;
    size_t capacity = 0;
    ssize_t got = getline(&line, &capacity, fp.get());
    kira::UniqueBlock owned(line);
    if (got < 0) {
        return -1;
    }
    return ParseProcessorStats(line, counters);
}

}  // extern "C"
