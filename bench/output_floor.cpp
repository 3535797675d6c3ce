// The least a conversion has to do on this machine: create the same files in
// the same folders and fill them with as many bytes read from the input, and
// nothing else (no parsing, no text). The benchmarks time it beside `cp` to
// show how much of a conversion's time is the output itself.
//
//   output_floor input manifest output-folder [1|2|atomic|atomic2]
//
// The manifest lists the files of an earlier conversion, one per line as
// `find folder -type f -printf '%s %P\n'` prints them (size, relative path).
// Every file is filled through one 1 MiB buffer with positioned reads of the
// input, as the converter copies audio. With 2, the wave files are written
// on a second thread while the other files are written on the first. With
// atomic, on one thread, each file is written under a temporary name and
// renamed into place, as every file of a conversion is; atomic2 does the same
// with the waves on a second thread.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

struct OutputEntry {
  uint64_t size = 0;
  std::string path;  // relative to the output folder
};

bool isWave(const std::string& path) {
  return path.size() >= 4 && path.compare(path.size() - 4, 4, ".wav") == 0;
}

// Fills each file with bytes of the input, read from where the last one
// stopped (wrapping at the input's end).
bool writeFiles(int input, uint64_t inputSize, const std::string& folder,
                const std::vector<const OutputEntry*>& files, bool atomic) {
  std::vector<char> buffer(1 << 20);
  uint64_t offset = 0;
  for (const OutputEntry* file : files) {
    const std::string path = folder + "/" + file->path;
    const std::string written = atomic ? path + ".tmp" : path;
    const int output = ::open(written.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (output < 0) return false;
    for (uint64_t done = 0; done < file->size;) {
      if (offset >= inputSize) offset = 0;
      const size_t piece = static_cast<size_t>(
          std::min<uint64_t>({file->size - done, buffer.size(), inputSize - offset}));
      const ssize_t got = ::pread(input, buffer.data(), piece, static_cast<off_t>(offset));
      if (got <= 0 || ::write(output, buffer.data(), static_cast<size_t>(got)) != got) {
        ::close(output);
        return false;
      }
      done += static_cast<uint64_t>(got);
      offset += static_cast<uint64_t>(got);
    }
    if (::close(output) != 0) return false;
    if (atomic && ::rename(written.c_str(), path.c_str()) != 0) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::printf("usage: output_floor input manifest output-folder [1|2|atomic|atomic2]\n");
    return 2;
  }
  const std::string folder = argv[3];
  const std::string mode = argc > 4 ? argv[4] : "1";
  const bool twoThreads = mode == "2" || mode == "atomic2";
  const bool atomic = mode == "atomic" || mode == "atomic2";
  std::vector<OutputEntry> entries;
  {
    std::ifstream manifest(argv[2]);
    OutputEntry entry;
    while (manifest >> entry.size && std::getline(manifest >> std::ws, entry.path))
      entries.push_back(entry);
  }
  const int input = ::open(argv[1], O_RDONLY | O_CLOEXEC);
  struct stat info;
  if (input < 0 || ::fstat(input, &info) != 0 || info.st_size <= 0) {
    std::printf("cannot read %s\n", argv[1]);
    return 1;
  }

  // Each folder once, parents first.
  std::set<std::string> folders;
  ::mkdir(folder.c_str(), 0777);
  for (const OutputEntry& entry : entries)
    for (size_t slash = entry.path.find('/'); slash != std::string::npos;
         slash = entry.path.find('/', slash + 1))
      if (folders.insert(entry.path.substr(0, slash)).second)
        ::mkdir((folder + "/" + entry.path.substr(0, slash)).c_str(), 0777);

  std::vector<const OutputEntry*> waves, others;
  for (const OutputEntry& entry : entries)
    (twoThreads && isWave(entry.path) ? waves : others).push_back(&entry);
  const uint64_t inputSize = static_cast<uint64_t>(info.st_size);
  bool wavesWritten = true;
  std::thread waveThread;
  if (!waves.empty())
    waveThread = std::thread([&] { wavesWritten = writeFiles(input, inputSize, folder, waves, atomic); });
  const bool othersWritten = writeFiles(input, inputSize, folder, others, atomic);
  if (waveThread.joinable()) waveThread.join();
  if (!wavesWritten || !othersWritten) {
    std::printf("write failed under %s\n", folder.c_str());
    return 1;
  }
  return 0;
}
