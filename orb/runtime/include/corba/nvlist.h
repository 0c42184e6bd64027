// Named values and their lists: the arguments of dynamic calls and of dynamic servants (CORBA, "Dynamic Invocation
// Interface"). A program that calls by generated code has no need of them.
#pragma once

#include "corba/any.h"
#include "corba/local_object.h"

namespace CORBA {

/// Which way an argument travels: to the object, back, or both. A result is told apart by its place, not by a flag.
using Flags = ULong;
inline constexpr Flags ARG_IN = 1;
inline constexpr Flags ARG_OUT = 2;
inline constexpr Flags ARG_INOUT = ARG_IN | ARG_OUT;

/// Raised for an index at or past the count.
using Bounds = PlainUserException<"IDL:omg.org/CORBA/Bounds:1.0">;

/// An argument or a result. Counted as local objects are; belongs to one thread at a time, as its list does.
///
///   CORBA::NamedValue_var result;
///   orb->create_named_value(result.out());
///   result->value()->replace(CORBA::_tc_long, nullptr);  // what is to come, for Object::_create_request
class ZRSVCPP_API NamedValue : public virtual LocalObject {
 public:
  /// Both are copied; a null name is an empty one.
  NamedValue(const char* name, const Any& value, Flags flags)
      : name_(string_dup(name ? name : "")), value_(value), flags_(flags) {}
  ~NamedValue() override;
  static NamedValue* _nil() { return nullptr; }
  static NamedValue* _duplicate(NamedValue* p) { return idl::duplicate_local(p); }

  /// The argument's own; "" when it has none. Names do not travel.
  const char* name() const { return name_.in(); }
  /// The value itself, still the argument's, to be read and changed. It is empty (_tc_null) until somebody puts one in
  /// or says its type.
  Any* value() { return &value_; }
  /// ARG_IN, ARG_OUT or ARG_INOUT.
  Flags flags() const { return flags_; }

 private:
  String_var name_;
  Any value_;
  Flags flags_;
};
using NamedValue_ptr = NamedValue*;
using NamedValue_var = ObjectVar<NamedValue>;

/// The arguments of an operation, in wire order. An argument to be decoded has a type, but needs no value. What `add`
/// and `item` give belongs to the list and stays where it is. Counted as local objects are; belongs to one thread at a
/// time.
///
///   CORBA::NVList_var arguments;
///   orb->create_list(0, arguments.out());
///   *arguments->add(CORBA::ARG_IN)->value() <<= CORBA::Long(100);
///   arguments->add(CORBA::ARG_OUT)->value()->replace(CORBA::_tc_string, nullptr);  // its type, to be decoded
class ZRSVCPP_API NVList : public virtual LocalObject {
 public:
  ~NVList() override;
  /// The nil reference, and one count more, which the caller gives back by release (an NVList_var does).
  static NVList* _nil() { return nullptr; }
  static NVList* _duplicate(NVList* p) { return idl::duplicate_local(p); }

  /// How many arguments there are, in and out.
  ULong count() const { return static_cast<ULong>(items_.size()); }
  /// Append an argument: one without a value, or with a copy of `value`. What is given is the list's, and stays at its
  /// place in memory when others are added. BAD_PARAM for flags other than ARG_.... A null name is an empty one.
  NamedValue* add(Flags flags, CORBA_ENV) { return add_value("", Any(), flags, ev); }
  NamedValue* add_item(const char* name, Flags flags, CORBA_ENV) { return add_value(name, Any(), flags, ev); }
  NamedValue* add_value(const char* name, const Any& value, Flags flags, CORBA_ENV);
  /// The same, which frees what it is given: the name with string_free, the value with delete. Also where it raises.
  NamedValue* add_item_consume(char* name, Flags flags, CORBA_ENV);
  NamedValue* add_value_consume(char* name, Any* value, Flags flags, CORBA_ENV);
  /// The argument of that place, from 0, still the list's. Bounds for an index at or past the count.
  NamedValue* item(ULong index, CORBA_ENV) const;
  /// Those behind it move up; it is released. Bounds as above.
  void remove(ULong index, CORBA_ENV);

  /// For bridges, which pass arguments on: the values of that direction between the list and a stream: out, or in by
  /// the types that are there. False when one does not fit.
  bool encode_values(CDR* cdr, Flags direction) const;
  bool decode_values(CDR* cdr, Flags direction);

 private:
  std::vector<NamedValue_var> items_;
};
using NVList_ptr = NVList*;
using NVList_var = ObjectVar<NVList>;

}  // namespace CORBA
