// Platform scalar calls: the action support query, the rule counter read and clear, the detect
// list, and commands the device only keeps (the NAT module's global records).
#include <algorithm>
#include <span>

#include "platform/fault.h"
#include "platform/hwil.h"
#include "platform/vdev/calls.h"
#include "platform/vdev/counters.h"
#include "wire/be.h"

namespace {

using namespace vdev;

constexpr uint32_t kDetectListCmd = 6;
constexpr size_t kDetectHeader = 12;
constexpr size_t kNatRecordLen = 508;

}  // namespace

namespace vdev {

int counterRequest(uint32_t ifIndex, void* request, bool clear) {
  if (request == nullptr) return kErrBadParam;
  std::span<uint8_t> req(static_cast<uint8_t*>(request), kCounterRequestLen);
  CounterKey key{be::load32(req, 0), be::load32(req, 4), ifIndex, be::load32(req, 12)};
  Device& d = device();
  std::lock_guard lock(d.mutex);
  if (clear) {
    d.model.counters.erase(key);
    return 0;
  }
  Counters c;
  if (auto it = d.model.counters.find(key); it != d.model.counters.end()) c = it->second;
  for (size_t n = 0; n < 8; ++n) be::store64(req, 24 + 8 * n, c.v[n]);
  return 0;
}

// Keeps a rule counter request in the command log as it arrived, before the device answers into
// it: the descriptor's flag and length as the key, the 88 request bytes as the data.
void counterRequestLog(const char* call, const ZorScalarReq* req) {
  Device& d = device();
  std::lock_guard lock(d.mutex);
  journalPush(d.journal.commands,
              CommandLogEntry{nextSeq(d.journal),
                              call,
                              req->cmd,
                              {req->flag, req->len},
                              copyBytes(req->data, kCounterRequestLen)});
}

// What a rule counter request tells the fault table: its list and rule, so that a fault can aim
// at one record's counters.
plat::FaultCall counterFaultCall(const char* call, const ZorScalarReq* req) {
  plat::FaultCall fc{.call = call, .cmd = req->cmd};
  if ((req->cmd == ZOR_SCALAR_STATS_READ || req->cmd == ZOR_SCALAR_STATS_CLEAR) &&
      req->data != nullptr) {
    std::span<const uint8_t> body(static_cast<const uint8_t*>(req->data), kCounterRequestLen);
    fc.list = be::load32(body, 0);
    fc.rule = be::load32(body, 4);
  }
  return fc;
}

}  // namespace vdev

int zorScalarGetApi(uint32_t /*r1*/, uint32_t /*r2*/, void* reqp) {
  const auto* req = static_cast<const ZorScalarReq*>(reqp);
  if (req == nullptr) {
    if (auto f = plat::faultHit({.call = "zorScalarGetApi"})) return *f;
    return kErrBadParam;
  }
  if (req->cmd == ZOR_SCALAR_STATS_READ && req->data != nullptr) {
    counterRequestLog("zorScalarGetApi", req);
  }
  if (auto f = plat::faultHit(counterFaultCall("zorScalarGetApi", req))) return *f;
  switch (req->cmd) {
    case ZOR_SCALAR_ACTION_SUPPORT: {
      if (req->data == nullptr) return kErrBadParam;
      Device& d = device();
      std::lock_guard lock(d.mutex);
      return d.model.actionSupportResult;
    }
    case ZOR_SCALAR_STATS_READ:
      return counterRequest(0, req->data, false);
    default:
      return kErrNotSupported;
  }
}

int zorScalarSetApi(uint32_t /*r1*/, uint32_t /*r2*/, void* reqp) {
  const auto* req = static_cast<const ZorScalarReq*>(reqp);
  if (req == nullptr) {
    if (auto f = plat::faultHit({.call = "zorScalarSetApi"})) return *f;
    return kErrBadParam;
  }
  if (req->cmd == ZOR_SCALAR_STATS_CLEAR && req->data != nullptr) {
    counterRequestLog("zorScalarSetApi", req);
  }
  if (auto f = plat::faultHit(counterFaultCall("zorScalarSetApi", req))) return *f;
  if (req->data == nullptr) return kErrBadParam;
  if (req->cmd == ZOR_SCALAR_STATS_CLEAR) return counterRequest(0, req->data, true);
  // Any other command carries a rule record for the whole system (the NAT module's commands).
  Device& d = device();
  std::lock_guard lock(d.mutex);
  journalPush(d.journal.commands, CommandLogEntry{nextSeq(d.journal),
                                                  "zorScalarSetApi",
                                                  req->cmd,
                                                  {},
                                                  copyBytes(req->data, kNatRecordLen)});
  return 0;
}

int hrdScalarSetApi(uint32_t /*r1*/, uint32_t cmd, void* descp) {
  if (auto f = plat::faultHit({.call = "hrdScalarSetApi", .cmd = cmd})) return *f;
  if (cmd != kDetectListCmd) return kErrNotSupported;
  const auto* desc = static_cast<const ZorBufDesc*>(descp);
  if (desc == nullptr || desc->data == nullptr) return kErrBadParam;
  std::span<const uint8_t> rec(static_cast<const uint8_t*>(desc->data), desc->len);
  if (rec.size() < kDetectHeader + 4) return kErrBadParam;
  const uint8_t oper = be::load8(rec, 0), family = be::load8(rec, 1);
  const size_t addrLen = family == 1 ? 4 : 16;
  if ((family != 1 && family != 2) || rec.size() < kDetectHeader + addrLen || oper > 1) {
    return kErrBadParam;
  }
  DetectEntry e;
  e.vrf = be::load32(rec, 4);
  e.family = family;
  std::copy_n(rec.begin() + kDetectHeader, addrLen, e.addr.begin());
  Device& d = device();
  std::lock_guard lock(d.mutex);
  auto& list = d.model.detectList;
  auto it = std::find_if(list.begin(), list.end(), [&](const DetectEntry& x) {
    return x.vrf == e.vrf && x.family == e.family && x.addr == e.addr;
  });
  if (oper == 1 && it == list.end()) list.push_back(e);
  if (oper == 0 && it != list.end()) list.erase(it);
  return 0;
}
