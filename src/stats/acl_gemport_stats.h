// The GEM port statistics list: one record per counted rule bound to a GEM port (never shared),
// kept sorted by dir, list, rule, GEM port, ONU and interface. The binding code links and unlinks
// the records; the GEM port statistics table reads and clears them.
#pragma once

#include <cstdint>

struct AclStatsEntry;

struct AclGemStatsIndex {
  uint32_t lstIdx;
  uint32_t ruleIdx;
  uint32_t ifIndex;
  uint32_t onuId;
  uint16_t gemPort;
  uint16_t dir;  // compared with the record's signed 8-bit dir after sign extension of both
};

// Links a record whose lstIdx, ruleIdx, ifIndex, onuId, gemPortId and dir are set; 0 also when
// the key exists (the caller then still owns the record it offered).
int32_t aclGemPortStatsEntryAdd(AclStatsEntry* entry);
AclStatsEntry* aclGemPortStatsEntryGet(const AclGemStatsIndex& index);
// Unlinks and zeroes the matching record without freeing it; CMN_ERR_NOT_FOUND when none matches.
int32_t aclGemPortStatsEntryDel(const AclGemStatsIndex& index);

// The counter read and clear of a GEM port record: the interface counter request with the ONU id
// (its low 8 bits) and the GEM port in it, through the PON interface.
int32_t aclGemPortStatsGet(AclStatsEntry* entry);
int32_t aclGemPortStatsReset(AclStatsEntry* entry);
