// The invariant audit: recomputes from the store alone what the other structures must hold (list
// reference counts, bind-list entries, the slot ledger, the device's hardware tables) and names
// every difference. It is a second, plain statement of what binding promises, written apart from
// the binding code on purpose: it shares nothing with it but the store's own lookups, so a fault
// in one is not copied into the other.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

struct AclAuditDiff {
  // "refCnt", "bindList", "ledger", "ledgerIndex", "timeRange" or "hardware"
  std::string check;
  std::string text;
};

// Runs every check; the caller holds aclMutex (the audit takes the device's mutex while it reads
// the device). Empty when everything agrees.
std::vector<AclAuditDiff> aclAuditRun();

// The answer of the "audit" control op: takes aclMutex, runs the audit and answers
// {"ok": true, "clean": bool, "differences": [{"check", "text"}...]}; {"ok": false, "error"} when
// the ACL module has not started.
nlohmann::json aclAuditReply();

// The answer of the "rule-state" control op ({"list": n, "rule": n}): the rule's time range as
// the service and the rule hold it, whether it is eligible, and for every binding of its list
// each table the binding reaches with "installed" true or false. {"ok": false, "error"} for a
// missing list or rule, a malformed request or an ACL module that has not started.
nlohmann::json aclRuleStateReply(const nlohmann::json& req);

// The answer of the "bindlist" control op: {"ok": true, "entries": [{ifIndex, kind, dir, list,
// rule, owner ("acl", "pbr", "trafficpolicy"), refcount}...]} in bind-list order.
nlohmann::json aclBindListReply();

// Registers the daemon's ops on the device's control socket ("audit", "rule-state", "bindlist",
// and "events" for the event task's counters); called once after aclInit.
void aclAuditRegister();
