// The process-shell registry entries of the ACL module: every diagnostic command under its own
// name, with the arguments it takes.
//
// The commands that read the group's trees and lists directly take no lock of their own; here
// the shell task runs beside the event and command tasks, and a walk that meets a record being
// freed would follow a dangling link, so the shell calls them holding aclMutex. Commands that go
// through the management functions are called without it: those functions take it themselves.
#include <span>

#include "control/acl_slot_show.h"
#include "diag/acl_shell.h"
#include "hw/acl_dev_trans.h"
#include "main/acl_group.h"
#include "meter/meter.h"
#include "platform/proc_shell.h"

namespace {

using plat::ShellArgs;
using plat::ShellCommandInfo;

uint32_t u32(const ShellArgs& a, size_t i) {
  return static_cast<uint32_t>(a.word[i]);
}

// Runs fn under aclMutex once the group exists; before that there is nothing to read.
template <typename F>
int32_t locked(F fn) {
  if (!aclStarted()) return 0;
  AclLockGuard lock;
  return fn();
}

struct Entry {
  const char* name;
  ShellCommandInfo info;
};

// clang-format off
const Entry kCommands[] = {
    {"aclHelp", {[](const ShellArgs&) { aclHelp(); return 0; }, 0, -1, ""}},
    {"aclShellCmd", {[](const ShellArgs&) { aclShellCmd(); return 0; }, 0, -1, ""}},
    {"aclShow", {[](const ShellArgs&) { aclShow(); return 0; }, 0, -1, ""}},
    {"aclRuleShow", {[](const ShellArgs&) { aclRuleShow(); return 0; }, 0, -1, ""}},
    {"aclRuleShowForList",
     {[](const ShellArgs& a) { aclRuleShowForList(u32(a, 0)); return 0; }, 1, -1, "(listNum)"}},
    {"aclListRuleShow",
     {[](const ShellArgs& a) {
        return locked([&] { aclListRuleShow(u32(a, 0), u32(a, 1)); return 0; });
      }, 2, -1, "(listNum, ruleNum)"}},
    {"aclListRuleShowAll",
     {[](const ShellArgs&) { return locked([] { aclListRuleShowAll(); return 0; }); }, 0, -1, ""}},
    {"aclIfListShow",
     {[](const ShellArgs& a) {
        return locked([&] { aclIfListShow(u32(a, 0), u32(a, 1)); return 0; });
      }, 2, -1, "(listNum, ifUnit)"}},
    {"aclGemportListShow",
     {[](const ShellArgs& a) {
        return locked([&] {
          aclGemportListShow(u32(a, 0), u32(a, 1), u32(a, 2), u32(a, 3));
          return 0;
        });
      }, 4, -1, "(ifIndex, onuId, gemPort, listNum)"}},
    {"aclIfShow",
     {[](const ShellArgs&) { return locked([] { aclIfShow(); return 0; }); }, 0, -1, ""}},
    {"testAclIfEntry",
     {[](const ShellArgs&) { return locked([] { testAclIfEntry(); return 0; }); }, 0, -1, ""}},
    {"testAclIfStatsEntry",
     {[](const ShellArgs&) { return locked([] { testAclIfStatsEntry(); return 0; }); }, 0, -1,
      ""}},
    {"aclBlackListShow",
     {[](const ShellArgs&) { return locked([] { aclBlackListShow(); return 0; }); }, 0, -1, ""}},
    {"testDstIpEntry",
     {[](const ShellArgs&) { return locked([] { testDstIpEntry(); return 0; }); }, 0, -1, ""}},
    {"showDstIpRuleList",
     {[](const ShellArgs&) { return locked([] { showDstIpRuleList(); return 0; }); }, 0, -1, ""}},
    {"testDstIpEntryAdd",
     {[](const ShellArgs&) { return locked([] { testDstIpEntryAdd(); return 0; }); }, 0, -1, ""}},
    {"testgrule",
     {[](const ShellArgs&) { return locked([] { testgrule(); return 0; }); }, 0, -1, ""}},
    {"testAclLst", {[](const ShellArgs&) { testAclLst(); return 0; }, 0, -1, ""}},
    {"testAclRule", {[](const ShellArgs&) { testAclRule(); return 0; }, 0, -1, ""}},
    {"testAclMatch",
     {[](const ShellArgs& a) { testAclMatch(u32(a, 0), u32(a, 1), u32(a, 2)); return 0; }, 3, -1,
      "(listNum, prefixLen, family)"}},
    {"testIgmpMatch",
     {[](const ShellArgs& a) { testIgmpMatch(u32(a, 0), u32(a, 1), u32(a, 2)); return 0; }, 3, -1,
      "(listNum, prefixLen, family)"}},
    {"testAclMatchEx",
     {[](const ShellArgs& a) { testAclMatchEx(u32(a, 0), u32(a, 1), u32(a, 2)); return 0; }, 3,
      -1, "(listNum, prefixLen, family)"}},
    {"aclDebugSet",
     {[](const ShellArgs& a) { return aclDebugSet(u32(a, 0)); }, 1, -1, "(flags)"}},
    {"aclDynamicBindSet",
     {[](const ShellArgs& a) { return locked([&] { return aclDynamicBindSet(u32(a, 0)); }); }, 1,
      -1, "(enable)"}},
    {"aclRedirectMultiSet",
     {[](const ShellArgs& a) { return locked([&] { return aclRedirectMultiSet(u32(a, 0)); }); },
      1, -1, "(enable)"}},
    {"aclRuleSetVxlanParam",
     {[](const ShellArgs& a) {
        aclRuleSetVxlanParam(u32(a, 0), u32(a, 1), u32(a, 2), u32(a, 3), u32(a, 4), u32(a, 5));
        return 0;
      }, 6, -1, "(lstIdx, ruleIdx, vxlanFlag, vxlanTransit, vlanTag, vxlanVni)"}},
    {"aclCpuTest",
     {[](const ShellArgs& a) { return aclCpuTest(u32(a, 0), u32(a, 1), u32(a, 2), u32(a, 3)); },
      4, -1, "(sys, slot, listNum, operation)"}},
    // The device passes the address of the bytes; here they come as a hex argument, and the
    // length never reaches past them.
    {"aclPktDbg",
     {[](const ShellArgs& a) { aclPktDbg(a.data, u32(a, 1)); return 0; }, 2, 0,
      "(hexBytes, length)"}},
    {"aclDbgOut",
     {[](const ShellArgs& a) { aclDbgOut(u32(a, 0), u32(a, 1), u32(a, 2), u32(a, 3)); return 0; },
      4, -1, "(a, b, c, d)"}},
    {"aclSlotShow", {[](const ShellArgs&) { aclSlotShow(); return 0; }, 0, -1, ""}},
    {"aclSlotResourceShow",
     {[](const ShellArgs& a) {
        aclSlotResourceShow(u32(a, 0), u32(a, 1), static_cast<int32_t>(u32(a, 2)));
        return 0;
      }, 3, -1, "(sys, slot, flag)"}},
    {"aclSlotResourceShowAll",
     {[](const ShellArgs&) { aclSlotResourceShowAll(); return 0; }, 0, -1, ""}},
    {"aclDevPrintf",
     {[](const ShellArgs& a) { aclDevPrintf(a.data); return 0; }, 1, 0, "(hexRecord)"}},
    {"aclTlvPrintf",
     {[](const ShellArgs& a) { aclTlvPrintf(a.data, u32(a, 1)); return 0; }, 2, 0,
      "(hexBuffer, length)"}},
    {"meterProfileInfoShow", {[](const ShellArgs&) { meterProfileInfoShow(); return 0; }, 0, -1,
                              ""}},
};
// clang-format on

}  // namespace

void aclShellRegister() {
  for (const Entry& e : kCommands) plat::shellRegister(e.name, e.info);
}
