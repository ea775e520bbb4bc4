// The shell's test and debug commands: walks through the management functions, the match engine
// on a fixed test address, the mode and debug setters, the VXLAN parameter set, the blacklist
// test and the configuration packet dump.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>

#include "api/acl_lst_api.h"
#include "api/acl_rule_api.h"
#include "api/acl_scalar_api.h"
#include "diag/acl_shell.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/proc.h"
#include "services/acl_match.h"
#include "wire/be.h"

using plat::shellPrintf;

namespace {

constexpr uint32_t kPktDbgFlag = 0x04;  // the configuration API's guard
constexpr uint32_t kPktDbgMax = 256;
constexpr uint32_t kScalarBlackListAdd = 67;
constexpr uint32_t kScalarBlackListDel = 68;

int i32(uint32_t v) {
  return static_cast<int>(v);
}

// 192.168.10.3 for family 1; 2002::c0a8:a03 otherwise.
std::array<uint8_t, 16> testAddress(uint32_t family) {
  std::array<uint8_t, 16> a{};
  constexpr uint8_t v4[4] = {192, 168, 10, 3};
  if (family == 1) {
    std::copy(std::begin(v4), std::end(v4), a.begin());
  } else {
    a[0] = 0x20;
    a[1] = 0x02;
    std::copy(std::begin(v4), std::end(v4), a.begin() + 12);
  }
  return a;
}

void addressLine(const char* prefix, const std::array<uint8_t, 16>& a) {
  shellPrintf("%sipAdd = %#x %#x %#x %#x\r\n", prefix, be::load32(a, 0), be::load32(a, 4),
              be::load32(a, 8), be::load32(a, 12));
}

using MatchFn = int32_t (*)(uint32_t, const uint8_t*, uint32_t, uint32_t);

void matchTest(const char* name, MatchFn fn, uint32_t lstIdx, uint32_t prefixLen, uint32_t family) {
  const auto a = testAddress(family);
  shellPrintf("[ACL]%s %d ipAdd = %#x %#x %#x %#x\r\n", name, __LINE__, be::load32(a, 0),
              be::load32(a, 4), be::load32(a, 8), be::load32(a, 12));
  if (fn(lstIdx, a.data(), prefixLen, family) != 0) {
    shellPrintf("[ACL]%s %d not match!\r\n", name, __LINE__);
  } else {
    shellPrintf("[ACL]%s %d match!\r\n", name, __LINE__);
  }
}

int32_t ruleSetValue(const uint8_t* key, uint32_t cmd, uint32_t value) {
  uint8_t word[4];
  be::store32(word, 0, value);
  return aclRuleSetApi(reinterpret_cast<uintptr_t>(key), cmd, reinterpret_cast<uintptr_t>(word));
}

}  // namespace

void testAclLst() {
  uint8_t key[4] = {};
  if (aclLstGetFirst(reinterpret_cast<uintptr_t>(key), 0, 0) != 0) return;
  for (;;) {
    const uint32_t lst = be::load32(key, 0);
    shellPrintf("[ACL]testAclLst index = %d\r\n", i32(lst));
    if (aclLstGetNext(lst, reinterpret_cast<uintptr_t>(key), 0) != 0) return;
  }
}

void testAclRule() {
  uint8_t key[ACL_RULE_KEY_LEN] = {};
  if (aclRuleGetFirst(reinterpret_cast<uintptr_t>(key), 0, 0) != 0) return;
  for (;;) {
    shellPrintf("[ACL]testAclRule:lstIdx = %d,ruleIndex = %u\r\n",
                i32(be::load32(key, ACL_RULE_KEY_LST)), be::load32(key, ACL_RULE_KEY_RULE));
    uint8_t next[ACL_RULE_KEY_LEN] = {};
    if (aclRuleGetNext(reinterpret_cast<uintptr_t>(key), reinterpret_cast<uintptr_t>(next), 0) !=
        0) {
      return;
    }
    std::copy_n(next, ACL_RULE_KEY_FILTER, key);
  }
}

void testAclMatch(uint32_t lstIdx, uint32_t prefixLen, uint32_t family) {
  matchTest("testAclMatch", aclMatch, lstIdx, prefixLen, family);
}

void testIgmpMatch(uint32_t lstIdx, uint32_t prefixLen, uint32_t family) {
  matchTest("testIgmpMatch", aclIgmpsnoopMatch, lstIdx, prefixLen, family);
}

void testAclMatchEx(uint32_t lstIdx, uint32_t prefixLen, uint32_t family) {
  const auto a = testAddress(family);
  addressLine("[ACL]", a);
  uint8_t action = 0;
  if (aclMatchEx(lstIdx, a.data(), prefixLen, family, &action) != 0) {
    shellPrintf("[ACL]testAclMatchEx not match!\r");
  } else {
    shellPrintf("[ACL]testAclMatchEx match! action %d \r\n", action);
  }
}

int32_t aclDebugSet(uint32_t flags) {
  std::atomic_ref<uint32_t>(gaclGrp.debugFlags).store(flags);
  return 0;
}

int32_t aclDynamicBindSet(uint32_t enable) {
  gaclGrp.dynamicBindEnable = static_cast<uint8_t>(enable);
  return gaclGrp.dynamicBindEnable;
}

int32_t aclRedirectMultiSet(uint32_t enable) {
  gaclGrp.redirectMultiEnable = static_cast<uint8_t>(enable);
  return gaclGrp.redirectMultiEnable;
}

void aclRuleSetVxlanParam(uint32_t lstIdx, uint32_t ruleIdx, uint32_t vxlanFlag,
                          uint32_t vxlanTransit, uint32_t vlanTag, uint32_t vxlanVni) {
  uint8_t key[ACL_RULE_KEY_LEN] = {};
  be::store32(key, ACL_RULE_KEY_LST, lstIdx);
  be::store32(key, ACL_RULE_KEY_RULE, ruleIdx);
  uint8_t word[4] = {};
  if (aclRuleGetApi(reinterpret_cast<uintptr_t>(key), ACL_RULE_CMD_STATUS,
                    reinterpret_cast<uintptr_t>(word)) == 0) {
    shellPrintf(" rule %d/%d status=%d\r\n", i32(lstIdx), i32(ruleIdx), i32(be::load32(word, 0)));
  }
  // Each set is tried whatever the one before it answered.
  struct Step {
    uint32_t cmd;
    uint32_t value;
    const char* error;
  };
  const Step steps[] = {
      {76, vxlanFlag, " rule %d/%d set vxlanFlag error vxlanFlag=%d\r\n"},
      {79, vxlanTransit, " rule %d/%d set vxlanTransit error vxlanTransit=%d\r\n"},
      {78, vlanTag, " rule %d/%d set vlanTag error vlanTag=%d\r\n"},
      {77, vxlanVni, " rule %d/%d set vxlanVni error vxlanVni=%d\r\n"},
  };
  for (const Step& s : steps) {
    if (ruleSetValue(key, s.cmd, s.value) != 0) {
      shellPrintf(s.error, i32(lstIdx), i32(ruleIdx), i32(s.value));
    }
  }
  shellPrintf("\n\r Set rule %d/%d vxlan parameters.\n\r", i32(lstIdx), i32(ruleIdx));
}

int32_t aclCpuTest(uint32_t sys, uint32_t slot, uint32_t lstIdx, uint32_t operation) {
  uint8_t words[12];
  be::store32(words, 0, sys);
  be::store32(words, 4, slot);
  be::store32(words, 8, lstIdx);
  const uintptr_t record = reinterpret_cast<uintptr_t>(words);
  return aclScalarSetApi(0, operation == 1 ? kScalarBlackListAdd : kScalarBlackListDel,
                         reinterpret_cast<uintptr_t>(&record));
}

void aclPktDbg(std::span<const uint8_t> data, uint32_t length) {
  if ((std::atomic_ref<uint32_t>(gaclGrp.debugFlags).load() & kPktDbgFlag) == 0) return;
  auto line = [](uint32_t style, const char* text) {
    aclDebugStyled(kPktDbgFlag, ACL_LOG_API, style, "%s", text);
  };
  line(ACL_LOG_STYLE_FIRST, "ACL config communicate packet content\r\n");
  line(ACL_LOG_STYLE_MORE, "---------------------------------------\r\n");
  const auto bytes = data.first(std::min<size_t>({data.size(), length, kPktDbgMax}));
  for (size_t at = 0; at < bytes.size(); at += 16) {
    const auto run = bytes.subspan(at, std::min<size_t>(16, bytes.size() - at));
    std::string text;
    auto hex = [&](uint8_t v) {
      char b[4];
      std::snprintf(b, sizeof b, "%02x", v);
      text += b;
    };
    for (size_t i = 0; i < run.size(); ++i) {
      hex(run[i]);
      // A full line sets each half off by three spaces; a short last line keeps the space of
      // every byte and adds the three after the eighth.
      if (run.size() == 16) {
        text += i == 7 || i == 15 ? "   " : " ";
      } else {
        text += i == 7 ? "    " : " ";
      }
    }
    text += "\r\n";
    line(ACL_LOG_STYLE_MORE, text.c_str());
  }
  line(ACL_LOG_STYLE_LAST, "-------------------end--------------------\r\n");
}

void aclDbgOut(uint32_t, uint32_t, uint32_t, uint32_t) {}
