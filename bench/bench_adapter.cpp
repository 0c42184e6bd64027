// The active object map: what its operations cost, and what an object weighs, at several populations.
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <random>

#include "bench_support.h"

namespace ps = PortableServer;

namespace {

/// Octets that are allocated now.
double allocated() {
  const struct mallinfo2 info = ::mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

/// A POA with a number of active objects.
class Population {
 public:
  Population(ps::POA* root, std::size_t size) : servants_(size), ids_(size) {
    for (auto& servant : servants_) servant = std::make_unique<bench::Servant>();
    poa_ = root->create_POA("population", nullptr, CORBA::PolicyList());
    choose_sample();
    const double empty = allocated();
    for (std::size_t i = 0; i < size; ++i) activate(i);
    const double full = allocated();
    octets_an_object = (full - empty) / static_cast<double>(size);
    for (std::size_t i : sample) refer(i);
    octets_a_reference = (allocated() - full) / static_cast<double>(sample.size());
  }
  ~Population() { poa_->destroy(false, false); }
  Population(const Population&) = delete;
  Population& operator=(const Population&) = delete;

  void activate(std::size_t i) { ids_[i] = poa_->activate_object(servants_[i].get()); }
  void deactivate(std::size_t i) { poa_->deactivate_object(ids_[i]); }
  void find(std::size_t i) {
    if (poa_->id_to_servant(ids_[i]) != servants_[i].get()) std::abort();
  }
  void refer(std::size_t i) { CORBA::release(poa_->servant_to_reference(servants_[i].get())); }
  std::size_t size() const { return servants_.size(); }

  double octets_an_object = 0;    // without the servant, which is the program's
  double octets_a_reference = 0;  // the first one of an object
  /// Objects spread over the whole map, in random order: at most a hundredth, so that the map is as good as
  /// full while they are out of it.
  std::vector<std::size_t> sample;

 private:
  void choose_sample() {
    std::vector<std::size_t> all(size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    std::shuffle(all.begin(), all.end(), std::mt19937(1));
    all.resize(std::clamp<std::size_t>(size() / 100, 1, 1000));
    sample = std::move(all);
  }

  std::vector<std::unique_ptr<bench::Servant>> servants_;
  std::vector<ps::ObjectId_var> ids_;
  ps::POA_var poa_;
};

using Step = void (Population::*)(std::size_t);

struct Operation {
  const char* name;
  Step before;  // not timed; null for none
  Step timed;
  Step after;  // not timed; null for none. The object is active again
};
constexpr Operation operations[] = {
    {"id_to_servant", nullptr, &Population::find, nullptr},
    {"servant_to_reference_again", nullptr, &Population::refer, nullptr},
    {"deactivate_object", nullptr, &Population::deactivate, &Population::activate},
    {"activate_object", &Population::deactivate, &Population::activate, nullptr},
};

/// The operation on each object of the sample, again and again.
void measure(benchmark::State& state, Population& population, const Operation& operation) {
  const auto each = [&](Step step) {
    const auto start = bench::Clock::now();
    if (step)
      for (std::size_t i : population.sample) (population.*step)(i);
    return bench::seconds(bench::Clock::now() - start);
  };
  const auto count = static_cast<benchmark::IterationCount>(population.sample.size());
  while (state.KeepRunningBatch(count)) {
    each(operation.before);
    state.SetIterationTime(each(operation.timed));
    each(operation.after);
  }
  state.counters["octets/object"] = population.octets_an_object;
  state.counters["octets/reference"] = population.octets_a_reference;
}

}  // namespace

int main(int argc, char** argv) {
  if (!bench::start(argc, argv)) return EXIT_FAILURE;
  bench::Orb orb;
  std::unique_ptr<Population> population;  // of the size asked for last
  for (const std::size_t size : {std::size_t{1}, std::size_t{1'000}, std::size_t{100'000}}) {
    for (const Operation& operation : operations) {
      const auto run = [&, size](benchmark::State& state) {
        if (!population || population->size() != size) {
          population.reset();
          population = std::make_unique<Population>(orb.root, size);
        }
        measure(state, *population, operation);
      };
      const std::string name = std::string(operation.name) + "/" + std::to_string(size);
      benchmark::RegisterBenchmark(name.c_str(), run)->UseManualTime();
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  population.reset();
}
