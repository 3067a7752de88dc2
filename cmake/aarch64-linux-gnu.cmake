# Cross build for the aarch64 target, run through qemu-user.
#   cmake -S . -B build-arm -G Ninja \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
#         -DKIRA_GTEST_AARCH64_PREFIX=/opt/gtest-aarch64

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(KIRA_AARCH64_SYSROOT /usr/aarch64-linux-gnu CACHE PATH "Target libraries used by qemu")
# binfmt_misc is not relied upon: ctest and test discovery run every target
# binary through qemu explicitly.
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-aarch64;-L;${KIRA_AARCH64_SYSROOT}")

list(APPEND CMAKE_FIND_ROOT_PATH ${KIRA_AARCH64_SYSROOT})
# A plain set() here would override -D on the command line; the prefix of the
# cross-built GoogleTest comes in through its own cache variable.
set(KIRA_GTEST_AARCH64_PREFIX "" CACHE PATH "Install prefix of GoogleTest built for aarch64")
if(KIRA_GTEST_AARCH64_PREFIX)
  list(APPEND CMAKE_FIND_ROOT_PATH ${KIRA_GTEST_AARCH64_PREFIX})
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
