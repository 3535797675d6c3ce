// sorvane-batch: converts a whole library, one sorvane process per input.
#include <cstdio>
#include <string>
#include <vector>

#include "batch/Batch.h"
#include "batch/Options.h"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  batch::Options options;
  std::string error;
  switch (batch::parseArguments(arguments, options, error)) {
    case batch::Request::kHelp:
      std::fputs(batch::kHelpText, stdout);
      return 0;
    case batch::Request::kVersion:
      std::puts("sorvane-batch " SORVANE_VERSION);
      return 0;
    case batch::Request::kUsageError:
      std::fprintf(stderr, "sorvane-batch: %s\nTry 'sorvane-batch --help' for more information.\n", error.c_str());
      return 2;
    case batch::Request::kRun:
      break;
  }
  return batch::runBatch(options, argc > 0 ? argv[0] : "");
}
