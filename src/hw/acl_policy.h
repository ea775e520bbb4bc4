// HQoS binding and policy-based redirect (PBR): two ways of putting a list on an interface that
// change what its rules do. HQoS installs the rules with an HQoS id action added to the stored
// rules themselves; PBR installs copies of the rules whose actions are a redirect. Callers hold
// aclMutex.
#pragma once

#include <cstdint>
#include <vector>

// The PBR request (big-endian), 80 bytes.
constexpr uint32_t ACL_PBR_REQ_LEN = 80;
constexpr uint32_t ACL_PBR_IF = 0;           // u32
constexpr uint32_t ACL_PBR_LST = 4;          // u32
constexpr uint32_t ACL_PBR_DIR = 8;          // u8
constexpr uint32_t ACL_PBR_CODE = 9;         // u8: 4, 7, 8, 46 or 50
constexpr uint32_t ACL_PBR_PRECEDENCE = 10;  // 4 bytes, used when the first is not 0
constexpr uint32_t ACL_PBR_VRF = 12;         // u32, 0 = none
constexpr uint32_t ACL_PBR_PARAM = 16;       // 64 bytes of redirect parameters

// The HQoS request: three big-endian words lstIdx, direction, HQoS id.
constexpr uint32_t ACL_HQOS_REQ_LEN = 12;

int32_t _aclHqosIfAdd(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t hqosId);
int32_t _aclHqosIfDel(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t hqosId);
// Entry points for other modules: they go through the interface table (command 18, 19).
int32_t aclHqosIfAdd(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t hqosId);
int32_t aclHqosIfDel(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t hqosId);

// req: ACL_PBR_REQ_LEN bytes.
int32_t aclPbrIfAdd(const uint8_t* req);
int32_t aclPbrIfDel(const uint8_t* req);
// Test entry points that build a request and send it through the interface table with command
// 20: a redirect to port; an IPv4 multi-hop redirect to 1.2.3.4 and 5.4.3.2 in VRF 1 (command 21
// when add is not 1); an IPv6 multi-hop redirect to fe80::102 in the first two positions.
int32_t aclPbrRedirectPortTest(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t port);
int32_t aclPbrRedirectIpv4Test(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t add);
int32_t aclPbrRedirectIpv6Test(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir);

// The HQoS bindings made and not removed, for the audit (one element per add).
struct AclHqosBinding {
  uint32_t ifIndex;
  uint32_t lstIdx;
  uint8_t dir;
};
std::vector<AclHqosBinding> aclHqosBindings();
void aclHqosResetForTest();
