// aclctl slot ...: the slot resource table (function ids 71 to 73). "show" prints each slot's
// ledger (slot resource get 1): per bind type the rules charged, the capacity the card reported
// and what is still free; "resources" prints the card's hardware resource records (get 0).
#include <cstdio>
#include <iostream>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_views.h"
#include "client/table_session.h"
#include "wire/acl_ret.h"
#include "wire/acl_slot_names.h"
#include "wire/be.h"
#include "wire/func_table.h"

namespace {

using nlohmann::ordered_json;
using SlotKey = std::pair<uint32_t, uint32_t>;

wire::Request slotKeyed(uint32_t funcId, const SlotKey& k) {
  wire::Request req;
  req.funcId = funcId;
  req.keyShape = wire::KeyShape::Bytes;
  req.key.assign(wire::kSlotKeyLen, 0);
  be::store32(req.key, 0, k.first);
  be::store32(req.key, 4, k.second);
  return req;
}

std::string slotName(const SlotKey& k) {
  return std::to_string(k.first) + "/" + std::to_string(k.second);
}

// The slots to show: the one named, or every record in the daemon's order.
std::vector<SlotKey> slots(aclclient::TableSession& s, const std::string& only) {
  if (!only.empty()) return {aclclient::parseSlotKey(only, "the slot argument")};
  std::vector<SlotKey> out;
  wire::Response resp = s.call(slotKeyed(wire::fid::aclSlotResourceGetFirst, {0, 0}));
  while (resp.result == 0 && resp.key.size() == wire::kSlotKeyLen) {
    const SlotKey k{be::load32(resp.key, 0), be::load32(resp.key, 4)};
    // A walk that does not move forward would never end.
    if (!out.empty() && !(out.back() < k)) break;
    out.push_back(k);
    resp = s.call(slotKeyed(wire::fid::aclSlotResourceGetNext, k));
  }
  return out;
}

// One read of slot resource get: the bytes written, or the result code.
std::pair<int32_t, std::vector<uint8_t>> read(aclclient::TableSession& s, const SlotKey& k,
                                              uint32_t cmd, uint32_t capacity) {
  wire::Request req = slotKeyed(wire::fid::aclSlotResourceGetApi, k);
  req.cmd = cmd;
  req.bufShape = wire::BufShape::Desc;
  req.descCapacity = capacity;
  wire::Response resp = s.call(req);
  return {resp.result, std::move(resp.data)};
}

[[noreturn]] void noSlot(const SlotKey& k, int32_t ret) {
  throw AclctlExit(kAclctlExitFailed, ret == CMN_ERR_NOT_FOUND
                                          ? "no slot record " + slotName(k)
                                          : "slot " + slotName(k) + ": " + aclclient::retText(ret));
}

ordered_json ledgerJson(const SlotKey& k, const std::vector<uint8_t>& d) {
  ordered_json types = ordered_json::array();
  for (uint32_t t = 0; t < wire::kSlotBindTypes; ++t) {
    const size_t at = wire::kSlotLedgerTypes + t * wire::kSlotLedgerTypeLen;
    const uint32_t cur = be::load32(d, at), max = be::load32(d, at + 4);
    const auto& name = wire::kSlotBindTypeNames[t];
    // Over capacity (a card that came back smaller) shows as negative room.
    types.push_back({{"type", t},
                     {"dir", name.dir},
                     {"list", name.list},
                     {"current", cur},
                     {"capacity", max},
                     {"free", static_cast<int64_t>(max) - static_cast<int64_t>(cur)}});
  }
  return {{"sys", k.first},
          {"slot", k.second},
          {"chipNum", be::load32(d, wire::kSlotLedgerChipNum)},
          {"curRuleNum", be::load32(d, wire::kSlotLedgerCurRuleNum)},
          {"maxRuleNum", be::load32(d, wire::kSlotLedgerMaxRuleNum)},
          {"types", types}};
}

void printLedger(const ordered_json& l) {
  std::printf("slot %u/%u\n", l["sys"].get<uint32_t>(), l["slot"].get<uint32_t>());
  std::printf("  %-12s %10s %10s %10s\n", "bind type", "current", "capacity", "free");
  for (const auto& t : l["types"]) {
    const std::string name = t["dir"].get<std::string>() + " " + t["list"].get<std::string>();
    std::printf("  %-12s %10u %10u %10lld\n", name.c_str(), t["current"].get<uint32_t>(),
                t["capacity"].get<uint32_t>(), static_cast<long long>(t["free"].get<int64_t>()));
  }
}

ordered_json ledgers(const AclctlGlobals& g, const std::string& only) {
  aclclient::TableSession s(g);
  ordered_json out = ordered_json::array();
  for (const SlotKey& k : slots(s, only)) {
    auto [ret, data] = read(s, k, wire::kSlotResourceCmdLedger, wire::kSlotLedgerLen);
    // A record removed between the walk and the read is gone; only a named slot is an error.
    if (ret == CMN_ERR_NOT_FOUND && only.empty()) continue;
    if (ret != 0 || data.size() < wire::kSlotLedgerLen) noSlot(k, ret);
    out.push_back(ledgerJson(k, data));
  }
  return out;
}

void show(const AclctlGlobals& g, const std::string& only) {
  const ordered_json out = ledgers(g, only);
  if (g.json) {
    std::cout << ordered_json{{"slots", out}}.dump() << std::endl;
    return;
  }
  if (out.empty()) std::printf("no slot records\n");
  for (const auto& l : out) printLedger(l);
}

ordered_json resourceJson(const SlotKey& k, std::span<const uint8_t> r) {
  return {{"sys", k.first},
          {"slot", k.second},
          {"chip", r[0]},
          {"tcam", wire::slotTcamName(r[1])},
          {"resource", wire::slotResourceName(r[2])},
          {"stage", wire::slotStageName(r[3])},
          {"total", be::load32(r, 4)},
          {"used", be::load32(r, 8)},
          {"reserve", be::load32(r, 12)},
          {"free", be::load32(r, 16)}};
}

void resources(const AclctlGlobals& g, const std::string& only) {
  aclclient::TableSession s(g);
  ordered_json rows = ordered_json::array();
  ordered_json failed = ordered_json::array();
  for (const SlotKey& k : slots(s, only)) {
    auto [ret, data] = read(s, k, wire::kSlotResourceCmdRecords, wire::kSlotResourceReadLen);
    if (ret != 0) {
      if (!only.empty()) noSlot(k, ret);
      failed.push_back({{"sys", k.first}, {"slot", k.second}, {"ret", ret}});
      continue;
    }
    // Only whole records count; a cut one at the end is left out.
    const std::span<const uint8_t> d(data);
    for (size_t at = 0; d.size() - at >= wire::kSlotResourceRecordLen;
         at += wire::kSlotResourceRecordLen) {
      rows.push_back(resourceJson(k, d.subspan(at, wire::kSlotResourceRecordLen)));
    }
  }
  if (g.json) {
    std::cout << ordered_json{{"resources", rows}, {"unreadable", failed}}.dump() << std::endl;
    return;
  }
  std::printf("%-6s%-6s%-6s%-10s%-10s%-12s%-8s%-8s%-8s%-8s\n", "Sys", "Slot", "Chip", "TCAM",
              "Resource", "Stage", "Total", "Used", "Reserve", "Free");
  for (const auto& r : rows) {
    std::printf("%-6u%-6u%-6u%-10s%-10s%-12s%-8u%-8u%-8u%-8u\n", r["sys"].get<uint32_t>(),
                r["slot"].get<uint32_t>(), r["chip"].get<uint32_t>(),
                r["tcam"].get<std::string>().c_str(), r["resource"].get<std::string>().c_str(),
                r["stage"].get<std::string>().c_str(), r["total"].get<uint32_t>(),
                r["used"].get<uint32_t>(), r["reserve"].get<uint32_t>(), r["free"].get<uint32_t>());
  }
  for (const auto& f : failed) {
    std::printf("slot %u/%u unreadable: %s\n", f["sys"].get<uint32_t>(), f["slot"].get<uint32_t>(),
                aclclient::retText(f["ret"].get<int32_t>()).c_str());
  }
}

}  // namespace

ordered_json aclctlSlotRows(const AclctlGlobals& g) {
  return ledgers(g, "");
}

void aclctlAddSlotCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* slot =
      app.add_subcommand("slot", "Slot records: rule capacity ledger and hardware resources");
  slot->require_subcommand(1);
  auto only = std::make_shared<std::string>();

  auto* show_ = slot->add_subcommand(
      "show", "Per bind type: rules charged, capacity and free, for one slot or every slot");
  show_->add_option("slot", *only, "SYS/SLOT (default: every slot record)");
  show_->callback([&globals, only] { show(globals, *only); });

  auto* res = slot->add_subcommand("resources", "The card's hardware resource records");
  res->add_option("slot", *only, "SYS/SLOT (default: every slot record)");
  res->callback([&globals, only] { resources(globals, *only); });
}
