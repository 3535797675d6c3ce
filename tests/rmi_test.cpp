#include <gtest/gtest.h>

#include "DLS/RMIConverter.h"
#include "tests/support/DlsBuilder.h"
#include "tests/support/TestSupport.h"

using namespace testsupport;

namespace {

const std::string kMidi = riff::Body().text("MThd").be32(6).be16(0).be16(1).be16(96).text("MTrk").be32(4).u8(0).u8(0xFF).u8(0x2F).u8(0);

std::string collection() {
  dls::Collection c;
  c.addWave(dls::wave(dls::fmt(1, 8000, 16), dls::pcm16({1, 2, 3, 4}), dls::info({{"INAM", "Hit"}}) + dls::wsmp({})));
  dls::Instrument drum;
  drum.name = "Drum";
  drum.regions = {dls::region(dls::rgnh(36, 36, 0, 127) + dls::wlnk(0) + dls::wsmp({}))};
  c.addInstrument(drum);
  return c.bytes();
}

struct Extraction {
  std::string console, result;
};

Extraction extract(const std::string& path) {
  Extraction e;
  e.console = captureStdout([&] { e.result = RMIConverter(path, "unused").process(); });
  return e;
}

}  // namespace

TEST(RMIExtraction, SongAndCollectionAreWrittenBesideTheInput) {
  TempDir dir;
  const std::string dlsBytes = collection();
  writeFile(dir.file("song.rmi"), riff::list("RIFF", "RMID", riff::chunk("data", kMidi) + riff::list("LIST", "INFO", "") + dlsBytes));
  Extraction e = extract(dir.file("song.rmi"));
  EXPECT_EQ(e.console, "");
  EXPECT_EQ(e.result, dir.file("song.dls"));
  EXPECT_EQ(readFile(dir.file("song.mid")), kMidi);
  EXPECT_EQ(readFile(dir.file("song.dls")), dlsBytes);  // "RIFF" and its size included

  // The driver converts the extracted collection into the output folder.
  RunResult run = runSorvane({dir.file("song.rmi"), dir.path(), dir.file("results.txt")});
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(readFile(dir.file("results.txt")), dir.file("song_dls/Bank_00000000/000_Drum.sfz"));
  EXPECT_TRUE(exists(dir.file("song_dls/samples/Hit.wav")));
}

TEST(RMIExtraction, MissingPartsAndBrokenFilesGiveNoCollection) {
  TempDir dir;
  writeFile(dir.file("wave.rmi"), riff::list("RIFF", "WAVE", riff::chunk("data", "ab")));
  Extraction e = extract(dir.file("wave.rmi"));
  EXPECT_EQ(e.console, "Not a RIMD file!\n");
  EXPECT_EQ(e.result, "");

  // Without a collection only the song is written, and no results file.
  writeFile(dir.file("plain.xmi"), riff::list("RIFF", "RMID", riff::chunk("data", kMidi)));
  RunResult run = runSorvane({dir.file("plain.xmi"), dir.path(), dir.file("results.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(readFile(dir.file("plain.mid")), kMidi);
  EXPECT_FALSE(exists(dir.file("plain.dls")));
  EXPECT_FALSE(exists(dir.file("results.txt")));

  // Without the song data the collection is not looked for.
  writeFile(dir.file("nodata.rmi"), riff::list("RIFF", "RMID", collection()));
  EXPECT_EQ(extract(dir.file("nodata.rmi")).result, "");
  EXPECT_FALSE(exists(dir.file("nodata.dls")));

  // A song chunk running past the end of the file is reported, not read.
  std::string past = riff::list("RIFF", "RMID", riff::chunk("data", kMidi));
  past.replace(16, 4, riff::le32(0x100000));
  writeFile(dir.file("past.rmi"), past);
  e = extract(dir.file("past.rmi"));
  EXPECT_EQ(e.console, "data chunk runs past the end of the file\nerror writing sub file:" + dir.file("past.mid") + "\n");
  EXPECT_FALSE(exists(dir.file("past.mid")));

  // So is an embedded collection whose last pad byte is missing.
  std::string odd = riff::list("RIFF", "RMID", riff::chunk("data", kMidi) + riff::list("RIFF", "DLS ", riff::chunk("abcd", "x", false)));
  odd.pop_back();
  odd.replace(4, 4, riff::le32(static_cast<uint32_t>(odd.size() - 8)));
  writeFile(dir.file("odd.rmi"), odd);
  e = extract(dir.file("odd.rmi"));
  EXPECT_EQ(e.console, "RIFF(DLS ) chunk runs past the end of the file\nerror writing sub file:" + dir.file("odd.dls") + "\n");
  EXPECT_EQ(e.result, "");

  // A whole container running past the end spoils the chunk tree itself.
  std::string cut = riff::list("RIFF", "RMID", riff::chunk("data", kMidi) + collection());
  cut.resize(cut.size() - 10);
  writeFile(dir.file("cut.rmi"), cut);
  e = extract(dir.file("cut.rmi"));
  EXPECT_EQ(e.result, "");
}
