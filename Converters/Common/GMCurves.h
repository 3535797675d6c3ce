// The 128-point curves behind the SoundFont default modulators.
#pragma once

#include <ostream>

namespace tolvin {

class GMCurves {
 public:
  static const int kPoints = 128;

  static double ConcavedB[kPoints];
  static double ConcaveLin[kPoints];
  static double PanLeftdB[kPoints];
  static double PanLeftLin[kPoints];
  static double PanRightdB[kPoints];
  static double PanRightLin[kPoints];

  // Fills the tables on the first call; later calls do nothing.
  static void init();
  // Writes the 128 points as SFZ curve opcodes, five a line, then a blank line.
  static void writeCurve(const double* table, std::ostream& out);
};

}  // namespace tolvin
