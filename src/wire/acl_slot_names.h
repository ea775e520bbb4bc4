// The slot ledger's vocabulary, shared by the daemon and its clients: the 18 bind types with the
// card option key that sets each one's capacity, the ledger record of slot resource get 1, and the
// labels of the hardware resource records a slot resource read returns.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace wire {

constexpr uint32_t kSlotBindTypes = 18;
constexpr uint32_t kSlotKeyLen = 8;  // {sys u32, slot u32}, big-endian

struct SlotBindType {
  const char* optionKey;  // the card option that sets the capacity
  const char* dir;        // "in", "out", "vfp"
  const char* list;       // "l2", "ipv4", "ipv6", "hybrid", "mpls", "udf"
};

// Bind type n = direction * 6 + column, in this order.
constexpr std::array<SlotBindType, kSlotBindTypes> kSlotBindTypeNames = {{
    {"acl.maxl2inrulenumperslot", "in", "l2"},
    {"acl.maxipv4inrulenumperslot", "in", "ipv4"},
    {"acl.maxipv6inrulenumperslot", "in", "ipv6"},
    {"acl.maxhybridinrulenumperslot", "in", "hybrid"},
    {"acl.maxmplsinrulenumperslot", "in", "mpls"},
    {"acl.maxudfinrulenumperslot", "in", "udf"},
    {"acl.maxl2outrulenumperslot", "out", "l2"},
    {"acl.maxipv4outrulenumperslot", "out", "ipv4"},
    {"acl.maxipv6outrulenumperslot", "out", "ipv6"},
    {"acl.maxhybridoutrulenumperslot", "out", "hybrid"},
    {"acl.maxmplsoutrulenumperslot", "out", "mpls"},
    {"acl.maxudfoutrulenumperslot", "out", "udf"},
    {"acl.maxl2vfprulenumperslot", "vfp", "l2"},
    {"acl.maxipv4vfprulenumperslot", "vfp", "ipv4"},
    {"acl.maxipv6vfprulenumperslot", "vfp", "ipv6"},
    {"acl.maxhybridvfprulenumperslot", "vfp", "hybrid"},
    {"acl.maxmplsvfprulenumperslot", "vfp", "mpls"},
    {"acl.maxudfvfprulenumperslot", "vfp", "udf"},
}};

// Slot resource get (function 73) commands: 0 the card's hardware resource records, 1 the
// daemon's own ledger of the slot.
constexpr uint32_t kSlotResourceCmdRecords = 0;
constexpr uint32_t kSlotResourceCmdLedger = 1;

// The ledger record: chipNum, maxRuleNum, curRuleNum, then per bind type its charged rules and
// its capacity, every field a big-endian u32.
constexpr uint32_t kSlotLedgerChipNum = 0;
constexpr uint32_t kSlotLedgerMaxRuleNum = 4;
constexpr uint32_t kSlotLedgerCurRuleNum = 8;
constexpr uint32_t kSlotLedgerTypes = 12;
constexpr uint32_t kSlotLedgerTypeLen = 8;  // cur u32, max u32
constexpr uint32_t kSlotLedgerLen = kSlotLedgerTypes + kSlotBindTypes * kSlotLedgerTypeLen;

// A hardware resource record: chip, TCAM, resource and stage bytes, then total, used, reserve and
// free as big-endian u32 (unaligned).
constexpr uint32_t kSlotResourceRecordLen = 20;
constexpr uint32_t kSlotResourceReadLen = 512;

constexpr std::string_view slotTcamName(uint8_t tcam) {
  return tcam == 0 ? "INTERNAL" : "EXTERNAL";
}
constexpr std::string_view slotResourceName(uint8_t resource) {
  switch (resource) {
    case 0:
      return "RULE";
    case 1:
      return "METER";
    case 2:
      return "COUNTER";
    case 3:
      return "SLICE";
    default:
      return "DEFAULT";
  }
}
// Stage 1 lies between the pre-ingress and egress stages: the ingress stage proper.
constexpr std::string_view slotStageName(uint8_t stage) {
  switch (stage) {
    case 0:
      return "PREINGRESS";
    case 1:
      return "INGRESS";
    case 2:
      return "EGRESS";
    case 3:
      return "BIDIRECTION";
    default:
      return "DEFAULT";
  }
}

}  // namespace wire
