// The ACL group and the start-up that builds it.
#include "main/acl_group.h"

#include <atomic>
#include <cstddef>
#include <cstring>

#include "api/acl_func_map.h"
#include "control/acl_slot.h"
#include "control/acl_slot_index.h"
#include "counter/counter.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if_record.h"
#include "hw/acl_policy.h"
#include "main/acl_log.h"
#include "main/acl_pools.h"
#include "main/acl_task.h"
#include "main/opt_read.h"
#include "meter/meter.h"
#include "platform/cmd_server.h"
#include "platform/hwil.h"
#include "platform/proc.h"
#include "platform/rtbus.h"
#include "services/acl_blacklist_record.h"
#include "services/acl_traffic_policy.h"
#include "store/acl_list.h"
#include "wire/be.h"

AclGroup gaclGrp;

static_assert(sizeof(AclListEntry) <= ACL_LIST_ENTRY_SIZE, "list record outgrew its pool entry");

namespace {

constexpr uint32_t kDefaultMaxLstNum = 64;
constexpr uint32_t kDefaultMaxLstRuleNum = 128;
constexpr uint32_t kDefaultMaxGruleNum = 1024;
constexpr uint32_t kDefaultMaxIfNum = 28;
constexpr uint32_t kDefaultMaxGemPortNum = 128;
constexpr uint32_t kDefaultMaxSlotNum = 288;
constexpr uint32_t kDefaultCarMin = 1000;
constexpr uint32_t kDefaultCarMax = 1024000;
constexpr uint32_t kMSemOptions = 13;
constexpr uint32_t kScalarModuleNum = 499;

uint32_t orDefault(uint32_t value, uint32_t def) { return value != 0 ? value : def; }

void createTrees() {
  aclSlotIndexClear();
  dlist::init(&gaclGrp.statsList);
  dlist::init(&gaclGrp.ifStatsList);
  dlist::init(&gaclGrp.gemPortStatsList);
  avl_create(&gaclGrp.ifListTree, aclIfListCmp, sizeof(AclIfListEntry),
             offsetof(AclIfListEntry, node));
  avl_create(&gaclGrp.ifTree, aclIfCompare, sizeof(AclIfEntry), offsetof(AclIfEntry, node));
  avl_create(&gaclGrp.listTree, aclListCompare, sizeof(AclListEntry), offsetof(AclListEntry, node));
  avl_create(&gaclGrp.gemPortListTree, aclGemPortListCmp, sizeof(AclGemPortListEntry),
             offsetof(AclGemPortListEntry, node));
  avl_create(&gaclGrp.gemPortTree, aclGemPortCmp, sizeof(AclGemPortEntry),
             offsetof(AclGemPortEntry, node));
  avl_create(&gaclGrp.blackListTree, aclBlackListCmp, sizeof(AclBlackListEntry),
             offsetof(AclBlackListEntry, node));
}

void destroyTrees() {
  // The slot accounting's index files the bind trees' entries; it goes with them.
  aclSlotIndexClear();
  for (avl_tree_t* t : {&gaclGrp.ifListTree, &gaclGrp.ifTree, &gaclGrp.listTree,
                        &gaclGrp.gemPortListTree, &gaclGrp.gemPortTree, &gaclGrp.blackListTree}) {
    if (t->compar != nullptr) avl_destroy(t);
  }
}

struct PoolSpec {
  SIL_POOL_ID AclGroup::*pool;
  const char* name;
  uint64_t entries;
  uint32_t entrySize;
  int indexed;
  void (*after)();  // what is built right after this pool
};

// Everything the group holds, released in any state of construction, then the group cleared.
void releaseGroup() {
  destroyTrees();
  // Timers live in pool records (a list's next-hop retry): unlinked while their memory is there.
  silTimerListDestroy(&gaclGrp.timerList);
  for (SIL_POOL_ID* p :
       {&gaclGrp.listPool, &gaclGrp.grulePool, &gaclGrp.rulePool, &gaclGrp.ifPool,
        &gaclGrp.statsPool, &gaclGrp.ifListPool, &gaclGrp.gemPortPool, &gaclGrp.gemPortListPool,
        &gaclGrp.blackListPool, &gaclGrp.slotPool, &gaclGrp.dstIpPool, &gaclGrp.dstIpRulePool,
        &gaclGrp.shortRulePool, &gaclGrp.longRulePool, &gaclGrp.shortActionPool,
        &gaclGrp.longActionPool}) {
    if (*p != nullptr) silMemPoolDestroy(p);
  }
  if (gaclGrp.aclMutex != 0) silDeleteSem(gaclGrp.aclMutex);
  // sockFd is 0 until the socket step sets it to -1 and opens it; 0 is not ours to close.
  if (gaclGrp.sockFd != 0) {
    if (gaclGrp.sockFd > 0) zor_close(gaclGrp.sockFd);
    gaclGrp.sockFd = -1;
  }
  std::memset(&gaclGrp, 0, sizeof gaclGrp);
}

}  // namespace

bool aclOptRead(aclOptParams* p) {
  std::memset(p, 0, sizeof *p);
  OptText buf;
  if (optText("acl.enable", buf) && optFirstIs(buf, 'f')) return false;

  struct NumberOption {
    const char* key;
    uint32_t aclOptParams::*field;
  };
  static constexpr NumberOption kNumbers[] = {
      {"acl.maxlstnum", &aclOptParams::maxLstNum},
      {"acl.maxrulenum", &aclOptParams::maxLstRuleNum},
      {"acl.maxgrulenum", &aclOptParams::maxGruleNum},
      {"acl.maxifnum", &aclOptParams::maxIfNum},
      {"acl.maxgemportnum", &aclOptParams::maxGemPortNum},
      {"acl.maxslotnum", &aclOptParams::maxSlotNum},
      {"acl.carmin", &aclOptParams::carMin},
      {"acl.carmax", &aclOptParams::carMax},
  };
  for (const auto& o : kNumbers) {
    if (optText(o.key, buf)) p->*o.field = optNumber(buf);
  }
  if (optText("acl.dynamicbindenable", buf)) p->dynamicBindEnable = optFirstIs(buf, 't') ? 1 : 0;
  if (optText("acl.multiredirectenable", buf)) p->redirectMultiEnable = optFirstIs(buf, 'f') ? 0 : 1;

  static constexpr const char* kTypeMaxKeys[ACL_LIST_TYPE_COLUMNS] = {
      "acl.maxl2rulenum",     "acl.maxipv4rulenum", "acl.maxipv6rulenum",
      "acl.maxhybridrulenum", "acl.maxmplsrulenum", "acl.maxudfrulenum"};
  for (uint32_t i = 0; i < ACL_LIST_TYPE_COLUMNS; ++i) {
    if (optText(kTypeMaxKeys[i], buf)) p->maxRuleNum[i] = static_cast<uint16_t>(optNumber(buf));
  }
  if (optText("acl.tlvenable", buf)) p->tlvEnable = optFirstIs(buf, 't') ? 1 : 0;
  if (optText("acl.ethsubifenable", buf)) p->ethSubIfEnable = optFirstIs(buf, 't') ? 1 : 0;
  return true;
}

int32_t aclOptInit() {
  aclOptParams params;
  if (!aclOptRead(&params)) return -1;
  return aclInit(&params);
}

int32_t aclInit(const aclOptParams* p) {
  AclGroup& g = gaclGrp;
  g.maxLstNum = orDefault(p->maxLstNum, kDefaultMaxLstNum);
  g.maxLstRuleNum = orDefault(p->maxLstRuleNum, kDefaultMaxLstRuleNum);
  g.maxGruleNum = orDefault(p->maxGruleNum, kDefaultMaxGruleNum);
  g.maxIfNum = orDefault(p->maxIfNum, kDefaultMaxIfNum);
  g.maxGemPortNum = orDefault(p->maxGemPortNum, kDefaultMaxGemPortNum);
  g.maxSlotNum = orDefault(p->maxSlotNum, kDefaultMaxSlotNum);
  g.carMin = orDefault(p->carMin, kDefaultCarMin);
  g.carMax = orDefault(p->carMax, kDefaultCarMax);
  g.curLstNum = 0;
  g.debugFlags = ACL_DEBUG_STARTUP;
  g.maxBlackListNum = ACL_BLACKLIST_NUM;
  for (uint32_t i = 0; i < ACL_LIST_TYPE_COLUMNS; ++i) {
    g.ruleNum[i].cur = 0;
    g.ruleNum[i].max = p->maxRuleNum[i] != 0 ? p->maxRuleNum[i]
                                             : static_cast<uint16_t>(g.maxLstRuleNum);
  }
  g.dynamicBindEnable = static_cast<uint8_t>(p->dynamicBindEnable);
  g.redirectMultiEnable = static_cast<uint8_t>(p->redirectMultiEnable);
  g.tlvEnable = p->tlvEnable;
  g.ethSubIfEnable = p->ethSubIfEnable;

  g.aclMutex = silCreateMSem(kMSemOptions);
  if (g.aclMutex == 0) {
    aclDebugStyled(ACL_DEBUG_STARTUP, ACL_LOG_API, ACL_LOG_STYLE_LINE,
                   "ACL init error.(Reason=[create mutex error])\r\n");
    releaseGroup();
    return -1;
  }

  const uint64_t grules = g.maxGruleNum;
  const PoolSpec pools[] = {
      {&AclGroup::listPool, "acl_list", g.maxLstNum, ACL_LIST_ENTRY_SIZE, 0, nullptr},
      {&AclGroup::grulePool, "acl_grule", grules, ACL_GRULE_ENTRY_SIZE, 1, nullptr},
      {&AclGroup::rulePool, "acl_rule", grules, ACL_RULE_ENTRY_SIZE, 0, nullptr},
      {&AclGroup::ifPool, "acl_if", g.maxIfNum, ACL_IF_ENTRY_SIZE, 0, nullptr},
      {&AclGroup::statsPool, "acl_stats", grules, ACL_STATS_ENTRY_SIZE, 0, nullptr},
      {&AclGroup::ifListPool, "acl_iflist",
       uint64_t{g.maxIfNum} * g.maxLstRuleNum * ACL_BIND_TYPE_NUM, ACL_IFLIST_ENTRY_SIZE, 0,
       nullptr},
      {&AclGroup::gemPortPool, "acl_onuport", g.maxGemPortNum, ACL_GEMPORT_ENTRY_SIZE, 0, nullptr},
      {&AclGroup::gemPortListPool, "acl_onuportlist", uint64_t{g.maxGemPortNum} * ACL_BIND_TYPE_NUM,
       ACL_GEMPORTLIST_ENTRY_SIZE, 0, nullptr},
      {&AclGroup::blackListPool, "acl_blacklist", g.maxBlackListNum, ACL_BLACKLIST_ENTRY_SIZE, 0,
       createTrees},
      {&AclGroup::slotPool, "acl_slot", g.maxSlotNum, ACL_SLOT_ENTRY_SIZE, 0,
       [] {
         dlist::init(&gaclGrp.slotList);
         aclSlotEntrySelfAdd();
       }},
      {&AclGroup::dstIpPool, "acl_dstip", ACL_DSTIP_NUM, ACL_DSTIP_ENTRY_SIZE, 0,
       [] { dlist::init(&gaclGrp.dstIpList); }},
      {&AclGroup::dstIpRulePool, "acl_dstiprule", ACL_DSTIP_NUM, ACL_DSTIPRULE_ENTRY_SIZE, 0,
       [] { dlist::init(&gaclGrp.dstIpRuleList); }},
      {&AclGroup::shortRulePool, "acl_shortrule", grules * 10, ACL_SHORT_ENTRY_SIZE, 0, nullptr},
      {&AclGroup::longRulePool, "acl_longrule", grules * 4, ACL_LONG_ENTRY_SIZE, 0, nullptr},
      {&AclGroup::shortActionPool, "acl_shortaction", grules * 10, ACL_SHORT_ENTRY_SIZE, 0,
       nullptr},
      {&AclGroup::longActionPool, "acl_longaction", grules * 4, ACL_LONG_ENTRY_SIZE, 0, nullptr},
  };
  for (const PoolSpec& want : pools) {
    // A size that does not fit the platform's 32-bit entry count is a pool that cannot be made.
    if (want.entries > UINT32_MAX ||
        silMemPoolInit(&(g.*want.pool), want.name, static_cast<uint32_t>(want.entries),
                       want.entrySize, want.indexed) != 0) {
      releaseGroup();
      return -1;
    }
    if (want.after) want.after();
  }

  if (silTimerListInit(&g.timerList) != 0) {
    releaseGroup();
    return -1;
  }

  g.sockFd = -1;
  if (aclSocketInit() != 0) {
    releaseGroup();
    return -1;
  }

  uint64_t taskId = 0;
  if (silCreateTask("acltask", 75, 0x10000, aclTask, 0, 0, &taskId) != 0) {
    releaseGroup();
    return -1;
  }

  icmProcTcpInit("aclcmdtask", ACL_CMD_SOCKET, gAclFuncMap, ACL_FUNC_MAP_ENTRIES);

  uint8_t moduleNum[4];
  be::store32(moduleNum, ACL_MODULE_NUM);
  zorHwilScalarSet(0, kScalarModuleNum, moduleNum, 0);
  return 0;
}

namespace {

std::atomic<uint64_t> gStoreGen{1};
// This thread's holds of aclMutex, and whether they are a match query's alone.
thread_local int tLockDepth = 0;
thread_local bool tQueryOnly = false;

}  // namespace

uint64_t aclStoreGen() {
  return gStoreGen.load(std::memory_order_acquire);
}

void aclStoreGenBump() {
  gStoreGen.fetch_add(1, std::memory_order_acq_rel);
}

int aclLock() {
  const int ret = silTakeSem(gaclGrp.aclMutex, SIL_WAIT_FOREVER);
  if (ret == 0) {
    ++tLockDepth;
    tQueryOnly = false;  // a plain hold anywhere in the nest may change the store
  }
  // Moved whether or not the take succeeded: a caller that goes on without the lock may still
  // change the store.
  aclStoreGenBump();
  return ret;
}

int aclLockForQuery() {
  const int ret = silTakeSem(gaclGrp.aclMutex, SIL_WAIT_FOREVER);
  if (ret == 0 && tLockDepth++ == 0) tQueryOnly = true;
  return ret;
}

bool aclQueryHold() {
  return tLockDepth > 0 && tQueryOnly;
}

int aclUnlock() {
  const int ret = silGiveSem(gaclGrp.aclMutex);
  if (ret == 0 && tLockDepth > 0 && --tLockDepth == 0) tQueryOnly = false;
  return ret;
}

bool aclStarted() { return gaclGrp.aclMutex != 0; }

void aclResetForTest() {
  plat::stopAllTasksForTest();
  if (aclStarted()) releaseGroup();
  std::memset(&gaclGrp, 0, sizeof gaclGrp);
  counterResetForTest();
  meterResetForTest();
  aclTrafficResetForTest();
  aclHqosResetForTest();
  plat::resetForTest();
}
