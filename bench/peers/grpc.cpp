// The blocking form, on both sides.
#include <grpcpp/grpcpp.h>

#include <stdexcept>

#include "peer.h"
#include "peers.grpc.pb.h"

namespace {

class Service : public peers_grpc::Echo::Service {
 public:
  grpc::Status Add(grpc::ServerContext*, const peers_grpc::Numbers* in, peers_grpc::Number* out) override {
    out->set_value(in->a() + in->b());
    return grpc::Status::OK;
  }
  grpc::Status Call(grpc::ServerContext*, const peers_grpc::Octets* in, peers_grpc::Octets* out) override {
    out->set_data(in->data());
    return grpc::Status::OK;
  }
};

/// Without an address, for calls within the process.
class GrpcServer : public peer::Server {
 public:
  explicit GrpcServer(const std::string& address) {
    grpc::ServerBuilder builder;
    if (!address.empty()) builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterService(&service_);
    server_ = builder.BuildAndStart();
    if (!server_) throw std::runtime_error("the server did not start");
  }
  bool activate(std::uint32_t) override { return false; }
  void run() override { server_->Wait(); }
  std::shared_ptr<grpc::Channel> channel() { return server_->InProcessChannel({}); }

 private:
  Service service_;
  std::unique_ptr<grpc::Server> server_;
};

std::string address(std::uint16_t port) { return "127.0.0.1:" + std::to_string(port); }

class GrpcObject : public peer::Object {
 public:
  explicit GrpcObject(const std::shared_ptr<grpc::Channel>& channel)
      : stub_(peers_grpc::Echo::NewStub(channel)) {}
  std::int32_t add(std::int32_t a, std::int32_t b) override {
    grpc::ClientContext context;
    peers_grpc::Numbers in;
    peers_grpc::Number out;
    in.set_a(a);
    in.set_b(b);
    check(stub_->Add(&context, in, &out));
    return out.value();
  }
  std::size_t echo(const std::string& data) override {
    grpc::ClientContext context;
    peers_grpc::Octets in, out;
    in.set_data(data);
    check(stub_->Call(&context, in, &out));
    return out.data().size();
  }

 private:
  static void check(const grpc::Status& status) {
    if (!status.ok()) throw std::runtime_error(status.error_message());
  }

  std::unique_ptr<peers_grpc::Echo::Stub> stub_;
};

class GrpcLink : public peer::Link {
 public:
  explicit GrpcLink(std::shared_ptr<grpc::Channel> channel) : channel_(std::move(channel)) {}
  std::unique_ptr<peer::Object> object(std::uint32_t) override {
    return std::make_unique<GrpcObject>(channel_);
  }

 private:
  std::shared_ptr<grpc::Channel> channel_;
};

class GrpcClient : public peer::Client {
 public:
  GrpcClient(std::uint16_t port, bool shared) : port_(port) {
    if (shared) shared_ = open();
  }
  std::unique_ptr<peer::Link> link() override {
    return std::make_unique<GrpcLink>(shared_ ? shared_ : open());
  }

 private:
  /// Channels to one address share a connection unless they are told not to.
  std::shared_ptr<grpc::Channel> open() const {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    return grpc::CreateCustomChannel(address(port_), grpc::InsecureChannelCredentials(), arguments);
  }

  std::uint16_t port_;
  std::shared_ptr<grpc::Channel> shared_;
};

/// With the server that it lives in.
class LocalObject : public peer::Object {
 public:
  std::int32_t add(std::int32_t a, std::int32_t b) override { return object_.add(a, b); }
  std::size_t echo(const std::string& data) override { return object_.echo(data); }

 private:
  GrpcServer server_{std::string()};
  GrpcObject object_{server_.channel()};
};

}  // namespace

namespace peer {

std::unique_ptr<Server> listen(std::uint16_t port) { return std::make_unique<GrpcServer>(address(port)); }
std::unique_ptr<Client> client(std::uint16_t port, bool shared) {
  return std::make_unique<GrpcClient>(port, shared);
}
std::unique_ptr<Object> local() { return std::make_unique<LocalObject>(); }

/// The preface of HTTP/2 and an empty frame of settings.
std::string greeting() {
  using namespace std::string_literals;
  return "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"s + "\0\0\0\4\0\0\0\0\0"s;
}

}  // namespace peer
