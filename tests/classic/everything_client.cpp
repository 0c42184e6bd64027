// Calls every operation of the server with values of every type, and sends each through an Any, too. Then it does the
// same with an object of its own.
#include <limits>
#include <sstream>

#include "everything_servant.h"

using namespace Every;
namespace idl = CORBA::idl;

static CORBA::ORB_ptr the_orb;  // of main
static Thing_ptr the_thing;

// ---- fill() makes the n-th value of a type, show() tells what a value is ---------------------------------------

template <class T>
concept Number = std::is_arithmetic_v<T>;
template <class T>
concept Enumeration = std::is_enum_v<T>;
template <class T>
concept Sequence = requires(T s) {
  s.length(1), s.get_buffer();
};
template <class T>
concept Struct = requires(T s) {
  idl::Type<T>::each([](auto&&...) { return true; }, s);
};

static void fill(CORBA::String_mgr& text, int n) {
  text = n % 2 ? ""
               : "Gr\xc3\xbc\xc3\x9f"
                 "e";
}
static void fill(CORBA::WString_mgr& text, int n) { text = n % 2 ? L"" : L"\u03c0\u20ac\U0001F600"; }
static void fill(char*& text, int n) { text = CORBA::string_dup(n % 2 ? "odd" : "even"); }
static void fill(CORBA::WChar*& text, int n) { text = CORBA::wstring_dup(n % 2 ? L"odd" : L"\u00e9ven"); }
static void fill(Money& price, int n) { price = CORBA::Fixed(n % 2 ? "-1234567.89" : "0.05"); }
static void fill(CORBA::Object_ptr& to, int n) {
  to = n % 2 ? nullptr : CORBA::Object::_duplicate(the_thing);
}
static void fill(CORBA::TypeCode_ptr& type, int n) {
  type = n % 2 ? CORBA::TypeCode::_duplicate(_tc_Term) : the_orb->create_wstring_tc(7);
}
template <class T>
void fill(CORBA::ObjectVar<T>& owner, int n) {
  fill(owner.out(), n);
}
template <Number T>
void fill(T& value, int n) {
  using Limits = std::numeric_limits<T>;
  value = n % 2 ? Limits::max() : Limits::lowest();
  if constexpr (std::is_same_v<T, CORBA::WChar>) value = n % 2 ? L'\u20ac' : L'w';
}
template <Enumeration T>
void fill(T& value, int n) {
  value = static_cast<T>(n % 3);
}
static void fill(CORBA::Any& any, int n) {
  if (n % 3 == 0) any <<= "text";
  if (n % 3 == 1) any <<= CORBA::Short(-7);
}
static void fill(Sized&, int);
static void fill(Switched&, int);
static void fill(Choice&, int);
static void fill(Lettered&, int);
static void fill(Wide&, int);
static void fill(Term&, int);
template <Struct T>
void fill(T&, int);
template <Sequence T>
void fill(T&, int);
template <class T, std::size_t N>
void fill(T (&array)[N], int n) {
  for (T& one : array) fill(one, n++);
}
template <Sequence T>
void fill(T& sequence, int n) {
  sequence.length(static_cast<CORBA::ULong>(n % 3));
  for (CORBA::ULong i = 0; i < sequence.length(); ++i)
    fill(sequence.get_buffer()[i], n + 2 + static_cast<int>(i));
}
static void fill(Tree& tree, int n) {
  fill(tree.name, n);
  tree.below.length(static_cast<CORBA::ULong>(n % 3));
  for (CORBA::ULong i = 0; i < tree.below.length(); ++i) fill(tree.below[i], n % 3 - 1);
}
template <Struct T>
void fill(T& value, int n) {
  idl::Type<T>::each([&](const char*, auto& member, auto...) { return fill(member, n), true; }, value);
}

template <class T>
T made(int n) {
  T value{};
  fill(value, n);
  return value;
}
static void fill(Sized& u, int n) {
  const Row row = {1, -2, 3};
  if (n % 3 == 0) u.o(200);
  if (n % 3 == 1) u.cells(row);
  if (n % 3 == 2) u.tiny(made<Small>(n));
}
static void fill(Switched& u, int n) {
  if (n % 2)
    u.number(n);
  else
    u._default();
}
static void fill(Choice& u, int n) {
  const double grid[2][3] = {{1, 2, 3}, {4, 5, -6.5}};
  Names pair;
  fill(pair, n);
  switch (n % 6) {
    case 0:
      return u.text("text"), u._d(2);
    case 1:
      return u.record(made<Mixed>(n));
    case 2:
      return u.pair(pair);
    case 3:
      return u.grid(grid);
    case 4:
      return u.whatever(made<CORBA::Any>(n));
    default:
      return u.sign(L'\u03c0');
  }
}
static void fill(Lettered& u, int n) {
  Lettered::_octets_seq octets;
  fill(octets, n);
  if (n % 2)
    u.text("a");
  else
    u.octets(octets);
}
static void fill(Wide& u, int n) {
  if (n % 2)
    u.f(-0.5F);
  else
    u.mark("12345678");
}
static void fill(Term& u, int n) {
  Terms of;
  of.length(2);
  of[0].number(1);
  of[1].number(-n);
  if (n % 2)
    u.number(n);
  else
    u.sum(of);
}

static std::string show(const char* text) { return std::string("'") + text + "'"; }
static std::string show(const CORBA::WChar* text) {
  std::string all = "L'";
  for (; *text; ++text) all += std::to_string(static_cast<long>(*text)) + ' ';
  return all;
}
static std::string show(const CORBA::String_mgr& text) { return show(text.in()); }
static std::string show(const CORBA::WString_mgr& text) { return show(text.in()); }
static std::string show(const Money& price) { return show(CORBA::String_var(price.to_string()).in()); }
static std::string show(CORBA::TypeCode_ptr type) {
  if (type->kind() == CORBA::tk_wstring) return "wstring " + std::to_string(type->length());
  return CORBA::is_nil(type) ? "nil" : type->equal(_tc_Term) ? type->id() : "?";
}
static std::string show(CORBA::Object_ptr object) {
  return CORBA::is_nil(object) ? "nil" : object->_is_equivalent(the_thing) ? "the thing" : "another";
}
template <class T>
std::string show(const CORBA::ObjectVar<T>& owner) {
  return show(owner.in());
}
template <class T>
requires Number<T> || Enumeration<T> std::string show(const T& value) {
  std::ostringstream out;
  out.precision(30);
  if constexpr (sizeof value == 1 || std::is_same_v<T, CORBA::WChar>)
    out << static_cast<long>(value);
  else
    out << value;
  return out.str();
}
static std::string show(const CORBA::Any& any) {
  CORBA::Short number = 0;
  const char* text = nullptr;
  if (any >>= number) return show(number);
  return (any >>= text) ? show(text) : CORBA::TypeCode_var(any.type())->kind() ? "another any" : "empty";
}
static std::string show(const Sized&);
static std::string show(const Switched& u) { return u._d() ? show(u.number()) : "none"; }
static std::string show(const Choice&);
static std::string show(const Lettered&);
static std::string show(const Wide& u) { return u._d() == ~0ULL ? show(u.f()) : show(u.mark()); }
static std::string show(const Term&);
template <Struct T>
std::string show(const T&);
template <Sequence T>
std::string show(const T&);
template <class T, std::size_t N>
std::string show(const T (&array)[N]) {
  std::string all = "[";
  for (const T& one : array) all += show(one) + ' ';
  return all + "]";
}
template <Sequence T>
std::string show(const T& sequence) {
  std::string all = std::to_string(sequence.length()) + '(';
  for (CORBA::ULong i = 0; i < sequence.length(); ++i) all += show(sequence.get_buffer()[i]) + ' ';
  return all + ")";
}
template <Struct T>
std::string show(const T& value) {
  std::string all = "{";
  idl::Type<T>::each([&](const char*, auto& member, auto...) { return all += show(member) + ' ', true; },
                     const_cast<T&>(value));
  return all + "}";
}
static std::string show(const Sized& u) {
  if (u._d() == middle) return show(*reinterpret_cast<const Row*>(u.cells()));
  return u._d() == low ? show(u.o()) : show(u.tiny());
}
static std::string show(const Choice& u) {
  switch (u._d()) {
    case 1:
    case 2:
      return show(u._d()) + show(u.text());
    case -3:
      return show(u.record());
    case 4:
      return show(*reinterpret_cast<const Names*>(u.pair()));
    case 5:
      return show(*reinterpret_cast<const double(*)[2][3]>(u.grid()));
    case 6:
      return show(u.whatever());
    default:
      return show(u._d()) + show(u.sign());
  }
}
static std::string show(const Lettered& u) { return u._d() == 'a' ? show(u.text()) : show(u.octets()); }
static std::string show(const Term& u) { return u._d() ? show(u.number()) : show(u.sum()); }

// ---- A call of each kind of type -------------------------------------------------------------------------------

#define EXPECT_SHOWN(found, expected, operation)                                       \
  do {                                                                                 \
    const std::string is = show(found);                                                \
    if (is == (expected)) break;                                                       \
    ++failures;                                                                        \
    std::cerr << operation << ": " << is << " instead of " << (expected) << std::endl; \
  } while (0)

// Through an Any to the server and back; what is extracted is shown.
static CORBA::Any_var echoed(const CORBA::Any& any) {
  CORBA::Any in_out(any);
  CORBA::Any_var out;
  CORBA::Any_var result = the_thing->echo_anys(any, in_out, out);
  const CORBA::TypeCode_var sent = any.type(), came = in_out.type(), came_out = out->type();
  CHECK(came->equal(sent) && came_out->equal(sent));
  return result;
}

template <class T>
void check_any([[maybe_unused]] const T& value, [[maybe_unused]] const char* operation) {
  if constexpr (CORBA::DescribedClass<T>) {
    CORBA::Any any, owner;
    any <<= value;
    owner <<= new T(value);
    for (const CORBA::Any* each : {&any, &owner}) {
      const CORBA::Any_var back = echoed(*each);
      const T* found = nullptr;
      CHECK(back.in() >>= found);
      if (found) EXPECT_SHOWN(*found, show(value), operation);
    }
  }
}

template <class T>
const T& plain(const T& value) {
  return value;
}
template <class T>
const T& plain(const CORBA::ValueVar<T>& value) {
  return value.in();
}

// `Result` holds the result and what comes out.
template <class T, class Result, class Call>
void check(const char* operation, Call call) {
  for (int n = 0; n < 6; ++n) {
    T a = made<T>(n), b = made<T>(n + 1);
    const std::string a_shown = show(a), b_shown = show(b);
    Result c{}, result{};
    call(a, b, c, result);
    EXPECT_SHOWN(plain(result), a_shown, operation);
    EXPECT_SHOWN(plain(b), a_shown, operation);
    EXPECT_SHOWN(plain(c), b_shown, operation);
    check_any(a, operation);
  }
}
#define VALUE(T, operation) \
  check<T, T>(#operation, [](T& a, T& b, T& c, T& result) { result = the_thing->operation(a, b, c); })
#define HEAP(T, operation)      \
  check<T, CORBA::ValueVar<T>>( \
      #operation, [](T& a, T& b, auto& c, auto& result) { result = the_thing->operation(a, b, c.out()); })
#define OWNED(Owner, operation)                                                     \
  check<Owner, Owner>(#operation, [](Owner& a, Owner& b, Owner& c, Owner& result) { \
    result = the_thing->operation(a.in(), b.inout(), c.out());                      \
  })

// Arrays have no values of their own.
#define ARRAY(T, operation)                                                      \
  for (int n = 0; n < 3; ++n) {                                                  \
    T a, b;                                                                      \
    T##_var c, result;                                                           \
    fill(a, n), fill(b, n + 1);                                                  \
    const std::string a_shown = show(a), b_shown = show(b);                      \
    result = the_thing->operation(a, b, c.out());                                \
    EXPECT_SHOWN(reinterpret_cast<const T&>(*result.in()), a_shown, #operation); \
    EXPECT_SHOWN(b, a_shown, #operation);                                        \
    EXPECT_SHOWN(reinterpret_cast<const T&>(*c.in()), b_shown, #operation);      \
    CORBA::Any any;                                                              \
    any <<= T##_forany(a);                                                       \
    const CORBA::Any_var back = echoed(any);                                     \
    T##_forany found;                                                            \
    CHECK(back.in() >>= found);                                                  \
    EXPECT_SHOWN(reinterpret_cast<const T&>(*found.in()), a_shown, #operation);  \
  }

static void values() {
  VALUE(CORBA::Boolean, echo_booleans);
  VALUE(CORBA::Octet, echo_bytes);
  VALUE(CORBA::Char, echo_chars);
  VALUE(CORBA::WChar, echo_wchars);
  VALUE(CORBA::Short, echo_shorts);
  VALUE(CORBA::UShort, echo_ushorts);
  VALUE(CORBA::Long, echo_longs);
  VALUE(CORBA::ULong, echo_ulongs);
  VALUE(CORBA::LongLong, echo_longlongs);
  VALUE(CORBA::ULongLong, echo_ulonglongs);
  VALUE(CORBA::Float, echo_floats);
  VALUE(CORBA::Double, echo_numbers);
  VALUE(CORBA::LongDouble, echo_longdoubles);
  VALUE(Level, echo_enums);
  VALUE(Money, echo_fixeds);
  VALUE(Small, echo_smalls);
  VALUE(Sized, echo_sizeds);
  VALUE(Switched, echo_switcheds);
}
static void texts_and_references() {
  OWNED(CORBA::String_mgr, echo_strings);
  OWNED(CORBA::String_mgr, echo_bounded);
  OWNED(CORBA::WString_mgr, echo_wstrings);
  OWNED(CORBA::WString_mgr, echo_wbounded);
  OWNED(CORBA::Object_var, echo_objects);
  OWNED(CORBA::TypeCode_var, echo_typecodes);
  Thing_var in_out = Thing::_duplicate(the_thing), out;
  Thing_var result = the_thing->echo_things(Thing::_nil(), in_out.inout(), out.out());
  CHECK(CORBA::is_nil(result) && CORBA::is_nil(in_out) && out->_is_equivalent(the_thing));
  CORBA::Any any;
  any <<= the_thing;
  const CORBA::Any_var back = echoed(any);
  Thing_ptr found = Thing::_nil();
  CHECK((back.in() >>= found) && found->_is_equivalent(the_thing));
}
static void structures() {
  HEAP(Mixed, echo_structs);
  HEAP(Choice, echo_unions);
  HEAP(Lettered, echo_lettered);
  HEAP(Wide, echo_widely);
  HEAP(Tree, echo_trees);
  HEAP(Term, echo_terms);
  HEAP(CORBA::Any, echo_anys);
}
static void sequences() {
  HEAP(Octets, echo_octetlists);
  HEAP(Booleans, echo_booleanlists);
  HEAP(Shorts, echo_shortlists);
  HEAP(Doubles, echo_doublelists);
  HEAP(Precises, echo_preciselists);
  HEAP(Signs, echo_signlists);
  HEAP(Monies, echo_moneylists);
  HEAP(Levels, echo_levellists);
  HEAP(Texts, echo_textlists);
  HEAP(Wides, echo_widelists);
  HEAP(Codes, echo_codelists);
  HEAP(Mixeds, echo_mixedlists);
  HEAP(Choices, echo_choicelists);
  HEAP(Rows, echo_rowlists);
  HEAP(NamesList, echo_nameslists);
  HEAP(Nested, echo_nestedlists);
  HEAP(Anys, echo_anylists);
  HEAP(Objects, echo_objectlists);
  HEAP(TypeCodes, echo_typecodelists);
}
static void arrays() {
  ARRAY(Row, echo_rows)
  ARRAY(Grid, echo_grids)
  ARRAY(Smalls, echo_smallarrays)
  ARRAY(Names, echo_names)
  ARRAY(WideNames, echo_widenames)
}

// All of them at once: an attribute, the member of an exception, an Any.
static void everything_at_once() {
  for (int n = 0; n < 6; ++n) {
    const All all = made<All>(n);
    the_thing->everything(all);
    All_var back = the_thing->everything();
    EXPECT_SHOWN(back.in(), show(all), "everything");
    check_any(all, "everything");
    try {
      the_thing->fail();
      CHECK(!"failed");
    } catch (const Failed& e) {
      EXPECT_SHOWN(e.what, show(all), "fail");
    }
  }
}

static void a_tree_becomes_a_part_of_itself() {
  Tree tree;
  tree.below.length(2);
  tree.below[1].name = "leaf";
  tree.below[1].below.length(1);
  tree = tree.below[1];
  CHECK(std::string(tree.name) == "leaf");
  tree.below = tree.below[0].below;
  CHECK(tree.below.length() == 0);
}

static void call_everything(Thing_ptr thing) {
  the_thing = thing;
  values();
  texts_and_references();
  structures();
  sequences();
  arrays();
  everything_at_once();
}

int main(int argc, char* argv[]) {
  return visit<Thing>(argc, argv, [](CORBA::ORB_ptr orb, Thing_ptr thing) {
    the_orb = orb;
    call_everything(thing);
    Thing_impl servant(orb);
    Thing_var own = servant._this();
    PortableServer::POA_var root = root_poa(orb);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    call_everything(own);
    a_tree_becomes_a_part_of_itself();
  });
}
