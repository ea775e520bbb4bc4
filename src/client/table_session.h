// A connection to the command table for aclctl's friendly commands: typed calls of value words,
// descriptors and walks, each failing with an AclctlExit when the daemon cannot be reached or
// refuses a request (a result code is an answer, returned to the caller).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/aclctl.h"
#include "client/cmd_client.h"

namespace aclclient {

struct ValueAnswer {
  int32_t ret = 0;
  uint32_t value = 0;
};

struct BytesAnswer {
  int32_t ret = 0;
  std::vector<uint8_t> data;  // what the function wrote, up to the length it wrote back
};

class TableSession {
 public:
  explicit TableSession(const AclctlGlobals& globals);

  ValueAnswer getValue(uint32_t funcId, uint32_t key, uint32_t cmd);
  int32_t setValue(uint32_t funcId, uint32_t key, uint32_t cmd, uint32_t value);
  BytesAnswer getBytes(uint32_t funcId, uint32_t key, uint32_t cmd, uint32_t capacity);
  int32_t setBytes(uint32_t funcId, uint32_t key, uint32_t cmd, const std::vector<uint8_t>& bytes);
  // Every key of a value-keyed table, in walk order.
  std::vector<uint32_t> walk(uint32_t firstFuncId, uint32_t nextFuncId);
  // Any request; the daemon's answer, whose frame status is Ok.
  wire::Response call(const wire::Request& req);

 private:
  std::unique_ptr<CmdClient> client_;
};

// "CMN_ERR_IN_USE (0x03E8000B)", "ok", "-1 (not found / end)"; for messages.
std::string retText(int32_t ret);

// "SYS/SLOT", both numbers; a usage error naming what (the option or argument) otherwise.
std::pair<uint32_t, uint32_t> parseSlotKey(const std::string& text, const std::string& what);

}  // namespace aclclient
