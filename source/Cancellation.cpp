#include "source/Cancellation.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>
#include <vector>

namespace tolvin {

namespace {

// Entries live in blocks reached through a fixed table, so the handler can
// walk them by index while the run adds blocks.
const int kBlockSize = 256;
const int kBlockCount = 1024;
const int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

struct Entry {
  std::atomic<int> folder{-1};  // -1: free
  std::atomic<char*> name{nullptr};
  bool isFolder = false;
};

std::atomic<Entry*> gBlocks[kBlockCount];
std::atomic<int> gHighWater{0};  // entries ever handed out
std::mutex gMutex;               // for the run's threads, never the handler
std::vector<int> gFree;          // tickets forgotten, for reuse

Entry* entryAt(int ticket) {
  Entry* block = gBlocks[ticket / kBlockSize].load(std::memory_order_acquire);
  return block ? &block[ticket % kBlockSize] : nullptr;
}

int newTicket() {
  if (!gFree.empty()) {
    const int ticket = gFree.back();
    gFree.pop_back();
    return ticket;
  }
  const int ticket = gHighWater.load(std::memory_order_relaxed);
  if (ticket >= kBlockSize * kBlockCount) return -1;
  if (ticket % kBlockSize == 0) gBlocks[ticket / kBlockSize].store(new Entry[kBlockSize], std::memory_order_release);
  gHighWater.store(ticket + 1, std::memory_order_release);
  return ticket;
}

void removeEntry(Entry& entry, bool folders) {
  const int folder = entry.folder.load(std::memory_order_acquire);
  const char* name = entry.name.load(std::memory_order_acquire);
  if (folder >= 0 && name && entry.isFolder == folders) ::unlinkat(folder, name, folders ? AT_REMOVEDIR : 0);
}

void fillSignalSet(sigset_t& set) {
  sigemptyset(&set);
  for (int signal : kSignals) sigaddset(&set, signal);
}

void onCancel(int signal) {
  Leftovers::removeAll();
  // Ended by the same signal, as a shell expects: the default action, taken
  // once the signal, blocked while this runs, is let through.
  ::signal(signal, SIG_DFL);
  ::raise(signal);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace

int Leftovers::remember(int folder, const char* name, bool isFolder) {
  const size_t length = std::strlen(name);
  char* copy = new char[length + 1];
  std::memcpy(copy, name, length + 1);
  std::lock_guard<std::mutex> lock(gMutex);
  const int ticket = newTicket();
  Entry* entry = ticket < 0 ? nullptr : entryAt(ticket);
  if (!entry) {
    delete[] copy;
    return -1;
  }
  entry->isFolder = isFolder;
  entry->name.store(copy, std::memory_order_release);
  entry->folder.store(folder, std::memory_order_release);
  return ticket;
}

void Leftovers::forget(int ticket) {
  if (ticket < 0) return;
  std::lock_guard<std::mutex> lock(gMutex);
  Entry* entry = entryAt(ticket);
  if (!entry) return;
  entry->folder.store(-1, std::memory_order_release);
  delete[] entry->name.exchange(nullptr, std::memory_order_acq_rel);
  gFree.push_back(ticket);
}

void Leftovers::removeAll() {
  const int saved = errno;
  const int count = gHighWater.load(std::memory_order_acquire);
  for (int ticket = 0; ticket < count; ++ticket)
    if (Entry* entry = entryAt(ticket)) removeEntry(*entry, false);
  // A folder made inside another one was registered after it.
  for (int ticket = count - 1; ticket >= 0; --ticket)
    if (Entry* entry = entryAt(ticket)) removeEntry(*entry, true);
  errno = saved;
}

void installCancellationHandlers() {
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = onCancel;
  fillSignalSet(action.sa_mask);  // a second signal waits for the first one's cleanup
  for (int signal : kSignals) {
    struct sigaction previous;
    if (::sigaction(signal, nullptr, &previous) == 0 && previous.sa_handler == SIG_IGN) continue;
    ::sigaction(signal, &action, nullptr);
  }
}

CancellationBlock::CancellationBlock() {
  sigset_t set;
  fillSignalSet(set);
  ::pthread_sigmask(SIG_BLOCK, &set, &saved_);
}

CancellationBlock::~CancellationBlock() {
  ::pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
}

}  // namespace tolvin
