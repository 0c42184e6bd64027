// What the benchmarks of the object adapter share: a servant that does next to nothing, rounds, and a table
// of results.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "echo.h"

namespace bench {

class Servant : public POA_Demo::Echo {
 public:
  char* echo_string(const char* s, CORBA::Environment&) override { return CORBA::string_dup(s); }
  CORBA::Long add(CORBA::Long a, CORBA::Long b, CORBA::Environment&) override { return a + b; }
  Demo::Octets* echo_octets(const Demo::Octets& data, CORBA::Environment&) override {
    return new Demo::Octets(data);
  }
  void refuse(const char* why, CORBA::Long code, CORBA::Environment&) override {
    throw Demo::Refused(why, code);
  }
  void note(const char*, CORBA::Environment&) override {}
  CORBA::Long notes(CORBA::Environment&) override { return 0; }
  char* who(CORBA::Environment&) override { return CORBA::string_dup(""); }
  void sleep_ms(CORBA::ULong, CORBA::Environment&) override {}
};

using Clock = std::chrono::steady_clock;

inline double nanoseconds(Clock::duration d) { return std::chrono::duration<double, std::nano>(d).count(); }

/// What two readings of the clock cost: part of every time that is taken between two.
inline double clock_cost() {
  constexpr int times = 100'000;
  const auto start = Clock::now();
  for (int i = 0; i < times; ++i) Clock::now();
  return nanoseconds(Clock::now() - start) / times;
}

/// The results of several rounds.
class Rounds {
 public:
  void add(double value) { values_.push_back(value); }
  bool empty() const { return values_.empty(); }
  double median() const {
    std::vector<double> sorted = values_;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
  }
  double least() const { return *std::min_element(values_.begin(), values_.end()); }
  double most() const { return *std::max_element(values_.begin(), values_.end()); }

 private:
  std::vector<double> values_;
};

inline void print_head() { std::printf("%-60s %12s %12s %12s  %s\n", "", "median", "least", "most", "unit"); }
inline void print(const std::string& name, const Rounds& rounds, const char* unit) {
  std::printf("%-60s %12.1f %12.1f %12.1f  %s\n", name.c_str(), rounds.median(), rounds.least(),
              rounds.most(), unit);
}

/// An ORB with its root POA; ended with the object.
class Orb {
 public:
  Orb() {
    int argc = 1;
    char name[] = "bench";
    char* argv[] = {name, nullptr};
    orb_ = CORBA::ORB_init(argc, argv);
    const CORBA::Object_var object = orb_->resolve_initial_references("RootPOA");
    root = PortableServer::POA::_narrow(object);
  }
  ~Orb() {
    root = PortableServer::POA::_nil();
    orb_->destroy();
  }
  Orb(const Orb&) = delete;
  Orb& operator=(const Orb&) = delete;

 private:
  CORBA::ORB_var orb_;

 public:
  PortableServer::POA_var root;
};

inline CORBA::PolicyList list(std::initializer_list<CORBA::Policy*> policies) {
  CORBA::PolicyList all;
  all.length(static_cast<CORBA::ULong>(policies.size()));
  CORBA::ULong at = 0;
  for (CORBA::Policy* policy : policies) all[at++] = policy;
  return all;
}

}  // namespace bench
