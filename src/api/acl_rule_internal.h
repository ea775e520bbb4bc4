// What the units of the rule table share: the decoded rule key, the state of one set command, and
// the command bodies each unit provides to the set dispatcher (acl_rule_set.cc) and the get
// (acl_rule_get.cc). Everything here runs with the ACL lock held.
#pragma once

#include <cstdint>
#include <span>

#include "wire/acl_rule_cmds.h"
#include "wire/buf_desc.h"

struct AclListEntry;
struct AclRuleEntry;

struct AclRuleKey {
  uint32_t lstIdx;
  uint32_t ruleIdx;
  uint32_t filter;
};
AclRuleKey aclRuleKeyLoad(uintptr_t keyAddr);

// One set command on its way through _aclRuleSetApi: the caller's key and buffer (relayed as they
// are), the decoded key, the list and the rule (nullptr while it does not exist).
struct AclRuleSetCtx {
  uintptr_t key;
  uint32_t cmd;
  uintptr_t buf;
  uint32_t mode;
  AclRuleKey k;
  AclListEntry* list;
  AclRuleEntry* rule;
  AclRuleCmd info;
};

// The relay of the command to the hardware layer with the caller's own key and buffer.
int32_t aclRuleRelay(const AclRuleSetCtx& c);
uint32_t aclRuleSetValue(const AclRuleSetCtx& c);
wire::BufDesc* aclRuleSetDesc(const AclRuleSetCtx& c);

// Stores bytes as the value of code: an entry of that code and length is overwritten in place,
// one of another length replaced, so a field always holds one value. A refusal (no entry to be
// had) leaves the rule as it was.
int32_t aclRuleValuePut(AclRuleEntry* rule, uint8_t code, std::span<const uint8_t> bytes);
// The same for several fields at once (at most ACL_RULE_VALUES_PUT_MAX): all are stored, or none.
struct AclRuleValueItem {
  uint8_t code;
  std::span<const uint8_t> bytes;
};
constexpr size_t ACL_RULE_VALUES_PUT_MAX = 4;
int32_t aclRuleValuesPut(AclRuleEntry* rule, std::span<const AclRuleValueItem> items);
// Deletes every value entry of code.
void aclRuleValueDrop(AclRuleEntry* rule, uint8_t code);

// CAR, meter, counter and time range (acl_rule_refs.cc).
int32_t aclRuleSetCarId(AclRuleSetCtx& c);
int32_t aclRuleSetMeterId(AclRuleSetCtx& c);
int32_t aclRuleSetCounterId(AclRuleSetCtx& c);
int32_t aclRuleSetTimeRange(AclRuleSetCtx& c);

// In-actions and out-actions (acl_rule_action.cc).
int32_t aclRuleSetAction(AclRuleSetCtx& c);
int32_t aclRuleSetActionParam(AclRuleSetCtx& c);
int32_t aclRuleSetOutAction(AclRuleSetCtx& c);
int32_t aclRuleSetOutActionParam(AclRuleSetCtx& c);
// Removes every in-action with the references they hold (mirror group, counter): the remove-all
// marker of set 53, and the undo of a failed activation.
void aclRuleInActionStrip(AclRuleEntry* rule);
// The mirror group the rule holds a reference on: the parameter of its MIRROR_GROUP action, or 0.
uint32_t aclRuleMirrorGroupHeld(AclRuleEntry* rule);

// Status and move (acl_rule_status.cc).
int32_t aclRuleSetStatus(AclRuleSetCtx& c);
int32_t aclRuleSetMove(AclRuleSetCtx& c);

// Get 75 and 87 (acl_rule_dev.cc).
int32_t aclRuleGetDevRecord(AclRuleEntry* rule, wire::BufDesc* desc);
int32_t aclRuleGetTlv(AclListEntry* list, AclRuleEntry* rule, wire::BufDesc* desc);
