// The rule table (function ids 9 to 13) for aclctl and other client programs: typed calls with a
// rule key, each failing with an AclctlExit when the daemon cannot be reached or refuses the
// request (a result code is an answer, returned to the caller).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/aclctl.h"
#include "client/cmd_client.h"
#include "client/table_session.h"

namespace aclclient {

struct RuleRef {
  uint32_t lst = 0;
  uint32_t rule = 0;
  bool operator==(const RuleRef&) const = default;
};

class RuleClient {
 public:
  explicit RuleClient(const AclctlGlobals& globals);

  ValueAnswer getValue(RuleRef r, uint32_t cmd);
  BytesAnswer getBytes(RuleRef r, uint32_t cmd, uint32_t capacity);
  int32_t setValue(RuleRef r, uint32_t cmd, uint32_t value);
  int32_t setBytes(RuleRef r, uint32_t cmd, const std::vector<uint8_t>& bytes);
  // The rules of one list (or of every list), in walk order.
  std::vector<RuleRef> walk(std::optional<uint32_t> lst);
  // The lowest rule number list lst does not use.
  uint32_t freeRule(uint32_t lst);
  // Whether the daemon takes redirect port sets past the first 32 ports (scalar get 38).
  bool multiRedirect();
  // The connection under the rule calls, for the other tables on the same connection.
  TableSession& session() { return session_; }

 private:
  TableSession session_;
};

// retText with the rule table's own codes named as well.
std::string ruleRetText(int32_t ret);

}  // namespace aclclient
