// The one place where scalar set reaches the services of other subsystems: CPU defend, NAT, the
// blacklist and the global traffic-policy operations.
#include <array>

#include "api/acl_scalar_api.h"
#include "services/acl_blacklist.h"
#include "services/acl_cpudefend.h"
#include "services/acl_nat.h"
#include "services/acl_traffic_policy.h"

namespace {

// A global traffic-policy operation as the table hands it its record.
template <int32_t (*Op)(const uint8_t*)>
int32_t record(const void* r) {
  return Op(static_cast<const uint8_t*>(r));
}

// Each entry names its function in the member its payload calls for: withBuf for 22 to 25,
// withRecord for 53 to 59, withWords for 67 and 68. A service not built yet keeps all three null.
constexpr std::array<AclScalarService, 13> kScalarServices = {{
    {ACL_SCALAR_CPUDEFEND_ADD, _aclCpudefendGlobaladdEx, nullptr, nullptr},
    {ACL_SCALAR_CPUDEFEND_DEL, _aclCpudefendGlobaldelEx, nullptr, nullptr},
    {ACL_SCALAR_NAT_ADD, _aclNatGlobaladdEx, nullptr, nullptr},
    {ACL_SCALAR_NAT_DEL, _aclNatGlobaldelEx, nullptr, nullptr},
    {53, nullptr, record<aclTrafficGlobalLoopback>, nullptr},
    {54, nullptr, record<aclTrafficGlobalRedirect>, nullptr},
    {55, nullptr, record<aclTrafficGlobalFilter>, nullptr},
    {56, nullptr, record<aclTrafficGlobalRemark>, nullptr},
    {57, nullptr, record<aclTrafficGlobalMirror>, nullptr},
    {58, nullptr, record<aclTrafficGlobalLimit>, nullptr},
    {59, nullptr, record<aclTrafficGlobalStatistic>, nullptr},
    {ACL_SCALAR_BLACKLIST_ADD, nullptr, nullptr, aclBlackListAdd},
    {ACL_SCALAR_BLACKLIST_DEL, nullptr, nullptr, aclBlackListDel},
}};

}  // namespace

const AclScalarService* aclScalarServiceFind(uint32_t cmd) {
  for (const AclScalarService& s : kScalarServices) {
    if (s.cmd == cmd) return &s;
  }
  return nullptr;
}
