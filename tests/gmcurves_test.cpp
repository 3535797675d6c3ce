#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "Converters/Common/GMCurves.h"

using tolvin::GMCurves;

namespace {
std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}
}  // namespace

TEST(GMCurves, TablesFollowTheirFormulasIncludingIndexZero) {
  GMCurves::init();
  EXPECT_EQ(GMCurves::ConcaveLin[0], 0.0);
  EXPECT_TRUE(std::isinf(GMCurves::ConcavedB[0]) && GMCurves::ConcavedB[0] < 0);
  EXPECT_DOUBLE_EQ(GMCurves::ConcaveLin[127], 1.0);
  EXPECT_NEAR(GMCurves::ConcaveLin[64], 64.0 * 64.0 / 16129.0, 1e-12);
  EXPECT_NEAR(GMCurves::ConcavedB[127], 0.0, 1e-12);
  EXPECT_TRUE(std::isinf(GMCurves::PanLeftdB[0]));
  EXPECT_TRUE(std::isinf(GMCurves::PanRightdB[0]));
  EXPECT_NEAR(GMCurves::PanRightLin[127], 1.0, 1e-12);
  EXPECT_EQ(GMCurves::PanLeftLin[127], 0.0);

  // A second init leaves the tables alone.
  GMCurves::ConcaveLin[5] = 42.0;
  GMCurves::init();
  EXPECT_EQ(GMCurves::ConcaveLin[5], 42.0);
  GMCurves::ConcaveLin[5] = 25.0 / 16129.0;
}

TEST(GMCurves, WriteCurvePutsFivePaddedPointsALineAndEndsWithABlankLine) {
  GMCurves::init();
  std::ostringstream out;
  out << std::showpos;  // the caller's stream flags must not leak into the points
  GMCurves::writeCurve(GMCurves::ConcaveLin, out);
  const std::string text = out.str();
  const std::vector<std::string> all = lines(text);

  ASSERT_EQ(all.size(), 27u);  // 25 full lines, one of three, one empty
  // Each point is " vNNN=" and its value left-aligned in 12 characters.
  auto point = [](const char* index, const std::string& value) {
    return std::string(" v") + index + "=" + value + std::string(12 - value.size(), ' ');
  };
  EXPECT_EQ(all[0], point("000", "0") + point("001", "6.20001e-05") + point("002", "0.000248") +
                        point("003", "0.000558001") + point("004", "0.000992002"));
  EXPECT_EQ(all[1], point("005", "0.00155") + point("006", "0.002232") + point("007", "0.00303801") +
                        point("008", "0.00396801") + point("009", "0.00502201"));
  EXPECT_EQ(all[2].substr(0, 36), point("010", "0.00620001") + point("011", "0.00750202"));
  EXPECT_EQ(all[25], point("125", "0.968752") + point("126", "0.984314") + point("127", "1"));
  EXPECT_EQ(all[26], "");
  EXPECT_EQ(text.substr(text.size() - 2), "\n\n");
  for (size_t i = 0; i < 25; ++i) EXPECT_EQ(all[i].size(), 5u * 18u) << "line " << i;
  EXPECT_NE(text.find(" v064=0.253953 "), std::string::npos);
  EXPECT_NE(text.find(" v100="), std::string::npos);
}
