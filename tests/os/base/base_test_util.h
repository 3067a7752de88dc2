#ifndef TESTS_OS_BASE_BASE_TEST_UTIL_H
#define TESTS_OS_BASE_BASE_TEST_UTIL_H

// Includes and probes shared by the base layer tests.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

namespace base_test {

// A private directory under /tmp, removed with its contents.
struct TempDir {
    std::string path = [] {
        char tmpl[] = "/tmp/kira_base_XXXXXX";
        return std::string(mkdtemp(tmpl) != nullptr ? tmpl : "/nonexistent");
    }();
    TempDir() = default;
    TempDir(const TempDir&) = delete;
    ~TempDir() { (void)system(("rm -rf '" + path + "'").c_str()); }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
};

inline void WriteAll(const std::string& path, const std::string& data) {
    int fd = open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    (void)!write(fd, data.data(), data.size());
    close(fd);
}

inline long long FileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

using kt::OpenFdCount;

inline double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Runs body(t) for t = 0 .. n-1, each on a thread of its own, all at once.
template <typename Body>
void OnThreads(int n, Body body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < n; t++) threads.emplace_back(body, t);
    for (auto& th : threads) th.join();
}

// Sends `sig` to the constructing thread `times` times, `everyMs` apart,
// through a handler without SA_RESTART, so blocking calls see EINTR.
struct SignalPoker {
    SignalPoker(int sig, int times, int everyMs) {
        struct sigaction sa = {};
        sa.sa_handler = +[](int) {};
        sigaction(sig, &sa, nullptr);
        thread = std::thread([=, self = pthread_self()] {
            for (int i = 0; i < times; i++) {
                std::this_thread::sleep_for(std::chrono::milliseconds(everyMs));
                pthread_kill(self, sig);
            }
        });
    }
    ~SignalPoker() { thread.join(); }
    std::thread thread;
};

}  // namespace base_test

using base_test::FileSize;
using base_test::SecondsSince;
using base_test::TempDir;

#endif
