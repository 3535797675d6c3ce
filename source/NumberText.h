// Number text exactly as the generated files and console messages need it.
// Every converter goes through these instead of formatting numbers by hand.
#pragma once

#include <cstdint>
#include <string>

namespace tolvin {

// Default stream formatting of a double: six significant digits, trailing
// zeros dropped, scientific form for exponents below -4 or from 6 on
// ("0.001", "1200", "1e-07", "1.23457e+06", "-inf").
std::string numberText(double value);

// Decimal with at least `width` digits, zero-filled ("%03u"-style). The value
// is taken as unsigned 32-bit, as the file-name rules require.
std::string zeroPadded(uint32_t value, int width);

// Signed decimal with at least `width` digits, zero-filled ("%02d"-style).
std::string zeroPaddedSigned(int32_t value, int width);

// Lower-case hexadecimal without prefix, right-aligned in `width` characters
// filled with `fill` ("%08x" is hexText(v, 8, '0'); a stream field of width 4
// with blank fill is hexText(v, 4, ' ')).
std::string hexText(uint64_t value, int width = 0, char fill = '0');

}  // namespace tolvin
