// The compiled form of a list's rules for the software match: each rule expanded and decoded once
// (addresses, prefix masks, ports, ranges, verdicts, in rule order) and indexed so that a query
// tries only the rules that can match it. The answers are exactly the rule walk's: the same rule
// decides, in the same order.
//
// A compiled list is built on its first query and belongs to the store generation it was built at
// (aclStoreGen): once the generation moves, every compiled list is dropped and rebuilt on demand.
// It is handed out only under a match query's own hold of aclMutex (aclQueryHold) and while the
// matchers' log class is off; otherwise the caller walks the rules, writing its lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "store/acl_rule_trans.h"

class AclCompiledList;

// The compiled rules of list lstIdx at the current generation, built now when missing; nullptr
// when the caller must walk the rules itself (no such list, no query hold, log class on).
const AclCompiledList* aclCompiledGet(uint32_t lstIdx);
// Compiled lists held right now (they are freed when the generation moves).
size_t aclCompiledCount();

// The deciding rule's verdict for commands 10 and 11 (2 permit, 3 deny, 11 neither), or 0 when
// no rule decides.
uint8_t aclCompiledAddrMatch(const AclCompiledList& c, uint32_t family, const uint8_t* addr,
                             uint32_t prefixLen);
// 0 when the deciding rule permits, else -1: against the rules' destination addresses.
int32_t aclCompiledMulticastMatch(const AclCompiledList& c, uint32_t family, const uint8_t* addr,
                                  uint32_t prefixLen);
// 0 when the highest-numbered covering rule of the VRF permits, else -1.
int32_t aclCompiledNatMatch(const AclCompiledList& c, uint32_t vrfId, uint32_t family,
                            const uint8_t* addr, uint32_t prefixLen);
// 0 when a rule accepts the pair, else -1 (arguments as _aclIpsecMatch's).
int32_t aclCompiledIpsecMatch(const AclCompiledList& c, const uint8_t* srcAddr,
                              const uint8_t* dstAddr, uint16_t srcPort, uint16_t dstPort,
                              uint32_t family, uint32_t protocol, uint32_t mode);
// 0 with the first accepting valid rule's verdict in *verdict, or -1 (as _aclCpuDefendMatch).
int32_t aclCompiledCpuDefendMatch(const AclCompiledList& c,
                                  std::span<const uint8_t, ACL_RULE_PARAM_LEN> pkt,
                                  uint8_t* verdict);
