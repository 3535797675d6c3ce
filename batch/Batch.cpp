#include "batch/Batch.h"

#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

#include "batch/Console.h"
#include "batch/Converter.h"
#include "batch/Inputs.h"
#include "batch/JobFolder.h"
#include "batch/Record.h"
#include "batch/Report.h"
#include "source/PlatformTools.h"

namespace batch {

namespace {

using Clock = std::chrono::steady_clock;

const int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

unsigned processorCount() {
#ifdef __linux__
  cpu_set_t set;
  if (::sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return CPU_COUNT(&set);
#endif
  const long online = ::sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<unsigned>(online) : 1;
}

void printError(const std::string& message) { std::fprintf(stderr, "sorvane-batch: %s\n", message.c_str()); }

std::string currentFolder() {
  std::unique_ptr<char, decltype(&std::free)> folder(::getcwd(nullptr, 0), &std::free);
  return folder ? folder.get() : ".";
}

bool isFolder(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The first SFZ file of a job folder, relative to it, as its results file
// names it ("./000_Piano.sfz" from the converter run in the folder); "" when
// there is none.
std::string firstSfzIn(const std::string& folder) {
  std::ifstream results(folder + "/" + kResultsName);
  std::string first;
  std::getline(results, first);
  if (first.compare(0, 2, "./") == 0) first.erase(0, 2);
  return !first.empty() && tolvin::isRegularFile(folder + "/" + first) ? first : "";
}

std::string endText(int status) {
  if (WIFSIGNALED(status)) return "sorvane-batch: the converter ended by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) == 127) return "sorvane-batch: the converter could not be run";
  return "sorvane-batch: the converter exited with status " + std::to_string(WEXITSTATUS(status));
}

// One conversion under way.
struct Job {
  const Input* input = nullptr;
  pid_t pid = -1;
  std::string final, staging;
  std::string copied;  // the name of the input's link (or copy) in the folder; "" for none
  Clock::time_point start;
};

class Batch {
 public:
  Batch(const Options& options, std::string converter, std::string version)
      : options_(options), converter_(std::move(converter)), version_(std::move(version)),
        workingFolder_(currentFolder()), outputFolder_(withoutTrailingSlashes(options.outputFolder)) {}
  int run();

 private:
  void blockSignals();
  bool pollStop();
  void stop(int signal);
  void wait();
  void reap();
  void start(const Input& input);
  void finish(const Job& job, int status);
  void failed(Record& record, const Input& input, const std::string& error);
  void report(const Record& record, const Input& input);
  void discard(const Job& job) const;
  Stamp stampOf(const Input& input) const { return Stamp{input.size, input.modified, version_}; }

  const Options& options_;
  const std::string converter_, version_, workingFolder_, outputFolder_;
  sigset_t original_, stopSet_, waitSet_;
  std::vector<Input> inputs_;
  std::vector<Job> jobs_;
  int stopSignal_ = 0;
  bool live_ = false;  // a progress line on a terminal
  JsonReport json_;
  std::unique_ptr<Reporter> reporter_;
};

// Stop signals and the end of a child are taken synchronously, in the loop:
// nothing runs in a handler, and a finished folder is swapped in whole even
// when a signal comes meanwhile. A stop signal ignored at start stays so.
void Batch::blockSignals() {
  ::signal(SIGCHLD, SIG_DFL);  // an ignored one would reap the children unseen
  sigemptyset(&stopSet_);
  for (int signal : kStopSignals) {
    struct sigaction action;
    if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) sigaddset(&stopSet_, signal);
  }
  waitSet_ = stopSet_;
  sigaddset(&waitSet_, SIGCHLD);
  ::sigprocmask(SIG_BLOCK, &waitSet_, &original_);
}

// Takes the stop signals pending; true once the batch is stopping.
bool Batch::pollStop() {
  const timespec now = {0, 0};
  for (int signal; (signal = ::sigtimedwait(&stopSet_, nullptr, &now)) > 0;) stop(signal);
  return stopSignal_ != 0;
}

// The first stop signal goes on to every conversion; a second one ends them.
void Batch::stop(int signal) {
  const bool first = stopSignal_ == 0;
  if (first) stopSignal_ = signal;
  for (const Job& job : jobs_) ::kill(job.pid, first ? signal : SIGKILL);
}

void Batch::wait() {
  siginfo_t info;
  const timespec tick = {0, 250000000};  // for the live line's clock
  const int signal = live_ ? ::sigtimedwait(&waitSet_, &info, &tick) : ::sigwaitinfo(&waitSet_, &info);
  if (signal > 0 && signal != SIGCHLD) stop(signal);
}

void Batch::reap() {
  // A Ctrl-C reaches the conversions with the batch: its signal is taken
  // first, so that a conversion it ended counts as cancelled, not failed.
  pollStop();
  int status = 0;
  for (pid_t pid; (pid = ::waitpid(-1, &status, WNOHANG)) > 0;) {
    for (size_t i = 0; i < jobs_.size(); ++i) {
      if (jobs_[i].pid != pid) continue;
      const Job job = std::move(jobs_[i]);
      jobs_.erase(jobs_.begin() + static_cast<long>(i));
      finish(job, status);
      break;
    }
  }
}

void Batch::report(const Record& record, const Input& input) {
  reporter_->finished(record, input.size);
  json_.add(record);
}

// A staging folder that will not be swapped in goes, and with it the
// folders made for it, unless an earlier conversion is there.
void Batch::discard(const Job& job) const {
  removeTree(job.staging);
  if (!isFolder(job.final)) removeEmptyParents(job.final, outputFolder_);
}

void Batch::failed(Record& record, const Input& input, const std::string& error) {
  record.outcome = Outcome::kFailed;
  record.errors.insert(record.errors.begin(), "sorvane-batch: " + error);
  report(record, input);
}

void Batch::start(const Input& input) {
  Record record;
  record.input = input.path;
  if (!input.problem.empty()) return failed(record, input, input.problem);
  Job job;
  job.input = &input;
  job.final = outputFolder_ + "/" + input.relative;
  Stamp stamp;
  if (!options_.force && readStamp(job.final, stamp) && stamp == stampOf(input)) {
    record.outcome = Outcome::kUpToDate;
    record.output = job.final;
    const std::string first = firstSfzIn(job.final);
    if (!first.empty()) record.firstSfz = job.final + "/" + first;
    return report(record, input);
  }
  // Hidden, beside the final folder, on the same file system.
  job.staging = tolvin::getPathFromFile(job.final) + "/." + tolvin::getFileFromPath(job.final) + ".sorvane-batch-" +
                std::to_string(::getpid());
  removeTree(job.staging);
  std::string error;
  if (!makeFolders(job.staging, error)) {
    discard(job);
    return failed(record, input, error);
  }
  std::string argument = input.path[0] == '/' ? input.path : workingFolder_ + "/" + input.path;
  if (convertsFromCopy(input.path)) {
    // A loop's SFZ file names its wave with control bytes as blanks: the
    // copy's name has none.
    job.copied = tolvin::getFileFromPath(input.path);
    tolvin::replaceControlBytes(job.copied, '_');
    argument = job.copied;
    if (!linkOrCopy(input.path, job.staging + "/" + job.copied, error)) {
      discard(job);
      return failed(record, input, error);
    }
  }
  job.start = Clock::now();
  job.pid = startConversion(converter_, job.staging, argument, original_);
  if (job.pid < 0) {
    discard(job);
    return failed(record, input, std::string("cannot start the converter: ") + std::strerror(errno));
  }
  jobs_.push_back(std::move(job));
}

void Batch::finish(const Job& job, int status) {
  const Input& input = *job.input;
  Record record;
  record.input = input.path;
  record.seconds = std::chrono::duration<double>(Clock::now() - job.start).count();
  const bool endedNormally = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (stopSignal_ && !endedNormally) {
    discard(job);
    record.outcome = Outcome::kCancelled;
    return report(record, input);
  }
  std::ifstream consoleFile(job.staging + "/" + kConsoleName);
  ConsoleReport console = readConsole(consoleFile);
  const std::string first = firstSfzIn(job.staging);
  record.outcome = classify(console, endedNormally, !first.empty());
  record.errors = std::move(console.errors);
  record.warnings = std::move(console.warnings);
  if (!endedNormally) record.errors.insert(record.errors.begin(), endText(status));
  if (first.empty() && record.errors.empty()) record.errors.push_back("sorvane-batch: no SFZ file was written");
  record.bytesRead = input.size;
  const Written written = countWritten(job.staging, job.copied);
  record.filesWritten = written.files;
  record.bytesWritten = written.bytes;
  std::string error;
  if (record.outcome != Outcome::kFailed) {
    if (!writeStamp(job.staging, stampOf(input))) {
      error = "cannot write " + job.staging + "/" + kStampName;
    } else if (replaceFolder(job.staging, job.final, error)) {
      record.output = job.final;
      record.firstSfz = job.final + "/" + first;
      return report(record, input);
    }
  }
  // An earlier conversion in the final folder stays as it was.
  discard(job);
  record.keptEarlier = isFolder(job.final);
  if (record.keptEarlier) record.output = job.final;
  if (!error.empty()) return failed(record, input, error);
  report(record, input);
}

int Batch::run() {
  std::string error;
  if (!options_.jsonPath.empty() && !json_.open(options_.jsonPath, error)) {
    printError(error);
    return 2;
  }
  blockSignals();
  inputs_ = findInputs(options_.inputs, outputFolder_, [this] { return pollStop(); });
  settleNames(inputs_);
  keepShard(inputs_, options_.shard, options_.shardCount);
  sortLargestFirst(inputs_);
  uint64_t bytes = 0;
  for (const Input& input : inputs_) bytes += input.size;
  const Reporter::Mode mode = options_.quiet              ? Reporter::Mode::kQuiet
                              : ::isatty(STDERR_FILENO) ? Reporter::Mode::kLive
                                                          : Reporter::Mode::kLines;
  live_ = mode == Reporter::Mode::kLive;
  reporter_ = std::make_unique<Reporter>(stderr, mode, inputs_.size(), bytes);
  const unsigned jobs = options_.jobs ? options_.jobs : processorCount();
  size_t next = 0;
  for (;;) {
    while (!pollStop() && jobs_.size() < jobs && next < inputs_.size()) start(inputs_[next++]);
    if (jobs_.empty()) break;
    wait();
    reap();
    reporter_->tick();
  }
  reporter_->summary(stopSignal_, inputs_.size() - next);
  const bool jsonWritten = json_.close();
  if (!jsonWritten) printError("cannot write " + options_.jsonPath);
  if (stopSignal_) return 128 + stopSignal_;
  return reporter_->anyFailed() || !jsonWritten ? 1 : 0;
}

}  // namespace

int runBatch(const Options& options, const std::string& self) {
  const std::string converter = findConverter(self);
  if (converter.empty()) {
    printError("no sorvane program beside this one nor on PATH");
    return 2;
  }
  const std::string version = converterVersion(converter);
  if (version.empty()) {
    printError("cannot run the converter " + converter);
    return 2;
  }
  std::string error;
  if (!makeFolders(options.outputFolder, error)) {
    printError(error);
    return 2;
  }
  return Batch(options, converter, version).run();
}

}  // namespace batch
