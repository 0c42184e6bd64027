// CORBA::Policy, CORBA::Current and their implementation bases.
#pragma once

#include "corba/object.h"
#include "corba/sequence.h"

namespace CORBA {

using PolicyType = ULong;

class ZRSVCPP_API Policy : public virtual Object {
 public:
  static Policy* _nil() { return nullptr; }
  /// A copy made by the policy itself; null for null.
  static Policy* _duplicate(Policy* p);
  static Policy* _narrow(Object* object);

  virtual PolicyType policy_type(CORBA_ENV) = 0;
  /// A new policy of the same kind and value; the caller releases it.
  virtual Policy* copy(CORBA_ENV) = 0;
  virtual void destroy(CORBA_ENV) = 0;
  /// This object as the interface of that repository id, as an untyped pointer to that class; null for
  /// another id.
  virtual void* _cast(const char* repository_id) = 0;
};
using Policy_ptr = Policy*;
using Policy_var = ObjectVar<Policy>;

class PolicyList : public Sequence<Policy_var> {
 public:
  using Sequence::Sequence;
};
using PolicyList_var = SequenceVar<PolicyList>;

class ZRSVCPP_API Current : public virtual Object {
 public:
  static Current* _nil() { return nullptr; }
};
using Current_ptr = Current*;
using Current_var = ObjectVar<Current>;

}  // namespace CORBA

class ZRSVCPP_API _sk_CORBA_Policy : public virtual CORBA::Policy {};

/// Base of the policy implementations: holds the type, answers policy_type, and destroys nothing on destroy
/// (policies are shared).
class ZRSVCPP_API CORBA_Policy_impl : public virtual _sk_CORBA_Policy {
 public:
  CORBA::PolicyType policy_type(CORBA_ENV) override;
  CORBA::Policy* copy(CORBA_ENV) override;
  void destroy(CORBA_ENV) override;
  /// Answers "IDL:CORBA/Policy:1.0" and "IDL:omg.org/CORBA/Policy:1.0" as CORBA::Policy.
  void* _cast(const char* repository_id) override;

 protected:
  CORBA::ULong __policy_type = 0;
};

class ZRSVCPP_API _sk_CORBA_Current : public virtual CORBA::Current {};
class ZRSVCPP_API CORBA_Current_impl : public virtual _sk_CORBA_Current {};

/// A policy list: a count, then each policy as an object reference.
ZRSVCPP_API unsigned char cdr_CORBA_PolicyList(CDR* cdr, CORBA::PolicyList* list);
