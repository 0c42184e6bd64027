#include "corba/orb.h"

#include <gtest/gtest.h>

#include "corba.h"
#include "running_orb.h"

namespace {

using CORBA::Any;
using CORBA::ServerRequest;

/// Asked for by every call; what a test wants its servant to do.
void (*serve)(ServerRequest& request) = nullptr;

void upcall(void* /*target*/, void* record, CORBA_Environment* /*env*/) {
  CORBA::Object fresh;
  const std::unique_ptr<ServerRequest> request(ServerRequest::_narrow(&fresh));
  request->set_ref(record);
  serve(*request);
  OM_CORBA_ServerRequest_dsi_complete_cpp(record);
  request->set_ref(nullptr);
}

struct Broken : CORBA::UserExceptionOf<Broken> {
  static constexpr const char* repository_id = "IDL:test/Broken:1.0";
  CORBA::UShort index = 0;
};

/// An interface with one operation: long add(in long a, out double half) raises(Broken).
class Adder : public virtual CORBA::Object {
 public:
  CORBA::Long add(CORBA::Long a, CORBA::Double& half, CORBA_ENV);
};

}  // namespace

template <>
struct CORBA::idl::Wire<Broken> {
  static bool move(CDR* cdr, Broken& e) { return OM_cdr_unsigned_short(cdr, &e.index); }
};

namespace {

using add_operation = CORBA::idl::operation<"add", &Adder::add, CORBA::idl::raises<Broken>>;

CORBA::Long Adder::add(CORBA::Long a, CORBA::Double& half, CORBA::Environment& env) {
  return add_operation::Roads::stub(this, a, half, env);
}

CORBA::NVList* add_arguments() {
  auto* list = new CORBA::NVList;
  Any number, half;
  number <<= CORBA::Long{0};
  half <<= CORBA::Double{0};
  list->add_value("a", number, CORBA::ARG_IN);
  list->add_value("half", half, CORBA::ARG_OUT);
  return list;
}

TEST(OrbTest, IsCountedAndRefusesWorkWhenDestroyed) {
  char name[] = "test", option[] = "-ORBNoSuchOption";
  char* wrong[] = {name, option, nullptr};
  int count = 2;
  EXPECT_THROW(CORBA::ORB_init(count, wrong), CORBA::BAD_PARAM);
  EXPECT_EQ(CORBA::OM_this_ORB, nullptr);

  count = 1;
  char* argv[] = {name, nullptr};
  const CORBA::ORB_var first(CORBA::ORB_init(count, argv)), second(CORBA::ORB_init(count, argv));
  const CORBA::ORB_var copy(CORBA::ORB::_duplicate(second.in()));
  first->destroy();
  EXPECT_THROW(first->destroy(), CORBA::BAD_INV_ORDER);
  EXPECT_NE(CORBA::OM_this_ORB, nullptr);

  CORBA::Environment env;
  EXPECT_THROW(copy->string_to_object("IOR:nonsense", env), CORBA::BAD_PARAM);
  EXPECT_NE(CORBA::BAD_PARAM::_narrow(env.exception()), nullptr);
  const CORBA::String_var nil(copy->object_to_string(nullptr, env));
  EXPECT_EQ(copy->string_to_object(nil.in()), nullptr);

  second->destroy();
  EXPECT_EQ(CORBA::OM_this_ORB, nullptr);
  EXPECT_THROW(copy->object_to_string(nullptr), CORBA::BAD_INV_ORDER);
}

class ServedOrbTest : public testing::Test {
 protected:
  ServedOrbTest() {
    _call_cpp_ = upcall;
    adder.set_ref(make_reference("IDL:test/Adder:1.0", "dynamic"));
  }
  ~ServedOrbTest() override { serve = nullptr; }

  /// Calls add(20, half) while the servant does that.
  CORBA::Long add(void (*servant)(ServerRequest&)) {
    serve = servant;
    return adder.add(20, half, env);
  }

  RunningOrb running;
  CORBA::ORB_var& orb = running.orb;
  Adder adder;
  CORBA::Double half = 0;
  CORBA::Environment env;
};

TEST_F(ServedOrbTest, DynamicServantsRaise) {
  const auto breaks = [](ServerRequest& request) {
    Any result, user;
    EXPECT_THROW(request.set_result(result), CORBA::BAD_INV_ORDER);
    EXPECT_THROW(request.set_exception(result), CORBA::BAD_PARAM);
    Broken broken;
    broken.index = 7;
    const CORBA::TypeCode_var type(CORBA::TypeCode::create_exception_tc(Broken::repository_id, "Broken",
                                                                        {{"index", CORBA::_tc_ushort}}));
    CORBA::any_insert_exception(user, type, broken);
    request.set_exception(user);
    EXPECT_THROW(request.set_result(result), CORBA::BAD_INV_ORDER);
  };
  EXPECT_THROW(add(breaks), Broken);
  ASSERT_NE(Broken::_narrow(env.exception()), nullptr);
  EXPECT_EQ(Broken::_narrow(env.exception())->index, 7);

  const auto forbids = [](ServerRequest& request) { request.set_exception(CORBA::NO_PERMISSION(3)); };
  EXPECT_THROW(add(forbids), CORBA::NO_PERMISSION);
  EXPECT_EQ(env._evp->_minor, 3u);
}

TEST_F(ServedOrbTest, WhatCannotTravelIsMarshal) {
  const auto without_value = [](ServerRequest& request) {
    auto* list = new CORBA::NVList;
    Any out;
    out.replace(CORBA::_tc_double, nullptr, 0);
    list->add_value("half", out, CORBA::ARG_OUT);
    request.arguments(list);
  };
  EXPECT_THROW(add(without_value), CORBA::MARSHAL);
  EXPECT_EQ(env._evp->_completed, CORBA_COMPLETED_YES);
  const auto too_much = [](ServerRequest& request) {
    auto* list = add_arguments();
    Any more;
    more.replace(CORBA::_tc_Object, nullptr, 0);
    list->add_value("more", more, CORBA::ARG_IN);
    CORBA::Environment local;
    EXPECT_THROW(request.arguments(list, local), CORBA::MARSHAL);
    request.set_exception(*CORBA::SystemException::_narrow(local.exception()));
  };
  EXPECT_THROW(add(too_much), CORBA::MARSHAL);
  EXPECT_EQ(env._evp->_completed, CORBA_COMPLETED_NO);
}

TEST_F(ServedOrbTest, DynamicServantsAnswerAndCannotWaitForTheirOwnEnd) {
  static CORBA::ORB* the_orb = nullptr;
  the_orb = orb.in();
  const CORBA::Long sum = add([](ServerRequest& request) {
    EXPECT_THROW(the_orb->shutdown(1), CORBA::BAD_INV_ORDER);
    EXPECT_THROW(the_orb->destroy(), CORBA::BAD_INV_ORDER);
    CORBA::NVList* list = add_arguments();
    request.arguments(list);
    CORBA::Long a = 0;
    EXPECT_TRUE(*list->item(0)->value() >>= a);
    *list->item(1)->value() <<= a / 2.0;
    Any result;
    result <<= a + 1;
    request.set_result(result);
    EXPECT_THROW(request.arguments(add_arguments()), CORBA::BAD_INV_ORDER);
  });
  EXPECT_EQ(sum, 21);
  EXPECT_EQ(half, 10);
  EXPECT_TRUE(
      CORBA::Object_var(orb->resolve_initial_references("RootPOA"))->_is_equivalent(running.root.in()));
  for (const char* name : {"NoSuchService", static_cast<const char*>(nullptr)})
    EXPECT_THROW(orb->resolve_initial_references(name), CORBA::ORB::InvalidName);
  orb->shutdown(1);
  orb->run();
  EXPECT_THROW(add(nullptr), CORBA::TRANSIENT);
}

}  // namespace
