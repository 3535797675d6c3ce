#include <gtest/gtest.h>

#include "source/IFFTree.h"
#include "source/MemFile.h"
#include "tests/support/MemoryFile.h"
#include "tests/support/RiffBuilder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;
using tolvin::IFFTree;
using tolvin::IFFTreeNode;

namespace {

// "name@offset+size" for each node below `node`, depth first.
std::string shape(const IFFTreeNode* node) {
  std::string text;
  for (const auto& child : node->children) {
    text += child->name + "@" + std::to_string(child->offset) + "+" + std::to_string(child->size);
    if (!child->children.empty()) text += "[" + shape(child.get()) + "]";
    text += " ";
  }
  return text;
}

struct Parsed {
  bool ok = false;
  std::string console, tree, magic;
};

Parsed parse(const std::string& bytes, tolvin::IFF_LOAD_METHOD method = tolvin::IFF_LOAD_STREAM) {
  TempDir dir;
  writeFile(dir.file("f"), bytes);
  IFFTree tree(dir.file("f"), nullptr);
  Parsed p;
  p.console = captureStdout([&] { p.ok = tree.process(method); });
  p.tree = p.ok ? shape(tree.root.get()) : tree.root ? "kept after a failure" : "";
  p.magic = std::string(tree.magic, 4);
  return p;
}

const std::string kWave = riff::list("RIFF", "WAVE", riff::chunk("fmt ", "abcdefgh") + riff::chunk("data", "xyz") +
                                                          riff::list("LIST", "INFO", riff::chunk("INAM", "ab")));

}  // namespace

TEST(ChunkTree, EveryLoadMethodBuildsTheSameTreeAndBodies) {
  for (auto method : {tolvin::IFF_LOAD_WHOLE_FILE, tolvin::IFF_LOAD_MEMORY_MAP, tolvin::IFF_LOAD_STREAM})
    EXPECT_EQ(parse(kWave, method).tree, "RIFF(WAVE)@0+54[fmt @12+8 data@28+4 LIST(INFO)@40+14[INAM@52+2 ] ] ");
  IFFTree memory(reinterpret_cast<const uint8_t*>(kWave.data()), kWave.size());
  ASSERT_TRUE(memory.process(tolvin::IFF_LOAD_MEMORY));
  IFFTree virtualTree(new MemoryFile(kWave), true);
  ASSERT_TRUE(virtualTree.process(tolvin::IFF_LOAD_VIRTUAL));
  EXPECT_EQ(shape(memory.root.get()), shape(virtualTree.root.get()));
  EXPECT_EQ(memory.root->name, "ram not owner");

  const IFFTreeNode* data = virtualTree.root->children[0]->findFirstChild("data");
  ASSERT_NE(data, nullptr);
  // The odd body comes with its pad byte; a second fetch at one offset is the same buffer.
  const uint8_t* body = virtualTree.GetChunkPtr(data, false);
  ASSERT_NE(body, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(body), 4), std::string("xyz\0", 4));
  EXPECT_EQ(virtualTree.GetChunkPtrOffset(data->offset + 8, 100), body);
  // An empty body may start at the very end, and nothing past it.
  const auto* bytes = reinterpret_cast<const uint8_t*>(kWave.data());
  EXPECT_EQ(memory.GetChunkPtrOffset(kWave.size(), 0), bytes + kWave.size());
  EXPECT_EQ(memory.GetChunkPtrOffset(0, kWave.size()), bytes);
  EXPECT_EQ(memory.GetChunkPtrOffset(1, kWave.size()), nullptr);
  EXPECT_NE(virtualTree.GetChunkPtrOffset(kWave.size(), 0), nullptr);
  EXPECT_EQ(virtualTree.GetChunkPtrOffset(kWave.size() + 1, 0), nullptr);
  EXPECT_EQ(virtualTree.GetChunkPtrOffset(1, kWave.size()), nullptr);
  EXPECT_TRUE(virtualTree.ReleaseChunkPtr(body));
  EXPECT_FALSE(virtualTree.ReleaseChunkPtr(body));
  const uint8_t* whole = virtualTree.GetChunkPtr(data, true);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(whole), 4), "data");
  EXPECT_TRUE(virtualTree.ReleaseChunkPtr(whole));
  {
    // A body fetched for a scope is given back when the scope ends.
    const tolvin::ChunkBody scoped(virtualTree, data);
    EXPECT_EQ(virtualTree.handedOutLength(data->offset + 8), 4);
  }
  EXPECT_EQ(virtualTree.handedOutLength(data->offset + 8), -1);
  EXPECT_EQ(virtualTree.root->findFirstChild("LIST(INFO)"), nullptr);  // a grandchild
  EXPECT_FALSE(memory.ReleaseChunkPtr(memory.GetChunkPtr(data, false)));  // memory is never released
}

// The raw primitives keep one position per source; memory sources count
// the bytes read, a stream and a virtual file whole items.
TEST(ChunkTree, RawReadsSeeksAndTellsOfEverySource) {
  TempDir dir;
  writeFile(dir.file("f"), kWave);
  auto check = [](IFFTree& tree, tolvin::IFF_LOAD_METHOD method, uint64_t lastRead) {
    ASSERT_TRUE(tree.process(method)) << method;
    char buffer[8] = {};
    EXPECT_TRUE(tree.IFF_SEEK(12, 0));
    EXPECT_EQ(tree.IFF_TELL(), 12) << method;
    EXPECT_EQ(tree.IFF_READ(buffer, 1, 4), 4u) << method;
    EXPECT_EQ(std::string(buffer, 4), "fmt ") << method;
    EXPECT_TRUE(tree.IFF_SEEK(4, 1));
    EXPECT_EQ(tree.IFF_TELL(), 20) << method;
    EXPECT_TRUE(tree.IFF_SEEK(0, 2));
    EXPECT_EQ(tree.IFF_TELL(), 62) << method;
    EXPECT_TRUE(tree.IFF_SEEK(59, 0));
    EXPECT_EQ(tree.IFF_READ(buffer, 2, 2), lastRead) << method;  // three bytes are left
    EXPECT_EQ(std::string(buffer, 3), std::string("\0ab", 3)) << method;
    EXPECT_FALSE(tree.IFF_SEEK(0, 7)) << method;  // no such origin
    tree.IFF_SEEK(70, 0);
    EXPECT_EQ(tree.IFF_READ(buffer, 1, 4), 0u) << method;  // past the end
  };
  for (auto method : {tolvin::IFF_LOAD_WHOLE_FILE, tolvin::IFF_LOAD_MEMORY_MAP, tolvin::IFF_LOAD_STREAM}) {
    IFFTree tree(dir.file("f"), nullptr);
    check(tree, method, method == tolvin::IFF_LOAD_STREAM ? 1 : 3);
  }
  IFFTree memory(reinterpret_cast<const uint8_t*>(kWave.data()), kWave.size());
  check(memory, tolvin::IFF_LOAD_MEMORY, 3);
  // A virtual file goes with the tree only when the tree owns it.
  bool ownedGone = false, lentGone = false;
  MemoryFile lent(kWave, &lentGone);
  {
    IFFTree virtualTree(new MemoryFile(kWave, &ownedGone), true);
    check(virtualTree, tolvin::IFF_LOAD_VIRTUAL, 1);
    IFFTree lending(&lent, false);
    check(lending, tolvin::IFF_LOAD_VIRTUAL, 1);
  }
  EXPECT_TRUE(ownedGone);
  EXPECT_FALSE(lentGone);
  IFFTree unloaded(dir.file("f"), nullptr);
  char byte = 0;
  EXPECT_EQ(unloaded.IFF_TELL(), -1);
  EXPECT_EQ(unloaded.IFF_READ(&byte, 1, 1), 0u);
  EXPECT_EQ(unloaded.chunkOffset(nullptr, false) + unloaded.chunkLength(nullptr, true), 0u);
}

// A mapping holds a descriptor until it is released; a tree releases its own.
TEST(ChunkTree, MappedFilesGiveBackTheirDescriptor) {
  TempDir dir;
  writeFile(dir.file("f"), kWave);
  const auto descriptors = [] { return listDir("/proc/self/fd").size(); };
  const size_t before = descriptors();
  {
    IFFTree tree(dir.file("f"), nullptr);
    ASSERT_TRUE(tree.process(tolvin::IFF_LOAD_MEMORY_MAP));
    EXPECT_EQ(descriptors(), before + 1);
  }
  EXPECT_EQ(descriptors(), before);
  uint64_t length = 5;
  EXPECT_TRUE(tolvin::AllocMemFile(dir.file("none"), &length) == nullptr && length == 0);
  const uint8_t* bytes = tolvin::AllocMemFile(dir.file("f"), nullptr);  // no length wanted
  ASSERT_TRUE(bytes && bytes[0] == 'R');
  tolvin::FreeMemFile(bytes + 1);  // not a mapping: nothing happens
  EXPECT_EQ(descriptors(), before + 1);
  tolvin::FreeMemFile(bytes);
  EXPECT_EQ(descriptors(), before);
}

TEST(ChunkTree, EveryMagicHasItsLayout) {
  const std::string caf = riff::Body().be16(1).be16(0).text("desc").be64(3).text("abc");
  const struct { const char* what; std::string bytes; std::string tree; } cases[] = {
      {"RIFX", riff::listBE("RIFX", "WAVE", riff::chunkBE("fmt ", "abc")), "RIFX(WAVE)@0+16[fmt @12+4 ] "},
      {"FORM", riff::listBE("FORM", "AIFF", riff::chunkBE("COMM", "ab")), "FORM(AIFF)@0+14[COMM@12+2 ] "},
      {"CAT", riff::listBE("CAT ", std::string(4, '\0'), ""), "CAT (NULL)@0+4 "},
      {"PROP", riff::listBE("FORM", "AIFF", riff::listBE("PROP", "ILBM", riff::chunkBE("BMHD", "ab"))),
       "FORM(AIFF)@0+26[PROP(ILBM)@12+14[BMHD@24+2 ] ] "},
      {"LIST", riff::listBE("LIST", std::string("ab\0d", 4), ""), "LIST(ab)@0+4 "},
      // RF64 is a 64-bit-size layout, not a container.
      {"RF64", "RF64" + riff::Body().u64(18).text("WAVEab12").u64(1).text("z").u8(0).bytes(), "RF64@0+18 "},
      // IF64 has the same layout but is a container as well.
      {"IF64", "IF64" + riff::Body().u64(18).text("WAVEab12").u64(1).text("z").u8(0).bytes(),
       "IF64(WAVE)@0+18[ab12@16+2 ] "},
      {"Wave64", "riff" + std::string(12, 'g') + riff::Body().u64(66).bytes() + "wave" + std::string(12, 'g') + "data" +
                     std::string(12, 'g') + riff::Body().u64(24 + 2).bytes() + "hi",
       "riff(wave)@0+42[data@40+2 ] "},
      {"caff", "caff" + caf, "caff@0+23[desc@8+3 ] "},
      {"CAF", "CAF " + caf, "caff@0+23[desc@8+3 ] "},
      // Unpadded, so that the last header's last byte is alone past the first 4 KiB read.
      {"caff ending one byte past a window", "caff" + riff::Body().be16(1).be16(0).text("desc").be64(4065).bytes() +
                                                 std::string(4065, 'x') + riff::Body().text("last").be64(0).bytes(),
       "caff@0+4097[desc@8+4065 last@4085+0 ] "},
      {"MIDI", "MThd" + riff::Body().be32(6).be16(0).be16(1).be16(96).text("MTrk").be32(1).text("z").bytes(),
       "MIDI@0+23[MThd@0+6 MTrk@14+1 ] "},
      {"NSFE", "NSFE" + riff::Body().u32(3).text("INFOabc").u32(0).text("NENDjunk").bytes(), "EFSN@0+27[INFO@4+3 ] "},
      {"RIFF with a trailing chunk", riff::list("RIFF", "WAVE", "") + riff::chunk("junk", "ab"),
       "RIFF(WAVE)@0+4 junk@12+2 "},
      {"lower-case containers",
       riff::list("RIFF", "WAVE",
                  riff::list("list", "adtl", riff::chunk("labl", "ab")) + riff::list("if64", "abcd", "")),
       "RIFF(WAVE)@0+38[list(adtl)@12+14[labl@24+2 ] if64(abcd)@34+4 ] "},
      {"zero byte inside an id", riff::list("RIFF", "WAVE", riff::chunk(std::string("ab\0d", 4), "")),
       "RIFF(WAVE)@0+12[ab@12+0 ] "},
  };
  for (const auto& c : cases) {
    const Parsed p = parse(c.bytes);
    EXPECT_TRUE(p.ok) << c.what << p.console;
    EXPECT_EQ(p.tree, c.tree) << c.what;
    EXPECT_EQ(p.magic, c.bytes.substr(0, 4)) << c.what;
  }
}

TEST(ChunkTree, BrokenFilesFailWithTheirMessages) {
  const std::string noSpace = "Not enough space in real file for new chunks!!\n";
  const struct { const char* what; std::string bytes; std::string console; } cases[] = {
      {"empty", "", ""},
      {"three bytes", "RIF", ""},
      {"unknown magic", "OggS and more", "Not an IFF-like file\n"},
      {"id cut short", riff::chunk("RIFF", "WAVEab"), noSpace},
      {"size cut short", riff::chunk("RIFF", "WAVEabcd\1\0"), "Tree Error2\n"},
      {"64-bit size cut short", "RF64\1\2\3", "Tree Error3\n"},
      {"form type cut short", riff::chunk("RIFF", std::string("WAVELIST\4\0\0\0in", 14)), "Tree Error4\n"},
      {"one stray byte after the top container", riff::list("RIFF", "WAVE", "") + "a", noSpace},
      {"one byte after a CAF header", "caff" + riff::Body().be32(1).text("x").bytes(), noSpace},
      {"size-first id cut short", "NSFE" + riff::Body().u32(3).text("IN").bytes(), noSpace},
      {"chunk past the end before another", "RIFF" + riff::le32(200) + "WAVEdata" + riff::le32(100) + "xy", noSpace},
  };
  for (const auto& c : cases) {
    const Parsed p = parse(c.bytes);
    EXPECT_FALSE(p.ok) << c.what;
    EXPECT_EQ(p.console, c.console) << c.what;
    EXPECT_EQ(p.tree, "") << c.what;
  }
  // A failed parse leaves no tree and lets go of its source.
  MemoryFile broken(riff::chunk("RIFF", "WAVEab"));
  IFFTree failed(&broken, false);
  captureStdout([&] { EXPECT_FALSE(failed.process(tolvin::IFF_LOAD_VIRTUAL)); });
  EXPECT_EQ(failed.root, nullptr);
  EXPECT_EQ(failed.IFF_TELL(), -1);
  TempDir dir;
  // Whole-file loads see only the file's bytes, and a folder is refused.
  writeFile(dir.file("tiny"), "RIF");
  for (auto method : {tolvin::IFF_LOAD_WHOLE_FILE, tolvin::IFF_LOAD_MEMORY_MAP, tolvin::IFF_LOAD_STREAM}) {
    IFFTree tiny(dir.file("tiny"), nullptr), folder(dir.path(), nullptr);
    EXPECT_EQ(captureStdout([&] { EXPECT_FALSE(tiny.process(method)); }), "") << method;
    EXPECT_EQ(tiny.IFF_TELL(), method == tolvin::IFF_LOAD_STREAM ? -1 : 3) << method;  // a stream is let go
    captureStdout([&] { EXPECT_FALSE(folder.process(method)); });
  }
  IFFTree missing(dir.file("nothing"), nullptr);
  EXPECT_EQ(captureStdout([&] { EXPECT_FALSE(missing.process(tolvin::IFF_LOAD_STREAM)); }), "Error opening file\n");
}

TEST(ChunkTree, HostileSizesAndNestingNeitherAllocateNorOverflow) {
  // A last chunk declaring 4 GB is kept with that size; its body is refused.
  TempDir dir;
  writeFile(dir.file("huge"), "RIFF" + riff::le32(0xFFFFFFECu) + "WAVEdata" + riff::le32(0xFFFFFFE0u) + "junk" + riff::le32(0));
  IFFTree tree(dir.file("huge"), nullptr);
  ASSERT_TRUE(tree.process(tolvin::IFF_LOAD_STREAM));
  const IFFTreeNode* data = tree.root->children[0]->findFirstChild("data");
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(data->size, 0xFFFFFFE0u);
  EXPECT_EQ(tree.root->children[0]->children.size(), 1u);  // what follows is inside its body
  EXPECT_EQ(tree.GetChunkPtr(data, false), nullptr);

  // Lists nested tens of thousands deep are refused rather than recursed into.
  std::string nested = "RIFF" + riff::le32(0x7FFFFFF0u) + "TEST";
  for (int i = 0; i < 50000; ++i) nested += "LIST" + riff::le32(0x7FFFFFF0u) + "deep";
  const Parsed p = parse(nested);
  EXPECT_FALSE(p.ok);
  EXPECT_EQ(p.console, "Tree Error: chunks nested too deeply\n");
  // The edge: 255 lists inside the file's own, holding one chunk, are taken; 256 are not.
  for (int levels : {255, 256}) {
    std::string body = riff::chunk("leaf", "ab");
    for (int i = 0; i < levels; ++i) body = riff::list("LIST", "deep", body);
    EXPECT_EQ(parse(riff::list("RIFF", "TEST", body)).ok, levels == 255) << levels;
  }
}

TEST(ByteReader, ReadsPastTheEndGiveZeroAndMarkTheReader) {
  const tolvin::ByteReader reader("ab\0d", 4);
  EXPECT_EQ(reader.text(0, 4), "ab");
  EXPECT_FALSE(reader.wentShort());  // stopped by the NUL
  EXPECT_EQ(reader.text(3, 0), "");
  EXPECT_FALSE(reader.wentShort());
  const tolvin::ByteReader atEnd("abcd", 4), pastEnd("abcd", 4), cut("abcd", 4);
  EXPECT_EQ(atEnd.text(4, 1), "");
  EXPECT_TRUE(atEnd.wentShort());
  EXPECT_EQ(pastEnd.text(9, 1), "");
  EXPECT_TRUE(pastEnd.wentShort());
  EXPECT_EQ(cut.text(2, 3), "cd");
  EXPECT_TRUE(cut.wentShort());
  EXPECT_EQ(cut.u32(1), 0u);
  EXPECT_EQ(cut.u16(2), 0x6463u);
  EXPECT_EQ(cut.sub(1, 4).size(), 0u);
  EXPECT_EQ(cut.bytes(0, 5), nullptr);
  EXPECT_EQ(tolvin::ByteReader(nullptr, 8).size(), 0u);  // a body that could not be fetched holds nothing
  const tolvin::ByteReader fresh("abcd", 4);
  EXPECT_EQ(fresh.bytes(2, 3), nullptr);
  EXPECT_TRUE(fresh.wentShort());
  // An empty range at the very end is inside; one past it is not.
  EXPECT_TRUE(cut.has(4, 0));
  EXPECT_FALSE(cut.has(5, 0));
}
