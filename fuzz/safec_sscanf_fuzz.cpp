// Feeds arbitrary text to the scanners through the fixed formats the
// system uses, with buffers allocated to their exact size so any write past
// a size argument or read past the text's end is caught. The format itself
// is never fuzzed: a format's argument list is fixed at compile time.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <vector>

#include "safec/safec.h"

namespace {

// One heap block per text field, of exactly the size passed to the scanner.
struct Field {
    explicit Field(unsigned n) : size(n), data(static_cast<char*>(malloc(n == 0 ? 1 : n))) {}
    ~Field() { free(data); }
    Field(const Field&) = delete;
    Field& operator=(const Field&) = delete;
    unsigned size;
    char* data;
};

void CheckTerminated(const Field& f, int ret, int fields) {
    if (ret < -1 || ret > fields) {
        abort();
    }
    if (f.size > 0 && ret >= 1 && strnlen(f.data, f.size) == f.size) {
        abort();
    }
}

void ScanNarrow(const char* text) {
    unsigned u[5];
    Field one(1), four(4), name(32);
    int r = sscanf_s(text, "%*s %s", four.data, four.size);
    CheckTerminated(four, r, 1);
    r = sscanf_s(text, "%u %u %u %u %u", &u[0], &u[1], &u[2], &u[3], &u[4]);
    r = sscanf_s(text, "gid=%u,num=%u,interval=%u,burst=%u,resume=%u\n", &u[0], &u[1], &u[2], &u[3], &u[4]);
    r = sscanf_s(text, "pid=%u pid_name=%31s gid=%u\n", &u[0], name.data, name.size, &u[1]);
    if (r >= 2 && strlen(name.data) > 31) {
        abort();
    }
    unsigned long long t[7];
    r = sscanf_s(text, "%*s %llu %llu %llu %llu %llu %llu %llu", &t[0], &t[1], &t[2], &t[3], &t[4], &t[5], &t[6]);
    int n = 0;
    r = sscanf_s(text, "%3c%[a-z]%n%[^]-]", four.data, 3u, name.data, name.size, &n, one.data, one.size);
    if (n < 0 || static_cast<size_t>(n) > strlen(text)) {
        abort();
    }
    double d;
    long double ld;
    float f;
    void* p;
    signed char hh;
    int i;
    r = sscanf_s(text, "%lf %Lg %4f %x %i %p %hhd %*[^\n]", &d, &ld, &f, &u[0], &i, &p, &hh);
    char zone[64], wd[4], mon[4], word[64], lwd[4], lmon[4], abbr[32];
    int v[12];
    r = sscanf_s(text, "%s %s %s %d %d:%d:%d %d %s = %s %s %d %d:%d:%d %d %s isdst=%d gmtoff=%d", zone, 64u, wd, 4u,
                 mon, 4u, &v[0], &v[1], &v[2], &v[3], &v[4], word, 64u, lwd, 4u, lmon, 4u, &v[5], &v[6], &v[7], &v[8],
                 &v[9], abbr, 32u, &v[10], &v[11]);
    wchar_t wide[3];
    r = sscanf_s(text, "%ls %2lc", wide, 3u, wide, 2u);
    (void)r;
}

void ScanWide(const char* text, size_t size) {
    std::vector<wchar_t> wtext(size + 1, 0);
    for (size_t k = 0; k < size; ++k) {
        wtext[k] = static_cast<unsigned char>(text[k]);
    }
    Field four(4);
    wchar_t wide[4];
    unsigned u[3];
    int r = swscanf_s(wtext.data(), L"%s %3ls %u=%u %l[^=]%n", four.data, four.size, wide, 4u, &u[0], &u[1], wide, 4u,
                      &u[2]);
    CheckTerminated(four, r, 5);
}

void ScanStream(const uint8_t* data, size_t size) {
    FILE* f = fmemopen(const_cast<uint8_t*>(data), size, "r");
    if (f == nullptr) {
        return;
    }
    Field four(4);
    unsigned u[2];
    int r;
    while ((r = fscanf_s(f, "%u %3s %u\n", &u[0], four.data, four.size, &u[1])) > 0) {
        if (r >= 2 && strnlen(four.data, four.size) == four.size) {
            abort();
        }
    }
    fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // An exact-size copy: reading one byte past its terminator is caught.
    char* text = static_cast<char*>(malloc(size + 1));
    memcpy(text, data, size);
    text[size] = 0;
    ScanNarrow(text);
    ScanWide(text, size);
    free(text);
    if (size > 0) {
        ScanStream(data, size);
    }
    return 0;
}
