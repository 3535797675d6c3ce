#include "source/NumberText.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace tolvin {

namespace {

// A stream's default formatting of a double is printf's "%.6g" in the C
// locale.
std::string formattedNumber(double value) {
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

// A preset file carries tens of thousands of numbers, but a bank uses few
// distinct ones (the same envelope times, pans and levels again and again):
// the text last made for a value is kept in one of a few hundred slots.
struct RecentNumber {
  uint64_t bits;
  uint8_t length;  // 0: the slot is empty
  char text[15];
};
const int kRecentSlotBits = 9;
thread_local RecentNumber tRecent[1 << kRecentSlotBits];

}  // namespace

std::string numberText(double value) {
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  RecentNumber& slot = tRecent[(bits * 0x9E3779B97F4A7C15ull) >> (64 - kRecentSlotBits)];
  if (slot.length != 0 && slot.bits == bits) return std::string(slot.text, slot.length);
  std::string text = formattedNumber(value);
  if (!text.empty() && text.size() <= sizeof slot.text) {
    slot.bits = bits;
    slot.length = static_cast<uint8_t>(text.size());
    std::memcpy(slot.text, text.data(), text.size());
  }
  return text;
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
