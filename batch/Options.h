// The command line of sorvane-batch: options and inputs, checked before
// anything is converted.
#pragma once

#include <string>
#include <vector>

namespace batch {

struct Options {
  unsigned jobs = 0;  // 0: one per processor
  std::string outputFolder = "converted";
  bool force = false;
  std::string jsonPath;  // empty: no JSON; "-": standard output
  unsigned shard = 0;    // K of --shard K/N, from 1; 0: the whole list
  unsigned shardCount = 0;
  bool quiet = false;
  std::vector<std::string> inputs;
};

enum class Request { kRun, kHelp, kVersion, kUsageError };

// Reads the arguments after the program name. Options and inputs may come
// in any order until "--", after which everything is an input. On
// kUsageError, `error` says what is wrong in one line.
Request parseArguments(const std::vector<std::string>& arguments, Options& options, std::string& error);

// The text --help prints.
extern const char kHelpText[];

}  // namespace batch
