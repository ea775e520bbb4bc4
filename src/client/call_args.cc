#include "client/call_args.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "wire/be.h"

namespace aclclient {

namespace {

bool startsWith(const std::string& s, const char* prefix) {
  return s.rfind(prefix, 0) == 0;
}

bool parseKey(const wire::FuncInfo* f, const std::string& text, bool keyArea, wire::Request* req,
              std::string* err) {
  if (text == "-") {
    if (keyArea && f != nullptr) {
      // A key area to fill starts zeroed, at the family's width.
      req->keyShape = wire::KeyShape::Bytes;
      req->key.assign(f->keyWidth, 0);
    } else {
      req->keyShape = wire::KeyShape::None;
    }
    return true;
  }
  if (startsWith(text, "x:")) {
    auto bytes = parseHex(text.substr(2));
    if (!bytes || bytes->empty()) {
      *err = "KEY x:HEX needs an even number of hex digits: " + text;
      return false;
    }
    req->keyShape = wire::KeyShape::Bytes;
    req->key = std::move(*bytes);
    return true;
  }
  const auto value = parseU32(text);
  if (!value) {
    *err = "KEY must be -, a number or x:HEX: " + text;
    return false;
  }
  if (keyArea) {
    req->keyShape = wire::KeyShape::Bytes;
    req->key.assign(4, 0);
    be::store32(req->key.data(), *value);
  } else {
    req->keyShape = wire::KeyShape::Value;
    req->keyValue = *value;
  }
  return true;
}

bool parseBuf(const std::string& text, wire::Request* req, std::string* err) {
  if (text == "-") {
    req->bufShape = wire::BufShape::None;
    return true;
  }
  const auto colon = text.find(':');
  const std::string kind = colon == std::string::npos ? text : text.substr(0, colon);
  const std::string rest = colon == std::string::npos ? "" : text.substr(colon + 1);
  if (kind == "u32" || kind == "dlen") {
    const auto value = parseU32(rest);
    if (!value) {
      *err = "BUF " + kind + ": needs a number: " + text;
      return false;
    }
    if (kind == "u32") {
      req->bufShape = wire::BufShape::Value;
      req->bufValue = *value;
    } else {
      req->bufShape = wire::BufShape::Desc;
      req->descCapacity = *value;
    }
    return true;
  }
  auto bytes = parseHex(rest);
  if (colon == std::string::npos || !bytes || (kind != "d" && kind != "p" && kind != "x")) {
    *err = "BUF must be -, u32:N, d:HEX, dlen:N, p:HEX or x:HEX: " + text;
    return false;
  }
  req->data = std::move(*bytes);
  if (kind == "d") {
    req->bufShape = wire::BufShape::Desc;
    req->descCapacity = static_cast<uint32_t>(req->data.size());
  } else {
    req->bufShape = kind == "p" ? wire::BufShape::Ptr : wire::BufShape::Raw;
  }
  return true;
}

}  // namespace

std::optional<uint32_t> parseU32(const std::string& text) {
  if (text.empty() || text[0] == '-' || text[0] == '+' || text[0] == ' ') return std::nullopt;
  const bool hex = startsWith(text, "0x") || startsWith(text, "0X");
  if (hex && text.size() == 2) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = std::strtoull(text.c_str(), &end, hex ? 16 : 10);
  if (errno != 0 || *end != '\0' || v > UINT32_MAX) return std::nullopt;
  return static_cast<uint32_t>(v);
}

std::optional<std::vector<uint8_t>> parseHex(const std::string& text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::vector<uint8_t> out;
  out.reserve(text.size() / 2);
  auto nibble = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  for (size_t i = 0; i < text.size(); i += 2) {
    const int hi = nibble(text[i]);
    const int lo = nibble(text[i + 1]);
    if (hi < 0 || lo < 0) return std::nullopt;
    out.push_back(static_cast<uint8_t>(hi << 4 | lo));
  }
  return out;
}

std::string toHex(std::span<const uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string s;
  s.reserve(bytes.size() * 2);
  for (uint8_t b : bytes) {
    s.push_back(kDigits[b >> 4]);
    s.push_back(kDigits[b & 0xF]);
  }
  return s;
}

std::optional<FuncRef> parseFunc(const std::string& text) {
  if (const auto* f = wire::funcByName(text)) return FuncRef{f->id, f};
  const auto id = parseU32(text);
  if (!id) return std::nullopt;
  return FuncRef{*id, *id < wire::kFuncCount ? &wire::funcInfo(*id) : nullptr};
}

bool buildRequest(const FuncRef& func, const CallArgs& args, wire::Request* req, std::string* err) {
  *req = wire::Request{};
  req->funcId = func.id;
  const wire::FuncShape shape = func.info ? func.info->shape : wire::FuncShape::Get;
  const bool takesCmdBuf = shape != wire::FuncShape::GetFirst &&
                           shape != wire::FuncShape::GetNext && shape != wire::FuncShape::IndexConv;
  if (!takesCmdBuf && (!args.cmd.empty() || args.buf != "-")) {
    *err = "a " + std::string(wire::shapeName(shape)) + " function takes only KEY";
    return false;
  }
  if (!parseKey(func.info, args.key, shape == wire::FuncShape::GetFirst, req, err)) return false;
  if (shape == wire::FuncShape::IndexConv) {
    // The answer comes back in a value word.
    req->bufShape = wire::BufShape::Value;
    return true;
  }
  if (!takesCmdBuf) return true;
  if (!args.cmd.empty()) {
    const auto cmd = parseU32(args.cmd);
    if (!cmd) {
      *err = "CMD must be a number: " + args.cmd;
      return false;
    }
    req->cmd = *cmd;
  }
  return parseBuf(args.buf, req, err);
}

nlohmann::ordered_json responseJson(const wire::Response& resp) {
  char retHex[16];
  std::snprintf(retHex, sizeof(retHex), "0x%08X", static_cast<uint32_t>(resp.result));
  nlohmann::ordered_json j = {{"ret", resp.result}, {"ret_hex", retHex}};
  if (resp.keyShape == wire::KeyShape::Bytes) j["key"] = toHex(resp.key);
  switch (resp.bufShape) {
    case wire::BufShape::None:
      break;
    case wire::BufShape::Value:
      j["buf"] = {{"u32", resp.bufValue}};
      break;
    case wire::BufShape::Desc:
      j["buf"] = {{"len", resp.descLen}, {"hex", toHex(resp.data)}};
      break;
    case wire::BufShape::Ptr:
    case wire::BufShape::Raw:
      j["buf"] = {{"len", resp.data.size()}, {"hex", toHex(resp.data)}};
      break;
  }
  return j;
}

std::string callShapesHelp() {
  std::string s =
      "Arguments by shape:\n"
      "  get, set, sync   FUNC KEY CMD [BUF]\n"
      "  getfirst         FUNC [KEY]   KEY: the key area to fill (default: zeroed)\n"
      "  getnext          FUNC KEY     KEY: the current key\n"
      "  indexconv        FUNC KEY     KEY: the index; the answer comes back as a value word\n"
      "KEY: - | N | 0xN | x:HEX (a key record, big-endian bytes)\n"
      "BUF: - (null) | u32:N | d:HEX (descriptor holding the bytes) | dlen:N (descriptor with an\n"
      "     N-byte zeroed area) | p:HEX (word holding a record's address; p: alone holds a null\n"
      "     address) | x:HEX (raw record)\n"
      "Functions (id name shape key):\n";
  for (const auto& f : wire::funcTable()) {
    if (f.shape == wire::FuncShape::Empty) continue;
    char line[96];
    const char* key = f.keyKind == wire::KeyKind::None    ? "none"
                      : f.keyKind == wire::KeyKind::Value ? "value"
                                                          : "bytes";
    std::snprintf(line, sizeof(line), "  %2u %-26.*s %-9.*s %s", f.id,
                  static_cast<int>(f.name.size()), f.name.data(),
                  static_cast<int>(wire::shapeName(f.shape).size()),
                  wire::shapeName(f.shape).data(), key);
    s += line;
    if (f.keyKind == wire::KeyKind::Bytes) s += " (" + std::to_string(f.keyWidth) + " bytes)";
    s += "\n";
  }
  return s;
}

}  // namespace aclclient
