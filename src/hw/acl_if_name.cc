#include "hw/acl_if_name.h"

#include "platform/ifmgr.h"

AclIfName aclIfName(uint32_t unit, uint32_t len) {
  AclIfName name{};
  if (len > kAclIfNameLen) len = kAclIfNameLen;
  if (zorIfUnit2Name(unit, name.text, len) != 0) name.text[0] = '\0';
  name.text[kAclIfNameLen - 1] = '\0';
  return name;
}
