// Classifying an Ethernet frame against one hardware table the way a TCAM would: the frame is
// decoded into the fields a rule can match, every entry of the table (decoded as `dev hw` shows
// it) is compared field by field under its masks, prefixes and ranges, and the matching entry of
// the best priority wins. The hardware priority of a rule is its index plus the base of its
// scope and list type, so the lowest number is looked up first, as a list's first rule decides.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/vdev/model.h"

namespace vdev {

// What a frame offers to the match: absent layers stay unset.
struct Frame {
  uint8_t dstMac[6]{}, srcMac[6]{};
  uint32_t tags = 0;  // 802.1Q / 802.1ad tags read (at most two are kept)
  uint16_t outerVid = 0, innerVid = 0;
  uint8_t outerPri = 0, innerPri = 0;
  uint16_t ethType = 0;  // after the tags
  uint8_t ipVer = 0;     // 1 IPv4, 2 IPv6, 0 neither (or truncated)
  std::array<uint8_t, 16> src{}, dst{};
  uint8_t protocol = 0;  // IPv4 protocol or IPv6 next header
  uint8_t ttl = 0;
  bool l4 = false;  // ports (TCP, UDP) or type and code (ICMP) were read
  uint16_t srcPort = 0, dstPort = 0;
};

// Decodes a frame from its bytes; false with error when it is shorter than an Ethernet header.
// A truncated upper layer is not an error: its fields are left unset and match no rule on them.
bool decodeFrame(std::span<const uint8_t> bytes, Frame* f, std::string* error);
nlohmann::json frameToJson(const Frame& f);

// The outcome of comparing one decoded entry with a frame.
enum class EntryMatch { Match, NoMatch, Unjudged };
// Compares the decoded rule ("fields" of decodeHwRule) with the frame; Unjudged when the rule
// holds a field this classifier cannot compare (unjudged names it).
EntryMatch matchEntry(const nlohmann::json& decoded, const Frame& f, std::string* unjudged);

// Classifies the frame against the table at key for direction dir: {"frame", "match" (the
// winning entry as `dev hw` shows it, or null), "examined", "unjudged" (entries skipped because
// of a field not compared, with that field)}. The caller holds the device mutex.
nlohmann::json classifyFrame(const Journal& jr, const ScopeKey& key, uint32_t dir, const Frame& f);

}  // namespace vdev
