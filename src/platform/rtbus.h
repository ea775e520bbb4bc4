// The route-message socket and the route bus.
//
// The bus is a directory of Unix datagram sockets ("rtbus" in the run directory). A datagram on
// the bus is a 4-byte big-endian message group followed by the message; every socket on the bus
// receives every datagram, and the receiving side keeps only the groups it joined. A route socket
// bound by a process is "rtbus/<process name>.sock", so tests and tools can reach the daemon's
// socket by name.
#pragma once

#include <sys/select.h>
#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

constexpr int ZOR_AF_ROUTE = 16;         // the platform's message-service family
constexpr int ZOR_SOCK_DGRAM = 2;
constexpr int ZOR_SOL_ROUTE = 270;       // option level of group membership
constexpr int ZOR_ROUTE_ADD_GROUP = 1;   // join a message group (4-byte value)
constexpr int ZOR_SOL_SOCKET = 65535;    // option level of the socket itself
constexpr int ZOR_SO_MODULE = 4121;      // the owning module's number (4-byte value)

int zor_socket(int family, int type, int protocol);
// addr: 12 bytes, big-endian: u16 family, u16 zero, u32 id, u32 group mask.
int zor_bind(int fd, const void* addr, uint32_t addrLen);
// value: a 4-byte big-endian number.
int zor_setsockopt(int fd, int level, int option, const void* value, uint32_t valueLen);
// As select(2); also returns (0, with the sets cleared) when the platform stops its tasks.
int zor_select(int nfds, fd_set* readfds, fd_set* writefds, fd_set* exceptfds,
               struct timeval* timeout);
// Receives one message of a joined group, without the bus header. Datagrams of other groups are
// dropped. Returns the message length, or -1 with errno set.
int zor_recv(int fd, void* buf, size_t len, int flags);
int zor_close(int fd);

namespace plat {

std::string busDir();
// Sends one message to every socket on the bus that joined group; returns how many took it.
// Neither send ever waits: a receiver whose queue is full loses the message, and the loss is
// counted (busDropCount).
int busSend(uint32_t group, std::span<const uint8_t> message);
// Sends one message to the one socket bound at sockPath; false when it did not take it.
bool busSendTo(const std::string& sockPath, std::span<const uint8_t> message);
// Messages lost since the process started because their receiver's queue was full.
uint64_t busDropCount();
// The path of this process's first route socket bound on the bus (the daemon's), or empty.
std::string ownRouteSocketPath();
uint32_t routeSocketLiveCount();

}  // namespace plat
