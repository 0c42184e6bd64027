// Interfaces with several bases, large sequences, texts and bounds, in process and over a socket; what Anys and TypeCodes
// hold. Values of every type go every way in the classic program of everything.
#include <gtest/gtest.h>

#include "orb_fixture.h"
#include "replies.h"
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

TEST_P(Everything, BasesAttributesAndExceptions) {
  for (const char* id : {Item::repository_id, Reader::repository_id, Writer::repository_id,
                         Store::repository_id, "IDL:omg.org/CORBA/Object:1.0"})
    EXPECT_TRUE(object->_is_a(id)) << id;
  EXPECT_FALSE(object->_is_a("IDL:Sample/Other:1.0"));
  CORBA::String_var code = CORBA::string_dup(""), out;
  EXPECT_THROW(store->codes("123456789", code.inout(), out), CORBA::MARSHAL) << "over its bound";
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
  EXPECT_THROW(store->nothing(), CORBA::UNKNOWN);
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
  for (const char* neither : {"02", "80", "FF"})
    EXPECT_FALSE(accepts<in<CORBA::Boolean>>(neither)) << neither;
  EXPECT_TRUE(accepts<in<CORBA::Octet>>("C8"));
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
  Replies peer({{ZR_REPLY_USER_EXCEPTION, exception(Refused::repository_id)},
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

// ---- TypeCodes -------------------------------------------------------------------------------------

TEST(Sequences, KeepTheirBound) {
  Corners corners;
  corners.length(4);
  EXPECT_THROW(corners.length(5), CORBA::BAD_PARAM);
  EXPECT_TRUE(corners.length() == 4 && Corners().maximum() == 4);
}

TEST(Unions, ChangeTheirLabelOnlyWithinTheirMember) {
  Shape shape;
  shape.radius(2);
  EXPECT_THROW(shape._d(green), CORBA::BAD_PARAM);
  EXPECT_THROW(shape.text(), CORBA::BAD_PARAM);
  shape._d(red);
  EXPECT_EQ(shape.radius(), 2);
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
