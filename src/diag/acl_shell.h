// The process shell's commands: the help text, the show commands that print the ACL group, lists,
// rules, bindings and tracking tables, the test commands that exercise the match engine and the
// walks, and the debug setters. They print through plat::shellPrintf.
//
// Locking: commands that go through the management functions (list and rule get and set, the
// walks, the scalar set) leave the lock to those functions. The ones that read the group's trees
// and lists directly take no lock themselves, so that code already holding aclMutex may call
// them; the shell calls them under aclMutex (see aclShellRegister).
#pragma once

#include <cstdint>
#include <span>

// Help: the nine lines of the command summary.
void aclHelp();
void aclShellCmd();

// The group summary and every list.
void aclShow();
// Every rule of every list, or of one list, through the rule functions.
void aclRuleShow();
void aclRuleShowForList(uint32_t lstIdx);
// The rule parameter record of each chosen rule (0 = all lists / all rules).
void aclListRuleShow(uint32_t lstIdx, uint32_t ruleIdx);
// The stored value and action entries of every rule.
void aclListRuleShowAll();

// Bindings (0 = any for every filter).
void aclIfListShow(uint32_t lstIdx, uint32_t ifIndex);
void aclGemportListShow(uint32_t ifIndex, uint32_t onuId, uint32_t gemPort, uint32_t lstIdx);
void aclIfShow();
void testAclIfEntry();
void testAclIfStatsEntry();
void aclBlackListShow();

// Destination IP tracking.
void testDstIpEntry();
void showDstIpRuleList();
void testDstIpEntryAdd();

// Walks and the global rule table.
void testgrule();
void testAclLst();
void testAclRule();

// The match engine on the test address (family 1: 192.168.10.3, else 2002::c0a8:a03).
void testAclMatch(uint32_t lstIdx, uint32_t prefixLen, uint32_t family);
void testIgmpMatch(uint32_t lstIdx, uint32_t prefixLen, uint32_t family);
void testAclMatchEx(uint32_t lstIdx, uint32_t prefixLen, uint32_t family);

// Setters.
int32_t aclDebugSet(uint32_t flags);
int32_t aclDynamicBindSet(uint32_t enable);
int32_t aclRedirectMultiSet(uint32_t enable);
void aclRuleSetVxlanParam(uint32_t lstIdx, uint32_t ruleIdx, uint32_t vxlanFlag,
                          uint32_t vxlanTransit, uint32_t vlanTag, uint32_t vxlanVni);
int32_t aclCpuTest(uint32_t sys, uint32_t slot, uint32_t lstIdx, uint32_t operation);

// Hex dump of a configuration packet into the debug log (class 5), when debugFlags has 0x4.
void aclPktDbg(std::span<const uint8_t> data, uint32_t length);
void aclDbgOut(uint32_t, uint32_t, uint32_t, uint32_t);

// Registers every command above, and the printers of the slot ledger, the hardware dumps and the
// meter profiles, in the process shell under their names.
void aclShellRegister();
