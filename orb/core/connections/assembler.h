// Messages out of a stream of octets, and fragments: put together on the way in, cut on the way out. No
// sockets here.
#pragma once

#include <sys/uio.h>

#include <array>
#include <span>
#include <vector>

#include "base/buffer.h"
#include "wire/giop.h"

namespace zrsv {

/// Cuts the messages out of what one connection receives. Not for several threads at once.
class Assembler {
 public:
  enum class Result { Message, NeedMore, Bad };

  /// Unfinished messages that a peer may have at a time.
  static constexpr std::size_t max_unfinished = 64;
  /// Fragments that a message may have in GIOP 1.1, where each counts.
  static constexpr std::size_t max_cuts = 1 << 16;

  explicit Assembler(uint32_t max_message) : max_message_(max_message) {}

  /// Where the next octets go, and how many may. What it asks for grows with what has arrived, never with
  /// what a header claims. Null: no memory.
  unsigned char* room(std::size_t* octets);
  void received(std::size_t octets) { stream_.grow(octets); }
  /// Whether so many octets more are exactly what the message being read lacks.
  bool ends_with(std::size_t octets) const { return octets == needed_; }

  /// The next whole message, its fragments joined: `message` holds header and body, and `header` says the
  /// same of it. The memory of `message` is used again for the stream. After Bad nothing more can be read;
  /// error() says why. Throws bad_alloc; nothing more can be read then either.
  Result next(giop::Header* header, Buffer* message);
  const char* error() const { return error_; }

  /// Whether next() has something to do before more octets come.
  bool more() const;

  /// Nothing is left, of octets or of much memory: next() has nothing to do before more come.
  bool at_rest() const {
    return start_ == stream_.size() && needed_ <= giop::header_size && stream_.capacity() < large_from;
  }
  /// Octets of messages that are not complete.
  std::size_t incomplete() const { return have() + unfinished_octets_; }
  bool in_fragments() const { return !unfinished_.empty(); }

  /// Forgets the unfinished message of that request id.
  void cancel(uint32_t id);

  /// Gives back memory that holds nothing.
  void trim();
  /// Empties it, and gives its memory back.
  void reset();

 private:
  struct Unfinished {
    giop::Header first;
    uint32_t id = 0;  // 1.2 only
    Buffer octets;
    std::vector<uint32_t> cuts;  // 1.1 only: where fragments begin
    bool cancelled = false;      // 1.1 only: what comes of it is thrown away
  };

  Result need(std::size_t octets);
  [[gnu::cold]] Result bad(const char* error);
  Result cut(std::size_t length, Buffer* message);
  [[gnu::cold]] Result begin_fragmented(const giop::Header& header);
  [[gnu::cold]] Result add_fragment(giop::Header* header, Buffer* message);
  Result finish(Unfinished* whole, giop::Header* header, Buffer* message);
  void forget(Unfinished* u);
  Result append(Unfinished* to, const unsigned char* octets, std::size_t count);
  Unfinished* find(uint8_t minor, uint32_t id);
  void skip(std::size_t octets);
  const unsigned char* at() const { return stream_.data() + start_; }
  std::size_t have() const { return stream_.size() - start_; }

  const uint32_t max_message_;
  Buffer stream_;
  std::size_t start_ = 0;   // octets of stream_ that are done with
  std::size_t needed_ = 0;  // octets that the message at start_ still lacks, as far as known
  std::vector<Unfinished> unfinished_;
  std::size_t unfinished_octets_ = 0;
  const char* error_ = "";
};

/// A message as it leaves: in one piece, or cut into fragments. Views into the message, which must stay; its
/// header is changed.
class Fragments {
 public:
  /// `limit` 0: never cut. GIOP 1.0 knows no fragments, and in 1.1 no cut is right for every reader.
  /// What has something apart is not cut either.
  Fragments(unsigned char* message, std::size_t length, uint32_t limit, const ZR_cdr_apart& apart = {});
  std::vector<iovec>& parts() { return parts_; }

 private:
  std::vector<std::array<unsigned char, 16>> heads_;
  std::vector<iovec> parts_;
};

/// What is left of the parts when so many octets of them are out. The first of the rest may be cut.
std::span<iovec> rest_of(std::span<iovec> parts, std::size_t octets);

/// Whether a message of that length is cut at all.
inline bool must_fragment(const unsigned char* message, std::size_t length, uint32_t limit) {
  return limit != 0 && length > limit && giop::minor_of(message) == 2;
}

/// Puts a message together that is to be cut. False without memory.
bool put_together_to_cut(CDR* cdr);

}  // namespace zrsv
