#include "source/TextSink.h"

namespace tolvin {

void TextSink::attach(OutputFile* file) {
  flush();
  file_ = file;
}

void TextSink::flush() {
  if (file_ && !pending_.empty()) file_->write(pending_);
  pending_.clear();
}

TextSink& TextSink::append(const char* text, size_t count) {
  if (!file_) return *this;
  pending_.append(text, count);
  if (pending_.size() >= kBlockSize) flush();
  return *this;
}

}  // namespace tolvin
