// Timer lists: one-shot timers ordered by expiry, run by the list's owner from
// silTimerListCheck. A timer lives in its owner's record; the list only links it.
#include <cstddef>

#include "platform/fault.h"
#include "platform/keycmp.h"
#include "platform/sil.h"

namespace {

int timerOrder(const void* a, const void* b) {
  const auto* x = static_cast<const SilTimer*>(a);
  const auto* y = static_cast<const SilTimer*>(b);
  return keycmp::compare(x->expiry, y->expiry, x->seq, y->seq);
}

bool usable(const SilTimerList* list) { return list != nullptr && list->ready == 1; }

void disarm(SilTimer* t) {
  avl_remove(&t->list->timers, t);
  t->list = nullptr;
}

}  // namespace

int silTimerListInit(SilTimerList* list) {
  if (list == nullptr) return -1;
  if (auto f = plat::faultHit({.call = "silTimerListInit"})) return *f;
  avl_create(&list->timers, timerOrder, sizeof(SilTimer), offsetof(SilTimer, node));
  list->nextSeq = 0;
  list->ready = 1;
  return 0;
}

int silTimerStart(SilTimerList* list, SilTimer* timer, uint32_t /*flags*/, uint32_t ms,
                  SilTimerCallback callback, uintptr_t arg, uint32_t, uint32_t) {
  if (!usable(list) || timer == nullptr || callback == nullptr) return -1;
  if (auto f = plat::faultHit({.call = "silTimerStart"})) return *f;
  // Re-arming restarts the timer, also when it was armed on another list.
  if (timer->list != nullptr) disarm(timer);
  timer->expiry = silGetUpTime1ms() + ms;
  timer->seq = list->nextSeq++;
  timer->callback = callback;
  timer->arg = arg;
  timer->list = list;
  avl_add(&list->timers, timer);
  return 0;
}

int silTimerStop(SilTimerList* list, SilTimer* timer) {
  if (!usable(list) || timer == nullptr) return -1;
  if (timer->list == list) disarm(timer);
  return 0;
}

int32_t silTimerListNextTimeout(SilTimerList* list) {
  if (!usable(list)) return -1;
  const auto* first = static_cast<const SilTimer*>(avl_first(&list->timers));
  if (first == nullptr) return -1;
  const uint64_t now = silGetUpTime1ms();
  if (first->expiry <= now) return 0;
  const uint64_t wait = first->expiry - now;
  return wait > INT32_MAX ? INT32_MAX : static_cast<int32_t>(wait);
}

int silTimerListCheck(SilTimerList* list) {
  if (!usable(list)) return 0;
  const uint64_t now = silGetUpTime1ms();
  // Each timer is taken off before its callback runs, so a callback may re-arm it or stop others.
  // Timers armed by a callback wait for the next check, so a callback that re-arms itself for
  // "now" cannot hold the caller here for ever.
  const uint64_t lastSeq = list->nextSeq;
  int fired = 0;
  while (auto* t = static_cast<SilTimer*>(avl_first(&list->timers))) {
    if (t->expiry > now || t->seq >= lastSeq) break;
    disarm(t);
    ++fired;
    t->callback(t->arg);
  }
  return fired;
}

void silTimerListDestroy(SilTimerList* list) {
  if (!usable(list)) return;
  while (auto* t = static_cast<SilTimer*>(avl_first(&list->timers))) disarm(t);
  avl_destroy(&list->timers);
  list->ready = 0;
}
