// The event task's four counters, read for aclctl. The command table has no function that answers
// them, so they go over the device control socket, which the daemon serves in-process.
#pragma once

#include <nlohmann/json.hpp>

// The answer of the "events" control op: under aclMutex, {"ok": true, "rtMsgRecvCnt",
// "rtMsgOkCnt", "rtMsgErrCnt", "rtMsgRecvFailCnt"}; {"ok": false, "error"} when the ACL module has
// not started.
nlohmann::json aclEventCountersReply();
