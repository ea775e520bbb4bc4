// The statistics records of one binding operation, and the answer of a binding whose record could
// not be had. A counted rule needs its record before it goes into the hardware; a binding that
// runs out of records midway is refused as a whole: what it installed comes out again, the
// records it created go back to the pool, and it answers CMN_ERR_NO_RESOURCE. A binding that
// answered 0 with rules missing from the hardware would make every later unbinding remove entries
// that were never there.
//
// Records are shared: a list bound twice in one direction has one record per rule, made by the
// first binding. So the rollback must give back only what this operation created, never a record
// that another binding still counts with. Each operation has its own number, stamped on the
// records it creates (AclStatsEntry::bindOp); giving back checks the stamp.
//
// For the interface and GEM port binding paths: take each counted rule's record through the
// operation's AclBindStats (an interface record, or the shared rule record with its refCnt, goes
// beside takeRule as takeIf / takeGem, with the matching giveBack that also lowers a refCnt the
// operation raised). When a take fails, answer with refuse(), handing it the path's own rollback:
// its removal walk from the rule below the failing one down (the failing rule never reached the
// hardware), giving back the record of every rule it takes out or passes over, releasing the
// next-hop registrations as the path's last-binding rule says, and stopping at a removal the
// hardware refuses (rules left in the hardware keep their records). Bind slot and refCnt stay
// untouched: the caller changes them only after a binding answered 0.
#pragma once

#include <cstdint>

#include "main/acl_log.h"
#include "wire/acl_ret.h"

class AclBindStats {
 public:
  AclBindStats();
  AclBindStats(const AclBindStats&) = delete;
  AclBindStats& operator=(const AclBindStats&) = delete;

  // The rule statistics record (dir, list, rule) of a counted rule: an existing one is used as
  // it is, a missing one is created, linked and stamped with this operation. False when the pool
  // is exhausted.
  bool takeRule(uint32_t lstIdx, uint32_t ruleIdx, uint32_t dir) const;
  // Unlinks and frees the rule statistics record of (dir, list, rule) when this operation created
  // it; a record another binding made stays. True when one was given back.
  bool giveBackRule(uint32_t lstIdx, uint32_t ruleIdx, uint32_t dir) const;

  // The refusal of the binding: logs failure (a printf format of the path's own failure line
  // with the list index, class ACL_LOG_GLOBAL or the path's class), runs rollback() and answers
  // CMN_ERR_NO_RESOURCE.
  template <typename Rollback>
  int32_t refuse(uint32_t logClass, const char* failure, uint32_t lstIdx,
                 Rollback&& rollback) const {
    aclDebug(logClass, failure, static_cast<int>(lstIdx));
    rollback();
    return CMN_ERR_NO_RESOURCE;
  }

  uint32_t op() const { return op_; }

 private:
  uint32_t op_;
};
