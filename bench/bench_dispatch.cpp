// The road of a request inside the process: from the upcall through the adapter and the skeleton to the
// servant's operation and back, and what it allocates on the heap.
#include <atomic>
#include <cstdlib>
#include <memory>

#include "bench_support.h"
#include "many_operations.h"

namespace ps = PortableServer;

// ---- Allocations -----------------------------------------------------------------------------------------

namespace {

thread_local std::size_t allocations = 0;  // of the thread, since it began

}  // namespace

// Every allocation of the program and its libraries comes here first, those of operator new included.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) {
  ++allocations;
  return __libc_realloc(block, size);
}

// The adapter's upcall, as the ORB core calls it.
void call_cpp_handler(void* target, void* request, CORBA_Environment* ev);
}

namespace {

// ---- One upcall ------------------------------------------------------------------------------------------

/// What upcalls cost. Over a socket they run on a thread of the ORB.
struct Upcalls {
  std::atomic<bench::Clock::rep> time{0};
  std::atomic<std::size_t> allocations{0};
} upcalls;

void timed_upcall(void* target, void* request, CORBA_Environment* ev) {
  const std::size_t before = allocations;
  const auto start = bench::Clock::now();
  call_cpp_handler(target, request, ev);
  upcalls.time += (bench::Clock::now() - start).count();
  upcalls.allocations += allocations - before;
}

// ---- Who serves ------------------------------------------------------------------------------------------

class Locator : public PortableServer_ServantLocator_impl {
 public:
  explicit Locator(ps::Servant servant) : servant_(servant) {}
  ps::Servant preinvoke(const ps::ObjectId&, ps::POA*, const char*, Cookie& cookie,
                        CORBA::Environment&) override {
    cookie = 1;
    return servant_;
  }
  void postinvoke(const ps::ObjectId&, ps::POA*, const char*, Cookie, ps::Servant,
                  CORBA::Environment&) override {}

 private:
  ps::Servant servant_;
};

/// The same object under another spelling of its address, which the ORB does not know for its own: called
/// over a socket.
CORBA::Object_var over_socket(CORBA::Object* object) {
  const CORBA::String_var own(ZR_object_to_corbaloc(nullptr, object->get_ref(), CORBA::Environment()._evp));
  std::string text(own.in());
  text.replace(text.find("127.0.0.1"), 9, "127.1");
  auto* seen = new CORBA::Object;
  seen->set_ref(CORBA_ORB_string_to_object(nullptr, text.c_str(), CORBA::Environment()._evp));
  return seen;
}

/// An object for each way of finding a servant.
class Objects {
 public:
  explicit Objects(ps::POA* root) : root_(root), locator_(&servant_) {
    top_ = root->create_POA("bench", nullptr, CORBA::PolicyList());
    const ps::POAManager_var manager = top_->the_POAManager();
    manager->activate();
  }
  ~Objects() { top_->destroy(false, false); }
  Objects(const Objects&) = delete;
  Objects& operator=(const Objects&) = delete;

  /// The last of `count` active objects.
  CORBA::Object_var in_map(std::size_t count) {
    ps::POA_var poa = make(top_, {});
    for (std::size_t i = 0; i < count; ++i) {
      others_.push_back(std::make_unique<bench::Servant>());
      const ps::ObjectId_var id = poa->activate_object(others_.back().get());
    }
    return poa->servant_to_reference(others_.back().get());
  }
  CORBA::Object_var deep() {
    ps::POA_var poa = top_;
    for (int level = 0; level < 3; ++level) poa = make(poa, {});
    others_.push_back(std::make_unique<bench::Servant>());
    const ps::ObjectId_var id = poa->activate_object(others_.back().get());
    return poa->servant_to_reference(others_.back().get());
  }
  CORBA::Object_var by_default_servant() {
    ps::POA_var poa = make(top_, {root_->create_request_processing_policy(ps::USE_DEFAULT_SERVANT),
                                  root_->create_id_uniqueness_policy(ps::MULTIPLE_ID)});
    poa->set_servant(&servant_);
    return poa->create_reference(Demo::Echo::repository_id);
  }
  CORBA::Object_var by_locator() {
    ps::POA_var poa = make(top_, {root_->create_request_processing_policy(ps::USE_SERVANT_MANAGER),
                                  root_->create_servant_retention_policy(ps::NON_RETAIN)});
    poa->set_servant_manager(&locator_);
    return poa->create_reference(Demo::Echo::repository_id);
  }

 private:
  ps::POA* make(ps::POA* parent, std::initializer_list<CORBA::Policy*> policies) {
    return parent->create_POA(("poa" + std::to_string(++made_)).c_str(), nullptr, bench::list(policies));
  }

  ps::POA* const root_;
  int made_ = 0;
  bench::Servant servant_;
  std::vector<std::unique_ptr<bench::Servant>> others_;
  Locator locator_;
  ps::POA_var top_;
};

// ---- Calls -----------------------------------------------------------------------------------------------

void add(Demo::Echo* echo, CORBA::Long a) {
  if (echo->add(a, 1) != a + 1) std::abort();
}

void per_call(benchmark::State& state, std::size_t allocated) {
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocated), benchmark::Counter::kAvgIterations);
}

/// From the stub and back to it. Allocations of the caller's thread.
void whole_call(benchmark::State& state, Demo::Echo* echo) {
  const std::size_t before = allocations;
  CORBA::Long a = 0;
  for (auto _ : state) add(echo, a++);
  per_call(state, allocations - before);
}

/// The last operation of an interface that has N.
template <std::size_t N>
void last_operation(ps::POA* root) {
  benchmark::RegisterBenchmark(("last_of_" + std::to_string(N) + "_operations/whole_call").c_str(),
                               [root](benchmark::State& state) {
                                 bench::Many<N> servant;
                                 const ps::ObjectId_var id = root->activate_object(&servant);
                                 const CORBA::Object_var object = root->id_to_reference(id);
                                 if (!bench::Many<N>::right(object)) std::abort();
                                 for (auto _ : state) bench::Many<N>::template row<N - 1>(object.in());
                                 root->deactivate_object(id);
                               })
      ->UseRealTime();
}

/// From the upcall to the servant and back, two readings of the clock included. Allocations of that.
void upcall(benchmark::State& state, Demo::Echo* echo) {
  _call_cpp_ = timed_upcall;
  upcalls.allocations = 0;
  CORBA::Long a = 0;
  for (auto _ : state) {
    upcalls.time = 0;
    add(echo, a++);
    state.SetIterationTime(bench::seconds(bench::Clock::duration(upcalls.time)));
  }
  per_call(state, upcalls.allocations);
  _call_cpp_ = call_cpp_handler;
}

void clock_cost(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(bench::Clock::now());
}

}  // namespace

int main(int argc, char** argv) {
  if (!bench::start(argc, argv)) return EXIT_FAILURE;
  bench::Orb orb;
  Objects objects(orb.root);
  const CORBA::Object_var single = objects.in_map(1);
  const std::pair<std::string, CORBA::Object_var> found[] = {
      {"only_object", single},
      {"last_of_1000", objects.in_map(1'000)},
      {"three_POAs_below", objects.deep()},
      {"default_servant", objects.by_default_servant()},
      {"servant_locator", objects.by_locator()},
      {"over_a_socket", over_socket(single)},
  };
  benchmark::RegisterBenchmark("clock", clock_cost);
  for (const auto& [way, by_that_way] : found) {
    const std::string& name = way;
    CORBA::Object* object = by_that_way.in();
    const auto benchmark_of = [&](const char* what, auto&& calls) {
      const auto run = [object, calls](benchmark::State& state) {
        const Demo::Echo_var echo = Demo::Echo::_narrow(object);
        calls(state, echo.in());
      };
      return benchmark::RegisterBenchmark((name + what).c_str(), run);
    };
    benchmark_of("/upcall", upcall)->UseManualTime();
    benchmark_of("/whole_call", whole_call)->UseRealTime();
  }
  last_operation<5>(orb.root);
  last_operation<200>(orb.root);
  benchmark::RunSpecifiedBenchmarks();
}
