// Inputs and timings for the chunk-tree and ACID benchmarks.
//
//   bench_chunks tree N          writes a RIFF file of N chunks, parses it with
//                                the stream method and prints the time taken
//   bench_chunks acid PATH MB M  writes an ACID loop of about MB megabytes of
//                                16-bit stereo audio with M beat markers
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "source/IFFTree.h"

namespace {

void put32(FILE* f, uint32_t v) { std::fwrite(&v, 4, 1, f); }
void put16(FILE* f, uint16_t v) { std::fwrite(&v, 2, 1, f); }

int benchTree(uint64_t chunks) {
  const std::string path = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp") +
                           "/sorvane-bench-chunks.riff";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 1;
  // Chunks of 2 to 16 bytes, grouped in lists of 100.
  std::fwrite("RIFF", 1, 4, f);
  put32(f, 0);
  std::fwrite("TEST", 1, 4, f);
  uint64_t written = 0;
  while (written < chunks) {
    const uint64_t inList = std::min<uint64_t>(100, chunks - written);
    uint32_t listBody = 4;
    for (uint64_t i = 0; i < inList; ++i) listBody += 8 + 2 * static_cast<uint32_t>(1 + (written + i) % 8);
    std::fwrite("LIST", 1, 4, f);
    put32(f, listBody);
    std::fwrite("item", 1, 4, f);
    for (uint64_t i = 0; i < inList; ++i) {
      const uint32_t size = 2 * static_cast<uint32_t>(1 + (written + i) % 8);
      std::fwrite("abcd", 1, 4, f);
      put32(f, size);
      static const char zeros[16] = {};
      std::fwrite(zeros, 1, size, f);
    }
    written += inList + 1;
  }
  const long end = std::ftell(f);
  std::fseek(f, 4, SEEK_SET);
  put32(f, static_cast<uint32_t>(end - 8));
  std::fclose(f);

  const auto start = std::chrono::steady_clock::now();
  tolvin::IFFTree tree(path, nullptr);
  const bool ok = tree.process(tolvin::IFF_LOAD_STREAM);
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  uint64_t nodes = 0;
  if (ok)
    for (const auto& list : tree.root->children.front()->children) nodes += 1 + list->children.size();
  std::printf("parsed %llu chunks (%ld bytes) in %.1f ms%s\n", static_cast<unsigned long long>(nodes), end, ms,
              ok ? "" : " FAILED");
  std::remove(path.c_str());
  return ok ? 0 : 1;
}

int makeAcidLoop(const std::string& path, double megabytes, uint32_t markers) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 1;
  const uint32_t rate = 44100, channels = 2;
  const uint64_t frames = static_cast<uint64_t>(megabytes * 1000000 / 4);
  const uint32_t dataBytes = static_cast<uint32_t>(frames * 4);
  const uint32_t strcBytes = 28 + 32 * markers;
  std::fwrite("RIFF", 1, 4, f);
  put32(f, 4 + (8 + 16) + (8 + 24) + (8 + strcBytes) + (8 + dataBytes));
  std::fwrite("WAVEfmt ", 1, 8, f);
  put32(f, 16);
  put16(f, 1);
  put16(f, channels);
  put32(f, rate);
  put32(f, rate * 4);
  put16(f, 4);
  put16(f, 16);
  std::fwrite("acid", 1, 4, f);
  put32(f, 24);
  const uint32_t acid[6] = {0, 60, 0, markers / 4, 4 | (4u << 16), 0};
  std::fwrite(acid, 4, 5, f);
  const float tempo = 120.0f;
  std::fwrite(&tempo, 4, 1, f);
  std::fwrite("strc", 1, 4, f);
  put32(f, strcBytes);
  const uint32_t head[7] = {0, markers, 0, 0, 1, 2, 0};
  std::fwrite(head, 4, 7, f);
  for (uint32_t m = 0; m < markers; ++m) {
    const uint64_t position = frames * m / markers;
    put32(f, 0);
    put32(f, 0);
    std::fwrite(&position, 8, 1, f);
    const uint32_t rest[4] = {};
    std::fwrite(rest, 4, 4, f);
  }
  std::fwrite("data", 1, 4, f);
  put32(f, dataBytes);
  std::vector<int16_t> block(2 * 65536);
  for (uint64_t done = 0; done < frames;) {
    const uint64_t n = std::min<uint64_t>(65536, frames - done);
    for (uint64_t i = 0; i < n; ++i) {
      const int16_t v = static_cast<int16_t>(12000 * std::sin(static_cast<double>(done + i) * 0.0421));
      block[2 * i] = v;
      block[2 * i + 1] = v;
    }
    std::fwrite(block.data(), 4, n, f);
    done += n;
  }
  std::fclose(f);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "tree") return benchTree(argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 200000);
  if (mode == "acid" && argc > 4)
    return makeAcidLoop(argv[2], std::strtod(argv[3], nullptr),
                        static_cast<uint32_t>(std::strtoul(argv[4], nullptr, 10)));
  std::printf("usage: bench_chunks tree [N] | bench_chunks acid PATH MB MARKERS\n");
  return 2;
}
