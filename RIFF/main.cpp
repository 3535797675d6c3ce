#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
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
  try {
    return sorvane_main(argc, argv);
  } catch (const std::bad_alloc&) {
    // Past the conversion itself (which reports its own): the temporary
    // files went with the unwinding, and the run ends like any failed one.
    std::cout << "Conversion stopped: not enough memory" << std::endl;
    return 0;
  }
}
