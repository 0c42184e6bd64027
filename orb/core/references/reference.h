// References: what a handle of the C interface points to.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/ref.h"
#include "wire/code_sets.h"
#include "wire/iiop_profile.h"
#include "wire/object_key.h"
#include "zrsv.h"
#include "zrsv/call_scope.h"
#include "zrsv/thread_safety.h"

namespace zrsv {

/// One object reference: immutable, but for the forward that calls on it follow. A local reference is one
/// whose key this process minted or accepted; it has no profiles of its own: they are written from the
/// published end points each time it leaves the process.
class Reference {
 public:
  /// Null when a part is too long for the key layout.
  static Ref<Reference> make_local(std::string_view impl, std::string_view intf, std::string_view data);
  /// The local reference that a key names; null when this kind of server never minted such a key, or it is
  /// damaged.
  static Ref<Reference> from_key(std::string_view key);
  /// A reference of another server (or of this one: it turns local when its key is ours and a profile names a
  /// published end point). Null when an IIOP profile is malformed.
  static Ref<Reference> from_profiles(std::string type_id, std::vector<Tagged> profiles);

  /// Another reference to the same object, whose calls are in `scope`.
  static Ref<Reference> in_scope(const Reference& of, std::shared_ptr<CallScope> scope);

  void add_ref() { count_.fetch_add(1, std::memory_order_relaxed); }
  void drop() {
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  bool is_local() const { return local_; }
  /// True when the object is one of the broker's own: it names no POA path.
  bool is_internal() const { return internal_; }
  const std::string& type_id() const { return type_id_; }
  const std::string& key() const { return key_; }
  /// Parts of a local reference's key, views into key(); NUL-terminated copies of the names are impl_name()
  /// and intf_name().
  std::string_view data() const { return data_; }
  const std::string& impl_name() const { return impl_; }
  const std::string& intf_name() const { return intf_; }
  /// Where a call may go, in order of preference; empty for a local reference.
  const std::vector<IiopProfile>& iiop() const { return iiop_; }
  /// Whether a call can go anywhere at all.
  bool can_be_called() const { return local_ || !iiop_.empty(); }
  const std::vector<Tagged>& profiles() const { return profiles_; }
  /// The lowest GIOP 1.x of all those places; 2 for a local reference.
  uint8_t least_minor() const { return least_minor_; }
  /// What the texts of a call are in; of a local reference what texts are in here.
  const CodeSets& code_sets() const { return code_sets_; }

  /// Null as a rule.
  const std::shared_ptr<CallScope>& scope() const { return scope_; }

  bool is_forwarded() const { return has_forward_.load(std::memory_order_acquire); }
  /// The forward now in force, or null.
  Ref<Reference> forward() const;
  /// Counts forwards without an answer between; false when there were too many. One that cannot be called is
  /// not followed.
  bool set_forward(Ref<Reference> to);
  /// An answer came: forwards count from zero again.
  void answered() {
    if (forwards_.load(std::memory_order_relaxed) != 0) forwards_.store(0, std::memory_order_relaxed);
  }
  /// The forward failed: calls go to the reference itself again.
  void clear_forward();

 private:
  Reference() = default;
  ~Reference() = default;
  /// A local reference of that key; null when the key is not one of ours. An empty type id becomes the key's
  /// interface id.
  static Ref<Reference> local_of(std::string_view key, std::string_view type_id);
  /// Becomes the local reference of a key whose parts those are, whatever it was: it is new, or nobody has it.
  void become(std::string_view key, const KeyParts& parts, std::string_view type_id);
  /// The same for a key that differs from its own in the data alone, which is as long. False when it is none.
  bool become_sibling(std::string_view key);
  void forget_forward();
  bool is_shared() const { return count_.load(std::memory_order_acquire) != 1; }

  std::atomic<uint32_t> count_{1};
  bool local_ = false;
  bool internal_ = false;
  uint8_t least_minor_ = 2;
  CodeSets code_sets_{ZR_TEXT_NATIVE, ZR_TEXT_NATIVE, true};
  std::string type_id_, key_, impl_, intf_;
  std::string_view data_;
  std::vector<Tagged> profiles_;
  std::vector<IiopProfile> iiop_;
  std::shared_ptr<CallScope> scope_;
  std::atomic<uint32_t> forwards_{0};
  std::atomic<bool> has_forward_{false};
  mutable Mutex forward_mutex_;
  Ref<Reference> forward_ ZR_GUARDED_BY(forward_mutex_);
};

/// Handles of the C interface.
inline Reference* as_reference(void* handle) { return static_cast<Reference*>(handle); }

/// CDR form of a reference (type id, profiles; null = nil). Writing a local one takes the published end
/// points.
bool write_reference(CDR* cdr, const Reference* reference);
/// False on malformed octets; *out is null for the nil reference.
bool read_reference(CDR* cdr, Ref<Reference>* out);

/// End points published in references; set by the ORB when it opens its end points, before any other thread
/// runs.
const std::vector<Endpoint>& published_endpoints();
void set_published_endpoints(std::vector<Endpoint> endpoints);

/// Whether references can be bound (zrsv/reference.h). The ORB says false when it shuts down, which empties
/// the table, and true when it is made.
void set_binding_open(bool open);

/// Remembers the reason of this thread's last failed client-side call, for SetStdExReqLib. `id` is the short
/// name ("TRANSIENT").
void set_last_failure(const char* id, uint32_t minor = 0, int completed = -1);

/// Fills `ev` with the system exception of that short name ("BAD_PARAM").
void raise_standard(CORBA_Environment* ev, const char* name, uint32_t minor = 0,
                    uint32_t completed = CORBA_COMPLETED_NO);

}  // namespace zrsv
