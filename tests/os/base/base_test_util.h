#ifndef TESTS_OS_BASE_BASE_TEST_UTIL_H
#define TESTS_OS_BASE_BASE_TEST_UTIL_H

// Helpers of the base layer tests that need no sandbox: a private
// temporary directory, whole-file writes, sizes, descriptor counts, timing.

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

namespace base_test {

class TempDir {
public:
    TempDir()
    {
        char tmpl[] = "/tmp/kira_base_XXXXXX";
        const char* made = mkdtemp(tmpl);
        path_ = made != nullptr ? made : "/nonexistent";
    }
    ~TempDir() { (void)system(("rm -rf '" + path_ + "'").c_str()); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline void WriteAll(const std::string& path, const std::string& data)
{
    int fd = open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    (void)!write(fd, data.data(), data.size());
    close(fd);
}

inline long long FileSize(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

inline int OpenFdCount()
{
    int n = 0;
    DIR* d = opendir("/proc/self/fd");
    while (d != nullptr && readdir(d) != nullptr) n++;
    if (d != nullptr) closedir(d);
    return n;
}

inline double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Sends `sig` to the constructing thread `times` times, `everyMs` apart,
// through a handler without SA_RESTART, so blocking calls see EINTR.
class SignalPoker {
public:
    SignalPoker(int sig, int times, int everyMs) : sig_(sig)
    {
        struct sigaction sa = {};
        sa.sa_handler = +[](int) {};
        sigaction(sig, &sa, &old_);
        pthread_t self = pthread_self();
        thread_ = std::thread([=] {
            for (int i = 0; i < times; i++) {
                std::this_thread::sleep_for(std::chrono::milliseconds(everyMs));
                pthread_kill(self, sig);
            }
        });
    }
    ~SignalPoker()
    {
        thread_.join();
        sigaction(sig_, &old_, nullptr);
    }
    SignalPoker(const SignalPoker&) = delete;
    SignalPoker& operator=(const SignalPoker&) = delete;

private:
    int sig_;
    struct sigaction old_ = {};
    std::thread thread_;
};

}  // namespace base_test

#endif
