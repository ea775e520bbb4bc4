#include "main/acl_task.h"

#include <sys/select.h>

#include <algorithm>
#include <cerrno>

#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/rtbus.h"
#include "wire/be.h"

namespace {

// The message groups the process listens to: interfaces, aggregations, cards, slots, next hops,
// time ranges and ONUs.
constexpr uint32_t kRouteGroups[] = {1, 85, 3, 34, 33, 35, 77, 100, 105};

int setOption(int fd, int level, int option, uint32_t value) {
  uint8_t v[4];
  be::store32(v, value);
  return zor_setsockopt(fd, level, option, v, sizeof v);
}

// Counters are shown by the scalar API from the command task; they change under the lock.
void countUnderLock(uint32_t AclGroup::*counter) {
  aclLock();
  ++(gaclGrp.*counter);
  aclUnlock();
}

}  // namespace

int32_t aclSocketInit() {
  if (gaclGrp.sockFd < 0) {
    gaclGrp.sockFd = zor_socket(ZOR_AF_ROUTE, ZOR_SOCK_DGRAM, 0);
    if (gaclGrp.sockFd < 0) return -1;
  }
  uint8_t addr[12] = {};
  be::store16(addr, 0, ZOR_AF_ROUTE);
  if (zor_bind(gaclGrp.sockFd, addr, sizeof addr) != 0) return -1;
  for (uint32_t group : kRouteGroups) {
    if (setOption(gaclGrp.sockFd, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, group) != 0) return -1;
  }
  if (setOption(gaclGrp.sockFd, ZOR_SOL_SOCKET, ZOR_SO_MODULE, ACL_MODULE_NUM) != 0) return -1;
  return 0;
}

void aclTask(uintptr_t, uintptr_t) {
  int maxFd = 0;
  uint8_t buf[ACL_RTMSG_RECV_MAX];
  while (!silTaskStopRequested()) {
    const int fd = gaclGrp.sockFd;
    fd_set readSet;
    FD_ZERO(&readSet);
    FD_SET(fd, &readSet);
    maxFd = std::max(maxFd, fd);

    // Only reads: taken as a query takes it, so an idle wake-up leaves compiled lists alone.
    aclLockForQuery();
    const int32_t ms = silTimerListNextTimeout(&gaclGrp.timerList);
    aclUnlock();
    timeval wait = aclTaskWait(ms);

    const int n = zor_select(maxFd + 1, &readSet, nullptr, nullptr, &wait);
    if (silTaskStopRequested()) break;
    if (n < 0) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [ACL main task] error. (Reason=[select failed(%d)])\r\n",
               errno);
      continue;
    }

    aclTimersRun();

    if (!FD_ISSET(fd, &readSet)) continue;
    const int got = zor_recv(fd, buf, sizeof buf, 0);
    if (got < 1) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [ACL main task] error. (Reason=[recv errnoGet = %d,readBytes = %d])\r\n",
               errno, got);
      countUnderLock(&AclGroup::rtMsgRecvFailCnt);
      continue;
    }
    aclLock();
    ++gaclGrp.rtMsgRecvCnt;
    const int32_t ret = aclRtMsgRecv(std::span<const uint8_t>(buf, static_cast<size_t>(got)));
    ++(ret == 0 ? gaclGrp.rtMsgOkCnt : gaclGrp.rtMsgErrCnt);
    aclUnlock();
  }
}

int aclTimersRun() {
  aclLockForQuery();
  const bool due = silTimerListNextTimeout(&gaclGrp.timerList) == 0;
  aclUnlock();
  if (!due) return 0;
  // Another task may stop or re-arm a timer between the two holds; the check looks again and runs
  // only what is still due, so nothing runs that would not have run under one hold.
  aclLock();
  const int fired = silTimerListCheck(&gaclGrp.timerList);
  aclUnlock();
  return fired;
}

timeval aclTaskWait(int32_t ms) {
  timeval wait{};
  // No timer armed (the list answers -1; anything negative is read the same way): wake now and
  // then anyway, so the task never sleeps on a socket that will not speak.
  if (ms < 0) {
    wait.tv_sec = ACL_TASK_IDLE_WAIT_S;
  } else {
    wait.tv_sec = ms / 1000;
    wait.tv_usec = (ms % 1000) * 1000;
  }
  return wait;
}

int32_t aclRtMsgRecv(std::span<const uint8_t> data) {
  aclRtMsgWalk(data, aclRtMsgDispatch);
  return 0;
}

void aclRtMsgWalk(std::span<const uint8_t> data,
                  const std::function<void(uint16_t, std::span<const uint8_t>, uint32_t)>& visit) {
  size_t off = 0;
  while (data.size() - off >= ACL_RTMSG_HDR_LEN) {
    const size_t left = data.size() - off;
    const uint32_t len = be::load32(data, off);
    if (len < ACL_RTMSG_HDR_LEN || len > left) break;
    const uint16_t type = be::load16(data, off + 4);
    visit(type, data.subspan(off, len), static_cast<uint32_t>(left));
    // Messages start on 4-byte boundaries; the padding after the last one may be missing.
    const size_t step = (static_cast<size_t>(len) + 3) & ~size_t{3};
    if (step >= left) break;
    off += step;
  }
}
