// Stubs against a server that answers whatever the test wants.

#include <gtest/gtest.h>

#include "raised.h"
#include "scripted_peer.h"
#include "server_process.h"

namespace {

using namespace PortableServer;
using RemotePOA = Remote<_st_PortableServer_POA>;

std::string encoded(void* handle) {
  Encoding out;
  static_cast<CDR*>(out)->direction = CDR_ENCODE;
  EXPECT_TRUE(OM_cdr_object(out, &handle));
  return out.octets();
}

/// A string, padded for a value of that alignment behind it.
std::string encoded(const std::string& text, std::size_t alignment = 4) {
  Encoding out;
  static_cast<CDR*>(out)->direction = CDR_ENCODE;
  char* characters = const_cast<char*>(text.c_str());
  EXPECT_TRUE(OM_cdr_string(out, &characters));
  std::string octets = out.octets();
  octets.resize((octets.size() + alignment - 1) / alignment * alignment);
  return octets;
}

template <class E, class Fn>
void expect_failed(Fn&& fn, CORBA::CompletionStatus completed) {
  CORBA::Environment env;
  try {
    fn(env);
    FAIL() << "nothing was thrown";
  } catch (const CORBA::SystemException& e) {
    EXPECT_EQ(typeid(e), typeid(E)) << e.id();
    EXPECT_EQ(e.completed(), completed);
    const auto* stored = CORBA::SystemException::_narrow(env.exception());
    ASSERT_NE(stored, nullptr);
    EXPECT_STREQ(stored->id(), e.id());
    EXPECT_EQ(stored->completed(), completed);
    EXPECT_EQ(env._evp->_major, uint32_t{CORBA_SYSTEM_EXCEPTION});
  }
}

TEST(Stubs, GiveResultsAndOutArguments) {
  const std::string name = encoded("child");
  ScriptedPeer peer({{ZR_REPLY_NO_EXCEPTION, name},
                     {ZR_REPLY_NO_EXCEPTION, hex("02000000") + std::string(12, '\0').replace(0, 1, "\1") +
                                                 std::string(12, '\0').replace(0, 1, "\1")},
                     {ZR_REPLY_NO_EXCEPTION, hex("00000000")},
                     {ZR_REPLY_NO_EXCEPTION, ""}});
  RemotePOA poa(peer.handle());
  CORBA::Environment env;
  env.exception(new CORBA::BAD_PARAM);  // of an earlier call
  const CORBA::String_var got = poa.the_name(env);
  EXPECT_STREQ(got.in(), "child");
  EXPECT_EQ(env.exception(), nullptr);
  EXPECT_EQ(env._evp->_major, 0u);
  const POAList_var list = poa.the_children();
  EXPECT_EQ(list->length(), 2u);
  Remote<_st_PortableServer_Current> current(peer.handle());
  const ObjectId_var id = current.get_object_id();
  EXPECT_EQ(id->length(), 0u);
  poa.deactivate_object(*id);
}

TEST(Stubs, FollowForwards) {
  ScriptedPeer there({{ZR_REPLY_NO_EXCEPTION, encoded("there")}, {ZR_REPLY_NO_EXCEPTION, encoded("again")}});
  void* const forward = there.handle();
  ScriptedPeer here({{ZR_REPLY_LOCATION_FORWARD, encoded(forward)}});
  CORBA_object_release(forward);
  RemotePOA poa(here.handle());
  CORBA::Environment env;
  const CORBA::String_var name = poa.the_name(env);
  EXPECT_STREQ(name.in(), "there");
  EXPECT_EQ(env.exception(), nullptr);
  EXPECT_EQ(env._evp->_major, 0u);
  const CORBA::String_var again = poa.the_name();
  EXPECT_STREQ(again.in(), "again") << "the new place is remembered";
  EXPECT_EQ(here.requests(), 1);
}

TEST(Stubs, UserExceptions) {
  const std::string invalid = encoded(POA::InvalidPolicy::repository_id, 2);
  ScriptedPeer peer({{ZR_REPLY_USER_EXCEPTION, encoded(POA::AdapterNonExistent::repository_id)},
                     {ZR_REPLY_USER_EXCEPTION, encoded(POA::WrongPolicy::repository_id)},  // not find_POA's
                     {ZR_REPLY_USER_EXCEPTION, invalid + hex("0300")},
                     {ZR_REPLY_USER_EXCEPTION, invalid + hex("03")},
                     {ZR_REPLY_USER_EXCEPTION, hex("05000000 41")}});
  RemotePOA poa(peer.handle());
  expect_raised<POA::AdapterNonExistent>([&](auto& env) { poa.find_POA("x", 0, env); });

  CORBA::Environment env;
  EXPECT_EQ(poa.find_POA("x", 0, env), nullptr);
  ASSERT_NE(env.exception(), nullptr);
  EXPECT_STREQ(env.exception()->id(), POA::WrongPolicy::repository_id);
  EXPECT_EQ(env._evp->_major, uint32_t{CORBA_USER_EXCEPTION});

  const auto raised =
      expect_raised<POA::InvalidPolicy>([&](auto& ev) { poa.create_POA("x", nullptr, {}, ev); });
  EXPECT_EQ(raised.index(), 3);
  expect_failed<CORBA::MARSHAL>([&](auto& ev) { poa.create_POA("x", nullptr, {}, ev); },
                                CORBA::COMPLETED_YES);
  expect_failed<CORBA::MARSHAL>([&](auto& ev) { poa.create_POA("x", nullptr, {}, ev); },
                                CORBA::COMPLETED_YES);
}

TEST(Stubs, AForwardRequestBringsItsReference) {
  RemotePOA adapter(test_root_poa());
  ScriptedPeer peer(
      {{ZR_REPLY_USER_EXCEPTION, encoded(ForwardRequest::repository_id) + encoded(adapter.get_ref())}});
  Remote<_st_PortableServer_ServantLocator> locator(peer.handle());
  ObjectId id;
  ServantLocator::Cookie cookie = 7;
  const auto raised =
      expect_raised<ForwardRequest>([&](auto& env) { locator.preinvoke(id, &adapter, "op", cookie, env); });
  ASSERT_NE(raised.forward_reference(), nullptr);
  EXPECT_TRUE(raised.forward_reference()->_is_equivalent(test_root_poa()));
  EXPECT_EQ(cookie, 7u);
}

TEST(Stubs, FailuresSayWhatBecameOfTheCall) {
  const std::string permission = encoded("IDL:omg.org/CORBA/NO_PERMISSION:1.0");
  ScriptedPeer peer({{ZR_REPLY_SYSTEM_EXCEPTION, permission + hex("07000000 02000000")},
                     {ZR_REPLY_SYSTEM_EXCEPTION, permission + hex("07")},
                     {ZR_REPLY_NO_EXCEPTION, hex("09000000 41")},
                     {ZR_REPLY_LOCATION_FORWARD, hex("FFFFFFFF")},
                     {ZR_REPLY_LOCATION_FORWARD, encoded(static_cast<void*>(nullptr))},
                     {ScriptedReply::hang_up, ""},
                     {ZR_REPLY_NO_EXCEPTION, ""}});  // never asked for
  RemotePOA poa(peer.handle()), nowhere(static_cast<void*>(nullptr));
  const auto name = [&](auto& env) { poa.the_name(env); };
  expect_failed<CORBA::NO_PERMISSION>(name, CORBA::COMPLETED_MAYBE);
  expect_failed<CORBA::MARSHAL>(name, CORBA::COMPLETED_MAYBE);
  expect_failed<CORBA::MARSHAL>(name, CORBA::COMPLETED_YES);
  expect_failed<CORBA::MARSHAL>(name, CORBA::COMPLETED_YES);
  expect_failed<CORBA::INV_OBJREF>(name, CORBA::COMPLETED_NO);
  expect_failed<CORBA::MARSHAL>([&](auto& env) { poa.set_servant(nullptr, env); }, CORBA::COMPLETED_NO);
  expect_failed<CORBA::COMM_FAILURE>(name, CORBA::COMPLETED_MAYBE);
  expect_failed<CORBA::INV_OBJREF>([&](auto& env) { nowhere.the_name(env); }, CORBA::COMPLETED_NO);
  EXPECT_EQ(peer.requests(), 6) << "what does not marshal is not sent";
}

TEST(Stubs, TheIIOPPartLeavesTheRequestToItsCaller) {
  ScriptedPeer there({});
  void* const forward = there.handle();
  ScriptedPeer peer(
      {{ZR_REPLY_NO_EXCEPTION, encoded("name")}, {ZR_REPLY_LOCATION_FORWARD, encoded(forward)}});
  CORBA_object_release(forward);
  RemotePOA poa(peer.handle());
  const auto call = [&](auto& env) {
    void* request = nullptr;
    uint32_t kind = 0;
    EXPECT_TRUE(OM_req_lib_initiator_request_create(poa.get_ref(), "_get_the_name", 1, &request, &kind));
    char* name = poa.UNO_IIOP_the_name(request, 1, env);
    OM_req_lib_UNO_IIOP_initiator_request_complete(request);
    return name;
  };
  CORBA::Environment env;
  const CORBA::String_var name = call(env);
  EXPECT_STREQ(name.in(), "name");
  EXPECT_EQ(call(env), nullptr);
  EXPECT_EQ(env._evp->_major, uint32_t{CORBA_LOCATION_FORWARD});
  EXPECT_EQ(env.exception(), nullptr);
}

}  // namespace
