// Loading a 100,000-line module file: the whole load (each in a fresh child,
// so every line makes a new record, as at a process's first log line; goal
// under 0.2 s), and the line reading alone, buffered against one read() per
// byte as it was. The file lives in a private directory under /tmp; no fixed
// path of the node is touched.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "os/base/kira_file.h"
#include "os/base/kira_io.h"
#include "os/log/log_internal.h"

namespace {

constexpr int kLines = 100000;

std::string g_path;

void WriteModuleFile() {
    char dir[] = "/tmp/log_conf_bench.XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        abort();
    }
    g_path = std::string(dir) + "/pid_bench.conf";
    std::string text;
    for (int i = 1; i <= kLines; ++i) {
        text += "pid=" + std::to_string(i) + ",pid_name=module" + std::to_string(i) +
                ",gid=" + std::to_string(1 + i % 50) + "\n";
    }
    const int fd = open(g_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        abort();
    }
    close(fd);
}

double Seconds(const struct timespec& a, const struct timespec& b) {
    return static_cast<double>(b.tv_sec - a.tv_sec) + static_cast<double>(b.tv_nsec - a.tv_nsec) / 1e9;
}

void BM_LoadModuleFile(benchmark::State& state) {
    for (auto _ : state) {
        struct timespec start, end;
        clock_gettime(CLOCK_MONOTONIC, &start);
        const pid_t child = fork();
        if (child == 0) {
            // What load_pid_conf does before its files, without reading the node's own.
            pthread_spin_init(&kira_log::gid_tree_lock, PTHREAD_PROCESS_PRIVATE);
            pthread_spin_init(&kira_log::pid_tree_lock, PTHREAD_PROCESS_PRIVATE);
            read_pid_conf(g_path.c_str());
            _exit(search_pid_conf(kLines) != nullptr ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        clock_gettime(CLOCK_MONOTONIC, &end);
        if (status != 0) {
            state.SkipWithError("the load lost lines");
        }
        state.SetIterationTime(Seconds(start, end));
    }
}

void BM_ReadLinesBuffered(benchmark::State& state) {
    char line[DBG_CONF_LINE_SIZE];
    for (auto _ : state) {
        kira::LineReader reader;
        if (!reader.OpenPlain(g_path.c_str())) {
            abort();
        }
        int n = 0;
        while (reader.ReadLine(line, sizeof(line))) {
            ++n;
        }
        benchmark::DoNotOptimize(n);
    }
}

void BM_ReadLinesBytePerRead(benchmark::State& state) {
    char line[DBG_CONF_LINE_SIZE];
    for (auto _ : state) {
        const int fd = open(g_path.c_str(), O_RDONLY);
        int n = 0;
        while (KIRA_readline(fd, line, sizeof(line)) != nullptr) {
            ++n;
        }
        close(fd);
        benchmark::DoNotOptimize(n);
    }
}

BENCHMARK(BM_LoadModuleFile)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadLinesBuffered)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadLinesBytePerRead)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    WriteModuleFile();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    (void)unlink(g_path.c_str());
    (void)rmdir(g_path.substr(0, g_path.rfind('/')).c_str());
    return 0;
}
