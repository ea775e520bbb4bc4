// Hardware interface layer, platform scalars and system identity. On the device these calls come
// from closed libraries; here they are served by the virtual device (src/platform/vdev).
//
// Every record handed to these calls is a big-endian byte layout, read through src/wire/be.h.
// The two descriptor records below hold an address, which on the target is a 32-bit word; only
// our own platform layer reads them, so here they hold a native pointer.
#pragma once

#include <cstdint>

#include "wire/buf_desc.h"

// Buffer descriptor: the data's address and its length in bytes, the same record the command
// table's functions receive. Calls that answer into it clamp the length to what they wrote.
using ZorBufDesc = wire::BufDesc;

// Request descriptor of the scalar query and set calls and of the interface counter calls
// (zorScalarGetApi/SetApi, zorIfGetApi/SetApi 44): the platform command, the request record it
// works on, a flag, the record's length and two more words.
struct ZorScalarReq {
  uint32_t cmd;
  void* data;
  uint16_t flag;
  uint16_t len;
  uint32_t word3;
  uint32_t word4;
};

// Hardware rule command ids per scope.
constexpr uint32_t HWIL_CMD_GLOBAL_ADD = 217;
constexpr uint32_t HWIL_CMD_GLOBAL_DEL = 218;
constexpr uint32_t HWIL_CMD_GLOBAL_TLV = 219;
constexpr uint32_t HWIL_CMD_IF_ADD = 65536398;
constexpr uint32_t HWIL_CMD_IF_DEL = 65536399;
constexpr uint32_t HWIL_CMD_IF_TLV = 65536400;
constexpr uint32_t HWIL_CMD_GEM_ADD = 212992037;
constexpr uint32_t HWIL_CMD_GEM_DEL = 212992038;
constexpr uint32_t HWIL_CMD_GEM_TLV = 212992039;

// Card, slot and scalar queries the ACL module makes.
constexpr uint32_t HWIL_CARD_OPTION_QUERY = 0x02EE005E;  // slot rule capacities by option key
constexpr uint32_t HWIL_SLOT_RESOURCE_QUERY = 0x01F40062;
constexpr uint32_t ZOR_SCALAR_ACTION_SUPPORT = 554;
constexpr uint32_t ZOR_SCALAR_STATS_READ = 215;
constexpr uint32_t ZOR_SCALAR_STATS_CLEAR = 216;
constexpr uint32_t ZOR_IF_STATS_READ = 0x03E80191;
constexpr uint32_t ZOR_IF_STATS_CLEAR = 0x03E80192;

// Installs or removes one rule. index: 0 for the global scope, the unit for an interface or an
// aggregation member, or the address of the GEM key (three big-endian words: unit, ONU id, GEM
// port). data: the 508-byte rule record, or for TLV commands the address of a ZorBufDesc holding
// the TLV buffer and its length. options: the 64-byte big-endian options record.
int zorHwilCmdSetApi(uintptr_t index, uint32_t cmdId, const void* data, const void* options);
// Relays a management change. key: the family's key by value, or the address of its bytes when
// the options record's key length (word 1) is above 4. data: the address of a big-endian value
// word, or of a ZorBufDesc when bit 31 of options word 0 says the data is variable-length.
// options: the 64-byte big-endian options record. Every relay is kept in the relay log.
int zorHwilCmdSyncApi(uintptr_t key, uint32_t cmdNumber, const void* data, const void* options);

// value: the address of a 4-byte big-endian value word.
int zorHwilScalarSet(uint32_t unit, uint32_t scalarId, const void* value, uint32_t options);
int zorHwilScalarGet(uint32_t unit, uint32_t scalarId, void* value, uint32_t options);

// Card query. key: four big-endian words (system, slot, two more words). data: a ZorBufDesc for
// queries that answer (the option query), or nullptr for a property test whose result is the
// answer.
int zorHwilCardGet(const void* key, uint32_t cmd, void* data);
// Slot query. key: four big-endian words (system, slot, two more words). data as above; the
// resource query fills the descriptor with 20-byte resource records.
int zorHwilSlotGet(const void* key, uint32_t cmd, void* data);
// Slot command. key: the 8-byte slot key (system, slot), data: a 508-byte rule record.
int zorHwilSlotSet(const void* key, uint32_t cmd, const void* data, uint32_t options);
// Tells the platform a module finished its work for a card that came up. location: four
// big-endian words (system, slot, two more).
int zorCardUpPcsSet(const void* location, uint32_t module);

uint32_t zorSelfSysIndex();
uint32_t zorSelfSlotIndex();

// Platform scalars. req: a ZorScalarReq. Commands: 554 the action support query, 215 and 216 the
// rule counter read and clear (an 88-byte counter request); others (the NAT module's commands)
// are kept in the device's command log.
int zorScalarGetApi(uint32_t r1, uint32_t r2, void* req);
int zorScalarSetApi(uint32_t r1, uint32_t r2, void* req);
// Hardware scalar set. Command 6: a ZorBufDesc holding a detect-list record.
int hrdScalarSetApi(uint32_t r1, uint32_t cmd, void* desc);

namespace plat {
// The hardware layer back to the built-in device (same as vdev::resetForTest without the server).
void hwilResetForTest();
}  // namespace plat
