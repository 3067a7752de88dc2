// The one directory walk of the library: readdir over an owned DIR, with the
// entry kind and name filters its callers need.

#include <string.h>

#include "os/base/kira_io.h"

namespace kira {

bool IsAllDigits(const char* name) {
    if (name == nullptr || *name == '\0') {
        return false;
    }
    for (; *name != '\0'; ++name) {
        if (*name < '0' || *name > '9') {
            return false;
        }
    }
    return true;
}

bool DirWalk::Accepts(const struct dirent* entry) const {
    const char* name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
        return false;
    }
    if ((kind_ == kDirectories && entry->d_type != DT_DIR) || (kind_ == kRegularFiles && entry->d_type != DT_REG)) {
        return false;
    }
    return filter_ == nullptr || filter_(name);
}

const char* DirWalk::Next() {
    if (!dir_) {
        return nullptr;
    }
    for (const struct dirent* entry = readdir(dir_.get()); entry != nullptr; entry = readdir(dir_.get())) {
        if (Accepts(entry)) {
            return entry->d_name;
        }
    }
    return nullptr;
}

}  // namespace kira
