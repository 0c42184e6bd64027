#include "corba/typecode.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "wire.h"

namespace {

using CORBA::TypeCode;
using CORBA::TypeCode_var;
using CORBA::ULong;

TypeCode_var from_wire(const std::string& octets, bool little = false) {
  Decoding in(octets, little);
  TypeCode_var type;
  cdr_CORBA_TypeCode(in, type.inout());
  return type;
}

// struct P { sequence<octet, 3> o; }, as a big-endian stream.
const std::string wire_struct =
    hex("0000000F 00000034 00000000"           // struct, encapsulation: big-endian, padding
        "00000004 493A5000 00000002 50000000"  // id; name, padding
        "00000001 00000002 6F000000"           // one member; its name, padding
        "00000013 0000000C"                    // sequence, encapsulation:
        "00000000 0000000A 00000003");         // big-endian, octet, bound 3

TypeCode_var make_struct() {
  const TypeCode_var list(TypeCode::create_sequence_tc(3, CORBA::_tc_octet));
  return TypeCode::create_struct_tc("I:P", "P", {{"o", list.in()}});
}

TEST(TypeCodeWireTest, ReadsTheGoldenStructInBothByteOrders) {
  const TypeCode_var made = make_struct();
  EXPECT_TRUE(made->equal(from_wire(wire_struct).in()));
  std::string swapped_kind = wire_struct;  // the encapsulation keeps its own byte order
  std::reverse(swapped_kind.begin(), swapped_kind.begin() + 4);
  std::reverse(swapped_kind.begin() + 4, swapped_kind.begin() + 8);
  EXPECT_TRUE(made->equal(from_wire(swapped_kind, /*little=*/true).in()));
}

TEST(TypeCodeWireTest, WritesWhatItReads) {
  const TypeCode_var record = make_struct();
  const TypeCode_var kinds[] = {
      TypeCode::create_array_tc(4, record.in()),
      TypeCode::create_alias_tc("IDL:A:1.0", "A", CORBA::_tc_double),
      TypeCode::create_enum_tc("IDL:E:1.0", "E", {"a", "b"}),
      TypeCode::create_exception_tc("IDL:X:1.0", "X", {{"any", CORBA::_tc_any}}),
      TypeCode::create_interface_tc("", ""),
      TypeCode::create_string_tc(9),
  };
  for (const TypeCode_var& type : kinds) {
    SCOPED_TRACE(type->kind());
    TypeCode* plain = type.in();
    const std::string octets = encoded([&](CDR* cdr) { return cdr_CORBA_TypeCode(cdr, plain); });
    EXPECT_TRUE(type->equal(from_wire(octets, native_is_little).in()));
    expect_no_prefix(octets,
                     [](const std::string& cut) { return from_wire(cut, native_is_little).in() != nullptr; });
  }
}

TEST(TypeCodeWireTest, RefusesWhatIsNoTypeCode) {
  const std::pair<const char*, std::string> cases[] = {
      {"a union", hex("00000010 00000001 00")},
      {"a reference to an earlier TypeCode", hex("FFFFFFFF FFFFFFFC")},
      {"an encapsulation past the end", hex("0000000E FFFFFFFF 00")},
      {"a sequence of void", hex("00000013 0000000C 00000000 00000001 00000000")},
      {"an array without elements", hex("00000014 0000000C 00000000 00000002 00000000")},
      {"more enumerators than octets",
       hex("00000011 00000018 00000000 00000001 00000000 00000001 00000000 FFFFFFFF")},
      {"a struct without members",
       hex("0000000F 00000018 00000000 00000001 00000000 00000001 00000000 00000000")},
  };
  for (const auto& [name, octets] : cases) EXPECT_EQ(from_wire(octets).in(), nullptr) << name;
}

TEST(TypeCodeTest, NestingIsBounded) {
  TypeCode_var deepest(TypeCode::_duplicate(CORBA::_tc_long));
  for (ULong i = 0; i < TypeCode::max_depth; ++i) deepest = TypeCode::create_sequence_tc(0, deepest.in());
  EXPECT_THROW(TypeCode::create_sequence_tc(0, deepest.in()), CORBA::BAD_TYPECODE);

  std::string deep = hex("00000002");
  for (ULong level = 2; level < 2 * TypeCode::max_depth; ++level) {
    const std::size_t length = deep.size() + 8;
    const char size[] = {0, 0, static_cast<char>(length >> 8), static_cast<char>(length & 0xff)};
    deep = hex("00000013") + std::string(size, 4) + hex("00000000") + deep + hex("00000000");
    EXPECT_EQ(from_wire(deep).in() != nullptr, level <= TypeCode::max_depth) << level;
  }
}

TEST(TypeCodeTest, PartsAreCheckedAndNamed) {
  const TypeCode_var record = make_struct(), list(record->member_type(0));
  EXPECT_EQ(list->length(), 3u);
  EXPECT_EQ(TypeCode_var(list->content_type()).in(), CORBA::_tc_octet);
  EXPECT_EQ(record->member_count(), 1u);
  EXPECT_THROW(record->member_name(1), TypeCode::Bounds);
  CORBA::Environment env;
  EXPECT_THROW(list->id(env), TypeCode::BadKind);
  EXPECT_NE(TypeCode::BadKind::_narrow(env.exception()), nullptr);
  const TypeCode_var failure(TypeCode::create_exception_tc("IDL:X:1.0", "X", {}));
  EXPECT_THROW(TypeCode::create_alias_tc("a", "b", nullptr), CORBA::BAD_TYPECODE);
  EXPECT_THROW(TypeCode::create_alias_tc("a", nullptr, CORBA::_tc_long), CORBA::BAD_PARAM);
  EXPECT_THROW(TypeCode::create_sequence_tc(0, failure.in()), CORBA::BAD_TYPECODE);
  EXPECT_THROW(TypeCode::create_struct_tc("a", "b", {}), CORBA::BAD_TYPECODE);
}

TEST(TypeCodeTest, EqualComparesNamesAndEquivalentDoesNot) {
  const TypeCode_var one(TypeCode::create_struct_tc("", "One", {{"a", CORBA::_tc_long}}));
  const TypeCode_var other(TypeCode::create_struct_tc("", "Other", {{"b", CORBA::_tc_long}}));
  const TypeCode_var third(TypeCode::create_struct_tc("", "One", {{"a", CORBA::_tc_short}}));
  const TypeCode_var alias(TypeCode::create_alias_tc("IDL:A:1.0", "A", one.in()));
  EXPECT_TRUE(one->equal(one.in()) && one->equivalent(other.in()) && alias->equivalent(other.in()));
  EXPECT_FALSE(one->equal(other.in()) || alias->equal(one.in()) || one->equal(nullptr));
  EXPECT_FALSE(one->equivalent(third.in()));
}

}  // namespace
