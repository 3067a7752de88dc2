#ifndef TESTS_OS_BASE_BASE_TEST_UTIL_H
#define TESTS_OS_BASE_BASE_TEST_UTIL_H

// Includes shared by the base layer tests.

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>
#include <thread>
#include <tuple>

#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

#endif
