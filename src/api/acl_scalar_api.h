// The scalar table (function ids 1 to 3): the limits and state of the ACL group, the global
// bindings (the generic in/out switches and the twelve typed global bind slots), the debug flags,
// and the entry of the CPU defend, NAT, blacklist and global traffic-policy services. The key is
// ignored; unless a command says otherwise the buffer is one big-endian value word.
#pragma once

#include <cstdint>

// Scalar command ids.
constexpr uint32_t ACL_SCALAR_MAX_LST_NUM = 0;
constexpr uint32_t ACL_SCALAR_CUR_LST_NUM = 1;
constexpr uint32_t ACL_SCALAR_MAX_LST_RULE_NUM = 2;
constexpr uint32_t ACL_SCALAR_MAX_GRULE_NUM = 3;
constexpr uint32_t ACL_SCALAR_VALID_GRULE_NUM = 4;
constexpr uint32_t ACL_SCALAR_VALUE5 = 5;
constexpr uint32_t ACL_SCALAR_IN_CTRL = 6;
constexpr uint32_t ACL_SCALAR_OUT_CTRL = 7;
constexpr uint32_t ACL_SCALAR_IN_ACL = 8;
constexpr uint32_t ACL_SCALAR_OUT_ACL = 9;
constexpr uint32_t ACL_SCALAR_DEBUG_SET = 18;
constexpr uint32_t ACL_SCALAR_DEBUG_CLEAR = 19;
constexpr uint32_t ACL_SCALAR_NAMETOID = 20;
constexpr uint32_t ACL_SCALAR_VERSION = 21;
constexpr uint32_t ACL_SCALAR_CPUDEFEND_ADD = 22;
constexpr uint32_t ACL_SCALAR_CPUDEFEND_DEL = 23;
constexpr uint32_t ACL_SCALAR_NAT_ADD = 24;
constexpr uint32_t ACL_SCALAR_NAT_DEL = 25;
constexpr uint32_t ACL_SCALAR_GLB_SLOT_FIRST = 26;  // inL2Acl
constexpr uint32_t ACL_SCALAR_GLB_SLOT_LAST = 37;   // outUdfAcl
constexpr uint32_t ACL_SCALAR_REDIRECT_MULTI = 38;
constexpr uint32_t ACL_SCALAR_CAR_MIN = 39;
constexpr uint32_t ACL_SCALAR_CAR_MAX = 40;
constexpr uint32_t ACL_SCALAR_RULE_NUM_FIRST = 41;  // 41/42 L2 in use/maximum ... 51/52 UDF
constexpr uint32_t ACL_SCALAR_RULE_NUM_LAST = 52;
constexpr uint32_t ACL_SCALAR_TRAFFIC_FIRST = 53;  // global loopback ... global statistic
constexpr uint32_t ACL_SCALAR_TRAFFIC_LAST = 59;
constexpr uint32_t ACL_SCALAR_CAPABILITY = 66;
constexpr uint32_t ACL_SCALAR_BLACKLIST_ADD = 67;
constexpr uint32_t ACL_SCALAR_BLACKLIST_DEL = 68;

// Debug bits that also switch the sibling modules' debugging.
constexpr uint32_t ACL_DEBUG_COUNTER = 0x40;
constexpr uint32_t ACL_DEBUG_METER = 0x80;

// The hardware command number of a scalar relay.
constexpr uint32_t ACL_SCALAR_RELAY_BASE = 0x00014000;

int32_t aclScalarGetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
int32_t aclScalarSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
int32_t aclScalarSyncApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
// The body of both: mode 3 from a Set, 1 from a Sync; the mode only reaches the hardware layer.
int32_t _aclScalarSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf, uint32_t mode);

// Services of other subsystems that a scalar set hands its buffer to. Exactly one function of an
// entry is set once the service is built; an entry with none answers CMN_ERR_NOT_SUPPORTED.
struct AclScalarService {
  uint32_t cmd;
  // 22 to 25: the buffer (a descriptor) exactly as the client sent it.
  int32_t (*withBuf)(uintptr_t buf);
  // 53 to 59: the record whose address the buffer's word holds (null when the word is 0).
  int32_t (*withRecord)(const void* record);
  // 67, 68: the three big-endian words of the record the buffer's word points at.
  int32_t (*withWords)(uint32_t w0, uint32_t w1, uint32_t w2);
};

// The service of cmd, or nullptr when cmd is not a service command.
const AclScalarService* aclScalarServiceFind(uint32_t cmd);
