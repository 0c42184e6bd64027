#include "corba/typecode.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "wire.h"

namespace {

using CORBA::Octet;
using CORBA::TypeCode;
using CORBA::TypeCode_var;
using CORBA::ULong;

TypeCode_var from_wire(const Octets& octets, bool big_endian) {
  CDR cdr = reader(octets, big_endian);
  TypeCode_var type;
  cdr_CORBA_TypeCode(&cdr, type.inout());
  return type;
}

// struct P { sequence<octet, 3> o; }, as a big-endian stream.
const Octets wire_struct = {
    0, 0, 0, 15, 0,   0,   0,   52, 0,   0, 0, 0,                // struct, encapsulation: big-endian, padding
    0, 0, 0, 4,  'I', ':', 'P', 0,  0,   0, 0, 2, 'P', 0, 0, 0,  // id; name, padding
    0, 0, 0, 1,  0,   0,   0,   2,  'o', 0, 0, 0,                // one member; its name, padding
    0, 0, 0, 19, 0,   0,   0,   12,                              // sequence, encapsulation:
    0, 0, 0, 0,  0,   0,   0,   10, 0,   0, 0, 3                 // big-endian, octet, bound 3
};

TypeCode_var make_struct() {
  const TypeCode_var list(TypeCode::create_sequence_tc(3, CORBA::_tc_octet));
  return TypeCode::create_struct_tc("I:P", "P", {{"o", list.in()}});
}

TEST(TypeCodeWireTest, ReadsTheGoldenStructInBothByteOrders) {
  const TypeCode_var made = make_struct();
  EXPECT_TRUE(made->equal(from_wire(wire_struct, true).in()));
  Octets swapped_kind = wire_struct;  // the encapsulation keeps its own byte order
  std::reverse(swapped_kind.begin(), swapped_kind.begin() + 4);
  std::reverse(swapped_kind.begin() + 4, swapped_kind.begin() + 8);
  EXPECT_TRUE(made->equal(from_wire(swapped_kind, false).in()));
  expect_no_prefix(wire_struct, [](const Octets& prefix) { return from_wire(prefix, true).in() != nullptr; });
}

TEST(TypeCodeWireTest, WritesWhatItReads) {
  const bool big = std::endian::native == std::endian::big;
  const TypeCode_var record = make_struct();
  const TypeCode_var kinds[] = {
      record,
      TypeCode::create_array_tc(4, record.in()),
      TypeCode::create_alias_tc("IDL:A:1.0", "A", CORBA::_tc_double),
      TypeCode::create_enum_tc("IDL:E:1.0", "E", {"a", "b"}),
      TypeCode::create_exception_tc("IDL:X:1.0", "X",
                                    {{"any", CORBA::_tc_any}, {"type", CORBA::_tc_TypeCode}}),
      TypeCode::create_exception_tc("IDL:Y:1.0", "Y", {}),
      TypeCode::create_interface_tc("", ""),
      TypeCode::create_string_tc(9),
      TypeCode::create_string_tc(0),
      CORBA::_tc_Object->_duplicate(CORBA::_tc_Object),
      CORBA::_tc_ulonglong,
  };
  for (const TypeCode_var& type : kinds) {
    SCOPED_TRACE(type->kind());
    TypeCode* plain = type.in();
    const Octets octets = encoded([&](CDR* cdr) { return cdr_CORBA_TypeCode(cdr, plain); });
    EXPECT_TRUE(type->equal(from_wire(octets, big).in()));
    expect_no_prefix(octets, [&](const Octets& prefix) { return from_wire(prefix, big).in() != nullptr; });
  }
}

TEST(TypeCodeWireTest, RefusesWhatIsNoTypeCode) {
  const std::pair<const char*, Octets> cases[] = {
      {"a union", {0, 0, 0, 16, 0, 0, 0, 1, 0}},
      {"an unknown kind", {0, 0, 0, 99}},
      {"a reference to an earlier TypeCode", {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xfc}},
      {"an encapsulation past the end", {0, 0, 0, 14, 0xff, 0xff, 0xff, 0xff, 0}},
      {"a sequence of void", {0, 0, 0, 19, 0, 0, 0, 12, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
      {"an array without elements", {0, 0, 0, 20, 0, 0, 0, 12, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0}},
      {"more enumerators than octets", {0, 0, 0, 17, 0, 0, 0, 24, 0, 0, 0, 0, 0,    0,    0,    1,
                                        0, 0, 0, 0,  0, 0, 0, 1,  0, 0, 0, 0, 0xff, 0xff, 0xff, 0xff}},
      {"a struct without members",
       {0, 0, 0, 15, 0, 0, 0, 24, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}},
  };
  for (const auto& [name, octets] : cases) EXPECT_EQ(from_wire(octets, true).in(), nullptr) << name;
}

TEST(TypeCodeDescriptionTest, RefusesWhatIsMalformed) {
  const std::pair<const char*, Octets> cases[] = {
      {"no zeros in front", {0, 0, 0, 1, 2}},
      {"a kind without description", {0, 0, 0, 0, 16}},
      {"a string", {0, 0, 0, 0, 18, 0, 0}},
      {"a text without NUL", {0, 0, 0, 0, 14, 0, 1, 'x', 0, 1, 0}},
      {"a NUL inside a text", {0, 0, 0, 0, 14, 0, 2, 0, 0, 0, 1, 0}},
      {"a text of no octets", {0, 0, 0, 0, 14, 0, 0, 0, 1, 0}},
      {"a nested TypeCode shorter than its length", {0, 0, 0, 0, 19, 0, 0, 0, 2, 10, 10, 0, 0}},
  };
  for (const auto& [name, octets] : cases) {
    const auto size = static_cast<ULong>(octets.size());
    const CORBA_sequence_octet description{size, size, const_cast<Octet*>(octets.data())};
    CORBA::Environment env;
    EXPECT_EQ(cpp_CORBA_ORB_TypeCode_from_cgen_TC(nullptr, &description, env), nullptr) << name;
    EXPECT_NE(CORBA::BAD_TYPECODE::_narrow(env.exception()), nullptr) << name;
  }
}

TEST(TypeCodeTest, NestingIsBounded) {
  TypeCode_var deepest(TypeCode::_duplicate(CORBA::_tc_long));
  for (ULong i = 0; i < TypeCode::max_depth; ++i) deepest = TypeCode::create_sequence_tc(0, deepest.in());
  EXPECT_THROW(TypeCode::create_sequence_tc(0, deepest.in()), CORBA::BAD_TYPECODE);

  Octets deep = {0, 0, 0, 2};
  for (ULong level = 2; level < 2 * TypeCode::max_depth; ++level) {
    const auto length = static_cast<Octet>((deep.size() + 8) & 0xff);
    const auto high = static_cast<Octet>((deep.size() + 8) >> 8);
    Octets outer = {0, 0, 0, 19, 0, 0, high, length, 0, 0, 0, 0};  // sequence, encapsulation, byte order
    outer.insert(outer.end(), deep.begin(), deep.end());
    outer.insert(outer.end(), {0, 0, 0, 0});  // bound
    deep.swap(outer);
    EXPECT_EQ(from_wire(deep, true).in() != nullptr, level <= TypeCode::max_depth) << level;
  }
}

TEST(TypeCodeTest, PartsAreCheckedAndNamed) {
  const TypeCode_var record = make_struct(), list(record->member_type(0));
  EXPECT_EQ(list->length(), 3u);
  EXPECT_EQ(TypeCode_var(list->content_type()).in(), CORBA::_tc_octet);
  EXPECT_THROW(record->member_name(1), TypeCode::Bounds);
  CORBA::Environment env;
  EXPECT_THROW(list->id(env), TypeCode::BadKind);
  EXPECT_NE(TypeCode::BadKind::_narrow(env.exception()), nullptr);
  EXPECT_THROW(CORBA::_tc_long->length(), TypeCode::BadKind);
  EXPECT_THROW(CORBA::_tc_string->content_type(), TypeCode::BadKind);
  const TypeCode_var failure(TypeCode::create_exception_tc("IDL:X:1.0", "X", {}));
  EXPECT_THROW(TypeCode::create_alias_tc("a", "b", nullptr), CORBA::BAD_TYPECODE);
  EXPECT_THROW(TypeCode::create_alias_tc("a", nullptr, CORBA::_tc_long), CORBA::BAD_PARAM);
  EXPECT_THROW(TypeCode::create_sequence_tc(0, failure.in()), CORBA::BAD_TYPECODE);
  EXPECT_THROW(TypeCode::create_struct_tc("a", "b", {}), CORBA::BAD_TYPECODE);
  EXPECT_THROW(TypeCode::create_struct_tc("a", "b", {{"v", CORBA::_tc_void}}), CORBA::BAD_TYPECODE);
}

TEST(TypeCodeTest, EqualComparesNamesAndEquivalentDoesNot) {
  const TypeCode_var one(TypeCode::create_struct_tc("", "One", {{"a", CORBA::_tc_long}}));
  const TypeCode_var other(TypeCode::create_struct_tc("", "Other", {{"b", CORBA::_tc_long}}));
  const TypeCode_var third(TypeCode::create_struct_tc("", "One", {{"a", CORBA::_tc_short}}));
  const TypeCode_var alias(TypeCode::create_alias_tc("IDL:A:1.0", "A", one.in()));
  const TypeCode_var bounded(TypeCode::create_string_tc(4));
  EXPECT_TRUE(one->equal(one.in()) && one->equivalent(other.in()) && alias->equivalent(other.in()));
  EXPECT_FALSE(one->equal(other.in()) || alias->equal(one.in()) || one->equal(nullptr));
  EXPECT_FALSE(one->equivalent(third.in()) || CORBA::_tc_string->equivalent(bounded.in()));
}

}  // namespace
