#ifndef PLUGIN_LINUX_FI_TYPES_H
#define PLUGIN_LINUX_FI_TYPES_H

// Records of the item calling contract shared with the diagnosis agent.
// Their layouts are fixed by the agent: do not reorder or resize fields.

#include <stdint.h>
#include <sys/types.h>

typedef struct tagFI_PARAM_S {
    char name[100];
    char value[400];
} FI_PARAM_S;

typedef struct tagFI_CONTEXT_S {
    int steppointer;
    char contextbuff[1024];
} FI_CONTEXT_S;

typedef struct tagFI_RESULT_S {
    int result;
    char reason[1024];
    int pid;
    unsigned int hangflowid;
} FI_RESULT_S;

// Layouts an item keeps at the start of contextbuff. contextbuff sits at
// offset 4 of FI_CONTEXT_S, so these are copied in and out with memcpy
// rather than dereferenced in place (the 64-bit fields would be misaligned).
// The 64-bit counters are unsigned long long (not uint64_t, which is
// unsigned long on LP64) so that the sampling methods can take them by
// reference straight from a sample table element.
typedef struct {
    pid_t pid;
    unsigned long long syscputime;
    unsigned long long procputime;
} process_cpu_context_t;

typedef struct {
    pid_t pid;
} process_mem_context_t;

typedef struct {
    pid_t pid;
} process_handle_context_t;

typedef struct {
    pid_t pid;
} process_exist_context_t;

typedef struct {
    unsigned long long totaltime;
    unsigned long long idletime;
} sys_cpu_context_t;

typedef struct {
    unsigned long long totaltime;
    unsigned long long uesrtime;  // the spelling is the established field name
} sys_usr_cpu_context_t;

// The agent's side of the contract, which items rely on and do not check:
// argv holds at least argc records, and every name and value is
// NUL-terminated within its field. A value that fills its whole field, or an
// argc larger than the array, is outside the contract (reads run past the
// field or the array).
typedef float (*FI_ITEM_FN)(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);

// What an item returns for every failure (with result -1 and a reason): the
// float with these bits, the smallest positive normal one, which the agent
// takes for "no value".
#define ZADI_FAULT_MARKER_BITS 0x00800000u

#endif
