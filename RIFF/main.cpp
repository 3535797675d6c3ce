#include <csignal>

#include "RIFF/Sorvane.h"

int main(int argc, char** argv) {
#ifdef SIGXFSZ
  // Past a file-size limit a write then fails like one on a full disk, and
  // is reported, instead of ending the program half-way through a file.
  std::signal(SIGXFSZ, SIG_IGN);
#endif
  // A reader that goes away (`sorvane … | head`) makes console writes fail;
  // the conversion goes on and still writes every file.
  std::signal(SIGPIPE, SIG_IGN);
  return sorvane_main(argc, argv);
}
