// The interface manager, answered from the virtual device's interfaces and neighbours.
#include "platform/ifmgr.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "platform/fault.h"
#include "platform/hwil.h"
#include "platform/vdev/calls.h"
#include "platform/vdev/counters.h"
#include "wire/be.h"

namespace {

using namespace vdev;

constexpr size_t kLocationLen = 32;
constexpr size_t kAggQueryLen = 20, kAggModeByte = 8;
constexpr size_t kNbrHeader = 5;  // vrf (4), family (1), then the address and four zero bytes

int neighbourQuery(const void* in, void* out) {
  const auto* reqDesc = static_cast<const ZorBufDesc*>(in);
  auto* ansDesc = static_cast<ZorBufDesc*>(out);
  if (reqDesc == nullptr || ansDesc == nullptr || reqDesc->data == nullptr ||
      ansDesc->data == nullptr || reqDesc->len < kNbrHeader) {
    return kErrBadParam;
  }
  std::span<const uint8_t> req(static_cast<const uint8_t*>(reqDesc->data), reqDesc->len);
  const uint8_t family = be::load8(req, 4);
  const size_t addrLen = family == 1 ? 4 : 16;
  if ((family != 1 && family != 2) || req.size() < kNbrHeader + addrLen) return kErrBadParam;
  if (ansDesc->len < req.size() + 1) return kErrBufferShort;
  Neighbour n;
  n.vrf = be::load32(req, 0);
  n.family = family;
  std::copy_n(req.begin() + kNbrHeader, addrLen, n.addr.begin());
  bool known = false;
  {
    Device& d = device();
    std::lock_guard lock(d.mutex);
    known = std::find(d.model.neighbours.begin(), d.model.neighbours.end(), n) !=
            d.model.neighbours.end();
  }
  // The answer is the request followed by the state byte; the two buffers may be one.
  auto* ans = static_cast<uint8_t*>(ansDesc->data);
  std::memmove(ans, req.data(), req.size());
  ans[req.size()] = known ? 1 : 0;
  return 0;
}

// Locations already answered, per thread, each with the model generation it was read at: a
// binding sends every rule of its list through the location lookup, and the interface map is a
// search under the device mutex. An entry answers only while the generation is unchanged, that is
// while nobody has held the mutex in a way that could change the model (vdev::DeviceMutex).
struct KeptLocation {
  uint64_t gen = 0;  // 0: empty (the generation starts at 1)
  uint32_t unit = 0;
  std::array<uint8_t, kLocationLen> bytes{};
};
constexpr size_t kKeptLocations = 8;
thread_local std::array<KeptLocation, kKeptLocations> tKeptLocations{};

KeptLocation& keptLocation(uint32_t unit) {
  return tKeptLocations[unit % kKeptLocations];
}

void setMembership(std::vector<uint32_t>& v, uint32_t module, bool on) {
  auto it = std::find(v.begin(), v.end(), module);
  if (on && it == v.end()) v.push_back(module);
  if (!on && it != v.end()) v.erase(it);
}

}  // namespace

int zorIndexTrans(uintptr_t in, uint32_t type, void* out) {
  const bool byUnit = type == ZOR_TRANS_LOCATION;
  if (plat::faultArmed()) {
    if (auto f = plat::faultHitArmed(
            {.call = "zorIndexTrans",
             .cmd = type,
             .unit = byUnit ? std::optional(static_cast<uint32_t>(in)) : std::nullopt})) {
      return *f;
    }
  }
  if (type == ZOR_TRANS_NEIGHBOUR) return neighbourQuery(reinterpret_cast<const void*>(in), out);
  if (!byUnit) return kErrNotSupported;
  if (out == nullptr) return kErrBadParam;
  const auto unit = static_cast<uint32_t>(in);
  Device& d = device();
  KeptLocation& kept = keptLocation(unit);
  if (kept.gen == d.mutex.generation() && kept.unit == unit) {
    std::memcpy(out, kept.bytes.data(), kLocationLen);
    return 0;
  }
  ModelUnchangedLock lock(d.mutex);
  auto it = d.model.interfaces.find(unit);
  if (it == d.model.interfaces.end()) {
    it = d.model.departed.find(unit);
    if (it == d.model.departed.end()) return kErrNotFound;
  }
  std::span<uint8_t> loc(kept.bytes);
  for (size_t w = 0; w < ZOR_LOC_WORDS; ++w) be::store32(loc, 4 * w, it->second.location[w]);
  // Under the mutex the generation cannot move.
  kept.gen = d.mutex.generation();
  kept.unit = unit;
  std::memcpy(out, kept.bytes.data(), kLocationLen);
  return 0;
}

int zorIfGetApi(uint32_t unit, uint32_t field, void* data) {
  if (auto f = plat::faultHit({.call = "zorIfGetApi", .cmd = field, .unit = unit})) return *f;
  if (data == nullptr) return kErrBadParam;
  if (field == ZOR_IF_FIELD_STATS) {
    {
      Device& d = device();
      ModelUnchangedLock lock(d.mutex);
      if (!d.model.interfaces.count(unit)) return kErrNotFound;
    }
    const auto* req = static_cast<const ZorScalarReq*>(data);
    if (req->cmd != ZOR_IF_STATS_READ) return kErrNotSupported;
    return counterRequest(unit, req->data, false);
  }
  Device& d = device();
  ModelUnchangedLock lock(d.mutex);
  auto it = d.model.interfaces.find(unit);
  if (it == d.model.interfaces.end()) return kErrNotFound;
  const Interface& i = it->second;
  switch (field) {
    case ZOR_IF_FIELD_FLAGS13:
      be::store32(data, i.flags13);
      return 0;
    case ZOR_IF_FIELD_FLAGS10:
      be::store32(data, i.flags10);
      return 0;
    case ZOR_IF_FIELD_AGG_MODE: {
      if (i.kind() != ZOR_IF_KIND_AGG) return kErrNotSupported;
      std::span<uint8_t> q(static_cast<uint8_t*>(data), kAggQueryLen);
      const uint32_t cmd = be::load32(q, 0);
      auto m = i.modes.find(cmd);
      be::store8(q, kAggModeByte, m == i.modes.end() ? i.defaultMode : m->second);
      return 0;
    }
    default:
      return kErrNotSupported;
  }
}

int zorIfSetApi(uint32_t unit, uint32_t field, void* data) {
  if (auto f = plat::faultHit({.call = "zorIfSetApi", .cmd = field, .unit = unit})) return *f;
  if (data == nullptr) return kErrBadParam;
  if (field == ZOR_IF_FIELD_STATS) {
    {
      Device& d = device();
      std::lock_guard lock(d.mutex);
      if (!d.model.interfaces.count(unit)) return kErrNotFound;
    }
    const auto* req = static_cast<const ZorScalarReq*>(data);
    if (req->cmd != ZOR_IF_STATS_CLEAR) return kErrNotSupported;
    return counterRequest(unit, req->data, true);
  }
  Device& d = device();
  std::lock_guard lock(d.mutex);
  auto it = d.model.interfaces.find(unit);
  if (it == d.model.interfaces.end()) return kErrNotFound;
  const uint32_t module = be::load32(data);
  switch (field) {
    case ZOR_IF_PROTO_ENABLE:
    case ZOR_IF_PROTO_DISABLE:
      setMembership(it->second.protocols, module, field == ZOR_IF_PROTO_ENABLE);
      return 0;
    case ZOR_IF_IGNORE_ENABLE:
    case ZOR_IF_IGNORE_DISABLE:
      setMembership(it->second.ignoring, module, field == ZOR_IF_IGNORE_ENABLE);
      return 0;
    default:
      return kErrNotSupported;
  }
}

int zorIfUnit2Name(uint32_t unit, char* buf, uint32_t len) {
  if (auto f = plat::faultHit({.call = "zorIfUnit2Name", .unit = unit})) return *f;
  if (buf == nullptr || len == 0) return kErrBadParam;
  buf[0] = '\0';
  Device& d = device();
  ModelUnchangedLock lock(d.mutex);
  auto it = d.model.interfaces.find(unit);
  if (it == d.model.interfaces.end()) {
    it = d.model.departed.find(unit);
    if (it == d.model.departed.end()) return kErrNotFound;
  }
  const size_t n = std::min<size_t>(it->second.name.size(), len - 1);
  std::memcpy(buf, it->second.name.data(), n);
  buf[n] = '\0';
  return 0;
}

int zorEthAggIfGetApi(uint32_t aggUnit, uint32_t cmd, void* pair) {
  if (auto f = plat::faultHit({.call = "zorEthAggIfGetApi", .cmd = cmd, .unit = aggUnit})) {
    return *f;
  }
  if (cmd != ZOR_AGG_MEMBERS) return kErrNotSupported;
  auto* desc = static_cast<ZorBufDesc*>(pair);
  if (desc == nullptr || desc->data == nullptr) return kErrBadParam;
  Device& d = device();
  ModelUnchangedLock lock(d.mutex);
  auto it = d.model.interfaces.find(aggUnit);
  if (it == d.model.interfaces.end() || it->second.kind() != ZOR_IF_KIND_AGG) return kErrNotFound;
  const auto& members = it->second.members;
  const size_t fit = std::min<size_t>({members.size(), desc->len / 4, ZOR_AGG_MAX_MEMBERS});
  std::span<uint8_t> out(static_cast<uint8_t*>(desc->data), desc->len);
  for (size_t n = 0; n < fit; ++n) be::store32(out, 4 * n, members[n]);
  desc->len = static_cast<uint32_t>(4 * fit);
  return 0;
}
