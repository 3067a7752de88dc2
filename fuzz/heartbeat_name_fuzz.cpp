// Splitting of heartbeat file names: the fields stay inside the name, none
// holds a separator, and joining them back gives the start of the name.

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "plugin/linux/process_monitor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    char name[256];
    size_t len = strnlen(reinterpret_cast<const char*>(data), size < 255 ? size : 255);
    memcpy(name, data, len);
    name[len] = '\0';
    const std::string original(name);

    char* fields[3] = {nullptr, nullptr, nullptr};
    SpliteHeartFileName(name, sizeof(name), fields);
    if (fields[0] != name) {
        __builtin_trap();
    }

    std::string joined;
    for (int i = 0; i < 3; ++i) {
        if (fields[i] == nullptr) {
            for (int j = i; j < 3; ++j) {
                if (fields[j] != nullptr) {
                    __builtin_trap();  // fields fill from the front
                }
            }
            break;
        }
        if (fields[i] < name || fields[i] > name + len) {
            __builtin_trap();
        }
        if (strstr(fields[i], "___") != nullptr) {
            __builtin_trap();
        }
        if (i != 0) {
            joined += "___";
        }
        joined += fields[i];
    }
    if (original.compare(0, joined.size(), joined) != 0) {
        __builtin_trap();
    }
    return 0;
}
