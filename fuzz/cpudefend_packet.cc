// The CPU-defend packet parser from arbitrary bytes: the first 20 bytes are the request's
// metadata (l2len, ifUnit, EtherType, VLANs, priorities), the rest is the frame, copied into an
// allocation of exactly its size (at most the 128 bytes a request carries) so that any read past
// it is caught. The parse must also stay consistent: an IP version only for an IP EtherType
// whose whole fixed header lies in the frame.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include "services/acl_cpudefend_match.h"
#include "store/acl_rule_trans.h"
#include "wire/be.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kMetaLen = 20;
  if (size < kMetaLen) return 0;
  const std::span<const uint8_t> in(data, size);
  AclCpuDefendMeta meta{};
  meta.l2len = be::load32(in, 0);
  meta.ifUnit = be::load32(in, 4);
  // Mostly the two IP EtherTypes, so the fuzzer spends its time in the IP parsers.
  const uint16_t ethType = be::load16(in, 8);
  meta.ethType = (ethType & 3) == 0   ? ACL_ETHTYPE_IPV4
                 : (ethType & 3) == 1 ? ACL_ETHTYPE_IPV6
                                      : ethType;
  meta.innerVid = be::load16(in, 10);
  meta.outerVid = be::load16(in, 12);
  meta.innerPri = in[16];
  meta.outerPri = in[17];
  // Small offsets are where headers fit; the high bits still reach the wrap-around cases.
  if ((in[18] & 0x80) == 0) meta.l2len %= 160;

  const size_t frameLen = std::min<size_t>(size - kMetaLen, ACL_CPUDEFEND_FRAME_LEN);
  auto frame = std::make_unique<uint8_t[]>(frameLen == 0 ? 1 : frameLen);
  std::copy_n(data + kMetaLen, frameLen, frame.get());

  std::array<uint8_t, ACL_RULE_PARAM_LEN> rec;
  rec.fill(0xA5);
  aclCpuDefendPacketParse(std::span<const uint8_t>(frame.get(), frameLen), meta, rec);

  const uint8_t ipVer = rec[ACL_RP_ENCAP_LAYER_IPVER] & 3;
  const uint64_t headerEnd = uint64_t{meta.l2len} + (meta.ethType == ACL_ETHTYPE_IPV4 ? 20 : 40);
  const bool ipType = meta.ethType == ACL_ETHTYPE_IPV4 || meta.ethType == ACL_ETHTYPE_IPV6;
  const bool headerFits = ipType && headerEnd <= frameLen;
  if ((ipVer != 0) != headerFits) std::abort();
  if (headerFits && ipVer != (meta.ethType == ACL_ETHTYPE_IPV4 ? 1 : 2)) std::abort();
  // Nothing is left of what the record held before.
  if (rec[ACL_RULE_PARAM_LEN - 1] != 0) std::abort();
  return 0;
}
