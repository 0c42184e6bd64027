#include <gtest/gtest.h>

#include "orb_fixture.h"
#include "poa/mapping.h"

namespace {

using namespace PortableServer;

std::string text(const ObjectId& id) { return {reinterpret_cast<const char*>(id.get_buffer()), id.length()}; }

ObjectId make_id(const std::string& octets, CORBA::ULong maximum = 0) {
  ObjectId id(maximum);
  id.length(static_cast<CORBA::ULong>(octets.size()));
  for (CORBA::ULong i = 0; i < id.length(); ++i) id[i] = static_cast<CORBA::Octet>(octets[i]);
  return id;
}

POAList list_of(CORBA::ULong n) {
  POAList list;
  list.length(n);
  for (CORBA::ULong i = 0; i < n; ++i) list[i] = POA::_duplicate(test_root_poa());
  return list;
}

TEST(ObjectId, LentBuffersAreLeftAlone) {
  CORBA::Octet lent[4] = {1, 2, 3, 4};
  ObjectId view(4, 3, lent, 0);
  EXPECT_EQ(view.get_buffer(), lent);
  view.length(5);
  EXPECT_NE(view.get_buffer(), lent);
  EXPECT_TRUE(view.release() && view[2] == 3);
  const ObjectId too_long(2, 9, lent, 0);
  EXPECT_LE(too_long.length(), 2u) << "only to be destroyed safely";
}

TEST(ObjectId, CopiesAreDeepGrowAndShrink) {
  const ObjectId source = make_id("ab", 6);
  ObjectId copy(source), assigned = make_id("longer than the source");
  assigned = source;
  for (ObjectId* each : {&copy, &assigned}) {
    EXPECT_EQ(each->maximum(), 6u);
    each->length(6);  // all of it is there to be written
    for (CORBA::ULong i = 2; i < 6; ++i) (*each)[i] = '!';
    each->length(1);
    each->length(6);
    EXPECT_EQ(text(*each), "ab!!!!") << "growing within the maximum keeps what is there";
    each->length(8);
    EXPECT_EQ(text(*each).substr(0, 6), "ab!!!!");
  }
  EXPECT_EQ(text(source), "ab");
}

TEST(ObjectId, AnIndexPastTheLengthGivesAScratchElement) {
  ObjectId id = make_id("ab", 4);
  id[2] = 'X';
  id[UINT32_MAX] = 'Y';
  long at = 1;
  EXPECT_EQ(id[at], 'b');
  for (const long long i : {-1LL, 1LL << 32}) id[i] = 'Z';
  id.length(4);
  EXPECT_EQ(id[2], 0);
}

TEST(POALists, GrowingAndCopyingKeepValidReferences) {
  const auto expect_valid = [](const POAList& list) {
    for (CORBA::ULong i = 0; i < 2; ++i) EXPECT_TRUE(list[i]->_is_equivalent(test_root_poa()));
  };
  POAList list = list_of(2);
  list.length(5);
  expect_valid(list);
  EXPECT_EQ(list[3].in(), nullptr);
  const POAList copy(list);
  EXPECT_NE(copy[0].in(), list[0].in()) << "a copied element is a reference of its own";
  list = POAList();
  expect_valid(copy);
  list = copy;
  POAList& self = list;
  list = self;
  expect_valid(list);
}

TEST(Sequences, WhatALengthLeavesOutDoesNotComeBack) {
  CORBA::StringSeq texts;
  texts.length(2);
  texts[0u] = "kept", texts[1] = "left out";
  texts.length(1);
  texts.length(2);
  EXPECT_STREQ(texts[0u], "kept");
  EXPECT_STREQ(texts[1], "");
  CORBA::AnySeq values;
  values.length(1);
  values[0u] <<= CORBA::Long(1);
  values.length(0);
  values.length(1);
  EXPECT_EQ(CORBA::TypeCode_var(values[0u].type())->kind(), CORBA::tk_null);

  CORBA::String_var mine = "mine";
  char* lent[] = {mine.inout()};
  CORBA::StringSeq view(1, 1, lent, false);
  view.length(0);
  EXPECT_STREQ(lent[0], "mine") << "a lent buffer is left alone";
}

TEST(Sequences, GrowingMovesWhatIsOwned) {
  CORBA::StringSeq texts;
  texts.length(1);
  texts[0u] = "text";
  const char* const owned = texts[0u].in();
  texts.length(9);
  EXPECT_EQ(texts[0u].in(), owned);
  EXPECT_STREQ(texts[8u], "");

  char* lent[] = {texts[0u].inout()};
  CORBA::StringSeq view(1, 1, lent, false);
  view.length(2);
  EXPECT_STREQ(view[0u], "text");
  EXPECT_NE(view[0u].in(), owned) << "a lent text is copied";
}

struct Node {
  CORBA::String_mgr name;
  CORBA::Sequence<Node, CORBA::PlainElements<Node>, CORBA::NoScratch> below;
};

TEST(Sequences, MayBeAssignedAPartOfThemselves) {
  Node top;
  top.below.length(1);
  top.below[0u].below.length(1);
  top.below[0u].below[0u].name = "two floors below, and soon one";
  top.below = top.below[0u].below;
  EXPECT_STREQ(top.below[0u].name, "two floors below, and soon one");
}

template <class Var, class Sequence>
void expect_var_behaviour(const Sequence& two_elements) {
  Var fresh;
  ASSERT_NE(static_cast<Sequence*>(fresh), nullptr);
  Var adopted(new Sequence(two_elements));
  Sequence* const held = adopted;
  Var& self = adopted;
  adopted = held;
  adopted = *held;
  adopted = self;
  EXPECT_EQ(static_cast<Sequence*>(adopted), held) << "assigned the very sequence it holds";
  Var copy(adopted);
  copy = two_elements;
  fresh = adopted;
  adopted->length(1);
  EXPECT_EQ(copy->length() + fresh->length(), 4u);
}

TEST(Vars, OwnOneSequence) {
  expect_var_behaviour<ObjectId_var>(make_id("ab"));
  expect_var_behaviour<POAList_var>(list_of(2));
}

enum Place { first_place, second_place };

/// Each converts to a pointer as well, which takes an index of its own.
template <class... Indexes, class Var>
void expect_second(Var& var) {
  for (const auto* second : {&var[static_cast<Indexes>(1)]...}) EXPECT_EQ(second, &var[second_place]);
}

TEST(Vars, TakeIndexesOfAnyType) {
  const auto all = [](auto&& var) {
    expect_second<short, unsigned short, int, unsigned, long, unsigned long>(var);
  };
  ObjectId_var id(new ObjectId(make_id("ab")));
  all(id);
  all(CORBA::String_var(CORBA::string_dup("ab")));
  all(POAList_var(new POAList(list_of(2))));
  EXPECT_NE(&id[-1L], id->get_buffer() - 1) << "past the length";
}

}  // namespace
