// Bounded writers against arbitrary sizes and texts: the first bytes choose
// destMax and count, the rest is the text. Destinations are heap blocks of
// exactly destMax bytes, so a write past destMax is caught; the results are
// checked against the documented contract.

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "safec/securec.h"

namespace {

void CheckFormat(const char* text, size_t textLen, size_t destMax, size_t count) {
    char* dest = static_cast<char*>(malloc(destMax));
    const int ret = snprintf_s(dest, destMax, count, "%s|%d", text, 7);
    const size_t full = textLen + 2;
    const size_t limit = count < destMax ? count : destMax - 1;
    if (ret >= 0 && (static_cast<size_t>(ret) != full || full > limit || strlen(dest) != full)) abort();
    if (ret < 0 && (full <= limit || strlen(dest) != limit)) abort();

    const int s = sprintf_s(dest, destMax, "%.*s", static_cast<int>(textLen), text);
    if (s < 0 && dest[0] != 0) abort();
    if (s >= 0 && static_cast<size_t>(s) >= destMax) abort();
    free(dest);
}

void CheckCopies(const char* text, size_t textLen, size_t destMax, size_t count) {
    char* dest = static_cast<char*>(malloc(destMax));
    errno_t e = strncpy_s(dest, destMax, text, count);
    const size_t want = textLen < count ? textLen : count;
    if ((e == EOK) != (want < destMax)) abort();
    if (e == EOK && strlen(dest) != want) abort();
    if (e != EOK && dest[0] != 0) abort();
    e = strcat_s(dest, destMax, text);
    if (e != EOK && dest[0] != 0) abort();
    e = strncat_s(dest, destMax, text, count);
    if (e != EOK && dest[0] != 0) abort();
    if (strnlen(dest, destMax) == destMax) abort();
    const size_t readable = count <= textLen + 1 ? count : textLen + 1;
    e = memcpy_s(dest, destMax, text, readable);
    if ((e == EOK) != (readable <= destMax)) abort();
    free(dest);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const size_t destMax = 1 + data[0] % 64;
    const size_t count = data[1] % 80;
    char* text = static_cast<char*>(malloc(size - 1));
    memcpy(text, data + 2, size - 2);
    text[size - 2] = 0;
    const size_t textLen = strlen(text);
    CheckFormat(text, textLen, destMax, count);
    CheckCopies(text, textLen, destMax, count);
    free(text);
    return 0;
}
