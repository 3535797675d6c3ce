#include "source/TLVSConv.h"

namespace tolvin {

namespace {
// Windows-1252 code points for the bytes 0x80..0x9F (0 where undefined).
const char32_t kCp1252High[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
    0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

bool windowsLatinToUtf8(const std::string& text, std::string& out) {
  out.clear();
  for (unsigned char byte : text) {
    char32_t cp = byte;
    if (byte >= 0x80 && byte < 0xA0) {
      cp = kCp1252High[byte - 0x80];
      if (cp == 0) return false;
    }
    appendUtf8(out, cp);
  }
  return true;
}
}  // namespace

std::string TLVSConv(const std::string& text, CHARACTER_ENCODING encoding) {
  if (encoding != WINDOWS_LATIN1) return text;
  std::string converted;
  return windowsLatinToUtf8(text, converted) ? converted : "TLVSConv_ERROR6";
}

std::string TLVSConv(const char* text, CHARACTER_ENCODING encoding) {
  return TLVSConv(std::string(text ? text : ""), encoding);
}

}  // namespace tolvin
