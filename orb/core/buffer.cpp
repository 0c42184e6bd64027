#include "buffer.h"

#include <algorithm>
#include <cstring>

namespace zrsv {

bool Buffer::reserve(std::size_t more) {
  if (more <= room()) return true;
  if (more > SIZE_MAX - size_) return false;
  const std::size_t doubled = capacity_ > SIZE_MAX / 2 ? SIZE_MAX : capacity_ * 2;
  const std::size_t wanted = std::max({size_ + more, doubled, std::size_t{256}});
  void* grown = std::realloc(data_, wanted);
  if (!grown) return false;
  data_ = static_cast<unsigned char*>(grown);
  capacity_ = wanted;
  return true;
}

bool Buffer::append(const unsigned char* octets, std::size_t n) {
  if (n == 0) return true;
  if (!reserve(n)) return false;
  std::memcpy(end(), octets, n);
  grow(n);
  return true;
}

void Buffer::consume(std::size_t n) {
  if (n == 0) return;
  size_ -= n;
  std::memmove(data_, data_ + n, size_);
}

void Buffer::shrink(std::size_t keep) {
  const std::size_t wanted = std::max(size_, keep);
  if (capacity_ <= wanted) return;
  if (wanted == 0) {
    std::free(std::exchange(data_, nullptr));
  } else if (void* smaller = std::realloc(data_, wanted)) {
    data_ = static_cast<unsigned char*>(smaller);
  } else {
    return;
  }
  capacity_ = wanted;
}

Buffer Buffer::take(CDR* cdr) {
  Buffer taken;
  taken.data_ = cdr->out_base;
  taken.size_ = static_cast<std::size_t>(cdr->out_next - cdr->out_base);
  taken.capacity_ = static_cast<std::size_t>(cdr->out_limit - cdr->out_base);
  cdr->out_base = cdr->out_next = cdr->out_limit = nullptr;
  return taken;
}

void Buffer::lend(CDR* cdr) {
  std::free(cdr->out_base);
  size_ = 0;
  cdr->out_base = cdr->out_next = std::exchange(data_, nullptr);
  cdr->out_limit = cdr->out_base + std::exchange(capacity_, 0);
}

}  // namespace zrsv

void CORBA_free(void* block) { std::free(block); }

char* CORBA_string_alloc(uint32_t length) {
  char* text = static_cast<char*>(std::malloc(std::size_t{length} + 1));
  if (text) *text = '\0';
  return text;
}
