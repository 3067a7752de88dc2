// Answers the log-level control requests from an in-memory table. The
// request record is decoded by offsets of its own here (pid at 0, level at
// 4, num at 8, array at 16), so a layout slip in the library shows up.

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

FakeLogLevel::FakeLogLevel() : state_(std::make_shared<State>()) {
    std::shared_ptr<State> state = state_;
    NoxSetHandler(kControlPath, [state](unsigned long request, void* arg) -> int {
        std::lock_guard<std::mutex> hold(state->mu);
        state->calls[request]++;
        if (state->failing[request] || arg == nullptr) {
            errno = EIO;
            return -1;
        }
        auto* req = static_cast<WireRequest*>(arg);
        switch (request) {
            case kGetLevel: {
                auto it = state->levels.find(req->pid);
                req->level = it == state->levels.end() ? 0 : it->second;
                return 0;
            }
            case kSetLevel:
                state->levels[req->pid] = req->level;
                return 0;
            case kGetNum:
                req->num = static_cast<uint32_t>(state->levels.size());
                return 0;
            case kGetAll: {
                state->lastCapacity = req->num;
                auto* out = reinterpret_cast<FakePidLevel*>(static_cast<uintptr_t>(req->array));
                uint32_t i = 0;
                for (auto it = state->levels.begin(); it != state->levels.end() && i < req->num; ++it, ++i) {
                    memset(&out[i], 0, sizeof(out[i]));
                    out[i].pid = it->first;
                    out[i].level = it->second;
                }
                return 0;
            }
            case kSave:
                return 0;
            default:
                errno = EINVAL;
                return -1;
        }
    });
}

FakeLogLevel::~FakeLogLevel() { NoxRemove(kControlPath); }

void FakeLogLevel::SetLevel(uint32_t pid, uint8_t level) {
    std::lock_guard<std::mutex> hold(state_->mu);
    state_->levels[pid] = level;
}

int FakeLogLevel::Level(uint32_t pid) const {
    std::lock_guard<std::mutex> hold(state_->mu);
    auto it = state_->levels.find(pid);
    return it == state_->levels.end() ? -1 : it->second;
}

void FakeLogLevel::Fail(unsigned long request, bool fail) {
    std::lock_guard<std::mutex> hold(state_->mu);
    state_->failing[request] = fail;
}

int FakeLogLevel::Calls(unsigned long request) const {
    std::lock_guard<std::mutex> hold(state_->mu);
    auto it = state_->calls.find(request);
    return it == state_->calls.end() ? 0 : it->second;
}

uint32_t FakeLogLevel::LastCapacity() const {
    std::lock_guard<std::mutex> hold(state_->mu);
    return state_->lastCapacity;
}

}  // namespace kt
