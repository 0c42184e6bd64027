// Literals as template arguments: repository ids and names that are known to the compiler.
#pragma once

#include "corba/types.h"

namespace CORBA {

/// A literal as a template argument: names and repository ids of rows. Visible, as what is made of a hidden
/// type is hidden, too.
template <std::size_t N>
struct ZRSVCPP_API Text {
  char value[N]{};
  constexpr Text(const char (&text)[N]) {
    for (std::size_t i = 0; i < N; ++i) value[i] = text[i];
  }
};

/// Three literals as one text (a prefix, a name, a version), made by the compiler: `value` ends with a NUL.
template <std::size_t A, std::size_t B, std::size_t C>
struct JoinedText {
  char value[A + B + C - 2]{};
  constexpr JoinedText(const char (&a)[A], const char (&b)[B], const char (&c)[C]) {
    std::size_t n = 0;
    for (std::size_t i = 0; i + 1 < A; ++i) value[n++] = a[i];
    for (std::size_t i = 0; i + 1 < B; ++i) value[n++] = b[i];
    for (std::size_t i = 0; i < C; ++i) value[n++] = c[i];
  }
};

}  // namespace CORBA
