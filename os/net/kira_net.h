#ifndef OS_NET_KIRA_NET_H
#define OS_NET_KIRA_NET_H

// Network functions of the OS layer: socket keep-alive and time-outs, IPv4
// and IPv6 text conversions, a port's address and mask, and the commands
// that configure port addresses, bonds and routes through the platform
// scripts. Faults go to syslog (priority 6).

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Keep-alive switch, then (when enabled) idle time, probe interval and probe
// count, in that order; the first failing setsockopt result is returned.
KIRA_EXPORT int32_t KIRA_SetSockKeepAlive(int32_t sock, int32_t enable, int32_t idle, int32_t interval, int32_t count);
// option: 20 receive time-out, 21 send time-out.
KIRA_EXPORT int32_t KIRA_SetSockSendRecvTimeout(int32_t sock, int32_t option, uint32_t ms);

// Dotted text of an address in network order, written into buf (16 bytes)
// or, when buf is null, into one static buffer shared by every caller.
KIRA_EXPORT char* KIRA_inet_ntoa(uint32_t addr, char* buf);
// 1 valid, 0 invalid, -1 for a null argument; dst is written only when valid.
KIRA_EXPORT int32_t KIRA_inet_pton4(const char* src, uint8_t* dst);
KIRA_EXPORT int32_t KIRA_inet_pton6(const char* src, uint8_t* dst);
// family 2 (IPv4) or 10 (IPv6); any other family gives 0.
KIRA_EXPORT int32_t KIRA_inet_pton(int32_t family, const char* src, void* dst);
// Network order; 0xFFFFFFFF for a null or invalid text.
KIRA_EXPORT uint32_t KIRA_inet_addr(const char* text);

// First line of the management IPv6 address file (newline kept); buf holds
// at least 40 bytes.
KIRA_EXPORT int32_t KIRA_GetMngtIPAddr6(char* buf);
// Address and (when mask is given) mask of a port, in network order.
KIRA_EXPORT int32_t KIRA_GetEthIPAddr(const char* name, uint32_t* addr, uint32_t* mask);
// The same as dotted texts, 16 bytes each.
KIRA_EXPORT int32_t KIRA_GetPortIP(const char* name, char* addr, char* mask);

KIRA_EXPORT int32_t KIRA_InitBond(const char* bond);
// Enslaves the ports in order and stops at the first failure.
KIRA_EXPORT int32_t KIRA_SetBond(const char* bond, char* const* ports, uint32_t count);
// Releases every port, going on past failures; -1 when any failed.
KIRA_EXPORT int32_t KIRA_CancelBond(const char* bond, char* const* ports, uint32_t count);

// The address, route and bond commands run through a shell. Before anything
// runs, each text argument is screened: letters, digits and ". : - _ @ / % +"
// pass (what interface names, addresses, prefixes and scope ids are made of,
// none of it meaningful to the shell); any other character refuses the call
// with one log line, so no argument can make the shell run something else.
KIRA_EXPORT int32_t KIRA_SetPortIP(const char* port, const char* addr, const char* mask);
KIRA_EXPORT int32_t KIRA_DelPortIP(const char* port, const char* addr, const char* mask);
KIRA_EXPORT int32_t KIRA_AddPortRoute(const char* port, const char* addr, const char* mask, const char* gateway);
KIRA_EXPORT int32_t KIRA_DelPortRoute(const char* port, const char* addr, const char* mask, const char* gateway);
KIRA_EXPORT int32_t KIRA_SetPortIP6(const char* port, const char* addr, uint32_t prefix);
KIRA_EXPORT int32_t KIRA_DelPortIP6(const char* port, const char* addr, uint32_t prefix);
KIRA_EXPORT int32_t KIRA_AddPortRoute6(const char* port, const char* addr, int32_t prefix, const char* gateway);
KIRA_EXPORT int32_t KIRA_DelPortRoute6(const char* port, const char* addr, int32_t prefix, const char* gateway);

// 1 when the two interface addresses share a subnet (or one cannot be
// parsed), 0 when not, -22 for a null argument.
KIRA_EXPORT int32_t KIRA_IfIpConflict(const char* addr1, const char* mask1, const char* addr2, const char* mask2);
// 1 when the addresses agree on the shorter prefix (or one cannot be
// parsed), else 0.
KIRA_EXPORT int32_t KIRA_IfIpV6Conflict(const char* addr1, uint32_t prefix1, const char* addr2, uint32_t prefix2);

#ifdef __cplusplus
}
#endif

#endif
