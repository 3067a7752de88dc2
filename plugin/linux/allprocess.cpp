// The census proper: CPU share of every user process between two scans a
// minute apart, and resident memory of every user process from one scan.

#include <unistd.h>

#include "os/base/kira_raii.h"
#include "plugin/linux/allprocess_internal.h"
#include "plugin/linux/proc_read_internal.h"

namespace {

constexpr unsigned int kCpuIntervalSeconds = 60;

// Whole seconds; a signal does not cut the interval short.
void SleepSeconds(unsigned int seconds) {
    while (seconds > 0) {
        seconds = sleep(seconds);
    }
}

int ScanInto(kira::HeapList& scan) { return ForeachProcDir(GetProcessBasicData, scan.get()); }

void AppendInfo(PROCESS_BASICDATA_S* data, struct list_head* result) {
    PROCESS_INFO_S* info = ProcBasicDataToProcInfo(data);
    if (info != nullptr) {
        list_add_tail(&info->stEntry, result);
    }
}

void AppendValid(struct list_head* scan, struct list_head* result) {
    PROCESS_BASICDATA_S* data;
    list_for_each_entry(data, scan, stEntry) {
        if (!data->invalid) {
            AppendInfo(data, result);
        }
    }
}

}  // namespace

void CalcAllProcessCoreCPU(struct list_head* firstScan, struct list_head* secondScan, struct list_head* result) {
    unsigned int cores = ZADI_Linux_Plugin::get_cpu_core_num();
    PROCESS_BASICDATA_S* e1;
    list_for_each_entry(e1, firstScan, stEntry) {
        e1->invalid = true;
        struct list_head* found = SearchList(secondScan, ProcBasicDataCmpMatchPidName, &e1->stEntry);
        if (found == nullptr) {
            continue;  // ended, or the pid now runs another program
        }
        PROCESS_BASICDATA_S* e2 = list_entry(found, PROCESS_BASICDATA_S, stEntry);
        if (e2->syscputime <= e1->syscputime) {
            continue;
        }
        double share = static_cast<double>(e2->procputime - e1->procputime) * 100.0 /
                       static_cast<double>(e2->syscputime - e1->syscputime);
        e1->corecpu = static_cast<int>(share * cores);
        e1->invalid = false;
    }
    AppendValid(firstScan, result);
}

void CalcAllProcessRssMem(struct list_head* scan, struct list_head* result) { AppendValid(scan, result); }

int GetAllProcessCoreCPUEvery(struct list_head* allProcessListHead, int* usersyscpu, unsigned int intervalSeconds) {
    if (allProcessListHead == nullptr || usersyscpu == nullptr) {
        return -1;
    }
    zadi::SysTicks before;
    if (!before.Read()) {
        return -1;
    }
    kira::HeapList first;
    if (ScanInto(first) != 0) {
        return -1;
    }
    SleepSeconds(intervalSeconds);
    zadi::SysTicks after;
    kira::HeapList second;
    if (!after.Read() || ScanInto(second) != 0) {
        return -1;
    }
    const unsigned long long total1 = before.Total();
    const unsigned long long total2 = after.Total();
    if (total2 == total1) {
        return -1;
    }
    // Only user ticks count, whatever the name says.
    *usersyscpu = static_cast<int>((after.user - before.user) * 100ULL / (total2 - total1));

    INIT_LIST_HEAD(allProcessListHead);
    CalcAllProcessCoreCPU(first.get(), second.get(), allProcessListHead);
    return 0;
}

int GetAllProcessCoreCPU(struct list_head* allProcessListHead, int* usersyscpu) {
    return GetAllProcessCoreCPUEvery(allProcessListHead, usersyscpu, kCpuIntervalSeconds);
}

int GetAllProcessRssMem(struct list_head* allProcessListHead) {
    if (allProcessListHead == nullptr) {
        return -1;
    }
    kira::HeapList scan;
    if (ScanInto(scan) != 0) {
        return -1;
    }
    INIT_LIST_HEAD(allProcessListHead);
    CalcAllProcessRssMem(scan.get(), allProcessListHead);
    return 0;
}

void FreeAllProcessList(struct list_head* allProcessListHead) {
    if (allProcessListHead == nullptr) {
        return;
    }
    kira::FreeListEntries(allProcessListHead);
}
