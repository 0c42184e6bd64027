// An owned, growing run of octets on malloc, so that CDR streams and messages can hand it over without a
// copy.
#pragma once

#include <sys/uio.h>

#include <array>
#include <cstring>
#include <utility>

#include "base/copying.h"
#include "base/large_blocks.h"
#include "base/memory.h"
#include "zrsv.h"

namespace zrsv {

class Buffer;

/// What a message has apart from the octets in its buffer (zrsv/cdr.h), until this goes.
class Apart {
 public:
  Apart() = default;
  static Apart take(CDR* cdr) {
    Apart taken;
    if (cdr->apart.octets) [[unlikely]]
      taken.it_ = std::exchange(cdr->apart, {});
    return taken;
  }
  Apart(Apart&& o) noexcept : it_(std::exchange(o.it_, {})) {}
  Apart& operator=(Apart&& o) noexcept {
    std::swap(it_, o.it_);
    return *this;
  }
  ~Apart() {
    if (it_.release) it_.release(it_.owner);
  }

  explicit operator bool() const { return it_.octets != nullptr; }
  const ZR_cdr_apart& get() const { return it_; }
  /// What nobody gives back is of this message, and takes it over; nothing of the message can be read any more then.
  void keep(Buffer* message);

 private:
  ZR_cdr_apart it_{};
};

/// What a message goes out from.
using IoVectors = std::array<iovec, 3>;
inline IoVectors io_vectors_of(unsigned char* message, std::size_t size, const ZR_cdr_apart& apart) {
  const std::size_t at = apart.octets ? apart.at : size;
  return {{{message, at}, {const_cast<unsigned char*>(apart.octets), apart.size}, {message + at, size - at}}};
}

class Buffer {
 public:
  Buffer() = default;
  Buffer(Buffer&& o) noexcept
      : data_(std::exchange(o.data_, nullptr)),
        size_(std::exchange(o.size_, 0)),
        capacity_(std::exchange(o.capacity_, 0)) {}
  Buffer& operator=(Buffer&& o) noexcept {
    std::swap(data_, o.data_);
    std::swap(size_, o.size_);
    std::swap(capacity_, o.capacity_);
    return *this;
  }
  ~Buffer() {
    if (data_) drop();
  }

  unsigned char* data() { return data_; }
  const unsigned char* data() const { return data_; }
  std::size_t size() const { return size_; }
  std::size_t capacity() const { return capacity_; }
  unsigned char* end() { return data_ + size_; }
  std::size_t room() const { return capacity_ - size_; }

  /// Makes room for `more` octets past size(); false when there is no memory.
  bool reserve(std::size_t more) { return more <= room() || enlarge(more); }
  /// Makes room for so many if that takes no new memory.
  void reserve_kept(std::size_t more) {
    if (more > room()) move_to(take_kept_block(size_ + more));
  }
  /// Claims `n` octets that were written past size().
  void grow(std::size_t n) { size_ += n; }
  bool append(const unsigned char* octets, std::size_t n) {
    if (n == 0) return true;
    if (!reserve(n)) return false;
    copy_octets(end(), octets, n);
    grow(n);
    return true;
  }
  void clear() { size_ = 0; }
  /// Gives the block to the caller, for give_block.
  unsigned char* release() {
    count_memory(capacity_, 0);
    size_ = capacity_ = 0;
    return std::exchange(data_, nullptr);
  }
  /// Drops the first n octets.
  void consume(std::size_t n) {
    if (n == 0) return;
    size_ -= n;
    if (size_ != 0) std::memmove(data_, data_ + n, size_);
  }
  /// Gives memory back when the buffer has become larger than `keep`.
  void shrink(std::size_t keep) {
    if (capacity_ > keep && capacity_ > size_) give_back(keep);
  }

  /// Takes over what an encoding stream holds, leaving the stream empty. Nothing when there was no memory to put it
  /// together.
  static Buffer take(CDR* cdr) {
    if (cdr->apart.octets && !ZR_cdr_put_together(cdr)) [[unlikely]]
      cdr->out_next = cdr->out_base;
    Buffer taken;
    taken.data_ = cdr->out_base;
    taken.size_ = static_cast<std::size_t>(cdr->out_next - cdr->out_base);
    taken.capacity_ = static_cast<std::size_t>(cdr->out_limit - cdr->out_base);
    cdr->out_base = cdr->out_next = cdr->out_limit = nullptr;
    count_memory(0, taken.capacity_);
    return taken;
  }
  /// Lends this buffer's memory to an empty stream for encoding; the stream owns it from then on, and it is not
  /// counted (memory.h) until it is taken over again.
  void lend(CDR* cdr) {
    if (cdr->out_base) OM_cdr_close(cdr);
    size_ = 0;
    count_memory(capacity_, 0);
    cdr->out_base = cdr->out_next = std::exchange(data_, nullptr);
    cdr->out_limit = cdr->out_base + std::exchange(capacity_, 0);
  }

 private:
  void drop() {
    count_memory(capacity_, 0);
    give_block(data_, capacity_);
  }
  [[gnu::cold]] bool enlarge(std::size_t more);
  bool move_to(LargeBlock block);
  [[gnu::cold]] void give_back(std::size_t keep);

  unsigned char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace zrsv
