#include <gtest/gtest.h>

#include <sstream>

#include "Converters/Common/GMCurves.h"

using tolvin::GMCurves;

// Only the concave curve reaches a file (its points end every preset file,
// checked there); here, its first points and the writer's own formatting.
TEST(GMCurves, TheCallersStreamFlagsDoNotLeakIntoThePoints) {
  GMCurves::init();
  std::ostringstream plain, flagged;
  flagged << std::showpos << std::fixed;
  GMCurves::writeCurve(GMCurves::ConcaveLin, plain);
  GMCurves::writeCurve(GMCurves::ConcaveLin, flagged);
  EXPECT_EQ(flagged.str(), plain.str());
  EXPECT_EQ(plain.str().substr(0, 36), " v000=0            v001=6.20001e-05 ");
}
