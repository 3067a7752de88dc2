#ifndef TESTS_SUPPORT_FAKE_LOG_LEVEL_H
#define TESTS_SUPPORT_FAKE_LOG_LEVEL_H

// Fake of the kernel side behind "/proc/nox/log_level": answers the level
// requests 801 to 805 from a table the test sets and counts them. It sees
// only descriptors opened with open() (KIRA_open), never fopen(); any thread
// may log while the test changes levels. Create it before the first logging
// call of the process: the library opens the control file once.

#include <stdint.h>

#include <map>
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
    int Calls(unsigned long request);
    uint32_t LastCapacity();  // `num` of the last 804 request

private:
    int Answer(unsigned long request, void* arg);
    std::mutex mu_;
    std::map<uint32_t, uint8_t> levels_;
    std::map<unsigned long, int> calls_;
    uint32_t lastCapacity_ = 0;
};

}  // namespace kt

#endif
