// Text handed to the file system or the console passes through TLVSConv.
// The conversion path only ever asks for UTF8, which is an identity copy.
#pragma once

#include <string>

namespace tolvin {

enum CHARACTER_ENCODING {
  UTF8 = 0,
  WINDOWS_LATIN1 = 12,
};

std::string TLVSConv(const std::string& text, CHARACTER_ENCODING encoding);
std::string TLVSConv(const char* text, CHARACTER_ENCODING encoding);

}  // namespace tolvin
