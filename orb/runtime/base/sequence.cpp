#include "corba/sequence.h"

#include "corba/detail/idl_types.h"

namespace CORBA {

void refuse_index() { throw BAD_PARAM(0, COMPLETED_NO); }
void free_message(void* buffer) noexcept { ZR_give_bytes(buffer); }
void copy_many(void* to, const void* from, std::size_t octets) noexcept { ZR_copy_octets(to, from, octets); }
void refuse_bound() { throw BAD_PARAM(0, COMPLETED_NO); }

}  // namespace CORBA

namespace CORBA::idl {

bool move_length(CDR* cdr, ULong& length, ULong bound) {
  if (cdr->direction == CDR_ENCODE && bound != 0 && length > bound) return false;
  return zrsv::move_value(cdr, &length) && (bound == 0 || length <= bound);
}

namespace {

template <class Bits>
void reverse(Bits* values, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) values[i] = zrsv::reversed(values[i]);
}

/// Moves over the padding before the first value; with no value there is none.
template <class Bits>
bool move_numbers(CDR* cdr, Bits* values, std::size_t count) {
  if (!zrsv::move_value(cdr, values)) return false;
  const std::size_t rest = count - 1;
  if (rest == 0) return true;
  const std::uint64_t octets = std::uint64_t{rest} * sizeof(Bits);
  if (octets > UINT32_MAX) return false;
  if (cdr->direction == CDR_ENCODE) {
    cdr->out_next -= sizeof(Bits);  // the first one has aligned the stream
    return octets + sizeof(Bits) <= UINT32_MAX && ZR_cdr_refer(cdr, reinterpret_cast<unsigned char*>(values),
                                                               static_cast<ULong>(octets + sizeof(Bits)));
  }
  const unsigned char* view = nullptr;
  if (!OM_cdr_bytes_view(cdr, &view, static_cast<ULong>(octets))) return false;
  ZR_copy_octets(values + 1, view, octets);
  if (cdr->swap) reverse(values + 1, rest);
  return true;
}

}  // namespace

void* view_flat(CDR* cdr, std::size_t count, std::size_t size) {
  if (!cdr->in_place || count == 0 || cdr->in_cuts || (cdr->swap && size > 1)) return nullptr;
  const unsigned char* at =
      cdr->in_next + ((cdr->in_base - cdr->in_next) & static_cast<std::ptrdiff_t>(size - 1));
  if (reinterpret_cast<std::uintptr_t>(at) % size != 0 || at > cdr->in_end ||
      static_cast<std::size_t>(cdr->in_end - at) / size < count)
    return nullptr;
  cdr->in_next = at + count * size;
  return const_cast<unsigned char*>(at);
}

void* take_flat(CDR* cdr, std::size_t count, std::size_t size) {
  const std::uint64_t octets = std::uint64_t{count} * size;
  if (!cdr->in_block || (cdr->swap && size > 1) || octets > UINT32_MAX) return nullptr;
  return ZR_cdr_take_bytes(cdr, static_cast<ULong>(octets), static_cast<ULong>(size));
}

bool move_flat(CDR* cdr, void* values, std::size_t count, std::size_t size) {
  if (count == 0) return true;
  switch (size) {
    case 1:
      return move_numbers(cdr, static_cast<std::uint8_t*>(values), count);
    case 2:
      return move_numbers(cdr, static_cast<std::uint16_t*>(values), count);
    case 4:
      return move_numbers(cdr, static_cast<std::uint32_t*>(values), count);
    default:
      return move_numbers(cdr, static_cast<std::uint64_t*>(values), count);
  }
}

unsigned char* claim_octets(CDR* cdr, std::uint64_t octets, std::size_t align) {
  const std::size_t pad =
      static_cast<std::size_t>(cdr->out_base - cdr->out_next) & static_cast<std::size_t>(align - 1);
  if (octets > UINT32_MAX || !zrsv::has_room(cdr, pad + octets)) return nullptr;
  unsigned char* at = cdr->out_next;
  if (pad != 0) std::memset(at, 0, pad);
  cdr->out_next = at + pad + octets;
  return at + pad;
}

const unsigned char* take_octets(CDR* cdr, std::uint64_t octets, std::size_t align) {
  const std::size_t pad =
      static_cast<std::size_t>(cdr->in_base - cdr->in_next) & static_cast<std::size_t>(align - 1);
  if (cdr->in_cuts || zrsv::octets_left(cdr) < pad + octets) return nullptr;
  const unsigned char* at = cdr->in_next + pad;
  cdr->in_next = at + octets;
  return at;
}

}  // namespace CORBA::idl
