#include "connections/socket_setup.h"

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstring>
#include <string_view>

#include "connections/connection.h"

namespace zrsv {
namespace {

// Knows no pace, is in every kernel, and every process may choose it.
constexpr std::string_view unpaced = "reno";

template <class Ask>
PeerAddress address_by(Ask ask, int fd) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  ask(fd, reinterpret_cast<sockaddr*>(&address), &size);
  return PeerAddress::of(address);
}

}  // namespace

bool stays_within_machine(const PeerAddress& own, const PeerAddress& peer) {
  return peer.is_loopback() ||
         (own.ipv6 == peer.ipv6 && std::memcmp(own.octets, peer.octets, sizeof own.octets) == 0);
}

bool set_up_socket(int fd) {
  const int on = 1;
  if (::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) return false;
  if (stays_within_machine(address_by(::getsockname, fd), address_by(::getpeername, fd)))
    ::setsockopt(fd, IPPROTO_TCP, TCP_CONGESTION, unpaced.data(), unpaced.size());  // else it is only slower
  return true;
}

}  // namespace zrsv
