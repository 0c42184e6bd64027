// What the socket of a connection is told at its beginning.
#pragma once

namespace zrsv {

struct PeerAddress;

/// Whether what goes from one address to the other stays within this machine.
bool stays_within_machine(const PeerAddress& own, const PeerAddress& peer);

/// For a connected TCP socket: short messages go at once, and long ones are not paced within this machine. False: it is
/// of no use.
bool set_up_socket(int fd);

}  // namespace zrsv
