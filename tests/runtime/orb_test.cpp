#include "corba/orb.h"

#include <gtest/gtest.h>

#include "corba.h"
#include "running_orb.h"

namespace {

using CORBA::Any;
using CORBA::ServerRequest;

/// Asked for by every call; what a test wants its servant to do.
void (*serve)(ServerRequest& request) = nullptr;

void upcall(void* /*target*/, void* record, CORBA_Environment* /*ev*/) {
  CORBA::Object fresh;
  const std::unique_ptr<ServerRequest> request(ServerRequest::_narrow(&fresh));
  request->set_ref(record);
  serve(*request);
  OM_CORBA_ServerRequest_dsi_complete_cpp(record);
  request->set_ref(nullptr);
}

/// A list of arguments of which the first comes in and the others go out.
CORBA::NVList* arguments(std::initializer_list<CORBA::TypeCode*> types) {
  auto* list = new CORBA::NVList;
  for (CORBA::TypeCode* type : types) {
    Any of_type;
    of_type.replace(type, nullptr, 0);
    list->add_value("", of_type, type == *types.begin() ? CORBA::ARG_IN : CORBA::ARG_OUT);
  }
  return list;
}

TEST(OrbTest, IsCountedAndRefusesWorkWhenDestroyed) {
  char name[] = "test", option[] = "-ORBNoSuchOption";
  char* argv[] = {name, option, nullptr};
  int count = 2;
  EXPECT_THROW(CORBA::ORB_init(count, argv), CORBA::BAD_PARAM);
  EXPECT_EQ(CORBA::OM_this_ORB, nullptr);

  count = 1;
  const CORBA::ORB_var first(CORBA::ORB_init(count, argv)), second(CORBA::ORB_init(count, argv));
  const CORBA::ORB_var copy(CORBA::ORB::_duplicate(second.in()));
  first->destroy();
  EXPECT_THROW(first->destroy(), CORBA::BAD_INV_ORDER);
  EXPECT_THROW(copy->string_to_object("IOR:nonsense"), CORBA::BAD_PARAM);
  const CORBA::String_var nil(copy->object_to_string(nullptr));
  EXPECT_EQ(copy->string_to_object(nil.in()), nullptr);

  second->destroy();
  EXPECT_EQ(CORBA::OM_this_ORB, nullptr);
  EXPECT_THROW(copy->object_to_string(nullptr), CORBA::BAD_INV_ORDER);
}

class ServedOrbTest : public testing::Test {
 protected:
  ServedOrbTest() {
    _call_cpp_ = upcall;
    object.set_ref(make_reference("IDL:test/Dynamic:1.0", "dynamic"));
  }
  ~ServedOrbTest() override { serve = nullptr; }

  /// Asks the object whether it is an "It" while the servant does that.
  CORBA::Boolean ask(void (*servant)(ServerRequest&)) {
    serve = servant;
    return object._is_a("It", ev);
  }

  RunningOrb running;
  CORBA::ORB_var& orb = running.orb;
  CORBA::Object object;
  CORBA::Environment ev;
};

TEST_F(ServedOrbTest, DynamicServantsRaise) {
  const auto forbids = [](ServerRequest& request) {
    Any result;
    EXPECT_THROW(request.set_result(result), CORBA::BAD_INV_ORDER);
    EXPECT_THROW(request.set_exception(result), CORBA::BAD_PARAM);
    request.set_exception(CORBA::NO_PERMISSION(3));
    EXPECT_THROW(request.set_result(result), CORBA::BAD_INV_ORDER);
  };
  EXPECT_THROW(ask(forbids), CORBA::NO_PERMISSION);
  EXPECT_EQ(ev._evp->_minor, 3u);
}

TEST_F(ServedOrbTest, WhatCannotTravelIsMarshal) {
  const auto without_value = [](ServerRequest& request) {
    request.arguments(arguments({CORBA::_tc_string, CORBA::_tc_double}));
  };
  EXPECT_THROW(ask(without_value), CORBA::MARSHAL);
  EXPECT_EQ(ev._evp->_completed, CORBA_COMPLETED_YES);
  const auto of_another_type = [](ServerRequest& request) {
    CORBA::Environment local;
    EXPECT_THROW(request.arguments(arguments({CORBA::_tc_Object}), local), CORBA::MARSHAL);
    request.set_exception(*CORBA::SystemException::_narrow(local.exception()));
  };
  EXPECT_THROW(ask(of_another_type), CORBA::MARSHAL);
  EXPECT_EQ(ev._evp->_completed, CORBA_COMPLETED_NO);
}

TEST_F(ServedOrbTest, DynamicServantsAnswerAndCannotWaitForTheirOwnEnd) {
  static CORBA::ORB* the_orb = nullptr;
  the_orb = orb.in();
  const auto answers = [](ServerRequest& request) {
    EXPECT_THROW(the_orb->shutdown(1), CORBA::BAD_INV_ORDER);
    EXPECT_THROW(the_orb->destroy(), CORBA::BAD_INV_ORDER);
    CORBA::NVList* list = arguments({CORBA::_tc_string});
    request.arguments(list);
    const char* asked = nullptr;
    EXPECT_TRUE(*list->item(0)->value() >>= asked);
    EXPECT_STREQ(asked, "It");
    Any result;
    result <<= Any::from_boolean{1};
    request.set_result(result);
    EXPECT_THROW(request.arguments(arguments({})), CORBA::BAD_INV_ORDER);
  };
  EXPECT_TRUE(ask(answers));
  EXPECT_TRUE(
      CORBA::Object_var(orb->resolve_initial_references("RootPOA"))->_is_equivalent(running.root.in()));
  for (const char* name : {"NoSuchService", static_cast<const char*>(nullptr)})
    EXPECT_THROW(orb->resolve_initial_references(name), CORBA::ORB::InvalidName);
  orb->shutdown(1);
  orb->run();
  EXPECT_THROW(ask(nullptr), CORBA::TRANSIENT);
}

}  // namespace
