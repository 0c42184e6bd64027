#include "references/reference.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "wire/iiop_profile.h"
#include "wire/key_secret.h"
#include "wire/object_key.h"
#include "zrsv/of_thread.h"

namespace zrsv {
namespace {

/// References that this thread was asked for last, by the check at the end of their keys: a hot object costs
/// neither a checksum nor an allocation again. Large keys stay out, so that a slot pins little.
class RecentKeys {
 public:
  static constexpr std::size_t largest_key = 1024;

  /// The slot where `key` is, or is to be put; null for a key that is not kept.
  Ref<Reference>* slot(std::string_view key) {
    if (key.size() < 4 || key.size() > largest_key) return nullptr;
    return &slots_[static_cast<unsigned char>(key[key.size() - 4]) % slots_.size()];
  }

 private:
  std::array<Ref<Reference>, 64> slots_;
};

std::vector<Endpoint>& endpoints() {
  static auto& one = *new std::vector<Endpoint>;
  return one;
}

/// Port 0 means that the address is in a component for another protocol.
bool can_be_called(std::string_view host, uint16_t port) { return !host.empty() && port != 0; }

/// Appends the addresses of one profile; false when it is malformed.
bool add_addresses(const std::string& octets, std::vector<IiopProfile>* to) {
  ProfileView view;
  std::vector<Tagged> components;
  const ProfileRead read = read_iiop_profile(octets, &view, &components);
  if (read == ProfileRead::Malformed) return false;
  if (read == ProfileRead::UnknownVersion) return true;
  IiopProfile profile{view.minor, std::string(view.host), view.port, std::string(view.key), {}};
  std::vector<IiopProfile> alternates;
  for (const Tagged& component : components) {
    Endpoint address;
    if (component.tag != component_alternate_iiop || !read_alternate_address(component.octets, &address))
      continue;
    if (!can_be_called(address.host, address.port)) continue;
    alternates.push_back({view.minor, address.host, address.port, profile.key, {}});
  }
  profile.components = std::move(components);
  if (can_be_called(profile.host, profile.port)) to->push_back(std::move(profile));
  std::move(alternates.begin(), alternates.end(), std::back_inserter(*to));
  return true;
}

bool is_published(const IiopProfile& profile) {
  return std::any_of(endpoints().begin(), endpoints().end(), [&](const Endpoint& endpoint) {
    return endpoint.port == profile.port && endpoint.host == profile.host;
  });
}

}  // namespace

void Reference::become(std::string_view key, const KeyParts& parts, std::string_view type_id) {
  local_ = true;
  internal_ = names_own_object(parts);
  key_ = key;
  impl_ = parts.impl;
  intf_ = parts.intf;
  data_ = std::string_view(key_).substr(static_cast<std::size_t>(parts.data.data() - key.data()),
                                        parts.data.size());
  type_id_ = type_id.empty() ? parts.intf : type_id;
  forget_forward();
}

bool Reference::become_sibling(std::string_view key) {
  const auto data = static_cast<std::size_t>(data_.data() - key_.data());
  if (!is_sibling(key, key_, data)) return false;
  std::memcpy(key_.data() + data, key.data() + data, key.size() - data);
  forget_forward();
  return true;
}

void Reference::forget_forward() {
  if (has_forward_.load(std::memory_order_relaxed)) clear_forward();
  answered();
}

Ref<Reference> Reference::local_of(std::string_view key, std::string_view type_id) {
  const std::optional<KeyParts> parts = read_object_key(key);
  if (!parts) return {};
  Ref<Reference> made = Ref<Reference>::adopt(new Reference);
  made->become(key, *parts, type_id);
  return made;
}

Ref<Reference> Reference::make_local(std::string_view impl, std::string_view intf, std::string_view data) {
  const std::optional<std::string> key = write_object_key({impl, intf, data});
  if (!key) return {};
  Ref<Reference> made = Ref<Reference>::adopt(new Reference);
  made->become(*key, parts_of_written(*key), {});
  return made;
}

// Where more objects are called than a thread remembers, the one that goes lends its memory to the one that comes, and
// where both are of one POA, as most are, all that it knows but the data.
Ref<Reference> Reference::from_key(std::string_view key) {
  RecentKeys* recent = of_thread<RecentKeys>();
  Ref<Reference>* slot = recent ? recent->slot(key) : nullptr;
  if (slot && *slot) {
    Reference& known = **slot;
    if (same_key(known.key(), key) || (!known.is_shared() && known.become_sibling(key))) return *slot;
  }
  const std::optional<KeyParts> parts = read_object_key(key);
  if (!parts) return {};
  Ref<Reference> made;
  if (slot && *slot && !(*slot)->is_shared()) std::swap(made, *slot);
  if (!made) made = Ref<Reference>::adopt(new Reference);
  made->become(key, *parts, {});
  if (slot) *slot = made;
  return made;
}

Ref<Reference> Reference::from_profiles(std::string type_id, std::vector<Tagged> profiles) {
  std::vector<IiopProfile> iiop;
  for (const Tagged& profile : profiles) {
    if (profile.tag == profile_iiop && !add_addresses(profile.octets, &iiop)) return {};
  }
  for (const IiopProfile& address : iiop) {
    if (!is_published(address)) continue;
    if (Ref<Reference> local = local_of(address.key, type_id)) return local;
  }
  Ref<Reference> made = Ref<Reference>::adopt(new Reference);
  made->type_id_ = std::move(type_id);
  if (!iiop.empty()) made->key_ = iiop.front().key;
  made->profiles_ = std::move(profiles);
  for (const IiopProfile& address : iiop) made->least_minor_ = std::min(made->least_minor_, address.minor);
  made->code_sets_ = iiop.empty() ? unsaid_code_sets : code_sets_for(iiop.front().components);
  made->iiop_ = std::move(iiop);
  return made;
}

Ref<Reference> Reference::in_scope(const Reference& of, std::shared_ptr<CallScope> scope) {
  Ref<Reference> made;
  if (of.local_) {
    made = local_of(of.key_, of.type_id_);
  } else {
    made = Ref<Reference>::adopt(new Reference);
    made->least_minor_ = of.least_minor_;
    made->code_sets_ = of.code_sets_;
    made->type_id_ = of.type_id_;
    made->key_ = of.key_;
    made->profiles_ = of.profiles_;
    made->iiop_ = of.iiop_;
  }
  made->scope_ = std::move(scope);
  return made;
}

Ref<Reference> Reference::forward() const {
  if (!has_forward_.load(std::memory_order_acquire)) return {};
  const MutexLock lock(forward_mutex_);
  return forward_;
}

// One that leads nowhere, or to itself, is not kept (it would keep itself alive): the next call asks here again.
bool Reference::set_forward(Ref<Reference> to) {
  if (!to) return false;
  if (forwards_.fetch_add(1, std::memory_order_relaxed) >= ZR_FORWARD_LIMIT) {
    clear_forward();
    answered();  // the next call starts afresh
    return false;
  }
  if (to.get() == this || !to->can_be_called()) {
    clear_forward();
    return true;
  }
  const MutexLock lock(forward_mutex_);
  std::swap(forward_, to);
  has_forward_.store(true, std::memory_order_release);
  return true;
}

void Reference::clear_forward() {
  Ref<Reference> dropped;  // after the lock
  const MutexLock lock(forward_mutex_);
  std::swap(forward_, dropped);
  has_forward_.store(false, std::memory_order_release);
}

bool write_reference(CDR* cdr, const Reference* reference) {
  Writer out(cdr);
  if (!reference) return out.text("").u32(0).ok();
  out.text(reference->type_id());
  if (reference->is_local()) {
    if (published_endpoints().empty()) return false;  // nobody could reach the object
    out.u32(1);
    write_iiop_profile(&out, 2, published_endpoints(), reference->key());
    return out.ok();
  }
  out.u32(static_cast<uint32_t>(reference->profiles().size()));
  for (const Tagged& profile : reference->profiles()) out.u32(profile.tag).octets(profile.octets);
  return out.ok();
}

bool read_reference(CDR* cdr, Ref<Reference>* out) {
  Reader in(cdr);
  const std::string_view type_id = in.text();
  std::vector<Tagged> profiles;
  for (uint32_t left = in.count(8); left > 0 && in.ok(); --left) {
    const uint32_t tag = in.u32();
    profiles.push_back({tag, std::string(in.octets())});
  }
  if (!in.ok()) return false;
  *out = {};
  if (profiles.empty()) return true;
  *out = Reference::from_profiles(std::string(type_id), std::move(profiles));
  return static_cast<bool>(*out);
}

const std::vector<Endpoint>& published_endpoints() { return endpoints(); }

void set_published_endpoints(std::vector<Endpoint> published) { endpoints() = std::move(published); }

}  // namespace zrsv
