// Owners of strings and wide strings (OMG IDL to C++, "Mapping for String Types"): what a program holds
// (String_var), what stands in structs and arrays (String_mgr), an element of a sequence, and what an out
// parameter is (String_out).
//
// All take over what is assigned as a pointer to characters, and copy what is assigned as a pointer to
// constant characters or as another owner. A literal is constant, so it is copied:
//
//   CORBA::String_var name = "Ann";                          // a copy
//   name = CORBA::string_dup("Bob");                         // taken over; "Ann" is freed
//   const char* lent = name.in();                            // good until name changes
//   char* mine = name._retn();                               // the caller's, to be freed with string_free
//
// Texts end with a NUL and hold none: none of these classes knows the length beside the text. They belong to one thread
// at a time, as any variable. Who holds what in the parameters and results of an operation, for string and wstring:
//
//   in       const char*         the caller's, good for the length of the call
//   inout    char*&              the caller's text, the operation may free it and put another one there
//   out      CORBA::String_out   null at first, what the operation puts there is the caller's
//   result   char*               the caller's
//
// The library gives no null to a servant, and sends a null text as "".
#pragma once

#include "corba/types.h"

namespace CORBA {

// string_dup and string_free of both kinds of characters, for the templates below: null for null, and std::bad_alloc.
inline Char* text_dup(const Char* text) { return string_dup(text); }
inline WChar* text_dup(const WChar* text) { return wstring_dup(text); }
inline void text_free(Char* text) { string_free(text); }
inline void text_free(WChar* text) { wstring_free(text); }

/// What the owners share: lending, exchanging and handing over a text. An owner stands by itself where an operation
/// takes `const char*`, `char*&` or CORBA::String_out; where a compiler finds two ways, in(), inout() and out() say
/// which.
///
///   CORBA::String_var name = "Ann";
///   if (is_customer(name)) std::cout << name.in() << std::endl;
///   name[0] = 'a';  // "ann"
///
/// For who writes an owner: `Self::raw()` is the place of the pointer; `filled` makes it an empty text first where Self
/// knows no null; `text` is what is read; `take` replaces.
template <class Self, class C>
class TextOwner {
 public:
  using Character = C;

  /// Lends the text: what an in parameter takes. Good until the owner changes or ends. Null for a String_var that holds
  /// none; members and elements give "".
  const C* in() const { return self().text(); }
  /// The pointer itself, for an operation that may exchange it: it frees the old text, and what it puts there is owned.
  C*& inout() { return self().filled(); }
  /// Frees the text; the place for a new one of string_alloc or string_dup, which is owned. What an out parameter
  /// takes. An operation that raises leaves null there.
  C*& out() {
    self().take(nullptr);
    return self().raw();
  }
  /// Hands the text over: the caller frees it with string_free, and the owner is empty. What a servant's operation
  /// returns. Null for a String_var that holds none; members and elements give a new "".
  C* _retn() { return std::exchange(self().filled(), nullptr); }

  /// The same without a word: inout() for what can be changed, in() for what cannot.
  operator C*&() { return self().filled(); }
  // A reference too: else g++ -Wconversion warns at every use.
  operator const C* const&() const { return self().text(); }
  /// Octet by octet (character by character of a wide string); an index past the NUL is the program's mistake, and
  /// nobody looks. Of a String_var that holds null there is none.
  C& operator[](Index auto i) { return self().filled()[i]; }
  C operator[](Index auto i) const { return self().text()[i]; }

 protected:
  TextOwner() = default;
  ~TextOwner() = default;

 private:
  Self& self() { return static_cast<Self&>(*this); }
  const Self& self() const { return static_cast<const Self&>(*this); }
};

/// Owns one string. A fresh one holds null, or with NullIsEmpty (String_mgr) an empty string.
///
///   CORBA::String_var text = orb->object_to_string(object.in());  // owned from here on
///   std::cout << text.in() << std::endl;
///   CORBA::String_var copy = text;                               // a text of its own
///
/// Assigning a pointer that is held already changes nothing; what was held before another one is freed. Copies without
/// memory are std::bad_alloc, and the old text stays. A `char*` that is assigned has to be one of string_alloc or
/// string_dup: an array on the stack or a pointer into another text is copied by way of `const char*`.
///
///   char line[80] = "a line";
///   CORBA::String_var kept = static_cast<const char*>(line);  // copied; `kept = line` would free the array
template <class C, bool NullIsEmpty>
class TextVar : public TextOwner<TextVar<C, NullIsEmpty>, C> {
  using Owner = TextOwner<TextVar, C>;

 public:
  /// Null, or "" where null is empty.
  TextVar() = default;
  /// Takes over a text of string_alloc or string_dup; null is no text.
  TextVar(C* text) : text_(text) {}
  /// Copies, also a literal; null is no text.
  TextVar(const C* text) : text_(text_dup(text)) {}
  TextVar(const TextVar& o) : Owner(), text_(text_dup(o.text_)) {}
  /// Takes the text over; the other one is as a fresh one.
  TextVar(TextVar&& o) noexcept : text_(std::exchange(o.text_, nullptr)) {}
  /// A copy of what a member, an element or an out parameter holds.
  template <class Other>
  TextVar(const TextOwner<Other, C>& o) : text_(text_dup(o.in())) {}
  ~TextVar() { text_free(text_); }
  /// As the constructors with the same parameter.
  TextVar& operator=(C* text) {
    take(text);
    return *this;
  }
  TextVar& operator=(const C* text) { return *this = text_dup(text); }
  TextVar& operator=(const TextVar& o) { return this == &o ? *this : *this = text_dup(o.text_); }
  /// Exchanges the two texts.
  TextVar& operator=(TextVar&& o) noexcept {
    std::swap(text_, o.text_);
    return *this;
  }
  template <class Other>
  TextVar& operator=(const TextOwner<Other, C>& o) {
    return *this = text_dup(o.in());
  }

  // For TextOwner.
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

/// A string in a sequence: refers to the element, and frees what it replaces when the sequence owns its buffer. Null
/// reads as the empty string. It is what `names[0]` gives, and good until the sequence changes its length or is
/// destroyed; programs keep none, as a copy of it (`auto first = names[0]`) refers to the same element. Assigning one
/// element to another copies the text.
///
///   CORBA::StringSeq names;
///   names.length(1);
///   names[0] = "Ann";                                    // a copy; a char* would be taken over
///   std::cout << names[0].in() << std::endl;
template <class C>
class TextElement : public TextOwner<TextElement<C>, C> {
 public:
  /// What an element of a constant sequence is: the text itself, never null.
  using Const = const C*;
  static const C* constant(const C* text) { return text ? text : &empty; }

  /// Of the library. `owned`: what stands at the place is to be freed when it is replaced.
  TextElement(C*& place, bool owned) : place_(place), owned_(owned) {}
  TextElement(const TextElement&) = default;
  /// Takes over, and frees what was there when the sequence owns its buffer.
  TextElement& operator=(C* text) {
    take(text);
    return *this;
  }
  /// Copies.
  TextElement& operator=(const C* text) { return *this = text_dup(text); }
  TextElement& operator=(const TextElement& o) { return *this = text_dup(o.in()); }
  template <class Other>
  TextElement& operator=(const TextOwner<Other, C>& o) {
    return *this = text_dup(o.in());
  }

  // For TextOwner.
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

/// An out parameter of type string: the caller's pointer, null at first. A servant puts a text there, which the caller
/// then owns; a caller gives its String_var, whose text is freed at once, or a `char*`, whose text is not.
///
///   void describe(CORBA::String_out text) { text = CORBA::string_dup("taken over"); }
///
///   void ask() {
///     CORBA::String_var text;
///     describe(text);  // or text.out()
///     std::cout << text.in() << std::endl;
///   }
template <class C>
class TextOut {
 public:
  /// The pointer is set to null; what it pointed to is the caller's to free, before the call.
  TextOut(C*& place) : place_(place) { place_ = nullptr; }
  /// The text that is owned is freed.
  template <bool NullIsEmpty>
  TextOut(TextVar<C, NullIsEmpty>& place) : place_(place.out()) {}
  /// The same place: an out parameter may be passed on.
  TextOut(const TextOut&) = default;
  /// Takes over; what a servant put there before is not freed.
  TextOut& operator=(C* text) {
    place_ = text;
    return *this;
  }
  /// Copies: a literal, an owner, what another out parameter holds.
  TextOut& operator=(const C* text) { return *this = text_dup(text); }
  TextOut& operator=(const TextOut& o) { return *this = static_cast<const C*>(o.place_); }
  template <class Other>
  TextOut& operator=(const TextOwner<Other, C>& o) {
    return *this = text_dup(o.in());
  }

  /// The caller's pointer itself: null until something was put there.
  operator C*&() { return place_; }
  C*& ptr() { return place_; }

 private:
  C*& place_;
};

// What programs name. _var: a variable, null at first. _mgr: a member of a struct or an element of an array, "" at
// first. _out: an out parameter.
using String_var = TextVar<Char, false>;
using String_mgr = TextVar<Char, true>;
using String_out = TextOut<Char>;
using WString_var = TextVar<WChar, false>;
using WString_mgr = TextVar<WChar, true>;
using WString_out = TextOut<WChar>;

}  // namespace CORBA
