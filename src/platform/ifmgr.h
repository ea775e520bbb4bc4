// The platform's interface manager: interface names, locations, flag words, aggregation members,
// protocol registration and interface counters, served by the virtual device.
#pragma once

#include <cstdint>

// Translation types of zorIndexTrans.
constexpr uint32_t ZOR_TRANS_LOCATION = 5;    // unit -> 32-byte location (eight big-endian words)
constexpr uint32_t ZOR_TRANS_NEIGHBOUR = 38;  // neighbour query (descriptors in and out)

// Words of the 32-byte interface location.
constexpr uint32_t ZOR_LOC_SYS = 0;
constexpr uint32_t ZOR_LOC_SLOT = 1;
constexpr uint32_t ZOR_LOC_SUBSLOT = 2;
constexpr uint32_t ZOR_LOC_PORT = 3;
constexpr uint32_t ZOR_LOC_TYPE = 4;
constexpr uint32_t ZOR_LOC_KIND = 5;  // 1 Ethernet port, 2 aggregation, 3 all-slot, 4 PON
constexpr uint32_t ZOR_LOC_WORDS = 8;

constexpr uint32_t ZOR_IF_KIND_ETH = 1;
constexpr uint32_t ZOR_IF_KIND_AGG = 2;
constexpr uint32_t ZOR_IF_KIND_ALLSLOT = 3;
constexpr uint32_t ZOR_IF_KIND_PON = 4;

// Interface get and set fields.
constexpr uint32_t ZOR_IF_FIELD_FLAGS10 = 10;
constexpr uint32_t ZOR_IF_FIELD_FLAGS13 = 13;
constexpr uint32_t ZOR_IF_FIELD_STATS = 44;
constexpr uint32_t ZOR_IF_FIELD_AGG_MODE = 47;
constexpr uint32_t ZOR_IF_PROTO_ENABLE = 56;
constexpr uint32_t ZOR_IF_PROTO_DISABLE = 57;
constexpr uint32_t ZOR_IF_IGNORE_ENABLE = 64;
constexpr uint32_t ZOR_IF_IGNORE_DISABLE = 65;
constexpr uint32_t ZOR_AGG_MEMBERS = 1005;
constexpr uint32_t ZOR_AGG_MAX_MEMBERS = 128;

// in: the unit (type 5) or the address of a ZorBufDesc holding the neighbour request (type 38).
// out: the 32-byte location (type 5) or a ZorBufDesc for the answer (type 38): the request
// followed by one byte, non-zero when the neighbour is known.
int zorIndexTrans(uintptr_t in, uint32_t type, void* out);
// Fields 10 and 13: a big-endian flag word. 47: a 20-byte block with the command id in word 0;
// byte 8 receives the aggregation's mode for that command (bit 1 on the aggregation, bit 0 on each
// member). 44: a ZorScalarReq (command 0x03E80191) over an 88-byte counter request.
int zorIfGetApi(uint32_t unit, uint32_t field, void* data);
// 56, 57, 64, 65: a parameter block whose first big-endian word is the protocol (module) number.
// 44: a ZorScalarReq (command 0x03E80192) over an 88-byte counter request to clear.
int zorIfSetApi(uint32_t unit, uint32_t field, void* data);
// Writes the interface's name (NUL-terminated, truncated to len - 1 characters).
int zorIfUnit2Name(uint32_t unit, char* buf, uint32_t len);
// 1005: pair is a ZorBufDesc; the members are written as big-endian units, the length clamped.
int zorEthAggIfGetApi(uint32_t aggUnit, uint32_t cmd, void* pair);
