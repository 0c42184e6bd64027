#include "objects/clientdata.h"

#include <cstring>
#include <new>

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

bool ClientData::operator==(const ClientData& other) const {
  return fd == other.fd && is_ipv6 == other.is_ipv6 &&
         std::memcmp(host, other.host, is_ipv6 ? sizeof host : 4) == 0;
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

// ---- Numbers ------------------------------------------------------------------------------------

KnownClients& known_clients = *new KnownClients;  // objects may be active until the process ends

namespace {

SlotIndex::Key key_of(const ClientData& client) {
  std::uint32_t key = static_cast<std::uint32_t>(client.fd), word = 0;
  for (std::size_t at = 0; at < (client.is_ipv6 ? sizeof client.host : 4); at += sizeof word) {
    std::memcpy(&word, client.host + at, sizeof word);
    key = key * 0x9E3779B1 + word;
  }
  return key;
}

}  // namespace

KnownClients::Number KnownClients::enter(const ClientData& client) {
  const SlotIndex::Key key = key_of(client);
  Number number = numbers_.find(key, [&](Number n) { return all_[n].data == client; });
  if (number == SlotIndex::NONE) {
    numbers_.reserve(1);
    if (free_.empty()) {
      if (all_.size() >> BITS != 0) throw std::bad_alloc();
      if (free_.capacity() <= all_.size()) free_.reserve(all_.size() * 2);
      all_.emplace_back();
      free_.push_back(static_cast<Number>(all_.size() - 1));
    }
    number = free_.back();
    free_.pop_back();
    all_[number].data = client;
    numbers_.find_or_insert(key, number, [](Number) { return false; });
  }
  ++all_[number].count;
  return number;
}

void KnownClients::leave_one(Number number) {
  if (--all_[number].count != 0) return;
  numbers_.erase(key_of(all_[number].data), number);
  free_.push_back(number);
}
