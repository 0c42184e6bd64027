#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "references/environment.h"
#include "references/repository.h"
#include "wire/crc32c.h"
#include "zrsv/thread_safety.h"

namespace zrsv {
namespace {

/// Objects known to be active, by key; the views are into the references beside them.
struct BindTable {
  Mutex mutex;
  bool open ZR_GUARDED_BY(mutex) = true;
  std::unordered_map<std::string_view, Ref<Reference>> bound ZR_GUARDED_BY(mutex);
};

BindTable& bind_table() {
  static auto& one = *new BindTable;
  return one;
}

/// The reference behind a handle that must be one of this process, or null with `ev` filled.
Reference* local_of(void* object, CORBA_Environment* ev) {
  Reference* reference = as_reference(object);
  if (reference && reference->is_local()) return reference;
  raise_standard(ev, reference ? "INV_OBJREF" : "BAD_PARAM");
  return nullptr;
}

/// One block: the record, then the octets.
CORBA_sequence_octet* new_sequence(std::string_view octets) {
  void* block = std::malloc(sizeof(CORBA_sequence_octet) + octets.size());
  if (!block) throw std::bad_alloc();
  auto* sequence = static_cast<CORBA_sequence_octet*>(block);
  sequence->_maximum = sequence->_length = static_cast<uint32_t>(octets.size());
  sequence->_buffer = reinterpret_cast<unsigned char*>(sequence + 1);
  if (!octets.empty()) std::memcpy(sequence->_buffer, octets.data(), octets.size());
  return sequence;
}

void* create(std::string_view data, const char* intf, const char* impl, CORBA_Environment* ev) {
  if (!names_own_object({impl, intf, data}) && !is_known_impl(impl)) {
    raise_standard(ev, "NO_IMPLEMENT");
    return nullptr;
  }
  Ref<Reference> made = Reference::make_local(impl, intf, data);
  if (!made) raise_standard(ev, "BAD_PARAM");
  return made.release();
}

/// What a call to a reference of another server goes by: the profile it tries first.
bool same_target(const Reference& a, const Reference& b) {
  if (a.iiop().empty() || b.iiop().empty()) {
    const auto same = [](const Tagged& x, const Tagged& y) { return x.tag == y.tag && x.octets == y.octets; };
    return std::equal(a.profiles().begin(), a.profiles().end(), b.profiles().begin(), b.profiles().end(),
                      same);
  }
  const IiopProfile& x = a.iiop().front();
  const IiopProfile& y = b.iiop().front();
  return x.key == y.key && x.port == y.port && x.host == y.host;
}

uint32_t hash(const Reference& reference) {
  if (reference.is_local() || !reference.iiop().empty()) return crc32c(reference.key());
  return reference.profiles().empty() ? 0 : crc32c(reference.profiles().front().octets);
}

bool read_handle(CDR* cdr, void** handle) {
  const unsigned char* start = cdr->in_next;
  Ref<Reference> read;
  const bool ok = read_reference(cdr, &read);
  if (ok) {
    *handle = read.release();
  } else {
    cdr->in_next = start;
  }
  return ok;
}

bool write_handle(CDR* cdr, void* handle) {
  const std::ptrdiff_t start = cdr->out_next - cdr->out_base;
  const bool ok = write_reference(cdr, as_reference(handle));
  if (!ok) cdr->out_next = cdr->out_base + start;
  return ok;
}

}  // namespace

void set_binding_open(bool open) {
  std::unordered_map<std::string_view, Ref<Reference>> dropped;  // freed after the lock
  BindTable& table = bind_table();
  const MutexLock lock(table.mutex);
  table.open = open;
  if (!open) dropped.swap(table.bound);
}

}  // namespace zrsv

using namespace zrsv;

void* ZR_create_object_reference(const CORBA_sequence_octet* data, const char* intf, const char* impl,
                                 CORBA_Environment* ev) {
  if (!data || !intf || !impl || (data->_length != 0 && !data->_buffer)) {
    raise_standard(ev, "BAD_PARAM");
    return nullptr;
  }
  const std::string_view octets(reinterpret_cast<const char*>(data->_buffer), data->_length);
  return guarded(ev, [&] { return create(octets, intf, impl, ev); });
}

CORBA_sequence_octet* CORBA_BOA_get_id(void* /*boa*/, void* object, CORBA_Environment* ev) {
  Reference* reference = local_of(object, ev);
  if (!reference) return nullptr;
  return guarded(ev, [&] { return new_sequence(reference->data()); });
}

unsigned char ZR_object_peek_id(void* object, const unsigned char** data, uint32_t* length) {
  Reference* reference = local_of(object, nullptr);
  if (!reference) return 0;
  *data = reinterpret_cast<const unsigned char*>(reference->data().data());
  *length = static_cast<uint32_t>(reference->data().size());
  return 1;
}

void* CORBA_object_duplicate(void* object, CORBA_Environment* /*ev*/) {
  if (object) as_reference(object)->add_ref();
  return object;
}

void* server_CORBA_object_duplicate(void* object, CORBA_Environment* ev) {
  return CORBA_object_duplicate(object, ev);
}

void CORBA_object_release(void* object) {
  if (object) as_reference(object)->drop();
}

const char* ZR_object_get_ImplID(void* object, uint32_t /*reserved*/, CORBA_Environment* /*ev*/) {
  return object ? as_reference(object)->impl_name().c_str() : "";
}

const char* ZR_object_get_IntfID(void* object, uint32_t /*reserved*/, CORBA_Environment* /*ev*/) {
  return object ? as_reference(object)->intf_name().c_str() : "";
}

const char* ZR_object_type_id(void* object) { return object ? as_reference(object)->type_id().c_str() : ""; }

unsigned char CORBA_object_is_equivalent(void* a, void* b) {
  if (a == b) return 1;
  if (!a || !b) return 0;
  const Reference& x = *as_reference(a);
  const Reference& y = *as_reference(b);
  if (x.is_local() != y.is_local()) return 0;
  return x.is_local() ? x.key() == y.key() : same_target(x, y);
}

uint32_t CORBA_object_hash(void* object, uint32_t maximum) {
  if (!object) return 0;
  return static_cast<uint32_t>(hash(*as_reference(object)) % (uint64_t{maximum} + 1));
}

unsigned char OM_cdr_object(CDR* cdr, void** handle) {
  try {
    if (cdr->direction == CDR_DECODE) return read_handle(cdr, handle);
    return cdr->direction == CDR_ENCODE && write_handle(cdr, *handle);
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

void CORBA_ORB_bind_object2(void* /*orb*/, void* object, void* /*reserved*/, CORBA_Environment* ev) {
  Reference* reference = local_of(object, ev);
  if (!reference) return;
  BindTable& table = bind_table();
  try {
    const MutexLock lock(table.mutex);
    const bool fresh =
        table.open && table.bound.try_emplace(reference->key(), Ref<Reference>::share(reference)).second;
    if (!fresh) raise_standard(ev, "BAD_INV_ORDER");
  } catch (const std::bad_alloc&) {
    raise_standard(ev, "NO_RESOURCES");
  }
}

void CORBA_ORB_unbind_object2(void* /*orb*/, void* object, void* /*reserved*/, CORBA_Environment* ev) {
  Reference* reference = local_of(object, ev);
  if (!reference) return;
  BindTable& table = bind_table();
  decltype(table.bound)::node_type dropped;  // freed after the lock
  const MutexLock lock(table.mutex);
  const auto found = table.bound.find(reference->key());
  if (found != table.bound.end()) dropped = table.bound.extract(found);
}

uint32_t ZR_bound_objects(void) {
  BindTable& table = bind_table();
  const MutexLock lock(table.mutex);
  return static_cast<uint32_t>(table.bound.size());
}
