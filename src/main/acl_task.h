// The event task: the route-message socket, the timer list, and the walk of received messages.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <functional>
#include <span>

constexpr uint32_t ACL_RTMSG_HDR_LEN = 24;
constexpr uint32_t ACL_RTMSG_RECV_MAX = 0xF00;

constexpr int32_t ACL_TASK_IDLE_WAIT_S = 5;

int32_t aclSocketInit();
void aclTask(uintptr_t arg1, uintptr_t arg2);
// How long the task waits in select when the next timer is due in ms (-1: none).
timeval aclTaskWait(int32_t ms);
// Runs the expired timers of the task's list; the number run. aclMutex is taken as a change only
// when one is due: the idle wake-up looks as a query does, so the compiled lists stay.
int aclTimersRun();
// Walks the messages of one read and dispatches each; always 0.
int32_t aclRtMsgRecv(std::span<const uint8_t> data);
// The walk itself: calls visit(type, message, bytes from the message to the end of the read) for
// each well-formed message, stopping at the first that is not.
void aclRtMsgWalk(std::span<const uint8_t> data,
                  const std::function<void(uint16_t, std::span<const uint8_t>, uint32_t)>& visit);
// Hands one message (header included) to the work of its type (main/acl_rtmsg.cc). remaining
// counts the bytes from the message's start to the end of the read.
void aclRtMsgDispatch(uint16_t type, std::span<const uint8_t> msg, uint32_t remaining);
