// Byte layouts of the rule forms the ACL module hands to the hardware layer: the 508-byte hardware
// rule record, the TLV message and the 64-byte options record of a rule command. Both sides of the
// hardware boundary read these offsets from here (the translation writes them, the virtual device
// decodes them), so a layout is defined exactly once. All numbers are big-endian.
#pragma once

#include <cstdint>

namespace acldev {

// Hardware rule record.
constexpr uint32_t kRecLen = 508;
constexpr uint32_t kProtoType = 0;       // u16
constexpr uint32_t kProtoSubType = 2;    // u16
constexpr uint32_t kSrcAddr = 4;         // 16 bytes
constexpr uint32_t kDestAddr = 20;       // 16 bytes
constexpr uint32_t kSrcStrPrefix = 36;   // 16 bytes
constexpr uint32_t kDestStrPrefix = 52;  // 16 bytes
constexpr uint32_t kAddrLen = 16;
constexpr uint32_t kSrcPrefix = 68;        // u8
constexpr uint32_t kDestPrefix = 69;       // u8
constexpr uint32_t kEncapType = 70;        // u8
constexpr uint32_t kLayerType = 71;        // u8
constexpr uint32_t kIpVer = 72;            // u8
constexpr uint32_t kTcpFsm = 73;           // u8
constexpr uint32_t kSrcPort = 74;          // u16, also the ICMP type
constexpr uint32_t kSrcEndPort = 76;       // u16
constexpr uint32_t kDestPort = 78;         // u16, also the ICMP code
constexpr uint32_t kDestEndPort = 80;      // u16
constexpr uint32_t kIpTtl = 82;            // u8, also the hop limit
constexpr uint32_t kTosDscp = 83;          // u8, also the traffic class
constexpr uint32_t kIpOptions = 84;        // u8
constexpr uint32_t kIpFrag = 85;           // u8
constexpr uint32_t kFlowLabel = 88;        // u32
constexpr uint32_t kNextHeader = 92;       // u8
constexpr uint32_t kFragFlag = 93;         // u8
constexpr uint32_t kUserDataNum = 94;      // u8
constexpr uint32_t kOperators = 95;        // u8
constexpr uint32_t kUserData = 96;         // 4 x u32
constexpr uint32_t kUserDataMask = 112;    // 4 x u32
constexpr uint32_t kUserDataOffset = 128;  // 4 x u32
constexpr uint32_t kUserDataCount = 4;
constexpr uint32_t kSrcMac = 144;        // 6 bytes
constexpr uint32_t kSrcMacPrefix = 150;  // u8
constexpr uint32_t kDestMac = 151;       // 6 bytes
constexpr uint32_t kDstMacPrefix = 157;  // u8
constexpr uint32_t kMacLen = 6;
constexpr uint32_t kDtag = 158;             // u8
constexpr uint32_t kInnerDot1p = 159;       // u8
constexpr uint32_t kOuterDot1p = 160;       // u8
constexpr uint32_t kSrcMacStrPrefix = 162;  // 6 bytes
constexpr uint32_t kDstMacStrPrefix = 168;  // 6 bytes
constexpr uint32_t kOuterVid = 174;         // u16
constexpr uint32_t kOuterEndVid = 176;      // u16
constexpr uint32_t kInnerVid = 178;         // u16
constexpr uint32_t kInnerEndVid = 180;      // u16
constexpr uint32_t kEthType = 182;          // u16
constexpr uint32_t kApp = 184;              // u16
constexpr uint32_t kStatusBit = 186;        // u16
constexpr uint32_t kStatusBitMask = 188;    // u16
constexpr uint32_t kMplsExp = 190;          // 4 x u8
constexpr uint32_t kMplsLabel = 196;        // 4 x u32
constexpr uint32_t kMplsCount = 4;
constexpr uint32_t kBits = 212;  // 12 bytes: the field bit set
constexpr uint32_t kBitsLen = 12;
constexpr uint32_t kAction = 224;  // 8 bytes: the in-action bit set
constexpr uint32_t kActionLen = 8;
constexpr uint32_t kActionParam = 232;  // 44 x u32
constexpr uint32_t kActionParamWords = 44;
constexpr uint32_t kOutAction = 408;  // 2 bytes: the out-action bit set
constexpr uint32_t kOutActionLen = 2;
constexpr uint32_t kActionType = 410;      // u8
constexpr uint32_t kActionEnable = 411;    // u8
constexpr uint32_t kOutActionParam = 412;  // 6 x u32
constexpr uint32_t kOutActionParamWords = 6;
constexpr uint32_t kCounterShared = 436;  // u8
constexpr uint32_t kCounterType = 437;    // u8
constexpr uint32_t kCounterColor = 438;   // u8
constexpr uint32_t kMeterShared = 439;    // u8
constexpr uint32_t kCir = 440;            // u32
constexpr uint32_t kPir = 444;            // u32
constexpr uint32_t kCbs = 448;            // u32
constexpr uint32_t kEbs = 452;            // u32
constexpr uint32_t kPbs = 456;            // u32
constexpr uint32_t kMeterType = 460;      // u8
constexpr uint32_t kMeterMode = 461;      // u8
constexpr uint32_t kCarType = 462;        // u8
constexpr uint32_t kOper = 466;           // u8: 1 install, 2 remove (traffic policies only)
constexpr uint32_t kDir = 467;            // u8
constexpr uint32_t kOnuId = 468;          // u16
constexpr uint32_t kGemPort = 470;        // u16
constexpr uint32_t kGemPortVp = 472;      // u32
constexpr uint32_t kLstIdx = 476;         // u32
constexpr uint32_t kRuleIdx = 480;        // u32
constexpr uint32_t kPriority = 484;       // u16
constexpr uint32_t kAggIfIndex = 488;     // u32
constexpr uint32_t kActiveRuleNum = 492;  // u32
constexpr uint32_t kVxlanVni = 496;       // u32
constexpr uint32_t kVxlanFlag = 500;      // u8
constexpr uint32_t kVxlanTag = 501;       // u8
constexpr uint32_t kVxlanTransit = 502;   // u8
constexpr uint32_t kVxlanBum = 503;       // u8
constexpr uint32_t kUntagged = 504;       // u8

// TLV message: a 36-byte header, then the rule section and the action section, each a u16 length
// that counts itself followed by items (u8 type, u8 length, that many bytes), packed.
constexpr uint32_t kTlvBufLen = 512;
constexpr uint32_t kTlvHeaderLen = 36;
constexpr uint32_t kTlvOperators = 0;     // u8
constexpr uint32_t kTlvOper = 1;          // u8: 0 install, 1 remove; 2, 3 from traffic policies
constexpr uint32_t kTlvActionType = 2;    // u8
constexpr uint32_t kTlvActionEnable = 3;  // u8
constexpr uint32_t kTlvCounterShared = 4;
constexpr uint32_t kTlvMeterShared = 5;
constexpr uint32_t kTlvDir = 6;
constexpr uint32_t kTlvLayerType = 7;
constexpr uint32_t kTlvOnuId = 8;           // u16
constexpr uint32_t kTlvGemPort = 10;        // u16
constexpr uint32_t kTlvGemPortVp = 12;      // u32
constexpr uint32_t kTlvLstIdx = 16;         // u32
constexpr uint32_t kTlvRuleIdx = 20;        // u32
constexpr uint32_t kTlvAggIfIndex = 24;     // u32
constexpr uint32_t kTlvActiveRuleNum = 28;  // u32
constexpr uint32_t kTlvPriority = 32;       // u16
constexpr uint32_t kTlvBufferLen = 34;      // u16: ruleLen + actionLen
constexpr uint32_t kTlvSectionLenLen = 2;   // each section's own length word
constexpr uint32_t kTlvItemHeaderLen = 2;   // type and length of an item

// Options record of a rule command.
constexpr uint32_t kOptLen = 64;
constexpr uint32_t kOptMode = 0;                // u32
constexpr uint32_t kOptWord1 = 4;               // u32
constexpr uint32_t kOptWord2 = 8;               // u32
constexpr uint32_t kOptUnit = 12;               // u32
constexpr uint32_t kOptDataLen = 16;            // u32
constexpr uint32_t kOptTarget = 28;             // the caller's target bytes 28..63
constexpr uint32_t kOptTlvMode = 0x80000000u;   // data is a descriptor
constexpr uint32_t kOptUnitMode = 0x10000000u;  // the command aims at one unit

}  // namespace acldev
