// The heartbeat content reader against the definition it replaces: two
// fgets calls with a 127-byte limit on the same bytes, the first line's one
// trailing newline removed, the second converted with strtoll.

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "plugin/linux/plugin_internal.h"

namespace {

void Reference(const uint8_t* data, size_t size, ZADI_PROCESS_HEARTBEAT_NODE* node, bool* read) {
    *read = false;
    if (size == 0) {
        return;
    }
    FILE* f = fmemopen(const_cast<uint8_t*>(data), size, "r");
    if (f == nullptr) {
        __builtin_trap();
    }
    char buf[128] = {0};
    if (fgets(buf, 127, f) != nullptr) {
        *read = true;
        size_t used = strlen(buf);
        if (used > 0 && buf[used - 1] == '\n') {
            buf[--used] = '\0';
        }
        node->uiBufferUsed = static_cast<uint32_t>(used);
        strcpy(node->szBuffer, buf);
        memset(buf, 0, sizeof(buf));
        if (fgets(buf, 127, f) != nullptr) {
            node->hangFlowId = static_cast<uint32_t>(strtoll(buf, nullptr, 10));
        }
    }
    fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > zadi::kHeartbeatReadMax) {
        size = zadi::kHeartbeatReadMax;
    }
    ZADI_PROCESS_HEARTBEAT_NODE got;
    ZADI_PROCESS_HEARTBEAT_NODE want;
    memset(&got, 0x5a, sizeof(got));
    memset(&want, 0x5a, sizeof(want));
    got.szBuffer[127] = want.szBuffer[127] = '\0';
    bool wantRead = false;
    Reference(data, size, &want, &wantRead);
    bool gotRead = zadi::ParseHeartbeatLines(reinterpret_cast<const char*>(data), size, &got);
    if (gotRead != wantRead) {
        __builtin_trap();
    }
    if (got.uiBufferUsed != want.uiBufferUsed || got.hangFlowId != want.hangFlowId) {
        __builtin_trap();
    }
    if (gotRead && got.uiBufferUsed > zadi::kHeartbeatLineMax) {
        __builtin_trap();
    }
    if (strcmp(got.szBuffer, want.szBuffer) != 0) {
        __builtin_trap();
    }
    return 0;
}
