// What the ORBs of the process know.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "corba/request.h"
#include "orb/policy_overrides.h"
#include "zrsv/thread_safety.h"

namespace CORBA {

struct Interceptors;

/// One ORB; the scope of the calls of the references that it made.
struct OrbState : zrsv::CallScope {
  explicit OrbState(std::string name) : id(std::move(name)) {}

  const std::string id;
  zrsv::Mutex mutex;                                           // of the members below
  std::map<std::string, Object_var, std::less<>> registered;   // initial references
  std::map<std::string, std::string, std::less<>> configured;  // -ORBInitRef: name to URL
  std::string default_url;                                     // -ORBDefaultInitRef
  PolicyOverrides overrides;
  std::vector<Request_var> deferred;                 // by send_multiple_requests_deferred
  std::shared_ptr<const Interceptors> interceptors;  // null: none
};
using OrbPointer = std::shared_ptr<OrbState>;

/// A wrapper that knows its ORB, as all are that programs get.
class NamedOrb final : public ORB {
 public:
  NamedOrb(OrbPointer orb, void* handle) : state(std::move(orb)) { set_ref(handle); }
  const OrbPointer state;
};
/// The ORB behind a wrapper; null for one that was made of the core's handle alone.
inline OrbPointer state_of(const ORB& orb) {
  const auto* named = dynamic_cast<const NamedOrb*>(&orb);
  return named ? named->state : nullptr;
}

/// The ORB options of the runtime itself.
struct OrbOptions {
  std::string id;
  std::map<std::string, std::string, std::less<>> configured;
  std::string default_url;
};

/// The ORBs of the process, in the order in which they were made. One of them, at most, owns the ORB core's server
/// side.
class Orbs {
 public:
  /// The ORB of that id, made when there is none (`made`); counts a use.
  OrbPointer enter(const OrbOptions& options, bool* made);
  bool lives(const OrbPointer& orb);
  /// True when one more leave() ends the ORB, and the server side with it.
  bool is_last_use_of_server(const OrbPointer& orb);
  /// Undoes one use, the last of which ends the ORB. False when it has ended already.
  bool leave(const OrbPointer& orb);
  /// The ORB whose references carry no scope: the owner of the server side, else the oldest; null for none.
  OrbPointer standard();

  /// True when the server side is this ORB's.
  bool is_server(const OrbPointer& orb);
  /// True when it is from now on; false when it is another's.
  bool own_server(const OrbPointer& orb);
  /// True when the server side is this ORB's, or could be nobody else's.
  bool may_serve(const OrbPointer& orb);

  /// Waits until the ORB is shut down or gone (false), or may serve (true).
  bool wait_to_serve(const OrbPointer& orb);
  /// Ends that waiting, for good.
  void end_run(const OrbPointer& orb);

  /// The limit of calls that the ORB's policies set.
  void set_limit(const OrbPointer& orb, std::int64_t limit);

 private:
  struct Entry {
    OrbPointer orb;
    ULong uses = 0;
    bool ended = false;
  };
  OrbPointer use(const std::string& id, bool* made);
  Entry* find(const OrbPointer& orb) ZR_REQUIRES(mutex_);
  bool may_serve_locked(const OrbPointer& orb) ZR_REQUIRES(mutex_);
  OrbPointer standard_locked() ZR_REQUIRES(mutex_);
  void refresh_default() ZR_REQUIRES(mutex_);

  zrsv::Mutex mutex_;
  zrsv::Condition changed_;
  std::vector<Entry> all_ ZR_GUARDED_BY(mutex_);
  OrbPointer owner_ ZR_GUARDED_BY(mutex_);
};

Orbs& orbs();

/// The ORB behind a wrapper, alive; BAD_INV_ORDER when it is destroyed.
OrbPointer live(const ORB& orb, Environment& ev);

/// The ORB that a handle came from; null when there is none.
OrbPointer orb_of(void* handle);

/// The steps of resolve_initial_references and string_to_object (orb_references.cpp).
Object* resolve(const OrbPointer& orb, const std::string& name, Environment& ev);
Object* from_url(const OrbPointer& orb, const char* text, Environment& ev);
/// A wrapper that owns `handle`, in the scope of the ORB where references need one; nil for null.
Object* own_reference(const OrbPointer& orb, void* handle);
/// Names that resolve() knows without configuration.
std::vector<std::string> own_services(const OrbPointer& orb);

}  // namespace CORBA
