#include "corba/object.h"

#include <algorithm>

#include "base/call_failures.h"
#include "base/raise.h"
#include "corba/detail/row.h"

namespace CORBA {
namespace {

constexpr idl::operation<Object, Boolean(idl::in<idl::string<>>)> is_a{"_is_a", &Object::_is_a};
constexpr idl::operation<Object, Boolean()> non_existent{"_non_existent", &Object::_non_existent};
constexpr idl::operation<Object, idl::ref<InterfaceDef>()> get_interface{"_get_interface",
                                                                         &Object::_get_interface};

/// A new X over one more handle of what `object` refers to; nil for nil, and when the handle cannot be
/// duplicated.
template <class X>
X* duplicate_as(Object* object) {
  if (!object) return nullptr;
  auto made = std::make_unique<X>();
  if (void* handle = object->get_ref()) {
    made->set_ref(server_CORBA_object_duplicate(handle, nullptr));
    if (!made->get_ref()) return nullptr;
  }
  return made.release();
}

/// Encodes the handle of `object`, or decodes one into a new X; nil travels as the nil reference.
template <class X>
bool move_reference(CDR* cdr, X*& object) {
  void* handle = cdr->direction == CDR_ENCODE && object ? object->get_ref() : nullptr;
  if (!OM_cdr_object(cdr, &handle)) return false;
  if (cdr->direction == CDR_ENCODE) return true;
  object = handle ? new X : nullptr;
  if (object) object->set_ref(handle);
  return true;
}

/// True when calls of `object` go straight to an operation table of this process. Those tables hold the
/// operations of the interface only; what every object answers is then answered here.
bool has_local_table(const Object* object) { return ZR_runs_directly(object->get_ref()); }

bool is_one_of(std::string_view id, std::initializer_list<std::string_view> ids) {
  return std::ranges::find(ids, id) != ids.end();
}

InterfaceDef* local_interface(void* handle) {
  CORBA_Environment record{};
  void* definition = CORBA_Repository_lookup_id(nullptr, ZR_object_get_IntfID(handle, 0, &record), &record);
  CORBA_exception_free(&record);
  if (!definition) return nullptr;
  auto* found = new InterfaceDef;
  found->set_ref(definition);
  return found;
}

}  // namespace

Object::~Object() { CORBA_object_release(_ptr); }

Object* Object::_duplicate(Object* object) {
  if (Object* const local = object ? object->_share_reference() : nullptr) return local;
  return duplicate_as<Object>(object);
}

Boolean Object::_is_a(const char* repository_id, Environment& ev) {
  ev.clear();
  if (!repository_id) raise<BAD_PARAM>(ev);
  if (_ptr && is_one_of(repository_id, {ZR_object_type_id(_ptr), "IDL:omg.org/CORBA/Object:1.0"})) return 1;
  if (has_local_table(this)) return is_one_of(repository_id, {ZR_object_get_IntfID(_ptr, 0, nullptr)});
  return is_a(this, repository_id, ev);
}

Boolean Object::_non_existent(Environment& ev) {
  ev.clear();
  if (has_local_table(this)) return 0;
  try {
    return non_existent(this, ev);
  } catch (const OBJECT_NOT_EXIST&) {  // the answer of servers that ask nobody further
    ev.clear();
    return 1;
  }
}

InterfaceDef* Object::_get_interface(Environment& ev) {
  ev.clear();
  if (has_local_table(this)) return local_interface(_ptr);
  return get_interface(this, ev);
}

Boolean Object::_is_equivalent(Object* other, Environment& ev) {
  ev.clear();
  return CORBA_object_is_equivalent(_ptr, other ? other->get_ref() : nullptr);
}

ULong Object::_hash(ULong maximum, Environment& ev) {
  ev.clear();
  return CORBA_object_hash(_ptr, maximum);
}

InterfaceDef* InterfaceDef::_duplicate(InterfaceDef* p) { return duplicate_as<InterfaceDef>(p); }
InterfaceDef* InterfaceDef::_narrow(Object* object) { return duplicate_as<InterfaceDef>(object); }

}  // namespace CORBA

unsigned char OM_cdr_object(CDR* cdr, CORBA::Object*& object) { return CORBA::move_reference(cdr, object); }

unsigned char cdr_CORBA_InterfaceDef(CDR* cdr, CORBA::InterfaceDef*& object) {
  return CORBA::move_reference(cdr, object);
}
