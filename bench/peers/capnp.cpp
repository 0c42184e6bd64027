// Objects are capabilities. A link is bound to its thread's event loop, so threads cannot share one. Destructors say
// noexcept because those of members do not.
#include <capnp/ez-rpc.h>
#include <capnp/message.h>
#include <capnp/rpc.capnp.h>
#include <capnp/serialize.h>

#include <stdexcept>
#include <vector>

#include "peer.h"
#include "peers.capnp.h"

namespace {

using peers_capnp::Echo;

class Servant : public Echo::Server {
 public:
  explicit Servant(std::vector<Echo::Client>* all) : all_(all) {}

  kj::Promise<void> add(AddContext call) override {
    call.getResults().setSum(call.getParams().getA() + call.getParams().getB());
    return kj::READY_NOW;
  }
  kj::Promise<void> echo(EchoContext call) override {
    const capnp::Data::Reader data = call.getParams().getData();
    call.getResults(capnp::MessageSize{data.size() / sizeof(capnp::word) + 16, 0}).setData(data);
    return kj::READY_NOW;
  }
  kj::Promise<void> at(AtContext call) override {
    call.getResults().setObject(all_->at(call.getParams().getNumber()));
    return kj::READY_NOW;
  }

 private:
  std::vector<Echo::Client>* all_;
};

/// The first object a client gets; it leads to the others.
class CapnpServer : public peer::Server {
 public:
  ~CapnpServer() noexcept override {}
  explicit CapnpServer(std::uint16_t port) : server_(kj::heap<Servant>(&all_), "127.0.0.1", port) {
    server_.getPort().wait(server_.getWaitScope());
  }
  bool activate(std::uint32_t count) override {
    all_.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) all_.push_back(kj::heap<Servant>(&all_));
    return true;
  }
  void run() override { kj::NEVER_DONE.wait(server_.getWaitScope()); }

 private:
  std::vector<Echo::Client> all_;
  capnp::EzRpcServer server_;
};

class CapnpObject : public peer::Object {
 public:
  ~CapnpObject() noexcept override {}
  CapnpObject(Echo::Client client, kj::WaitScope& scope) : client_(kj::mv(client)), scope_(scope) {}
  std::int32_t add(std::int32_t a, std::int32_t b) override {
    auto request = client_.addRequest();
    request.setA(a);
    request.setB(b);
    return request.send().wait(scope_).getSum();
  }
  std::size_t echo(const std::string& data) override {
    auto request = client_.echoRequest(capnp::MessageSize{data.size() / sizeof(capnp::word) + 16, 0});
    request.setData({reinterpret_cast<const kj::byte*>(data.data()), data.size()});
    return request.send().wait(scope_).getData().size();
  }

 private:
  Echo::Client client_;
  kj::WaitScope& scope_;
};

class CapnpLink : public peer::Link {
 public:
  ~CapnpLink() noexcept override {}
  explicit CapnpLink(std::uint16_t port) : rpc_("127.0.0.1", port), first_(rpc_.getMain<Echo>()) {}
  std::unique_ptr<peer::Object> object(std::uint32_t number) override {
    auto request = first_.atRequest();
    request.setNumber(number);
    kj::WaitScope& scope = rpc_.getWaitScope();
    return std::make_unique<CapnpObject>(request.send().wait(scope).getObject(), scope);
  }

 private:
  capnp::EzRpcClient rpc_;
  Echo::Client first_;
};

class CapnpClient : public peer::Client {
 public:
  explicit CapnpClient(std::uint16_t port) : port_(port) {}
  std::unique_ptr<peer::Link> link() override { return std::make_unique<CapnpLink>(port_); }

 private:
  std::uint16_t port_;
};

/// A capability of this process, with a loop of its own.
class LocalObject : public peer::Object {
 public:
  ~LocalObject() noexcept override {}
  std::int32_t add(std::int32_t a, std::int32_t b) override { return object_.add(a, b); }
  std::size_t echo(const std::string& data) override { return object_.echo(data); }

 private:
  std::vector<Echo::Client> none_;
  kj::EventLoop loop_;
  kj::WaitScope scope_{loop_};
  CapnpObject object_{kj::heap<Servant>(&none_), scope_};
};

}  // namespace

namespace peer {

std::unique_ptr<Server> listen(std::uint16_t port) { return std::make_unique<CapnpServer>(port); }
std::unique_ptr<Client> client(std::uint16_t port, bool shared) {
  return shared ? nullptr : std::make_unique<CapnpClient>(port);
}
std::unique_ptr<Object> local() { return std::make_unique<LocalObject>(); }

/// The message that asks for the first object.
std::string greeting() {
  capnp::MallocMessageBuilder message;
  message.initRoot<capnp::rpc::Message>().initBootstrap().setQuestionId(0);
  const kj::Array<capnp::word> words = capnp::messageToFlatArray(message);
  return {reinterpret_cast<const char*>(words.begin()), words.asBytes().size()};
}

}  // namespace peer
