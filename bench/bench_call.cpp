// What a call costs: `add`, or the echo of so many octets, over one loopback connection, beside a raw TCP ping-pong of
// messages of the same lengths. The two take turns, round by round, each between two processes, on one core or free.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "plain_servant.h"

namespace {

using Clock = std::chrono::steady_clock;
using Times = std::vector<double>;  // microseconds

struct Sizes {
  std::size_t request = 0;
  std::size_t reply = 0;
};

void check(bool good, const char* what) {
  if (!good) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

// ---- Sockets and processes ----

class Socket {
 public:
  explicit Socket(int fd) : fd_(fd) { check(fd >= 0, "socket"); }
  ~Socket() { close(fd_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int fd() const { return fd_; }

  void no_delay() const {
    const int on = 1;
    check(setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0, "TCP_NODELAY");
  }
  void send_all(const std::vector<char>& message) const {
    check(send(fd_, message.data(), message.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(message.size()),
          "send");
  }
  /// False when the peer has closed.
  bool receive_all(std::vector<char>& message) const {
    for (std::size_t got = 0; got < message.size();) {
      const ssize_t count = recv(fd_, message.data() + got, message.size() - got, 0);
      if (count <= 0) return false;
      got += static_cast<std::size_t>(count);
    }
    return true;
  }

 private:
  int fd_;
};

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// This program again, in another role. Its standard input stays open as long as this object lives: the end
/// of it tells it to stop.
class Child {
 public:
  explicit Child(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "bench_call");
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    int in[2], out[2];
    check(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0, "pipe");
    pid_ = fork();
    check(pid_ >= 0, "fork");
    if (pid_ == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      execv("/proc/self/exe", argv.data());
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    to_ = in[1];
    from_ = out[0];
  }
  ~Child() {
    close(to_);
    close(from_);
    waitpid(pid_, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// The one line that it prints when it is ready.
  std::string line() const {
    std::string text;
    for (char c = 0; read(from_, &c, 1) == 1 && c != '\n';) text += c;
    if (text.empty()) throw std::runtime_error("the server process did not start");
    return text;
  }

 private:
  pid_t pid_;
  int to_;
  int from_;
};

/// All that runs from here on, in this process and its children, shares one core.
int pin_to_one_core() {
  cpu_set_t allowed;
  check(sched_getaffinity(0, sizeof allowed, &allowed) == 0, "sched_getaffinity");
  int core = CPU_SETSIZE - 1;
  while (!CPU_ISSET(core, &allowed)) --core;
  CPU_ZERO(&allowed);
  CPU_SET(core, &allowed);
  check(sched_setaffinity(0, sizeof allowed, &allowed) == 0, "sched_setaffinity");
  return core;
}

// ---- The server processes ----

void say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

void serve_orb(CORBA::ORB_ptr orb, bool views) {
  const CORBA::Object_var resolved = orb->resolve_initial_references("RootPOA");
  const PortableServer::POA_var root = PortableServer::POA::_narrow(resolved.in());
  const PortableServer::POAManager_var manager = root->the_POAManager();
  manager->activate();
  bench::Servant adder;
  adder.views = views;
  const Demo::Echo_var object = adder._this();
  const CORBA::String_var text = orb->object_to_string(object.in());
  say(text.in());
  std::thread parent([&] {
    char none;
    while (read(STDIN_FILENO, &none, 1) > 0) {
    }
    orb->shutdown(0);
  });
  orb->run();
  parent.join();
  orb->destroy();
}

void serve_raw(const Sizes& sizes) {
  const Socket listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  auto* general = reinterpret_cast<sockaddr*>(&address);
  check(bind(listener.fd(), general, length) == 0 && listen(listener.fd(), 1) == 0, "listen");
  check(getsockname(listener.fd(), general, &length) == 0, "getsockname");
  say(std::to_string(ntohs(address.sin_port)));
  const Socket peer(accept(listener.fd(), nullptr, nullptr));
  peer.no_delay();
  std::vector<char> request(sizes.request), reply(sizes.reply);
  while (peer.receive_all(request)) peer.send_all(reply);
}

// ---- The two sides that are compared ----

class OrbCalls {
 public:
  OrbCalls(CORBA::ORB_ptr orb, CORBA::ULong octets, bool views)
      : server_(views ? std::vector<std::string>{"--role", "orb", "--view"}
                      : std::vector<std::string>{"--role", "orb"}) {
    data_.length(octets);
    const CORBA::Object_var object = orb->string_to_object(server_.line().c_str());
    echo_ = Demo::Echo::_narrow(object.in());
    operator()();
  }
  void operator()() {
    if (data_.length() == 0) {
      if (echo_->add(20, 22) != 42) throw std::runtime_error("add is wrong");
    } else {
      const Demo::Octets_var echoed = echo_->echo_octets(data_);
      if (echoed->length() != data_.length()) throw std::runtime_error("the echo is wrong");
    }
  }

  /// What one call sends and receives, by the count that the system keeps for the connection.
  Sizes measure() {
    constexpr std::size_t calls = 100;
    const Sizes before = counted();
    for (std::size_t i = 0; i < calls; ++i) operator()();
    const Sizes after = counted();
    return {(after.request - before.request) / calls, (after.reply - before.reply) / calls};
  }

 private:
  /// Octets that all TCP connections of this process sent and received so far.
  static Sizes counted() {
    Sizes sum;
    for (int fd = 0; fd < 1024; ++fd) {
      tcp_info info{};
      socklen_t length = sizeof info;
      if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length) != 0) continue;
      sum.request += info.tcpi_bytes_acked;
      sum.reply += info.tcpi_bytes_received;
    }
    return sum;
  }

  Child server_;
  Demo::Echo_var echo_;
  Demo::Octets data_;
};

class RawCalls {
 public:
  explicit RawCalls(const Sizes& sizes)
      : server_({"--role", "raw", "--request", std::to_string(sizes.request), "--reply",
                 std::to_string(sizes.reply)}),
        socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
        request_(sizes.request),
        reply_(sizes.reply) {
    const sockaddr_in address = loopback(static_cast<std::uint16_t>(std::stoi(server_.line())));
    check(connect(socket_.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "connect");
    socket_.no_delay();
  }
  void operator()() {
    socket_.send_all(request_);
    if (!socket_.receive_all(reply_)) throw std::runtime_error("the raw server is gone");
  }

 private:
  Child server_;  // ends after the socket
  Socket socket_;
  std::vector<char> request_, reply_;
};

// ---- Measuring ----

template <class Call>
Times time_calls(int calls, Call& call) {
  Times times;
  times.reserve(static_cast<std::size_t>(calls));
  for (int i = 0; i < calls; ++i) {
    const Clock::time_point start = Clock::now();
    call();
    times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  return times;
}

double quantile(Times times, double part) {
  const auto at = static_cast<Times::difference_type>(part * static_cast<double>(times.size() - 1));
  std::nth_element(times.begin(), times.begin() + at, times.end());
  return times[static_cast<std::size_t>(at)];
}

void append(Times& all, const Times& some) { all.insert(all.end(), some.begin(), some.end()); }

void print(const char* what, const Times& times) {
  std::printf("%-22s %8.2f us %8.2f us\n", what, quantile(times, 0.5), quantile(times, 0.99));
}

struct Comparison {
  int starts = 1;
  int rounds = 30;
  int calls = 5000;
  CORBA::ULong octets = 0;
  bool views = false;
  bool free = false;
};

struct Measured {
  Sizes sizes;
  Times orb, raw, ratios;
};

/// The rounds of one start of both servers.
void run_rounds(CORBA::ORB_ptr orb, const Comparison& how, Measured& all) {
  OrbCalls orb_calls(orb, how.octets, how.views);
  all.sizes = orb_calls.measure();
  RawCalls raw_calls(all.sizes);
  time_calls(how.calls, orb_calls);  // warm up
  time_calls(how.calls, raw_calls);
  for (int round = 0; round < how.rounds; ++round) {
    const Times of_orb = time_calls(how.calls, orb_calls), of_raw = time_calls(how.calls, raw_calls);
    all.ratios.push_back(quantile(of_orb, 0.5) / quantile(of_raw, 0.5));
    append(all.orb, of_orb);
    append(all.raw, of_raw);
  }
}

void compare(CORBA::ORB_ptr orb, const Comparison& how) {
  const std::string where = how.free ? "free" : "on core " + std::to_string(pin_to_one_core());
  Measured all;
  for (int start = 0; start < how.starts; ++start) run_rounds(orb, how, all);
  const Times& ratios = all.ratios;
  std::printf("one connection over loopback, both processes %s; %d starts, each %d rounds of %d calls\n",
              where.c_str(), how.starts, how.rounds, how.calls);
  std::printf("request %zu octets, reply %zu octets (counted on the connection)\n\n", all.sizes.request,
              all.sizes.reply);
  std::printf("%-22s %11s %11s\n", "", "median", "p99");
  print(how.octets == 0 ? "add" : "echo", all.orb);
  print("raw TCP ping-pong", all.raw);
  std::printf(
      "\nratio of the medians: %.2f (median of the rounds; middle half %.2f to %.2f, all %.2f to %.2f)\n",
      quantile(ratios, 0.5), quantile(ratios, 0.25), quantile(ratios, 0.75), quantile(ratios, 0),
      quantile(ratios, 1));
}

int run(int argc, char** argv) {
  const CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
  CLI::App app("Measures a call beside a raw TCP ping-pong.");
  Comparison how;
  bool smoke = false;
  std::string role;
  Sizes sizes;
  app.add_option("--starts", how.starts, "how often the servers are started anew")
      ->check(CLI::PositiveNumber);
  app.add_option("--rounds", how.rounds, "how often the two take turns")->check(CLI::PositiveNumber);
  app.add_option("--calls", how.calls, "calls of each in a round")->check(CLI::PositiveNumber);
  app.add_option("--octets", how.octets, "echo so many octets instead of adding two numbers");
  app.add_flag("--view", how.views, "the servant answers a view of its argument, not a copy");
  app.add_flag("--free", how.free, "leave the processes to the scheduler instead of one core");
  app.add_flag("--smoke", smoke, "once and short, to see that it works");
  app.add_option("--role", role)->group("");  // of the server processes; not shown
  app.add_option("--request", sizes.request)->group("");
  app.add_option("--reply", sizes.reply)->group("");
  CLI11_PARSE(app, argc, argv);
  if (role == "orb") {
    serve_orb(orb.in(), how.views);
  } else if (role == "raw") {
    serve_raw(sizes);
  } else {
    if (smoke) how.rounds = 2, how.calls = 100;
    compare(orb.in(), how);
  }
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const CORBA::Exception& e) {
    std::fprintf(stderr, "bench_call: %s\n", e.id());
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_call: %s\n", e.what());
  }
  return EXIT_FAILURE;
}
