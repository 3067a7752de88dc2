#ifndef PLUGIN_LINUX_PROCESS_MONITOR_PARAM_INTERNAL_H
#define PLUGIN_LINUX_PROCESS_MONITOR_PARAM_INTERNAL_H

// Item parameters as terminated strings. The host fills fixed 100- and
// 400-byte fields and nothing guarantees a terminator inside them, so the
// heartbeat and report items copy a field into a buffer one byte longer
// before any string routine, log line or the agent reads it.

#include <string.h>

#include "plugin/linux/fi_types.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "safec/safec.h"

namespace zadi {

template <size_t kFieldSize>
class BoundedText {
public:
    BoundedText() { text_[0] = '\0'; }
    void Assign(const char* field) {
        size_t len = strnlen(field, kFieldSize);
        (void)memcpy_s(text_, sizeof(text_), field, len);
        text_[len] = '\0';
    }
    char* get() { return text_; }
    const char* c_str() const { return text_; }

private:
    char text_[kFieldSize + 1];
};

using ParamName = BoundedText<sizeof(((FI_PARAM_S*)nullptr)->name)>;
using ParamValue = BoundedText<sizeof(((FI_PARAM_S*)nullptr)->value)>;

// The value of the first parameter called `name`, terminated; false when the
// parameter is absent.
inline bool LoadParam(int argc, FI_PARAM_S* argv, const char* name, ParamValue* out) {
    const char* field = GetParaValue(argc, argv, name);
    if (field == nullptr) {
        return false;
    }
    out->Assign(field);
    return true;
}

}  // namespace zadi

#endif
