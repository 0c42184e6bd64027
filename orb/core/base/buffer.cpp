#include "base/buffer.h"

#include <algorithm>
#include <cstdlib>

namespace zrsv {

bool Buffer::enlarge(std::size_t more) {
  if (more > SIZE_MAX - size_) return false;
  const std::size_t doubled = capacity_ > SIZE_MAX / 2 ? SIZE_MAX : capacity_ * 2;
  const std::size_t wanted = std::max({size_ + more, doubled, std::size_t{256}});
  if (wanted > large_from) return move_to(take_large_block(wanted));
  void* grown = std::realloc(data_, wanted);
  if (!grown) return false;
  data_ = static_cast<unsigned char*>(grown);
  count_memory(capacity_, wanted);
  capacity_ = wanted;
  return true;
}

bool Buffer::move_to(LargeBlock block) {
  if (!block.octets) return false;
  if (size_ != 0) std::memcpy(block.octets, data_, size_);
  if (data_) drop();
  data_ = block.octets;
  capacity_ = block.capacity;
  count_memory(0, capacity_);
  return true;
}

void Buffer::give_back(std::size_t keep) {
  if (size_ == 0 && (keep == 0 || capacity_ > large_from)) {
    drop();
    data_ = nullptr;
    capacity_ = 0;
    return;
  }
  const std::size_t wanted = std::max(size_, keep);
  if (void* smaller = std::realloc(data_, wanted)) {
    data_ = static_cast<unsigned char*>(smaller);
  } else {
    return;
  }
  count_memory(capacity_, wanted);
  capacity_ = wanted;
}

}  // namespace zrsv

void CORBA_free(void* block) { std::free(block); }

char* CORBA_string_alloc(uint32_t length) {
  char* text = static_cast<char*>(std::malloc(std::size_t{length} + 1));
  if (text) *text = '\0';
  return text;
}
