// A server, or a client that measures on command: the same text for every peer.
//   serve PORT OBJECTS   makes the objects, prints "ready NS OCTETS" (of each object; "-" where there is none), and
//                        serves until its standard input ends
//   call PORT own|shared reads commands and answers each with a line, until its standard input ends:
//     calls OPERATION OCTETS THREADS SECONDS OBJECTS   "RATE P50 P99", calls a second and microseconds
//     local OPERATION OCTETS SECONDS                   the same, of calls within the process
//     idle COUNT                                       "ok", once so many further connections are open
//     alive                                            how many of them still are
//     spin                                             microseconds that a fixed piece of work takes
// What goes wrong is answered with "no" and the reason.
#include "peer.h"

#include <arpa/inet.h>
#include <malloc.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <barrier>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;
using Times = std::vector<float>;  // microseconds

// Objects that a client calls in turn, where there are as many.
constexpr std::uint32_t most_called = 4096;

void check(bool good, const char* what) {
  if (!good) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

void say(const std::string& line) { std::cout << line << std::endl; }

void raise_descriptor_limit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

/// What malloc took from the system by mmap once and got back it takes from its heap from then on. So a first large message
/// lies where later ones do.
void settle_malloc() {
  void* volatile block = std::malloc(16 << 20);
  std::free(block);
}

// ---- Calls ----

struct Load {
  std::string operation;
  std::size_t octets = 0;
  int threads = 1;
  double seconds = 0;
  std::uint32_t objects = 1;
  int batch = 1;  // calls between two readings of the clock
};

class Caller {
 public:
  explicit Caller(const Load& load) : load_(load), data_(load.octets, 'x') {}

  void operator()(peer::Object& object) const {
    if (load_.operation == "add") {
      if (object.add(20, 22) != 42) throw std::runtime_error("add is wrong");
    } else if (object.echo(data_) != data_.size()) {
      throw std::runtime_error("the echo is wrong");
    }
  }

  Times run(const std::vector<std::unique_ptr<peer::Object>>& objects, double seconds) const {
    Times times;
    times.reserve(1 << 18);
    const Clock::time_point end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
    std::size_t at = 0;
    for (Clock::time_point last = Clock::now(); last < end;) {
      for (int i = 0; i < load_.batch; ++i) {
        (*this)(*objects[at]);
        if (++at == objects.size()) at = 0;
      }
      const Clock::time_point now = Clock::now();
      times.push_back(std::chrono::duration<float, std::micro>(now - last).count() /
                      static_cast<float>(load_.batch));
      last = now;
    }
    return times;
  }

 private:
  const Load& load_;
  std::string data_;
};

float quantile(Times& times, double part) {
  if (times.empty()) throw std::runtime_error("no call ended in time");
  const auto at = static_cast<Times::difference_type>(part * static_cast<double>(times.size() - 1));
  std::nth_element(times.begin(), times.begin() + at, times.end());
  return times[static_cast<std::size_t>(at)];
}

std::string result(Times times, double seconds, int batch) {
  const double rate = static_cast<double>(times.size()) * batch / seconds;
  std::ostringstream line;
  line << rate << ' ' << quantile(times, 0.5) << ' ' << quantile(times, 0.99);
  return line.str();
}

/// Objects spread over all that the server has, in an order that memory cannot guess.
std::vector<std::unique_ptr<peer::Object>> spread(peer::Link& link, std::uint32_t objects) {
  std::mt19937 random(1);
  std::vector<std::unique_ptr<peer::Object>> some;
  const std::uint32_t count = std::min(objects, most_called);
  for (std::uint32_t i = 0; i < count; ++i) {
    some.push_back(link.object(static_cast<std::uint32_t>(std::uint64_t{i} * objects / count)));
  }
  std::shuffle(some.begin(), some.end(), random);
  return some;
}

/// What the threads of one measurement share.
struct Together {
  explicit Together(const Load& load) : times(static_cast<std::size_t>(load.threads)), start(load.threads) {}
  std::vector<Times> times;
  std::vector<std::string> failures = std::vector<std::string>(times.size());
  std::barrier<> start;
};

void call_on_thread(peer::Client& client, const Load& load, std::size_t number, Together& all) {
  bool started = false;
  try {
    const Caller call(load);
    const std::unique_ptr<peer::Link> link = client.link();
    const std::vector<std::unique_ptr<peer::Object>> objects = spread(*link, load.objects);
    call.run(objects, load.seconds / 5);  // warm up
    started = true;
    all.start.arrive_and_wait();
    all.times[number] = call.run(objects, load.seconds);
  } catch (const std::exception& e) {
    all.failures[number] = e.what();
    if (!started) all.start.arrive_and_drop();
  }
}

std::string calls(peer::Client& client, const Load& load) {
  Together all(load);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < all.times.size(); ++i) {
    threads.emplace_back([&, i] { call_on_thread(client, load, i, all); });
  }
  for (std::thread& thread : threads) thread.join();
  Times times;
  for (std::size_t i = 0; i < all.times.size(); ++i) {
    if (!all.failures[i].empty()) throw std::runtime_error(all.failures[i]);
    times.insert(times.end(), all.times[i].begin(), all.times[i].end());
  }
  return result(std::move(times), load.seconds, 1);
}

std::string local(const Load& load) {
  static const std::unique_ptr<peer::Object> object = peer::local();
  if (!object) throw std::runtime_error("nothing to call within the process");
  const Caller call(load);
  // The holder lends the object, which stays for later rounds.
  struct Borrowed : peer::Object {
    std::int32_t add(std::int32_t a, std::int32_t b) override { return object->add(a, b); }
    std::size_t echo(const std::string& data) override { return object->echo(data); }
  };
  std::vector<std::unique_ptr<peer::Object>> one;
  one.push_back(std::make_unique<Borrowed>());
  call.run(one, load.seconds / 5);
  return result(call.run(one, load.seconds), load.seconds, load.batch);
}

// ---- Idle connections ----

class Idle {
 public:
  explicit Idle(std::uint16_t port) : port_(port) {}
  ~Idle() {
    for (const pollfd& p : all_) close(p.fd);
  }
  Idle(const Idle&) = delete;
  Idle& operator=(const Idle&) = delete;

  void open(int count) {
    const std::string hello = peer::greeting();
    for (int i = 0; i < count; ++i) {
      const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      check(fd >= 0, "socket");
      all_.push_back({fd, POLLRDHUP, 0});
      greet(fd, hello);
    }
  }
  int alive() {
    check(poll(all_.data(), all_.size(), 0) >= 0, "poll");
    return static_cast<int>(
        std::count_if(all_.begin(), all_.end(), [](const pollfd& p) { return p.revents == 0; }));
  }

 private:
  void greet(int fd, const std::string& hello) const {
    const timeval limit{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port_);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto number = std::to_string(all_.size());
    check(connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0,
          ("connection " + number).c_str());
    check(send(fd, hello.data(), hello.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(hello.size()), "send");
    char first;
    check(recv(fd, &first, 1, 0) == 1, ("no answer on connection " + number).c_str());
  }

  std::uint16_t port_;
  std::vector<pollfd> all_;
};

// ---- Commands ----

double spin() {
  const Clock::time_point start = Clock::now();
  volatile std::uint64_t state = 1;
  for (int i = 0; i < 2000000; ++i) state = state * 6364136223846793005u + 1442695040888963407u;
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

std::string answer(std::istringstream in, peer::Client* client, Idle& idle) {
  std::string command;
  Load load;
  in >> command;
  if (command == "spin") return std::to_string(spin());
  if (command == "alive") return std::to_string(idle.alive());
  if (command == "idle") {
    int count = 0;
    in >> count;
    idle.open(count);
    return "ok";
  }
  in >> load.operation >> load.octets;
  if (command == "local") {
    in >> load.seconds;
    load.batch = 1000;
    return local(load);
  }
  if (!client) return "no threads cannot share a connection";
  in >> load.threads >> load.seconds >> load.objects;
  return calls(*client, load);
}

int call(std::uint16_t port, bool shared) {
  const std::unique_ptr<peer::Client> client = port == 0 ? nullptr : peer::client(port, shared);
  Idle idle(port);
  for (std::string line; std::getline(std::cin, line);) {
    try {
      say(answer(std::istringstream(line), client.get(), idle));
    } catch (const std::exception& e) {
      say(std::string("no ") + e.what());
    }
  }
  std::_Exit(0);  // threads of the peers' libraries are not waited for
}

double allocated() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

int serve(std::uint16_t port, std::uint32_t objects) {
  const std::unique_ptr<peer::Server> server = peer::listen(port);
  const double before = allocated();
  const Clock::time_point start = Clock::now();
  const bool has_objects = server->activate(objects);
  const double taken = std::chrono::duration<double, std::nano>(Clock::now() - start).count();
  std::ostringstream line;
  if (has_objects) {
    line << "ready " << taken / objects << ' ' << (allocated() - before) / objects;
  } else {
    line << "ready - -";
  }
  std::thread([] {
    char none;
    while (read(STDIN_FILENO, &none, 1) > 0) {
    }
    std::_Exit(0);
  }).detach();
  say(line.str());
  server->run();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    raise_descriptor_limit();
    settle_malloc();
    const std::string role = argc == 4 ? argv[1] : "";
    const auto port = static_cast<std::uint16_t>(role.empty() ? 0 : std::stoi(argv[2]));
    if (role == "serve") return serve(port, static_cast<std::uint32_t>(std::stoul(argv[3])));
    if (role == "call") return call(port, std::strcmp(argv[3], "shared") == 0);
    std::cerr << "usage: " << argv[0] << " serve PORT OBJECTS | call PORT own|shared\n";
    return 2;
  } catch (const std::exception& e) {
    std::cerr << argv[0] << ": " << e.what() << '\n';
    return EXIT_FAILURE;
  }
}
