// A client with every kind of call, against one server: within the process, over a socket, by a server that forwards, and
// seen by interceptors.

#include <corba/portable_interceptor.h>

#include <map>

#include "calls_server.h"

namespace {

using Calls::Target_ptr;

/// Sends whoever asks it to `to`.
class Forwarding : public virtual POA_PortableServer::ServantLocator {
 public:
  explicit Forwarding(CORBA::Object_ptr to) : to_(to) {}
  PortableServer::Servant preinvoke(const PortableServer::ObjectId&, PortableServer::POA_ptr, const char*,
                                    void*&) override {
    ++asked;
    throw PortableServer::ForwardRequest(to_);
  }
  void postinvoke(const PortableServer::ObjectId&, PortableServer::POA_ptr, const char*, void*,
                  PortableServer::Servant) override {}

  std::atomic<int> asked{0};

 private:
  CORBA::Object_ptr to_;
};

/// A call of `divide` by 5, or of `wait`, and the end of either as text.
struct Kind {
  const char* name;
  bool runs_here;  // an object of the process: on the calling thread, which cannot be called off
  std::string (*divides)(Target_ptr object, CORBA::Long dividend, Handler& handler,
                         Calls::AMI_TargetHandler_ptr hears);
  void (*waits)(Target_ptr object, Handler& handler, Calls::AMI_TargetHandler_ptr hears);
};

std::string text(CORBA::Long dividend, CORBA::Long remainder) {
  return std::to_string(dividend) + " " + std::to_string(remainder);
}

CORBA::Request_var request_to_divide(Target_ptr object, CORBA::Long dividend) {
  CORBA::Request_var request = object->_request("divide");
  request->add_inout_arg("dividend") <<= dividend;
  request->add_in_arg("divisor") <<= CORBA::Long(5);
  request->add_out_arg("remainder").replace(CORBA::_tc_long, nullptr);
  return request;
}
std::string results_of(CORBA::Request_ptr request) {
  CORBA::Long dividend = 0, remainder = 0;
  *request->arguments()->item(0)->value() >>= dividend;
  *request->arguments()->item(2)->value() >>= remainder;
  return text(dividend, remainder);
}

const Kind kinds[] = {
    {"plain", true,
     [](Target_ptr object, CORBA::Long dividend, Handler&, Calls::AMI_TargetHandler_ptr) {
       CORBA::Long remainder = 0;
       object->divide(dividend, 5, remainder);
       return text(dividend, remainder);
     },
     [](Target_ptr object, Handler&, Calls::AMI_TargetHandler_ptr) { object->wait(); }},
    {"dynamic", true,
     [](Target_ptr object, CORBA::Long dividend, Handler&, Calls::AMI_TargetHandler_ptr) {
       const CORBA::Request_var request = request_to_divide(object, dividend);
       request->invoke();
       return results_of(request);
     },
     [](Target_ptr object, Handler&, Calls::AMI_TargetHandler_ptr) {
       CORBA::Request_var(object->_request("wait"))->invoke();
     }},
    {"deferred", false,
     [](Target_ptr object, CORBA::Long dividend, Handler&, Calls::AMI_TargetHandler_ptr) {
       const CORBA::Request_var request = request_to_divide(object, dividend);
       request->send_deferred();
       request->get_response();
       return results_of(request);
     },
     [](Target_ptr object, Handler&, Calls::AMI_TargetHandler_ptr) {
       const CORBA::Request_var request = object->_request("wait");
       request->send_deferred();
       request->get_response();
     }},
    {"asynchronous with a handler", false,
     [](Target_ptr object, CORBA::Long dividend, Handler& handler, Calls::AMI_TargetHandler_ptr hears) {
       object->sendc_divide(hears, dividend, 5);
       return handler.heard();
     },
     [](Target_ptr object, Handler& handler, Calls::AMI_TargetHandler_ptr hears) {
       object->sendc_wait(hears);
       if (handler.heard() == "TIMEOUT 1") throw CORBA::TIMEOUT();
     }},
    {"asynchronous with a future", false,
     [](Target_ptr object, CORBA::Long dividend, Handler&, Calls::AMI_TargetHandler_ptr) {
       const auto [quotient, remainder] = object->async_divide(dividend, 5).get();
       return text(quotient, remainder);
     },
     [](Target_ptr object, Handler&, Calls::AMI_TargetHandler_ptr) { object->async_wait().get(); }},
};

class EveryKindOfCall : public CallsTest {
 protected:
  EveryKindOfCall() {
    poa_ = make_poa("forwarding", PortableServer::NON_RETAIN, PortableServer::USE_SERVANT_MANAGER);
    const PortableServer::ServantLocator_var locator = forwarding._this();
    poa_->set_servant_manager(locator);
  }
  ~EveryKindOfCall() override { poa_->destroy(true, true); }

  /// An object that is elsewhere, as a client sees it that knows nothing of that yet.
  Calls::Target_var forwarded() {
    const CORBA::Object_var object = poa_->create_reference(Calls::Target::repository_id);
    orb->register_key("Forwarded", object);
    const CORBA::Object_var far_object = orb->string_to_object(far("Forwarded").c_str());
    return Calls::Target::_unchecked_narrow(far_object);
  }

  Forwarding forwarding{there};

 private:
  PortableServer::POA_var poa_;
};

/// The roads to the one server.
struct Road {
  const char* name;
  Calls::Target_var object;
};

TEST_F(EveryKindOfCall, GivesTheSame) {
  for (const Kind& kind : kinds) {
    const Road roads[] = {{"within the process", here}, {"over a socket", there}, {"forwarded", forwarded()}};
    for (const Road& road : roads) {
      SCOPED_TRACE(std::string(kind.name) + ", " + road.name);
      const auto divided = [&](CORBA::Long dividend) {
        return kind.divides(road.object, dividend, *handler, hears);
      };
      EXPECT_EQ(divided(17), "3 2");
      EXPECT_EQ(divided(26), "5 1") << "once more";
    }
  }
  EXPECT_EQ(forwarding.asked, static_cast<int>(std::size(kinds))) << "once a reference: it remembers";
}

TEST_F(EveryKindOfCall, KeepsTheTimeLimitOfItsReference) {
  for (const Target_ptr object : {here.in(), there.in()}) {
    const Calls::Target_var quick = Calls::Target::_unchecked_narrow(limited(object, 40));
    for (const Kind& kind : kinds) {
      if (object == here.in() && kind.runs_here) continue;
      EXPECT_THROW(kind.waits(quick, *handler, hears), CORBA::TIMEOUT) << kind.name;
    }
  }
  target->release.set_value();
}

TEST_F(EveryKindOfCall, ReachesOnewaysToo) {
  const Calls::Target_var object = forwarded();
  object->add(1, 2);  // a oneway is not forwarded itself: it has no answer
  object->note("plain");
  EXPECT_EQ(target->noted.get_future().get(), "plain");
  target->noted = std::promise<std::string>();
  const CORBA::Request_var request = object->_request("note");
  request->add_in_arg() <<= "dynamic";
  request->send_oneway();
  EXPECT_EQ(target->noted.get_future().get(), "dynamic");
}

// ---- Interceptors -----------------------------------------------------------------------------------------------

namespace PI = PortableInterceptor;

constexpr IOP::ServiceId mark = 0x54455356;

/// What a server's interceptor read of what a client's wrote: which operations were called, and how the client's ended.
struct Seen {
  void add(const std::string& line) {
    const std::lock_guard lock(mutex);
    ++counts[line];
  }
  std::map<std::string, int> take() {
    const std::lock_guard lock(mutex);
    return std::exchange(counts, {});
  }

  std::mutex mutex;
  std::map<std::string, int> counts;
};
std::atomic<Seen*> seen = nullptr;

class Writer : public virtual PI::ClientRequestInterceptor {
  char* name() override { return CORBA::string_dup("writer"); }
  void destroy() override {}
  void send_request(PI::ClientRequestInfo_ptr info) override {
    const CORBA::String_var operation = info->operation();
    IOP::ServiceContext context;
    context.context_id = mark;
    context.context_data.length(static_cast<CORBA::ULong>(std::strlen(operation)));
    std::memcpy(context.context_data.get_buffer(), operation.in(), context.context_data.length());
    info->add_request_service_context(context, false);
  }
  void send_poll(PI::ClientRequestInfo_ptr) override {}
  void receive_reply(PI::ClientRequestInfo_ptr) override { seen.load()->add("reply"); }
  void receive_exception(PI::ClientRequestInfo_ptr info) override {
    seen.load()->add(CORBA::String_var(info->received_exception_id()).in());
  }
  void receive_other(PI::ClientRequestInfo_ptr) override {}
};

class Reader : public virtual PI::ServerRequestInterceptor {
  char* name() override { return CORBA::string_dup("reader"); }
  void destroy() override {}
  void receive_request_service_contexts(PI::ServerRequestInfo_ptr info) override {
    const IOP::ServiceContext_var context = info->get_request_service_context(mark);
    const CORBA::OctetSeq& data = context->context_data;
    seen.load()->add(std::string(reinterpret_cast<const char*>(data.get_buffer()), data.length()));
  }
  void receive_request(PI::ServerRequestInfo_ptr) override {}
  void send_reply(PI::ServerRequestInfo_ptr) override {}
  void send_exception(PI::ServerRequestInfo_ptr) override {}
  void send_other(PI::ServerRequestInfo_ptr) override {}
};

/// Lets the ORBs that are made while there is a Seen have both.
class Initializer : public PI::ORBInitializer {
  void pre_init(PI::ORBInitInfo_ptr) override {}
  void post_init(PI::ORBInitInfo_ptr info) override {
    if (!seen.load()) return;
    const PI::ClientRequestInterceptor_var writer = new Writer;
    const PI::ServerRequestInterceptor_var reader = new Reader;
    info->add_client_request_interceptor(writer);
    info->add_server_request_interceptor(reader);
  }
};

struct Watched {
  Watched() {
    [[maybe_unused]] static const bool registered = [] {
      const PI::ORBInitializer_var initializer = new Initializer;
      PI::register_orb_initializer(initializer);
      return true;
    }();
    seen = &own;
  }
  ~Watched() { seen = nullptr; }
  Seen own;
};

class InterceptedCalls : protected Watched, public CallsTest {};

TEST_F(InterceptedCalls, CarryWhatInterceptorsWrite) {
  for (const Target_ptr object : {here.in(), there.in()}) {
    for (const Kind& kind : kinds) {
      SCOPED_TRACE(std::string(kind.name) +
                   (object == here.in() ? ", within the process" : ", over a socket"));
      own.take();
      EXPECT_EQ(kind.divides(object, 17, *handler, hears), "3 2");
      const std::map<std::string, int> counts = own.take();
      const auto count = [&](const char* line) { return counts.contains(line) ? counts.at(line) : 0; };
      EXPECT_EQ(count("divide"), kind.name == std::string("asynchronous with a handler") ? 2 : 1)
          << "the handler is called by a request, too";
      EXPECT_EQ(count("reply"), 1);
    }
  }
}

TEST_F(InterceptedCalls, TellThemWhatFailed) {
  const CORBA::Object_var nobody = orb->string_to_object("corbaloc:iiop:127.0.0.1:1/nobody");
  const Calls::Target_var gone = Calls::Target::_unchecked_narrow(nobody);
  for (const Kind& kind : kinds) {
    own.take();
    EXPECT_THROW(kind.divides(gone, 17, *handler, hears), CORBA::TRANSIENT) << kind.name;
    EXPECT_EQ(own.take()["IDL:omg.org/CORBA/TRANSIENT:1.0"], 1) << kind.name;
  }
}

}  // namespace
