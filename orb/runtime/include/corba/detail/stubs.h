// Stubs and skeleton functions of CORBA's own interfaces, which generated classes of derived interfaces build
// on.
#pragma once

#include "corba/policy.h"

/// A policy that is called through the ORB core.
class ZRSVCPP_API _st_CORBA_Policy : public virtual CORBA::Policy {
 public:
  CORBA::PolicyType policy_type(CORBA_ENV) override;
  CORBA::Policy* copy(CORBA_ENV) override;
  void destroy(CORBA_ENV) override;
  /// Answers the two ids of CORBA::Policy.
  void* _cast(const char* repository_id) override;
};

class ZRSVCPP_API _st_CORBA_Current : public virtual CORBA::Current {};

// CDR skeletons of the operations that every policy has: entries of a policy interface's operation table, as
// ZR_skeleton.
ZRSVCPP_API unsigned char skel_CORBA_Policy_copy(void* request, void* object, CORBA::ULong type,
                                                 unsigned char response_expected, void* table);
ZRSVCPP_API unsigned char skel_CORBA_Policy_destroy(void* request, void* object, CORBA::ULong type,
                                                    unsigned char response_expected, void* table);
ZRSVCPP_API unsigned char skel_CORBA_Policy__get_policy_type(void* request, void* object, CORBA::ULong type,
                                                             unsigned char response_expected, void* table);

// Their direct twins: the operation of a fresh, unattached policy.
ZRSVCPP_API CORBA::Policy* skel_INTRA_PROCESS_CORBA_Policy_copy(CORBA::Environment& ev);
ZRSVCPP_API void skel_INTRA_PROCESS_CORBA_Policy_destroy(CORBA::Environment& ev);
ZRSVCPP_API CORBA::PolicyType skel_INTRA_PROCESS_CORBA_Policy__get_policy_type(CORBA::Environment& ev);
