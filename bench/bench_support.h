// What the benchmarks of the object adapter share: a servant that does next to nothing, and a program's
// frame.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <initializer_list>
#include <string>
#include <vector>

#include "plain_servant.h"

namespace bench {

using Clock = std::chrono::steady_clock;

inline double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

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

/// Reads the program's options. Unless they say otherwise, each benchmark runs several times and its median
/// is printed. False when an option is not known, which is printed.
inline bool start(int argc, char** argv) {
  static std::vector<std::string> options = {argv[0], "--benchmark_repetitions=9",
                                             "--benchmark_report_aggregates_only=true"};
  options.insert(options.end(), argv + 1, argv + argc);
  static std::vector<char*> pointers;
  for (std::string& option : options) pointers.push_back(option.data());
  int count = static_cast<int>(pointers.size());
  benchmark::Initialize(&count, pointers.data());
  return !benchmark::ReportUnrecognizedArguments(count, pointers.data());
}

}  // namespace bench
