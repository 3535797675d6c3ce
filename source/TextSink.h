// Text written into an output file with <<, without a stream's formatting
// machinery: a big bank's files take over a million insertions, and a
// stream's guard, virtual calls and locale lookups for each cost more than the
// text itself. Integers come out as a stream in its default state writes
// them; doubles are refused, so that their digits are always stated with
// numberText.
#pragma once

#include <charconv>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

#include "source/OutputFile.h"

namespace tolvin {

class TextSink {
 public:
  // Text goes to `file` from now on (nullptr: it is dropped). Whatever was
  // pending goes to the previous file first.
  void attach(OutputFile* file);
  // Hands the pending text to the file; its failure is the file's to report.
  void flush();

  TextSink& operator<<(const char* text) { return append(text, std::char_traits<char>::length(text)); }
  TextSink& operator<<(const std::string& text) { return append(text.data(), text.size()); }
  TextSink& operator<<(char c) { return append(&c, 1); }
  template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer> && sizeof(Integer) >= 2>>
  TextSink& operator<<(Integer value) {
    char digits[24];
    const std::to_chars_result done = std::to_chars(digits, digits + sizeof digits, value);
    return append(digits, static_cast<size_t>(done.ptr - digits));
  }
  TextSink& operator<<(double) = delete;

 private:
  // Text reaches the file in pieces of about this size.
  static constexpr size_t kBlockSize = 64 << 10;

  TextSink& append(const char* text, size_t count) {
    if (count <= kBlockSize - used_) {
      std::memcpy(block_.get() + used_, text, count);
      used_ += count;
      return *this;
    }
    return appendPastBlock(text, count);
  }
  TextSink& appendPastBlock(const char* text, size_t count);

  OutputFile* file_ = nullptr;
  std::unique_ptr<char[]> block_{new char[kBlockSize]};
  size_t used_ = 0;
};

}  // namespace tolvin
