#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>

#include "source/Diagnostics.h"
#include "tests/support/TestSupport.h"

using tolvin::Severity;

namespace {

struct PageItem {
  Severity severity;
  std::string prefix, meaning;
};

// The fixed start of an item head such as `.It Ql Output path too long: Ar n
// No bytes`: the words of the quote up to its first placeholder, with the
// blank before that placeholder unless `Ns` takes it away.
std::string headPrefix(const std::string& head) {
  std::istringstream words(testsupport::replaceAll(testsupport::replaceAll(head, "\\&", ""), "\\e", "\\"));
  std::string word, prefix;
  words >> word >> word;  // .It Ql
  bool blank = false;
  while (words >> word && word != "Ar") {
    if (word == "Ns") {
      blank = false;
      continue;
    }
    prefix += (blank ? " " : "") + word;
    blank = true;
  }
  return word == "Ar" && blank ? prefix + " " : prefix;
}

// The items of the DIAGNOSTICS section, each with the severity of the
// subsection it stands in and its text joined into one line.
std::vector<PageItem> pageItems() {
  std::istringstream page(testsupport::readFile(SORVANE_SOURCE_DIR "/doc/sorvane.1"));
  std::vector<PageItem> items;
  bool inSection = false, inItem = false;
  Severity severity = Severity::kError;
  for (std::string line; std::getline(page, line);) {
    if (line.rfind(".Sh ", 0) == 0) inSection = line == ".Sh DIAGNOSTICS";
    if (!inSection) continue;
    if (line.rfind(".Ss ", 0) == 0)
      severity = line == ".Ss Errors" ? Severity::kError
                 : line == ".Ss Warnings" ? Severity::kWarning : Severity::kInformation;
    if (line.rfind(".It ", 0) == 0) items.push_back({severity, headPrefix(line), ""});
    inItem = line.rfind(".It ", 0) == 0 || (inItem && line[0] != '.');
    if (inItem && line[0] != '.') items.back().meaning += (items.back().meaning.empty() ? "" : " ") + line;
  }
  return items;
}

}  // namespace

// The manual page lists every row, in order, under its severity, with its
// meaning word for word; a row added or changed on one side only fails here.
TEST(Diagnostics, ManualPageListsExactlyTheTable) {
  const std::vector<PageItem> items = pageItems();
  const std::vector<tolvin::Diagnostic>& rows = tolvin::diagnostics();
  for (size_t i = 0; i < std::max(items.size(), rows.size()); ++i) {
    ASSERT_LT(i, items.size()) << "missing from the manual page: " << rows[i].prefix;
    ASSERT_LT(i, rows.size()) << "not in the table: " << items[i].prefix;
    EXPECT_EQ(items[i].prefix, rows[i].prefix) << "item " << i;
    EXPECT_EQ(items[i].severity, rows[i].severity) << rows[i].prefix;
    EXPECT_EQ(items[i].meaning, rows[i].meaning) << rows[i].prefix;
  }
}

// Every message that starts with a text in the code (printed, said or
// reported) has a row; messages that start with a chunk name are left to
// the console check of the tests that provoke them.
TEST(Diagnostics, EveryMessageInTheSourcesHasARow) {
  const std::regex message(R"re((?:std::cout\s*<<|say\((?:std::string\()?|report\()\s*"((?:[^"\\]|\\.)*)")re");
  const std::regex frame(R"(\*.*|input       :|output path :|resultinfo  :)");
  int checked = 0;
  for (const char* folder : {"source", "Converters", "SF2", "DLS", "ACID", "RIFF"})
    for (const auto& entry : std::filesystem::recursive_directory_iterator(SORVANE_SOURCE_DIR "/" + std::string(folder))) {
      const std::string text = testsupport::readFile(entry.path());
      for (std::sregex_iterator it(text.begin(), text.end(), message), end; it != end; ++it, ++checked) {
        const std::string start = (*it)[1].str().substr(0, (*it)[1].str().find("\\n"));
        if (!std::regex_match(start, frame)) {
          EXPECT_NE(tolvin::findDiagnostic(start), nullptr) << entry.path() << ": " << start;
        }
      }
    }
  EXPECT_GT(checked, 100);
}

TEST(Diagnostics, FindsTheLongestPrefixAndNoFrameLine) {
  EXPECT_EQ(tolvin::findDiagnostic("SoundFont DOENST Contain ifil")->prefix, "SoundFont DOENST Contain ");
  EXPECT_EQ(tolvin::findDiagnostic("SoundFont pgen chunk NOT multiple of 4 bytes")->prefix, "SoundFont ");
  EXPECT_EQ(tolvin::findDiagnostic("Conversion stopped: not enough memory")->severity, Severity::kError);
  EXPECT_EQ(tolvin::findDiagnostic("Extracting smpl to wav file... DONE!")->severity, Severity::kInformation);
  EXPECT_EQ(tolvin::findDiagnostic("removing marker close to or passed the end")->severity, Severity::kWarning);
  for (const char* line : {"* SORVANE 1.98", "input       :bank.sf2", "", "SoundFon", "Tree Error"})
    EXPECT_EQ(tolvin::findDiagnostic(line), nullptr) << line;
}
