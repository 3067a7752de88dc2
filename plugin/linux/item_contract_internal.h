#ifndef PLUGIN_LINUX_ITEM_CONTRACT_INTERNAL_H
#define PLUGIN_LINUX_ITEM_CONTRACT_INTERNAL_H

// What every item shares with the agent's calling contract: the fault
// marker and the way result and reason are written, the context overlays
// copied in and out of contextbuff, and parameter values as terminated
// copies. Never exported.
//
// Host strings: the agent fills fixed 100- and 400-byte fields and nothing
// guarantees a terminator inside them. An item never hands a field to a
// string routine, a log line, the file system or the agent; it reads at
// most to the end of the field into a ParamValue/ParamName and works on
// that copy.

#include <string.h>

#include "plugin/linux/fi_types.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "safec/safec.h"

namespace zadi {

constexpr size_t kReasonSize = sizeof(((FI_RESULT_S*)nullptr)->reason);

// The float with bits ZADI_FAULT_MARKER_BITS: items return it for every failure.
float FaultMarker();

// result = -1, then the formatted reason (at most 1023 characters).
void SetFault(FI_RESULT_S* result, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The tail shared by every measuring item: a negative value is a fault
// reported with `faultFormat` (one "%f"), anything else a success.
float FinishItem(FI_RESULT_S* result, float value, const char* faultFormat);

// contextbuff sits at offset 4, so the overlays are copied rather than cast.
template <typename T>
T LoadContext(const FI_CONTEXT_S* context) {
    static_assert(sizeof(T) <= sizeof(context->contextbuff), "context layout too large");
    T value;
    memcpy(&value, context->contextbuff, sizeof(T));
    return value;
}
template <typename T>
void StoreContext(FI_CONTEXT_S* context, const T& value) {
    memcpy(context->contextbuff, &value, sizeof(T));
}

// A host field copied up to its end into a buffer one byte longer, so the
// copy is always terminated.
template <size_t kFieldSize>
class BoundedText {
public:
    BoundedText() { text_[0] = '\0'; }
    explicit BoundedText(const char* field) { Assign(field); }
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
