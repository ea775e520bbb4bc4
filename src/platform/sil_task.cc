// Named tasks. Each task is a thread named after it. The daemon never stops its tasks; the test
// teardown asks every task to stop and joins them, so tasks test silTaskStopRequested between
// waits.
#include <pthread.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/fault.h"
#include "platform/proc.h"
#include "platform/sil.h"

namespace {

struct Task {
  std::string name;
  std::thread thread;
};

std::mutex gTasksMutex;
std::vector<Task> gTasks;
std::atomic<bool> gStopRequested{false};
std::atomic<uint64_t> gNextTaskId{1};

}  // namespace

int silCreateTask(const char* name, int /*priority*/, uint32_t /*stackBytes*/, SilTaskEntry entry,
                  uintptr_t arg1, uintptr_t arg2, uint64_t* taskIdOut) {
  const std::string taskName = name ? name : "task";
  if (auto f = plat::faultHit({.call = "silCreateTask", .name = taskName})) return *f;
  if (entry == nullptr) return -1;
  Task t{taskName, {}};
  try {
    t.thread = std::thread([entry, arg1, arg2, taskName] {
      // The kernel keeps 15 characters of a thread name.
      pthread_setname_np(pthread_self(), taskName.substr(0, 15).c_str());
      entry(arg1, arg2);
    });
  } catch (const std::system_error&) {
    return -1;
  }
  if (taskIdOut) *taskIdOut = gNextTaskId++;
  std::lock_guard lock(gTasksMutex);
  gTasks.push_back(std::move(t));
  return 0;
}

bool silTaskStopRequested() { return gStopRequested.load(std::memory_order_acquire); }

namespace plat {

void wakeSelectsForStop();  // rtbus.cc: ends every zor_select wait at once
void wakeDrain();           // rtbus.cc: lets zor_select wait again

void stopAllTasksForTest() {
  std::vector<Task> tasks;
  {
    std::lock_guard lock(gTasksMutex);
    tasks.swap(gTasks);
  }
  gStopRequested.store(true, std::memory_order_release);
  wakeSelectsForStop();
  for (auto& t : tasks) {
    if (t.thread.joinable()) t.thread.join();
  }
  wakeDrain();
  gStopRequested.store(false, std::memory_order_release);
}

}  // namespace plat
