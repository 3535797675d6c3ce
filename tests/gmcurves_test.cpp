#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "Converters/Common/GMCurves.h"

using tolvin::GMCurves;

// The concave curve's points are checked through the preset files that end
// with it; these are the other tables and the writer's own formatting.
TEST(GMCurves, TablesFollowTheirFormulasIncludingIndexZero) {
  GMCurves::init();
  EXPECT_EQ(GMCurves::ConcaveLin[0], 0.0);
  EXPECT_TRUE(std::isinf(GMCurves::ConcavedB[0]) && GMCurves::ConcavedB[0] < 0);
  EXPECT_NEAR(GMCurves::ConcavedB[64], 20 * std::log10(64.0 * 64.0 / 16129.0), 1e-9);
  EXPECT_NEAR(GMCurves::ConcavedB[127], 0.0, 1e-12);
  EXPECT_TRUE(std::isinf(GMCurves::PanLeftdB[0]) && std::isinf(GMCurves::PanRightdB[0]));
  EXPECT_NEAR(GMCurves::PanRightLin[127], 1.0, 1e-12);
  EXPECT_EQ(GMCurves::PanLeftLin[127], 0.0);
  // A second init leaves the tables alone.
  GMCurves::ConcaveLin[5] = 42.0;
  GMCurves::init();
  EXPECT_EQ(GMCurves::ConcaveLin[5], 42.0);
  GMCurves::ConcaveLin[5] = 25.0 / 16129.0;
}

TEST(GMCurves, TheCallersStreamFlagsDoNotLeakIntoThePoints) {
  GMCurves::init();
  std::ostringstream plain, flagged;
  flagged << std::showpos << std::fixed;
  GMCurves::writeCurve(GMCurves::ConcaveLin, plain);
  GMCurves::writeCurve(GMCurves::ConcaveLin, flagged);
  EXPECT_EQ(flagged.str(), plain.str());
  EXPECT_EQ(plain.str().substr(0, 36), " v000=0            v001=6.20001e-05 ");
}
