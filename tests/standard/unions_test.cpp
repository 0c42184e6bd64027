// What members of unions are set to.
#include <gtest/gtest.h>

#include "calls.h"

namespace {

TEST(Unions, TakeTextsFromWhereTheyAre) {
  Shapes::Choice choice;
  const auto expect = [&](const char* text) { EXPECT_STREQ(choice.text(), text); };
  const CORBA::String_var variable = "variable";
  choice.text(variable);
  expect("variable");
  Calls::Entry entry;
  entry.name = "member";
  choice.text(entry.name);
  expect("member");
  CORBA::StringSeq texts;
  texts.length(1);
  texts[0] = "element";
  choice.text(texts[0]);
  expect("element");
  choice.text(choice.text());
  expect("element");
}

TEST(Unions, TakeAnArrayFromAnotherMember) {
  Calls::Pair pair;
  pair[1] = "second";
  Shapes::Choice choice;
  choice.one(pair);
  choice.other(choice.one());
  ASSERT_EQ(choice._d(), 2);
  EXPECT_STREQ(choice.other()[0], "");
  EXPECT_STREQ(choice.other()[1], "second");
}

}  // namespace
