// A peer of `./dev bench peers`: a program of its own that links peer.cpp, which has main() and does the measuring,
// and defines the functions below.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace peer {

/// An object of the server, as one thread of a client calls it.
class Object {
 public:
  virtual ~Object() = default;
  virtual std::int32_t add(std::int32_t a, std::int32_t b) = 0;
  /// Returns the length of what came back.
  virtual std::size_t echo(const std::string& data) = 0;
};

/// One thread's way to a server; lives and dies on that thread.
class Link {
 public:
  virtual ~Link() = default;
  /// Object 0 where objects have no identity.
  virtual std::unique_ptr<Object> object(std::uint32_t number) = 0;
};

class Client {
 public:
  virtual ~Client() = default;
  /// Called on the thread that uses the link: a connection of its own, or its share in the one connection.
  virtual std::unique_ptr<Link> link() = 0;
};

class Server {
 public:
  virtual ~Server() = default;
  /// Makes objects 0 to `count` - 1. False where objects have no identity.
  virtual bool activate(std::uint32_t count) = 0;
  /// Serves until the process ends.
  virtual void run() = 0;
};

/// Listens at that port of the loopback address.
std::unique_ptr<Server> listen(std::uint16_t port);

/// With `shared`, all links use one connection or reference; null where threads cannot.
std::unique_ptr<Client> client(std::uint16_t port, bool shared);

/// An object of this process, called as a client calls one; null where there is no such thing.
std::unique_ptr<Object> local();

/// What a connection that stays idle sends first, so that the server knows it for a client and answers.
std::string greeting();

}  // namespace peer
