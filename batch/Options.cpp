#include "batch/Options.h"

#include <cstdint>

namespace batch {

const char kHelpText[] =
    "Usage: sorvane-batch [-j N] [-o OUTDIR] [--force] [--json FILE] [--shard K/N] [-q] [--] INPUT...\n"
    "Converts every bank and loop among the INPUTs (files, and folders searched\n"
    "recursively) with sorvane, one process per input, each into a folder of its\n"
    "own below OUTDIR named after the input's path.\n"
    "\n"
    "  -j, --jobs N       run N conversions at once (default: one per processor)\n"
    "  -o, --output DIR   the folder that receives the results (default: converted)\n"
    "      --force        convert again inputs whose folder is up to date\n"
    "      --json FILE    write one JSON record per input to FILE (- for standard output)\n"
    "      --shard K/N    convert only the K-th of N disjoint parts of the inputs\n"
    "  -q, --quiet        print the summary only\n"
    "  -h, --help         print this text\n"
    "      --version      print the version\n"
    "\n"
    "Exit status: 0 when every input converted (warnings allowed), 1 when any\n"
    "failed, 2 for a usage error, 130 when interrupted.\n";

namespace {

// A decimal number from 1 to `limit`, nothing else.
bool parseCount(const std::string& text, unsigned limit, unsigned& value) {
  if (text.empty() || text.size() > 9) return false;
  uint64_t number = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    number = number * 10 + static_cast<unsigned>(c - '0');
  }
  if (number < 1 || number > limit) return false;
  value = static_cast<unsigned>(number);
  return true;
}

bool parseShard(const std::string& text, Options& options) {
  const size_t slash = text.find('/');
  return slash != std::string::npos && parseCount(text.substr(0, slash), 1000000, options.shard) &&
         parseCount(text.substr(slash + 1), 1000000, options.shardCount) && options.shard <= options.shardCount;
}

// Applies an option that takes a value; false with `error` set when the
// value is wrong.
bool applyValue(const std::string& name, const std::string& value, Options& options, std::string& error) {
  if (name == "-j" || name == "--jobs") {
    if (parseCount(value, 4096, options.jobs)) return true;
    error = "the number of jobs must be a whole number from 1 to 4096: " + value;
  } else if (name == "-o" || name == "--output") {
    if (!value.empty()) {
      options.outputFolder = value;
      return true;
    }
    error = "the output folder must not be empty";
  } else if (name == "--json") {
    if (!value.empty()) {
      options.jsonPath = value;
      return true;
    }
    error = "the JSON file must not be empty (- for standard output)";
  } else if (parseShard(value, options)) {
    return true;
  } else {
    error = "--shard takes K/N with 1 <= K <= N: " + value;
  }
  return false;
}

bool takesValue(const std::string& name) {
  return name == "-j" || name == "--jobs" || name == "-o" || name == "--output" || name == "--json" ||
         name == "--shard";
}

// Applies an option without a value; false for an unknown one.
bool applyFlag(const std::string& name, Options& options, Request& request) {
  if (name == "-q" || name == "--quiet") options.quiet = true;
  else if (name == "--force") options.force = true;
  else if (name == "-h" || name == "--help") request = Request::kHelp;
  else if (name == "--version") request = request == Request::kHelp ? request : Request::kVersion;
  else return false;
  return true;
}

}  // namespace

Request parseArguments(const std::vector<std::string>& arguments, Options& options, std::string& error) {
  Request request = Request::kRun;
  bool onlyInputs = false;
  // The value of an option given in the next argument.
  size_t at = 0;
  auto nextValue = [&](const std::string& name, std::string& value) {
    if (at + 1 == arguments.size()) {
      error = "option " + name + " needs a value";
      return false;
    }
    value = arguments[++at];
    return true;
  };
  for (; at < arguments.size(); ++at) {
    const std::string& argument = arguments[at];
    if (onlyInputs || argument.size() < 2 || argument[0] != '-') {
      options.inputs.push_back(argument);
    } else if (argument == "--") {
      onlyInputs = true;
    } else if (argument[1] != '-') {
      // Letters may run together ("-qh"); the first that takes a value takes
      // the rest of the argument, or the next one ("-j4", "-qj 4").
      for (size_t letter = 1; letter < argument.size(); ++letter) {
        const std::string name = {'-', argument[letter]};
        if (takesValue(name)) {
          std::string value = argument.substr(letter + 1);
          if ((value.empty() && !nextValue(name, value)) || !applyValue(name, value, options, error))
            return Request::kUsageError;
          break;
        }
        if (!applyFlag(name, options, request)) {
          error = "unknown option " + name;
          return Request::kUsageError;
        }
      }
    } else {
      // "--name=value" or "--name value".
      const size_t equals = argument.find('=');
      const std::string name = argument.substr(0, equals);
      std::string value;
      if (takesValue(name)) {
        if (equals != std::string::npos) value = argument.substr(equals + 1);
        else if (!nextValue(name, value)) return Request::kUsageError;
        if (!applyValue(name, value, options, error)) return Request::kUsageError;
      } else if (equals != std::string::npos) {
        error = "option " + name + " takes no value";
        return Request::kUsageError;
      } else if (!applyFlag(name, options, request)) {
        error = "unknown option " + name;
        return Request::kUsageError;
      }
    }
  }
  if (request == Request::kRun && options.inputs.empty()) {
    error = "no input given";
    return Request::kUsageError;
  }
  return request;
}

}  // namespace batch
