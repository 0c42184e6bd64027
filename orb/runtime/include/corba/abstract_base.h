// The base of abstract interfaces (OMG IDL to C++, "Mapping for Abstract Interfaces"). There are no values here, so
// what such an interface stands for is always a reference. Generated headers include this where their IDL has one.
#pragma once

#include "corba/detail/idl_types.h"

namespace CORBA {

/// The standard's base of values. There are none here: it is declared only.
class ValueBase;

/// Base of the classes of all abstract interfaces, and through them of the interfaces that inherit from these. A
/// reference as any other: it may be nil, and operations of the abstract interface are calls.
///
///   CORBA::AbstractBase_var base = CORBA::AbstractBase::_narrow(object.in());
///   CORBA::Object_var again = base->_to_object();
///
/// As references, one belongs to a thread at a time, and is released by whoever gets it; AbstractBase_var does.
class ZRSVCPP_API AbstractBase : public virtual Object {
 public:
  // What templates ask of a class of the mapping: its names, its repository id, its interface's name.
  using _ptr_type = AbstractBase*;
  using _var_type = ObjectVar<AbstractBase>;
  using _abstract_type = AbstractBase;
  static constexpr const char* repository_id = "IDL:omg.org/CORBA/AbstractBase:1.0";
  static constexpr const char* interface_name = "AbstractBase";
  ~AbstractBase() override;
  /// The nil reference: null.
  static AbstractBase* _nil() { return nullptr; }
  /// A new reference, which the caller releases; nil for nil.
  static AbstractBase* _duplicate(AbstractBase* reference);
  /// The same of any object: every one fits, and nothing is asked. Of a narrower abstract interface the object is
  /// asked, as of any interface.
  static AbstractBase* _narrow(Object* object);
  static AbstractBase* _unchecked_narrow(Object* object) { return _narrow(object); }

  /// The object as a new reference that the caller releases. Never nil, as this is a reference.
  Object* _to_object() { return Object::_duplicate(this); }
  /// Null: it is no value. A value that a peer sends in place of a reference is MARSHAL, but for nil, which is nil.
  ValueBase* _to_value() { return nullptr; }
};
using AbstractBase_ptr = AbstractBase*;
using AbstractBase_var = ObjectVar<AbstractBase>;
using AbstractBase_out = ObjectOut<AbstractBase>;
inline constexpr idl::typecode_constant<idl::ref<AbstractBase>> _tc_AbstractBase;

}  // namespace CORBA
