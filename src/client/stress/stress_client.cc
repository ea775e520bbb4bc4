// A stress client: creates, changes and deletes its own lists and rules and binds them globally,
// to interfaces and to GEM ports, through the command socket. Every refusal is counted by code;
// an answer that contradicts what the daemon said before (a list it created missing, a field not
// reading back, a slot holding something else after a set it answered) is a failure, and so is a
// request the daemon does not answer within the client's deadline.
#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include "client/aclctl_cmds.h"
#include "client/rule_client.h"
#include "client/stress/stress_run.h"
#include "hw/acl_bind_slot.h"
#include "wire/acl_ret.h"
#include "wire/acl_rule_cmds.h"
#include "wire/be.h"
#include "wire/func_table.h"

namespace aclstress {

namespace {

using aclclient::RuleRef;

constexpr uint32_t kLstCmdRuleNum = 4, kLstCmdStatus = 9;
constexpr uint32_t kLstCreate = 2, kLstDelete = 4;
constexpr uint32_t kIfCmdRowStatus = 17;
constexpr uint32_t kGemCmdRowStatus = 1;
constexpr uint32_t kRowCreate = 2, kRowDestroy = 4;
constexpr uint32_t kGlobalFirstTyped = 26;  // inL2Acl, then out, then the next type
constexpr uint32_t kFieldEthertype = 33, kFieldDscp = 20;
constexpr uint32_t kListsPerType = 5;  // per client and list type: 8 clients pass the list limit
constexpr uint32_t kRulesPerList = 10;
constexpr uint32_t kOnus = 2, kGemPorts = 2;
constexpr uint32_t kTimeRanges = 2;

constexpr uint32_t kEthertypes[] = {0x0800, 0x0806, 0x86DD, 0x8100, 0x88CC};

enum class Op {
  CreateList,
  DeleteList,
  CreateRule,
  ChangeRule,
  DeleteRule,
  BindGlobal,
  BindIf,
  BindGem,
  IfRecord,
  GemRecord,
  ReadList
};
struct OpWeight {
  Op op;
  uint32_t weight;
};
constexpr OpWeight kOps[] = {
    {Op::CreateList, 8}, {Op::DeleteList, 3}, {Op::CreateRule, 14}, {Op::ChangeRule, 10},
    {Op::DeleteRule, 5}, {Op::BindGlobal, 6}, {Op::BindIf, 12},     {Op::BindGem, 6},
    {Op::IfRecord, 3},   {Op::GemRecord, 2},  {Op::ReadList, 4},
};

struct ListState {
  bool exists = false;
  std::map<uint32_t, uint32_t> rules;  // rule -> its field's value
};

bool isL2(uint32_t lst) {
  return lst <= 1000;
}
uint32_t fieldOf(uint32_t lst) {
  return isL2(lst) ? kFieldEthertype : kFieldDscp;
}
// The position in the typed column order (l2, ipv4, ...) of the list's type.
uint32_t typeColumn(uint32_t lst) {
  return isL2(lst) ? 0 : 1;
}
// The interface and GEM slot commands of the typed slot of the list's type in direction dir.
const AclBindSlotDef& typedSlot(uint32_t lst, uint32_t dir) {
  return kAclBindSlots[ACL_BIND_SLOT_FIRST_TYPED + typeColumn(lst) * 2 + dir];
}

std::string hex(int32_t v) {
  char t[16];
  std::snprintf(t, sizeof t, "0x%08X", static_cast<uint32_t>(v));
  return t;
}
std::string readText(SlotRead r) {
  return r.ret == 0 ? "list " + std::to_string(r.value) : "result " + hex(r.ret);
}

class Client {
 public:
  Client(Shared& shared, uint32_t id, uint32_t seed) : sh_(shared), id_(id), rng_(seed) {
    for (uint32_t k = 0; k < kListsPerType; ++k) {
      lists_[1 + id * kListsPerType + k];
      lists_[1001 + id * kListsPerType + k];
    }
  }

  void run() {
    uint32_t total = 0;
    for (const auto& w : kOps) total += w.weight;
    bool learned = false;
    while (!sh_.stop.load()) {
      try {
        if (!rc_) rc_ = std::make_unique<aclclient::RuleClient>(sh_.globals);
        if (!learned) {
          learn();
          learned = true;
        }
        uint32_t pick = uniform(total);
        Op op = kOps[0].op;
        for (const auto& w : kOps) {
          if (pick < w.weight) {
            op = w.op;
            break;
          }
          pick -= w.weight;
        }
        step(op);
        failuresInRow_ = 0;
      } catch (const AclctlExit& e) {
        // No answer within the deadline, a broken connection or a frame refused: the daemon is
        // hung, gone or talking nonsense. Reconnect, and give up after a few in a row.
        sh_.tally.failure("client", std::to_string(id_) + ": no answer: " + e.what());
        rc_.reset();
        if (++failuresInRow_ >= 3) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
      }
    }
  }

 private:
  uint32_t uniform(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng_); }
  template <class T>
  const T& pickFrom(const std::vector<T>& v) {
    return v[uniform(static_cast<uint32_t>(v.size()))];
  }
  aclclient::TableSession& s() { return rc_->session(); }

  void contradiction(const std::string& what) {
    sh_.tally.failure("client", std::to_string(id_) + ": " + what);
  }
  // A set the daemon answered: counted, and its refusal tallied under what.
  int32_t counted(const std::string& what, int32_t ret) {
    sh_.tally.request();
    sh_.tally.refusal(what, ret);
    return ret;
  }

  uint32_t anyList() {
    auto it = lists_.begin();
    std::advance(it, uniform(static_cast<uint32_t>(lists_.size())));
    return it->first;
  }
  uint32_t existingList() {
    std::vector<uint32_t> v;
    for (const auto& [l, st] : lists_) {
      if (st.exists) v.push_back(l);
    }
    return v.empty() ? 0 : pickFrom(v);
  }
  int32_t listStatus(uint32_t lst) {
    sh_.tally.request();
    return s().getValue(wire::fid::aclLstGetApi, lst, kLstCmdStatus).ret;
  }

  // What the daemon already holds of this client's lists (a daemon that ran before): which exist,
  // their rules and the field each rule carries.
  void learn() {
    for (auto& [lst, st] : lists_) {
      st = ListState{listStatus(lst) == 0, {}};
      if (!st.exists) continue;
      for (const RuleRef& r : rc_->walk(lst)) {
        sh_.tally.request();
        const aclclient::ValueAnswer v = rc_->getValue(r, fieldOf(lst));
        st.rules[r.rule] = v.ret == 0 ? v.value : 0;
      }
    }
  }

  void step(Op op) {
    switch (op) {
      case Op::CreateList:
        return createList();
      case Op::DeleteList:
        return deleteList();
      case Op::CreateRule:
        return createRule();
      case Op::ChangeRule:
        return changeRule();
      case Op::DeleteRule:
        return deleteRule();
      case Op::BindGlobal:
        return bindGlobal();
      case Op::BindIf:
        return bindIf();
      case Op::BindGem:
        return bindGem();
      case Op::IfRecord:
        return ifRecord();
      case Op::GemRecord:
        return gemRecord();
      case Op::ReadList:
        return readList();
    }
  }

  void createList() {
    const uint32_t lst = anyList();
    ListState& st = lists_[lst];
    if (st.exists) return;
    const int32_t ret = counted(
        "list create", s().setValue(wire::fid::aclLstSetApi, lst, kLstCmdStatus, kLstCreate));
    const int32_t now = listStatus(lst);
    if (ret == 0) {
      st = ListState{true, {}};
      if (now != 0)
        contradiction("list " + std::to_string(lst) + " created, then reads " + hex(now));
    } else if (now != ACL_ERR_LIST_NOT_EXIST) {
      contradiction("list " + std::to_string(lst) + " create refused (" + hex(ret) +
                    "), yet it reads " + hex(now));
    }
  }

  void deleteList() {
    const uint32_t lst = existingList();
    if (lst == 0) return;
    const int32_t ret = counted(
        "list delete", s().setValue(wire::fid::aclLstSetApi, lst, kLstCmdStatus, kLstDelete));
    const int32_t now = listStatus(lst);
    if (ret == 0) {
      lists_[lst] = ListState{};
      if (now != ACL_ERR_LIST_NOT_EXIST) {
        contradiction("list " + std::to_string(lst) + " deleted, then reads " + hex(now));
      }
    } else if (now != 0) {
      contradiction("list " + std::to_string(lst) + " delete refused (" + hex(ret) +
                    "), yet it reads " + hex(now));
    }
  }

  uint32_t newValue(uint32_t lst) {
    return isL2(lst) ? kEthertypes[uniform(std::size(kEthertypes))] : uniform(64);
  }

  // Sets the rule's field and reads it back; false when the set was refused.
  bool setField(RuleRef r, uint32_t value) {
    const uint32_t field = fieldOf(r.lst);
    if (counted("rule field", rc_->setValue(r, field, value)) != 0) return false;
    sh_.tally.request();
    const aclclient::ValueAnswer got = rc_->getValue(r, field);
    if (got.ret != 0 || got.value != value) {
      contradiction("rule " + std::to_string(r.lst) + "/" + std::to_string(r.rule) + " field " +
                    std::to_string(field) + " set to " + std::to_string(value) + ", reads " +
                    (got.ret != 0 ? hex(got.ret) : std::to_string(got.value)));
    }
    return true;
  }

  void createRule() {
    const uint32_t lst = existingList();
    if (lst == 0) return;
    ListState& st = lists_[lst];
    const RuleRef r{lst, 1 + uniform(kRulesPerList)};
    if (st.rules.count(r.rule) != 0) return;
    if (counted("rule create", rc_->setValue(r, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_CREATE)) !=
        0) {
      return;
    }
    const uint32_t value = newValue(lst);
    st.rules[r.rule] = value;
    if (!setField(r, value)) st.rules[r.rule] = 0;
    if (uniform(4) == 0) {
      counted("rule time range", rc_->setValue(r, ACL_RULE_CMD_TRID, 1 + uniform(kTimeRanges)));
    }
    counted("rule valid", rc_->setValue(r, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_VALID));
  }

  RuleRef existingRule() {
    const uint32_t lst = existingList();
    if (lst == 0 || lists_[lst].rules.empty()) return {};
    auto it = lists_[lst].rules.begin();
    std::advance(it, uniform(static_cast<uint32_t>(lists_[lst].rules.size())));
    return {lst, it->first};
  }

  void changeRule() {
    const RuleRef r = existingRule();
    if (r.lst == 0) return;
    // A valid rule is installed wherever its list is bound: it is made invalid to be changed.
    if (counted("rule invalid",
                rc_->setValue(r, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_INVALID)) != 0) {
      return;
    }
    const uint32_t value = newValue(r.lst);
    if (setField(r, value)) lists_[r.lst].rules[r.rule] = value;
    counted("rule valid", rc_->setValue(r, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_VALID));
  }

  void deleteRule() {
    const RuleRef r = existingRule();
    if (r.lst == 0) return;
    counted("rule invalid", rc_->setValue(r, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_INVALID));
    if (counted("rule delete", rc_->setValue(r, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_DELETE)) ==
        0) {
      lists_[r.lst].rules.erase(r.rule);
    }
  }

  void readList() {
    const uint32_t lst = existingList();
    if (lst == 0) return;
    sh_.tally.request();
    const aclclient::ValueAnswer n = s().getValue(wire::fid::aclLstGetApi, lst, kLstCmdRuleNum);
    const size_t want = lists_[lst].rules.size();
    if (n.ret != 0 || n.value != want) {
      contradiction("list " + std::to_string(lst) + " holds " + std::to_string(want) +
                    " rules, reads " + (n.ret != 0 ? hex(n.ret) : std::to_string(n.value)));
    }
  }

  // Sets a slot and reads it back under the scope's lock: after a set the daemon answered 0 the
  // slot holds the new value, after a refusal what it held before. read(cmd) answers the slot.
  template <class Set, class Read>
  void bindChecked(const std::string& scope, const std::string& what, uint32_t cmd, uint32_t value,
                   bool check, Set set, Read read) {
    std::lock_guard<std::mutex> lock(sh_.lockOf(scope));
    if (scope.rfind("if/", 0) == 0 && sh_.isAbsent(std::stoul(scope.substr(3)))) return;
    const std::optional<SlotRead> before = check ? sh_.known(scope, cmd) : std::nullopt;
    const int32_t ret = counted(what, set(cmd, value));
    sh_.tally.request();
    const SlotRead after = read(cmd);
    if (check) {
      const SlotVerdict v = judgeSlot(ret, value, before, after, sh_.faults);
      if (v == SlotVerdict::LeftEmpty) {
        // The previous list could not be put back after a failed change (an armed fault).
        sh_.tally.refusal(what + " (slot left empty)", ret);
      } else if (v == SlotVerdict::Contradiction && ret == 0) {
        contradiction(scope + " " + what + " " + std::to_string(value) + " answered 0, slot " +
                      std::to_string(cmd) + " reads " + readText(after));
      } else if (v == SlotVerdict::Contradiction) {
        contradiction(scope + " " + what + " " + std::to_string(value) + " refused (" + hex(ret) +
                      "), slot " + std::to_string(cmd) + " went from " + readText(*before) +
                      " to " + readText(after));
      }
      sh_.remember(scope, cmd, after);
    }
  }

  // The list to bind, or 0 (unbind) one time in three.
  uint32_t bindValue(uint32_t* lst) {
    *lst = existingList();
    if (*lst == 0) *lst = anyList();
    return uniform(3) == 0 ? 0 : *lst;
  }

  void bindGlobal() {
    uint32_t lst = 0;
    const uint32_t value = bindValue(&lst);
    const uint32_t cmd = kGlobalFirstTyped + typeColumn(lst) * 2 + uniform(2);
    bindChecked(
        "g", value == 0 ? "global unbind" : "global bind", cmd, value, true,
        [&](uint32_t c, uint32_t v) { return s().setValue(wire::fid::aclScalarSetApi, 0, c, v); },
        [&](uint32_t c) {
          const auto a = s().getValue(wire::fid::aclScalarGetApi, 0, c);
          return SlotRead{a.ret, a.ret == 0 ? a.value : 0};
        });
  }

  void bindIf() {
    if (sh_.interfaces.empty()) return;
    const uint32_t ifIndex = pickFrom(sh_.interfaces);
    uint32_t lst = 0;
    const uint32_t value = bindValue(&lst);
    const uint32_t cmd = typedSlot(lst, uniform(2)).ifCmd;
    const std::string scope = "if/" + std::to_string(ifIndex);
    bindChecked(
        scope, value == 0 ? "if unbind" : "if bind", cmd, value,
        sh_.volatileIfs.count(ifIndex) == 0,
        [&](uint32_t c, uint32_t v) { return s().setValue(wire::fid::aclIfSetApi, ifIndex, c, v); },
        [&](uint32_t c) {
          const auto a = s().getValue(wire::fid::aclIfGetApi, ifIndex, c);
          return SlotRead{a.ret, a.ret == 0 ? a.value : 0};
        });
  }

  void ifRecord() {
    if (sh_.interfaces.empty()) return;
    const uint32_t ifIndex = pickFrom(sh_.interfaces);
    const std::string scope = "if/" + std::to_string(ifIndex);
    std::lock_guard<std::mutex> lock(sh_.lockOf(scope));
    if (sh_.isAbsent(ifIndex)) return;
    const bool create = uniform(2) == 0;
    const int32_t ret = counted(create ? "if create" : "if delete",
                                s().setValue(wire::fid::aclIfSetApi, ifIndex, kIfCmdRowStatus,
                                             create ? kRowCreate : kRowDestroy));
    if (ret == 0) sh_.forget(scope);
  }

  struct Gem {
    uint32_t onu, gem;
  };
  Gem anyGem() { return {1 + uniform(kOnus), 1 + uniform(kGemPorts)}; }
  std::vector<uint8_t> gemKey(Gem g) const {
    std::vector<uint8_t> k(12, 0);
    be::store32(k, 0, sh_.ponInterface);
    be::store16(k, 4, static_cast<uint16_t>(g.onu));
    be::store16(k, 6, static_cast<uint16_t>(g.gem));
    return k;
  }
  wire::Request gemRequest(Gem g, uint32_t func, uint32_t cmd, uint32_t value) const {
    wire::Request req;
    req.funcId = func;
    req.cmd = cmd;
    req.keyShape = wire::KeyShape::Bytes;
    req.key = gemKey(g);
    req.bufShape = wire::BufShape::Value;
    req.bufValue = value;
    return req;
  }
  std::string gemScope(Gem g) const {
    return "gem/" + std::to_string(sh_.ponInterface) + "/" + std::to_string(g.onu) + "/" +
           std::to_string(g.gem);
  }

  void bindGem() {
    if (sh_.ponInterface == 0) return;
    const Gem g = anyGem();
    uint32_t lst = 0;
    const uint32_t value = bindValue(&lst);
    // GEM slot commands are the typed slots' positions in the slot table.
    const uint32_t cmd = ACL_BIND_SLOT_FIRST_TYPED + typeColumn(lst) * 2 + uniform(2);
    bindChecked(
        gemScope(g), value == 0 ? "gem unbind" : "gem bind", cmd, value, true,
        [&](uint32_t c, uint32_t v) {
          return s().call(gemRequest(g, wire::fid::aclGemPortSetApi, c, v)).result;
        },
        [&](uint32_t c) {
          const wire::Response r = s().call(gemRequest(g, wire::fid::aclGemPortGetApi, c, 0));
          return SlotRead{r.result, r.result == 0 ? r.bufValue : 0};
        });
  }

  void gemRecord() {
    if (sh_.ponInterface == 0) return;
    const Gem g = anyGem();
    const std::string scope = gemScope(g);
    std::lock_guard<std::mutex> lock(sh_.lockOf(scope));
    const bool create = uniform(2) == 0;
    const int32_t ret =
        counted(create ? "gem create" : "gem delete",
                s().call(gemRequest(g, wire::fid::aclGemPortSetApi, kGemCmdRowStatus,
                                    create ? kRowCreate : kRowDestroy))
                    .result);
    if (ret == 0) sh_.forget(scope);
  }

  Shared& sh_;
  uint32_t id_;
  std::mt19937 rng_;
  std::unique_ptr<aclclient::RuleClient> rc_;
  std::map<uint32_t, ListState> lists_;
  int failuresInRow_ = 0;
};

}  // namespace

void runClient(Shared& shared, uint32_t id, uint32_t seed) {
  Client(shared, id, seed).run();
}

}  // namespace aclstress
