// The ORB of the process: one start after another, each with an engine, end points and a tick of its own.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/options.h"
#include "references/reference.h"
#include "serving/engine.h"
#include "serving/listener.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

class Orb {
 public:
  /// Counts a use; the first one puts the options in force. "" or what is wrong with them.
  std::string init(int* argc, char** argv);
  /// Undoes one init; the last one shuts down and frees.
  void destroy(CORBA_Environment* ev);

  Ref<Reference> resolve(const std::string& name, CORBA_Environment* ev);
  void set_initial(const std::string& name, Ref<Reference> object);

  void run(CORBA_Environment* ev);
  /// False, with `ev` filled, when nothing was shut down.
  bool shutdown(bool wait, CORBA_Environment* ev);

  /// The engine whose work the program does itself; null while nothing is served. BAD_INV_ORDER after a
  /// shutdown.
  std::shared_ptr<Engine> hosted_engine(CORBA_Environment* ev);

  const char* published(uint32_t index);
  const char* still_running(uint32_t index);
  /// Null while nothing is served.
  std::shared_ptr<Engine> engine();

 private:
  /// Idle -> Serving (start) -> Closing (shutdown) -> Closed (the closer) -> Serving ...
  enum class State { Idle, Serving, Closing, Closed };

  Ref<Reference> start(CORBA_Environment* ev);
  std::string try_to_start(std::unique_ptr<Listener>* listener, std::shared_ptr<Engine>* engine,
                           Ref<Reference>* root) ZR_REQUIRES(start_mutex_);
  std::string open(std::unique_ptr<Listener>* listener, std::shared_ptr<Engine>* engine);
  Ref<Reference> make_root() ZR_REQUIRES(start_mutex_);
  bool serve(std::unique_ptr<Listener>* listener, const std::shared_ptr<Engine>& engine,
             const Ref<Reference>& root);
  void close();
  void wait_until_closed();

  RecursiveMutex start_mutex_;  // a start, in which the adapter calls back; taken before mutex_
  bool starting_ ZR_GUARDED_BY(start_mutex_) = false;
  Ref<Reference> root_ ZR_GUARDED_BY(start_mutex_);  // what the adapter made, kept for good

  Mutex mutex_;
  Condition changed_;
  State state_ ZR_GUARDED_BY(mutex_) = State::Idle;
  uint64_t ends_ ZR_GUARDED_BY(mutex_) = 0;  // how often it came to Closed
  uint32_t uses_ ZR_GUARDED_BY(mutex_) = 0;
  std::map<std::string, Ref<Reference>> initial_ ZR_GUARDED_BY(mutex_);
  std::vector<std::string> published_ ZR_GUARDED_BY(mutex_), still_running_ ZR_GUARDED_BY(mutex_);
  std::shared_ptr<Engine> engine_ ZR_GUARDED_BY(mutex_);
  std::atomic<uint64_t> engines_{1};  // counts the changes of engine_, under mutex_
  std::unique_ptr<Listener> listener_ ZR_GUARDED_BY(mutex_);
  Ticker ticker_;  // of who starts, and of who closes
  std::thread closer_ ZR_GUARDED_BY(mutex_);
};

/// The ORB of the process. It is never freed, as threads in servants may outlive main.
Orb& orb();

}  // namespace zrsv
