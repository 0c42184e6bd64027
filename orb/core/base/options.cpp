#include "base/options.h"

#include <arpa/inet.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "base/endpoint.h"

namespace zrsv {
namespace {

using Member = uint32_t Options::*;
constexpr uint32_t any_number = UINT32_MAX;

template <Member member, uint32_t least, uint32_t most>
bool number(std::string_view text, Options* to) {
  const std::optional<uint32_t> value = parse_number(text, least, most);
  if (value) to->*member = *value;
  return value.has_value();
}

/// A number that may be 0, which means something else than "very few".
template <Member member, uint32_t least, uint32_t most>
bool number_or_zero(std::string_view text, Options* to) {
  return number<member, 0, 0>(text, to) || number<member, least, most>(text, to);
}

template <bool Options::*member>
bool flag(std::string_view text, Options* to) {
  to->*member = text == "1";
  return text == "0" || text == "1";
}

bool listen(std::string_view text, Options* to) {
  const std::optional<Endpoint> endpoint = parse_endpoint(text, std::nullopt);
  if (endpoint) to->listen.push_back(*endpoint);
  return endpoint.has_value();
}

/// An address to listen at, which leads nobody anywhere.
bool is_wildcard(const std::string& host) {
  unsigned char octets[16] = {};
  return (::inet_pton(AF_INET, host.c_str(), octets) == 1 ||
          ::inet_pton(AF_INET6, host.c_str(), octets) == 1) &&
         std::all_of(std::begin(octets), std::end(octets), [](unsigned char octet) { return octet == 0; });
}

bool publish(std::string_view text, Options* to) {
  const std::optional<Endpoint> endpoint = parse_endpoint(text, uint16_t{0});
  if (!endpoint || is_wildcard(endpoint->host)) return false;
  to->publish.push_back(*endpoint);
  return true;
}

bool giop_version(std::string_view text, Options* to) {
  return text.starts_with("1.") && number<&Options::giop_minor, 0, 2>(text.substr(2), to);
}

template <std::string Options::*member>
bool file(std::string_view text, Options* to) {
  to->*member = text;
  return !text.empty();
}

struct Row {
  std::string_view name;
  bool (*parse)(std::string_view, Options*);
  std::string_view help;
};

// The rows that docs/orb.md describes at length.
constexpr Row rows[] = {
    {"-ORBListen", listen, "HOST:PORT: an end point to accept connections at; port 0 takes any; repeatable"},
    {"-ORBPublish", publish, "HOST[:PORT], no wildcard: an end point to write into references; repeatable"},
    {"-ORBThreads", number<&Options::threads, 0, 4096>, "0 to 4096: requests run at once; 0 chooses"},
    {"-ORBPinnedThreads", number<&Options::pinned_threads, 0, 4096>,
     "0 to 4096: threads that stay with a busy connection each, beside the others"},
    {"-ORBQueue", number<&Options::queue, 1, any_number>, "1 or more: requests that may wait"},
    {"-ORBMaxMessage", number<&Options::max_message, 1024, INT32_MAX>,
     "1024 to 2147483647: octets of the largest message taken"},
    {"-ORBMaxMemory", number<&Options::max_memory, 0, any_number>,
     "mebibytes of all messages in flight; 0 for a quarter of what the machine or its control group has"},
    {"-ORBFragmentSize", number_or_zero<&Options::fragment_size, 64, INT32_MAX>,
     "64 to 2147483647: octets past which messages leave in fragments; 0 for never"},
    {"-ORBMaxConnections", number<&Options::max_connections, 0, any_number>,
     "connections accepted at once; 0 for 80 % of the descriptors"},
    {"-ORBPeerConnections", number<&Options::peer_connections, 0, any_number>,
     "connections of one address other than loopback; 0 for no limit"},
    {"-ORBTimeout", number<&Options::timeout_ms, 0, any_number>,
     "milliseconds that a call may take; 0 for no limit"},
    {"-ORBWriteTimeout", number<&Options::write_timeout_ms, 0, any_number>,
     "milliseconds for a client to take some of its replies; 0 for no limit"},
    {"-ORBReadTimeout", number<&Options::read_timeout_ms, 0, any_number>,
     "milliseconds for a message to come in whole; 0 for no limit"},
    {"-ORBIdleTimeout", number<&Options::idle_timeout_ms, 0, any_number>,
     "milliseconds without a call before a connection is closed; 0 for never"},
    {"-ORBQueueTimeout", number<&Options::queue_timeout_ms, 0, any_number>,
     "milliseconds that a request may wait for a thread; 0 for no limit"},
    {"-ORBConnectionRequests", number<&Options::share, 1, any_number>,
     "1 or more: requests of one connection that are taken at a time"},
    {"-ORBClientConnections", number<&Options::client_connections, 1, most_client_connections>,
     "1 to 64: connections to one server that the threads of a client are spread over"},
    {"-ORBShutdownTimeout", number<&Options::shutdown_timeout_ms, 0, any_number>,
     "milliseconds that running requests may go on during shutdown"},
    {"-ORBTick", number<&Options::tick_ms, 1, any_number>, "1 or more: milliseconds between lifespan ticks"},
    {"-ORBGIOPVersion", giop_version, "1.0, 1.1 or 1.2: the highest version that calls use"},
    {"-ORBImplRepository", file<&Options::impl_repository>,
     "FILE: the implementation names that are known, one a line"},
    {"-ORBKeySecret", file<&Options::key_secret>,
     "FILE of 32 to 4096 octets that only its owner may read: what object keys are signed with"},
    {"-ORBClientInfo", flag<&Options::client_info>, "0 or 1: whether client addresses are recorded"},
    {"-ORBInProcess", flag<&Options::in_process>, "0 or 1: whether calls to own objects skip the socket"},
};

const Row* find_row(std::string_view name) {
  for (const Row& row : rows) {
    if (row.name == name) return &row;
  }
  return nullptr;
}

/// Takes one option with its value; "" or what is wrong. A null value: the command line ends after the name.
std::string take_option(std::string_view name, const char* value, Options* to) {
  const Row* row = find_row(name);
  if (!row) return "unknown option " + std::string(name);
  const std::string wanted = std::string(name) + " wants " + std::string(row->help);
  if (!value) return "no value after " + std::string(name) + "; " + wanted;
  if (!row->parse(value, to))
    return "bad value '" + std::string(value) + "' of " + std::string(name) + "; " + wanted;
  return {};
}

// Never destroyed: threads may outlive main. Made when the library is loaded, so that who asks needs no guard.
Options& in_force = *new Options;

}  // namespace

const Options& options() { return in_force; }

void set_options(Options options) { in_force = std::move(options); }

std::string parse_options(int* argc, char** argv, Options* options) {
  if (!argc || !argv) return {};
  std::vector<char*> rest;
  Options parsed = *options;
  for (int i = 0; i < *argc; ++i) {
    if (i == 0 || !std::string_view(argv[i]).starts_with("-ORB")) {
      rest.push_back(argv[i]);
      continue;
    }
    const std::string_view name = argv[i++];
    std::string error = take_option(name, i < *argc ? argv[i] : nullptr, &parsed);
    if (!error.empty()) return error;
  }
  *options = std::move(parsed);
  if (static_cast<int>(rest.size()) == *argc) return {};
  *argc = static_cast<int>(rest.size());
  for (std::size_t i = 0; i < rest.size(); ++i) argv[i] = rest[i];
  argv[rest.size()] = nullptr;
  return {};
}

}  // namespace zrsv
