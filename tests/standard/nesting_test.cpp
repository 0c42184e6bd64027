// Sequences whose octets say more than there is: how deep they stand in each other, and how long they are.
#include <gtest/gtest.h>

#include <utility>

#include "../core/octets.h"
#include "calls.h"

namespace {

using Shapes::Trees;

void put(CDR* cdr, CORBA::ULong number) { EXPECT_TRUE(OM_cdr_unsigned_long(cdr, &number)); }
bool move(CDR* cdr, Trees& trees) { return CORBA::idl::Type<Trees>::move(cdr, trees); }

/// Sequences of one element, one in the other, and an empty one in the midst: `levels` in all.
std::string chain(unsigned levels) {
  Encoding out;
  for (; levels != 0; --levels) put(out, levels == 1 ? 0 : 1);
  return out.octets();
}

TEST(Nesting, HasAnEnd) {
  constexpr bool little = std::endian::native == std::endian::little;
  for (const auto& [levels, right] :
       {std::pair(1U, true), {1000U, true}, {1001U, false}, {1'000'000U, false}}) {
    const std::string octets = chain(levels);
    Trees trees;
    Decoding in(octets, little);
    EXPECT_EQ(move(in, trees), right) << levels;
    if (!right) continue;
    Encoding out;
    EXPECT_TRUE(move(out, trees)) << levels;
    EXPECT_EQ(out.octets(), octets) << levels;
    EXPECT_TRUE(move(out, trees)) << "behind the first one";
    Trees around;
    around.length(1);
    std::swap(around[0].kids, trees);
    EXPECT_EQ(move(out, around), levels < 1000) << levels;
  }
}

TEST(Length, CostsWhatHasCome) {
  constexpr CORBA::ULong promised = 10'000'000, sent = 20'000;
  Encoding out;
  put(out, promised);
  for (CORBA::ULong i = 0; i < sent; ++i) {  // every tenth with a kid
    put(out, i % 10 == 0);
    if (i % 10 == 0) put(out, 0);
  }
  std::string octets = out.octets();
  Trees trees;
  Decoding in(octets, std::endian::native == std::endian::little);
  EXPECT_FALSE(move(in, trees));
  EXPECT_LE(trees.maximum(), 2 * sent);

  reinterpret_cast<CORBA::ULong&>(octets[0]) = sent;
  Decoding again(octets, std::endian::native == std::endian::little);
  ASSERT_TRUE(move(again, trees));
  EXPECT_EQ(again.left(), 0U);
  ASSERT_EQ(trees.length(), sent);
  for (CORBA::ULong i = 0; i < sent; ++i) ASSERT_EQ(trees[i].kids.length(), i % 10 == 0) << i;
}

// A union of many members compiles with compilers that limit how deep expressions nest.
template <std::size_t... I>
using Many = CORBA::OneOf<std::conditional_t<I == 0, double, char>...>;
static_assert(sizeof([]<std::size_t... I>(std::index_sequence<I...>) {
                return Many<I...>();
              }(std::make_index_sequence<300>())) == 2 * sizeof(double));

}  // namespace
