// The client connection that a request came by, as the ORB core tells it.
#pragma once

#include <vector>

#include "base/locks.h"
#include "corba.h"
#include "objects/slotindex.h"

/// Descriptor and address of a client's connection.
struct ClientData {
  /// Becomes the client of the request that the calling thread runs. False, and nothing changed, outside
  /// requests and in process.
  bool become_current();
  /// `host_addr` is 16 octets for IPv6, else 4.
  static ClientData at(CORBA::Long fd, const void* host_addr, unsigned char is_ipv6);
  /// The address as the ORB core delivers it; 0 for IPv6.
  CORBA::Long host_ipv4() const;
  void trace() const;
  /// The same descriptor and address.
  bool operator==(const ClientData& other) const;

  unsigned char is_ipv6 = 0;
  CORBA::Long fd = 0;
  unsigned char host[16] = {};  // the first four octets for IPv4
};

/// Clients by number: those that objects are recorded for, each of them once. A client that nobody counts any more is
/// forgotten.
class KnownClients {
 public:
  using Number = CORBA::ULong;
  static constexpr Number NONE = 0;  // what no request made; reads as all zeros
  static constexpr int BITS = 29;    // that a number has

  /// The client's number, counted once more. std::bad_alloc, and nothing changed, without memory.
  Number enter(const ClientData& client);
  /// Counts once less. Nothing for NONE.
  void leave(Number number) {
    if (number != NONE) leave_one(number);
  }
  const ClientData& operator[](Number number) const { return all_[number].data; }

 private:
  struct One {
    ClientData data;
    CORBA::ULong count = 0;
  };
  void leave_one(Number number);

  std::vector<One> all_{1};
  std::vector<Number> free_;  // has room for all of them
  SlotIndex numbers_;
};
extern KnownClients& known_clients ZR_GUARDED_BY(poa_semaphore);
