#ifndef BENCH_BENCH_PROCESSES_H
#define BENCH_BENCH_PROCESSES_H

// Extra processes on the machine for the walks to look through: sleepers
// whose command line is "<tag>/pNNNN 3600", killed at the end of the run.

#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace bench {

class Sleepers {
public:
    ~Sleepers() {
        for (pid_t pid : pids_) {
            kill(pid, SIGKILL);
        }
        for (pid_t pid : pids_) {
            waitpid(pid, nullptr, 0);
        }
    }
    // Command line (argv[0]) of sleeper i.
    std::string Name(int i) const {
        char buf[32];
        snprintf(buf, sizeof(buf), "/p%04d", i);
        return tag_ + buf;
    }
    // Starts sleepers until `count` run; the last one started is late in
    // /proc order, so a walk looking for it sees nearly all.
    void Grow(int count) {
        const size_t before = pids_.size();
        while (static_cast<int>(pids_.size()) < count) {
            const std::string argv0 = Name(static_cast<int>(pids_.size()));
            const pid_t pid = fork();
            if (pid == 0) {
                execl("/bin/sleep", argv0.c_str(), "3600", static_cast<char*>(nullptr));
                _exit(127);
            }
            pids_.push_back(pid);
        }
        if (pids_.size() != before) {
            usleep(500000);  // let every exec finish
        }
    }

private:
    std::string tag_ = "/opt/zbench" + std::to_string(getpid());
    std::vector<pid_t> pids_;
};

inline double Seconds(const timespec& a, const timespec& b) {
    return static_cast<double>(b.tv_sec - a.tv_sec) + static_cast<double>(b.tv_nsec - a.tv_nsec) * 1e-9;
}

inline timespec Now() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t;
}

}  // namespace bench

#endif
