#include "corba/any.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "corba/detail/any_operators.h"
#include "corba/detail/any_values.h"
#include "corba/standard_sequences.h"
#include "wire.h"

enum class Color : CORBA::ULong { red, green };
template <>
struct CORBA::idl::Wire<Color> {
  static bool move(CDR* cdr, Color& value) {
    auto number = static_cast<ULong>(value);
    if (!zrsv::move_value(cdr, &number) || number > 1) return false;
    value = static_cast<Color>(number);
    return true;
  }
};

namespace {

using CORBA::Any;
using CORBA::TypeCode;
using CORBA::TypeCode_var;
using CORBA::ULong;

TypeCode* tc_color() { return TypeCode::create_enum_tc("IDL:Color:1.0", "Color", {"red", "green"}); }
void operator<<=(Any& any, const Color& value) { CORBA::any_insert_copy(any, tc_color(), value); }
CORBA::Boolean operator>>=(const Any& any, Color& value) {
  return CORBA::any_extract_copy(any, tc_color(), value);
}

bool from_wire(const std::string& octets, Any& any, bool little = native_is_little) {
  Decoding in(octets, little);
  return cdr_CORBA_Any(in, &any);
}

/// The Any after a journey, whose every shorter form is refused.
Any travelled(Any any) {
  const std::string octets = encoded([&](CDR* cdr) { return cdr_CORBA_Any(cdr, &any); });
  Any arrived;
  expect_no_prefix(octets, [&](const std::string& prefix) { return from_wire(prefix, arrived); });
  EXPECT_TRUE(from_wire(octets, arrived));
  EXPECT_EQ(encoded([&](CDR* cdr) { return cdr_CORBA_Any(cdr, &arrived); }), octets);
  return arrived;
}

/// A value that is inserted as a From and extracted as a To.
template <class T, class From = const T&, class To = T&>
void expect_value(T value) {
  T found{};
  From from{value};
  To to{found};
  Any any;
  any <<= from;
  for (const Any& each : {any, travelled(any), Any(travelled(any))}) {
    found = {};
    EXPECT_TRUE((each >>= to) && found == value);
    EXPECT_EQ(*static_cast<T*>(each.value()), value);
    Color color = Color::green;
    EXPECT_EQ(each >>= color, (std::is_same_v<T, Color>)) << "of another type";
  }
}

TEST(AnyTest, NumbersTravel) {
  expect_value(std::numeric_limits<CORBA::Short>::min());
  expect_value(std::numeric_limits<CORBA::ULongLong>::max());
  expect_value(CORBA::Double{1e300});
  expect_value(Color::green);
  expect_value<CORBA::Octet, Any::from_octet, Any::to_octet>(200);
  expect_value<CORBA::Boolean, Any::from_boolean, Any::to_boolean>(1);
  expect_value<CORBA::Char, Any::from_char, Any::to_char>('x');
  expect_value<CORBA::WChar, Any::from_wchar, Any::to_wchar>(L'\x1F600');
  expect_value(std::numeric_limits<CORBA::LongDouble>::denorm_min());
  Any octet;
  octet <<= Any::from_octet{1};
  EXPECT_THROW(CORBA::any_insert_value<CORBA::ULong>(octet, nullptr, new ULong), CORBA::BAD_TYPECODE);
  CORBA::Boolean flag = 0;
  EXPECT_FALSE(octet >>= Any::to_boolean{flag}) << "as wide, but another type";
}

TEST(AnyTest, StringsAnysAndTypeCodesTravel) {
  Any text, outer, type, bounded;
  text <<= "hello";
  outer <<= text;
  type <<= CORBA::_tc_double;
  const Any arrived = travelled(outer), arrived_type = travelled(type);
  const Any* inner = nullptr;
  const char* found = nullptr;
  ASSERT_TRUE((arrived >>= inner) && (*inner >>= found));
  EXPECT_STREQ(found, "hello");
  TypeCode* found_type = nullptr;
  ASSERT_TRUE(arrived_type >>= found_type);
  EXPECT_EQ(found_type, CORBA::_tc_double);

  EXPECT_THROW((bounded <<= Any::from_string{"hello", 4}), CORBA::BAD_PARAM);
  bounded <<= Any::from_string{"hello", 5};
  EXPECT_FALSE(bounded >>= found);
  EXPECT_TRUE(travelled(bounded) >>= (Any::to_string{found, 5}));
}

TEST(AnyTest, WideAndFixedValuesTravel) {
  Any wide, bounded, fixed;
  wide <<= L"wide \x1F600";
  const CORBA::WChar* found = nullptr;
  const Any arrived = travelled(wide);
  ASSERT_TRUE(arrived >>= found);
  EXPECT_EQ(std::wstring(found), L"wide \x1F600");
  EXPECT_THROW((bounded <<= Any::from_wstring(L"hello", 4)), CORBA::BAD_PARAM);
  bounded <<= Any::from_wstring(CORBA::wstring_alloc(0), 5, true);
  EXPECT_TRUE(travelled(bounded) >>= Any::to_wstring(found, 5));
  EXPECT_FALSE(bounded >>= Any::to_wstring(found, 4));

  fixed <<= Any::from_fixed("-12.345", 4, 2);
  CORBA::Fixed number;
  EXPECT_TRUE((travelled(fixed) >>= Any::to_fixed(number, 4, 2)) && number == CORBA::Fixed("-12.34"));
  EXPECT_FALSE(fixed >>= Any::to_fixed(number, 5, 2));
  EXPECT_THROW((fixed <<= Any::from_fixed(100, 4, 2)), CORBA::DATA_CONVERSION);
}

TEST(AnyTest, TypesAreTheSameByAnyName) {
  const TypeCode_var alias(TypeCode::create_alias_tc("IDL:Count:1.0", "Count", CORBA::_tc_long));
  Any any;
  any <<= CORBA::Long{5};
  any.type(alias.in());
  CORBA::Long found = 0;
  EXPECT_TRUE((any >>= found) && found == 5);
  EXPECT_STREQ(TypeCode_var(any.type())->name(), "Count");
  EXPECT_THROW(any.type(CORBA::_tc_ulong), CORBA::BAD_TYPECODE);
}

// One value of every kind, in a type that no program was compiled with, from a peer of the other byte order.
TEST(AnyWireTest, HandsOnWhatItDoesNotKnow) {
  const TypeCode_var list(
      TypeCode::create_sequence_tc(0, TypeCode_var(TypeCode::create_recursive_tc("I:U")).in()));
  const CORBA::TypeCode::Member cases[] = {
      {"w", &CORBA::_tc_wchar, 1}, {"more", list->at()}, {"f", &CORBA::_tc_float, -2}};
  const TypeCode_var choice(TypeCode::create_named_tc(
      CORBA::tk_union,
      {.id = "I:U", .name = "U", .members = cases, .content = &CORBA::_tc_short, .default_index = 1}));
  const TypeCode_var fixed(TypeCode::create_fixed_tc(3, 1)),
      pair(TypeCode::create_array_tc(2, CORBA::_tc_short));
  const TypeCode_var type(TypeCode::create_struct_tc("I:S", "S",
                                                     {{"u", choice.in()},
                                                      {"f", fixed.in()},
                                                      {"w", CORBA::_tc_wstring},
                                                      {"d", CORBA::_tc_longdouble},
                                                      {"p", CORBA::_tc_Principal},
                                                      {"a", pair.in()}}));
  const auto value = [](bool little) {
    const auto number = [little](std::string octets) {
      octets = hex(octets.c_str());
      if (little) std::reverse(octets.begin(), octets.end());
      return octets;
    };
    return number("0007") + hex("0000") + number("00000003") +        // the default member: three more
           number("0001") + hex("02 0041") + hex("00") +              // a wide character
           number("FFFE") + number("40490FDB") +                      // a float
           number("0005") + hex("0000") + number("00000000") +        // an empty list
           hex("123D 0000") + number("00000004") + hex("0041D83D") +  // fixed; a wide string
           number("3FFF0000000000000000000000000001") +               // a long double that is no x87's
           number("00000001") + hex("55") + hex("00") + number("1234") + number("5678");
  };
  for (const bool little : {false, true}) {
    Any any;
    any.replace(type.in(), nullptr, 0);
    Decoding in(value(little), little);
    ASSERT_TRUE(any.decode_value(in));
    const Any copy(any);
    EXPECT_EQ(encoded([&](CDR* cdr) { return copy.encode_value(cdr); }), value(native_is_little));
    expect_no_prefix(value(little), [&](const std::string& prefix) {
      Decoding cut(prefix, little);
      return any.decode_value(cut);
    });
  }
}

TEST(AnyTest, ReferencesTravel) {
  CORBA::Object object;
  object.set_ref(CORBA_ORB_string_to_object(nullptr, "corbaloc:iiop:192.0.2.1:1/key", nullptr));
  for (CORBA::Object* reference : {&object, static_cast<CORBA::Object*>(nullptr)}) {
    Any any;
    any <<= reference;
    CORBA::Object_var found;
    EXPECT_TRUE(travelled(any) >>= Any::to_object{found.out()});
    EXPECT_TRUE(reference ? object._is_equivalent(found.in()) : !found.in());
  }
}

TEST(AnyTest, ExceptionsTravel) {
  Any system;
  system <<= CORBA::TRANSIENT(0x4B510301, CORBA::COMPLETED_MAYBE);
  const Any arrived = travelled(system);
  const CORBA::SystemException* found = nullptr;
  ASSERT_TRUE(arrived >>= found);
  EXPECT_EQ(found->minor(), 0x4B510301u);
  EXPECT_EQ(found->completed(), CORBA::COMPLETED_MAYBE);
  EXPECT_THROW(found->_raise(), CORBA::TRANSIENT);
  const CORBA::TRANSIENT* exact = nullptr;
  const CORBA::MARSHAL* other = nullptr;
  EXPECT_TRUE((arrived >>= exact) && exact == found);
  EXPECT_FALSE((arrived >>= other) || other);

  const std::string id = "IDL:omg.org/CORBA/TRANSIENT:2.3";  // of another version
  const TypeCode_var type(TypeCode::create_exception_tc(
      id.c_str(), "TRANSIENT", {{"minor", CORBA::_tc_ulong}, {"completed", CORBA::_tc_ulong}}));
  Any later;
  later.replace(type.in(), nullptr, 0);
  Decoding in(hex("20000000") + id + hex("00 01000000 01000000"), /*little=*/true);
  ASSERT_TRUE(later.decode_value(in));
  EXPECT_FALSE(later >>= found);
}

TEST(AnyTest, OwnersAreArgumentsOfAllKinds) {
  CORBA::Any_var owner;
  owner <<= CORBA::Long(3);
  const auto give = [](CORBA::Any_out place) { place = new Any(CORBA::_tc_long, new CORBA::Long(7), true); };
  const auto add = [](Any& any) {
    CORBA::Long number = 0;
    any >>= number;
    any <<= number + 1;
  };
  CORBA::Long found = 0;
  add(owner.inout());
  EXPECT_TRUE((owner.in() >>= found) && found == 4);
  give(owner);
  EXPECT_TRUE((owner >>= found) && found == 7);
  give(owner.out());
  const CORBA::Any_var copy = owner;
  add(owner);
  EXPECT_TRUE((*copy >>= found) && found == 7);
}

TEST(AnyTest, StandardSequencesTravel) {
  Any any;
  CORBA::WStringSeq texts(2);
  texts.length(2);
  texts[0] = L"\x20ac";
  texts[1] = CORBA::wstring_dup(L"");
  any <<= texts;
  const CORBA::WStringSeq* found = nullptr;
  const Any arrived = travelled(any);
  ASSERT_TRUE((arrived >>= found) && found->length() == 2);
  EXPECT_STREQ((*found)[0], L"\x20ac");
  const CORBA::StringSeq* narrow = nullptr;
  EXPECT_FALSE(arrived >>= narrow);
}

TEST(AnyTest, OneThatWasMovedFromTravelsAsAnEmptyOne) {
  Any from, to, empty;
  from <<= CORBA::Long(1);
  to <<= "a text";
  to = std::move(from);
  CORBA::Long number = 0;
  EXPECT_TRUE((to >>= number) && number == 1);
  const auto octets = [](Any& any) { return encoded([&](CDR* cdr) { return cdr_CORBA_Any(cdr, &any); }); };
  EXPECT_EQ(octets(from), octets(empty)) << "not the text, as a value of no type";
  EXPECT_EQ(from.value(), nullptr);
}

TEST(AnyTest, ReplaceOwnsByFlag) {
  CORBA::Long number = 5, found = 0;
  Any any;
  any.replace(CORBA::_tc_long, &number, 0);
  const Any copy(any);
  number = 6;
  EXPECT_TRUE((copy >>= found) && found == 5);
  EXPECT_TRUE((any >>= found) && found == 6);
  any.replace(CORBA::_tc_long, new CORBA::Long(7), 1);
  any.replace(CORBA::_tc_long, any.value(), 1);
  EXPECT_TRUE((any >>= found) && found == 7);

  const TypeCode_var list(TypeCode::create_sequence_tc(0, CORBA::_tc_string));
  for (TypeCode* unfit : {list.in(), static_cast<TypeCode*>(nullptr)})
    EXPECT_THROW(any.replace(unfit, &number, 0), CORBA::BAD_TYPECODE);
  any.replace(CORBA::_tc_long, nullptr, 0);
  EXPECT_FALSE(any >>= found);
  travelled(Any());
}

TEST(AnyWireTest, ReadsBothByteOrders) {
  const std::string big =
      hex("00000013 0000000C"           // sequence, encapsulation
          "00000000 00000002 00000002"  //   big-endian, short, bound 2
          "00000002 1234 5678");        // two elements
  Any any;
  ASSERT_TRUE(from_wire(big, any, /*little=*/false));
  const std::string own = encoded([&](CDR* cdr) { return any.encode_value(cdr); });
  ASSERT_EQ(own.size(), 8u);
  const CORBA::Short elements[2] = {0x1234, 0x5678};
  EXPECT_EQ(std::memcmp(elements, own.data() + 4, sizeof elements), 0);
}

TEST(AnyWireTest, RefusesValuesThatAreNotOfTheirType) {
  std::string nested;  // 4000 Anys, each within the other, around one of type null
  for (int i = 0; i < 4000; ++i) nested += hex("0000000B");
  const struct {
    const char* name;
    TypeCode* type;  // owned
    std::string octets;
    bool taken = false;
  } rows[] = {
      {"an enumerator", tc_color(), hex("00000001"), true},
      {"an enumerator too far", tc_color(), hex("00000002")},
      {"a sequence over the bound", TypeCode::create_sequence_tc(1, CORBA::_tc_long),
       hex("00000002 00000001 00000001")},
      {"more than is there", TypeCode::create_sequence_tc(0, CORBA::_tc_octet), hex("FFFFFFFF 00000000")},
      {"a huge array", TypeCode::create_array_tc(0x7fffffff, CORBA::_tc_double), hex("00000001 00000002")},
      {"a bounded string", TypeCode::create_string_tc(3), hex("00000004 61626300"), true},
      {"a string over the bound", TypeCode::create_string_tc(2), hex("00000004 61626300")},
      {"the id of another exception", TypeCode::create_exception_tc("IDL:Broken:1.0", "Broken", {}),
       hex("00000004 61626300 00000000")},
      {"profiles without end", TypeCode::_duplicate(CORBA::_tc_Object),
       hex("00000001 00000000 FFFFFFFF 00000000 00000000")},
      {"Anys without end", TypeCode::_duplicate(CORBA::_tc_any), nested + hex("00000000")},
  };
  for (const auto& row : rows) {
    const TypeCode_var type(row.type);
    Decoding in(row.octets, /*little=*/false);
    Any any;
    any.replace(type.in(), nullptr, 0);
    EXPECT_EQ(any.decode_value(in), row.taken) << row.name;
  }
}

TEST(NVListTest, KeepsItsItems) {
  CORBA::NVList list;
  CORBA::NamedValue* first = list.add_value("a", Any(), CORBA::ARG_IN);
  for (int i = 0; i < 20; ++i) list.add_value("b", Any(), CORBA::ARG_INOUT);
  EXPECT_EQ(list.item(0), first);
  EXPECT_THROW(list.item(21), CORBA::Bounds);
  EXPECT_THROW(list.add_value("c", Any(), 4), CORBA::BAD_PARAM);
}

}  // namespace
