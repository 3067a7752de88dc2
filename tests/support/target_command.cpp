// Running programs built for the target from a test, natively or through the
// emulator of a cross build.

#include "tests/support/sandbox.h"

#ifndef KIRA_TARGET_EMULATOR
#define KIRA_TARGET_EMULATOR ""
#endif

namespace kt {

std::string TargetCommand(const std::string& program) {
    const std::string emulator = KIRA_TARGET_EMULATOR;
    return emulator.empty() ? program : emulator + " " + program;
}

}  // namespace kt
