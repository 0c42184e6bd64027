// Every kind of IDL type in every direction, and interfaces with several bases, in process and over a socket.
#include <gtest/gtest.h>

#include "../program/scripted_peer.h"
#include "orb_fixture.h"
#include "store.h"

namespace {

using namespace Sample;

/// The same object under another spelling of its address, which the ORB does not know for its own: called
/// over a socket.
CORBA::Object* over_socket(CORBA::Object* object) {
  const CORBA::String_var own(ZR_object_to_corbaloc(nullptr, object->get_ref(), CORBA::Environment()._evp));
  std::string text(own.in());
  text.replace(text.find("127.0.0.1"), 9, "127.1");
  auto* seen = new CORBA::Object;
  seen->set_ref(CORBA_ORB_string_to_object(nullptr, text.c_str(), CORBA::Environment()._evp));
  return seen;
}

/// A store, served, and a reference to it by each road.
class Everything : public testing::TestWithParam<bool> {
 protected:
  Everything()
      : orb(CORBA::ORB_init(none, nullptr)),
        poa(test_root_poa()->create_POA(unique_name("store").c_str(), nullptr, {})) {
    PortableServer::POAManager_var(poa->the_POAManager())->activate();
    object = servant._this();
    if (GetParam()) object = over_socket(object.in());
    store = Store::_narrow(object.in());
  }
  ~Everything() override {
    const PortableServer::ObjectId_var id = test_root_poa()->servant_to_id(&servant);
    test_root_poa()->deactivate_object(id.in());
    poa->destroy(false, true);
    orb->destroy();
  }

  int none = 0;
  const CORBA::ORB_var orb;
  PortableServer::POA_var poa;
  StoreServant servant;
  CORBA::Object_var object;
  Store_var store;
};
INSTANTIATE_TEST_SUITE_P(Roads, Everything, testing::Bool(),
                         [](const auto& road) { return road.param ? "Socket" : "InProcess"; });

Entry entry_of(const char* name, CORBA::Long number) {
  Entry e;
  e.name = name;
  e.mark = "12345678";
  e.extra <<= number;
  e.others.length(2);
  e.others[1] = name;
  e.cells[1][2] = number;
  return e;
}
void expect_equal(const Entry& e, const char* name, CORBA::Long number) {
  EXPECT_STREQ(e.name.in(), name);
  EXPECT_STREQ(e.mark.in(), "12345678");
  CORBA::Long extra = 0;
  EXPECT_TRUE((e.extra >>= extra) && extra == number);
  ASSERT_EQ(e.others.length(), 2u);
  EXPECT_STREQ(e.others[0], "");
  EXPECT_STREQ(e.others[1], name);
  EXPECT_EQ(e.cells[1][2], number);
}

TEST_P(Everything, PlainValuesInEachDirection) {
  CORBA::Boolean b = true, c = false;
  EXPECT_FALSE(store->booleans(false, b, c));
  EXPECT_TRUE(!b && c);
  CORBA::Octet octet = 200, old_octet = 0;
  EXPECT_EQ(store->octets(255, octet, old_octet), 255);
  EXPECT_TRUE(octet == 255 && old_octet == 200);
  CORBA::Double d = 0.5, e = 0;
  EXPECT_EQ(store->doubles(-2.25, d, e), -2.25);
  EXPECT_TRUE(d == -2.25 && e == 0.5);
  Colour shade = red, old_shade = blue;
  EXPECT_EQ(store->colours(green, shade, old_shade), green);
  EXPECT_TRUE(shade == green && old_shade == red);
  Point p{1, 2, blue}, q{};
  EXPECT_EQ(store->points({3, 4, green}, p, q).y, 4);
  EXPECT_TRUE(p.x == 3 && p.shade == green && q.x == 1 && q.shade == blue);
}

TEST_P(Everything, StringsInEachDirection) {
  CORBA::String_var b = CORBA::string_dup("before"), c;
  const CORBA::String_var a = store->strings("after", b.inout(), c.out());
  EXPECT_STREQ(a.in(), "after");
  EXPECT_STREQ(b.in(), "after");
  EXPECT_STREQ(c.in(), "before");
  CORBA::String_var code = CORBA::string_dup("");
  EXPECT_STREQ(CORBA::String_var(store->codes("12345678", code.inout(), c)).in(), "12345678");
  EXPECT_THROW(store->codes("123456789", code.inout(), c), CORBA::MARSHAL) << "over its bound";
}

TEST_P(Everything, StructsUnionsAndAnysInEachDirection) {
  Entry b = entry_of("before", 1);
  Entry_var c;
  const Entry_var a = store->entries(entry_of("after", 2), b, c);
  expect_equal(a, "after", 2);
  expect_equal(b, "after", 2);
  expect_equal(c, "before", 1);

  Shape before, round;
  before.entry(entry_of("inside", 3));
  round.radius(1.5);
  Shape_var old, result = store->shapes(round, before, old.out());
  EXPECT_TRUE(result->_d() == red && result->radius() == 1.5 && before.radius() == 1.5);
  expect_equal(old->entry(), "inside", 3);
  round.text("words");
  result = store->shapes(round, before, old);
  EXPECT_STREQ(result->text(), "words");

  CORBA::Any any, other;
  any <<= CORBA::Long(5);
  other <<= "text";
  CORBA::Any* out = nullptr;
  const CORBA::Any_var given(store->anys(any, other, out)), old_any(out);
  CORBA::Long number = 0;
  const char* text = nullptr;
  EXPECT_TRUE((given.in() >>= number) && number == 5);
  EXPECT_TRUE(old_any.in() >>= text);
  EXPECT_STREQ(text, "text");
}

TEST_P(Everything, SequencesAndArraysInEachDirection) {
  Names names, empty;
  names.length(2);
  names[0] = "one";
  names[1] = CORBA::string_dup("two");
  Names_var old;
  const Names_var result = store->names(names, empty, old.out());
  EXPECT_STREQ(result[1], "two");
  EXPECT_STREQ(empty[0], "one");
  EXPECT_EQ(old->length(), 0u);

  Corners corners, more;
  corners.length(4);
  corners[3].y = 9;
  EXPECT_THROW(corners.length(5), CORBA::BAD_PARAM);
  Corners_var old_corners;
  EXPECT_EQ(Corners_var(store->corners(corners, more, old_corners))[3].y, 9);

  Grid grid = {{1, 2, 3}, {4, 5, 6}}, other = {}, old_grid;
  other[0][0] = 7;
  const Grid_var copy = store->grids(grid, other, old_grid);
  EXPECT_TRUE(copy[1][2] == 6 && other[1][0] == 4 && old_grid[0][0] == 7);
  Labels labels, old_labels;
  labels[1] = "right";
  old_labels[0] = "left";
  Labels_var out;
  const Labels_var given = store->labels(labels, old_labels, out);
  EXPECT_STREQ(given[1].in(), "right");
  EXPECT_STREQ(old_labels[1].in(), "right");
  EXPECT_STREQ(out[0].in(), "left");
}

TEST_P(Everything, ReferencesInEachDirection) {
  Item_var b = Item::_nil(), c;
  const Item_var a = store->items(store.in(), b.inout(), c.out());
  EXPECT_TRUE(a->_is_equivalent(store.in()) && b->_is_equivalent(store.in()));
  EXPECT_TRUE(CORBA::is_nil(c.in()));
  CORBA::Object_var object_b = CORBA::Object::_duplicate(store.in()), object_c;
  EXPECT_TRUE(CORBA::is_nil(store->objects(CORBA::Object::_nil(), object_b.inout(), object_c)));
  EXPECT_TRUE(CORBA::is_nil(object_b.in()) && object_c->_is_equivalent(store.in()));
}

TEST_P(Everything, BasesAttributesAndExceptions) {
  for (const char* id : {Item::repository_id, Reader::repository_id, Writer::repository_id,
                         Store::repository_id, "IDL:omg.org/CORBA/Object:1.0"})
    EXPECT_TRUE(object->_is_a(id)) << id;
  EXPECT_FALSE(object->_is_a("IDL:Sample/Other:1.0"));
  const Item_var item = Item::_narrow(object.in());
  ASSERT_FALSE(CORBA::is_nil(item.in())) << "a base interface";
  EXPECT_STREQ(CORBA::String_var(item->name()).in(), "store");
  item->shade(blue);
  EXPECT_EQ(store->shade(), blue);

  const Writer_var writer = Writer::_narrow(item.in());
  Octets data;
  data.length(3);
  data[2] = 0xFE;
  writer->write(data, Writer::replace);
  const Octets_var read = store->read(3);
  EXPECT_TRUE(read->length() == 3 && read[2] == 0xFE);
  try {
    writer->write(data, Writer::append);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Refused& e) {
    EXPECT_STREQ(e.why.in(), "no appending");
    EXPECT_EQ(e.code, 7);
  }
  EXPECT_THROW(store->read(9), Closed);
  writer->hint("later");
  std::future<std::string> hinted = servant.hinted.get_future();
  ASSERT_EQ(hinted.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(hinted.get(), "later");
  store->nothing();
}

Octets pattern(CORBA::ULong length, CORBA::ULong seed) {
  Octets made(length);
  made.length(length);
  for (CORBA::ULong i = 0; i < length; ++i)
    made[i] = static_cast<CORBA::Octet>((i * 31 + i / 256 + seed) & 0xFF);
  return made;
}
bool same(const Octets& x, const Octets& y) {
  return x.length() == y.length() && std::memcmp(x.get_buffer(), y.get_buffer(), x.length()) == 0;
}

// Many octets go from where they are, and stay where they came in.
TEST_P(Everything, LargeSequencesOfAnyLength) {
  for (const CORBA::ULong length : {65'535u, 65'536u, 65'537u, 65'543u, 100'000u, 1u << 20, 5'000'001u}) {
    const Octets sent = pattern(length, length);
    store->write(sent, Writer::replace);
    EXPECT_THROW(store->write(sent, Writer::append), Refused);
    EXPECT_TRUE(same(servant.data, sent)) << length;
    Octets_var first = store->read(length);
    Octets_var second = store->read(length);
    ASSERT_TRUE(same(first.in(), sent) && same(second.in(), sent)) << length;

    EXPECT_TRUE(first->release());
    first->replace(length, 3, first->get_buffer(), true);
    EXPECT_TRUE(first->release() && same(first.in(), pattern(3, length)));
    Octets copy = second.in();
    first.inout() = std::move(copy);
    EXPECT_TRUE(same(first.in(), sent));
    second->length(length + 1);
    EXPECT_TRUE(second[length] == 0 && second[length - 1] == sent[length - 1]);
    Octets_var third = store->read(length);
    CORBA::Octet* const buffer = third->get_buffer(true);
    EXPECT_EQ(third->length(), 0u);
    EXPECT_EQ(std::memcmp(buffer, sent.get_buffer(), length), 0);
    Octets::freebuf(buffer);
  }
}

class CountedWatcher : public Watcher {
 public:
  explicit CountedWatcher(bool& deleted_flag) : deleted(deleted_flag) {}
  ~CountedWatcher() override { deleted = true; }
  void changed(Item*) override {}
  bool& deleted;
};

TEST(LocalInterfaces, AreCountedAndNarrowWithoutACall) {
  bool deleted = false;
  Watcher_var first = new CountedWatcher(deleted);
  {
    const Watcher_var second = first;
    const CORBA::Object_var object = Watcher::_duplicate(first.in());
    const Watcher_var narrowed = Watcher::_narrow(object.in());
    EXPECT_EQ(narrowed.in(), first.in());
    EXPECT_TRUE(CORBA::is_nil(CORBA::LocalObject_var(CORBA::LocalObject::_narrow(nullptr)).in()));
    EXPECT_EQ(first->_refcount_value(), 4u);
  }
  EXPECT_FALSE(deleted);
  first = Watcher::_nil();
  EXPECT_TRUE(deleted);
}

// ---- What must not get through ----------------------------------------------------------------------------

template <class Parameter>
bool accepts(const char* octets) {
  Decoding in(hex(octets));
  typename Parameter::Holder holder;
  return Parameter::move(in, holder.slot());
}

TEST(Arguments, ThatAreNoValuesOfTheirTypeAreRefused) {
  using CORBA::idl::in;
  EXPECT_TRUE(accepts<in<Colour>>("02000000"));
  EXPECT_FALSE(accepts<in<Colour>>("03000000"));
  EXPECT_FALSE(accepts<in<Colour>>("4D000000"));
  EXPECT_TRUE(accepts<in<CORBA::Boolean>>("01"));
  EXPECT_FALSE(accepts<in<CORBA::Boolean>>("02"));
  EXPECT_TRUE(accepts<in<_type_Code>>("09000000 313233343536373800"));
  EXPECT_FALSE(accepts<in<_type_Code>>("0A000000 31323334353637383900")) << "longer than its bound";
  EXPECT_FALSE(accepts<in<Corners>>("05000000")) << "more than its bound";
  EXPECT_FALSE(accepts<in<Names>>("FFFFFFFF 01000000 00")) << "more than there is";
  EXPECT_FALSE(accepts<in<Octets>>("00000010 00"));
}

TEST(Stubs, TakeAnUnlistedUserExceptionForUnknown) {
  const auto exception = [](const char* id) {
    Encoding out;
    char* text = const_cast<char*>(id);
    EXPECT_TRUE(OM_cdr_string(out, &text));
    return out.octets();
  };
  ScriptedPeer peer({{ZR_REPLY_USER_EXCEPTION, exception(Refused::repository_id)},
                     {ZR_REPLY_USER_EXCEPTION, exception(Closed::repository_id)}});
  Reader reader;
  reader.set_ref(peer.handle());
  try {
    reader.read(1);
    ADD_FAILURE() << "the call returned";
  } catch (const CORBA::UNKNOWN& e) {
    EXPECT_EQ(e.minor(), CORBA::OMGVMCID | 1);
  }
  EXPECT_THROW(reader.read(1), Closed);
}

// ---- Any and TypeCode -------------------------------------------------------------------------------------

/// The same Any after a journey as octets.
CORBA::Any travelled(CORBA::Any& any) {
  Encoding out;
  EXPECT_TRUE(cdr_CORBA_Any(out, &any));
  Decoding in(out.octets());
  CORBA::Any arrived;
  EXPECT_TRUE(cdr_CORBA_Any(in, &arrived));
  return arrived;
}

TEST(Anys, HoldValuesOfEveryKindHereAndAfterAJourney) {
  Shape shape;
  shape.text("in a union");
  Grid grid = {{1, 2, 3}, {4, 5, 6}};
  Names names;
  names.length(1);
  names[0] = "in a sequence";
  const auto expect = [](const CORBA::Any& any, auto holds) { EXPECT_TRUE(holds(any)); };
  CORBA::Any any;
  for (const bool far : {false, true}) {
    const auto now = [&] { return far ? travelled(any) : CORBA::Any(any); };
    any <<= green;
    expect(now(), [](const CORBA::Any& a) {
      Colour colour = red;
      return (a >>= colour) && colour == green;
    });
    any <<= new Entry(entry_of("taken over", 4));
    expect(now(), [](const CORBA::Any& a) {
      const Entry* entry = nullptr;
      if (!(a >>= entry)) return false;
      expect_equal(*entry, "taken over", 4);
      return true;
    });
    any <<= shape;
    expect(now(), [](const CORBA::Any& a) {
      const Shape* held = nullptr;
      const Point* other = nullptr;
      return !(a >>= other) && (a >>= held) && std::string(held->text()) == "in a union";
    });
    any <<= names;
    expect(now(), [](const CORBA::Any& a) {
      const Names* held = nullptr;
      return (a >>= held) && held->length() == 1 && std::string((*held)[0]) == "in a sequence";
    });
    any <<= Grid_forany(grid);
    expect(now(), [](const CORBA::Any& a) {
      Grid_forany held;
      return (a >>= held) && held[1][2] == 6;
    });
    any <<= Refused("thrown", 8);
    expect(now(), [](const CORBA::Any& a) {
      const Refused* held = nullptr;
      return (a >>= held) && held->code == 8;
    });
  }
  any <<= Item::_nil();
  Item* item = nullptr;
  EXPECT_TRUE(any >>= item);
}

TEST(TypeCodes, SayWhatTheIdlSays) {
  EXPECT_EQ(_tc_Entry->kind(), CORBA::tk_struct);
  EXPECT_STREQ(_tc_Entry->member_name(4), "cells");
  const CORBA::TypeCode_var cells = _tc_Entry->member_type(4), grid = cells->content_type(),
                            row = grid->content_type();
  EXPECT_TRUE(cells->kind() == CORBA::tk_alias && cells->equal(_tc_Grid));
  EXPECT_TRUE(grid->length() == 2 && row->length() == 3);
  EXPECT_EQ(_tc_Shape->default_index(), 2);
  EXPECT_STREQ(_tc_Shape->member_name(2), "entry");
  EXPECT_EQ(_tc_Watcher->kind(), CORBA::tk_local_interface);
  EXPECT_EQ(CORBA::TypeCode_var(_tc_Code->content_type())->length(), 8u);
}

}  // namespace

/// A tree: a type that contains itself, through two sequences.
namespace {
struct Tree;
class Trees : public CORBA::idl::sequence<Tree> {
 public:
  using Sequence::Sequence;
};
struct Tree {
  CORBA::String_mgr name;
  Trees children;
};
}  // namespace
template <>
struct CORBA::idl::Type<Trees> : CORBA::idl::sequence_typedef<Trees, Tree> {
  static constexpr const char *id = "IDL:Trees:1.0", *name = "Trees";
};
template <>
struct CORBA::idl::Type<Tree> : CORBA::idl::variable_struct<Tree> {
  static constexpr const char *id = "IDL:Tree:1.0", *name = "Tree";
  template <class V>
  static bool each(V v, Tree& e) {
    return v("name", e.name) && v("children", e.children);
  }
};

namespace {

TEST(RecursiveTypes, TravelInAnAnyWithTheirTypeCode) {
  Tree tree;
  tree.children.length(2);
  tree.children[1].name = "leaf";
  tree = tree.children[1];  // a part of itself
  EXPECT_STREQ(tree.name.in(), "leaf");
  tree.children.length(1);
  tree.children[0].name = "child";
  CORBA::Any any;
  any <<= tree;
  const CORBA::Any arrived = travelled(any);
  const Tree* held = nullptr;
  ASSERT_TRUE(arrived >>= held);
  EXPECT_STREQ(held->children[0].name.in(), "child");
}

/// The same object again, by a reference that says what its texts are in, as `corbaloc` does not.
CORBA::Object* by_reference(CORBA::ORB* orb, CORBA::Object* object) {
  const auto hex = [](std::string_view text) {
    std::string digits;
    for (const char c : text) digits += {"0123456789ABCDEF"[c >> 4], "0123456789ABCDEF"[c & 15]};
    return digits;
  };
  const CORBA::String_var own = orb->object_to_string(object);
  std::string text(own.in());
  text.replace(text.find(hex("127.0.0.1")), 18, hex("127.00.01"));
  return orb->string_to_object(text.c_str());
}

TEST_P(Everything, TextsKeepEveryCharacterOrAreRefused) {
  const auto echoed = [](Store* to, const char* text) {
    CORBA::String_var inout(""), out;
    const CORBA::String_var result = to->strings(text, inout.inout(), out.out());
    return std::string(result.in());
  };
  const char *latin = "caf\u00e9", *more = "\u20ac \U0001d11e";
  EXPECT_EQ(echoed(store.in(), latin), latin);
  CORBA::Object_var same = object;
  if (GetParam()) same = by_reference(orb.in(), Store_var(servant._this()).in());
  const Store_var with_code_sets = Store::_narrow(same.in());
  EXPECT_EQ(echoed(with_code_sets.in(), more), more);
  if (!GetParam()) return;  // nothing is converted within the process
  try {
    echoed(store.in(), more);
    ADD_FAILURE() << "a text that ISO 8859-1 lacks";
  } catch (const CORBA::DATA_CONVERSION& e) {
    EXPECT_EQ(e.completed(), CORBA::COMPLETED_NO);
  }
  servant.prefix = more;
  try {
    echoed(store.in(), "plain");
    ADD_FAILURE() << "a text on its way back";
  } catch (const CORBA::DATA_CONVERSION& e) {
    EXPECT_EQ(e.completed(), CORBA::COMPLETED_YES);
  }
  EXPECT_EQ(echoed(with_code_sets.in(), "plain"), std::string(more) + "plain");
}

}  // namespace
