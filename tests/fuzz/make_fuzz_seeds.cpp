// Writes starting inputs for the fuzz targets that the demo inputs do not
// cover: every chunk-tree layout, crafted hostile banks, and one per real
// SoundFont bank named after the folder:
// make_fuzz_seeds OUTPUT_FOLDER [BANK.sf2 ...] creates OUTPUT_FOLDER/<target>/<seed files>.
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <string>

#include "tests/support/HostileInputs.h"
#include "tests/support/Sf2Builder.h"
#include "tests/support/RiffBuilder.h"
#include "source/IFFTree.h"

namespace {

std::string root;

void seed(const std::string& target, const std::string& name, const std::string& bytes) {
  const std::string folder = root + "/" + target;
  ::mkdir(root.c_str(), 0777);
  ::mkdir(folder.c_str(), 0777);
  std::ofstream(folder + "/" + name, std::ios::binary) << bytes;
}

void chunkTreeSeeds() {
  const std::string body = riff::chunk("fmt ", "0123456789abcdef") + riff::chunk("data", "odd");
  seed("fuzz_iff_tree", "riff", riff::list("RIFF", "WAVE", body + riff::list("LIST", "INFO", riff::chunk("INAM", "x"))));
  seed("fuzz_iff_tree", "rifx", riff::listBE("RIFX", "WAVE", riff::chunkBE("fmt ", "abcd")));
  seed("fuzz_iff_tree", "form", riff::listBE("FORM", "AIFF", riff::chunkBE("COMM", "abcdef")));
  seed("fuzz_iff_tree", "rf64", std::string("RF64") + riff::Body().u64(12).text("WAVE").text("ds64").u64(0).bytes());
  seed("fuzz_iff_tree", "midi", std::string("MThd") + riff::Body().be32(6).be16(0).be16(1).be16(96).bytes() +
                                    "MTrk" + riff::Body().be32(4).bytes() + std::string("\x00\xFF\x2F\x00", 4));
  seed("fuzz_iff_tree", "caf", std::string("caff") + riff::Body().be16(1).be16(0).bytes() + "desc" +
                                   riff::Body().be64(4).bytes() + "abcd");
  seed("fuzz_iff_tree", "nsfe", std::string("NSFE") + riff::Body().u32(2).text("INFO").text("ab").u32(0).text("NEND").bytes());
}

// Banks crafted to multiply their input into memory or output, at a size one
// fuzzing run affords, and texts that try to start SFZ lines of their own.
void hostileSeeds() {
  seed("fuzz_sf2", "comment_in_every_preset", hostile::commentInEveryPreset(40, 4000));
  seed("fuzz_dls", "info_in_every_instrument", hostile::collectionInfoInEveryInstrument(20, 4000));
  seed("fuzz_dls", "long_wave_name_many_regions", hostile::longWaveNameManyTimes(1000, 200, 1));
  seed("fuzz_dls", "long_wave_name_many_cues", hostile::longWaveNameManyTimes(1000, 0, 2000));
  sf2build::Bank bank;
  bank.pool = std::string(400, '\0');
  bank.info.push_back({"ICMT", "hi\n<region> sample=/etc/passwd"});
  bank.samples.push_back({"x\nsample=/etc/pass", 0, 100, 10, 90, 44100, 60});
  bank.instruments.push_back({"I", {{{sf2build::gen(53, 0)}}}});
  bank.presets.push_back({"p\r\nq", 0, 0, {{{sf2build::gen(41, 0)}}}});
  seed("fuzz_sf2", "line_breaks", bank.bytes());
}

// A real bank cut down to what one fuzzing run can afford: its INFO texts
// and hydra as they are, but only its first four presets (the fifth record
// ends them) and its sample pool cut to 64 KiB.
void realBankSeed(const std::string& path) {
  tolvin::IFFTree tree(path, nullptr);
  std::cout.setstate(std::ios::failbit);  // the tree's own complaints are not ours
  const bool parsed = tree.process(tolvin::IFF_LOAD_STREAM);
  std::cout.clear();
  const tolvin::IFFTreeNode* bank =
      parsed && !tree.root->children.empty() ? tree.root->children.front().get() : nullptr;
  if (!bank || bank->name != "RIFF(sfbk)") return;
  // At most `limit` bytes of a chunk's body ("" when they cannot be read).
  auto body = [&tree](const tolvin::IFFTreeNode* node, uint64_t limit) {
    const uint64_t length = std::min(node->size, limit);
    const uint8_t* data = tree.GetChunkPtrOffset(tree.chunkOffset(node, false), length);
    std::string text = data ? std::string(reinterpret_cast<const char*>(data), length) : std::string();
    tree.ReleaseChunkPtr(data);
    return text;
  };
  const uint64_t kAll = UINT64_MAX;
  std::string lists;
  for (const auto& list : bank->children) {
    const std::string type = list->name.substr(5, 4);  // "LIST(pdta)" gives pdta
    std::string chunks;
    for (const auto& chunk : list->children) {
      const uint64_t limit = chunk->name == "smpl" ? 65536 : chunk->name == "phdr" ? 5 * 38 : kAll;
      chunks += riff::chunk(chunk->name, body(chunk.get(), limit));
    }
    lists += riff::list("LIST", type, chunks);
  }
  const size_t slash = path.find_last_of('/');
  seed("fuzz_sf2", "real_" + path.substr(slash == std::string::npos ? 0 : slash + 1), riff::list("RIFF", "sfbk", lists));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cout << "usage: make_fuzz_seeds OUTPUT_FOLDER [BANK.sf2 ...]" << std::endl;
    return 1;
  }
  root = argv[1];
  for (int i = 2; i < argc; ++i) realBankSeed(argv[i]);
  chunkTreeSeeds();
  hostileSeeds();
  return 0;
}
