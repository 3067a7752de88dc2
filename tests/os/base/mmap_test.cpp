// Shared mappings and their registry.

#include <sys/mman.h>

#include "os/base/kira_mmap.h"
#include "tests/os/base/base_test_util.h"

static_assert(sizeof(KIRA_MAP_DATA_S) == 16 && offsetof(KIRA_MAP_DATA_S, length) == 8, "address, then u64 length");

namespace {

int MappingsOf(const std::string& path) {
    std::ifstream maps("/proc/self/maps");
    int n = 0;
    for (std::string line; std::getline(maps, line);)
        n += line.size() > path.size() && line.compare(line.size() - path.size(), path.size(), path) == 0;
    return n;
}

int MakeFile(const std::string& path, size_t size, int flags) {
    std::string data;
    for (size_t i = 0; i < size; i++) data.push_back(static_cast<char>('A' + i % 23));
    base_test::WriteAll(path, data);
    return open(path.c_str(), flags);
}

void* FakeAddr(uintptr_t n) { return reinterpret_cast<void*>(0x10000 + n * 0x1000); }

}  // namespace

TEST(KiraMmap, EndOfAreaIsTouchedBeforeMapping) {
    TempDir dir;
    std::string path = dir / "short", longer = dir / "long";
    int fd = MakeFile(path, 10, O_RDWR);
    auto* p = static_cast<char*>(KIRA_mmap(fd, PROT_READ | PROT_WRITE, 0, 4096));
    ASSERT_NE(p, MAP_FAILED);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(FileSize(path), 4097);  // extended past the area, not to it
    p[4095] = 'z';                    // backed: no SIGBUS
    void* q = KIRA_mmap(fd, PROT_READ, 0, 4096);
    EXPECT_EQ(FileSize(path), 4098) << "every read-write mapping adds a byte";
    EXPECT_EQ(KIRA_munmap(q), 0);
    EXPECT_EQ(KIRA_munmap(p), 0);
    close(fd);
    fd = open(path.c_str(), O_RDONLY);
    EXPECT_EQ(KIRA_munmap(KIRA_mmap(fd, PROT_READ, 0, 4096)), 0);
    EXPECT_EQ(FileSize(path), 4098) << "read-only descriptors leave the file alone";
    close(fd);

    // A longer file: the byte at offset + length is copied one forward.
    fd = MakeFile(longer, 3 * 4096, O_RDWR);
    p = static_cast<char*>(KIRA_mmap(fd, PROT_READ, 4096, 4096));
    ASSERT_NE(p, MAP_FAILED);
    EXPECT_EQ(p[0], 'A' + 4096 % 23);  // the offset is honoured
    char got[3] = {};
    ASSERT_EQ(pread(fd, got, 3, 2 * 4096), 3);
    EXPECT_EQ(got[1], got[0]);
    EXPECT_EQ(got[2], 'A' + (2 * 4096 + 2) % 23);
    EXPECT_EQ(FileSize(longer), 3 * 4096);
    EXPECT_EQ(KIRA_munmap(p), 0);
    close(fd);
}

TEST(KiraMmap, ThirtyThirdLiveMappingIsRefusedAndUnmapped) {
    TempDir dir;
    std::string path = dir / "many";
    int fd = MakeFile(path, 4096, O_RDONLY);
    std::vector<void*> maps;
    for (int i = 0; i < 32; i++) {
        maps.push_back(KIRA_mmap(fd, PROT_READ, 0, 4096));
        ASSERT_NE(maps.back(), nullptr) << i;
    }
    EXPECT_EQ(KIRA_mmap(fd, PROT_READ, 0, 4096), nullptr);
    EXPECT_EQ(MappingsOf(path), 32) << "the refused mapping stayed mapped";
    KIRA_MAP_DATA_S extra = {FakeAddr(1), 1};
    EXPECT_EQ(AddMapData(&extra), 0);

    EXPECT_EQ(KIRA_munmap(maps.back()), 0);  // frees a slot
    maps.back() = KIRA_mmap(fd, PROT_READ, 0, 4096);
    EXPECT_NE(maps.back(), nullptr);
    for (void* m : maps) EXPECT_EQ(KIRA_munmap(m), 0);
    EXPECT_EQ(MappingsOf(path), 0);
    EXPECT_EQ(KIRA_munmap(maps.front()), -1) << "unmapped twice";
    close(fd);
}

TEST(KiraMmap, RegistryLookupsFailedMappingsAndRaces) {
    int dummy = 0;
    EXPECT_EQ(KIRA_munmap(&dummy), -1);
    for (uintptr_t i = 1; i <= 3; i++) {
        KIRA_MAP_DATA_S e = {FakeAddr(i), i * 11};
        ASSERT_EQ(AddMapData(&e), 1);
    }
    // Taking the middle entry out keeps the others reachable.
    for (uintptr_t i : {2, 3, 1}) {
        KIRA_MAP_DATA_S q = {FakeAddr(i), 0};
        EXPECT_EQ(FetchMapData(&q), 1) << i;
        EXPECT_EQ(q.length, i * 11);
        EXPECT_EQ(FetchMapData(&q), 0) << i;
    }
    // A failed mmap comes back as MAP_FAILED and takes a slot like any address: callers test for it.
    // (The absurd offset is for the undefined-behaviour sanitizer: the end of
    // the area is computed without a signed overflow.)
    EXPECT_EQ(KIRA_mmap(-1, PROT_READ, INT64_MAX, 4096), MAP_FAILED);
    EXPECT_EQ(KIRA_munmap(MAP_FAILED), 0);
    EXPECT_EQ(KIRA_munmap(MAP_FAILED), -1);

    // Concurrent use of the registry (meant for the thread sanitizer).
    std::vector<int> lost(4, 0);
    base_test::OnThreads(4, [&lost](int t) {
        for (int i = 0; i < 2000; i++) {
            KIRA_MAP_DATA_S e = {FakeAddr(100 + t * 8 + i % 8), static_cast<uint64_t>(t)};
            KIRA_MAP_DATA_S f = {e.addr, 99};
            lost[t] += AddMapData(&e) != 1 || FetchMapData(&f) != 1 || f.length != e.length;
        }
    });
    EXPECT_EQ(lost, std::vector<int>(4, 0));
}
