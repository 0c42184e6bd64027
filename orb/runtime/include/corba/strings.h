// Owners of strings and wide strings (OMG IDL to C++, "Mapping for String Types"): what a program holds
// (String_var), what stands in structs and arrays (String_mgr), an element of a sequence, and what an out
// parameter is (String_out).
//
// All take over what is assigned as a pointer to characters, and copy what is assigned as a pointer to
// constant characters or as another owner.
#pragma once

#include "corba/types.h"

namespace CORBA {

inline Char* text_dup(const Char* text) { return string_dup(text); }
inline WChar* text_dup(const WChar* text) { return wstring_dup(text); }
inline void text_free(Char* text) { string_free(text); }
inline void text_free(WChar* text) { wstring_free(text); }

/// What the owners share. `Self::raw()` is the place of the pointer; `filled` makes it an empty text first
/// where Self knows no null; `text` is what is read.
template <class Self, class C>
class TextOwner {
 public:
  using Character = C;

  const C* in() const { return self().text(); }
  C*& inout() { return self().filled(); }
  C*& out() {
    self().take(nullptr);
    return self().raw();
  }
  C* _retn() { return std::exchange(self().filled(), nullptr); }

  operator C*&() { return self().filled(); }
  // A reference too: else g++ -Wconversion warns at every use.
  operator const C* const&() const { return self().text(); }
  C& operator[](ULong i) { return self().filled()[i]; }
  C operator[](ULong i) const { return self().text()[i]; }

 protected:
  TextOwner() = default;
  ~TextOwner() = default;

 private:
  Self& self() { return static_cast<Self&>(*this); }
  const Self& self() const { return static_cast<const Self&>(*this); }
};

/// Owns one string. A fresh one holds null, or with NullIsEmpty (String_mgr) an empty string.
template <class C, bool NullIsEmpty>
class TextVar : public TextOwner<TextVar<C, NullIsEmpty>, C> {
  using Owner = TextOwner<TextVar, C>;

 public:
  TextVar() = default;
  TextVar(C* text) : text_(text) {}
  TextVar(const C* text) : text_(text_dup(text)) {}
  TextVar(const TextVar& o) : Owner(), text_(text_dup(o.text_)) {}
  TextVar(TextVar&& o) noexcept : text_(std::exchange(o.text_, nullptr)) {}
  template <class Other>
  TextVar(const TextOwner<Other, C>& o) : text_(text_dup(o.in())) {}
  ~TextVar() { text_free(text_); }
  TextVar& operator=(C* text) {
    take(text);
    return *this;
  }
  TextVar& operator=(const C* text) { return *this = text_dup(text); }
  TextVar& operator=(const TextVar& o) { return this == &o ? *this : *this = text_dup(o.text_); }
  TextVar& operator=(TextVar&& o) noexcept {
    std::swap(text_, o.text_);
    return *this;
  }
  template <class Other>
  TextVar& operator=(const TextOwner<Other, C>& o) {
    return *this = text_dup(o.in());
  }

  C*& raw() { return text_; }
  C*& filled() {
    if (NullIsEmpty && !text_) text_ = text_dup(&empty);
    return text_;
  }
  const C* const& text() const {
    return NullIsEmpty && !text_ ? empty_text : const_cast<const C* const&>(text_);
  }
  void take(C* text) {
    if (text != text_) text_free(std::exchange(text_, text));
  }

 private:
  static constexpr C empty = 0;
  static constexpr const C* empty_text = &empty;
  C* text_ = nullptr;
};

/// A string in a sequence: refers to the element, and frees what it replaces when the sequence owns its
/// buffer. Null reads as the empty string.
template <class C>
class TextElement : public TextOwner<TextElement<C>, C> {
 public:
  using Const = const C*;
  static const C* constant(const C* text) { return text ? text : &empty; }

  TextElement(C*& place, bool owned) : place_(place), owned_(owned) {}
  TextElement(const TextElement&) = default;
  TextElement& operator=(C* text) {
    take(text);
    return *this;
  }
  TextElement& operator=(const C* text) { return *this = text_dup(text); }
  TextElement& operator=(const TextElement& o) { return *this = text_dup(o.in()); }
  template <class Other>
  TextElement& operator=(const TextOwner<Other, C>& o) {
    return *this = text_dup(o.in());
  }

  C*& raw() { return place_; }
  C*& filled() {
    if (!place_) place_ = text_dup(&empty);
    return place_;
  }
  const C* const& text() const { return place_ ? const_cast<const C* const&>(place_) : empty_text; }
  void take(C* text) {
    if (text == place_) return;
    if (owned_) text_free(place_);
    place_ = text;
  }

 private:
  static constexpr C empty = 0;
  static constexpr const C* empty_text = &empty;
  C*& place_;
  bool owned_;
};

/// An out parameter: the caller's pointer, null at first.
template <class C>
class TextOut {
 public:
  TextOut(C*& place) : place_(place) { place_ = nullptr; }
  template <bool NullIsEmpty>
  TextOut(TextVar<C, NullIsEmpty>& place) : place_(place.out()) {}
  TextOut(const TextOut&) = default;
  TextOut& operator=(C* text) {
    place_ = text;
    return *this;
  }
  TextOut& operator=(const C* text) { return *this = text_dup(text); }
  TextOut& operator=(const TextOut& o) { return *this = static_cast<const C*>(o.place_); }
  template <class Other>
  TextOut& operator=(const TextOwner<Other, C>& o) {
    return *this = text_dup(o.in());
  }

  operator C*&() { return place_; }
  C*& ptr() { return place_; }

 private:
  C*& place_;
};

using String_var = TextVar<Char, false>;
using String_mgr = TextVar<Char, true>;
using String_out = TextOut<Char>;
using WString_var = TextVar<WChar, false>;
using WString_mgr = TextVar<WChar, true>;
using WString_out = TextOut<WChar>;

}  // namespace CORBA
