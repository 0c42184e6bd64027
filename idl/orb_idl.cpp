#include "preprocess.h"

const char* const idl::orb_idl = R"idl(// What module CORBA offers to IDL files: #include <orb.idl>
#ifndef _ORB_IDL_
#define _ORB_IDL_
#pragma prefix "omg.org"

module CORBA {
  interface TypeCode {};
  abstract interface AbstractBase {};

  typedef string Identifier;
  typedef string RepositoryId;
  typedef string ScopedName;
  typedef string VersionSpec;

  typedef sequence<any> AnySeq;
  typedef sequence<boolean> BooleanSeq;
  typedef sequence<char> CharSeq;
  typedef sequence<wchar> WCharSeq;
  typedef sequence<octet> OctetSeq;
  typedef sequence<short> ShortSeq;
  typedef sequence<unsigned short> UShortSeq;
  typedef sequence<long> LongSeq;
  typedef sequence<unsigned long> ULongSeq;
  typedef sequence<long long> LongLongSeq;
  typedef sequence<unsigned long long> ULongLongSeq;
  typedef sequence<float> FloatSeq;
  typedef sequence<double> DoubleSeq;
  typedef sequence<long double> LongDoubleSeq;
  typedef sequence<string> StringSeq;
  typedef sequence<wstring> WStringSeq;

  typedef unsigned long PolicyType;
  interface Policy {
    readonly attribute PolicyType policy_type;
    Policy copy();
    void destroy();
  };
  typedef sequence<Policy> PolicyList;
};

#endif
)idl";
