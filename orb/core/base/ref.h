// Counted pointers to records that count themselves.
#pragma once

#include <utility>

namespace zrsv {

/// A counted pointer. T has `void add_ref()` and `void drop()`.
template <class T>
class Ref {
 public:
  Ref() = default;
  /// Takes over one count of `p`.
  static Ref adopt(T* p) {
    Ref r;
    r.p_ = p;
    return r;
  }
  static Ref share(T* p) {
    if (p) p->add_ref();
    return adopt(p);
  }
  Ref(const Ref& o) : p_(o.p_) {
    if (p_) p_->add_ref();
  }
  Ref(Ref&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  Ref& operator=(Ref o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }
  ~Ref() {
    if (p_) p_->drop();
  }
  T* get() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  /// Gives the count to the caller.
  T* release() { return std::exchange(p_, nullptr); }

 private:
  T* p_ = nullptr;
};

/// A counted pointer that costs no counting where it is not needed: it borrows from somebody who keeps the
/// object alive, and takes a count of its own when it is moved, which is to a place that outlives the lender.
template <class T>
class Borrowed {
 public:
  Borrowed() = default;
  explicit Borrowed(T* from) : p_(from) {}
  Borrowed(Borrowed&& o) noexcept
      : p_(o.p_), counted_(o.counted_ ? std::move(o.counted_) : Ref<T>::share(o.p_)) {}
  Borrowed& operator=(Borrowed&&) = delete;
  /// Borrows `from`.
  void borrow(T* from) { p_ = from; }
  T* get() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }

 private:
  T* p_ = nullptr;
  Ref<T> counted_;
};

}  // namespace zrsv
