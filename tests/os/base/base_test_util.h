#ifndef TESTS_OS_BASE_BASE_TEST_UTIL_H
#define TESTS_OS_BASE_BASE_TEST_UTIL_H

// Includes shared by the base layer tests, and the descriptor count the network tests use.

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>
#include <thread>
#include <tuple>

#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

namespace base_test {
using kt::OpenFdCount;
}

#endif
