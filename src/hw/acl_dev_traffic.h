// The hardware forms of a rule used as a traffic-policy classifier: the match comes from the
// classifier rule, the list, direction and action kind from the policy, and the counter and meter
// from the records the policy built instead of the rule's own references.
#pragma once

#include <cstdint>
#include <span>

struct AclRuleEntry;

// What the policy contributes to the hardware forms.
struct AclTrafficPolicyRule {
  uint32_t lstIdx;
  uint8_t dir;
  uint8_t actionType;
  uint8_t actionEnable;
};

// The statistics template of a statistic policy.
struct AclTrafficCounter {
  uint8_t counterType;
  uint8_t counterColor;
};

// The meter attributes a limit policy read (1, 2, 3, 4, 6, 7, 8, 9 of meterGetApi).
struct AclTrafficMeter {
  uint32_t meterType;
  uint32_t meterMode;
  uint32_t carType;
  uint32_t cir;
  uint32_t pir;
  uint32_t cbs;
  uint32_t ebs;
  uint32_t pbs;
};

constexpr uint32_t ACL_TRAFFIC_TLV_MAX = 304;  // the largest traffic-policy TLV message

// Fills the 508-byte record dev. param: the classifier's 304-byte rule parameter record, filled
// by aclRuleTrans just before. counter and meter may be null. 0, or CMN_ERR_BAD_PARAM when the
// policy, the classifier, the parameter record or the record is missing.
uint32_t aclTrafficDevTrans(const AclTrafficPolicyRule* policy, const AclRuleEntry* classifier,
                            std::span<const uint8_t> param, uint8_t* dev, uint8_t counterShared,
                            uint8_t meterShared, uint16_t priority,
                            const AclTrafficCounter* counter, const AclTrafficMeter* meter);

// Writes the TLV message into buffer (at least ACL_TRAFFIC_TLV_MAX bytes) and its length into
// *length. oper: 2 install, 3 remove. 0, CMN_ERR_BAD_PARAM for a missing argument, or
// CMN_ERR_BUFFER_SHORT when the message would not fit into 304 bytes (nothing is written then).
uint32_t aclTrafficDevTransTlv(const AclTrafficPolicyRule* policy, const AclRuleEntry* classifier,
                               uint8_t oper, uint8_t counterShared, uint8_t meterShared,
                               uint16_t priority, const AclTrafficCounter* counter,
                               const AclTrafficMeter* meter, uint8_t* buffer, uint16_t* length);
