// Servants that give back a part of their argument: it goes out from the request that it came in.
#include <cstring>
#include <vector>

#include "server.h"

namespace {

/// Answers what stands behind the first octets.
class ViewServant : public EchoServant {
 public:
  static constexpr CORBA::ULong left_out = 5;
  Demo::Octets* echo_octets(const Demo::Octets& d) override {
    const CORBA::ULong length = d.length() - left_out;
    return new Demo::Octets(length, length, const_cast<CORBA::Octet*>(d.get_buffer()) + left_out, false);
  }
};

Demo::Octets pattern(CORBA::ULong length, CORBA::ULong seed) {
  Demo::Octets octets;
  octets.length(length);
  for (CORBA::ULong i = 0; i < length; ++i)
    octets.get_buffer()[i] = static_cast<CORBA::Octet>((seed + i) * 131 >> 3);
  return octets;
}

/// One after the other over one connection, which holds less than their results.
class Views : public StandardTest {
 protected:
  Views() : StandardTest({"-ORBClientConnections", "1"}) {
    PortableServer::ObjectId_var(root->activate_object(&viewing));
    const CORBA::Object_var object = root->servant_to_reference(&viewing);
    here = Demo::Echo::_narrow(object);
    orb->register_key("Views", object);
    there = Demo::Echo::_narrow(CORBA::Object_var(orb->string_to_object(far("Views").c_str())));
  }
  ~Views() override { root->deactivate_object(PortableServer::ObjectId_var(root->servant_to_id(&viewing))); }
  ViewServant viewing;
  Demo::Echo_var here, there;
};

TEST_F(Views, OfALargeArgumentAreTheResult) {
  const CORBA::ULong lengths[] = {100, 65'536 + ViewServant::left_out, 65'600, 100'003, 1'000'000};
  const auto ask = [&](Demo::Echo_ptr object, CORBA::ULong length, CORBA::ULong seed) {
    const Demo::Octets sent = pattern(length, seed);
    const Demo::Octets_var back = object->echo_octets(sent);
    const CORBA::ULong wanted = length - ViewServant::left_out;
    EXPECT_TRUE(back->length() == wanted &&
                std::memcmp(back->get_buffer(), sent.get_buffer() + ViewServant::left_out, wanted) == 0)
        << length << " " << seed;
  };
  std::vector<std::jthread> clients;
  for (CORBA::ULong client = 0; client < 4; ++client)
    clients.emplace_back([&, client] {
      for (const CORBA::ULong length : lengths)
        for (Demo::Echo_ptr object : {here.in(), there.in()}) ask(object, length, client);
    });
}

}  // namespace
