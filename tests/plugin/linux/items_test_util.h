#ifndef TESTS_PLUGIN_LINUX_ITEMS_TEST_UTIL_H
#define TESTS_PLUGIN_LINUX_ITEMS_TEST_UTIL_H

// Helpers of the plugin tests: item arguments as the agent hands them in,
// a result that shows any write, and the fault marker's bits.

#include <dirent.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "plugin/linux/fi_types.h"
#include "plugin/linux/zadi_linux_plugin.h"

namespace itest {

inline uint32_t Bits(float f) {
    uint32_t b;
    memcpy(&b, &f, sizeof(b));
    return b;
}
constexpr uint32_t kMarkerBits = 0x00800000u;

// result 77, reason "untouched", pid -5, hangflowid 99: any write shows.
inline FI_RESULT_S FreshResult() {
    FI_RESULT_S r;
    memset(&r, 0, sizeof(r));
    r.result = 77;
    strcpy(r.reason, "untouched");
    r.pid = -5;
    r.hangflowid = 99;
    return r;
}

struct Args {
    std::vector<FI_PARAM_S> params;
    FI_CONTEXT_S context;
    FI_RESULT_S result;

    Args() : result(FreshResult()) { memset(&context, 0, sizeof(context)); }
    Args(std::initializer_list<std::pair<std::string, std::string>> kv) : Args() {
        for (const auto& p : kv) Add(p.first, p.second);
    }
    explicit Args(const std::vector<std::pair<std::string, std::string>>& kv) : Args() {
        for (const auto& p : kv) Add(p.first, p.second);
    }
    // A value longer than the field fills it completely, without a terminator.
    Args& Add(const std::string& name, const std::string& value) {
        FI_PARAM_S p;
        memset(&p, 0, sizeof(p));
        memcpy(p.name, name.data(), name.size() < sizeof(p.name) ? name.size() : sizeof(p.name));
        memcpy(p.value, value.data(), value.size() < sizeof(p.value) ? value.size() : sizeof(p.value));
        params.push_back(p);
        return *this;
    }
    void ResetResult() { result = FreshResult(); }
    int argc() const { return static_cast<int>(params.size()); }
    FI_PARAM_S* argv() { return params.empty() ? nullptr : params.data(); }
    float Call(FI_ITEM_FN fn) { return fn(argc(), argv(), &context, &result); }
    std::string reason() const { return result.reason; }
    template <typename T>
    T Ctx() const {
        T v;
        memcpy(&v, context.contextbuff, sizeof(T));
        return v;
    }
};

// Directory position of pid in /proc (the order the lookups walk), -1 when absent.
inline int ProcOrder(int pid) {
    DIR* dir = opendir("/proc");
    if (dir == nullptr) return -1;
    int index = 0, found = -1;
    const std::string want = std::to_string(pid);
    for (struct dirent* e = readdir(dir); e != nullptr && found < 0; e = readdir(dir), ++index) {
        if (want == e->d_name) found = index;
    }
    closedir(dir);
    return found;
}

// A process name no other test uses (one process per sandboxed test); the
// kernel keeps 15 characters.
inline std::string Unique(const char* stem) {
    static int counter = 0;
    return (std::string(stem).substr(0, 6) + std::to_string(getpid()) + std::to_string(counter++)).substr(0, 15);
}

// Heap blocks (malloc, calloc, realloc) the calling thread takes while
// `body` runs; -1 where the sanitizer runtime owns the allocator.
long AllocationsDuring(const std::function<void()>& body);

}  // namespace itest

#endif
