// What the install and removal paths of the global binding share: the per-operation translation
// buffer, the eligibility tests of a rule and the next-hop registration of redirect rules.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "hw/acl_bind_stats.h"
#include "hw/acl_dev_trans.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/sil.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_codes.h"

namespace aclglb {

// The one translation buffer of an operation: a zeroed 508-byte record, or a zeroed 512-byte TLV
// buffer while tlvEnable is 1. Freed on every way out of the operation.
class Buffer {
 public:
  explicit Buffer(bool tlv)
      : tlv_(tlv),
        len_(tlv ? ACL_DEV_TLV_BUF_LEN : ACL_DEV_RECORD_LEN),
        data_(static_cast<uint8_t*>(silCalloc(1, len_))) {}
  bool ok() const { return data_ != nullptr; }
  bool tlv() const { return tlv_; }
  uint8_t* data() { return data_.get(); }
  uint32_t len() const { return len_; }

 private:
  struct Free {
    void operator()(uint8_t* p) const { silFree(p); }
  };
  bool tlv_;
  uint32_t len_;
  std::unique_ptr<uint8_t, Free> data_;
};

inline bool statusValid(const AclRuleEntry* r) {
  return r->status == ACL_RULE_STATUS_VALID;
}
// A time-range rule whose time range is not active stays out of the hardware.
bool timeRangeOff(const AclRuleEntry* r);
// Rules matching a VRF are never installed in the global scope.
bool hasVrf(const AclRuleEntry* r);
bool hasAction(const AclRuleEntry* r, uint32_t code);
// Any of the four redirect-to-next-hop actions.
bool hasNextHopAction(const AclRuleEntry* r);
uint16_t priorityFor(uint32_t type, uint32_t ruleIdx);

// The 44 in-action parameter words of a rule.
using ParamBlock = std::array<uint8_t, ACL_ACTION_PARAM_LEN>;
ParamBlock paramBlock(AclRuleEntry* r);

// Installable as far as next hops go: every next hop resolved and, for a multi-hop redirect, a
// first next hop configured.
bool nextHopsReady(const AclRuleEntry* r, const ParamBlock& block);

// Where next-hop messages come from: the area and operation they name and their log class (the
// destination IP rule record failures are class 1 in every scope).
struct NhScope {
  const char* area;   // "global" or "interface"
  const char* addOp;  // the install's operation, "add acl" or "add rule acl"
  uint32_t cls;
};
inline constexpr NhScope kNhGlobal{"global", "add acl", ACL_LOG_GLOBAL};

// Registers the rule's next hops with the destination IP tracking. 0, or CMN_ERR_NO_RESOURCE
// when an entry or record could not be had (logged).
int32_t nextHopRegister(AclRuleEntry* r, const ParamBlock& block, const NhScope& scope = kNhGlobal);
// The skip lines of a rule whose next hops are not all resolved.
void nextHopNotReadyLog(const AclRuleEntry* r, const ParamBlock& block,
                        const NhScope& scope = kNhGlobal);
// Logs the state of each next hop of the rule and, when this is the list's last binding, releases
// the registrations.
void nextHopRelease(AclRuleEntry* r, bool lastBinding, const ParamBlock& block,
                    const NhScope& scope = kNhGlobal);

// Unlinks and frees the rule's statistics record; false when there was none.
bool statsDel(const AclRuleEntry* r, uint32_t dir);

// Translates the rule into buf (oper 0 install, 1 remove) and sends it to the global scope.
// *transFailed tells a translation failure from a refused command.
int32_t sendRule(Buffer& buf, AclRuleEntry* r, const AclListEntry* list, uint32_t dir,
                 const uint8_t* target, bool remove, bool recordActiveNum, bool* transFailed);

// The removal walk behind aclGlbDelpart and aclGlbHwDelpart, and the rollback of a refused
// install.
struct DelpartMode {
  bool releaseNextHops;
  const char* op;  // "global del" or "global hw del"
  // The list's refCnt when the binding being removed is its last: 1 when a made binding is
  // removed, 0 when an install that has not counted yet rolls back.
  int32_t lastBindingRefCnt = 1;
  // Set when an install rolls back: only the statistics records it created go back (a removal
  // gives back the record of every rule it takes out).
  const AclBindStats* rollbackOf = nullptr;
  // Rolling back: whether the rule at the bound reached the hardware at all. A rule the hardware
  // refused may be half there and its removal is attempted; a rule that was never sent (its
  // record, its translation or its next hops could not be had) is only passed over.
  bool boundRuleSent = true;
};
int32_t delpart(AclListEntry* list, uint32_t lastRuleIdx, uint32_t dir, const uint8_t* target,
                const DelpartMode& mode);

}  // namespace aclglb
