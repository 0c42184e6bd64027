// A connection that its server closed while nobody looked: the next call is made over another one.
#include <gtest/gtest.h>

#include <future>

#include "failing.h"
#include "scripted_server.h"

namespace {

using failing::Counted;

std::string echoed(zrsv::Reference& target, uint64_t argument) {
  const Counted this_thread;
  void* handle = nullptr;
  uint32_t kind = 0, status = 99, answer = 0;
  int32_t filler = 0;
  CDR* cdr = nullptr;
  const bool done = OM_req_lib_initiator_request_create(&target, "echo", 1, &handle, &kind) &&
                    OM_req_lib_UNO_IIOP_get_cdr(handle, &cdr) && OM_cdr_long(cdr, &filler) &&
                    OM_cdr_unsigned_long_long(cdr, &argument) && OM_req_lib_UNO_IIOP_send_request(handle) &&
                    OM_req_lib_UNO_IIOP_recv_reply(handle) &&
                    OM_req_lib_UNO_IIOP_decode_reply_header(handle, &status) &&
                    OM_cdr_unsigned_long(cdr, &answer);
  OM_req_lib_UNO_IIOP_initiator_request_complete(handle);
  return done ? std::to_string(answer) : "failed";
}

TEST(IdleConnections, AreLookedAtBeforeTheyAreUsed) {
  int argc = 0;
  Outcome ev;
  void* const orb = CORBA_ORB_init(&argc, nullptr, "", ev);
  std::promise<void> gone;
  ScriptedServer server({[&](Peer& peer) {
                           peer.echo(peer.read());
                           peer.close();
                           gone.set_value();
                         },
                         [](Peer& peer) { peer.echo_all(); }});
  const auto target = reference_to({{server.port()}});
  EXPECT_EQ(echoed(*target, 1), "1");
  ASSERT_EQ(gone.get_future().wait_for(std::chrono::seconds(3)), std::future_status::ready);
  failing::begin(failing::What::clock, 1);
  EXPECT_EQ(echoed(*target, 2), "2");
  EXPECT_TRUE(failing::end());
  zrsv::close_client_connections();
  CORBA_ORB_destroy(orb, ev);
}

}  // namespace
