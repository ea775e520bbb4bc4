// Message-group send: every announcement is kept by the device and put on the route bus.
#include "platform/netlink.h"

#include <span>

#include "platform/fault.h"
#include "platform/rtbus.h"
#include "platform/vdev/calls.h"

using namespace vdev;

int zorNetlinkSGrpSend(uint32_t group, uint32_t /*flags*/, const void* msg, uint32_t len) {
  if (auto f = plat::faultHit({.call = "zorNetlinkSGrpSend", .cmd = group})) return *f;
  if (msg == nullptr || len == 0) return kErrBadParam;
  std::vector<uint8_t> bytes = copyBytes(msg, len);
  {
    Device& d = device();
    std::lock_guard lock(d.mutex);
    journalPush(d.journal.announcements, Announcement{nextSeq(d.journal), group, bytes});
  }
  // Nobody listening is not a failure of the sender.
  plat::busSend(group, bytes);
  return 0;
}
