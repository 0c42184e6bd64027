// Calls of a process that may make none: its ORB is destroyed, or is that of the process it was forked from.
#include <fcntl.h>
#include <sys/wait.h>

#include "client_call.h"
#include "engine_fixture.h"

namespace {

using namespace engine_test;

/// "made", or "NAME minor" of what refuses a call on that object.
std::string call_on(zrsv::Reference* object) {
  void* request = nullptr;
  uint32_t kind = 0;
  if (OM_req_lib_initiator_request_create(object, "echo", 1, &request, &kind)) {
    OM_req_lib_UNO_IIOP_initiator_request_complete(request);
    return "made";
  }
  Outcome ev;
  SetStdExReqLib(CORBA_COMPLETED_NO, ev);
  const uint32_t minor = static_cast<CORBA_Environment*>(ev)->_minor;
  return ev.name() + " " + std::to_string(minor);
}

/// Runs `body` in a child process; what it returns.
std::string in_child(const std::function<std::string()>& body) {
  int ends[2];
  EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(static_cast<unsigned>(bound.count()));  // a child that hangs is ended
    const std::string said = body();
    ::_exit(::write(ends[1], said.data(), said.size()) == static_cast<ssize_t>(said.size()) ? 0 : 1);
  }
  ::close(ends[1]);
  std::string said(4096, '\0');
  const ssize_t n = ::read(ends[0], said.data(), said.size());
  ::close(ends[0]);
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "the child crashed or hung";
  return said.substr(0, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
}

TEST_F(Engine, AForkedChildIsRefusedAndLeavesItsParentAlone) {
  start({"-ORBInProcess", "0"});
  Server server({[](Peer& peer, const Got& got) { return peer.send(reply(got, 0, "")); }});
  const auto remote = reference_to({{server.port()}});
  const auto own = zrsv::Reference::make_local(impl_name, "IDL:Test:1.0", "object");
  const auto send = [&] {
    void* request = nullptr;
    uint32_t kind = 0;
    CDR* cdr = nullptr;
    EXPECT_TRUE(OM_req_lib_initiator_request_create(remote.get(), "op", 1, &request, &kind) &&
                OM_req_lib_UNO_IIOP_get_cdr(request, &cdr));
    zrsv::Writer(cdr).raw(std::string(16, '\0'));
    EXPECT_TRUE(OM_req_lib_UNO_IIOP_send_request(request));
    return request;
  };
  void* under_way = send();
  Client client(port());
  EXPECT_EQ(client.ask(call(1, "echo", 41)), "41");
  testing::internal::CaptureStderr();
  const std::string said = in_child([&] {
    std::string all = call_on(remote.get()) + ", " + call_on(own.get());
    all += OM_req_lib_UNO_IIOP_recv_reply(under_way) ? ", received" : ", not received";
    OM_req_lib_UNO_IIOP_initiator_request_complete(under_way);
    const auto add = [&](const char* what) { all += std::string(", ") + what + " " + env_.name(); };
    CORBA_ORB_run(orb_, env_), add("run");
    resolve_root(), add("resolve");
    CORBA_ORB_shutdown(orb_, 1, env_), add("shutdown");
    CORBA_ORB_destroy(orb_, env_), add("destroy");
    CORBA_ORB_init(nullptr, nullptr, "", env_), add("init");
    return all;
  });
  EXPECT_EQ(
      said,
      "BAD_INV_ORDER 3, BAD_INV_ORDER 3, not received, run BAD_INV_ORDER, resolve BAD_INV_ORDER, shutdown , "
      "destroy , init BAD_INV_ORDER");
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("was forked from " + std::to_string(::getpid())), log.npos) << log;
  EXPECT_EQ(log.find("was forked"), log.rfind("was forked")) << "said more than once: " << log;
  // The parent's connections are as they were.
  EXPECT_TRUE(OM_req_lib_UNO_IIOP_recv_reply(under_way));
  OM_req_lib_UNO_IIOP_initiator_request_complete(under_way);
  under_way = send();
  EXPECT_TRUE(OM_req_lib_UNO_IIOP_recv_reply(under_way));
  OM_req_lib_UNO_IIOP_initiator_request_complete(under_way);
  EXPECT_EQ(server.accepted, 1u);
  EXPECT_EQ(client.ask(call(2, "echo", 43)), "43");
}

TEST_F(Engine, AChildThatReturnsFromAServantAnswersNobody) {
  pid_t child = -1;
  operations["fork"] = [&](Upcalled& r) {
    child = ::fork();
    r.answer(child == 0 ? 13 : 42);
    if (child == 0) return;
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_FAILURE) << status;
  };
  start();
  Client client(port());
  EXPECT_EQ(client.ask(call(1, "fork")), "42");
  EXPECT_EQ(client.ask(call(2, "echo", 5)), "5");
}

TEST_F(Engine, AChildMayServeWhenItsParentDidNot) {
  init({});
  EXPECT_EQ(in_child([&] {
              start();
              Client client(port());
              const std::string answer = client.ask(call(1, "echo", 7));
              CORBA_ORB_destroy(orb_, env_);
              CORBA_ORB_destroy(orb_, env_);
              return answer + env_.name();
            }),
            "7");
}

TEST_F(Engine, NoCallsAfterTheEnd) {
  const auto own = zrsv::Reference::make_local(impl_name, "IDL:Test:1.0", "object");
  start();
  EXPECT_EQ(call_on(own.get()), "made");
  CORBA_ORB_destroy(orb_, env_);
  EXPECT_EQ(call_on(own.get()), "BAD_INV_ORDER 2");
  start();
  EXPECT_EQ(call_on(own.get()), "made");
}

}  // namespace
