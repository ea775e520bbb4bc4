// ONUs and GEM ports of the virtual device. A change is made under the device mutex and its route
// messages are sent after the mutex is given back, in the order the changes were made.
#include "platform/vdev/onu.h"

#include <mutex>
#include <string>

#include "platform/ifmgr.h"
#include "platform/rtbus.h"
#include "platform/vdev/model.h"
#include "wire/be.h"

namespace vdev {

namespace {

using nlohmann::json;

constexpr size_t kHeaderLen = 24;
constexpr uint32_t kMaxId = 0xFFFF;

json refuse(const std::string& why) {
  return {{"ok", false}, {"error", why}};
}

// A whole number in 1..65535 under key, or a refusal text.
bool idField(const json& req, const char* key, uint32_t* out, std::string* why) {
  if (!req.contains(key)) {
    *why = std::string("\"") + key + "\" is missing";
    return false;
  }
  const json& v = req.at(key);
  if (!v.is_number_unsigned() || v.get<uint64_t>() == 0 || v.get<uint64_t>() > kMaxId) {
    *why = std::string("\"") + key + "\" must be 1 to 65535";
    return false;
  }
  *out = v.get<uint32_t>();
  return true;
}

// The PON interface of the request, or a refusal text. Caller holds the device mutex.
Interface* ponOf(Device& d, const json& req, std::string* why) {
  if (!req.contains("interface") || !req.at("interface").is_number_unsigned()) {
    *why = "\"interface\" must be an interface index";
    return nullptr;
  }
  const uint64_t idx = req.at("interface").get<uint64_t>();
  auto it = d.model.interfaces.find(static_cast<uint32_t>(idx));
  if (idx > UINT32_MAX || it == d.model.interfaces.end()) {
    *why = "no interface " + std::to_string(idx);
    return nullptr;
  }
  if (it->second.kind() != ZOR_IF_KIND_PON) {
    *why = "interface " + std::to_string(idx) + " is not a PON interface";
    return nullptr;
  }
  return &it->second;
}

void sendAll(const std::vector<std::vector<uint8_t>>& msgs) {
  for (const auto& m : msgs) plat::busSend(kOnuGroup, m);
}

}  // namespace

std::vector<uint8_t> onuMessage(uint16_t type, const std::vector<uint32_t>& words) {
  std::vector<uint8_t> m(kHeaderLen + 4 * words.size(), 0);
  be::store32(m, 0, static_cast<uint32_t>(m.size()));
  be::store16(m, 4, type);
  for (size_t i = 0; i < words.size(); ++i) be::store32(m, kHeaderLen + 4 * i, words[i]);
  return m;
}

json onuSet(const json& req) {
  std::string why;
  uint32_t onu = 0;
  if (!idField(req, "onu", &onu, &why)) return refuse(why);
  std::vector<uint32_t> gems;
  if (req.contains("gemPorts")) {
    const json& arr = req.at("gemPorts");
    if (!arr.is_array()) return refuse("\"gemPorts\" must be an array of GEM ports");
    for (const json& g : arr) {
      if (!g.is_number_unsigned() || g.get<uint64_t>() == 0 || g.get<uint64_t>() > kMaxId) {
        return refuse("a GEM port is 1 to 65535");
      }
      gems.push_back(g.get<uint32_t>());
    }
  }
  std::vector<std::vector<uint8_t>> msgs;
  {
    Device& d = device();
    std::lock_guard lock(d.mutex);
    Interface* pon = ponOf(d, req, &why);
    if (pon == nullptr) return refuse(why);
    auto [it, fresh] = pon->onus.try_emplace(onu);
    if (fresh) msgs.push_back(onuMessage(kMsgOnuUp, {pon->index, onu}));
    for (uint32_t g : gems) {
      if (it->second.insert(g).second) {
        msgs.push_back(onuMessage(kMsgGemPortUp, {pon->index, onu, g}));
      }
    }
    if (!d.model.announce) msgs.clear();
  }
  sendAll(msgs);
  return {{"ok", true}};
}

json onuRemove(const json& req) {
  std::string why;
  uint32_t onu = 0;
  if (!idField(req, "onu", &onu, &why)) return refuse(why);
  uint32_t gem = 0;
  if (req.contains("gem") && !idField(req, "gem", &gem, &why)) return refuse(why);
  std::vector<std::vector<uint8_t>> msgs;
  {
    Device& d = device();
    std::lock_guard lock(d.mutex);
    Interface* pon = ponOf(d, req, &why);
    if (pon == nullptr) return refuse(why);
    auto it = pon->onus.find(onu);
    if (it == pon->onus.end()) {
      return refuse("no ONU " + std::to_string(onu) + " on interface " +
                    std::to_string(pon->index));
    }
    if (gem == 0) {
      pon->onus.erase(it);
      msgs.push_back(onuMessage(kMsgOnuRemoved, {pon->index, onu}));
    } else {
      if (it->second.erase(gem) == 0) {
        return refuse("ONU " + std::to_string(onu) + " has no GEM port " + std::to_string(gem));
      }
      msgs.push_back(onuMessage(kMsgGemPortRemoved, {pon->index, onu, gem}));
    }
    // A silenced device still changes its model; it only keeps its messages to itself.
    if (!d.model.announce) msgs.clear();
  }
  sendAll(msgs);
  return {{"ok", true}};
}

}  // namespace vdev
