#include "Converters/Common/GMCurves.h"

#include <cmath>
#include <sstream>

namespace tolvin {

double GMCurves::ConcavedB[kPoints];
double GMCurves::ConcaveLin[kPoints];
double GMCurves::PanLeftdB[kPoints];
double GMCurves::PanLeftLin[kPoints];
double GMCurves::PanRightdB[kPoints];
double GMCurves::PanRightLin[kPoints];

void GMCurves::init() {
  static bool filled = false;
  if (filled) return;
  filled = true;
  // The formulas are kept as they stand, infinities at index 0 included.
  for (int i = 0; i < kPoints; ++i) {
    const double x = i;
    ConcavedB[i] = -20.0 * std::log10(16129.0 / (x * x));
    ConcaveLin[i] = std::pow(10.0, ConcavedB[i] * 0.05);
    PanLeftdB[i] = 20.0 * std::log10(std::sqrt((127.0 - x) / x));
    PanLeftLin[i] = std::pow(10.0, PanLeftdB[i] * 0.05);
    PanRightdB[i] = -20.0 * std::log10(std::sqrt(x / 127.0));
    PanRightLin[i] = std::pow(10.0, PanRightdB[i] * 0.05);
  }
}

void GMCurves::writeCurve(const double* table, std::ostream& out) {
  std::ostringstream text;
  text.flags(std::ios::left);
  for (int i = 0; i < kPoints; ++i) {
    text << (i <= 9 ? " v00" : i <= 99 ? " v0" : " v") << i << "=";
    text.width(12);
    text << table[i];
    if (i % 5 == 4) text << "\n";
  }
  text << "\n\n";
  out << text.str();
}

}  // namespace tolvin
