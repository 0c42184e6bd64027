// The -ORB options: one row each in options.cpp, described in docs/orb.md.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/endpoint.h"

namespace zrsv {

inline constexpr uint32_t most_client_connections = 64;

struct Options {
  std::vector<Endpoint> listen;  // -ORBListen HOST:PORT (repeatable; port 0 = any); empty: loopback, any port
  std::vector<Endpoint> publish;  // -ORBPublish HOST[:PORT] (repeatable; no port = the port listened on)
  uint32_t threads = 0;           // -ORBThreads N: requests run at once; 0: chosen from the cores, at least 4
  uint32_t pinned_threads = 256;  // -ORBPinnedThreads N: that stay with a busy connection each
  uint32_t queue = 1024;          // -ORBQueue N: requests that may wait, for a thread and while held, each
  uint32_t max_message = 16u << 20;  // -ORBMaxMessage OCTETS
  uint32_t max_memory = 0;  // -ORBMaxMemory MEBIBYTES of all that is in flight; 0 = a quarter of the machine
  uint32_t fragment_size =
      4u << 20;                     // -ORBFragmentSize OCTETS: messages over it leave in fragments; 0 = never
  uint32_t max_connections = 0;     // -ORBMaxConnections N; 0 = 80 % of the descriptors
  uint32_t peer_connections = 256;  // -ORBPeerConnections N: of one address, but loopback; 0 = no limit
  uint32_t timeout_ms = 60'000;     // -ORBTimeout MS: a call's time limit; 0 = none
  uint32_t write_timeout_ms = 10'000;    // -ORBWriteTimeout MS: for a client to take something; 0 = none
  uint32_t read_timeout_ms = 30'000;     // -ORBReadTimeout MS: for a message to come in whole; 0 = none
  uint32_t idle_timeout_ms = 600'000;    // -ORBIdleTimeout MS: of a connection without calls; 0 = none
  uint32_t queue_timeout_ms = 30'000;    // -ORBQueueTimeout MS: of a request for a thread; 0 = none
  uint32_t share = 64;                   // -ORBConnectionRequests N: in flight of one connection
  uint32_t client_connections = 4;       // -ORBClientConnections N: to one end point, for threads that call
  uint32_t shutdown_timeout_ms = 5'000;  // -ORBShutdownTimeout MS: how long running requests may go on
  uint32_t tick_ms = 1'000;              // -ORBTick MS: the lifespan tick
  uint32_t giop_minor = 2;               // -ORBGIOPVersion 1.0|1.1|1.2: the highest that calls use
  std::string impl_repository;           // -ORBImplRepository FILE: one implementation name a line
  std::string key_secret;                // -ORBKeySecret FILE: what object keys are signed with
  bool client_info = true;               // -ORBClientInfo 0|1
  bool in_process = true;  // -ORBInProcess 0|1: calls to this process's own objects skip the socket
};

/// The options in force; set by the first CORBA_ORB_init, read by anyone afterwards.
const Options& options();
void set_options(Options options);

/// Takes the -ORB options out of argv and lowers *argc. Null, or the text of what is wrong.
/// Reads nothing but its arguments.
std::string parse_options(int* argc, char** argv, Options* options);

}  // namespace zrsv
