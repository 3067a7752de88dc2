// Address text conversions against the C library, side by side in one run:
// IPv4 and IPv6 parsing over a mix of typical texts, and printing an IPv4
// address into a caller's buffer. Each iteration converts the whole mix.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>

#include "os/net/kira_net.h"

namespace {

const char* const kIp4Texts[] = {"192.168.1.10", "10.0.0.1", "255.255.255.0", "172.16.254.3", "8.8.8.8",
                                 "127.0.0.1",    "0.0.0.0",  "100.64.12.200", "1.2.3.4",      "224.0.0.251"};

// Full, compressed and with an IPv4 tail.
const char* const kIp6Texts[] = {"2001:0db8:85a3:0000:0000:8a2e:0370:7334",
                                 "fe80::1",
                                 "2001:db8::ff00:42:8329",
                                 "::1",
                                 "::ffff:192.168.1.10",
                                 "fd12:3456:789a:1::1",
                                 "2001:db8:1234:5678:9abc:def0:1234:5678",
                                 "::",
                                 "64:ff9b::10.0.0.1",
                                 "FE80:0000:0000:0000:0202:B3FF:FE1E:8329"};

const uint32_t kAddresses[] = {0x0A01A8C0u, 0x0100000Au, 0x00FFFFFFu, 0x03FE10ACu, 0x08080808u,
                               0x0100007Fu, 0x00000000u, 0xC80C4064u, 0x04030201u, 0xFB0000E0u};

template <typename Parse>
void ParseAll(benchmark::State& state, const char* const (&texts)[10], Parse parse) {
    unsigned char out[16];
    for (auto _ : state) {
        for (const char* text : texts) {
            benchmark::DoNotOptimize(parse(text, out));
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 10);
}

void BM_Pton4_Kira(benchmark::State& state) {
    ParseAll(state, kIp4Texts, [](const char* t, unsigned char* o) { return KIRA_inet_pton4(t, o); });
}
void BM_Pton4_Libc(benchmark::State& state) {
    ParseAll(state, kIp4Texts, [](const char* t, unsigned char* o) { return inet_pton(AF_INET, t, o); });
}
void BM_Pton6_Kira(benchmark::State& state) {
    ParseAll(state, kIp6Texts, [](const char* t, unsigned char* o) { return KIRA_inet_pton6(t, o); });
}
void BM_Pton6_Libc(benchmark::State& state) {
    ParseAll(state, kIp6Texts, [](const char* t, unsigned char* o) { return inet_pton(AF_INET6, t, o); });
}

template <typename Print>
void PrintAll(benchmark::State& state, Print print) {
    char buf[16];
    for (auto _ : state) {
        for (uint32_t addr : kAddresses) {
            benchmark::DoNotOptimize(print(addr, buf));
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 10);
}

void BM_Ntoa_Kira(benchmark::State& state) {
    PrintAll(state, [](uint32_t a, char* b) { return KIRA_inet_ntoa(a, b); });
}
void BM_Ntoa_Libc(benchmark::State& state) {
    PrintAll(state, [](uint32_t a, char* b) { return inet_ntop(AF_INET, &a, b, 16); });
}

}  // namespace

BENCHMARK(BM_Pton4_Kira);
BENCHMARK(BM_Pton4_Libc);
BENCHMARK(BM_Pton6_Kira);
BENCHMARK(BM_Pton6_Libc);
BENCHMARK(BM_Ntoa_Kira);
BENCHMARK(BM_Ntoa_Libc);

BENCHMARK_MAIN();
