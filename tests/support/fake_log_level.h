#ifndef TESTS_SUPPORT_FAKE_LOG_LEVEL_H
#define TESTS_SUPPORT_FAKE_LOG_LEVEL_H

// Fake of the kernel side behind "/proc/nox/log_level": answers the level
// requests 801 to 805 from a table the test sets, and records what it was
// asked. Built on kt::NoxSetHandler, so it sees only descriptors opened with
// open() (KIRA_open), never fopen(). Thread-safe: any thread may log while
// the test changes levels. Create it before the first logging call of the
// process, since the library opens the control file only once.

#include <stdint.h>

#include <map>
#include <memory>
#include <mutex>

namespace kt {

// One element of the request-804 listing as this fake writes it.
struct FakePidLevel {
    uint32_t pid;
    uint8_t level;
    uint8_t pad[3];
};

class FakeLogLevel {
public:
    static constexpr unsigned long kGetLevel = 801;
    static constexpr unsigned long kSetLevel = 802;
    static constexpr unsigned long kGetNum = 803;
    static constexpr unsigned long kGetAll = 804;
    static constexpr unsigned long kSave = 805;

    FakeLogLevel();
    ~FakeLogLevel();
    FakeLogLevel(const FakeLogLevel&) = delete;
    FakeLogLevel& operator=(const FakeLogLevel&) = delete;

    void SetLevel(uint32_t pid, uint8_t level);
    int Level(uint32_t pid) const;  // -1 when the module is unknown
    // Makes every later request of that number fail (-1, EIO).
    void Fail(unsigned long request, bool fail = true);
    int Calls(unsigned long request) const;
    uint32_t LastCapacity() const;  // `num` of the last 804 request

private:
    struct State {
        mutable std::mutex mu;
        std::map<uint32_t, uint8_t> levels;
        std::map<unsigned long, int> calls;
        std::map<unsigned long, bool> failing;
        uint32_t lastCapacity = 0;
    };
    std::shared_ptr<State> state_;
};

}  // namespace kt

#endif
