// Framed: a buffered transport reads long messages 512 octets at a time.
#include <thrift/async/TConcurrentClientSyncInfo.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <limits>

#include "Echo.h"
#include "peer.h"

namespace {

using namespace apache::thrift;
using protocol::TBinaryProtocol;
using transport::TMemoryBuffer;

class Handler : public peers_thrift::EchoIf {
 public:
  std::int32_t add(std::int32_t a, std::int32_t b) override { return a + b; }
  void echo(std::string& result, const std::string& data) override { result = data; }
};

std::shared_ptr<peers_thrift::EchoProcessor> processor() {
  return std::make_shared<peers_thrift::EchoProcessor>(std::make_shared<Handler>());
}

/// A framed transport takes so many octets of one connection, and ends it then: more than one turn moves.
std::shared_ptr<TConfiguration> limits() {
  constexpr int most = std::numeric_limits<int>::max();
  return std::make_shared<TConfiguration>(most, most);
}

class Frames : public transport::TTransportFactory {
 public:
  std::shared_ptr<transport::TTransport> getTransport(
      std::shared_ptr<transport::TTransport> socket) override {
    return std::make_shared<transport::TFramedTransport>(socket, limits());
  }
};

class ThriftServer : public peer::Server {
 public:
  explicit ThriftServer(std::uint16_t port)
      : server_(processor(), std::make_shared<transport::TServerSocket>("127.0.0.1", port),
                std::make_shared<Frames>(), std::make_shared<protocol::TBinaryProtocolFactory>()) {}
  bool activate(std::uint32_t) override { return false; }
  void run() override { server_.serve(); }

 private:
  server::TThreadedServer server_;
};

std::shared_ptr<TBinaryProtocol> open(std::uint16_t port) {
  auto framed =
      std::make_shared<transport::TFramedTransport>(std::make_shared<transport::TSocket>("127.0.0.1", port));
  framed->open();
  return std::make_shared<TBinaryProtocol>(framed);
}

/// Of a client of its own, or of one that threads share.
template <class EchoClient>
class ThriftObject : public peer::Object {
 public:
  explicit ThriftObject(std::shared_ptr<EchoClient> client) : client_(std::move(client)) {}
  std::int32_t add(std::int32_t a, std::int32_t b) override { return client_->add(a, b); }
  std::size_t echo(const std::string& data) override {
    client_->echo(answer_, data);
    return answer_.size();
  }

 private:
  std::shared_ptr<EchoClient> client_;
  std::string answer_;
};

template <class EchoClient>
class ThriftLink : public peer::Link {
 public:
  explicit ThriftLink(std::shared_ptr<EchoClient> client) : client_(std::move(client)) {}
  std::unique_ptr<peer::Object> object(std::uint32_t) override {
    return std::make_unique<ThriftObject<EchoClient>>(client_);
  }

 private:
  std::shared_ptr<EchoClient> client_;
};

class OwnClient : public peer::Client {
 public:
  explicit OwnClient(std::uint16_t port) : port_(port) {}
  std::unique_ptr<peer::Link> link() override {
    return std::make_unique<ThriftLink<peers_thrift::EchoClient>>(
        std::make_shared<peers_thrift::EchoClient>(open(port_)));
  }

 private:
  std::uint16_t port_;
};

class SharedClient : public peer::Client {
 public:
  explicit SharedClient(std::uint16_t port)
      : client_(std::make_shared<peers_thrift::EchoConcurrentClient>(
            open(port), std::make_shared<async::TConcurrentClientSyncInfo>())) {}
  std::unique_ptr<peer::Link> link() override {
    return std::make_unique<ThriftLink<peers_thrift::EchoConcurrentClient>>(client_);
  }

 private:
  std::shared_ptr<peers_thrift::EchoConcurrentClient> client_;
};

/// A call that is written to memory, handled from there, and its answer read from memory: the whole road but the socket.
class LocalObject : public peer::Object {
 public:
  std::int32_t add(std::int32_t a, std::int32_t b) override {
    forget();
    client_.send_add(a, b);
    handle();
    return client_.recv_add();
  }
  std::size_t echo(const std::string& data) override {
    forget();
    client_.send_echo(data);
    handle();
    client_.recv_echo(answer_);
    return answer_.size();
  }

 private:
  void handle() { processor_->process(on_request_, on_reply_, nullptr); }
  void forget() {
    request_->resetBuffer();
    reply_->resetBuffer();
  }

  std::shared_ptr<TMemoryBuffer> request_ = std::make_shared<TMemoryBuffer>();
  std::shared_ptr<TMemoryBuffer> reply_ = std::make_shared<TMemoryBuffer>();
  std::shared_ptr<TBinaryProtocol> on_request_ = std::make_shared<TBinaryProtocol>(request_);
  std::shared_ptr<TBinaryProtocol> on_reply_ = std::make_shared<TBinaryProtocol>(reply_);
  std::shared_ptr<TProcessor> processor_ = processor();
  peers_thrift::EchoClient client_{on_reply_, on_request_};
  std::string answer_;
};

}  // namespace

namespace peer {

std::unique_ptr<Server> listen(std::uint16_t port) { return std::make_unique<ThriftServer>(port); }
std::unique_ptr<Client> client(std::uint16_t port, bool shared) {
  if (shared) return std::make_unique<SharedClient>(port);
  return std::make_unique<OwnClient>(port);
}
std::unique_ptr<Object> local() { return std::make_unique<LocalObject>(); }

/// A frame with a call of `add` without its arguments.
std::string greeting() { return {"\0\0\0\x10\x80\1\0\1\0\0\0\3add\0\0\0\0\0", 20}; }

}  // namespace peer
