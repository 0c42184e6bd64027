// The client connection that a request came by, as the ORB core tells it.
#pragma once

#include "corba.h"

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

  unsigned char is_ipv6 = 0;
  CORBA::Long fd = 0;
  unsigned char host[16] = {};  // the first four octets for IPv4
};
