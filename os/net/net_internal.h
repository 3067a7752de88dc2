#ifndef OS_NET_NET_INTERNAL_H
#define OS_NET_NET_INTERNAL_H

// Helpers shared by the network files: the platform script paths, the
// argument screen applied before anything reaches a shell, and the bounded
// command runner. Nothing here is exported.

#include <stddef.h>

#include <initializer_list>

#define NET_ADDRESS_SCRIPT "/ZUK/script/os_policy_route_process.sh"
#define NET_ROUTE_SCRIPT "/ZUK/script/os_port_route_process.sh"
#define NET_IP6_SCRIPT "/ZUK/script/os_get_ip6.sh"
#define NET_IP6_CONF "/ZUK/conf/ip6.conf"

// Every command line is built in a buffer of this size.
#define NET_COMMAND_SIZE 128

namespace kira_net {

using Runner = int (*)(const char* command);

bool AnyNull(std::initializer_list<const char*> args);

// False, after one log line naming `function`, when an argument holds a
// character outside letters, digits and ". : - _ @ / % +": anything else could
// make the shell run something of the caller's choosing. Nulls pass here.
bool ShellSafe(const char* function, std::initializer_list<const char*> args);

// Formats into a NET_COMMAND_SIZE buffer; a longer command is cut to the
// buffer and the cut command is what runs.
void FormatCommand(char (&command)[NET_COMMAND_SIZE], const char* format, ...) __attribute__((format(printf, 2, 3)));

// Formats as above and runs the command; a non-zero result is logged with
// `failure` (which takes the command text, then the result) and gives -1.
int RunCommandLine(Runner run, const char* failure, const char* format, ...) __attribute__((format(printf, 3, 4)));

}  // namespace kira_net

#endif
