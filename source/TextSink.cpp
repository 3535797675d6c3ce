#include "source/TextSink.h"

namespace tolvin {

void TextSink::attach(OutputFile* file) {
  flush();
  file_ = file;
}

void TextSink::flush() {
  if (file_ && used_ > 0) file_->write(block_.get(), used_);
  used_ = 0;
}

TextSink& TextSink::appendPastBlock(const char* text, size_t count) {
  flush();
  if (count < kBlockSize) {
    std::memcpy(block_.get(), text, count);
    used_ = count;
  } else if (file_) {
    file_->write(text, count);
  }
  return *this;
}

}  // namespace tolvin
