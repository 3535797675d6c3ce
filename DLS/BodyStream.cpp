#include "DLS/BodyStream.h"

#include <algorithm>
#include <cstring>

BodyStream::BodyStream(tolvin::IFFTree& tree, uint64_t offset, uint64_t length)
    : tree_(tree), fileOffset_(offset), unread_(length) {
  buffer_.resize(static_cast<size_t>(std::min<uint64_t>(length, kPieceSize)));
}

bool BodyStream::fill(size_t wanted) {
  if (end_ - begin_ >= wanted) return true;
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  const size_t room = buffer_.size() - end_;
  const size_t toRead = static_cast<size_t>(std::min<uint64_t>(room, unread_));
  if (toRead > 0) {
    const size_t got = static_cast<size_t>(tree_.readAt(fileOffset_, buffer_.data() + end_, toRead));
    end_ += got;
    fileOffset_ += got;
    unread_ -= got;
    if (got < toRead) truncated_ = true;
  }
  return end_ - begin_ >= wanted;
}

size_t BodyStream::next(const uint8_t** piece) {
  if (end_ == begin_ && (truncated_ || !fill(1))) return 0;
  *piece = buffer_.data() + begin_;
  const size_t count = end_ - begin_;
  begin_ = end_ = 0;
  return count;
}

const uint8_t* BodyStream::peek(size_t count) {
  if (count > buffer_.size() || (end_ - begin_ < count && (truncated_ || !fill(count)))) return nullptr;
  return buffer_.data() + begin_;
}

void BodyStream::skip(size_t count) { begin_ += std::min(count, end_ - begin_); }
