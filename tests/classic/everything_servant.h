// Every type in every direction; a row an operation.
#pragma once

#include "classic.h"
#include "everything.h"

using namespace Every;

#define BY_VALUE(T, OUT, OPERATION)        \
  T OPERATION(T a, T& b, OUT c) override { \
    c = b;                                 \
    return b = a;                          \
  }
#define FIXED_LENGTH(T, OPERATION)                    \
  T OPERATION(const T& a, T& b, T##_out c) override { \
    c = b;                                            \
    return b = a;                                     \
  }
#define VARIABLE_LENGTH(T, OUT, OPERATION)         \
  T* OPERATION(const T& a, T& b, OUT c) override { \
    c = new T(b);                                  \
    b = a;                                         \
    return new T(a);                               \
  }
#define TEXT(C, OUT, DUP, OPERATION)                \
  C* OPERATION(const C* a, C*& b, OUT c) override { \
    c = b;                                          \
    b = DUP(a);                                     \
    return DUP(a);                                  \
  }
#define FIXED_ARRAY(T, OPERATION)                                     \
  T##_slice* OPERATION(const T a, T##_slice* b, T##_out c) override { \
    T##_copy(c, b);                                                   \
    T##_copy(b, a);                                                   \
    return T##_dup(a);                                                \
  }
#define VARIABLE_ARRAY(T, OPERATION)                                  \
  T##_slice* OPERATION(const T a, T##_slice* b, T##_out c) override { \
    c = T##_dup(b);                                                   \
    T##_copy(b, a);                                                   \
    return T##_dup(a);                                                \
  }
#define REFERENCE(T, OPERATION)                                  \
  T##_ptr OPERATION(T##_ptr a, T##_ptr& b, T##_out c) override { \
    c = b;                                                       \
    b = T::_duplicate(a);                                        \
    return T::_duplicate(a);                                     \
  }

class Thing_impl : public Closing<POA_Every::Thing> {
 public:
  using Closing::Closing;
  BY_VALUE(CORBA::Boolean, CORBA::Boolean_out, echo_booleans)
  BY_VALUE(CORBA::Octet, CORBA::Octet_out, echo_bytes)
  BY_VALUE(CORBA::Char, CORBA::Char_out, echo_chars)
  BY_VALUE(CORBA::WChar, CORBA::WChar_out, echo_wchars)
  BY_VALUE(CORBA::Short, CORBA::Short_out, echo_shorts)
  BY_VALUE(CORBA::UShort, CORBA::UShort_out, echo_ushorts)
  BY_VALUE(CORBA::Long, CORBA::Long_out, echo_longs)
  BY_VALUE(CORBA::ULong, CORBA::ULong_out, echo_ulongs)
  BY_VALUE(CORBA::LongLong, CORBA::LongLong_out, echo_longlongs)
  BY_VALUE(CORBA::ULongLong, CORBA::ULongLong_out, echo_ulonglongs)
  BY_VALUE(CORBA::Float, CORBA::Float_out, echo_floats)
  BY_VALUE(CORBA::Double, CORBA::Double_out, echo_numbers)
  BY_VALUE(CORBA::LongDouble, CORBA::LongDouble_out, echo_longdoubles)
  BY_VALUE(Level, Level_out, echo_enums)

  TEXT(char, CORBA::String_out, CORBA::string_dup, echo_strings)
  TEXT(char, Code_out, CORBA::string_dup, echo_bounded)
  TEXT(CORBA::WChar, CORBA::WString_out, CORBA::wstring_dup, echo_wstrings)
  TEXT(CORBA::WChar, WideCode_out, CORBA::wstring_dup, echo_wbounded)

  FIXED_LENGTH(Money, echo_fixeds)
  FIXED_LENGTH(Small, echo_smalls)
  FIXED_LENGTH(Sized, echo_sizeds)
  FIXED_LENGTH(Switched, echo_switcheds)

  VARIABLE_LENGTH(Mixed, Mixed_out, echo_structs)
  VARIABLE_LENGTH(Choice, Choice_out, echo_unions)
  VARIABLE_LENGTH(Lettered, Lettered_out, echo_lettered)
  VARIABLE_LENGTH(Wide, Wide_out, echo_widely)
  VARIABLE_LENGTH(Tree, Tree_out, echo_trees)
  VARIABLE_LENGTH(Term, Term_out, echo_terms)
  VARIABLE_LENGTH(CORBA::Any, CORBA::Any_out, echo_anys)

  VARIABLE_LENGTH(Octets, Octets_out, echo_octetlists)
  VARIABLE_LENGTH(Booleans, Booleans_out, echo_booleanlists)
  VARIABLE_LENGTH(Shorts, Shorts_out, echo_shortlists)
  VARIABLE_LENGTH(Doubles, Doubles_out, echo_doublelists)
  VARIABLE_LENGTH(Precises, Precises_out, echo_preciselists)
  VARIABLE_LENGTH(Signs, Signs_out, echo_signlists)
  VARIABLE_LENGTH(Monies, Monies_out, echo_moneylists)
  VARIABLE_LENGTH(Levels, Levels_out, echo_levellists)
  VARIABLE_LENGTH(Texts, Texts_out, echo_textlists)
  VARIABLE_LENGTH(Wides, Wides_out, echo_widelists)
  VARIABLE_LENGTH(Codes, Codes_out, echo_codelists)
  VARIABLE_LENGTH(Mixeds, Mixeds_out, echo_mixedlists)
  VARIABLE_LENGTH(Choices, Choices_out, echo_choicelists)
  VARIABLE_LENGTH(Rows, Rows_out, echo_rowlists)
  VARIABLE_LENGTH(NamesList, NamesList_out, echo_nameslists)
  VARIABLE_LENGTH(Nested, Nested_out, echo_nestedlists)
  VARIABLE_LENGTH(Anys, Anys_out, echo_anylists)
  VARIABLE_LENGTH(Objects, Objects_out, echo_objectlists)
  VARIABLE_LENGTH(TypeCodes, TypeCodes_out, echo_typecodelists)

  FIXED_ARRAY(Row, echo_rows)
  FIXED_ARRAY(Grid, echo_grids)
  FIXED_ARRAY(Smalls, echo_smallarrays)
  VARIABLE_ARRAY(Names, echo_names)
  VARIABLE_ARRAY(WideNames, echo_widenames)

  REFERENCE(Every::Thing, echo_things)
  REFERENCE(CORBA::Object, echo_objects)
  REFERENCE(CORBA::TypeCode, echo_typecodes)

  All* everything() override { return new All(everything_); }
  void everything(const All& all) override { everything_ = all; }
  void fail() override { throw Failed(everything_); }

 private:
  All everything_;
};
