#include "hw/acl_bind_stats.h"

#include "stats/acl_stats.h"

namespace {

// Numbers binding operations; 0 stands for "made by no known operation". Callers hold aclMutex.
uint32_t gNextBindOp = 1;

}  // namespace

AclBindStats::AclBindStats() : op_(gNextBindOp++) {
  if (gNextBindOp == 0) gNextBindOp = 1;
}

bool AclBindStats::takeRule(uint32_t lstIdx, uint32_t ruleIdx, uint32_t dir) const {
  const AclStatsIndex index{lstIdx, ruleIdx, 0, static_cast<uint16_t>(dir)};
  // Another binding of the list in this direction made it: counted once, shared.
  if (aclStatsGetEntry(index) != nullptr) return true;
  AclStatsEntry* s = aclStatsMalloc();
  if (s == nullptr) return false;
  s->lstIdx = lstIdx;
  s->ruleIdx = ruleIdx;
  s->dir = static_cast<int8_t>(dir);
  s->bindOp = op_;
  aclStatsAdd(s);
  return true;
}

bool AclBindStats::giveBackRule(uint32_t lstIdx, uint32_t ruleIdx, uint32_t dir) const {
  const AclStatsIndex index{lstIdx, ruleIdx, 0, static_cast<uint16_t>(dir)};
  AclStatsEntry* s = aclStatsGetEntry(index);
  if (s == nullptr || s->bindOp != op_ || aclStatsDel(index) != 0) return false;
  aclStatsFree(s);
  return true;
}
