// What a run stopped by a signal must not leave behind: temporary files and
// folders it made that are still empty. Each is registered here while it
// exists, as a folder descriptor and a name prepared beforehand, so that the
// signal handler removes them with nothing but unlinkat: no allocation, no
// lock, no path walked through folders someone may have swapped.
#pragma once

#include <signal.h>

namespace tolvin {

class Leftovers {
 public:
  // Registers `name` (copied) in the folder open as `folder`; returns a
  // ticket for forget(), or -1 when the register is full.
  static int remember(int folder, const char* name, bool isFolder);
  // Drops the entry before its descriptor is closed or its name reused.
  static void forget(int ticket);
  // Removes every registered file, then every registered folder that is
  // empty, newest first. Safe inside a signal handler.
  static void removeAll();
};

// Interrupt, terminate, hang-up and quit remove the run's leftovers, then
// end the process by the same signal. A signal ignored at start stays so.
void installCancellationHandlers();

// Keeps those signals from the calling thread, and so from every thread it
// starts meanwhile, for as long as it lives: the handler then always runs on
// the thread that creates files, never beside it.
class CancellationBlock {
 public:
  CancellationBlock();
  ~CancellationBlock();
  CancellationBlock(const CancellationBlock&) = delete;
  CancellationBlock& operator=(const CancellationBlock&) = delete;

 private:
  sigset_t saved_;  // the thread's previous signal mask
};

}  // namespace tolvin
