// Answers the log-level control requests from an in-memory table. The
// request record is decoded by offsets of its own (pid at 0, level at 4, num
// at 8, array at 16), so a layout slip in the library shows up.

#include "tests/support/fake_log_level.h"

#include <errno.h>
#include <string.h>

#include "tests/support/sandbox.h"

namespace kt {
namespace {

const char kControlPath[] = "/proc/nox/log_level";

struct WireRequest {
    uint32_t pid;
    uint8_t level;
    uint8_t pad1[3];
    uint32_t num;
    uint32_t pad2;
    uint64_t array;
};
static_assert(sizeof(WireRequest) == 24, "request record is 24 bytes");

}  // namespace

FakeLogLevel::FakeLogLevel() {
    NoxSetHandler(kControlPath, [this](unsigned long request, void* arg) { return Answer(request, arg); });
}

FakeLogLevel::~FakeLogLevel() { NoxRemove(kControlPath); }

int FakeLogLevel::Answer(unsigned long request, void* arg) {
    std::lock_guard<std::mutex> hold(mu_);
    calls_[request]++;
    auto* req = static_cast<WireRequest*>(arg);
    if (req == nullptr || request < kGetLevel || request > kSave) {
        errno = EINVAL;
        return -1;
    }
    if (request == kGetLevel) {
        req->level = levels_.count(req->pid) != 0 ? levels_[req->pid] : 0;
    } else if (request == kSetLevel) {
        levels_[req->pid] = req->level;
    } else if (request == kGetNum) {
        req->num = static_cast<uint32_t>(levels_.size());
    } else if (request == kGetAll) {
        lastCapacity_ = req->num;
        auto* out = reinterpret_cast<FakePidLevel*>(static_cast<uintptr_t>(req->array));
        uint32_t i = 0;
        for (auto it = levels_.begin(); it != levels_.end() && i < req->num; ++it, ++i) {
            out[i] = FakePidLevel{it->first, it->second, {0, 0, 0}};
        }
    }
    return 0;
}

void FakeLogLevel::SetLevel(uint32_t pid, uint8_t level) {
    std::lock_guard<std::mutex> hold(mu_);
    levels_[pid] = level;
}

int FakeLogLevel::Calls(unsigned long request) {
    std::lock_guard<std::mutex> hold(mu_);
    return calls_[request];
}

uint32_t FakeLogLevel::LastCapacity() {
    std::lock_guard<std::mutex> hold(mu_);
    return lastCapacity_;
}

}  // namespace kt
