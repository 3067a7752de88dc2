#ifndef OS_BASE_KIRA_BASE_H
#define OS_BASE_KIRA_BASE_H

// Everything of the OS layer's base: files, threads and commands, atomics,
// bit maps, mappings, numbers, the shell runner, byte order and the two
// intrusive containers.

#include "os/base/kira_atomic.h"
#include "os/base/kira_bitmap.h"
#include "os/base/kira_byteorder.h"
#include "os/base/kira_file.h"
#include "os/base/kira_list.h"
#include "os/base/kira_mmap.h"
#include "os/base/kira_number.h"
#include "os/base/kira_rbtree.h"
#include "os/base/kira_system.h"

#endif
