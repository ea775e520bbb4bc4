// The ACL group: the one process-wide record of limits, pools, trees, list heads, the lock and the
// mode flags, and the start-up that builds it.
#pragma once

#include <cstdint>

#include "hw/acl_bind_slot.h"
#include "platform/avl.h"
#include "platform/dlist.h"
#include "platform/sil.h"

constexpr uint32_t ACL_MODULE_NUM = 165;       // this process's module number on the platform
constexpr uint32_t ACL_LIST_TYPE_COLUMNS = 6;  // L2, IPv4, IPv6, hybrid, MPLS, UDF
constexpr uint32_t ACL_BIND_TYPE_NUM = 18;     // list-type columns x (ingress, egress, pre-stage)
constexpr uint32_t ACL_BLACKLIST_NUM = 128;
constexpr uint32_t ACL_DSTIP_NUM = 16;
constexpr uint32_t ACL_FUNC_MAP_ENTRIES = 87;
constexpr const char* ACL_CMD_SOCKET = "/tmp/aclcmd.socket";

// Rules that exist in lists of one type, and the most that may.
struct AclRuleNum {
  uint16_t cur;
  uint16_t max;
};

struct AclGroup {
  uint32_t maxLstNum;
  uint32_t maxLstRuleNum;
  uint32_t maxGruleNum;
  uint32_t maxIfNum;
  uint32_t maxGemPortNum;
  uint32_t curLstNum;
  uint32_t maxSlotNum;
  uint32_t maxBlackListNum;
  SIL_SEM_ID aclMutex;
  SIL_POOL_ID listPool;
  SIL_POOL_ID grulePool;
  SIL_POOL_ID rulePool;
  SIL_POOL_ID ifPool;
  SIL_POOL_ID ifListPool;
  SIL_POOL_ID statsPool;
  SIL_POOL_ID slotPool;
  SIL_POOL_ID dstIpPool;
  SIL_POOL_ID dstIpRulePool;
  SIL_POOL_ID shortRulePool;
  SIL_POOL_ID longRulePool;
  SIL_POOL_ID shortActionPool;
  SIL_POOL_ID longActionPool;
  SIL_POOL_ID gemPortPool;
  avl_tree_t gemPortTree;
  SIL_POOL_ID gemPortListPool;
  avl_tree_t gemPortListTree;
  SIL_POOL_ID blackListPool;
  avl_tree_t listTree;
  avl_tree_t ifTree;
  SilDlNode statsList;
  SilDlNode ifStatsList;
  SilDlNode gemPortStatsList;
  avl_tree_t ifListTree;
  uint32_t scalar5Value;
  AclBindSlots slots;  // the global bind slots
  uint8_t inCtrl;
  uint8_t outCtrl;
  // The list each generic binding installed when it was switched on (meaningful while inCtrl /
  // outCtrl is 1). inAcl/outAcl may name another list meanwhile without any hardware change, so
  // switching off and next-hop re-programming follow these, not the index.
  uint32_t inCtrlList;
  uint32_t outCtrlList;
  uint32_t debugFlags;
  int32_t sockFd;
  uint32_t rtMsgRecvCnt;
  uint32_t rtMsgErrCnt;
  uint32_t rtMsgOkCnt;
  uint32_t rtMsgRecvFailCnt;
  SilTimerList timerList;
  SilDlNode dstIpList;
  SilDlNode dstIpRuleList;
  SilDlNode slotList;
  uint8_t dynamicBindEnable;
  uint8_t redirectMultiEnable;
  uint8_t tlvEnable;
  uint8_t ethSubIfEnable;
  avl_tree_t blackListTree;
  uint32_t carMin;
  uint32_t carMax;
  uint32_t lastErr;
  AclRuleNum ruleNum[ACL_LIST_TYPE_COLUMNS];  // L2, IPv4, IPv6, hybrid, MPLS, UDF
};

extern AclGroup gaclGrp;

// Start-up parameters; every field is 0 unless its option was read.
struct aclOptParams {
  uint32_t maxLstNum;
  uint32_t maxLstRuleNum;
  uint32_t maxGruleNum;
  uint32_t maxIfNum;
  uint32_t maxSlotNum;
  uint32_t dynamicBindEnable;
  uint32_t redirectMultiEnable;
  uint32_t carMin;
  uint32_t carMax;
  uint16_t maxRuleNum[ACL_LIST_TYPE_COLUMNS];  // L2, IPv4, IPv6, hybrid, MPLS, UDF
  uint8_t tlvEnable;
  uint8_t ethSubIfEnable;
  uint32_t maxGemPortNum;
};

// Reads the acl. options and starts the ACL module; -1 without starting anything when
// "acl.enable" switches it off.
int32_t aclOptInit();
// Reads the acl. options into params. False when "acl.enable" switches the module off.
bool aclOptRead(aclOptParams* params);
int32_t aclInit(const aclOptParams* params);

int aclLock();
int aclUnlock();

// The store generation: a count that moves whenever the store may have changed. Every aclLock
// moves it, so anything that changes a list or a rule under aclMutex (the only way the daemon
// changes them) is seen by whatever keeps a form derived from the store, with no call of its own
// at the place of the change. The store's own mutators move it too (aclStoreGenBump), which
// covers changes made before the tasks run and in tests that work on the store directly.
uint64_t aclStoreGen();
void aclStoreGenBump();
// Takes aclMutex for a match query, which reads the store and never changes it: the generation
// stays where it is, so forms derived from the store survive from one query to the next.
int aclLockForQuery();
// True while this thread holds aclMutex through aclLockForQuery alone (no aclLock nested in it):
// only then may a match trust a derived form built at the current generation.
bool aclQueryHold();

// RAII holder of aclMutex for the table functions.
class AclLockGuard {
 public:
  AclLockGuard() { aclLock(); }
  ~AclLockGuard() { aclUnlock(); }
  AclLockGuard(const AclLockGuard&) = delete;
  AclLockGuard& operator=(const AclLockGuard&) = delete;
};

// RAII holder of aclMutex for a match query (see aclLockForQuery).
class AclQueryLockGuard {
 public:
  AclQueryLockGuard() { aclLockForQuery(); }
  ~AclQueryLockGuard() { aclUnlock(); }
  AclQueryLockGuard(const AclQueryLockGuard&) = delete;
  AclQueryLockGuard& operator=(const AclQueryLockGuard&) = delete;
};

// True once aclInit has built the group.
bool aclStarted();

// Tests only: stops the tasks, releases everything the group holds and returns the process (the
// counter and meter modules and the platform too) to the unstarted state.
void aclResetForTest();
