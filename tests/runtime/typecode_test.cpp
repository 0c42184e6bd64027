#include "corba/typecode.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "corba/detail/typecode_place.h"
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

TypeCode_var created_node();

/// A value with a base, that contains itself and is truncatable.
TypeCode_var value_type() {
  CORBA::TypeCodeFactory factory;
  CORBA::ValueMemberSeq members(1);
  const TypeCode_var base(
      factory.create_value_tc("IDL:V0:1.0", "V0", CORBA::VM_ABSTRACT, nullptr, CORBA::ValueMemberSeq()));
  members.length(1);
  members[0].name = "next", members[0].access = CORBA::PUBLIC_MEMBER;
  members[0].type = TypeCode::create_recursive_tc("IDL:V:1.0");
  const TypeCode_var value(
      factory.create_value_tc("IDL:V:1.0", "V", CORBA::VM_TRUNCATABLE, base.in(), members));
  EXPECT_EQ(value->member_visibility(0), CORBA::PUBLIC_MEMBER);
  EXPECT_EQ(value->type_modifier(), CORBA::VM_TRUNCATABLE);
  EXPECT_TRUE(TypeCode_var(value->concrete_base_type())->equal(base.in()));
  EXPECT_EQ(TypeCode_var(base->concrete_base_type()).in(), nullptr);
  return value;
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
      TypeCode::create_wstring_tc(7),
      TypeCode::create_fixed_tc(31, 4),
      created_node(),
      value_type(),
      TypeCode::create_named_tc(CORBA::tk_value_box,
                                {.id = "IDL:B:1.0", .name = "B", .content = &CORBA::_tc_wchar}),
      TypeCode::create_named_tc(CORBA::tk_native, {"IDL:N:1.0", "N"}),
      TypeCode::create_named_tc(CORBA::tk_abstract_interface, {"IDL:M:1.0", "M"}),
      TypeCode::create_named_tc(CORBA::tk_local_interface, {"IDL:L:1.0", "L"}),
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
      {"a kind that is none", hex("00000022 00000001 00")},
      {"an indirection outside of any type", hex("FFFFFFFF FFFFFFFC")},
      {"a type that is not there yet", hex("FFFFFFFF 00000004 00000002")},
      {"a union of double", hex("00000010 0000001C 00000000 00000001 00000000 00000001 00000000 00000007")},
      {"32 digits", hex("0000001C 0020 0000")},
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

std::string alias_around(const std::string& content) {
  const std::string body = hex("00000000 00000001 00000000 00000001 00000000") + content;
  return hex("00000015 000000") + std::string(1, static_cast<char>(body.size())) + body;
}

// An indirection leads to the start of a type around it or before it, or nowhere.
TEST(TypeCodeWireTest, FollowsIndirectionsToStartsOnly) {
  // struct P { sequence<P> o; }: the distances count from the last number but one.
  const auto recursive = [](const std::string& distance) {
    return hex("0000000F 00000038 00000000 00000004 493A5000 00000002 50000000 00000001 00000002 6F000000") +
           hex("00000013 00000010 00000000 FFFFFFFF") + hex(distance) + hex("00000000");
  };
  const TypeCode_var type = from_wire(recursive("FFFFFFC8"));
  ASSERT_TRUE(type.in());
  const TypeCode_var inside(TypeCode_var(type->member_type(0))->content_type());
  EXPECT_EQ(inside.in(), type.in());
  for (const char* wrong : {"FFFFFFC4", "FFFFFFCC", "00000000", "FFFFFFFC", "FFFFFFF8", "00000004",
                            "80000000", "7FFFFFFF", "FFFFFFC9"}) {
    EXPECT_FALSE(from_wire(recursive(wrong)).in()) << wrong;
  }
  EXPECT_FALSE(from_wire(alias_around(hex("FFFFFFFF FFFFFFE0"))).in()) << "an alias of itself";
  EXPECT_FALSE(from_wire(alias_around(alias_around(hex("FFFFFFFF FFFFFFC4")))).in()) << "by way of another";
}

// Sixty levels, each of which names the one below twice: 2^60 types, if anybody followed each.
TEST(TypeCodeWireTest, WorkIsBoundedByTheNodes) {
  const TypeCode_var leaf(TypeCode::create_struct_tc("", "l", {{"a", CORBA::_tc_long}}));
  std::string octets = encoded([&](CDR* cdr) {
    TypeCode* plain = leaf.in();
    return cdr_CORBA_TypeCode(cdr, plain);
  });
  for (int level = 1; level < 60; ++level) {  // a struct of that, and of that again by an indirection
    std::string body(4, '\0');
    body[0] = native_is_little ? 1 : 0;
    const auto put = [&](std::int32_t number) { body.append(reinterpret_cast<const char*>(&number), 4); };
    const auto put_name = [&] { put(1), put(0); };
    put_name(), put_name(), put(2), put_name();
    const std::size_t start = body.size();
    body += octets;
    put_name(), put(-1), put(static_cast<std::int32_t>(start) - static_cast<std::int32_t>(body.size()));
    octets.clear();
    for (const auto word : {ULong{CORBA::tk_struct}, static_cast<ULong>(body.size())})
      octets.append(reinterpret_cast<const char*>(&word), 4);
    octets += body;
  }
  const TypeCode_var one = from_wire(octets, native_is_little), other = from_wire(octets, native_is_little);
  ASSERT_TRUE(one.in() && other.in());
  EXPECT_TRUE(one->equal(other.in()) && one->equivalent(other.in()));
  EXPECT_TRUE(TypeCode_var(one->get_compact_typecode())->equivalent(other.in()));
  TypeCode* plain = one.in();
  EXPECT_EQ(encoded([&](CDR* cdr) { return cdr_CORBA_TypeCode(cdr, plain); }), octets);
}

// A constant that contains itself, as generated code defines it.
extern TypeCode* const tc_node;
constinit TypeCode children(CORBA::tk_sequence, {.content = &tc_node});
constexpr TypeCode::Member node_members[] = {{"name", &CORBA::_tc_string}, {"children", children.at()}};
constinit TypeCode node(CORBA::tk_struct, {"IDL:Node:1.0", "Node", node_members});
constinit TypeCode* const tc_node = &node;

TypeCode_var created_node() {
  const TypeCode_var inside(TypeCode::create_recursive_tc("IDL:Node:1.0"));
  const TypeCode_var list(TypeCode::create_sequence_tc(0, inside.in()));
  return TypeCode::create_struct_tc("IDL:Node:1.0", "Node",
                                    {{"name", CORBA::_tc_string}, {"children", list.in()}});
}

TEST(TypeCodeTest, RecursiveTypesAreTheSameHoweverTheyWereMade) {
  const TypeCode_var created = created_node();
  TypeCode* constant = tc_node;
  const std::string octets = encoded([&](CDR* cdr) { return cdr_CORBA_TypeCode(cdr, constant); });
  const TypeCode_var read = from_wire(octets, native_is_little);
  ASSERT_TRUE(read.in());
  for (const TypeCode* type : {created.in(), read.in()}) {
    EXPECT_TRUE(type->equal(tc_node) && tc_node->equal(type) && type->equivalent(tc_node));
    TypeCode* plain = const_cast<TypeCode*>(type);
    EXPECT_EQ(encoded([&](CDR* cdr) { return cdr_CORBA_TypeCode(cdr, plain); }), octets);
  }
  const TypeCode_var list(created->member_type(1)), compact(read->get_compact_typecode());
  EXPECT_STREQ(compact->id(), "IDL:Node:1.0");
  EXPECT_STREQ(compact->member_name(1), "");
  EXPECT_TRUE(TypeCode_var(list->content_type())->equal(tc_node)) << "kept alive by its part";

  const TypeCode_var hole(TypeCode::create_recursive_tc("IDL:Node:1.0"));
  Encoding out;
  TypeCode* unmade = hole.in();
  EXPECT_FALSE(cdr_CORBA_TypeCode(out, unmade));
  EXPECT_THROW(TypeCode::create_struct_tc("IDL:Node:1.0", "Node", {{"itself", hole.in()}}),
               CORBA::BAD_TYPECODE);
}

TEST(TypeCodeTest, UnionsTellTheirLabels) {
  CORBA::UnionMemberSeq members(2);
  members.length(2);
  members[0].name = "big", members[0].type = TypeCode::_duplicate(CORBA::_tc_wstring);
  members[0].label <<= CORBA::LongLong{-5};
  members[1].name = "other", members[1].type = TypeCode::_duplicate(CORBA::_tc_longdouble);
  members[1].label <<= CORBA::Any::from_octet{0};
  CORBA::TypeCodeFactory factory;
  const TypeCode_var made(factory.create_union_tc("IDL:U:1.0", "U", CORBA::_tc_longlong, members));
  TypeCode* plain = made.in();
  const std::string octets = encoded([&](CDR* cdr) { return cdr_CORBA_TypeCode(cdr, plain); });
  const TypeCode_var type = from_wire(octets, native_is_little);
  ASSERT_TRUE(type.in() && type->equal(made.in()));
  EXPECT_EQ(type->default_index(), 1);
  EXPECT_EQ(TypeCode_var(type->discriminator_type()).in(), CORBA::_tc_longlong);
  CORBA::LongLong label = 0;
  CORBA::Octet other = 1;
  EXPECT_TRUE((*CORBA::Any_var(type->member_label(0)) >>= label) && label == -5);
  EXPECT_TRUE((*CORBA::Any_var(type->member_label(1)) >>= CORBA::Any::to_octet{other}) && other == 0);
  EXPECT_THROW(type->member_label(2), TypeCode::Bounds);

  EXPECT_THROW(factory.create_union_tc("", "", CORBA::_tc_long, members), CORBA::BAD_PARAM)
      << "labels of another type";
  EXPECT_THROW(factory.create_union_tc("", "", CORBA::_tc_double, members), CORBA::BAD_TYPECODE);
  members[1].label = members[0].label;
  EXPECT_THROW(factory.create_union_tc("", "", CORBA::_tc_longlong, members), CORBA::BAD_PARAM) << "twice";
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
  CORBA::Environment ev;
  EXPECT_THROW(list->id(ev), TypeCode::BadKind);
  EXPECT_NE(TypeCode::BadKind::_narrow(ev.exception()), nullptr);
  const TypeCode_var failure(TypeCode::create_exception_tc("IDL:X:1.0", "X", {}));
  EXPECT_THROW(TypeCode::create_alias_tc("a", "b", nullptr), CORBA::BAD_TYPECODE);
  EXPECT_THROW(TypeCode::create_alias_tc("a", nullptr, CORBA::_tc_long), CORBA::BAD_PARAM);
  EXPECT_THROW(TypeCode::create_sequence_tc(0, failure.in()), CORBA::BAD_TYPECODE);
  EXPECT_THROW(TypeCode::create_struct_tc("a", "b", {}), CORBA::BAD_TYPECODE);
}

TEST(TypeCodeTest, EqualComparesNamesAndEquivalentDoesNot) {
  const TypeCode_var one(TypeCode::create_struct_tc("", "One", {{"a", CORBA::_tc_long}}));
  const TypeCode_var other(TypeCode::create_struct_tc("", "Other", {{"b", CORBA::_tc_long}}));
  const TypeCode_var member(TypeCode::create_struct_tc("", "One", {{"b", CORBA::_tc_long}}));
  const TypeCode_var third(TypeCode::create_struct_tc("", "One", {{"a", CORBA::_tc_short}}));
  const TypeCode_var alias(TypeCode::create_alias_tc("IDL:A:1.0", "A", one.in()));
  EXPECT_TRUE(one->equal(one.in()) && one->equivalent(other.in()) && alias->equivalent(other.in()));
  EXPECT_FALSE(one->equal(other.in()) || one->equal(member.in()) || alias->equal(one.in()) ||
               one->equal(nullptr));
  EXPECT_FALSE(one->equivalent(third.in()));
}

}  // namespace

// A part that was built while its whole failed may name the whole.
TEST(TypeCodePlaces, WhatFailsIsBuiltAgainWithItsParts) {
  using CORBA::idl::build_typecode;
  using CORBA::idl::TypeCodePlace;
  static TypeCodePlace whole, part;
  static bool there_is_memory = false;
  const auto build_part = [](TypeCodePlace& place) { place.type = CORBA::_tc_long; };
  const auto build_whole = [](TypeCodePlace& place) {
    build_typecode(part, [](TypeCodePlace& inner) { inner.type = CORBA::_tc_long; });
    if (!there_is_memory) throw std::bad_alloc();
    place.type = CORBA::_tc_short;
  };
  EXPECT_THROW(build_typecode(whole, build_whole), std::bad_alloc);
  EXPECT_FALSE(part.complete);
  EXPECT_EQ(*build_typecode(part, build_part), CORBA::_tc_long);
  EXPECT_TRUE(part.complete);
  there_is_memory = true;
  EXPECT_EQ(*build_typecode(whole, build_whole), CORBA::_tc_short);
  EXPECT_TRUE(whole.complete);
}
