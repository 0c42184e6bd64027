// A servant of Sample::Store for the tests: gives every argument back.
#pragma once

#include <future>
#include <string>

#include "everything.h"

/// Each operation of Store gives `a` as its result, the old `b` as `c`, and a changed `b`: what `a` was.
class StoreServant : public POA_Sample::Store {
 public:
  char* name() override { return CORBA::string_dup("store"); }
  Sample::Colour shade() override { return shade_; }
  void shade(Sample::Colour value) override { shade_ = value; }
  Sample::Octets* read(CORBA::ULong count) override {
    if (count > data.length()) throw Sample::Closed();
    return new Sample::Octets(data);
  }
  void write(const Sample::Octets& octets, Sample::Writer::Mode how) override {
    if (how == Sample::Writer::append) throw Sample::Refused("no appending", 7);
    data = octets;
  }
  void hint(const char* text) override { hinted.set_value(text); }

  CORBA::Boolean booleans(CORBA::Boolean a, CORBA::Boolean& b, CORBA::Boolean& c) override {
    return plain(a, b, c);
  }
  CORBA::Octet octets(CORBA::Octet a, CORBA::Octet& b, CORBA::Octet& c) override { return plain(a, b, c); }
  CORBA::Double doubles(CORBA::Double a, CORBA::Double& b, CORBA::Double& c) override {
    return plain(a, b, c);
  }
  Sample::Colour colours(Sample::Colour a, Sample::Colour& b, Sample::Colour& c) override {
    return plain(a, b, c);
  }
  char* strings(const char* a, char*& b, CORBA::String_out c) override {
    return text((prefix + a).c_str(), b, c);
  }
  char* codes(const char* a, char*& b, CORBA::String_out c) override { return text(a, b, c); }
  Sample::Point points(const Sample::Point& a, Sample::Point& b, Sample::Point& c) override {
    return plain(a, b, c);
  }
  Sample::Entry* entries(const Sample::Entry& a, Sample::Entry& b, Sample::Entry_out c) override {
    return heap(a, b, c);
  }
  Sample::Shape* shapes(const Sample::Shape& a, Sample::Shape& b, Sample::Shape_out c) override {
    return heap(a, b, c);
  }
  Sample::Names* names(const Sample::Names& a, Sample::Names& b, Sample::Names_out c) override {
    return heap(a, b, c);
  }
  Sample::Corners* corners(const Sample::Corners& a, Sample::Corners& b, Sample::Corners_out c) override {
    return heap(a, b, c);
  }
  Sample::Grid_slice* grids(const Sample::Grid a, Sample::Grid b, Sample::Grid c) override {
    Sample::Grid_copy(c, b);
    Sample::Grid_copy(b, a);
    return Sample::Grid_dup(a);
  }
  Sample::Labels_slice* labels(const Sample::Labels a, Sample::Labels b, Sample::Labels_out c) override {
    c = Sample::Labels_dup(b);
    Sample::Labels_copy(b, a);
    return Sample::Labels_dup(a);
  }
  CORBA::Any* anys(const CORBA::Any& a, CORBA::Any& b, CORBA::Any_out c) override { return heap(a, b, c); }
  Sample::Item* items(Sample::Item* a, Sample::Item*& b, Sample::Item_out c) override {
    return reference(a, b, c);
  }
  CORBA::Object* objects(CORBA::Object* a, CORBA::Object*& b, CORBA::Object_out c) override {
    return reference(a, b, c);
  }
  void nothing() override {}

  Sample::Octets data;
  std::string prefix;  // of what strings() gives back
  std::promise<std::string> hinted;

 private:
  template <class T>
  static T plain(const T& a, T& b, T& c) {
    c = b;
    b = a;
    return a;
  }
  template <class T>
  static T* heap(const T& a, T& b, CORBA::ValueOut<T> c) {
    c = new T(b);
    b = a;
    return new T(a);
  }
  static char* text(const char* a, char*& b, CORBA::String_out c) {
    c = b;
    b = CORBA::string_dup(a);
    return CORBA::string_dup(a);
  }
  template <class X>
  static X* reference(X* a, X*& b, CORBA::ObjectOut<X> c) {
    c = b;
    b = X::_duplicate(a);
    return X::_duplicate(a);
  }

  Sample::Colour shade_ = Sample::green;
};
