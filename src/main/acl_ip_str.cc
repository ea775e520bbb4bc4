#include "main/acl_ip_str.h"

#include <arpa/inet.h>

const char* aclIpTostr(const uint8_t* addr, uint32_t family, char* buf, uint32_t size) {
  if (addr == nullptr) return "NULL";
  if (buf == nullptr || size < ACL_IP_STR_MIN) return "";
  const int af = family == 1 ? AF_INET : family == 2 ? AF_INET6 : -1;
  if (af < 0) return "Unknown";
  if (inet_ntop(af, addr, buf, size) == nullptr) buf[0] = '\0';
  return buf;
}
