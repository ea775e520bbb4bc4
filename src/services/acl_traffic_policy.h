// Traffic policies: protocol modules put one treatment (filter, redirect, remark, mirror,
// statistic, rate limit, loopback) on the packets a list's rules match, on one interface or
// globally, per rule or for the whole list. Every rule concerned goes to the hardware as a
// temporary copy whose match is the rule's and whose actions are the policy's; the stored rules
// keep their own actions. Every function here runs with aclMutex held by its caller.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "hw/acl_dev_traffic.h"
#include "wire/acl_ret_traffic.h"

struct AclListEntry;
struct AclRuleEntry;

// The request record (big-endian), as a client hands it by address.
constexpr uint32_t ACL_TRAFFIC_REQ_LST = 0;    // u32
constexpr uint32_t ACL_TRAFFIC_REQ_RULE = 4;   // u32, 0 = every rule
constexpr uint32_t ACL_TRAFFIC_REQ_DIR = 8;    // u8
constexpr uint32_t ACL_TRAFFIC_REQ_OP = 9;     // u8, 1 apply, anything else remove
constexpr uint32_t ACL_TRAFFIC_REQ_KEEP = 12;  // u32, non-zero: leave the bind-list entries alone
constexpr uint32_t ACL_TRAFFIC_REQ_DATA = 16;  // the operation's data
// The longest record any operation reads (the limit's out-action block ends at 56).
constexpr uint32_t ACL_TRAFFIC_REQ_LEN = 56;
constexpr uint8_t ACL_TRAFFIC_OP_APPLY = 1;

// A global hardware step could not have its buffer.
constexpr int32_t ACL_TRAFFIC_GLOBAL_NO_BUFFER = 12;

// The operations, in the order of their command ids (interface set 34.., scalar set 53..). The
// number is also the action type the hardware forms carry.
enum class AclTrafficOp : uint8_t {
  Loopback = 1,
  Redirect,
  Filter,
  Remark,
  Mirror,
  Limit,
  Statistic,
};
constexpr uint32_t ACL_TRAFFIC_OP_NUM = 7;

// req: the request record (ACL_TRAFFIC_REQ_LEN bytes readable), or nullptr.
int32_t aclTrafficIfFilter(uint32_t ifIndex, const uint8_t* req);
int32_t aclTrafficIfRedirect(uint32_t ifIndex, const uint8_t* req);
int32_t aclTrafficIfRemark(uint32_t ifIndex, const uint8_t* req);
int32_t aclTrafficIfMirror(uint32_t ifIndex, const uint8_t* req);
int32_t aclTrafficIfStatistic(uint32_t ifIndex, const uint8_t* req);
int32_t aclTrafficIfLimit(uint32_t ifIndex, const uint8_t* req);
int32_t aclTrafficIfLoopback(uint32_t ifIndex, const uint8_t* req);
int32_t aclTrafficGlobalFilter(const uint8_t* req);
int32_t aclTrafficGlobalRedirect(const uint8_t* req);
int32_t aclTrafficGlobalRemark(const uint8_t* req);
int32_t aclTrafficGlobalMirror(const uint8_t* req);
int32_t aclTrafficGlobalStatistic(const uint8_t* req);
int32_t aclTrafficGlobalLimit(const uint8_t* req);
int32_t aclTrafficGlobalLoopback(const uint8_t* req);
// The scalar table's form of the global operations: the record whose address its word held.
int32_t aclTrafficGlobalByCmd(uint32_t scalarCmd, const void* record);
// The interface table's form: cmd 34 to 40.
int32_t aclTrafficIfByCmd(uint32_t ifIndex, uint32_t ifCmd, const uint8_t* req);

// The hardware steps: one rule copy installed (Add) or removed (Del).
int32_t aclTrafficIfRuleAdd(uint32_t ifIndex, const uint8_t* req, AclListEntry* list,
                            AclRuleEntry* copy, const AclTrafficCounter* counter,
                            const AclTrafficMeter* meter, AclTrafficOp op);
int32_t aclTrafficIfRuleDel(uint32_t ifIndex, const uint8_t* req, AclListEntry* list,
                            AclRuleEntry* copy, const AclTrafficCounter* counter,
                            const AclTrafficMeter* meter, AclTrafficOp op);
int32_t aclTrafficGlobalRuleAdd(const uint8_t* req, AclListEntry* list, AclRuleEntry* copy,
                                const AclTrafficCounter* counter, const AclTrafficMeter* meter,
                                AclTrafficOp op);
int32_t aclTrafficGlobalRuleDel(const uint8_t* req, AclListEntry* list, AclRuleEntry* copy,
                                const AclTrafficCounter* counter, const AclTrafficMeter* meter,
                                AclTrafficOp op);

// The bind-list accounting of an interface policy (ruleIdx 0: every rule of the list).
void aclTrafficAclIfListUpdate(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                               uint32_t ruleIdx, uint8_t op, AclListEntry* list,
                               uint32_t keepBindList);

// What the global policies hold in the global table, for the audit: one element per rule copy
// applied and not removed yet (a rule applied twice appears twice).
struct AclTrafficGlobalRule {
  uint32_t lstIdx;
  uint32_t ruleIdx;
  uint8_t dir;
};
std::vector<AclTrafficGlobalRule> aclTrafficGlobalRules();
void aclTrafficResetForTest();
