// Contexts, and the values of abstract interfaces: what they hold and how they travel.
#include "corba/context.h"

#include <gtest/gtest.h>

#include <iterator>

#include "corba/abstract_base.h"
#include "corba/detail/any_operators.h"
#include "corba/detail/context_row.h"
#include "running_orb.h"
#include "wire.h"

namespace {

using CORBA::Context;
using CORBA::Context_var;

void set(Context& context, const char* name, const char* text) {
  CORBA::Any value;
  value <<= text;
  context.set_one_value(name, value);
}

// "name=text " of each, "none" for BAD_CONTEXT.
std::string values(Context& context, const char* pattern, const char* start = "", CORBA::Flags flags = 0) {
  CORBA::NVList_var list;
  try {
    context.get_values(start, flags, pattern, list.out());
  } catch (const CORBA::BAD_CONTEXT&) {
    return "none";
  }
  std::string all;
  for (CORBA::ULong i = 0; i < list->count(); ++i) {
    const char* text = nullptr;
    EXPECT_TRUE(*list->item(i)->value() >>= text);
    all += list->item(i)->name() + ("=" + std::string(text)) + ' ';
  }
  return all;
}

TEST(ContextTest, ValuesAreFoundByPatternHereAndAround) {
  Context_var outer(new Context("outer", nullptr)), inner;
  set(*outer.in(), "a.x", "1");
  set(*outer.in(), "a.y", "2");
  set(*outer.in(), "b", "3");
  outer->create_child("inner", inner.out());
  set(*inner.in(), "a.y", "near");
  EXPECT_STREQ(inner->context_name(), "inner");
  EXPECT_EQ(inner->parent(), outer.in());

  const struct {
    const char *pattern, *start;
    CORBA::Flags flags;
    const char* found;
  } rows[] = {{"*", "", 0, "a.x=1 a.y=near b=3 "},
              {"a*", "", 0, "a.x=1 a.y=near "},
              {"a.y", nullptr, 0, "a.y=near "},
              {"a", "", 0, "none"},
              {"", "", 0, "none"},
              {nullptr, "", 0, "none"},
              {"a.y*", "inner", CORBA::CTX_RESTRICT_SCOPE, "a.y=near "},
              {"b", "inner", CORBA::CTX_RESTRICT_SCOPE, "none"},
              {"a.y", "outer", 0, "a.y=2 "},
              {"b", "elsewhere", 0, "none"}};
  for (const auto& row : rows)
    EXPECT_EQ(values(*inner.in(), row.pattern, row.start, row.flags), row.found)
        << (row.pattern ? row.pattern : "null");

  inner->delete_values("a*");
  EXPECT_EQ(values(*inner.in(), "a.y"), "a.y=2 ") << "the outer one's stays";
  EXPECT_THROW(inner->delete_values("a*"), CORBA::BAD_CONTEXT);
}

TEST(ContextTest, OnlyTextsAreTakenAndListsAsAWhole) {
  Context_var context(new Context("", nullptr));
  CORBA::NVList_var list(new CORBA::NVList);
  CORBA::Any text, number;
  text <<= "text";
  number <<= CORBA::Long(1);
  list->add_value("first", text, CORBA::ARG_IN);
  list->add_value("second", number, CORBA::ARG_IN);
  EXPECT_THROW(context->set_values(list.in()), CORBA::BAD_PARAM);
  EXPECT_EQ(values(*context.in(), "*"), "none");
  EXPECT_THROW(context->set_one_value("", text), CORBA::BAD_PARAM);
  EXPECT_THROW(context->set_one_value(nullptr, text), CORBA::BAD_PARAM);
  EXPECT_THROW(context->set_values(nullptr), CORBA::BAD_PARAM);

  set(*context.in(), "first", "old");
  set(*context.in(), "third", "3");
  list->remove(1);
  context->set_values(list.in());
  EXPECT_EQ(values(*context.in(), "*"), "first=text third=3 ");
}

constexpr const char* listed[] = {"b*", "a"};
using Sent = CORBA::idl::Type<CORBA::idl::context<listed>>::InArg;

std::string sent(Context* context) {
  return encoded([&](CDR* cdr) { return Sent::move(cdr, &context); });
}

TEST(ContextTest, WhatTheClauseListsTravels) {
  Context_var outer(new Context("outer", nullptr)), context;
  outer->create_child("inner", context.out());
  set(*outer.in(), "a", "out");
  set(*context.in(), "bc", "");
  set(*context.in(), "c", "not listed");
  // four texts: "a" "out" "bc" ""
  const std::string little =
      hex("04000000 02000000 6100 0000 04000000 6F757400 03000000 626300 00"
          "01000000 00");
  if (native_is_little) {
    EXPECT_EQ(sent(context.in()), little);
  }
  EXPECT_EQ(sent(nullptr), hex("00000000"));

  const auto read = [](const std::string& octets, bool is_little) -> std::string {
    Context_var came;
    Decoding in(octets, is_little);
    return Sent::move(in, &came.out()) ? values(*came.in(), "*") : "failed";
  };
  EXPECT_EQ(read(sent(context.in()), native_is_little), "a=out bc= ");
  EXPECT_EQ(read(little, true), "a=out bc= ");
  EXPECT_EQ(read(hex("00000000"), true), "none");
  EXPECT_EQ(read(hex("01000000 02000000 6100"), true), "failed") << "a name without a value";
  EXPECT_EQ(read(hex("FEFFFFFF 02000000 6100 0000 01000000 00"), true), "failed");
  expect_no_prefix(little, [&](const std::string& prefix) { return read(prefix, true) != "failed"; });
}

// ---- Abstract interfaces ----------------------------------------------------------------------------------

using Abstract = CORBA::idl::Type<CORBA::idl::ref<CORBA::AbstractBase>>;

TEST(AbstractTest, ReferencesAndNilTravelAndValuesDoNot) {
  const auto read = [](const std::string& octets, bool little, CORBA::AbstractBase_var& found) {
    Decoding in(octets, little);
    return Abstract::move(in, found) && in.left() == 0;
  };
  CORBA::Object_var object(new CORBA::Object);
  object->set_ref(CORBA_ORB_string_to_object(nullptr, "corbaloc:iiop:192.0.2.1:1/key", nullptr));
  CORBA::AbstractBase_var abstract = CORBA::AbstractBase::_narrow(object.in()), nil, found;
  const std::string octets = encoded([&](CDR* cdr) { return Abstract::move(cdr, abstract); });
  EXPECT_EQ(octets[0], 1);
  ASSERT_TRUE(read(octets, native_is_little, found));
  EXPECT_TRUE(found->_is_equivalent(object.in()));
  EXPECT_TRUE(CORBA::Object_var(found->_to_object())->_is_equivalent(object.in()));
  expect_no_prefix(octets, [&](const std::string& prefix) { return read(prefix, native_is_little, found); });

  EXPECT_EQ(encoded([&](CDR* cdr) { return Abstract::move(cdr, nil); }), hex("00 000000 00000000"));
  const struct {
    const char* octets;
    bool fits;
  } rows[] = {{"00 000000 00000000", true},                     // no value: nil
              {"01 000000 01000000 00 000000 00000000", true},  // a nil reference
              {"00 000000 02FFFF7F 00000000", false},           // a value begins
              {"00 000000 FFFFFFFF FCFFFFFF", false},           // one that came before
              {"02 000000 00000000", false},                    // no boolean
              {"00 000000 000000", false}};
  for (const auto& row : rows) {
    found = CORBA::AbstractBase::_narrow(object.in());
    EXPECT_EQ(read(hex(row.octets), true, found), row.fits) << row.octets;
    EXPECT_EQ(CORBA::is_nil(found.in()), row.fits) << row.octets;
  }
}

TEST(AbstractTest, AnAnyHoldsThem) {
  EXPECT_EQ(CORBA::TypeCode_var(CORBA::TypeCode::_duplicate(CORBA::_tc_AbstractBase))->kind(),
            CORBA::tk_abstract_interface);
  CORBA::Object_var object(new CORBA::Object);
  object->set_ref(CORBA_ORB_string_to_object(nullptr, "corbaloc:iiop:192.0.2.1:1/key", nullptr));
  CORBA::AbstractBase_var abstract = CORBA::AbstractBase::_narrow(object.in());
  for (CORBA::AbstractBase* one : {abstract.in(), static_cast<CORBA::AbstractBase*>(nullptr)}) {
    CORBA::Any any, copy;
    any <<= one;
    const std::string octets = encoded([&](CDR* cdr) { return cdr_CORBA_Any(cdr, &any); });
    Decoding in(octets);
    ASSERT_TRUE(cdr_CORBA_Any(in, &copy));
    CORBA::AbstractBase* found = nullptr;
    ASSERT_TRUE(copy >>= found);
    EXPECT_TRUE(one ? one->_is_equivalent(found) : !found);
  }
}

}  // namespace
