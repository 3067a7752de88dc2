#ifndef TESTS_SUPPORT_FAKE_LOG_LEVEL_H
#define TESTS_SUPPORT_FAKE_LOG_LEVEL_H

// Fake of the kernel side behind "/proc/nox/log_level": answers the level
// requests 801 to 805 from a table the test sets and counts them. It sees
// only descriptors opened with open() (KIRA_open), never fopen(); any thread
// may log while the test changes levels. Create it before the first logging
// call of the process: the library opens the control file once. The request
// record is decoded by offsets of its own (pid at 0, level at 4, num at 8,
// array at 16), so a layout slip in the library shows up.

#include <errno.h>
#include <stdint.h>

#include <map>
#include <mutex>

#include "tests/support/sandbox.h"

namespace kt {

// One element of the request-804 listing as this fake writes it.
struct FakePidLevel {
    uint32_t pid;
    uint8_t level;
    uint8_t pad[3];
};

class FakeLogLevel {
public:
    static constexpr unsigned long kGetLevel = 801, kSetLevel = 802, kGetNum = 803, kGetAll = 804, kSave = 805;

    FakeLogLevel() {
        NoxSetHandler(kPath, [this](unsigned long request, void* arg) { return Answer(request, arg); });
    }
    ~FakeLogLevel() { NoxRemove(kPath); }  // never copied: its mutex forbids it

    void SetLevel(uint32_t pid, uint8_t level) {
        Locked([&] { levels_[pid] = level; });
    }
    int Calls(unsigned long request) {
        return Locked([&] { return calls_[request]; });
    }
    uint32_t LastCapacity() {
        return Locked([&] { return lastCapacity_; });
    }  // `num` of the last 804 request

private:
    template <typename Fn>
    auto Locked(Fn fn) -> decltype(fn()) {
        std::lock_guard<std::mutex> hold(mu_);
        return fn();
    }

    static constexpr const char* kPath = "/proc/nox/log_level";
    struct WireRequest {
        uint32_t pid;
        uint8_t level;
        uint8_t pad1[3];
        uint32_t num;
        uint32_t pad2;
        uint64_t array;
    };
    static_assert(sizeof(WireRequest) == 24, "request record is 24 bytes");

    int Answer(unsigned long request, void* arg) {
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

    std::mutex mu_;
    std::map<uint32_t, uint8_t> levels_;
    std::map<unsigned long, int> calls_;
    uint32_t lastCapacity_ = 0;
};

}  // namespace kt

#endif
