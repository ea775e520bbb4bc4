#include "diag/acl_event_counters.h"

#include "main/acl_group.h"

nlohmann::json aclEventCountersReply() {
  if (!aclStarted()) return {{"ok", false}, {"error", "the ACL module is not running"}};
  AclLockGuard lock;
  return {{"ok", true},
          {"rtMsgRecvCnt", gaclGrp.rtMsgRecvCnt},
          {"rtMsgOkCnt", gaclGrp.rtMsgOkCnt},
          {"rtMsgErrCnt", gaclGrp.rtMsgErrCnt},
          {"rtMsgRecvFailCnt", gaclGrp.rtMsgRecvFailCnt}};
}
