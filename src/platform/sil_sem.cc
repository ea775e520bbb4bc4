// Mutual-exclusion semaphores. As on the device, the holder may take one again (each take is
// matched by a give), and only the holder may give it back.
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/fault.h"
#include "platform/sil.h"

namespace {

struct MSem {
  std::mutex m;
  std::condition_variable cv;
  std::thread::id owner;
  uint32_t depth = 0;
};

std::mutex gLiveMutex;
uint32_t gLiveSems = 0;

MSem* fromHandle(SIL_SEM_ID sem) { return reinterpret_cast<MSem*>(sem); }

}  // namespace

SIL_SEM_ID silCreateMSem(uint32_t /*options*/) {
  if (plat::faultHit({.call = "silCreateMSem"})) return 0;
  auto s = std::make_unique<MSem>();
  std::lock_guard lock(gLiveMutex);
  ++gLiveSems;
  return reinterpret_cast<SIL_SEM_ID>(s.release());
}

int silTakeSem(SIL_SEM_ID sem, int timeoutMs) {
  MSem* s = fromHandle(sem);
  if (s == nullptr) return -1;
  const auto self = std::this_thread::get_id();
  std::unique_lock lock(s->m);
  if (s->depth > 0 && s->owner == self) {
    ++s->depth;
    return 0;
  }
  auto free = [s] { return s->depth == 0; };
  if (timeoutMs < 0) {
    s->cv.wait(lock, free);
  } else if (!s->cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), free)) {
    return -1;
  }
  s->owner = self;
  s->depth = 1;
  return 0;
}

int silGiveSem(SIL_SEM_ID sem) {
  MSem* s = fromHandle(sem);
  if (s == nullptr) return -1;
  std::unique_lock lock(s->m);
  if (s->depth == 0 || s->owner != std::this_thread::get_id()) return -1;
  if (--s->depth == 0) {
    s->owner = {};
    lock.unlock();
    s->cv.notify_one();
  }
  return 0;
}

int silDeleteSem(SIL_SEM_ID sem) {
  MSem* s = fromHandle(sem);
  if (s == nullptr) return -1;
  std::unique_ptr<MSem> owned(s);
  std::lock_guard lock(gLiveMutex);
  --gLiveSems;
  return 0;
}

uint32_t silSemLiveCount() {
  std::lock_guard lock(gLiveMutex);
  return gLiveSems;
}
