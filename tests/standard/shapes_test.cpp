// Sequences of structs move in one piece where they can: as their elements would one by one, whatever stands in front,
// in both byte orders, in fragments, and with too few octets.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "../core/octets.h"
#include "calls.h"

namespace {

using namespace Shapes;
using CORBA::ULong;

enum class Way { dense, padded, single };
template <class S>
constexpr Way way() {
  using T = typename S::Element;
  if (CORBA::idl::DenseStruct<T>) return Way::dense;
  return CORBA::idl::FlatStruct<T> ? Way::padded : Way::single;
}
static_assert(way<Evens>() == Way::dense && way<Denses>() == Way::dense && way<FewEvens>() == Way::dense);
static_assert(way<Taileds>() == Way::padded && way<Gappeds>() == Way::padded &&
              way<Nesteds>() == Way::padded);
static_assert(way<Lates>() == Way::single && way<Shifteds>() == Way::single);
static_assert(way<Checkeds>() == Way::single && way<Lettereds>() == Way::single);

/// Members counted up, in memory that was full of ones.
struct Count {
  unsigned char& next;
  template <class V>
  bool operator()(const char*, V& member, const void* = nullptr) const {
    using Single = std::remove_all_extents_t<V>;
    if constexpr (CORBA::idl::PlainStruct<V>)
      return CORBA::idl::Type<V>::each(*this, member);
    else if constexpr (std::same_as<V, CORBA::Boolean>)
      member = next++ % 2;
    else if constexpr (std::is_array_v<V>)
      for (Single& one : member) one = next++;
    else
      member = static_cast<V>(next++ % 100);
    return true;
  }
};
template <class S>
S counted(ULong length) {
  S all;
  all.length(length);
  unsigned char next = 1;
  if (length != 0)
    std::memset(static_cast<void*>(all.get_buffer()), 0xFF, length * sizeof(typename S::Element));
  for (ULong i = 0; i < length; ++i) CORBA::idl::Type<typename S::Element>::each(Count{next}, all[i]);
  return all;
}

template <class S>
bool move_whole(CDR* cdr, S& all) {
  return CORBA::idl::Type<S>::move(cdr, all);
}
/// The same, a member at a time.
template <class S>
bool move_each(CDR* cdr, S& all) {
  ULong length = all.length();
  if (!OM_cdr_unsigned_long(cdr, &length)) return false;
  all.length(length);
  for (ULong i = 0; i < length; ++i)
    if (!CORBA::idl::move_members(cdr, all[i])) return false;
  return true;
}

/// Encoded by `move` behind `start` octets.
template <class S>
std::string octets_of(bool (*move)(CDR*, S&), const S& all, unsigned start) {
  Encoding out;
  for (unsigned char octet = 0xEE; start != 0; --start) EXPECT_TRUE(OM_cdr_octet(out, &octet));
  EXPECT_TRUE(move(out, const_cast<S&>(all)));
  return out.octets();
}

template <class S>
class Structs : public testing::Test {};
using Kinds =
    testing::Types<Evens, FewEvens, Denses, Taileds, Gappeds, Nesteds, Lates, Shifteds, Checkeds, Lettereds>;
TYPED_TEST_SUITE(Structs, Kinds);

/// How a stream is to be decoded.
struct Reading {
  bool swapped = false, in_place = false;
  std::size_t cut = 0;  // where a second fragment begins; 0: nowhere
};

/// A whole sequence gives what its elements give, and ends where they do.
template <class S>
void expect_same(std::string octets, unsigned start, const Reading& how) {
  constexpr bool little = std::endian::native == std::endian::little;
  const auto length_at = octets.begin() + (start + 3) / 4 * 4;
  if (how.swapped) std::reverse(length_at, length_at + 4);
  S whole, each;
  const auto decode = [&](bool (*move)(CDR*, S&), S& all) {
    Decoding in(octets, little != how.swapped, start);
    CDR* const cdr = in;
    cdr->in_place = how.in_place;
    const unsigned char* const begin[] = {cdr->in_base, cdr->in_base + how.cut};
    const ZR_cdr_cuts cuts{cdr->in_end, 2, const_cast<const unsigned char**>(begin)};
    if (how.cut != 0) {
      cdr->in_cuts = &cuts;
      ZR_cdr_enter_part(cdr);
    }
    const bool right = move(cdr, all);
    const std::string read =
        octets_of(move_each<S>, all, 0);  // before the stream is gone that it may be a view of
    return std::tuple(right, right ? in.left() : 0, right ? read : "");
  };
  EXPECT_EQ(decode(move_whole<S>, whole), decode(move_each<S>, each))
      << start << " swapped " << how.swapped << " in place " << how.in_place << " cut " << how.cut;
}

TYPED_TEST(Structs, MoveAsTheirElementsDo) {
  for (const ULong length : {0U, 1U, 3U})
    for (unsigned start = 0; start < 8; ++start) {
      const TypeParam sent = counted<TypeParam>(length);
      const std::string octets = octets_of(move_each<TypeParam>, sent, start);
      EXPECT_EQ(octets_of(move_whole<TypeParam>, sent, start), octets) << length << " " << start;
      for (const bool swapped : {false, true})
        for (const bool in_place : {false, true}) {
          expect_same<TypeParam>(octets, start, {swapped, in_place});
          for (std::size_t cut = 8; cut < octets.size(); cut += 8)
            expect_same<TypeParam>(octets, start, {swapped, in_place, cut});
        }
      for (std::size_t end = start; end < octets.size(); ++end) {
        Decoding in(std::string_view(octets).substr(0, end), std::endian::native == std::endian::little,
                    start);
        TypeParam cut;
        EXPECT_FALSE(move_whole<TypeParam>(in, cut)) << end << " of " << octets.size();
      }
    }
}

}  // namespace
