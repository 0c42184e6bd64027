#include "orb/orb_state.h"

#include <algorithm>

#include "base/raise.h"
#include "zrsv/initial_references.h"

namespace CORBA {

constexpr ULong has_shut_down = OMGVMCID | 4;

Orbs& orbs() {
  static Orbs* const one = new Orbs;  // references may be let go until the process ends
  return *one;
}

Orbs::Entry* Orbs::find(const OrbPointer& orb) {
  const auto found = std::ranges::find(all_, orb, &Entry::orb);
  return found == all_.end() ? nullptr : &*found;
}

OrbPointer Orbs::use(const std::string& id, bool* made) {
  const zrsv::MutexLock lock(mutex_);
  auto found = std::ranges::find_if(all_, [&](const Entry& e) { return e.orb->id == id; });
  *made = found == all_.end();
  if (*made) found = all_.insert(all_.end(), {std::make_shared<OrbState>(id)});
  ++found->uses;
  return found->orb;
}

// Not with both locks: who holds an ORB's asks for this one.
OrbPointer Orbs::enter(const OrbOptions& options, bool* made) {
  OrbPointer orb = use(options.id, made);
  const zrsv::MutexLock lock(orb->mutex);
  for (const auto& [name, url] : options.configured) orb->configured[name] = url;
  if (!options.default_url.empty()) orb->default_url = options.default_url;
  zrsv::count_initial_reference_change();
  return orb;
}

bool Orbs::lives(const OrbPointer& orb) {
  const zrsv::MutexLock lock(mutex_);
  return find(orb) != nullptr;
}

bool Orbs::is_last_use_of_server(const OrbPointer& orb) {
  const zrsv::MutexLock lock(mutex_);
  const Entry* const entry = find(orb);
  return entry && entry->uses == 1 && may_serve_locked(orb);
}

bool Orbs::leave(const OrbPointer& orb) {
  const zrsv::MutexLock lock(mutex_);
  Entry* const entry = find(orb);
  if (!entry) return false;
  if (entry->uses > 1) return --entry->uses, true;
  if (owner_ == orb) owner_.reset();
  all_.erase(all_.begin() + (entry - all_.data()));
  zrsv::use_call_scopes();
  orb->closed = true;
  refresh_default();
  changed_.notify_all();
  zrsv::count_initial_reference_change();
  return true;
}

OrbPointer Orbs::standard_locked() {
  if (owner_) return owner_;
  return all_.empty() ? nullptr : all_.front().orb;
}

OrbPointer Orbs::standard() {
  const zrsv::MutexLock lock(mutex_);
  return standard_locked();
}

bool Orbs::own_server(const OrbPointer& orb) {
  const zrsv::MutexLock lock(mutex_);
  if (owner_ && owner_ != orb) return false;
  if (!find(orb)) return false;
  if (std::exchange(owner_, orb) != orb) zrsv::count_initial_reference_change();
  refresh_default();
  changed_.notify_all();
  return true;
}

bool Orbs::may_serve_locked(const OrbPointer& orb) { return owner_ ? owner_ == orb : all_.size() == 1; }

bool Orbs::is_server(const OrbPointer& orb) {
  const zrsv::MutexLock lock(mutex_);
  return owner_ == orb;
}

bool Orbs::may_serve(const OrbPointer& orb) {
  const zrsv::MutexLock lock(mutex_);
  return may_serve_locked(orb);
}

bool Orbs::wait_to_serve(const OrbPointer& orb) {
  const zrsv::MutexLock lock(mutex_);
  for (;; changed_.wait(mutex_)) {
    const Entry* const entry = find(orb);
    if (entry && may_serve_locked(orb)) return true;
    if (!entry || entry->ended) return false;
  }
}

void Orbs::end_run(const OrbPointer& orb) {
  const zrsv::MutexLock lock(mutex_);
  if (Entry* const entry = find(orb)) entry->ended = true;
  changed_.notify_all();
}

void Orbs::set_limit(const OrbPointer& orb, std::int64_t limit) {
  zrsv::use_call_scopes();
  orb->limit = limit;
  const zrsv::MutexLock lock(mutex_);
  refresh_default();
}

void Orbs::refresh_default() {
  const OrbPointer orb = standard_locked();
  const std::int64_t limit = orb ? orb->limit.load() : zrsv::limit_unsaid;
  zrsv::set_default_limit(limit);
}

OrbPointer live(const ORB& orb, Environment& ev) {
  ev.clear();
  // Mapping helpers make a wrapper of the core's handle alone: it stands for the ORB that serves.
  OrbPointer state = state_of(orb);
  if (!state && orb.get_ref()) state = orbs().standard();
  if (!state || !orb.get_ref() || !orbs().lives(state)) raise<BAD_INV_ORDER>(ev, has_shut_down, COMPLETED_NO);
  return state;
}

}  // namespace CORBA
