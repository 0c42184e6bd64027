// A server under a mixed load for as long as it is told: good clients that check each answer, clients that mean no good,
// POAs and servants that come and go, a manager that holds and releases. Ends with a table; its exit status says whether
// all held.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "attackers.h"
#include "plain_servant.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace PortableServer;

// ---- The server process ----

/// Whether the parent, whose end of standard input is open as long as it lives, has closed it.
bool parent_gone(int milliseconds) {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, milliseconds) > 0;
}

/// POAs and servants come and go, and the manager holds for some milliseconds, until the parent is gone.
void come_and_go(POA_ptr root) {
  const POAManager_var manager = root->the_POAManager();
  for (int round = 0; !parent_gone(20); ++round) {
    const CORBA::String_var name = CORBA::string_dup(("child" + std::to_string(round % 7)).c_str());
    const POA_var child = root->create_POA(name.in(), manager.in(), CORBA::PolicyList());
    std::vector<std::unique_ptr<bench::Servant>> servants;
    for (int i = 0; i < 20; ++i) {
      servants.push_back(std::make_unique<bench::Servant>());
      const ObjectId_var id = child->activate_object(servants.back().get());
      const CORBA::Object_var object = child->id_to_reference(id.in());
      if (i % 2) child->deactivate_object(id.in());
    }
    if (round % 50 == 0) {  // so seldom that the calls that it holds are not the ones that p99 is of
      manager->hold_requests(false);
      parent_gone(2);
      manager->activate();
    }
    child->destroy(true, true);
  }
}

/// Of the arguments the first stands where a program's name does.
int serve(int argc, char** argv) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
  const CORBA::Object_var resolved = orb->resolve_initial_references("RootPOA");
  const POA_var root = POA::_narrow(resolved.in());
  POAManager_var(root->the_POAManager())->activate();
  bench::Servant servant;
  const Demo::Echo_var object = servant._this();
  std::cout << CORBA::String_var(orb->object_to_string(object.in())).in() << std::endl;
  std::thread changing([&] {
    come_and_go(root.in());
    orb->shutdown(false);
  });
  orb->run();
  changing.join();
  orb->destroy();
  return 0;
}

/// Threads that the server may start beside those that it starts with: one for each connection that it pins one to.
/// Enough for the good clients, and fewer than the bad ones would have in a minute if theirs were never used again.
constexpr int pinned_threads = 8;

/// What a process holds.
struct Usage {
  long descriptors = 0, threads = 0, kilobytes = 0;
};

/// The server, a process of its own.
class Server {
 public:
  Server() {
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(in[0], STDIN_FILENO);
      ::dup2(out[1], STDOUT_FILENO);
      const std::string pinned = std::to_string(pinned_threads);
      ::execl("/proc/self/exe", "soak", "--serve", "-ORBPinnedThreads", pinned.c_str(), nullptr);
      ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    input_ = in[1];
    for (char c = 0; ::read(out[0], &c, 1) == 1 && c != '\n';) reference += c;
    ::close(out[0]);
    if (!reference.starts_with("IOR:")) throw std::runtime_error("the server did not start");
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server() { stop(); }

  Usage usage() const {
    const std::string process = "/proc/" + std::to_string(pid_);
    const auto count = [&](const char* of) {
      return std::distance(std::filesystem::directory_iterator(process + of),
                           std::filesystem::directory_iterator{});
    };
    Usage now{count("/fd"), count("/task"), 0};
    std::ifstream status(process + "/status");
    for (std::string word; status >> word;)
      if (word == "VmRSS:") status >> now.kilobytes;
    return now;
  }
  /// Its exit status, 128 and more for a signal; -1 when it has been asked before.
  int stop() {
    if (pid_ <= 0) return -1;
    ::close(input_);
    int status = 0;
    for (int i = 0; ::waitpid(pid_, &status, WNOHANG) == 0; ++i) {
      if (i == 600) ::kill(pid_, SIGKILL);  // after 30 s
      ::poll(nullptr, 0, 50);
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  std::string reference;

 private:
  pid_t pid_ = -1;
  int input_ = -1;
};

// ---- The good clients ----

/// What one of them, or all, saw.
struct Seen {
  long right = 0, wrong = 0, failed = 0;
  std::string failure;  // the first
  std::vector<float> milliseconds;

  void add(const Seen& more) {
    right += more.right, wrong += more.wrong, failed += more.failed;
    if (failure.empty()) failure = more.failure;
    milliseconds.insert(milliseconds.end(), more.milliseconds.begin(), more.milliseconds.end());
  }
  /// Of the calls, so many out of 100 were at most that slow.
  float percentile(int percent) {
    if (milliseconds.empty()) return 0;
    const auto at = milliseconds.begin() + static_cast<long>(milliseconds.size() - 1) * percent / 100;
    std::nth_element(milliseconds.begin(), at, milliseconds.end());
    return *at;
  }
};

/// One call, and whether its answer is right. Of a thousand one is large enough to go out from where its octets are, and
/// to stay where it comes in.
bool ask(Demo::Echo_ptr echo, CORBA::Long number) {
  if (number % 100 == 0) {
    Demo::Octets octets;
    octets.length(static_cast<CORBA::ULong>(number % 1000 == 0 ? 300'000 : 20'000 + number % 1000));
    for (CORBA::ULong i = 0; i < octets.length(); ++i)
      octets[i] = static_cast<CORBA::Octet>(i + static_cast<CORBA::ULong>(number));
    const Demo::Octets_var back = echo->echo_octets(octets);
    return back->length() == octets.length() &&
           std::equal(octets.get_buffer(), octets.get_buffer() + octets.length(), back->get_buffer());
  }
  if (number % 10 == 0) {
    const std::string text = "text " + std::to_string(number);
    return CORBA::String_var(echo->echo_string(text.c_str())).in() == text;
  }
  return echo->add(number, 1) == number + 1;
}

/// Calls with a pause of a millisecond between, as the load is to be the same with and without the others.
void call(Demo::Echo_ptr echo, CORBA::Long from, Clock::time_point end, Seen& seen) {
  for (CORBA::Long number = from; Clock::now() < end; ++number) {
    const auto start = Clock::now();
    try {
      ++(ask(echo, number) ? seen.right : seen.wrong);
    } catch (const CORBA::Exception& e) {
      if (seen.failed++ == 0) seen.failure = e.id();
    }
    if (seen.milliseconds.size() < 1'000'000)
      seen.milliseconds.push_back(std::chrono::duration<float, std::milli>(Clock::now() - start).count());
    ::poll(nullptr, 0, 1);
  }
}

Seen good_clients(Demo::Echo_ptr echo, int count, Clock::duration time) {
  std::vector<Seen> seen(static_cast<std::size_t>(count));
  std::vector<std::jthread> threads;
  const auto end = Clock::now() + time;
  for (int i = 0; i < count; ++i)
    threads.emplace_back([&, i] { call(echo, i * 100'000'000 + 1, end, seen[static_cast<std::size_t>(i)]); });
  threads.clear();  // joins
  Seen all;
  for (const Seen& one : seen) all.add(one);
  return all;
}

// ---- The run and its verdict ----

class Attack {
 public:
  explicit Attack(const std::string& reference, int of_each) : target_(soak::target_of(reference)) {
    for (int i = 0; i < of_each * soak::attacker_kinds; ++i)
      threads_.emplace_back([this, i] {
        const int kind = i % soak::attacker_kinds;
        soak::attackers[kind].run(target_, static_cast<unsigned>(i + 1), end_, rounds[kind]);
      });
  }
  /// Ends it and waits until all of them are gone.
  void stop() {
    end_ = true;
    threads_.clear();
  }

  std::atomic<long> rounds[soak::attacker_kinds]{};

 private:
  soak::Target target_;
  std::atomic<bool> end_{false};
  std::vector<std::jthread> threads_;
};

/// The server's usage once its descriptors are as few as `wanted`, or after 15 s.
Usage settled(const Server& server, long wanted) {
  for (int i = 0; i < 150 && server.usage().descriptors > wanted; ++i) ::poll(nullptr, 0, 100);
  return server.usage();
}

void print(const char* what, Seen& seen) {
  std::printf("%-14s %9ld right %6ld wrong %6ld failed   p50 %8.3f ms   p99 %8.3f ms   max %8.3f ms%s%s\n",
              what, seen.right, seen.wrong, seen.failed, seen.percentile(50), seen.percentile(99),
              seen.percentile(100), seen.failure.empty() ? "" : "   first failure: ", seen.failure.c_str());
}
void print(const char* when, const Usage& usage) {
  std::printf("%-14s %4ld descriptors %4ld threads %8ld KiB\n", when, usage.descriptors, usage.threads,
              usage.kilobytes);
}

/// A sanitizer keeps what was freed for a while.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool instrumented = true;
#else
constexpr bool instrumented = false;
#endif

/// Counts what did not hold, and names it.
class Verdict {
 public:
  void expect(bool held, const char* what) {
    if (!held) std::printf("did not hold: %s\n", what), ++broken_;
  }
  int status() const {
    std::puts(broken_ ? "soak: failed" : "soak: all held");
    return broken_ ? 1 : 0;
  }

 private:
  int broken_ = 0;
};

struct Options {
  double seconds = 600;
  double p99_factor = 3;  // of the good calls, by the others; 0: not looked at
  int good = 4, of_each = 2;
};

int run(const Options& options) {
  const auto part = [&](double share) {
    return std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(options.seconds * share));
  };
  int none = 0;
  char* nothing[] = {nullptr};
  const CORBA::ORB_var orb = CORBA::ORB_init(none, nothing);
  Server server;
  const CORBA::Object_var object = orb->string_to_object(server.reference.c_str());
  const Demo::Echo_var echo = Demo::Echo::_narrow(object.in());

  good_clients(echo.in(), options.good, part(0.05));
  const Usage start = server.usage();
  Seen alone = good_clients(echo.in(), options.good, part(0.25));
  Attack attack(server.reference, options.of_each);
  Seen together = good_clients(echo.in(), options.good, part(0.35));
  const Usage middle = server.usage();
  together.add(good_clients(echo.in(), options.good, part(0.35)));
  const Usage late = server.usage();
  attack.stop();
  const Usage end = settled(server, start.descriptors);
  const int status = server.stop();

  print("without them", alone), print("with them", together);
  print("start", start), print("middle", middle), print("late", late), print("end", end);
  std::printf("rounds of the bad clients:");
  for (int kind = 0; kind < soak::attacker_kinds; ++kind)
    std::printf("  %s %ld", soak::attackers[kind].name, attack.rounds[kind].load());
  std::puts("");

  Verdict verdict;
  verdict.expect(alone.right > 0 && together.right > 0, "good clients are answered");
  verdict.expect(alone.wrong + together.wrong == 0, "no answer is wrong");
  verdict.expect(alone.failed + together.failed == 0, "no good call fails");
  verdict.expect(
      options.p99_factor <= 0 || together.percentile(99) < options.p99_factor * alone.percentile(99),
      "good calls are not much slower beside bad clients");
  verdict.expect(end.descriptors <= start.descriptors, "descriptors are given back");
  verdict.expect(end.threads <= start.threads + pinned_threads, "threads are bounded");
  verdict.expect(instrumented || late.kilobytes <= middle.kilobytes + middle.kilobytes / 4 + 16 * 1024,
                 "memory is flat");
  verdict.expect(status == 0, "the server ends well");
  return verdict.status();
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc > 1 && std::string_view(argv[1]) == "--serve") return serve(argc - 1, argv + 1);
  Options options;
  CLI::App app("A server under good and bad clients");
  app.add_option("--seconds", options.seconds, "How long in all")->check(CLI::Range(1.0, 1e6));
  app.add_option("--p99-factor", options.p99_factor,
                 "By how much bad clients may slow good calls; 0: not looked at");
  app.add_option("--good", options.good, "Threads that call")->check(CLI::Range(1, 64));
  app.add_option("--of-each", options.of_each, "Bad clients of each kind")->check(CLI::Range(1, 64));
  CLI11_PARSE(app, argc, argv);
  return run(options);
} catch (const CORBA::Exception& e) {
  return std::cerr << "soak: " << e.id() << '\n', 1;
} catch (const std::exception& e) {
  return std::cerr << "soak: " << e.what() << '\n', 1;
}
