// The converter, run as a process of its own per input, so that one bank's
// failure or memory never touches another.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>

namespace batch {

// The sorvane program beside this one (`self` is argv[0], used where the
// system cannot name the running program), else the first on PATH, as an
// absolute path; "" when there is none.
std::string findConverter(const std::string& self);

// The version the converter's banner shows ("1.98"); "" when it does not run.
std::string converterVersion(const std::string& converter);

// Starts `converter INPUT . results.txt` in `folder`, its console (standard
// output and error) going to the console file there and its standard input
// reading nothing, with `mask` as its signal mask. The process id, or -1
// when no process could be made.
pid_t startConversion(const std::string& converter, const std::string& folder, const std::string& input,
                      const sigset_t& mask);

}  // namespace batch
