// Runs a command and prints its peak resident memory in KiB on the last line
// ("peak_rss_kib <n>"); used by the benchmark scripts when /usr/bin/time is
// missing.
//
//   peak_rss sorvane bank.sf2 out
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::printf("usage: peak_rss command [arguments...]\n");
    return 2;
  }
  pid_t child = fork();
  if (child == 0) {
    execvp(argv[1], argv + 1);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  std::printf("peak_rss_kib %ld\n", usage.ru_maxrss);  // Linux reports KiB
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
