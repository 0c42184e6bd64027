// The sequences of module CORBA (StringSeq, LongSeq, ...) with their _var and _out types and their TypeCodes (CORBA,
// "Standard sequences"): what IDL finds in orb.idl. Each is what Sequence is in corba/sequence.h, with BAD_PARAM for an
// index at or past the length. XSeq_var owns one that was made with new, null at first; XSeq_out is an out parameter.
//
//   AnySeq  BooleanSeq  CharSeq  WCharSeq  OctetSeq  StringSeq  WStringSeq
//   ShortSeq  UShortSeq  LongSeq  ULongSeq  LongLongSeq  ULongLongSeq
//   FloatSeq  DoubleSeq  LongDoubleSeq
//
// Names are those of the elements in IDL's spelling. They go into an Any and out of it, and stand in the IDL of other
// interfaces as CORBA::StringSeq and so on:
//
//   CORBA::StringSeq_var names = new CORBA::StringSeq;
//   names->length(1);
//   names[0] = "Ann";  // copied
//   any <<= names.in();
//   const CORBA::StringSeq* found = nullptr;
//   if (any >>= found) std::cout << (*found)[0] << std::endl;  // the Any's own
#pragma once

#include "corba/detail/describe.h"

namespace CORBA {

// One row a sequence: its name before "Seq", and the descriptor of its element (corba/detail/idl_types.h). What comes
// of it: the class, XSeq_var, XSeq_out, _tc_XSeq, and its description.
// clang-format off
#define CORBA_EACH_SEQUENCE(DO)                                                                      \
  DO(Any, Any) DO(Boolean, Boolean) DO(Char, Char) DO(WChar, WChar) DO(Short, Short)                 \
  DO(UShort, UShort) DO(Long, Long) DO(ULong, ULong) DO(LongLong, LongLong)                          \
  DO(ULongLong, ULongLong) DO(Float, Float) DO(Double, Double) DO(LongDouble, LongDouble)            \
  DO(String, idl::string<>) DO(WString, idl::wstring<>)
// clang-format on
#define CORBA_DEFINE_SEQUENCE(Name, D)                      \
  class Name##Seq : public idl::sequence<idl::ValueOf<D>> { \
   public:                                                  \
    using Sequence::Sequence;                               \
  };                                                        \
  using Name##Seq_var = ValueVar<Name##Seq>;                \
  using Name##Seq_out = ValueOut<Name##Seq>;                \
  inline constexpr idl::typecode_constant<Name##Seq> _tc_##Name##Seq;
CORBA_EACH_SEQUENCE(CORBA_DEFINE_SEQUENCE)
#undef CORBA_DEFINE_SEQUENCE
// OctetSeq itself, with its OctetSeq_var, stands in corba/sequence.h: object ids are made of it. An index past its
// length gives a scratch element.
using OctetSeq_out = ValueOut<OctetSeq>;
inline constexpr idl::typecode_constant<OctetSeq> _tc_OctetSeq;

namespace idl {

#define CORBA_DESCRIBE_SEQUENCE(Name, D)                                    \
  template <>                                                               \
  struct Type<Name##Seq> : sequence_typedef<Name##Seq, D> {                 \
    static constexpr const char* id = "IDL:omg.org/CORBA/" #Name "Seq:1.0"; \
    static constexpr const char* name = #Name "Seq";                        \
  };
CORBA_EACH_SEQUENCE(CORBA_DESCRIBE_SEQUENCE)
CORBA_DESCRIBE_SEQUENCE(Octet, Octet)
#undef CORBA_DESCRIBE_SEQUENCE
#undef CORBA_EACH_SEQUENCE

}  // namespace idl
}  // namespace CORBA
