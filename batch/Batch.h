// A whole batch: the inputs found, each converted by its own process into
// its own folder, N at a time, and what came of each reported.
#pragma once

#include <string>

#include "batch/Options.h"

namespace batch {

// Runs the batch and returns the exit status: 0 when every input converted
// (warnings allowed) or was up to date, 1 when any failed, 2 when the batch
// cannot start (no converter, no output folder, no JSON file), 128 + the
// signal when stopped by SIGINT, SIGTERM or SIGHUP. `self` is argv[0].
int runBatch(const Options& options, const std::string& self);

}  // namespace batch
