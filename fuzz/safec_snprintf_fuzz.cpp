// Bounded writers against arbitrary sizes and texts: the first bytes choose
// destsz and count, the rest is the text. Destinations are heap blocks of
// exactly destsz bytes, so a write past destsz is caught; the results are
// checked against the documented contract.

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "safec/safec.h"

namespace {

void CheckFormat(const char* text, size_t textLen, size_t destsz, size_t count) {
    char* dest = static_cast<char*>(malloc(destsz));
    const int ret = snprintf_s(dest, destsz, count, "%s|%d", text, 7);
    const size_t full = textLen + 2;
    const size_t limit = count < destsz ? count : destsz - 1;
    if (ret >= 0 && (static_cast<size_t>(ret) != full || full > limit || strlen(dest) != full)) {
        abort();
    }
    if (ret < 0 && (full <= limit || strlen(dest) != limit)) {
        abort();
    }

    const int s = sprintf_s(dest, destsz, "%.*s", static_cast<int>(textLen), text);
    if (s < 0 && dest[0] != 0) {
        abort();
    }
    if (s >= 0 && static_cast<size_t>(s) >= destsz) {
        abort();
    }
    free(dest);
}

void CheckCopies(const char* text, size_t textLen, size_t destsz, size_t count) {
    char* dest = static_cast<char*>(malloc(destsz));
    errno_t e = strncpy_s(dest, destsz, text, count);
    const size_t want = textLen < count ? textLen : count;
    if ((e == 0) != (want < destsz)) {
        abort();
    }
    if (e == 0 && strlen(dest) != want) {
        abort();
    }
    if (e != 0 && dest[0] != 0) {
        abort();
    }
    e = strcat_s(dest, destsz, text);
    if (e != 0 && dest[0] != 0) {
        abort();
    }
    e = strncat_s(dest, destsz, text, count);
    if (e != 0 && dest[0] != 0) {
        abort();
    }
    if (strnlen(dest, destsz) == destsz) {
        abort();
    }
    const size_t readable = count <= textLen + 1 ? count : textLen + 1;
    e = memcpy_s(dest, destsz, text, readable);
    if ((e == 0) != (readable <= destsz)) {
        abort();
    }
    free(dest);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const size_t destsz = 1 + data[0] % 64;
    const size_t count = data[1] % 80;
    char* text = static_cast<char*>(malloc(size - 1));
    memcpy(text, data + 2, size - 2);
    text[size - 2] = 0;
    const size_t textLen = strlen(text);
    CheckFormat(text, textLen, destsz, count);
    CheckCopies(text, textLen, destsz, count);
    free(text);
    return 0;
}
