// How long a client waits for each answer of the daemon or the device unless a call says
// otherwise. aclctl's --timeout sets it: a large reply (a long journal page), a daemon built with
// sanitizers or a loaded machine may need more than the default.
#pragma once

namespace aclclient {

constexpr int kDefaultTimeoutMs = 5000;

inline int& defaultTimeoutMsRef() {
  static int ms = kDefaultTimeoutMs;
  return ms;
}
inline int defaultTimeoutMs() {
  return defaultTimeoutMsRef();
}
inline void setDefaultTimeoutMs(int ms) {
  defaultTimeoutMsRef() = ms;
}

}  // namespace aclclient
