#include "corba/any.h"

#include <gtest/gtest.h>

#include <limits>

#include "wire.h"

enum class Color : CORBA::ULong { red, green };

struct Broken : CORBA::UserExceptionOf<Broken> {
  static constexpr const char* repository_id = "IDL:Broken:1.0";
  CORBA::UShort index = 0;
};

namespace CORBA::idl {

template <>
struct Wire<Broken> {
  static bool move(CDR* cdr, Broken& e) { return OM_cdr_unsigned_short(cdr, &e.index); }
};

}  // namespace CORBA::idl

namespace {

using CORBA::Any;
using CORBA::TypeCode;
using CORBA::TypeCode_var;
using CORBA::ULong;

TypeCode* tc_color() { return TypeCode::create_enum_tc("IDL:Color:1.0", "Color", {"red", "green"}); }
TypeCode* tc_broken() {
  return TypeCode::create_exception_tc("IDL:Broken:1.0", "Broken", {{"index", CORBA::_tc_ushort}});
}

void operator<<=(Any& any, const Color& value) { CORBA::any_insert_copy(any, tc_color(), value); }
CORBA::Boolean operator>>=(const Any& any, Color& value) {
  return CORBA::any_extract_copy(any, tc_color(), value);
}
bool from_wire(CDR cdr, Any& any) { return cdr_CORBA_Any(&cdr, &any); }

/// The Any after a journey, whose every shorter form is refused.
Any travelled(Any any) {
  const Octets octets = encoded([&](CDR* cdr) { return cdr_CORBA_Any(cdr, &any); });
  Any arrived;
  expect_no_prefix(octets, [&](const Octets& prefix) { return from_wire(reader(prefix), arrived); });
  EXPECT_TRUE(from_wire(reader(octets), arrived));
  EXPECT_EQ(encoded([&](CDR* cdr) { return cdr_CORBA_Any(cdr, &arrived); }), octets);
  return arrived;
}

template <class T>
void expect_number(T value) {
  Any any;
  any <<= value;
  for (const Any& each : {any, travelled(any), Any(travelled(any))}) {
    T found{};
    EXPECT_TRUE(each >>= found);
    EXPECT_EQ(found, value);
    EXPECT_EQ(*static_cast<T*>(each.value()), value);
    Color color = Color::green;
    EXPECT_FALSE(each >>= color);
    EXPECT_EQ(color, Color::green);
  }
}

TEST(AnyTest, NumbersTravel) {
  expect_number(std::numeric_limits<CORBA::Short>::min());
  expect_number(std::numeric_limits<CORBA::UShort>::max());
  expect_number(std::numeric_limits<CORBA::Long>::min());
  expect_number(std::numeric_limits<CORBA::ULong>::max());
  expect_number(std::numeric_limits<CORBA::LongLong>::min());
  expect_number(std::numeric_limits<CORBA::ULongLong>::max());
  expect_number(CORBA::Float{-0.5F});
  expect_number(CORBA::Double{1e300});
  Any octet, boolean, character, color;
  octet <<= Any::from_octet{200};
  boolean <<= Any::from_boolean{1};
  character <<= Any::from_char{'x'};
  color <<= Color::green;
  CORBA::Octet number = 0;
  CORBA::Boolean flag = 0;
  CORBA::Char letter = 0;
  Color found = Color::red;
  EXPECT_TRUE((travelled(octet) >>= Any::to_octet{number}) && number == 200);
  EXPECT_FALSE(octet >>= Any::to_boolean{flag}) << "as wide, but another type";
  EXPECT_TRUE((travelled(boolean) >>= Any::to_boolean{flag}) && flag == 1);
  EXPECT_TRUE((travelled(character) >>= Any::to_char{letter}) && letter == 'x');
  EXPECT_THROW(CORBA::any_insert_value<CORBA::ULong>(color, nullptr, new ULong), CORBA::BAD_TYPECODE);
  EXPECT_TRUE((travelled(color) >>= found) && found == Color::green) << "a refused insertion changes nothing";
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
  const Any bounded_arrived = travelled(bounded);
  EXPECT_TRUE(bounded_arrived >>= (Any::to_string{found, 5}));
  EXPECT_STREQ(found, "hello");
}

TEST(AnyTest, ReferencesAreDuplicated) {
  CORBA::Object object;
  object.set_ref(CORBA_ORB_string_to_object(nullptr, "corbaloc:iiop:192.0.2.1:1/key", nullptr));
  Any any, nil, moved;
  any <<= &object;
  nil <<= static_cast<CORBA::Object*>(nullptr);
  CORBA::any_insert_reference(moved, TypeCode::create_interface_tc("IDL:I:1.0", "I"),
                              new CORBA::Object*(CORBA::Object::_duplicate(&object)));
  CORBA::Object_var found;
  for (const Any& each : {any, travelled(any), travelled(moved)}) {
    ASSERT_TRUE(each >>= Any::to_object{found.out()});
    EXPECT_TRUE(object._is_equivalent(found.in()));
  }
  ASSERT_TRUE(travelled(nil) >>= Any::to_object{found.out()});
  EXPECT_EQ(found.in(), nullptr);
}

TEST(AnyTest, ExceptionsTravel) {
  Any system, user;
  system <<= CORBA::TRANSIENT(0x4B510301, CORBA::COMPLETED_MAYBE);
  const Any arrived = travelled(system);
  const CORBA::SystemException* found = nullptr;
  ASSERT_TRUE(arrived >>= found);
  EXPECT_STREQ(found->id(), "IDL:CORBA/StExcep/TRANSIENT:1.0");
  EXPECT_EQ(found->minor(), 0x4B510301u);
  EXPECT_EQ(found->completed(), CORBA::COMPLETED_MAYBE);
  EXPECT_THROW(found->_raise(), CORBA::TRANSIENT);
  CORBA::any_insert_exception(user, tc_broken(), Broken());
  EXPECT_FALSE(user >>= found);
  EXPECT_TRUE(travelled(user).is_of(TypeCode_var(tc_broken()).in()));
}

TEST(AnyTest, ReplaceOwnsByFlag) {
  CORBA::Long number = 5, found = 0;
  Any any;
  any.replace(CORBA::_tc_long, &number, 0);
  EXPECT_EQ(any.value(), &number);
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
  const Octets big = {
      0, 0, 0, 19, 0,    0,    0,    12,                // sequence, encapsulation
      0, 0, 0, 0,  0,    0,    0,    2,    0, 0, 0, 2,  //   big-endian, short, bound 2
      0, 0, 0, 2,  0x12, 0x34, 0x56, 0x78,              // two elements
  };
  Any any;
  ASSERT_TRUE(from_wire(reader(big, true), any));
  const Octets own = encoded([&](CDR* cdr) { return any.encode_value(cdr); });
  ASSERT_EQ(own.size(), 8u);
  const CORBA::Short elements[2] = {0x1234, 0x5678};
  EXPECT_EQ(std::memcmp(elements, own.data() + 4, sizeof elements), 0);
}

TEST(AnyWireTest, RefusesValuesThatAreNotOfTheirType) {
  const ULong text = std::endian::native == std::endian::little ? 0x00636261 : 0x61626300;
  std::vector<ULong> nested(4000, CORBA::tk_any);
  nested.push_back(CORBA::tk_null);
  const struct {
    const char* name;
    TypeCode* type;  // owned
    std::vector<ULong> words;
    bool taken = false;
  } rows[] = {
      {"an enumerator", tc_color(), {1}, true},
      {"an enumerator too far", tc_color(), {2}},
      {"a sequence over the bound", TypeCode::create_sequence_tc(1, CORBA::_tc_long), {2, 1, 1}},
      {"more than is there", TypeCode::create_sequence_tc(0, CORBA::_tc_octet), {0xffffffff, 0}},
      {"a huge array", TypeCode::create_array_tc(0x7fffffff, CORBA::_tc_double), {1, 2, 3}},
      {"a bounded string", TypeCode::create_string_tc(3), {4, text}, true},
      {"a string over the bound", TypeCode::create_string_tc(2), {4, text}},
      {"the id of another exception", tc_broken(), {4, text, 0}},
      {"profiles without end", TypeCode::_duplicate(CORBA::_tc_Object), {1, 0, 0xffffffff, 0, 0}},
      {"Anys without end", TypeCode::_duplicate(CORBA::_tc_any), nested},
  };
  for (const auto& row : rows) {
    const TypeCode_var type(row.type);
    const auto* first = reinterpret_cast<const CORBA::Octet*>(row.words.data());
    const Octets octets(first, first + row.words.size() * 4);
    CDR cdr = reader(octets);
    Any any;
    any.replace(type.in(), nullptr, 0);
    EXPECT_EQ(any.decode_value(&cdr), row.taken) << row.name;
  }
}

TEST(NVListTest, KeepsItsItems) {
  CORBA::NVList list;
  CORBA::NamedValue* first = list.add_value("a", Any(), CORBA::ARG_IN);
  for (int i = 0; i < 20; ++i) list.add_value("b", Any(), CORBA::ARG_INOUT);
  EXPECT_EQ(list.item(0), first);
  EXPECT_EQ(list.item(20)->flags(), CORBA::ARG_INOUT);
  EXPECT_THROW(list.item(21), CORBA::Bounds);
  EXPECT_THROW(list.add_value("c", Any(), 4), CORBA::BAD_PARAM);
}

}  // namespace
