// Portable interceptors: which point is called when, on both sides, and what a request becomes by what they raise.
#include <corba/portable_interceptor.h>

#include <functional>
#include <map>
#include <mutex>
#include <sstream>
#include <vector>

#include "server.h"

namespace {

namespace PI = PortableInterceptor;
using CORBA::Object_var;
using CORBA::String_var;

/// What was called, in order. Several threads write to it; a client's ending points come after its server's.
class Log {
 public:
  void add(const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
  }
  std::string take() {
    const std::lock_guard lock(mutex_);
    std::ostringstream all;
    for (const std::string& line : lines_) all << (&line == &lines_[0] ? "" : " ") << line;
    lines_.clear();
    return all.str();
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

using OfClient = std::function<void(PI::ClientRequestInfo_ptr)>;
using OfServer = std::function<void(PI::ServerRequestInfo_ptr)>;

/// What the interceptors of the ORBs that are made do. Actions are set while no call is under way, by "A.send_request".
struct Plan {
  std::string names;  // of the interceptors, a letter each
  std::string failing;
  Log log;
  std::map<std::string, OfClient> client;
  std::map<std::string, OfServer> server;
  std::vector<std::string> arguments;
  std::string orb_id;
  PI::ORBInitInfo_var info;
  PI::SlotId slot = 0;
};
Plan* plan = nullptr;

template <class Base, class Actions, class Info>
class Noting : public virtual Base {
 public:
  Noting(std::string name, const Actions& actions, Log& log)
      : name_(std::move(name)), actions_(actions), log_(log) {}
  char* name() override { return CORBA::string_dup(name_.c_str()); }
  void destroy() override { log_.add(name_ + ".destroy"); }

 protected:
  void note(const char* point, Info* info) {
    const std::string at = name_ + "." + point;
    log_.add(at);
    if (const auto found = actions_.find(at); found != actions_.end()) found->second(info);
  }

 private:
  const std::string name_;
  const Actions& actions_;
  Log& log_;
};

class OnClient
    : public Noting<PI::ClientRequestInterceptor, std::map<std::string, OfClient>, PI::ClientRequestInfo> {
 public:
  using Noting::Noting;
  void send_request(PI::ClientRequestInfo_ptr i) override { note("send_request", i); }
  void send_poll(PI::ClientRequestInfo_ptr i) override { note("send_poll", i); }
  void receive_reply(PI::ClientRequestInfo_ptr i) override { note("receive_reply", i); }
  void receive_exception(PI::ClientRequestInfo_ptr i) override { note("receive_exception", i); }
  void receive_other(PI::ClientRequestInfo_ptr i) override { note("receive_other", i); }
};

class OnServer
    : public Noting<PI::ServerRequestInterceptor, std::map<std::string, OfServer>, PI::ServerRequestInfo> {
 public:
  using Noting::Noting;
  void receive_request_service_contexts(PI::ServerRequestInfo_ptr i) override { note("contexts", i); }
  void receive_request(PI::ServerRequestInfo_ptr i) override { note("receive_request", i); }
  void send_reply(PI::ServerRequestInfo_ptr i) override { note("send_reply", i); }
  void send_exception(PI::ServerRequestInfo_ptr i) override { note("send_exception", i); }
  void send_other(PI::ServerRequestInfo_ptr i) override { note("send_other", i); }
};

class Initializer : public PI::ORBInitializer {
 public:
  void pre_init(PI::ORBInitInfo_ptr info) override {
    if (!plan) return;
    const CORBA::StringSeq_var arguments = info->arguments();
    plan->arguments.clear();
    for (CORBA::ULong i = 0; i < arguments->length(); ++i) plan->arguments.emplace_back(arguments[i]);
    plan->orb_id = String_var(info->orb_id()).in();
    plan->slot = info->allocate_slot_id();
    plan->info = PI::ORBInitInfo::_duplicate(info);
    if (plan->failing == "pre_init") throw CORBA::NO_PERMISSION(3);
    EXPECT_THROW(info->resolve_initial_references("PolicyCurrent"), CORBA::BAD_INV_ORDER);
  }
  void post_init(PI::ORBInitInfo_ptr info) override {
    if (!plan) return;
    for (const char name : plan->names) {
      const PI::ClientRequestInterceptor_var client = new OnClient({name}, plan->client, plan->log);
      const PI::ServerRequestInterceptor_var server = new OnServer({name}, plan->server, plan->log);
      info->add_client_request_interceptor(client);
      info->add_server_request_interceptor(server);
    }
  }
};

/// Has interceptors A and B, on both sides, before its ORB is made.
struct Planned {
  explicit Planned(const char* names) {
    [[maybe_unused]] static const bool registered = [] {
      const PI::ORBInitializer_var initializer = new Initializer;
      PI::register_orb_initializer(initializer);
      return true;
    }();
    own.names = names;
    plan = &own;
  }
  ~Planned() { plan = nullptr; }
  Plan own;
};

class InterceptorsTest : protected Planned, public StandardTest {
 protected:
  InterceptorsTest() : Planned("AB") {}

  OfClient& client(const std::string& point) { return own.client[point]; }
  OfServer& server(const std::string& point) { return own.server[point]; }
  std::string log() { return own.log.take(); }
  PI::SlotId slot() const { return own.slot; }
  /// The object in the process and over a socket. The log is empty then.
  std::map<std::string, Demo::Echo_var> roads() {
    std::map<std::string, Demo::Echo_var> all{{"in process", Demo::Echo::_duplicate(echo)},
                                              {"over a socket", far_echo(orb)}};
    all["over a socket"]->notes();  // now it knows where the key leads
    log();
    return all;
  }
};

template <class Call>
std::string raised(Call&& call) {
  try {
    call();
    return "";
  } catch (const CORBA::SystemException& e) {
    return std::string(e._name()) + " " + std::to_string(e.minor()) + " " + std::to_string(e.completed());
  } catch (const CORBA::Exception& e) {
    return e._name();
  }
}

/// `points` of A and then B, or of B and then A: "send_request" and "-send_reply".
std::string both(std::initializer_list<const char*> points) {
  std::string all;
  for (const std::string point : points) {
    const bool back = point[0] == '-';
    const std::string name = back ? point.substr(1) : point;
    all += (all.empty() ? "" : " ") + std::string(back ? "B." : "A.") + name + (back ? " A." : " B.") + name;
  }
  return all;
}

// ---- Order --------------------------------------------------------------------------------------------------------

TEST_F(InterceptorsTest, PointsInOrderAndBackAgain) {
  const Object_var nobody = root->create_reference("IDL:Demo/Echo:1.0");
  const Demo::Echo_var absent = Demo::Echo::_narrow(nobody);
  const auto euro = [&] {  // what is only known by its address wants ISO 8859-1
    const Object_var by_address = orb->string_to_object(far("Echo").c_str());
    Demo::Echo_var(Demo::Echo::_unchecked_narrow(by_address))->note("\xe2\x82\xac");
  };
  struct Row {
    const char* what;
    std::function<void(Demo::Echo_ptr)> call;
    std::string log;
  };
  const Row rows[] = {
      {"a result", [](Demo::Echo_ptr e) { e->add(1, 2); },
       both({"send_request", "contexts", "receive_request", "-send_reply", "-receive_reply"})},
      {"a user exception", [](Demo::Echo_ptr e) { e->refuse("no", 1); },
       both({"send_request", "contexts", "receive_request", "-send_exception", "-receive_exception"})},
      {"an operation of every object", [](Demo::Echo_ptr e) { e->_non_existent(); },
       both({"send_request", "contexts", "receive_request", "-send_reply", "-receive_reply"})},
      {"no servant", [&](Demo::Echo_ptr) { absent->add(1, 2); },
       both({"send_request", "contexts", "-send_exception", "-receive_exception"})},
      {"a dynamic call",
       [](Demo::Echo_ptr e) {
         const CORBA::Request_var request = e->_request("add");
         request->add_in_arg() <<= CORBA::Long(1);
         request->add_in_arg() <<= CORBA::Long(2);
         request->set_return_type(CORBA::_tc_long);
         request->invoke();
       },
       both({"send_request", "contexts", "receive_request", "-send_reply", "-receive_reply"})},
      {"a text that cannot be written", [&](Demo::Echo_ptr) { euro(); },
       both({"send_request", "-receive_exception"})},
      {"a message that is too long",
       [](Demo::Echo_ptr e) {
         Demo::Octets long_one;
         long_one.length(17 << 20);
         Demo::Octets_var(e->echo_octets(long_one));
       },
       both({"send_request", "-receive_exception"})},
  };
  for (const auto& [road, object] : roads()) {
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(row.what) + " " + road);
      raised([&] { row.call(object); });
      EXPECT_EQ(log(), row.log);
    }
  }
}

TEST_F(InterceptorsTest, OnewaysEndByOther) {
  std::promise<void> over;
  client("A.receive_other") = [](PI::ClientRequestInfo_ptr info) {
    EXPECT_EQ(info->reply_status(), PI::SUCCESSFUL);
    EXPECT_FALSE(info->response_expected());
    EXPECT_THROW(info->forward_reference(), CORBA::BAD_INV_ORDER);
  };
  server("A.send_other") = [&](PI::ServerRequestInfo_ptr info) {
    EXPECT_EQ(info->reply_status(), PI::SUCCESSFUL);
    over.set_value();
  };
  for (const auto& [road, object] : roads()) {
    SCOPED_TRACE(road);
    servant->noted = std::promise<std::string>(), over = std::promise<void>();
    object->note("hello");
    ASSERT_EQ(over.get_future().wait_for(std::chrono::seconds(3)), std::future_status::ready);
    // Over a socket the two sides end at the same time.
    const std::string all = log();
    for (const char* part :
         {"A.send_request B.send_request", "A.contexts B.contexts A.receive_request B.receive_request"})
      EXPECT_NE(all.find(part), all.npos) << part << ": " << all;
    EXPECT_LT(all.find("B.receive_other"), all.find("A.receive_other")) << all;
    EXPECT_LT(all.find("B.send_other"), all.find("A.send_other")) << all;
  }
}

// ---- What they are told -------------------------------------------------------------------------------------------

TEST_F(InterceptorsTest, InfosTellWhatTheRequestIs) {
  const PortableServer::POA_var child =
      root->create_POA("child", PortableServer::POAManager_var(root->the_POAManager()), CORBA::PolicyList());
  EchoServant deep;
  const PortableServer::ObjectId_var id = child->activate_object(&deep);
  const Object_var near = child->id_to_reference(id);
  orb->register_key("Deep", near);
  const Object_var by_key = orb->string_to_object(far("Deep").c_str());
  CORBA::ULong sent = 0;
  client("A.send_request") = [&](PI::ClientRequestInfo_ptr info) {
    sent = info->request_id();
    EXPECT_TRUE(info->response_expected());
    EXPECT_THROW(info->reply_status(), CORBA::BAD_INV_ORDER);
    EXPECT_THROW(info->received_exception_id(), CORBA::BAD_INV_ORDER);
    EXPECT_THROW(info->get_reply_service_context(9), CORBA::BAD_INV_ORDER);
  };
  server("A.contexts") = [&](PI::ServerRequestInfo_ptr info) {
    EXPECT_EQ(info->request_id(), sent);
    EXPECT_EQ(raised([&] { CORBA::OctetSeq_var(info->object_id()); }),
              "BAD_INV_ORDER " + std::to_string(CORBA::OMGVMCID | 14) + " 1");
  };
  int asked = 0;
  server("A.receive_request") = [&](PI::ServerRequestInfo_ptr info) {
    ++asked;
    EXPECT_STREQ(String_var(info->operation()).in(), "refuse");
    EXPECT_STREQ(String_var(info->target_most_derived_interface()).in(), "IDL:Demo/Echo:1.0");
    EXPECT_TRUE(info->target_is_a("IDL:Demo/Echo:1.0"));
    EXPECT_FALSE(info->target_is_a("IDL:Demo/Other:1.0"));
    EXPECT_STREQ(String_var(info->orb_id()).in(), "");
    EXPECT_THROW(info->sending_exception(), CORBA::BAD_INV_ORDER);
  };
  server("A.send_exception") = [&](PI::ServerRequestInfo_ptr info) {
    const CORBA::OctetSeq_var object = info->object_id();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(object->get_buffer()), object->length()),
              std::string(reinterpret_cast<const char*>(id->get_buffer()), id->length()));
    const CORBA::StringSeq_var path = info->adapter_name();
    ASSERT_EQ(path->length(), 2u);
    EXPECT_STREQ(path[0], "RootPOA");
    EXPECT_STREQ(path[1], "child");
    EXPECT_EQ(info->reply_status(), PI::USER_EXCEPTION);
    EXPECT_THROW(info->target_is_a("IDL:Demo/Echo:1.0"), CORBA::BAD_INV_ORDER);
  };
  client("A.receive_exception") = [&](PI::ClientRequestInfo_ptr info) {
    EXPECT_EQ(info->request_id(), sent);
    EXPECT_EQ(info->reply_status(), PI::USER_EXCEPTION);
    EXPECT_STREQ(String_var(info->received_exception_id()).in(), "IDL:Demo/Refused:1.0");
    const CORBA::Any_var exception = info->received_exception();
    const CORBA::UNKNOWN* unknown = nullptr;
    ASSERT_TRUE(exception.in() >>= unknown);
    EXPECT_EQ(unknown->minor(), CORBA::OMGVMCID | 1);
    EXPECT_TRUE(Object_var(info->target())->_is_equivalent(Object_var(info->effective_target())));
  };
  for (const Object_var& object : {near, by_key}) {
    const Demo::Echo_var narrowed = Demo::Echo::_unchecked_narrow(object);
    EXPECT_EQ(raised([&] { narrowed->refuse("no", 1); }), "Refused");
  }
  EXPECT_EQ(asked, 2);
  child->destroy(true, false);
}

/// A servant whose argument and result have to stand on a multiple of 8.
class Doubler : public PortableServer::DynamicImplementation {
 public:
  explicit Doubler(CORBA::ORB_ptr orb) : orb_(orb) {}
  void invoke(CORBA::ServerRequest_ptr request) override {
    CORBA::NVList_ptr arguments = nullptr;
    orb_->create_list(0, arguments);
    arguments->add(CORBA::ARG_IN)->value()->replace(CORBA::_tc_double, nullptr);
    request->arguments(arguments);
    CORBA::Double value = 0;
    *arguments->item(0)->value() >>= value;
    CORBA::Any result;
    result <<= 2 * value;
    request->set_result(result);
  }
  CORBA::RepositoryId _primary_interface(const PortableServer::ObjectId&, PortableServer::POA_ptr) override {
    return CORBA::string_dup("IDL:Doubler:1.0");
  }

 private:
  CORBA::ORB_ptr orb_;
};

IOP::ServiceContext context(IOP::ServiceId id, const std::string& octets) {
  IOP::ServiceContext made;
  made.context_id = id;
  made.context_data.length(static_cast<CORBA::ULong>(octets.size()));
  for (CORBA::ULong i = 0; i < octets.size(); ++i)
    made.context_data[i] = static_cast<CORBA::Octet>(octets[i]);
  return made;
}
std::string text(const IOP::ServiceContext& context) {
  return {reinterpret_cast<const char*>(context.context_data.get_buffer()), context.context_data.length()};
}

TEST_F(InterceptorsTest, ContextsOfEveryLengthGoBothWaysInEveryVersion) {
  constexpr IOP::ServiceId there = 0x54455354, back = 0x54455355;
  std::string octets, seen, returned;
  client("A.send_request") = [&](PI::ClientRequestInfo_ptr info) {
    info->add_request_service_context(context(there, "to be replaced"), false);
    EXPECT_EQ(raised([&] { info->add_request_service_context(context(there, octets), false); }),
              "BAD_INV_ORDER " + std::to_string(CORBA::OMGVMCID | 15) + " 1");
    info->add_request_service_context(context(there, octets), true);
    EXPECT_THROW(info->add_request_service_context(context(1, octets), true), CORBA::BAD_PARAM)
        << "the ORB's own";
  };
  client("B.send_request") = [&](PI::ClientRequestInfo_ptr info) {
    EXPECT_EQ(text(IOP::ServiceContext_var(info->get_request_service_context(there)).in()), octets);
  };
  server("A.contexts") = [&](PI::ServerRequestInfo_ptr info) {
    seen = text(IOP::ServiceContext_var(info->get_request_service_context(there)).in());
    EXPECT_EQ(raised([&] { IOP::ServiceContext_var(info->get_request_service_context(back)); }),
              "BAD_PARAM " + std::to_string(CORBA::OMGVMCID | 26) + " 1");
    info->add_reply_service_context(context(back, octets + "!"), false);
  };
  server("B.send_reply") = [&](PI::ServerRequestInfo_ptr info) {
    info->add_reply_service_context(context(back + 1, ""), false);
  };
  client("B.receive_reply") = [&](PI::ClientRequestInfo_ptr info) {
    returned = text(IOP::ServiceContext_var(info->get_reply_service_context(back)).in());
    EXPECT_EQ(text(IOP::ServiceContext_var(info->get_reply_service_context(back + 1)).in()), "");
  };
  Demo::Octets many(200'000);  // which is not copied into messages as a rule
  many.length(200'000);
  many[199'998] = 77;
  octets = "12345";
  for (const Demo::Echo_var& one : {echo, Demo::Echo_var(Demo::Echo::_narrow(far_echo(orb)))}) {
    const Demo::Octets_var result = one->echo_octets(many);
    EXPECT_TRUE(result->length() == 200'000 && result[199'998] == 77);
  }
  Doubler doubler(orb);
  const PortableServer::ObjectId_var id = root->activate_object(&doubler);
  const Object_var near = root->id_to_reference(id);
  orb->register_key("Doubler", near);
  std::vector<Object_var> objects{near};
  for (const char* version : {"1.0", "1.1", "1.2"})
    objects.push_back(orb->string_to_object(
        (std::string("corbaloc:iiop:") + version + "@localhost:" + port() + "/Doubler").c_str()));
  for (const Object_var& object : objects) {
    for (octets = ""; octets.size() < 9; octets += static_cast<char>('a' + octets.size())) {
      const CORBA::Request_var request = object->_request("twice");
      request->add_in_arg() <<= CORBA::Double(1.25);
      request->set_return_type(CORBA::_tc_double);
      request->invoke();
      CORBA::Double result = 0;
      EXPECT_TRUE(request->return_value() >>= result);
      EXPECT_EQ(result, 2.5);
      EXPECT_EQ(seen, octets);
      EXPECT_EQ(returned, octets + "!");
    }
  }
  root->deactivate_object(id);
}

// ---- What they raise ----------------------------------------------------------------------------------------------

TEST_F(InterceptorsTest, AnExceptionTakesThePlaceOfTheEnd) {
  struct Row {
    const char* point;
    bool of_client;
    std::string log;
    int ran;  // the servant
  };
  const std::string back = " " + both({"-receive_exception"});
  const std::string to_servant = both({"send_request", "contexts", "receive_request"});
  const Row rows[] = {
      {"B.send_request", true, "A.send_request B.send_request A.receive_exception", 0},
      {"A.send_request", true, "A.send_request", 0},
      {"B.contexts", false, both({"send_request", "contexts"}) + " A.send_exception" + back, 0},
      {"A.receive_request", false,
       both({"send_request", "contexts"}) + " A.receive_request " + both({"-send_exception"}) + back, 0},
      {"B.send_reply", false, to_servant + " B.send_reply A.send_exception" + back, 1},
      {"A.send_reply", false, to_servant + " B.send_reply A.send_reply" + back, 1},
      {"B.receive_reply", true,
       to_servant + " " + both({"-send_reply"}) + " B.receive_reply A.receive_exception", 1},
  };
  const auto refuse = [](auto*) { throw CORBA::NO_PERMISSION(77, CORBA::COMPLETED_YES); };
  for (const auto& [road, object] : roads()) {
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(row.point) + " " + road);
      servant->calls = 0;
      row.of_client ? void(client(row.point) = refuse) : void(server(row.point) = refuse);
      EXPECT_EQ(raised([&] { object->add(1, 2); }), "NO_PERMISSION 77 0");
      EXPECT_EQ(log(), row.log);
      EXPECT_EQ(servant->calls, row.ran);
      own.client.clear(), own.server.clear();
      EXPECT_EQ(object->add(1, 2), 3);
      log();
    }
  }
}

TEST_F(InterceptorsTest, ExceptionsAreReplacedAndStrangersAreUnknown) {
  server("B.send_exception") = [](PI::ServerRequestInfo_ptr info) {
    const CORBA::Any_var exception = info->sending_exception();
    EXPECT_EQ(info->reply_status(), PI::USER_EXCEPTION);
    throw CORBA::TRANSIENT(5, CORBA::COMPLETED_NO);
  };
  client("B.receive_exception") = [](PI::ClientRequestInfo_ptr info) {
    EXPECT_STREQ(String_var(info->received_exception_id()).in(), "IDL:omg.org/CORBA/TRANSIENT:1.0");
    const CORBA::Any_var any = info->received_exception();
    const CORBA::TRANSIENT* exception = nullptr;
    ASSERT_TRUE(any.in() >>= exception);
    EXPECT_EQ(exception->minor(), 5u);
    throw std::runtime_error("no exception of CORBA's");
  };
  client("A.receive_exception") = [](PI::ClientRequestInfo_ptr info) {
    EXPECT_EQ(info->reply_status(), PI::SYSTEM_EXCEPTION);
    EXPECT_STREQ(String_var(info->received_exception_id()).in(), "IDL:omg.org/CORBA/UNKNOWN:1.0");
  };
  for (const auto& [road, object] : roads())
    EXPECT_EQ(raised([&] { object->refuse("no", 1); }), "UNKNOWN 0 2") << road;
}

TEST_F(InterceptorsTest, ACallThatReachesNobodyEndsByAnException) {
  const Object_var dead = orb->string_to_object("corbaloc:iiop:127.0.0.1:1/nobody");
  const Demo::Echo_var nobody = Demo::Echo::_unchecked_narrow(dead);
  EXPECT_EQ(raised([&] { nobody->add(1, 2); }).substr(0, 9), "TRANSIENT");
  EXPECT_EQ(log(), both({"send_request", "-receive_exception"}));
  raised([&] { nobody->note("x"); });
  EXPECT_EQ(log(), both({"send_request", "-receive_exception"}));
  client("B.receive_exception") = [](PI::ClientRequestInfo_ptr) {
    throw CORBA::NO_RESPONSE(1, CORBA::COMPLETED_MAYBE);
  };
  EXPECT_EQ(raised([&] { nobody->add(1, 2); }), "NO_RESPONSE 1 2");
  client("B.receive_exception") = [&](PI::ClientRequestInfo_ptr) { throw PI::ForwardRequest(echo); };
  EXPECT_EQ(nobody->add(1, 2), 3);
}

TEST_F(InterceptorsTest, ACallThatIsLateEndsByAnException) {
  const Demo::Echo_var late = Demo::Echo::_unchecked_narrow(limited(far_echo(orb), 50));
  late->notes();
  log();
  EchoServant second;
  const Demo::Echo_var other = second._this();
  second.release.set_value();
  client("B.receive_exception") = [&](PI::ClientRequestInfo_ptr info) {
    EXPECT_STREQ(String_var(info->received_exception_id()).in(), "IDL:omg.org/CORBA/TIMEOUT:1.0");
    throw PI::ForwardRequest(other);
  };
  late->sleep_ms(0);
  EXPECT_EQ(second.calls, 1);
  EXPECT_EQ(
      log().find("A.send_request B.send_request A.contexts B.contexts A.receive_request B.receive_request "
                 "B.receive_exception A.receive_other A.send_request"),
      0u);
  servant->release.set_value();
  root->deactivate_object(PortableServer::ObjectId_var(root->servant_to_id(&second)));
}

// ---- Forwards -----------------------------------------------------------------------------------------------------

TEST_F(InterceptorsTest, EverySideForwards) {
  EchoServant second;
  const Demo::Echo_var other = second._this();
  orb->register_key("Other", other);
  const Object_var far_other = orb->string_to_object(far("Other").c_str());
  struct Row {
    const char* point;
    bool of_client;
    bool fails;  // the call that is forwarded
  };
  const Row rows[] = {{"B.send_request", true, false},
                      {"B.receive_exception", true, true},
                      {"A.contexts", false, false},
                      {"B.receive_request", false, false},
                      {"A.send_exception", false, true}};
  for (const Object_var& to : {Object_var(CORBA::Object::_duplicate(other)), far_other}) {
    for (const Row& row : rows) {
      // A new reference each time, as one that was forwarded goes there from then on.
      for (const auto& [road, object] : roads()) {
        SCOPED_TRACE(std::string(row.point) + " " + road);
        int others = 0;
        const auto forward = [&](auto*) {
          if (second.calls == 0 && others++ == 0) throw PI::ForwardRequest(to);
        };
        second.calls = 0;
        row.of_client ? void(client(row.point) = forward) : void(server(row.point) = forward);
        client("A.receive_other") = [&](PI::ClientRequestInfo_ptr info) {
          EXPECT_EQ(info->reply_status(), PI::LOCATION_FORWARD);
          const Object_var where = info->forward_reference();
          EXPECT_TRUE(where->_is_equivalent(to));
        };
        const Demo::Echo_var fresh = Demo::Echo::_unchecked_narrow(
            Object_var(orb->string_to_object(String_var(orb->object_to_string(object)).in())));
        if (row.fails) {
          EXPECT_EQ(raised([&] { fresh->refuse("no", 1); }), "Refused");
        } else {
          EXPECT_EQ(fresh->add(1, 2), 3);
        }
        EXPECT_EQ(second.calls, 1);
        EXPECT_NE(log().find("A.receive_other"), std::string::npos);
        own.client.clear(), own.server.clear();
      }
    }
  }
  root->deactivate_object(PortableServer::ObjectId_var(root->servant_to_id(&second)));
}

TEST_F(InterceptorsTest, ForwardsThatNeverEndAndThoseToNobody) {
  const Demo::Echo_var object = far_echo(orb);
  client("A.send_request") = [&](PI::ClientRequestInfo_ptr) { throw PI::ForwardRequest(echo); };
  EXPECT_EQ(raised([&] { object->add(1, 2); }).substr(0, 9), "TRANSIENT");
  client("A.send_request") = [&](PI::ClientRequestInfo_ptr) { throw PI::ForwardRequest(nullptr); };
  EXPECT_EQ(raised([&] { object->add(1, 2); }).substr(0, 10), "INV_OBJREF");
  own.client.clear();
  server("A.send_reply") = [&](PI::ServerRequestInfo_ptr) { throw PI::ForwardRequest(echo); };
  EXPECT_EQ(raised([&] { object->add(1, 2); }).substr(0, 7), "UNKNOWN") << "it has been carried out";
}

// ---- Slots --------------------------------------------------------------------------------------------------------

class SlotReader : public EchoServant {
 public:
  SlotReader(CORBA::ORB_ptr orb, PI::SlotId slot) : orb_(orb), slot_(slot) {}
  CORBA::Long notes() override { return get(); }
  CORBA::Long get() {
    const Object_var object = orb_->resolve_initial_references("PICurrent");
    const PI::Current_var current = PI::Current::_narrow(object);
    const CORBA::Any_var value = current->get_slot(slot_);
    CORBA::Long number = -1;
    value.in() >>= number;
    return number;
  }

 private:
  CORBA::ORB_ptr orb_;
  PI::SlotId slot_;
};

TEST_F(InterceptorsTest, SlotsGoWithTheRequest) {
  SlotReader reader(orb, slot());
  const Demo::Echo_var near = reader._this();
  orb->register_key("Reader", near);
  const Object_var by_key = orb->string_to_object(far("Reader").c_str());
  const Object_var object = orb->resolve_initial_references("PICurrent");
  const PI::Current_var current = PI::Current::_narrow(object);
  CORBA::Any mine;
  mine <<= CORBA::Long(41);
  current->set_slot(slot(), mine);
  EXPECT_THROW(current->get_slot(slot() + 1), PI::InvalidSlot);
  client("A.send_request") = [&](PI::ClientRequestInfo_ptr info) {
    const CORBA::Any_var value = info->get_slot(slot());
    CORBA::Long number = 0;
    ASSERT_TRUE(value.in() >>= number);
    info->add_request_service_context(context(0x54455354, std::string(static_cast<std::size_t>(number), 'x')),
                                      false);
  };
  server("B.contexts") = [&](PI::ServerRequestInfo_ptr info) {
    const IOP::ServiceContext_var found = info->get_request_service_context(0x54455354);
    CORBA::Any value;
    value <<= static_cast<CORBA::Long>(found->context_data.length() + 1);
    info->set_slot(slot(), value);
    EXPECT_THROW(info->set_slot(slot() + 1, value), PI::InvalidSlot);
  };
  for (const Demo::Echo_var& echo_of : {near, Demo::Echo_var(Demo::Echo::_unchecked_narrow(by_key))}) {
    EXPECT_EQ(echo_of->notes(), 42);
    EXPECT_EQ(reader.get(), 41) << "this thread's own is as it was";
  }
  root->deactivate_object(PortableServer::ObjectId_var(root->servant_to_id(&reader)));
}

// ---- ORBs ---------------------------------------------------------------------------------------------------------

TEST_F(InterceptorsTest, EachOrbHasItsOwn) {
  orb->register_key("Echo", echo);
  Plan other;
  other.names = "C";
  plan = &other;
  const CORBA::ORB_var second = make_orb({"-ORBid", "second", "mine"});
  plan = nullptr;
  EXPECT_EQ(other.orb_id, "second");
  EXPECT_EQ(other.arguments, (std::vector<std::string>{"test", "-ORBid", "second", "mine"}));
  EXPECT_THROW(other.info->orb_id(), CORBA::OBJECT_NOT_EXIST) << "that is over";
  const CORBA::ORB_var again = make_orb({}, "second");  // the same one: no initializer runs
  EXPECT_EQ(log() + other.log.take(), "");

  const Demo::Echo_var of_second = far_echo(second);
  of_second->add(1, 2);
  log(), other.log.take();
  EXPECT_EQ(of_second->add(1, 2), 3);
  EXPECT_EQ(other.log.take(), "C.send_request C.receive_reply");
  EXPECT_EQ(log(), both({"contexts", "receive_request", "-send_reply"}));
  second->destroy();
  EXPECT_EQ(other.log.take(), "") << "it was made twice";
  again->destroy();
  EXPECT_EQ(other.log.take(), "C.destroy C.destroy");
}

TEST_F(InterceptorsTest, InitializersMayFail) {
  Plan other;
  plan = &other;
  other.names = "CC";
  EXPECT_EQ(raised([&] { make_orb({}, "third"); }).substr(0, 10), "INITIALIZE") << "DuplicateName";
  other.names = "C";
  other.failing = "pre_init";
  EXPECT_EQ(raised([&] { make_orb({}, "third"); }), "NO_PERMISSION 3 1");
  plan = nullptr;
  const CORBA::ORB_var third = make_orb({}, "third");  // as if it had never been
  far_echo(third)->add(1, 2);
  EXPECT_EQ(other.log.take(), "");
  third->destroy();
  EXPECT_THROW(PI::register_orb_initializer(nullptr), CORBA::BAD_PARAM);
}

}  // namespace
