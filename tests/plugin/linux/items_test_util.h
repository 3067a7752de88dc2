#ifndef TESTS_PLUGIN_LINUX_ITEMS_TEST_UTIL_H
#define TESTS_PLUGIN_LINUX_ITEMS_TEST_UTIL_H

// Helpers for the item tests: argument records, contexts, result checks,
// and the command-line text of a pid.

#include <dirent.h>
#include <stdint.h>
#include <string.h>

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

struct Args {
    std::vector<FI_PARAM_S> params;
    FI_CONTEXT_S context;
    FI_RESULT_S result;

    Args() {
        memset(&context, 0, sizeof(context));
        ResetResult();
    }
    explicit Args(std::initializer_list<std::pair<std::string, std::string>> kv) : Args() {
        for (const auto& p : kv) Add(p.first, p.second);
    }
    explicit Args(const std::vector<std::pair<std::string, std::string>>& kv) : Args() {
        for (const auto& p : kv) Add(p.first, p.second);
    }
    void Add(const std::string& name, const std::string& value) {
        FI_PARAM_S p;
        memset(&p, 0, sizeof(p));
        strncpy(p.name, name.c_str(), sizeof(p.name) - 1);
        strncpy(p.value, value.c_str(), sizeof(p.value) - 1);
        params.push_back(p);
    }
    // A result whose fields show any write: result 77, reason "untouched".
    void ResetResult() {
        memset(&result, 0, sizeof(result));
        result.result = 77;
        strcpy(result.reason, "untouched");
        result.pid = -5;
        result.hangflowid = 99;
    }
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
    template <typename T>
    void SetCtx(const T& v) {
        memcpy(context.contextbuff, &v, sizeof(T));
    }
};

// Directory position of pid in /proc (the order the lookups walk), -1 when
// absent.
inline int ProcOrder(int pid) {
    DIR* dir = opendir("/proc");
    if (dir == nullptr) return -1;
    int index = 0;
    int found = -1;
    const std::string want = std::to_string(pid);
    for (struct dirent* e = readdir(dir); e != nullptr; e = readdir(dir), ++index) {
        if (want == e->d_name) {
            found = index;
            break;
        }
    }
    closedir(dir);
    return found;
}

}  // namespace itest

#endif
