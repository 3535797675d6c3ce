// A line of a few dozen characters put together on the stack with <<, and
// handed on in one piece: hundreds of thousands of generated comment and
// opcode lines each cost one copy instead of one string append per piece.
// Integers come out in plain decimal; text past the capacity is cut off.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace tolvin {

template <size_t Capacity>
class ShortText {
 public:
  ShortText& operator<<(std::string_view text) {
    const size_t count = text.size() < Capacity - size_ ? text.size() : Capacity - size_;
    std::memcpy(data_ + size_, text.data(), count);
    size_ += count;
    return *this;
  }
  ShortText& operator<<(const char* text) { return *this << std::string_view(text); }
  template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer> && sizeof(Integer) >= 2>>
  ShortText& operator<<(Integer value) {
    const std::to_chars_result done = std::to_chars(data_ + size_, data_ + Capacity, value);
    if (done.ec == std::errc()) size_ = static_cast<size_t>(done.ptr - data_);
    return *this;
  }

  std::string_view view() const { return std::string_view(data_, size_); }

 private:
  char data_[Capacity];
  size_t size_ = 0;
};

}  // namespace tolvin
