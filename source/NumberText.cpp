#include "source/NumberText.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace tolvin {

// A stream's default formatting of a double is printf's "%.6g" in the C
// locale; a preset file carries tens of thousands of numbers, so they are
// formatted without building a stream for each.
std::string numberText(double value) {
  char text[32];
#if defined(__cpp_lib_to_chars) && __cpp_lib_to_chars >= 201611L
  if (std::isfinite(value)) {
    const std::to_chars_result done =
        std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6);
    return std::string(text, done.ptr);
  }
#endif
  const int length = std::snprintf(text, sizeof text, "%.6g", value);
  return std::string(text, length > 0 ? static_cast<size_t>(length) : 0);
}

namespace {
std::string leftFilled(std::string digits, int width, char fill) {
  if (width > 0 && digits.size() < static_cast<size_t>(width))
    digits.insert(0, static_cast<size_t>(width) - digits.size(), fill);
  return digits;
}
}  // namespace

std::string zeroPadded(uint32_t value, int width) {
  return leftFilled(std::to_string(value), width, '0');
}

std::string zeroPaddedSigned(int32_t value, int width) {
  if (value >= 0) return zeroPadded(static_cast<uint32_t>(value), width);
  // printf counts the sign in the width: %02d of -5 is "-5", of -5 with 3 is "-05".
  std::string magnitude = std::to_string(-static_cast<int64_t>(value));
  return "-" + leftFilled(magnitude, width - 1, '0');
}

std::string hexText(uint64_t value, int width, char fill) {
  // Lower-case digits without prefix, as a stream set to hex writes them.
  char digits[16];
  const std::to_chars_result done = std::to_chars(digits, digits + sizeof digits, value, 16);
  return leftFilled(std::string(digits, done.ptr), width, fill);
}

}  // namespace tolvin
