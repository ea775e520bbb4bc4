#include "control/acl_slot_show.h"

#include <algorithm>
#include <span>
#include <string>

#include "api/acl_slot_api.h"
#include "control/acl_slot.h"
#include "platform/hwil.h"
#include "platform/proc.h"
#include "wire/acl_slot_names.h"
#include "wire/be.h"

using plat::shellPrintf;

void aclSlotShow() {
  if (!aclStarted()) return;
  // The records change under the event task; the print holds the lock for a consistent view.
  AclLockGuard lock;
  shellPrintf("\r\n--------------------------\r\n");
  for (const AclSlotEntry* s = aclSlotFirst(); s != nullptr; s = aclSlotNext(s)) {
    shellPrintf("sys:%u\r\n", s->sys);
    shellPrintf("slot:%u\r\n", s->slot);
    shellPrintf("chipNum:%u\r\n", s->chipNum);
    shellPrintf("curRuleNum:%u\r\n", s->curRuleNum);
    shellPrintf("maxRuleNum:%u\r\n", s->maxRuleNum);
    shellPrintf("--------------------------\r\n");
    for (uint32_t t = 0; t < ACL_BIND_TYPE_NUM; ++t) {
      shellPrintf("%s:curRuleNum:%u,maxRuleNum:%u\r\n", wire::kSlotBindTypeNames[t].optionKey,
                  s->curSubRuleNum[t], s->maxSubRuleNum[t]);
    }
  }
}

void aclSlotResourceShow(uint32_t sys, uint32_t slot, int32_t flag) {
  uint8_t key[wire::kSlotKeyLen] = {};
  be::store32(key, 0, sys);
  be::store32(key, 4, slot);
  uint8_t buf[wire::kSlotResourceReadLen] = {};
  ZorBufDesc desc{buf, sizeof buf};
  if (aclSlotResourceGetApi(reinterpret_cast<uintptr_t>(key), wire::kSlotResourceCmdRecords,
                            reinterpret_cast<uintptr_t>(&desc)) != 0) {
    shellPrintf("\n\r Get acl slot resource ERROR!\n\r");
    return;
  }
  if (flag == 1) {
    shellPrintf("\n\r%-6s%-6s%-6s%-10s%-10s%-12s%-6s%-6s%-8s%-6s\n\r", "Sys", "Slot", "Chip",
                "TCAM", "Resource", "Stage", "Total", "Used", "Reserve", "Free");
    shellPrintf("%s\n\r", std::string(73, '-').c_str());
  }
  const std::span<const uint8_t> got(buf, desc.len < sizeof buf ? desc.len : sizeof buf);
  for (size_t at = 0; got.size() - at >= wire::kSlotResourceRecordLen;
       at += wire::kSlotResourceRecordLen) {
    const auto r = got.subspan(at, wire::kSlotResourceRecordLen);
    shellPrintf("%-6d%-6d%-6d%-10s%-10s%-12s%-6d%-6d%-8d%-6d\n\r", static_cast<int>(sys),
                static_cast<int>(slot), r[0], wire::slotTcamName(r[1]).data(),
                wire::slotResourceName(r[2]).data(), wire::slotStageName(r[3]).data(),
                static_cast<int>(be::load32(r, 4)), static_cast<int>(be::load32(r, 8)),
                static_cast<int>(be::load32(r, 12)), static_cast<int>(be::load32(r, 16)));
  }
}

void aclSlotResourceShowAll() {
  uint8_t key[wire::kSlotKeyLen] = {};
  uint8_t next[wire::kSlotKeyLen] = {};
  if (aclSlotResourceGetFirst(reinterpret_cast<uintptr_t>(key), 0, 0) != 0) return;
  aclSlotResourceShow(be::load32(key, 0), be::load32(key, 4), 1);
  while (aclSlotResourceGetNext(reinterpret_cast<uintptr_t>(key), reinterpret_cast<uintptr_t>(next),
                                0) == 0) {
    aclSlotResourceShow(be::load32(next, 0), be::load32(next, 4), 0);
    std::copy(std::begin(next), std::end(next), std::begin(key));
  }
}
