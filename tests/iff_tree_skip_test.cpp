#include <gtest/gtest.h>

#include "source/IFFTree.h"
#include "tests/support/RiffBuilder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;

// Small chunks are read past and large ones seeked over; either way every
// node lands where its header is, and a last chunk running past the end of
// the file still parses.
TEST(IFFTreeSkipping, SmallAndLargeChunksKeepTheirOffsets) {
  TempDir dir;
  const std::string big(5000, 'b');
  std::string file = riff::list("RIFF", "TEST",
                                riff::chunk("aaaa", "xyz") + riff::chunk("bigc", big) +
                                    riff::list("LIST", "sub ", riff::chunk("cccc", std::string(4096, 'c'))) +
                                    riff::chunk("last", "12345678"));
  file.replace(file.size() - 12, 4, riff::le32(0x10000));  // "last" runs past the end
  file.replace(4, 4, riff::le32(static_cast<uint32_t>(file.size() - 8)));
  writeFile(dir.file("t.riff"), file);

  tolvin::IFFTree tree(dir.file("t.riff"), nullptr);
  ASSERT_TRUE(tree.process(tolvin::IFF_LOAD_STREAM));
  const tolvin::IFFTreeNode* top = tree.root->findFirstChild("RIFF(TEST)");
  ASSERT_NE(top, nullptr);
  ASSERT_EQ(top->children.size(), 4u);
  EXPECT_EQ(top->children[0]->offset, 12u);
  EXPECT_EQ(top->children[0]->size, 4u);
  EXPECT_EQ(top->children[1]->offset, 24u);
  EXPECT_EQ(top->children[2]->offset, 24u + 8 + 5000);
  EXPECT_EQ(top->children[2]->children[0]->offset, 24u + 8 + 5000 + 12);
  EXPECT_EQ(top->children[3]->name, "last");
  EXPECT_EQ(top->children[3]->size, 0x10000u);
  tolvin::ChunkBody body(tree, top->children[1].get());
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(body.data()), body.size()), big);
  EXPECT_FALSE(tolvin::ChunkBody(tree, top->children[3].get()).valid());
}
