// Blocking sockets, a thread a connection and a hash table of objects: what is left when nothing is added.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <unordered_map>

#include "peer.h"

namespace {

struct Head {
  std::uint32_t operation;  // 0: add, 1: echo
  std::uint32_t length;     // of the body
  std::uint32_t object;
  std::int32_t a, b;
};

void check(bool good, const char* what) {
  if (!good) throw std::system_error(errno, std::generic_category(), what);
}

bool receive(int fd, void* to, std::size_t length) {
  for (std::size_t got = 0; got < length;) {
    const ssize_t count = recv(fd, static_cast<char*>(to) + got, length - got, 0);
    if (count <= 0) return false;
    got += static_cast<std::size_t>(count);
  }
  return true;
}

/// Head and body in one go; the rest of what the socket did not take at once afterwards.
bool transmit(int fd, const Head& head, std::string_view body) {
  iovec parts[] = {{const_cast<Head*>(&head), sizeof head}, {const_cast<char*>(body.data()), body.size()}};
  ssize_t sent = writev(fd, parts, body.empty() ? 1 : 2);
  if (sent < static_cast<ssize_t>(sizeof head)) return false;
  body.remove_prefix(static_cast<std::size_t>(sent) - sizeof head);
  for (; !body.empty(); body.remove_prefix(static_cast<std::size_t>(sent))) {
    if ((sent = send(fd, body.data(), body.size(), MSG_NOSIGNAL)) <= 0) return false;
  }
  return true;
}

int open_socket() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), on = 1;
  check(fd >= 0, "socket");
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return fd;
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

struct Servant {
  virtual ~Servant() = default;
  virtual std::int32_t add(std::int32_t a, std::int32_t b) { return a + b; }
  virtual std::string_view echo(std::string_view data) { return data; }
};

class RawServer : public peer::Server {
 public:
  explicit RawServer(std::uint16_t port) : listener_(open_socket()) {
    const sockaddr_in address = loopback(port);
    const int on = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    check(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
    check(::listen(listener_, 4096) == 0, "listen");
  }
  ~RawServer() override { close(listener_); }
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  bool activate(std::uint32_t count) override {
    for (std::uint32_t i = 0; i < count; ++i) objects_.emplace(i, std::make_unique<Servant>());
    return true;
  }
  void run() override {
    for (;;) {
      const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), on = 1;
      check(fd >= 0, "accept");
      setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      std::thread([this, fd] { serve(fd); }).detach();
    }
  }

 private:
  void serve(int fd) const {
    std::string body;
    for (Head head; receive(fd, &head, sizeof head);) {
      body.resize(head.length);
      const auto object = objects_.find(head.object);
      if (object == objects_.end() || !receive(fd, body.data(), body.size())) break;
      std::string_view answer;
      if (head.operation == 0) {
        head.a = object->second->add(head.a, head.b);
      } else {
        answer = object->second->echo(body);
      }
      head.length = static_cast<std::uint32_t>(answer.size());
      if (!transmit(fd, head, answer)) break;
    }
    close(fd);
  }

  int listener_;
  std::unordered_map<std::uint32_t, std::unique_ptr<Servant>> objects_;
};

class RawObject : public peer::Object {
 public:
  RawObject(int fd, std::uint32_t number) : fd_(fd), number_(number) {}
  std::int32_t add(std::int32_t a, std::int32_t b) override { return exchange({0, 0, number_, a, b}, {}).a; }
  std::size_t echo(const std::string& data) override {
    return exchange({1, static_cast<std::uint32_t>(data.size()), number_, 0, 0}, data).length;
  }

 private:
  Head exchange(Head head, std::string_view body) {
    check(transmit(fd_, head, body) && receive(fd_, &head, sizeof head), "exchange");
    answer_.resize(head.length);
    check(receive(fd_, answer_.data(), answer_.size()), "receive");
    return head;
  }

  int fd_;
  std::uint32_t number_;
  std::string answer_;
};

class RawLink : public peer::Link {
 public:
  explicit RawLink(std::uint16_t port) : fd_(open_socket()) {
    const sockaddr_in address = loopback(port);
    check(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "connect");
  }
  ~RawLink() override { close(fd_); }
  RawLink(const RawLink&) = delete;
  RawLink& operator=(const RawLink&) = delete;
  std::unique_ptr<peer::Object> object(std::uint32_t number) override {
    return std::make_unique<RawObject>(fd_, number);
  }

 private:
  int fd_;
};

class RawClient : public peer::Client {
 public:
  explicit RawClient(std::uint16_t port) : port_(port) {}
  std::unique_ptr<peer::Link> link() override { return std::make_unique<RawLink>(port_); }

 private:
  std::uint16_t port_;
};

}  // namespace

namespace peer {

std::unique_ptr<Server> listen(std::uint16_t port) { return std::make_unique<RawServer>(port); }
// Where other peers share, this one shows what a connection each gives.
std::unique_ptr<Client> client(std::uint16_t port, bool) { return std::make_unique<RawClient>(port); }
std::unique_ptr<Object> local() { return nullptr; }
std::string greeting() {
  const Head head{0, 0, 0, 1, 1};
  return {reinterpret_cast<const char*>(&head), sizeof head};
}

}  // namespace peer
