#include "corba/object.h"

#include <gtest/gtest.h>

#include "corba.h"
#include "corba/detail/stubs.h"
#include "running_orb.h"
#include "wire.h"

namespace {

constexpr const char* color_id = "IDL:test/ColorPolicy:1.0";

/// A policy of an interface of its own.
class ColorPolicy : public CORBA_Policy_impl {
 public:
  ColorPolicy() { __policy_type = 42; }
  CORBA::Policy* copy(CORBA_ENV) override {
    ev.clear();
    auto made = std::make_unique<ColorPolicy>();
    made->set_ref(CORBA_object_duplicate(_ptr, nullptr));
    return made.release();
  }
  void* _cast(const char* id) override {
    return std::strcmp(id, color_id) == 0 ? this : CORBA_Policy_impl::_cast(id);
  }
};

void* make_color() { return new ColorPolicy; }
void dispose_color(void* p) { delete static_cast<ColorPolicy*>(p); }
void* cast_color(void* p, const char* id) {
  auto* color = static_cast<ColorPolicy*>(p);
  return id ? color->_cast(id) : static_cast<CORBA::Object*>(color);
}

CORBA::Object_var object_of(const char* intf, const char* impl) {
  CORBA::Object_var object(new CORBA::Object);
  object->set_ref(make_reference(intf, impl));
  return object;
}

class ObjectTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { OM_IDL_register_class(color_id, make_color, dispose_color, cast_color); }
  CORBA::Object_var plain = object_of("IDL:test/Plain:1.0", "plain");
  CORBA::Object_var color = object_of(color_id, "IDL:test");
};

TEST_F(ObjectTest, DuplicatesShareTheReference) {
  const CORBA::Object_var copy(CORBA::Object::_narrow(plain.in()));
  EXPECT_NE(copy.in(), plain.in());
  EXPECT_TRUE(copy->_is_equivalent(plain.in()));
  EXPECT_FALSE(copy->_is_equivalent(color.in()) || copy->_is_equivalent(nullptr));
  EXPECT_EQ(copy->_hash(1000), plain->_hash(1000));
  CORBA::Object unattached;
  EXPECT_NE(CORBA::Object_var(CORBA::Object::_duplicate(&unattached)).in(), nullptr);
  EXPECT_EQ(CORBA::Object::_duplicate(nullptr), nullptr);
}

TEST_F(ObjectTest, AnswersWithoutACallWhereItCan) {
  EXPECT_TRUE(plain->_is_a("IDL:test/Plain:1.0"));
  EXPECT_TRUE(plain->_is_a("IDL:omg.org/CORBA/Object:1.0"));
  CORBA::Environment ev;
  EXPECT_THROW(plain->_is_a(nullptr, ev), CORBA::BAD_PARAM);
  CORBA::Object unattached;
  EXPECT_THROW(unattached._is_a("IDL:test/Plain:1.0", ev), CORBA::INV_OBJREF);
  EXPECT_NE(CORBA::INV_OBJREF::_narrow(ev.exception()), nullptr);
  EXPECT_THROW(plain->_non_existent(ev), CORBA::TRANSIENT) << "no ORB runs";
  EXPECT_EQ(ev._evp->_completed, CORBA_COMPLETED_NO);
}

TEST_F(ObjectTest, ANullStringTravelsAsAnEmptyOne) {
  char* null_text = nullptr;
  EXPECT_EQ(encoded([&](CDR* cdr) { return cdr_CORBA_string_cpp(cdr, &null_text); }).back(), '\0');
}

TEST_F(ObjectTest, PolicyListsTravelAsTheirClassesOrAsStubs) {
  const RunningOrb published;
  CORBA::PolicyList sent;
  sent.length(3);
  sent[0] = CORBA::Policy::_narrow(color.in());
  sent[1] = CORBA::Policy::_narrow(plain.in());
  const std::string octets = encoded([&](CDR* cdr) { return cdr_CORBA_PolicyList(cdr, &sent); });
  CORBA::PolicyList got;
  const auto accepts = [&](const std::string& these) {
    return cdr_CORBA_PolicyList(Decoding(these, native_is_little), &got);
  };
  expect_no_prefix(octets, accepts);
  EXPECT_FALSE(accepts(hex("FFFFFFFF 00000000")));
  ASSERT_TRUE(accepts(octets));
  const CORBA::PolicyList copy(got);
  ASSERT_EQ(copy.length(), 3u);
  EXPECT_NE(dynamic_cast<ColorPolicy*>(copy[0].in()), nullptr);
  EXPECT_NE(dynamic_cast<_st_CORBA_Policy*>(copy[1].in()), nullptr);
  EXPECT_TRUE(copy[1]->_is_equivalent(plain.in()));
  EXPECT_EQ(copy[2].in(), nullptr);
}

}  // namespace
