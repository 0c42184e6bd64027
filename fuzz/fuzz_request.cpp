// Requests to an object of this process, through the whole road and back: stub side, sockets or not, object
// key, adapter, skeleton, reply. The first octet of the input chooses the operation, the GIOP version, the
// road and whether the key is damaged; the rest is the body, or the damage.
#include <cstdlib>
#include <iterator>
#include <string>
#include <thread>

#include "plain_servant.h"

namespace {

/// "corbaloc:iiop:1.2@127.0.0.1:PORT/KEY" of an object that is served for as long as the process lives.
const std::string& served() {
  static const std::string url = [] {
    int argc = 1;
    char name[] = "fuzz_request";
    char* argv[] = {name, nullptr};
    const CORBA::ORB_ptr orb = CORBA::ORB_init(argc, argv);
    const CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    const PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    const PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    static bench::Servant servant;
    const CORBA::Object_var echo = servant._this();
    std::thread([orb] { orb->run(); }).detach();
    CORBA_Environment ev{};
    const CORBA::String_var text(ZR_object_to_corbaloc(nullptr, echo->get_ref(), &ev));
    return std::string(text.in());
  }();
  return url;
}

struct Choice {
  const char* operation;
  char minor;    // '0' to '2'
  bool socket;   // under another spelling of the address, which the ORB does not know for its own
  bool damaged;  // the key

  explicit Choice(unsigned octet)
      : operation(operations[octet % 16 % std::size(operations)]),
        minor(static_cast<char>('0' + octet / 16 % 3)),
        socket((octet & 64) != 0),
        damaged((octet & 128) != 0) {}

 private:
  static constexpr const char* operations[] = {"echo_string", "add",     "echo_octets",   "refuse",
                                               "note",        "notes",   "_is_a",         "who",
                                               "sleep_ms",    "no_such", "_non_existent", "_get_interface"};
};

/// Pairs of octets: which character of the key, and which octet it becomes.
std::string damaged_key(std::string key, const std::string& pairs) {
  constexpr char digits[] = "0123456789ABCDEF";
  for (std::size_t i = 0; i + 1 < pairs.size() && i < 16; i += 2) {
    const auto octet = static_cast<unsigned char>(pairs[i + 1]);
    const char escaped[] = {'%', digits[octet / 16], digits[octet % 16]};
    key.replace(static_cast<unsigned char>(pairs[i]) % key.size(), 1, escaped, sizeof escaped);
  }
  return key;
}

std::string address(const Choice& choice, const std::string& pairs) {
  std::string url = served();
  const std::size_t slash = url.find('/');
  if (choice.damaged) url = url.substr(0, slash + 1) + damaged_key(url.substr(slash + 1), pairs);
  if (choice.socket) url.replace(url.find("127.0.0.1"), 9, "127.1");
  url[url.find('@') - 1] = choice.minor;
  return url;
}

void call(void* object, const Choice& choice, std::string& body) {
  void* request = nullptr;
  uint32_t kind = 0, status = 0;
  CDR* cdr = nullptr;
  if (!OM_req_lib_initiator_request_create(object, choice.operation, 1, &request, &kind)) return;
  OM_req_lib_UNO_IIOP_get_cdr(request, &cdr);
  cdr->direction = CDR_ENCODE;
  cdr_bytes(cdr, reinterpret_cast<unsigned char*>(body.data()), static_cast<uint32_t>(body.size()));
  if (OM_req_lib_UNO_IIOP_send_request(request) && OM_req_lib_UNO_IIOP_recv_reply(request)) {
    if (!OM_req_lib_UNO_IIOP_decode_reply_header(request, &status)) std::abort();
  }
  OM_req_lib_UNO_IIOP_initiator_request_complete(request);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t count) {
  if (count == 0) return 0;
  const Choice choice(octets[0]);
  std::string rest(reinterpret_cast<const char*>(octets) + 1, count - 1);
  CORBA_Environment ev{};
  void* object = CORBA_ORB_string_to_object(nullptr, address(choice, rest).c_str(), &ev);
  CORBA_exception_free(&ev);
  if (!object) return 0;
  if (choice.damaged) rest.clear();
  call(object, choice, rest);
  CORBA_object_release(object);
  return 0;
}
