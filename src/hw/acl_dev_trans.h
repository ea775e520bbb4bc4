// Translation of a rule into the forms the hardware layer takes: the 508-byte hardware rule record
// (`acl_dev`) and the TLV message, both big-endian byte layouts (wire/acl_dev_layout.h), and their
// debug dumps. None of these take the ACL lock: every caller already holds it.
#pragma once

#include <cstdint>
#include <span>

struct AclRuleEntry;

constexpr uint32_t ACL_DEV_RECORD_LEN = 508;
constexpr uint32_t ACL_DEV_TLV_BUF_LEN = 512;
constexpr uint32_t ACL_DEV_DEBUG_FLAG = 0x20;  // debugFlags bit of the hardware dumps

// Fills the 508-byte big-endian record dev for rule. 0, or CMN_ERR_BAD_PARAM when the rule or the
// record is missing.
uint32_t aclDevTrans(const AclRuleEntry* rule, uint8_t* dev, uint8_t dir, uint8_t counterShared,
                     uint8_t meterShared, uint16_t priority, uint16_t onuId, uint16_t gemPort,
                     uint32_t gemPortVp);

// The words of a record that come from the binding rather than the rule. aggIfIndex and
// activeRuleNum are written by aclDevTransView only (0 for a command that does not carry them).
struct AclDevWords {
  uint8_t dir = 0, counterShared = 0, meterShared = 0;
  uint16_t priority = 0, onuId = 0, gemPort = 0;
  uint32_t gemPortVp = 0;
  uint32_t aggIfIndex = 0, activeRuleNum = 0;
};

// The record of aclDevTrans with the aggregation and active-rule words of w, without copying it
// out: a pointer to the record kept for the rule, with w written into it, or to scratch (508
// bytes, filled then) when the rule's record is not kept. The record stays valid until the next
// translation, which every caller makes under the ACL lock. nullptr when the rule or scratch is
// missing.
const uint8_t* aclDevTransView(const AclRuleEntry* rule, uint8_t* scratch, const AclDevWords& w);

// Writes the TLV message for rule into buffer (at least ACL_DEV_TLV_BUF_LEN bytes) and its total
// length into *length. 0, or CMN_ERR_BAD_PARAM when the rule, the buffer or the length is missing;
// CMN_ERR_BUFFER_SHORT when the rule's items do not fit into the 512 bytes (nothing is sent then:
// a rule cut short would match other packets than the one configured).
uint32_t aclDevTransNew(const AclRuleEntry* rule, uint8_t dir, uint8_t oper, uint8_t counterShared,
                        uint8_t meterShared, uint16_t priority, uint32_t aggIfIndex,
                        uint32_t activeRuleNum, uint16_t onuId, uint16_t gemPort,
                        uint32_t gemPortVp, uint8_t* buffer, uint16_t* length);

// Debug dumps of the two forms (class 4), written only when debugFlags has ACL_DEV_DEBUG_FLAG.
// A dump reads at most the bytes it is given.
void aclDevPrintf(std::span<const uint8_t> dev);
void aclTlvPrintf(std::span<const uint8_t> buffer, uint32_t length);

// Parts the traffic-policy forms share with aclDevTrans: the bit sets and parameter words of the
// rule's actions, and the rule's CAR value when it has one.
void aclDevActionFill(const AclRuleEntry* rule, std::span<uint8_t> dev);
