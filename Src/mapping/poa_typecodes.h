// Encoded TypeCode descriptions of the module's types and of the types of module CORBA that it uses, and
// insertion into and extraction from CORBA::Any. Each description is encoded by the compiler from its row:
//
//   description = 0[4] typecode                     numbers are unsigned and big-endian, widths in octets
//   typecode    = kind[1] parameters                kind: CORBA::TCKind
//   text        = length[2] characters 0            the length counts the NUL
//   nested      = length[2] typecode
//   objref      = text(id) text(name)
//   struct      = alignment[1] size[2] text(id) text(name) count[2] { text(name) nested }     exception alike
//   enum        = text(id) text(name) count[2] { text }
//   alias       = text(id) text(name) nested
//   sequence    = length[4] typecode bound[2]
//
// Alignment and size are those of the native members where pointers have 4 octets; 0 without members.
#pragma once

#include <initializer_list>
#include <string_view>

#include "corba/any.h"
#include "corba/detail/any_values.h"
#include "corba/orb.h"
#include "mapping/poa_cdr.h"

namespace PortableServer::typecodes {

/// A TypeCode while it is encoded.
struct Code {
  static constexpr std::size_t most = 512;  // more is an error of the compilation
  unsigned char octets[most]{};
  std::size_t size = 0;

  constexpr Code& number(std::size_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
      octets[size++] = static_cast<unsigned char>(value >> shift);
    return *this;
  }
  constexpr Code& text(std::string_view characters) {
    number(characters.size() + 1, 2);
    for (char c : characters) octets[size++] = static_cast<unsigned char>(c);
    octets[size++] = 0;
    return *this;
  }
  constexpr Code& raw(const Code& inner) {
    for (std::size_t i = 0; i < inner.size; ++i) octets[size++] = inner.octets[i];
    return *this;
  }
  constexpr Code& nested(const Code& inner) { return number(inner.size, 2).raw(inner); }
};

/// A type's name within its module ("POAManager/State") and where ids start; the version ends them.
struct Name {
  std::string_view module_prefix;
  std::string_view scoped;
  std::string_view version = "1.0";
};
constexpr Name in_poa(std::string_view scoped, std::string_view version = "1.0") {
  return {"IDL:omg.org/PortableServer/", scoped, version};
}
constexpr Name in_corba(std::string_view scoped) { return {"IDL:CORBA/", scoped}; }

constexpr Code head(CORBA::TCKind kind) { return Code().number(kind, 1); }

/// The repository id and the last part of the name.
constexpr Code& identify(Code& code, const Name& name) {
  const std::string_view parts[] = {name.module_prefix, name.scoped, ":", name.version};
  code.number(parts[0].size() + parts[1].size() + parts[2].size() + parts[3].size() + 1, 2);
  for (std::string_view part : parts) {
    for (char c : part) code.octets[code.size++] = static_cast<unsigned char>(c);
  }
  code.octets[code.size++] = 0;
  return code.text(name.scoped.substr(name.scoped.find_last_of('/') + 1));
}

constexpr Code basic(CORBA::TCKind kind) { return head(kind); }
constexpr Code objref(const Name& name) {
  Code code = head(CORBA::tk_objref);
  return identify(code, name);
}
constexpr Code any_objref() { return head(CORBA::tk_objref).text("").text(""); }
constexpr Code alias(const Name& name, const Code& of) {
  Code code = head(CORBA::tk_alias);
  return identify(code, name).nested(of);
}
constexpr Code sequence(const Code& element) {
  return head(CORBA::tk_sequence).number(element.size, 4).raw(element).number(0, 2);
}
constexpr Code enumeration(const Name& name, std::initializer_list<std::string_view> values) {
  Code code = head(CORBA::tk_enum);
  identify(code, name).number(values.size(), 2);
  for (std::string_view value : values) code.text(value);
  return code;
}

struct Member {
  std::string_view name;
  Code type;
};
struct Layout {
  std::size_t alignment = 0;
  std::size_t size = 0;
};
constexpr Code record(CORBA::TCKind kind, const Name& name, Layout layout,
                      std::initializer_list<Member> members) {
  Code code = head(kind).number(layout.alignment, 1).number(layout.size, 2);
  identify(code, name).number(members.size(), 2);
  for (const Member& member : members) code.text(member.name).nested(member.type);
  return code;
}
constexpr Code exception(const Name& name, Layout layout = {}, std::initializer_list<Member> members = {}) {
  return record(CORBA::tk_except, name, layout, members);
}

/// Native layout of a sequence (maximum, length, buffer, scratch element, release flag) of elements of that
/// layout.
constexpr Layout sequence_layout(Layout element) {
  const std::size_t flag =
      (12 + element.alignment - 1) / element.alignment * element.alignment + element.size;
  return {4, (flag + 1 + 3) / 4 * 4};
}

/// The octets of a description, exactly.
template <std::size_t Size>
struct Octets {
  unsigned char octets[Size];
};
template <std::size_t Size>
constexpr Octets<Size + 4> describe(const Code& code) {
  Octets<Size + 4> description{};
  for (std::size_t i = 0; i < Size; ++i) description.octets[i + 4] = code.octets[i];
  return description;
}

/// An octet sequence that owns nothing.
struct Description {
  CORBA::ULong _maximum;
  CORBA::ULong _length;
  const unsigned char* _buffer;
  CORBA::Boolean _release;
};

/// A new TypeCode of a description; nil when it is malformed.
CORBA::TypeCode* build(const Description& description);

}  // namespace PortableServer::typecodes

#define POA_DESCRIBE(Name, ...)                                                  \
  inline constexpr auto _tc_##Name##_impl = [] {                                 \
    using namespace PortableServer::typecodes;                                   \
    using namespace CORBA;                                                       \
    constexpr Code code = __VA_ARGS__;                                           \
    return describe<code.size>(code);                                            \
  }();                                                                           \
  inline constexpr PortableServer::typecodes::Description _tc_##Name##_impl_seq{ \
      sizeof _tc_##Name##_impl.octets, sizeof _tc_##Name##_impl.octets, _tc_##Name##_impl.octets, 0};

// ---- Module PortableServer --------------------------------------------------------------------------------

POA_DESCRIBE(PortableServer_POA, objref(in_poa("POA", "2.3")))
POA_DESCRIBE(PortableServer_POAManager, objref(in_poa("POAManager")))
POA_DESCRIBE(PortableServer_ThreadPolicy, objref(in_poa("ThreadPolicy")))
POA_DESCRIBE(PortableServer_LifespanPolicy, objref(in_poa("LifespanPolicy")))
POA_DESCRIBE(PortableServer_IdUniquenessPolicy, objref(in_poa("IdUniquenessPolicy")))
POA_DESCRIBE(PortableServer_IdAssignmentPolicy, objref(in_poa("IdAssignmentPolicy")))
POA_DESCRIBE(PortableServer_ImplicitActivationPolicy, objref(in_poa("ImplicitActivationPolicy")))
POA_DESCRIBE(PortableServer_ServantRetentionPolicy, objref(in_poa("ServantRetentionPolicy")))
POA_DESCRIBE(PortableServer_RequestProcessingPolicy, objref(in_poa("RequestProcessingPolicy")))
POA_DESCRIBE(PortableServer_AdapterActivator, objref(in_poa("AdapterActivator", "2.3")))
POA_DESCRIBE(PortableServer_ServantManager, objref(in_poa("ServantManager")))
POA_DESCRIBE(PortableServer_ServantActivator, objref(in_poa("ServantActivator", "2.3")))
POA_DESCRIBE(PortableServer_ServantLocator, objref(in_poa("ServantLocator", "2.3")))
POA_DESCRIBE(PortableServer_Current, objref(in_poa("Current", "2.3")))

POA_DESCRIBE(PortableServer_POAManager_State,
             enumeration(in_poa("POAManager/State"), {"HOLDING", "ACTIVE", "DISCARDING", "INACTIVE"}))
POA_DESCRIBE(PortableServer_ThreadPolicyValue,
             enumeration(in_poa("ThreadPolicyValue"), {"ORB_CTRL_MODEL", "SINGLE_THREAD_MODEL"}))
POA_DESCRIBE(PortableServer_LifespanPolicyValue,
             enumeration(in_poa("LifespanPolicyValue"), {"TRANSIENT", "PERSISTENT"}))
POA_DESCRIBE(PortableServer_IdUniquenessPolicyValue,
             enumeration(in_poa("IdUniquenessPolicyValue"), {"UNIQUE_ID", "MULTIPLE_ID"}))
POA_DESCRIBE(PortableServer_IdAssignmentPolicyValue,
             enumeration(in_poa("IdAssignmentPolicyValue"), {"USER_ID", "SYSTEM_ID"}))
POA_DESCRIBE(PortableServer_ImplicitActivationPolicyValue,
             enumeration(in_poa("ImplicitActivationPolicyValue"),
                         {"IMPLICIT_ACTIVATION", "NO_IMPLICIT_ACTIVATION"}))
POA_DESCRIBE(PortableServer_ServantRetentionPolicyValue,
             enumeration(in_poa("ServantRetentionPolicyValue"), {"RETAIN", "NON_RETAIN"}))
POA_DESCRIBE(PortableServer_RequestProcessingPolicyValue,
             enumeration(in_poa("RequestProcessingPolicyValue"),
                         {"USE_ACTIVE_OBJECT_MAP_ONLY", "USE_DEFAULT_SERVANT", "USE_SERVANT_MANAGER"}))

POA_DESCRIBE(PortableServer_POAList, alias(in_poa("POAList"), sequence(objref(in_poa("POA", "2.3")))))
POA_DESCRIBE(PortableServer_Servant, alias(in_poa("Servant"), basic(tk_ulong)))
POA_DESCRIBE(PortableServer_ObjectId, alias(in_poa("ObjectId"), sequence(basic(tk_octet))))
POA_DESCRIBE(PortableServer_ServantLocator_Cookie, alias(in_poa("ServantLocator/Cookie"), basic(tk_ulong)))

POA_DESCRIBE(PortableServer_POA_AdapterAlreadyExists, exception(in_poa("POA/AdapterAlreadyExists")))
POA_DESCRIBE(PortableServer_POA_AdapterNonExistent, exception(in_poa("POA/AdapterNonExistent")))
POA_DESCRIBE(PortableServer_POA_InvalidPolicy,
             exception(in_poa("POA/InvalidPolicy"), {2, 2}, {{"index", basic(tk_ushort)}}))
POA_DESCRIBE(PortableServer_POA_NoServant, exception(in_poa("POA/NoServant")))
POA_DESCRIBE(PortableServer_POA_ObjectAlreadyActive, exception(in_poa("POA/ObjectAlreadyActive")))
POA_DESCRIBE(PortableServer_POA_ObjectNotActive, exception(in_poa("POA/ObjectNotActive")))
POA_DESCRIBE(PortableServer_POA_ServantAlreadyActive, exception(in_poa("POA/ServantAlreadyActive")))
POA_DESCRIBE(PortableServer_POA_ServantNotActive, exception(in_poa("POA/ServantNotActive")))
POA_DESCRIBE(PortableServer_POA_WrongAdapter, exception(in_poa("POA/WrongAdapter")))
POA_DESCRIBE(PortableServer_POA_WrongPolicy, exception(in_poa("POA/WrongPolicy")))
POA_DESCRIBE(PortableServer_POAManager_AdapterInactive, exception(in_poa("POAManager/AdapterInactive")))
POA_DESCRIBE(PortableServer_ForwardRequest,
             exception(in_poa("ForwardRequest"), {4, 4}, {{"forward_reference", any_objref()}}))
POA_DESCRIBE(PortableServer_Current_NoContext, exception(in_poa("Current/NoContext")))

// ---- Module CORBA -----------------------------------------------------------------------------------------

POA_DESCRIBE(CORBA_DomainManager, objref(in_corba("DomainManager")))
POA_DESCRIBE(CORBA_OpaqueValue, alias(in_corba("OpaqueValue"), basic(tk_long)))
POA_DESCRIBE(CORBA_PolicyType, alias(in_corba("PolicyType"), basic(tk_ulong)))
POA_DESCRIBE(CORBA_PolicyErrorCode, alias(in_corba("PolicyErrorCode"), basic(tk_short)))
POA_DESCRIBE(CORBA_ServiceType, alias(in_corba("ServiceType"), basic(tk_ushort)))
POA_DESCRIBE(CORBA_ServiceOption, alias(in_corba("ServiceOption"), basic(tk_ulong)))
POA_DESCRIBE(CORBA_ServiceDetailType, alias(in_corba("ServiceDetailType"), basic(tk_ulong)))
POA_DESCRIBE(CORBA_sequence_Policy, sequence(objref(in_corba("Policy"))))
POA_DESCRIBE(CORBA_PolicyList, alias(in_corba("PolicyList"), sequence(objref(in_corba("Policy")))))
POA_DESCRIBE(CORBA_SetOverrideType,
             enumeration(in_corba("SetOverrideType"), {"SET_OVERRIDE", "ADD_OVERRIDE"}))
namespace PortableServer::typecodes {
constexpr Layout service_detail_layout{4, 4 + sequence_layout({1, 1}).size};
constexpr Code service_detail =
    record(CORBA::tk_struct, in_corba("ServiceDetail"), service_detail_layout,
           {{"service_detail_type", alias(in_corba("ServiceDetailType"), basic(CORBA::tk_ulong))},
            {"service_detail", sequence(basic(CORBA::tk_octet))}});
constexpr Layout service_information_layout{
    4, sequence_layout({4, 4}).size + sequence_layout(service_detail_layout).size};
}  // namespace PortableServer::typecodes
POA_DESCRIBE(CORBA_ServiceDetail, service_detail)
POA_DESCRIBE(CORBA_ServiceInformation,
             record(tk_struct, in_corba("ServiceInformation"), service_information_layout,
                    {{"service_options", sequence(alias(in_corba("ServiceOption"), basic(tk_ulong)))},
                     {"service_details", sequence(service_detail)}}))
POA_DESCRIBE(CORBA_DomainManagersList,
             alias(in_corba("DomainManagersList"), sequence(objref(in_corba("DomainManager")))))
POA_DESCRIBE(CORBA_PolicyError, exception(in_corba("PolicyError"), {2, 2},
                                          {{"reason", alias(in_corba("PolicyErrorCode"), basic(tk_short))}}))
POA_DESCRIBE(CORBA_Policy, objref(in_corba("Policy")))
POA_DESCRIBE(CORBA_Current, objref(in_corba("Current")))

#undef POA_DESCRIBE

// ---- Any --------------------------------------------------------------------------------------------------

namespace PortableServer {

/// The description of a type that can be put into an Any.
template <class T>
inline constexpr std::nullptr_t description_of =
    nullptr;  // specialisations have a type of their own: see any_value
#define POA_DESCRIBED(Type, Name)                                       \
  template <>                                                           \
  inline constexpr const typecodes::Description* description_of<Type> = \
      &_tc_PortableServer_##Name##_impl_seq;
POA_DESCRIBED(POA, POA)
POA_DESCRIBED(POAManager, POAManager)
POA_DESCRIBED(ThreadPolicy, ThreadPolicy)
POA_DESCRIBED(LifespanPolicy, LifespanPolicy)
POA_DESCRIBED(IdUniquenessPolicy, IdUniquenessPolicy)
POA_DESCRIBED(IdAssignmentPolicy, IdAssignmentPolicy)
POA_DESCRIBED(ImplicitActivationPolicy, ImplicitActivationPolicy)
POA_DESCRIBED(ServantRetentionPolicy, ServantRetentionPolicy)
POA_DESCRIBED(RequestProcessingPolicy, RequestProcessingPolicy)
POA_DESCRIBED(AdapterActivator, AdapterActivator)
POA_DESCRIBED(ServantManager, ServantManager)
POA_DESCRIBED(ServantActivator, ServantActivator)
POA_DESCRIBED(ServantLocator, ServantLocator)
POA_DESCRIBED(Current, Current)
POA_DESCRIBED(POAManager::State, POAManager_State)
POA_DESCRIBED(ThreadPolicyValue, ThreadPolicyValue)
POA_DESCRIBED(LifespanPolicyValue, LifespanPolicyValue)
POA_DESCRIBED(IdUniquenessPolicyValue, IdUniquenessPolicyValue)
POA_DESCRIBED(IdAssignmentPolicyValue, IdAssignmentPolicyValue)
POA_DESCRIBED(ImplicitActivationPolicyValue, ImplicitActivationPolicyValue)
POA_DESCRIBED(ServantRetentionPolicyValue, ServantRetentionPolicyValue)
POA_DESCRIBED(RequestProcessingPolicyValue, RequestProcessingPolicyValue)
POA_DESCRIBED(POAList, POAList)
POA_DESCRIBED(ObjectId, ObjectId)
#undef POA_DESCRIBED

/// Types with a description whose values an Any holds: enumerations and sequences.
// (Asked of the type, not the address: with sanitizers g++ compares no addresses in constant expressions.)
template <class T>
concept any_value = !std::same_as<decltype(description_of<T>), const std::nullptr_t> && !interface<T>;

/// A new TypeCode of T.
template <class T>
CORBA::TypeCode* typecode_of() {
  return typecodes::build(*description_of<T>);
}

// A reference is duplicated; one in a cell made with new is taken over, and the cell deleted. References are
// not extracted.
template <interface X>
void operator<<=(CORBA::Any& any, X* reference) {
  CORBA::any_insert_reference(any, typecode_of<X>(), reference);
}
template <interface X>
void operator<<=(CORBA::Any& any, X** cell) {
  CORBA::any_insert_reference(any, typecode_of<X>(), cell);
}
// A value is copied; one behind a pointer is taken over. An enumeration is extracted as a copy, a sequence as
// the Any's own.
template <any_value T>
void operator<<=(CORBA::Any& any, const T& value) {
  CORBA::any_insert_copy(any, typecode_of<T>(), value);
}
template <any_value T>
void operator<<=(CORBA::Any& any, T* value) {
  CORBA::any_insert_value(any, typecode_of<T>(), value);
}
template <any_value T>
requires std::is_enum_v<T> CORBA::Boolean operator>>=(const CORBA::Any& any, T& value) {
  return CORBA::any_extract_copy(any, typecode_of<T>(), value);
}
template <any_value T>
requires(!std::is_enum_v<T>) CORBA::Boolean operator>>=(const CORBA::Any& any, T*& value) {
  return CORBA::any_extract(any, typecode_of<T>(), value);
}

}  // namespace PortableServer
