#include "serving/orb.h"

#include <algorithm>
#include <deque>

#include "base/endpoint.h"
#include "base/memory.h"
#include "base/process_life.h"
#include "connections/client_pool.h"
#include "references/environment.h"
#include "references/repository.h"
#include "requests/queue_group.h"
#include "requests/upcall.h"
#include "wire/key_secret.h"
#include "zrsv/initial_references.h"
#include "zrsv/of_thread.h"

void* (*_cpp_poa_init)(void* orb, void* boa) = nullptr;
void (*_call_cpp_)(void* target, void* request, CORBA_Environment* ev) = nullptr;
void (*_call_disconnect_cpp_)(long fd, void* host_addr, unsigned char is_ipv6) = nullptr;
void (*_call_poa_inst_lifespan_)(void) = nullptr;

namespace zrsv {

namespace {

std::atomic<uint64_t> initial_changes{1};

// What the untyped service handles point to.
char boa, interface_repository, implementation_repository;

uint32_t slots() {
  return options().threads ? options().threads : std::max(4u, 2 * std::thread::hardware_concurrency());
}

std::string list_of(const std::vector<Endpoint>& all) {
  std::string list;
  for (const Endpoint& at : all) list += (list.empty() ? "" : ", ") + endpoint_text(at);
  return list;
}

}  // namespace

Orb& orb() {
  static Orb* const one = new Orb;
  return *one;
}

uint64_t initial_reference_changes() { return initial_changes.load(std::memory_order_acquire); }
void count_initial_reference_change() { initial_changes.fetch_add(1, std::memory_order_acq_rel); }

// ---- Uses ----

std::string Orb::init(int* argc, char** argv) {
  Options wanted;
  if (std::string wrong = parse_options(argc, argv, &wanted); !wrong.empty()) return wrong;
  const MutexLock lock(mutex_);
  if (uses_ == 0) {
    if (std::string wrong = load_impl_repository(wanted.impl_repository); !wrong.empty()) return wrong;
    if (std::string wrong = load_key_secret(wanted.key_secret); !wrong.empty()) return wrong;
    set_memory_budget(wanted.max_memory);
    set_options(std::move(wanted));
    set_binding_open(true);
    mark_usable();
  }
  ++uses_;
  return {};
}

void Orb::destroy(CORBA_Environment* ev) {
  {
    const MutexLock lock(mutex_);
    if (uses_ == 0) return raise_standard(ev, "BAD_INV_ORDER");
    if (uses_ > 1) {
      --uses_;
      return;
    }
  }
  if (Upcall::running()) return raise_standard(ev, "BAD_INV_ORDER");
  if (!shutdown(true, ev)) return;
  mark_destroyed();  // first, so that no call opens a connection any more
  close_client_connections();
  std::map<std::string, Ref<Reference>> dropped;
  const MutexLock lock(mutex_);
  dropped.swap(initial_);
  count_initial_reference_change();
  published_.clear();
  load_key_secret("");
  state_ = State::Idle;
  uses_ = 0;
}

// ---- Initial references, start ----

Ref<Reference> Orb::resolve(const std::string& name, CORBA_Environment* ev) {
  {
    const MutexLock lock(mutex_);
    const auto found = initial_.find(name);
    if (found != initial_.end()) return found->second;
  }
  if (name == "RootPOA") return start(ev);
  raise_standard(ev, "BAD_PARAM");
  return {};
}

void Orb::set_initial(const std::string& name, Ref<Reference> object) {
  const MutexLock lock(mutex_);
  initial_[name] = std::move(object);
  count_initial_reference_change();
}

Ref<Reference> Orb::start(CORBA_Environment* ev) {
  const RecursiveMutexLock start_lock(start_mutex_);
  {
    const MutexLock lock(mutex_);
    if (const auto found = initial_.find("RootPOA"); found != initial_.end()) return found->second;
    if (starting_ || state_ == State::Closing || uses_ == 0)
      return raise_standard(ev, "BAD_INV_ORDER"), Ref<Reference>();
    state_ = State::Idle;
  }
  starting_ = true;
  mark_in_use();
  std::unique_ptr<Listener> listener;
  std::shared_ptr<Engine> engine;
  Ref<Reference> root;
  std::string wrong;
  try {
    wrong = try_to_start(&listener, &engine, &root);
  } catch (const std::exception& e) {  // of memory, or of threads, there is none
    wrong = "no memory";
    OM_log_at(ZR_LOG_ERROR, "%s", e.what());
  }
  starting_ = false;
  if (wrong.empty()) return root;
  OM_log_at(ZR_LOG_ERROR, "start failed: %s", wrong.c_str());
  if (engine) engine->stop(Clock::now());
  set_published_endpoints({});
  raise_standard(ev, "INITIALIZE");
  return {};
}

std::string Orb::try_to_start(std::unique_ptr<Listener>* listener, std::shared_ptr<Engine>* engine,
                              Ref<Reference>* root) {
  std::string wrong = open(listener, engine);
  if (!wrong.empty()) return wrong;
  *root = make_root();
  if (!*root) return _cpp_poa_init ? "no root POA was made" : "no object adapter is linked in";
  if (!(*engine)->start()) return "the threads cannot be had";
  return serve(listener, *engine, *root) ? "" : "shut down meanwhile";
}

// The adapter hands out a new handle the first time; after that the same one, which is not new.
Ref<Reference> Orb::make_root() {
  set_binding_open(true);
  void* handle = nullptr;
  try {
    if (_cpp_poa_init) handle = _cpp_poa_init(this, &boa);
  } catch (const std::exception& e) {
    OM_log_at(ZR_LOG_ERROR, "making the root POA failed: %s", e.what());
  } catch (...) {
    OM_log_at(ZR_LOG_ERROR, "making the root POA failed");
  }
  auto* const made = as_reference(handle);
  if (made && made != root_.get()) root_ = Ref<Reference>::adopt(made);
  return made ? root_ : Ref<Reference>();
}

std::string Orb::open(std::unique_ptr<Listener>* listener, std::shared_ptr<Engine>* engine) {
  *engine = std::make_shared<Engine>(slots());
  *listener = std::make_unique<Listener>(*engine);
  if (std::string wrong = (*listener)->open(options().listen); !wrong.empty()) return wrong;
  const std::vector<Endpoint> published = (*listener)->published(options().publish);
  set_published_endpoints(published);
  OM_log_at(ZR_LOG_INFO, "listening on %s, references publish %s", list_of((*listener)->bound()).c_str(),
            list_of(published).c_str());
  const MutexLock lock(mutex_);
  published_.clear();
  for (const Endpoint& at : published) published_.push_back(endpoint_text(at));
  return {};
}

bool Orb::serve(std::unique_ptr<Listener>* listener, const std::shared_ptr<Engine>& engine,
                const Ref<Reference>& root) {
  const MutexLock lock(mutex_);
  if (state_ != State::Idle) return false;
  const auto known = initial_.emplace("RootPOA", root).first;
  try {
    (*listener)->start();
    ticker_.start(std::chrono::milliseconds(options().tick_ms));
  } catch (...) {
    initial_.erase(known);
    throw;
  }
  engine_ = engine;
  ++engines_;
  listener_ = std::move(*listener);
  state_ = State::Serving;
  count_initial_reference_change();
  return true;
}

// ---- Serving, end ----

void Orb::run(CORBA_Environment* ev) {
  if (Upcall::running()) return raise_standard(ev, "BAD_INV_ORDER");
  if (const std::shared_ptr<Engine> serving = engine()) serving->end_hosting();
  wait_until_closed();
}

void Orb::wait_until_closed() {
  std::thread closer;
  {
    const MutexLock lock(mutex_);
    const uint64_t ends = ends_;
    while (state_ != State::Closed && ends_ == ends) changed_.wait(mutex_);
    closer.swap(closer_);
  }
  if (closer.joinable()) closer.join();
}

bool Orb::shutdown(bool wait, CORBA_Environment* ev) try {
  if (wait && Upcall::running()) return raise_standard(ev, "BAD_INV_ORDER"), false;
  {
    const MutexLock lock(mutex_);
    if (state_ == State::Serving) {
      if (closer_.joinable()) closer_.join();  // of an earlier start: it is over
      closer_ = std::thread([this] { close(); });
      state_ = State::Closing;
      initial_.erase("RootPOA");
      count_initial_reference_change();
    } else if (state_ == State::Idle) {
      state_ = State::Closed;
      ++ends_;
      changed_.notify_all();
    }
  }
  if (wait) wait_until_closed();
  return true;
} catch (const std::exception& e) {  // there is no thread for it: nothing has changed
  OM_log("shutdown: %s", e.what());
  raise_standard(ev, "NO_MEMORY");
  return false;
}

// The closer thread: whoever asked for the end may be one of those that have to end.
void Orb::close() {
  const auto deadline = Clock::now() + std::chrono::milliseconds(options().shutdown_timeout_ms);
  std::unique_ptr<Listener> listener;
  std::shared_ptr<Engine> engine;
  {
    const MutexLock lock(mutex_);
    listener = std::move(listener_);
    engine = engine_;
  }
  listener->stop();
  std::vector<std::string> still_running = engine->stop(deadline);
  ticker_.stop(deadline);
  set_binding_open(false);
  listener.reset();
  engine.reset();
  const MutexLock lock(mutex_);
  engine_.reset();
  ++engines_;
  still_running_ = std::move(still_running);
  state_ = State::Closed;
  ++ends_;
  changed_.notify_all();
}

std::shared_ptr<Engine> Orb::hosted_engine(CORBA_Environment* ev) {
  std::shared_ptr<Engine> serving;
  {
    const MutexLock lock(mutex_);
    if (state_ == State::Closing || state_ == State::Closed)
      return raise_standard(ev, "BAD_INV_ORDER", 0x4F4D0004), nullptr;
    serving = engine_;
  }
  if (!serving) return nullptr;
  serving->host_work();
  return serving;
}

const char* Orb::still_running(uint32_t index) {
  const MutexLock lock(mutex_);
  return index < still_running_.size() ? still_running_[index].c_str() : nullptr;
}

const char* Orb::published(uint32_t index) {
  const MutexLock lock(mutex_);
  return index < published_.size() ? published_[index].c_str() : nullptr;
}

std::shared_ptr<Engine> Orb::engine() {
  struct Last {
    std::weak_ptr<Engine> engine;
    uint64_t number = 0;  // engines_ when it was seen
  };
  Last* const last = of_thread<Last>();
  if (last && last->number == engines_.load(std::memory_order_acquire))
    if (std::shared_ptr<Engine> engine = last->engine.lock()) return engine;
  const MutexLock lock(mutex_);
  if (last) *last = {engine_, engines_};
  return engine_;
}

}  // namespace zrsv

using namespace zrsv;

namespace {

/// The ORB behind a handle, or null with `ev` filled.
Orb* orb_of(void* handle, CORBA_Environment* ev) {
  if (handle == &orb() && !in_forked_child()) return &orb();
  if (in_forked_child()) log_forked_child();
  raise_standard(ev, in_forked_child() ? "BAD_INV_ORDER" : "BAD_PARAM");
  return nullptr;
}

/// The same for the end of an ORB: a child has nothing of its own to end, and leaves its parent's alone.
Orb* orb_to_end(void* handle, CORBA_Environment* ev) {
  return in_forked_child() ? nullptr : orb_of(handle, ev);
}

}  // namespace

void* CORBA_ORB_init(int* argc, char** argv, const char* /*orb_id*/, CORBA_Environment* ev) {
  return guarded(ev, [&]() -> void* {
    if (in_forked_child()) return orb_of(&orb(), ev);
    const std::string wrong = orb().init(argc, argv);
    if (wrong.empty()) return &orb();
    OM_log("%s", wrong.c_str());
    raise_standard(ev, "BAD_PARAM");
    return nullptr;
  });
}

void* CORBA_ORB_resolve_initial_references(void* handle, const char* name, CORBA_Environment* ev) {
  return guarded(ev, [&]() -> void* {
    Orb* const of = orb_of(handle, ev);
    if (!of) return nullptr;
    const std::string wanted = name ? name : "";
    if (wanted == "KQ_LightInterfaceRepository") return &interface_repository;
    if (wanted == "ImplementationRepository") return &implementation_repository;
    return of->resolve(wanted, ev).release();
  });
}

void ZR_register_initial_reference(void* handle, const char* name, void* object) {
  if (handle == &orb() && name && object)
    orb().set_initial(name, Ref<Reference>::share(as_reference(object)));
}

void CORBA_ORB_run(void* handle, CORBA_Environment* ev) {
  if (Orb* const of = orb_of(handle, ev)) of->run(ev);
}

void CORBA_ORB_shutdown(void* handle, unsigned char wait, CORBA_Environment* ev) {
  if (Orb* const of = orb_to_end(handle, ev)) of->shutdown(wait, ev);
}

void CORBA_ORB_destroy(void* handle, CORBA_Environment* ev) {
  if (Orb* const of = orb_to_end(handle, ev)) of->destroy(ev);
}

int ZR_work_descriptor(void* handle, CORBA_Environment* ev) {
  Orb* const of = orb_of(handle, ev);
  const std::shared_ptr<Engine> engine = of ? of->hosted_engine(ev) : nullptr;
  return engine ? engine->host_work() : -1;
}

unsigned char ZR_work_pending(void* handle, CORBA_Environment* ev) {
  Orb* const of = orb_of(handle, ev);
  const std::shared_ptr<Engine> engine = of ? of->hosted_engine(ev) : nullptr;
  return engine && engine->work_pending();
}

void ZR_perform_work(void* handle, CORBA_Environment* ev) {
  Orb* const of = orb_of(handle, ev);
  if (const std::shared_ptr<Engine> engine = of ? of->hosted_engine(ev) : nullptr) engine->perform_work();
}

const char* ZR_still_running(uint32_t index) { return orb().still_running(index); }

const char* ZR_published_endpoint(void* handle, uint32_t index) {
  return handle == &orb() ? orb().published(index) : nullptr;
}
