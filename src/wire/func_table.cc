#include "wire/func_table.h"

namespace wire {

namespace {

using enum FuncShape;

// Key widths of the families whose key travels by address.
constexpr uint8_t kRuleKey = 12;
constexpr uint8_t kIfListKey = 20;
constexpr uint8_t kStatsIndex = 28;
constexpr uint8_t kSlotKey = 8;
constexpr uint8_t kGemPortListKey = 24;
constexpr uint8_t kGemPortKey = 12;

constexpr FuncInfo scalar(uint32_t id, std::string_view name, FuncShape shape) {
  return {id, name, shape, KeyKind::None, 0};
}
constexpr FuncInfo byValue(uint32_t id, std::string_view name, FuncShape shape) {
  return {id, name, shape, KeyKind::Value, 4};
}
constexpr FuncInfo byAddr(uint32_t id, std::string_view name, FuncShape shape, uint8_t width) {
  return {id, name, shape, KeyKind::Bytes, width};
}
constexpr FuncInfo empty(uint32_t id) {
  return {id, {}, Empty, KeyKind::None, 0};
}

constexpr std::array<FuncInfo, kFuncCount> kFuncs = {
    empty(0),
    scalar(1, "aclScalarGetApi", Get),
    scalar(2, "aclScalarSetApi", Set),
    scalar(3, "aclScalarSyncApi", Sync),
    byValue(4, "aclLstGetFirst", GetFirst),
    byValue(5, "aclLstGetNext", GetNext),
    byValue(6, "aclLstGetApi", Get),
    byValue(7, "aclLstSetApi", Set),
    byValue(8, "aclLstSyncApi", Sync),
    byAddr(9, "aclRuleGetFirst", GetFirst, kRuleKey),
    byAddr(10, "aclRuleGetNext", GetNext, kRuleKey),
    byAddr(11, "aclRuleGetApi", Get, kRuleKey),
    byAddr(12, "aclRuleSetApi", Set, kRuleKey),
    byAddr(13, "aclRuleSyncApi", Sync, kRuleKey),
    byAddr(14, "aclIfLstGetFirst", GetFirst, kIfListKey),
    byAddr(15, "aclIfLstGetNext", GetNext, kIfListKey),
    byValue(16, "aclIfGetFirst", GetFirst),
    byValue(17, "aclIfGetNext", GetNext),
    byValue(18, "aclIfGetApi", Get),
    byValue(19, "aclIfSetApi", Set),
    byValue(20, "aclIfSyncApi", Sync),
    byAddr(21, "aclStatsGetFirst", GetFirst, kStatsIndex),
    byAddr(22, "aclStatsGetNext", GetNext, kStatsIndex),
    byAddr(23, "aclStatsGetApi", Get, kStatsIndex),
    byAddr(24, "aclStatsSetApi", Set, kStatsIndex),
    byAddr(25, "aclStatsSyncApi", Sync, kStatsIndex),
    byAddr(26, "aclIfStatsGetFirst", GetFirst, kStatsIndex),
    byAddr(27, "aclIfStatsGetNext", GetNext, kStatsIndex),
    byAddr(28, "aclIfStatsGetApi", Get, kStatsIndex),
    byAddr(29, "aclIfStatsSetApi", Set, kStatsIndex),
    byAddr(30, "aclIfStatsSyncApi", Sync, kStatsIndex),
    empty(31),
    empty(32),
    empty(33),
    empty(34),
    empty(35),
    empty(36),
    empty(37),
    empty(38),
    empty(39),
    empty(40),
    empty(41),
    empty(42),
    empty(43),
    empty(44),
    byValue(45, "aclFreeIdxToIndex", IndexConv),
    byValue(46, "aclIndexToFreeIdx", IndexConv),
    empty(47),
    byAddr(48, "aclSlotSetApi", Set, kSlotKey),
    byAddr(49, "aclSlotSyncApi", Sync, kSlotKey),
    scalar(50, "meterScalarGetApi", Get),
    scalar(51, "meterScalarSetApi", Set),
    scalar(52, "meterScalarSyncApi", Sync),
    byValue(53, "meterGetFirst", GetFirst),
    byValue(54, "meterGetNext", GetNext),
    byValue(55, "meterGetApi", Get),
    byValue(56, "meterSetApi", Set),
    byValue(57, "meterSyncApi", Sync),
    byValue(58, "meterProfileGetFirst", GetFirst),
    byValue(59, "meterProfileGetNext", GetNext),
    byValue(60, "meterProfileGetApi", Get),
    byValue(61, "meterProfileSetApi", Set),
    byValue(62, "meterProfileSyncApi", Sync),
    scalar(63, "counterScalarGetApi", Get),
    scalar(64, "counterScalarSetApi", Set),
    scalar(65, "counterScalarSyncApi", Sync),
    byValue(66, "counterGetFirst", GetFirst),
    byValue(67, "counterGetNext", GetNext),
    byValue(68, "counterGetApi", Get),
    byValue(69, "counterSetApi", Set),
    byValue(70, "counterSyncApi", Sync),
    byAddr(71, "aclSlotResourceGetFirst", GetFirst, kSlotKey),
    byAddr(72, "aclSlotResourceGetNext", GetNext, kSlotKey),
    byAddr(73, "aclSlotResourceGetApi", Get, kSlotKey),
    empty(74),
    byAddr(75, "aclGemPortLstGetFirst", GetFirst, kGemPortListKey),
    byAddr(76, "aclGemPortLstGetNext", GetNext, kGemPortListKey),
    byAddr(77, "aclGemPortGetFirst", GetFirst, kGemPortKey),
    byAddr(78, "aclGemPortGetNext", GetNext, kGemPortKey),
    byAddr(79, "aclGemPortGetApi", Get, kGemPortKey),
    byAddr(80, "aclGemPortSetApi", Set, kGemPortKey),
    byAddr(81, "aclGemPortSyncApi", Sync, kGemPortKey),
    byAddr(82, "aclGemPortStatsGetFirst", GetFirst, kStatsIndex),
    byAddr(83, "aclGemPortStatsGetNext", GetNext, kStatsIndex),
    byAddr(84, "aclGemPortStatsGetApi", Get, kStatsIndex),
    byAddr(85, "aclGemPortStatsSetApi", Set, kStatsIndex),
    byAddr(86, "aclGemPortStatsSyncApi", Sync, kStatsIndex),
};

// The position of every entry is its id; a slip in the table above breaks the build.
constexpr bool idsMatchPositions() {
  for (uint32_t i = 0; i < kFuncCount; ++i) {
    if (kFuncs[i].id != i) return false;
  }
  return true;
}
static_assert(idsMatchPositions());

// Every named id names its own entry.
#define ACL_FID_NAMES_ITS_ENTRY(n) static_assert(kFuncs[fid::n].name == #n);
ACL_FID_NAMES_ITS_ENTRY(aclScalarGetApi)
ACL_FID_NAMES_ITS_ENTRY(aclScalarSetApi)
ACL_FID_NAMES_ITS_ENTRY(aclScalarSyncApi)
ACL_FID_NAMES_ITS_ENTRY(aclLstGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclLstGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclLstGetApi)
ACL_FID_NAMES_ITS_ENTRY(aclLstSetApi)
ACL_FID_NAMES_ITS_ENTRY(aclLstSyncApi)
ACL_FID_NAMES_ITS_ENTRY(aclRuleGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclRuleGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclRuleGetApi)
ACL_FID_NAMES_ITS_ENTRY(aclRuleSetApi)
ACL_FID_NAMES_ITS_ENTRY(aclRuleSyncApi)
ACL_FID_NAMES_ITS_ENTRY(aclIfLstGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclIfLstGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclIfGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclIfGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclIfGetApi)
ACL_FID_NAMES_ITS_ENTRY(aclIfSetApi)
ACL_FID_NAMES_ITS_ENTRY(aclIfSyncApi)
ACL_FID_NAMES_ITS_ENTRY(aclStatsGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclStatsGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclStatsGetApi)
ACL_FID_NAMES_ITS_ENTRY(aclStatsSetApi)
ACL_FID_NAMES_ITS_ENTRY(aclStatsSyncApi)
ACL_FID_NAMES_ITS_ENTRY(aclIfStatsGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclIfStatsGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclIfStatsGetApi)
ACL_FID_NAMES_ITS_ENTRY(aclIfStatsSetApi)
ACL_FID_NAMES_ITS_ENTRY(aclIfStatsSyncApi)
ACL_FID_NAMES_ITS_ENTRY(aclFreeIdxToIndex)
ACL_FID_NAMES_ITS_ENTRY(aclIndexToFreeIdx)
ACL_FID_NAMES_ITS_ENTRY(aclSlotSetApi)
ACL_FID_NAMES_ITS_ENTRY(aclSlotSyncApi)
ACL_FID_NAMES_ITS_ENTRY(meterScalarGetApi)
ACL_FID_NAMES_ITS_ENTRY(meterScalarSetApi)
ACL_FID_NAMES_ITS_ENTRY(meterScalarSyncApi)
ACL_FID_NAMES_ITS_ENTRY(meterGetFirst)
ACL_FID_NAMES_ITS_ENTRY(meterGetNext)
ACL_FID_NAMES_ITS_ENTRY(meterGetApi)
ACL_FID_NAMES_ITS_ENTRY(meterSetApi)
ACL_FID_NAMES_ITS_ENTRY(meterSyncApi)
ACL_FID_NAMES_ITS_ENTRY(meterProfileGetFirst)
ACL_FID_NAMES_ITS_ENTRY(meterProfileGetNext)
ACL_FID_NAMES_ITS_ENTRY(meterProfileGetApi)
ACL_FID_NAMES_ITS_ENTRY(meterProfileSetApi)
ACL_FID_NAMES_ITS_ENTRY(meterProfileSyncApi)
ACL_FID_NAMES_ITS_ENTRY(counterScalarGetApi)
ACL_FID_NAMES_ITS_ENTRY(counterScalarSetApi)
ACL_FID_NAMES_ITS_ENTRY(counterScalarSyncApi)
ACL_FID_NAMES_ITS_ENTRY(counterGetFirst)
ACL_FID_NAMES_ITS_ENTRY(counterGetNext)
ACL_FID_NAMES_ITS_ENTRY(counterGetApi)
ACL_FID_NAMES_ITS_ENTRY(counterSetApi)
ACL_FID_NAMES_ITS_ENTRY(counterSyncApi)
ACL_FID_NAMES_ITS_ENTRY(aclSlotResourceGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclSlotResourceGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclSlotResourceGetApi)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortLstGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortLstGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortGetApi)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortSetApi)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortSyncApi)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortStatsGetFirst)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortStatsGetNext)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortStatsGetApi)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortStatsSetApi)
ACL_FID_NAMES_ITS_ENTRY(aclGemPortStatsSyncApi)
#undef ACL_FID_NAMES_ITS_ENTRY

}  // namespace

const FuncInfo& funcInfo(uint32_t id) {
  return id < kFuncCount ? kFuncs[id] : kFuncs[0];
}

const FuncInfo* funcByName(std::string_view name) {
  if (name.empty()) return nullptr;
  for (const auto& f : kFuncs) {
    if (f.name == name) return &f;
  }
  return nullptr;
}

std::span<const FuncInfo> funcTable() {
  return kFuncs;
}

std::string_view shapeName(FuncShape shape) {
  switch (shape) {
    case Empty:
      return "empty";
    case Get:
      return "get";
    case Set:
      return "set";
    case Sync:
      return "sync";
    case GetFirst:
      return "getfirst";
    case GetNext:
      return "getnext";
    case IndexConv:
      return "indexconv";
  }
  return "?";
}

}  // namespace wire
