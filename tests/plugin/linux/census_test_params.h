#ifndef TESTS_PLUGIN_LINUX_CENSUS_TEST_PARAMS_H
#define TESTS_PLUGIN_LINUX_CENSUS_TEST_PARAMS_H

// Helpers of the heartbeat, error-report and census tests: item parameter
// arrays as the agent hands them in, and the fault marker's bits.

#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "plugin/linux/fi_types.h"

namespace census_test {

class Params {
public:
    // Values longer than the field fill it completely, without a terminator.
    Params& Add(const std::string& name, const std::string& value) {
        FI_PARAM_S p;
        memset(&p, 0, sizeof(p));
        memcpy(p.name, name.data(), name.size() < sizeof(p.name) ? name.size() : sizeof(p.name));
        memcpy(p.value, value.data(), value.size() < sizeof(p.value) ? value.size() : sizeof(p.value));
        v_.push_back(p);
        return *this;
    }
    int argc() const { return static_cast<int>(v_.size()); }
    FI_PARAM_S* argv() { return v_.empty() ? &empty_ : v_.data(); }

private:
    std::vector<FI_PARAM_S> v_;
    FI_PARAM_S empty_{};
};

inline uint32_t Bits(float f) {
    uint32_t b;
    memcpy(&b, &f, sizeof(b));
    return b;
}

constexpr uint32_t kFaultBits = 0x00800000u;

inline FI_RESULT_S FreshResult() {
    FI_RESULT_S r;
    memset(&r, 0, sizeof(r));
    r.result = 12345;
    r.pid = 777;
    r.hangflowid = 0xDEADu;
    return r;
}

// A process name no other test uses: each sandboxed test runs in a process
// of its own, so its pid keeps names apart. Kernel names keep 15 characters.
inline std::string Unique(const char* stem) {
    static int counter = 0;
    return (std::string(stem).substr(0, 6) + std::to_string(getpid()) + std::to_string(counter++)).substr(0, 15);
}

}  // namespace census_test

#endif
