// The active object map and the POA tree: what their operations cost, and what an object and a POA weigh, at
// several populations.
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

/// `count` of `size` numbers, spread over all of them in random order.
std::vector<std::size_t> spread(std::size_t size, std::size_t count) {
  std::vector<std::size_t> all(size);
  std::iota(all.begin(), all.end(), std::size_t{0});
  std::shuffle(all.begin(), all.end(), std::mt19937(1));
  all.resize(count);
  return all;
}

// ---- Objects ---------------------------------------------------------------------------------------------

/// A POA with a number of active objects.
class Population {
 public:
  Population(ps::POA* root, std::size_t size)
      : sample(spread(size, std::clamp<std::size_t>(size / 100, 1, 1000))), servants_(size), ids_(size) {
    for (auto& servant : servants_) servant = std::make_unique<bench::Servant>();
    poa_ = root->create_POA("population", nullptr, CORBA::PolicyList());
    ps::POAManager_var(poa_->the_POAManager())->activate();
    const double empty = allocated();
    const auto start = bench::Clock::now();
    for (std::size_t i = 0; i < size; ++i) activate(i);
    ns_an_activation_ = bench::seconds(bench::Clock::now() - start) * 1e9 / static_cast<double>(size);
    const double full = allocated();
    octets_an_object_ = (full - empty) / static_cast<double>(size);
    for (std::size_t i : sample) refer(i);
    octets_a_reference_ = (allocated() - full) / static_cast<double>(sample.size());
  }
  ~Population() {
    called_.clear();
    destroy();
  }
  Population(const Population&) = delete;
  Population& operator=(const Population&) = delete;

  void activate(std::size_t i) { ids_[i] = poa_->activate_object(servants_[i].get()); }
  void deactivate(std::size_t i) { poa_->deactivate_object(ids_[i]); }
  void find(std::size_t i) {
    if (poa_->id_to_servant(ids_[i]) != servants_[i].get()) std::abort();
  }
  void refer(std::size_t i) { CORBA::release(poa_->servant_to_reference(servants_[i].get())); }
  /// Makes ready for `call`, until the next object is deactivated.
  void find_references() {
    called_.clear();
    for (std::size_t i : sample) called_.push_back(poa_->servant_to_reference(servants_[i].get()));
  }
  /// An operation of the n-th object of the sample.
  void call(std::size_t n) {
    if (called_[n]->add(1, 2) != 3) std::abort();
  }
  void destroy() {
    if (poa_.in()) poa_->destroy(false, false);
    poa_ = ps::POA::_nil();
  }
  std::size_t size() const { return servants_.size(); }

  void weigh(benchmark::State& state) const {
    state.counters["ns/activation"] = ns_an_activation_;
    state.counters["octets/object"] = octets_an_object_;
    state.counters["octets/reference"] = octets_a_reference_;
  }

  /// Objects spread over the whole map, in random order: at most a hundredth, so that the map is as good as
  /// full while they are out of it.
  const std::vector<std::size_t> sample;

 private:
  std::vector<std::unique_ptr<bench::Servant>> servants_;
  std::vector<ps::ObjectId_var> ids_;
  ps::POA_var poa_;
  double ns_an_activation_ = 0;    // one after the other, until all were there
  double octets_an_object_ = 0;    // with the caller's own copy of the id, without the servant
  double octets_a_reference_ = 0;  // the first one of an object

  class Called {
   public:
    Called(CORBA::Object* reference) : object_(reference), echo_(Demo::Echo::_unchecked_narrow(reference)) {}
    Demo::Echo* operator->() const { return echo_.in(); }

   private:
    CORBA::Object_var object_;
    Demo::Echo_var echo_;
  };
  std::vector<Called> called_;
};

template <class Crowd>
struct Operation {
  using Step = void (Crowd::*)(std::size_t);
  const char* name;
  Step before;  // not timed; null for none
  Step timed;
  Step after;  // not timed; null for none. All is as it was
};
constexpr Operation<Population> operations[] = {
    {"id_to_servant", nullptr, &Population::find, nullptr},
    {"servant_to_reference_again", nullptr, &Population::refer, nullptr},
    {"deactivate_object", nullptr, &Population::deactivate, &Population::activate},
    {"activate_object", &Population::deactivate, &Population::activate, nullptr},
};

/// The crowd of that size; any other is gone first.
template <class Crowd>
Crowd& have(std::unique_ptr<Crowd>& crowd, ps::POA* root, std::size_t size) {
  if (!crowd || crowd->size() != size) {
    crowd.reset();
    crowd = std::make_unique<Crowd>(root, size);
  }
  return *crowd;
}

/// The operation on each of the sample, again and again.
template <class Crowd>
void measure(benchmark::State& state, Crowd& crowd, const Operation<Crowd>& operation) {
  const auto each = [&](typename Operation<Crowd>::Step step) {
    const auto start = bench::Clock::now();
    if (step)
      for (std::size_t i : crowd.sample) (crowd.*step)(i);
    return bench::seconds(bench::Clock::now() - start);
  };
  const auto count = static_cast<benchmark::IterationCount>(crowd.sample.size());
  while (state.KeepRunningBatch(count)) {
    each(operation.before);
    state.SetIterationTime(each(operation.timed));
    each(operation.after);
  }
  crowd.weigh(state);
}

/// Calls of the first `objects` of the sample in turn.
void measure_calls(benchmark::State& state, Population& population, std::size_t objects) {
  population.find_references();
  std::size_t n = 0;
  for (auto _ : state) {
    population.call(n);
    n = (n + 1) % objects;
  }
}

/// All objects go: half of them are deactivated, the rest goes with the POA.
void measure_end(benchmark::State& state, ps::POA* root, std::size_t size) {
  for (auto _ : state) {
    Population population(root, size);
    const auto start = bench::Clock::now();
    for (std::size_t i = 0; i < size; i += 2) population.deactivate(i);
    population.destroy();
    state.SetIterationTime(bench::seconds(bench::Clock::now() - start));
  }
}

// ---- POAs ------------------------------------------------------------------------------------------------

/// A POA with a number of children, each with one active object.
class Family {
 public:
  Family(ps::POA* root, std::size_t size)
      : sample(spread(size, std::min<std::size_t>(size, 1000))), servants_(size), children_(size) {
    for (auto& servant : servants_) servant = std::make_unique<bench::Servant>();
    parent_ = root->create_POA("family", nullptr, CORBA::PolicyList());
    const double before = allocated();
    for (std::size_t i = 0; i < size; ++i) create(i);
    octets_a_POA_ = (allocated() - before) / static_cast<double>(size);
  }
  ~Family() { parent_->destroy(false, false); }
  Family(const Family&) = delete;
  Family& operator=(const Family&) = delete;

  void create(std::size_t i) {
    children_[i] = parent_->create_POA(name(i).c_str(), nullptr, CORBA::PolicyList());
    const ps::ObjectId_var id = children_[i]->activate_object(servants_[i].get());
  }
  void destroy(std::size_t i) { children_[i]->destroy(false, false); }
  void find(std::size_t i) { const ps::POA_var found = parent_->find_POA(name(i).c_str(), false); }
  void list(std::size_t) { const ps::POAList_var all = parent_->the_children(); }
  std::size_t size() const { return children_.size(); }

  void weigh(benchmark::State& state) const { state.counters["octets/POA"] = octets_a_POA_; }

  const std::vector<std::size_t> sample;

 private:
  static std::string name(std::size_t i) { return "customer" + std::to_string(i); }

  std::vector<std::unique_ptr<bench::Servant>> servants_;
  ps::POA_var parent_;
  std::vector<ps::POA_var> children_;
  double octets_a_POA_ = 0;  // without the servant
};

constexpr Operation<Family> family_operations[] = {
    {"find_POA", nullptr, &Family::find, nullptr},
    {"destroy_POA", nullptr, &Family::destroy, &Family::create},
    {"create_POA_and_activate", &Family::destroy, &Family::create, nullptr},
};

/// Registers the operations of populations of that size, of which one at a time is there.
template <class Crowd, std::size_t N>
void register_operations(std::unique_ptr<Crowd>& crowd, ps::POA* root, std::size_t size,
                         const Operation<Crowd> (&all)[N]) {
  for (const Operation<Crowd>& operation : all) {
    const auto run = [&crowd, root, size, &operation](benchmark::State& state) {
      measure(state, have(crowd, root, size), operation);
    };
    const std::string name = std::string(operation.name) + "/" + std::to_string(size);
    benchmark::RegisterBenchmark(name.c_str(), run)->UseManualTime();
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (!bench::start(argc, argv)) return EXIT_FAILURE;
  bench::Orb orb;
  std::unique_ptr<Population> population;
  for (const std::size_t size :
       {std::size_t{1}, std::size_t{1'000}, std::size_t{100'000}, std::size_t{1'000'000}}) {
    const std::string count = "/" + std::to_string(size);
    register_operations(population, orb.root, size, operations);
    benchmark::RegisterBenchmark(("call_one" + count).c_str(), [&, size](benchmark::State& state) {
      measure_calls(state, have(population, orb.root, size), 1);
    });
    benchmark::RegisterBenchmark(("call_in_turn" + count).c_str(), [&, size](benchmark::State& state) {
      Population& all = have(population, orb.root, size);
      measure_calls(state, all, all.sample.size());
    });
    benchmark::RegisterBenchmark(("all_gone" + count).c_str(),
                                 [&, size](benchmark::State& state) {
                                   population.reset();
                                   measure_end(state, orb.root, size);
                                 })
        ->UseManualTime()
        ->Iterations(1);
  }
  std::unique_ptr<Family> family;
  for (const std::size_t size : {std::size_t{1}, std::size_t{100}, std::size_t{10'000}}) {
    register_operations(family, orb.root, size, family_operations);
    benchmark::RegisterBenchmark(("the_children/" + std::to_string(size)).c_str(),
                                 [&, size](benchmark::State& state) {
                                   Family& all = have(family, orb.root, size);
                                   for (auto _ : state) all.list(0);
                                 });
  }
  benchmark::RunSpecifiedBenchmarks();
  population.reset();
  family.reset();
}
