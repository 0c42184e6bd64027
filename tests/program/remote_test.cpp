// POAs driven from another process, and within one.

#include "poa/remote.h"

#include <gtest/gtest.h>

#include <functional>

#include "orb_fixture.h"
#include "policy_list.h"
#include "raised.h"
#include "server_process.h"

using namespace PortableServer;

namespace {

/// A reference to an object of that interface, which the library itself makes none of.
CORBA::Object* reference_of(const char* id) {
  unsigned char octets[4] = {};
  const CORBA_sequence_octet data{4, 4, octets};
  auto* object = new CORBA::Object;
  object->set_ref(ZR_create_object_reference(&data, id, id, nullptr));
  return object;
}

}  // namespace

std::map<std::string, CORBA::Object_var> offers(CORBA::ORB* orb, POA* root, bool registered) {
  std::map<std::string, CORBA::Object_var> offer = {{"root", CORBA::Object::_duplicate(root)}};
  if (!registered) return offer;
  for (int again = 0; again < 2; ++again) register_for_remote_use();
  POA* const served = root->create_POA("served", nullptr, policies(root, USE_DEFAULT_SERVANT, MULTIPLE_ID));
  static RefCountServantBase servant;
  served->set_servant(&servant);
  offer["served"] = served;
  offer["current"] = orb->resolve_initial_references("POACurrent");
  offer["adapter_activator"] = reference_of("IDL:omg.org/PortableServer/AdapterActivator:2.3");
  offer["servant_activator"] = reference_of("IDL:omg.org/PortableServer/ServantActivator:2.3");
  offer["servant_locator"] = reference_of("IDL:omg.org/PortableServer/ServantLocator:2.3");
  return offer;
}

namespace {

using RemotePOA = Remote<_st_PortableServer_POA>;
using RemoteManager = Remote<_st_PortableServer_POAManager>;

class RemoteUse : public testing::Test {
 protected:
  ServerProcess server{true};
  RemotePOA root{server.handle("root")};
};

TEST(ClosedServer, SaysThatItsPOAsAreNoObjects) {
  const ServerProcess server(false);
  RemotePOA root(server.handle("root"));
  const auto said = expect_raised<CORBA::OBJECT_NOT_EXIST>([&](auto& ev) { root.destroy(1, 0, ev); }, 0);
  EXPECT_EQ(said.completed(), CORBA::COMPLETED_NO);
}

TEST_F(RemoteUse, ChildrenAreMadeFoundListedAndDestroyed) {
  EXPECT_STREQ(CORBA::String_var(root.the_name()), "rootPOA");
  const POA_var first = root.create_POA("first", nullptr, {});
  const POA_var second = root.create_POA("second", nullptr, {});
  RemotePOA child(second.in());
  EXPECT_STREQ(CORBA::String_var(child.the_name()), "second");
  EXPECT_TRUE(POA_var(child.the_parent())->_is_equivalent(&root));
  expect_raised<POA::AdapterAlreadyExists>([&](auto& ev) { root.create_POA("first", nullptr, {}, ev); });
  EXPECT_TRUE(POA_var(root.find_POA("first", 0))->_is_equivalent(first.in()));
  const POAList_var children = root.the_children();
  ASSERT_EQ(children->length(), 3u);
  EXPECT_TRUE((*children)[0]->_is_equivalent(second.in()));
  child.destroy(1, 0);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { child.the_name(ev); });
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { root.find_POA("second", 0, ev); });
}

TEST_F(RemoteUse, ManagersAreHeldAndActivated) {
  POAManager_var reference = root.the_POAManager();
  RemoteManager manager(reference.in());
  manager.activate();
  manager.hold_requests(0);
  EXPECT_EQ(manager.get_state(), POAManager::HOLDING);

  // A manager that came with a request stays the POA's when the request is over.
  const POA_var managed = root.create_POA("managed", reference.in(), {});
  EXPECT_TRUE(POAManager_var(RemotePOA(managed.in()).the_POAManager())->_is_equivalent(reference.in()));
  const POAManager_var none = POAManager::_narrow(&root);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { root.create_POA("other", none.in(), {}, ev); });

  manager.deactivate(0, 0);
  EXPECT_EQ(manager.get_state(), POAManager::INACTIVE);
  expect_raised<POAManager::AdapterInactive>([&](auto& ev) { manager.activate(ev); });
}

TEST_F(RemoteUse, PoliciesTellTheirValue) {
  const LifespanPolicy_var lifespan = root.create_lifespan_policy(PERSISTENT);
  Remote<_st_PortableServer_LifespanPolicy> remote(lifespan.in());
  EXPECT_EQ(remote.policy_type(), LIFESPAN_POLICY_ID);
  EXPECT_TRUE(CORBA::Policy_var(remote.copy())->_is_equivalent(&remote));
  remote.destroy();
  EXPECT_EQ(remote.value(), PERSISTENT) << "policies are shared";
}

TEST_F(RemoteUse, APolicyListTravels) {
  CORBA::PolicyList list =
      policies(&root, PERSISTENT, USER_ID, RETAIN, USE_DEFAULT_SERVANT);  // the last wants MULTIPLE_ID
  const auto rejected =
      expect_raised<POA::InvalidPolicy>([&](auto& ev) { root.create_POA("bad", nullptr, list, ev); });
  EXPECT_EQ(rejected.index(), 3);

  list[3] = root.create_request_processing_policy(USE_SERVANT_MANAGER);
  const POA_var made = root.create_POA("user_ids", nullptr, list);
  RemotePOA child(made.in());
  const ObjectId_var id = string_to_ObjectId("id");
  const CORBA::Object_var object = child.create_reference_with_id(*id, "IDL:test/Thing:1.0");
  EXPECT_EQ((*ObjectId_var(child.reference_to_id(object.in())))[0], 'i');
  expect_raised<POA::WrongPolicy>([&](auto& ev) { child.create_reference("IDL:test/Thing:1.0", ev); });
  const CORBA::Object_var elsewhere = root.create_reference("IDL:test/Thing:1.0");
  expect_raised<POA::WrongAdapter>([&](auto& ev) { child.reference_to_id(elsewhere.in(), ev); });
  expect_raised<POA::ObjectNotActive>([&](auto& ev) { child.deactivate_object(*id, ev); });
  CORBA::Object activator;
  activator.set_ref(server.handle("servant_activator"));
  const ServantManager_var manager = ServantManager::_narrow(&activator);
  child.set_servant_manager(manager.in());
  EXPECT_TRUE(ServantManager_var(child.get_servant_manager())->_is_equivalent(manager.in()));
  expect_raised<CORBA::BAD_INV_ORDER>([&](auto& ev) { child.set_servant_manager(manager.in(), ev); },
                                      0x4B510303);
}

TEST_F(RemoteUse, ActivatorsThatCameWithARequestStay) {
  const POA_var made = root.create_POA("activating", nullptr, {});
  RemotePOA child(made.in());
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { child.the_activator(ev); });
  CORBA::Object object;
  object.set_ref(server.handle("adapter_activator"));
  const AdapterActivator_var activator = AdapterActivator::_narrow(&object);
  for (int i = 0; i < 2; ++i) child.the_activator(activator.in());
  EXPECT_TRUE(AdapterActivator_var(child.the_activator())->_is_equivalent(activator.in()));
  // The one that stands in for it in the server makes nothing.
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { child.find_POA("none", 1, ev); });
  child.the_activator(nullptr);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { child.the_activator(ev); });
}

TEST_F(RemoteUse, WhatCarriesAServantDoesNotMarshal) {
  RemotePOA served(server.handle("served"));
  Remote<_st_PortableServer_ServantActivator> activator(server.handle("servant_activator"));
  Remote<_st_PortableServer_ServantLocator> locator(server.handle("servant_locator"));
  const ObjectId id;
  ServantLocator::Cookie cookie = 7;
  const std::pair<CORBA::CompletionStatus, std::function<void(CORBA::Environment&)>> rows[] = {
      {CORBA::COMPLETED_NO, [&](auto& ev) { served.set_servant(nullptr, ev); }},
      {CORBA::COMPLETED_NO, [&](auto& ev) { served.activate_object_with_id(id, nullptr, ev); }},
      {CORBA::COMPLETED_NO, [&](auto& ev) { served.servant_to_reference(nullptr, ev); }},
      {CORBA::COMPLETED_YES, [&](auto& ev) { served.get_servant(ev); }},
      {CORBA::COMPLETED_YES, [&](auto& ev) { activator.incarnate(id, &root, ev); }},
      {CORBA::COMPLETED_NO, [&](auto& ev) { activator.etherealize(id, &root, nullptr, 0, 0, ev); }},
      {CORBA::COMPLETED_YES, [&](auto& ev) { locator.preinvoke(id, &root, "op", cookie, ev); }},
      {CORBA::COMPLETED_NO, [&](auto& ev) { locator.postinvoke(id, &root, "op", cookie, nullptr, ev); }},
  };
  for (const auto& [completed, call] : rows)
    EXPECT_EQ(expect_raised<CORBA::MARSHAL>(call, 0).completed(), completed);
  Remote<_st_PortableServer_AdapterActivator> adapters(server.handle("adapter_activator"));
  EXPECT_TRUE(adapters.unknown_adapter(&root, "any"));
  Remote<_st_PortableServer_Current> current(server.handle("current"));
  expect_raised<Current::NoContext>([&](auto& ev) { current.get_POA(ev); });
}

/// Calls `operation` with those octets as its arguments; gives the system exception's name and completion.
std::string raw_call(void* object, const char* operation, std::string octets) {
  void* request = nullptr;
  uint32_t kind = 0, status = 9;
  CDR* cdr = nullptr;
  EXPECT_TRUE(OM_req_lib_initiator_request_create(object, operation, 1, &request, &kind));
  EXPECT_TRUE(OM_req_lib_UNO_IIOP_get_cdr(request, &cdr));
  cdr->direction = CDR_ENCODE;
  EXPECT_TRUE(
      cdr_bytes(cdr, reinterpret_cast<unsigned char*>(octets.data()), static_cast<uint32_t>(octets.size())));
  EXPECT_TRUE(OM_req_lib_UNO_IIOP_send_request(request) && OM_req_lib_UNO_IIOP_recv_reply(request));
  EXPECT_TRUE(OM_req_lib_UNO_IIOP_decode_reply_header(request, &status));
  CORBA::Environment ev;
  std::string result = "status " + std::to_string(status);
  if (status == ZR_REPLY_SYSTEM_EXCEPTION) {
    CORBA_Environment filled{};
    EXPECT_TRUE(OM_req_lib_UNO_IIOP_decode_standard_excep(request, &filled));
    ev.set_ref(&filled);
    result = std::string(ev.exception()->_name()) + " " + std::to_string(ev._evp->_completed);
  }
  OM_req_lib_UNO_IIOP_initiator_request_complete(request);
  return result;
}

TEST_F(RemoteUse, BadArgumentsNeverReachThePOA) {
  const std::string name("\5\0\0\0lost\0", 9);  // find_POA: a name, then a boolean
  EXPECT_EQ(raw_call(root.get_ref(), "find_POA", name + '\0'), "status 1") << "whole: there is no such POA";
  for (std::size_t cut = 0; cut <= name.size(); ++cut)
    EXPECT_EQ(raw_call(root.get_ref(), "find_POA", name.substr(0, cut)), "MARSHAL 1") << cut;
  EXPECT_EQ(raw_call(root.get_ref(), "create_POA", std::string("\2\0\0\0a\0", 6) + std::string(14, '\xFF')),
            "MARSHAL 1");
  EXPECT_EQ(raw_call(root.get_ref(), "no_such_operation", ""), "BAD_OPERATION 1");
  EXPECT_EQ(raw_call(root.get_ref(), "_is_a", std::string("\2\0\0\0a\0", 6)), "status 0");
}

TEST(InProcessUse, HasNoObjectBehindIt) {
  POA* const own = test_root_poa();
  register_for_remote_use();
  RemotePOA root(own);
  EXPECT_FALSE(root._is_a("IDL:test/Thing:1.0") || root._non_existent());
  EXPECT_NE(CORBA::InterfaceDef_var(root._get_interface()).in(), nullptr);
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { root.destroy(1, 0, ev); });
  const POAManager_var manager = own->the_POAManager();
  expect_raised<CORBA::BAD_PARAM>([&](auto& ev) { RemoteManager(manager.in()).get_state(ev); });
  EXPECT_STREQ(CORBA::String_var(own->the_name()), "rootPOA");
}

}  // namespace
