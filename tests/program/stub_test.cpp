// Stubs against a server that answers whatever the test wants.

#include <gtest/gtest.h>

#include "raised.h"
#include "replies.h"
#include "server_process.h"

namespace {

using namespace PortableServer;
using RemotePOA = Remote<_st_PortableServer_POA>;

std::string encoded(void* handle) {
  Encoding out;
  EXPECT_TRUE(OM_cdr_object(out, &handle));
  return out.octets();
}

/// A string, padded for a value of that alignment behind it.
std::string encoded(const std::string& text, std::size_t alignment = 4) {
  Encoding out;
  char* characters = const_cast<char*>(text.c_str());
  EXPECT_TRUE(OM_cdr_string(out, &characters));
  std::string octets = out.octets();
  octets.resize((octets.size() + alignment - 1) / alignment * alignment);
  return octets;
}

TEST(Stubs, GiveResultsAndOutArguments) {
  const std::string nil = hex("01000000 00000000 00000000");
  Replies peer({{ZR_REPLY_NO_EXCEPTION, encoded("child")},
                {ZR_REPLY_NO_EXCEPTION, hex("02000000") + nil + nil},
                {ZR_REPLY_NO_EXCEPTION, ""}});
  RemotePOA poa(peer.handle());
  CORBA::Environment own_ev;
  own_ev.exception(new CORBA::BAD_PARAM);  // of an earlier call
  EXPECT_STREQ(CORBA::String_var(poa.the_name(own_ev)).in(), "child");
  EXPECT_TRUE(!own_ev.exception() && own_ev._evp->_major == 0);
  EXPECT_EQ(POAList_var(poa.the_children())->length(), 2u);
  poa.deactivate_object(ObjectId());
}

TEST(Stubs, FollowForwards) {
  Replies there({{ZR_REPLY_NO_EXCEPTION, encoded("there")}, {ZR_REPLY_NO_EXCEPTION, encoded("again")}});
  const RemotePOA forward(there.handle());
  Replies here({{ZR_REPLY_LOCATION_FORWARD, encoded(forward.get_ref())}});
  RemotePOA poa(here.handle());
  for (const char* name : {"there", "again"}) EXPECT_STREQ(CORBA::String_var(poa.the_name()).in(), name);
  EXPECT_EQ(here.requests(), 1u) << "the new place is remembered";
}

TEST(Stubs, UserExceptions) {
  const std::string invalid = encoded(POA::InvalidPolicy::repository_id, 2);
  RemotePOA adapter(test_root_poa());
  Replies peer(
      {{ZR_REPLY_USER_EXCEPTION, encoded(POA::AdapterNonExistent::repository_id)},
       {ZR_REPLY_USER_EXCEPTION, encoded(POA::WrongPolicy::repository_id)},  // not find_POA's
       {ZR_REPLY_USER_EXCEPTION, invalid + hex("0300")},
       {ZR_REPLY_USER_EXCEPTION, encoded(ForwardRequest::repository_id) + encoded(adapter.get_ref())}});
  RemotePOA poa(peer.handle());
  expect_raised<POA::AdapterNonExistent>([&](auto& ev) { poa.find_POA("x", 0, ev); });

  CORBA::Environment own_ev;
  EXPECT_EQ(poa.find_POA("x", 0, own_ev), nullptr);
  ASSERT_NE(own_ev.exception(), nullptr);
  EXPECT_STREQ(own_ev.exception()->id(), POA::WrongPolicy::repository_id);

  const auto raised =
      expect_raised<POA::InvalidPolicy>([&](auto& ev) { poa.create_POA("x", nullptr, {}, ev); });
  EXPECT_EQ(raised.index(), 3);

  Remote<_st_PortableServer_ServantLocator> locator(peer.handle());
  ServantLocator::Cookie cookie = 7;
  const auto forward = expect_raised<ForwardRequest>(
      [&](auto& ev) { locator.preinvoke(ObjectId(), &adapter, "op", cookie, ev); });
  ASSERT_NE(forward.forward_reference(), nullptr);
  EXPECT_TRUE(forward.forward_reference()->_is_equivalent(test_root_poa()));
  EXPECT_EQ(cookie, 7u);
}

TEST(Stubs, FailuresSayWhatBecameOfTheCall) {
  constexpr auto maybe = CORBA::COMPLETED_MAYBE;
  const std::string permission = encoded("IDL:omg.org/CORBA/NO_PERMISSION:1.0");
  const std::string invalid = encoded(POA::InvalidPolicy::repository_id, 2);
  const std::tuple<ScriptedReply, const char*, CORBA::CompletionStatus> rows[] = {
      {{ZR_REPLY_SYSTEM_EXCEPTION, permission + hex("07000000 02000000")}, "NO_PERMISSION", maybe},
      {{ZR_REPLY_SYSTEM_EXCEPTION, permission + hex("07")}, "MARSHAL", maybe},
      {{ZR_REPLY_NO_EXCEPTION, hex("09000000 41")}, "MARSHAL", CORBA::COMPLETED_YES},
      {{ZR_REPLY_USER_EXCEPTION, invalid + hex("03")}, "MARSHAL", CORBA::COMPLETED_YES},
      {{ZR_REPLY_LOCATION_FORWARD, hex("FFFFFFFF")}, "MARSHAL", maybe},
      {{ZR_REPLY_LOCATION_FORWARD, encoded(static_cast<void*>(nullptr))}, "INV_OBJREF", CORBA::COMPLETED_NO},
      {{ScriptedReply::hang_up, ""}, "COMM_FAILURE", maybe}};
  const auto failed = [](const std::string& name, CORBA::CompletionStatus completed, auto&& call) {
    CORBA::Environment own_ev;
    EXPECT_THROW(call(own_ev), CORBA::SystemException) << name;
    const auto* stored = CORBA::SystemException::_narrow(own_ev.exception());
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(stored->_name(), name);
    EXPECT_EQ(stored->completed(), completed) << name;
  };
  for (const auto& [reply, name, completed] : rows) {
    Replies peer({reply, {ZR_REPLY_NO_EXCEPTION, ""}});  // the second is never asked for
    RemotePOA poa(peer.handle());
    failed("MARSHAL", CORBA::COMPLETED_NO, [&](auto& ev) { poa.set_servant(nullptr, ev); });
    failed(name, completed, [&](auto& ev) { poa.create_POA("x", nullptr, {}, ev); });
    EXPECT_EQ(peer.requests(), 1u) << "what does not marshal is not sent";
  }
  failed("INV_OBJREF", CORBA::COMPLETED_NO,
         [](auto& ev) { RemotePOA(static_cast<void*>(nullptr)).the_name(ev); });
}

TEST(Stubs, TheIIOPPartLeavesTheForwardToItsCaller) {
  Replies there({});
  const RemotePOA forward(there.handle());
  Replies peer({{ZR_REPLY_LOCATION_FORWARD, encoded(forward.get_ref())}});
  RemotePOA poa(peer.handle());
  CORBA::Environment own_ev;
  void* request = nullptr;
  uint32_t kind = 0;
  EXPECT_TRUE(OM_req_lib_initiator_request_create(poa.get_ref(), "_get_the_name", 1, &request, &kind));
  EXPECT_EQ(poa.UNO_IIOP_the_name(request, 1, own_ev), nullptr);
  OM_req_lib_UNO_IIOP_initiator_request_complete(request);
  EXPECT_EQ(own_ev._evp->_major, uint32_t{CORBA_LOCATION_FORWARD});
  EXPECT_EQ(own_ev.exception(), nullptr);
}

}  // namespace
