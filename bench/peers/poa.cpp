// This library. Every object is active in a POA with the default policies, and has a servant of its own.
#include <poa.h>

#include <optional>
#include <stdexcept>
#include <vector>

#include "peer.h"
#include "peers.h"

namespace {

class Servants;

class Servant : public POA_Peers::Bench {
 public:
  explicit Servant(Servants* all) : all_(all) {}
  CORBA::Long add(CORBA::Long a, CORBA::Long b) override { return a + b; }
  Peers::Octets* echo(const Peers::Octets& data) override { return new Peers::Octets(data); }
  Peers::Bench_ptr at(CORBA::ULong number) override;

 private:
  Servants* all_;
};

class Servants {
 public:
  PortableServer::POA_var poa;
  std::vector<std::unique_ptr<Servant>> all;

  void activate(std::uint32_t count) {
    all.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
      all.push_back(std::make_unique<Servant>(this));
      PortableServer::ObjectId_var(poa->activate_object(all.back().get()));
    }
  }
  Peers::Bench_ptr reference(std::uint32_t number) const {
    const CORBA::Object_var object = poa->servant_to_reference(all.at(number).get());
    return Peers::Bench::_narrow(object);
  }
};

Peers::Bench_ptr Servant::at(CORBA::ULong number) { return all_->reference(number); }

CORBA::ORB_ptr start(std::vector<std::string> options) {
  options.insert(options.begin(), "peer");
  std::vector<char*> argv;
  for (std::string& option : options) argv.push_back(option.data());
  argv.push_back(nullptr);
  int argc = static_cast<int>(options.size());
  return CORBA::ORB_init(argc, argv.data());
}

/// An ORB whose root POA serves, and a POA of it for the objects.
class PoaServer : public peer::Server {
 public:
  explicit PoaServer(const std::vector<std::string>& options) : orb_(start(options)) {
    const CORBA::Object_var object = orb_->resolve_initial_references("RootPOA");
    const PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    PortableServer::POAManager_var(root->the_POAManager())->activate();
    servants_.poa = root->create_POA("objects", PortableServer::POAManager::_nil(), CORBA::PolicyList());
    PortableServer::POAManager_var(servants_.poa->the_POAManager())->activate();
  }
  bool activate(std::uint32_t count) override { return servants_.activate(count), true; }
  void run() override {
    const Peers::Bench_var first = servants_.reference(0);
    orb_->register_key("Bench", first);
    orb_->run();
  }
  Peers::Bench_ptr first() const { return servants_.reference(0); }

 private:
  CORBA::ORB_var orb_;
  Servants servants_;
};

class PoaObject : public peer::Object {
 public:
  explicit PoaObject(Peers::Bench_ptr echo) : echo_(echo) {}
  std::int32_t add(std::int32_t a, std::int32_t b) override { return echo_->add(a, b); }
  std::size_t echo(const std::string& data) override {
    auto* octets = reinterpret_cast<CORBA::Octet*>(const_cast<char*>(data.data()));
    const auto length = static_cast<CORBA::ULong>(data.size());
    const Peers::Octets lent(length, length, octets, false);
    const Peers::Octets_var echoed = echo_->echo(lent);
    return echoed->length();
  }

 private:
  Peers::Bench_var echo_;
};

class PoaLink : public peer::Link {
 public:
  explicit PoaLink(CORBA::ORB_ptr orb, const std::string& url)
      : first_([&] {
          const CORBA::Object_var object = orb->string_to_object(url.c_str());
          return Peers::Bench::_narrow(object);
        }()) {}
  std::unique_ptr<peer::Object> object(std::uint32_t number) override {
    return std::make_unique<PoaObject>(first_->at(number));
  }

 private:
  Peers::Bench_var first_;
};

/// All links have the one reference that each object got first.
class SharedLink : public peer::Link {
 public:
  explicit SharedLink(Peers::Bench_ptr echo) : echo_(echo) {}
  std::unique_ptr<peer::Object> object(std::uint32_t) override {
    return std::make_unique<PoaObject>(Peers::Bench::_duplicate(echo_));
  }

 private:
  Peers::Bench_ptr echo_;
};

class PoaClient : public peer::Client {
 public:
  PoaClient(std::uint16_t port, bool shared)
      : orb_(start(shared ? std::vector<std::string>{}
                          : std::vector<std::string>{"-ORBClientConnections", "64"})),
        url_("corbaloc:iiop:1.2@127.0.0.1:" + std::to_string(port) + "/Bench") {
    if (!shared) return;
    const CORBA::Object_var object = orb_->string_to_object(url_.c_str());
    const Peers::Bench_var first = Peers::Bench::_narrow(object);
    shared_ = first->at(0);
  }
  std::unique_ptr<peer::Link> link() override {
    if (!CORBA::is_nil(shared_)) return std::make_unique<SharedLink>(shared_.in());
    return std::make_unique<PoaLink>(orb_.in(), url_);
  }

 private:
  CORBA::ORB_var orb_;
  std::string url_;
  Peers::Bench_var shared_;
};

}  // namespace

namespace peer {

std::unique_ptr<Server> listen(std::uint16_t port) {
  return std::make_unique<PoaServer>(
      std::vector<std::string>{"-ORBListen", "127.0.0.1:" + std::to_string(port)});
}

std::unique_ptr<Client> client(std::uint16_t port, bool shared) {
  return std::make_unique<PoaClient>(port, shared);
}

std::unique_ptr<Object> local() {
  static std::optional<PoaServer> server;
  server.emplace(std::vector<std::string>{});
  server->activate(1);
  return std::make_unique<PoaObject>(server->first());
}

/// A locate request of GIOP 1.2 for an object that is not there.
std::string greeting() {
  using namespace std::string_literals;
  return "GIOP\1\2\1\3\20\0\0\0"s
         "\1\0\0\0"s       // request id
         "\0\0\0\0"s       // addressed by a key
         "\4\0\0\0none"s;  // the key
}

}  // namespace peer
