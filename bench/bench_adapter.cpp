// The active object map: what its operations cost, and what an object weighs, at several populations.
#include <malloc.h>

#include <CLI/CLI.hpp>
#include <memory>
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
    const double before = allocated();
    for (std::size_t i = 0; i < size; ++i) activate(i);
    octets_an_object = (allocated() - before) / static_cast<double>(size);
  }
  ~Population() { poa_->destroy(false, false); }
  Population(const Population&) = delete;
  Population& operator=(const Population&) = delete;

  void activate(std::size_t i) { ids_[i] = poa_->activate_object(servants_[i].get()); }
  void deactivate(std::size_t i) { poa_->deactivate_object(ids_[i]); }
  bool find(std::size_t i) { return poa_->id_to_servant(ids_[i]) == servants_[i].get(); }
  void refer(std::size_t i) { CORBA::release(poa_->servant_to_reference(servants_[i].get())); }
  std::size_t size() const { return servants_.size(); }

  double octets_an_object = 0;  // without the servant, which is the program's, and its references

 private:
  std::vector<std::unique_ptr<bench::Servant>> servants_;
  std::vector<ps::ObjectId_var> ids_;
  ps::POA_var poa_;
};

/// Some of the population, spread over all of it, in random order; each once.
std::vector<std::size_t> sample_of(const Population& population, std::size_t most, std::mt19937& random) {
  std::vector<std::size_t> all(population.size());
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
  std::shuffle(all.begin(), all.end(), random);
  all.resize(std::min(most, all.size()));
  return all;
}

template <class Work>
double each(const std::vector<std::size_t>& sample, Work&& work) {
  const auto start = bench::Clock::now();
  for (std::size_t i : sample) work(i);
  return bench::nanoseconds(bench::Clock::now() - start) / static_cast<double>(sample.size());
}

struct Results {
  bench::Rounds find, refer, deactivate, activate, memory, reference_memory;
};

/// A sample is at most a hundredth of the population, so that the map is as good as full all the time.
void one_round(Population& population, bool smoke, std::mt19937& random, Results& results) {
  const auto sample =
      sample_of(population, std::clamp<std::size_t>(population.size() / 100, 1, 1000), random);
  const int times = population.size() > 1000 || smoke ? 1 : 1000;
  const auto repeated = [&](auto&& work) {
    double sum = 0;
    for (int i = 0; i < times; ++i) sum += each(sample, work);
    return sum / times;
  };
  results.find.add(repeated([&](std::size_t i) {
    if (!population.find(i)) std::abort();
  }));
  const double before = allocated();
  each(sample, [&](std::size_t i) { population.refer(i); });
  // Later rounds find memory of earlier ones, which counts as allocated all the time.
  if (results.reference_memory.empty())
    results.reference_memory.add((allocated() - before) / static_cast<double>(sample.size()));
  results.refer.add(repeated([&](std::size_t i) { population.refer(i); }));
  double down = 0, up = 0;
  for (int i = 0; i < times; ++i) {
    down += each(sample, [&](std::size_t k) { population.deactivate(k); });
    up += each(sample, [&](std::size_t k) { population.activate(k); });
  }
  results.deactivate.add(down / times);
  results.activate.add(up / times);
}

void measure(ps::POA* root, std::size_t size, bool smoke) {
  std::mt19937 random(1);
  Results results;
  Population population(root, size);
  results.memory.add(population.octets_an_object);
  for (int round = smoke ? 1 : 9; round > 0; --round) one_round(population, smoke, random, results);
  const std::string at = " at " + std::to_string(size);
  bench::print("activate_object" + at, results.activate, "ns");
  bench::print("id_to_servant" + at, results.find, "ns");
  bench::print("servant_to_reference, cached," + at, results.refer, "ns");
  bench::print("deactivate_object" + at, results.deactivate, "ns");
  bench::print("memory of an object" + at, results.memory, "octets");
  bench::print("memory of its first reference" + at, results.reference_memory, "octets");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Costs of the active object map"};
  bool smoke = false;
  std::vector<std::size_t> sizes = {1, 1'000, 100'000};
  app.add_flag("--smoke", smoke, "one short round of small populations");
  app.add_option("--objects", sizes, "active objects")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  if (smoke) sizes = {1, 1'000};

  bench::Orb orb;
  bench::print_head();
  for (std::size_t size : sizes) measure(orb.root, size, smoke);
}
