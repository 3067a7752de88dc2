// 64-bit by 32-bit division with the remainder handed back separately.

#include "os/base/kira_system.h"

// A zero divisor is not trapped: quotient 0, remainder the dividend's low
// 32 bits.
extern "C" KIRA_EXPORT uint64_t KIRA_div64(uint64_t dividend, uint32_t divisor, uint32_t* remainder) {
    uint64_t quotient = divisor == 0 ? 0 : dividend / divisor;
    if (remainder != nullptr) {
        *remainder = static_cast<uint32_t>(dividend - quotient * divisor);
    }
    return quotient;
}
