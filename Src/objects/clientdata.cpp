#include "objects/clientdata.h"

#include <cstring>

#include "base/trace.h"
#include "zrsocket.h"

bool ClientData::become_current() {
  if (OM_boa_lib_get_iswitch() != 1) return false;
  POA_TRACE("  OM_ext_get_client_info_ip6 call");
  CORBA::Environment core;
  if (!OM_ext_get_client_info_ip6(&fd, &is_ipv6, host, nullptr, nullptr, core._evp)) {
    POA_TRACE("  No client data!!!");
    return false;
  }
  trace();
  return true;
}

ClientData ClientData::at(CORBA::Long fd, const void* host_addr, unsigned char is_ipv6) {
  ClientData client;
  client.fd = fd;
  client.is_ipv6 = is_ipv6;
  std::memcpy(client.host, host_addr, is_ipv6 ? 16 : 4);
  return client;
}

CORBA::Long ClientData::host_ipv4() const {
  CORBA::Long address = 0;
  if (!is_ipv6) std::memcpy(&address, host, sizeof address);
  return address;
}

void ClientData::trace() const {
  if (!OM_TRACE_IS_ON) return;
  char text[65];
  const char* printed =
      is_ipv6 ? OM_inet_ntop(ZR_af_inet6, host, text, 65) : OM_inet_ntop(ZR_af_inet, host, text, 22);
  if (!printed) printed = "NULL";
  if (is_ipv6) {
    POA_TRACE("  fd = %d, host_ipv6 = %s", fd, printed);
  } else {
    POA_TRACE("  fd = %d, host_ipv4 = %s", fd, printed);
  }
}
