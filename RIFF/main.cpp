#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>

#include "RIFF/Sorvane.h"
#include "source/Cancellation.h"

namespace {

// A standard descriptor left closed would be handed to the first file the
// run opens, and console text would land in that file: each one closed is
// opened on the null device first.
void keepStandardDescriptorsOpen() {
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF) continue;
    const int opened = ::open("/dev/null", O_RDWR);
    if (opened >= 0 && opened != descriptor) ::close(opened);
  }
}

const char kOutOfMemory[] = "Conversion stopped: not enough memory\n";

// The last resort, on whichever thread: with memory so short that not even a
// memory failure can be thrown, the run still removes its leftovers and ends
// with its line. Anything else ending here is a fault, and aborts.
[[noreturn]] void onTerminate() {
  tolvin::Leftovers::removeAll();
  bool memory = true;
  if (const std::exception_ptr pending = std::current_exception()) {
    try {
      std::rethrow_exception(pending);
    } catch (const std::bad_alloc&) {
    } catch (...) {
      memory = false;
    }
  }
  if (!memory) std::abort();
  std::fflush(stdout);
  std::fputs(kOutOfMemory, stdout);
  std::fflush(stdout);
  std::_Exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  keepStandardDescriptorsOpen();
#ifdef SIGXFSZ
  // Past a file-size limit a write then fails like one on a full disk, and
  // is reported, instead of ending the program half-way through a file.
  std::signal(SIGXFSZ, SIG_IGN);
#endif
  // A reader that goes away (`sorvane … | head`) makes console writes fail;
  // the conversion goes on and still writes every file.
  std::signal(SIGPIPE, SIG_IGN);
  // Interrupted or terminated, the run removes its temporary files first.
  tolvin::installCancellationHandlers();
  std::set_terminate(onTerminate);
  try {
    return sorvane_main(argc, argv);
  } catch (const std::bad_alloc&) {
    // Past the conversion itself (which reports its own): the temporary
    // files went with the unwinding, and the run ends like any failed one.
    std::cout << kOutOfMemory << std::flush;
    return 0;
  }
}
