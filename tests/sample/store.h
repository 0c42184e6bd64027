// A servant of Sample::Store for the tests.
#pragma once

#include <future>
#include <string>

#include "everything.h"

/// Each operation of texts gives `a` as its result, the old `b` as `c`, and a changed `b`: what `a` was.
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

  char* strings(const char* a, char*& b, CORBA::String_out c) override {
    c = b;
    b = CORBA::string_dup(a);
    return CORBA::string_dup((prefix + a).c_str());
  }
  char* codes(const char* a, char*& b, CORBA::String_out c) override { return strings(a, b, c); }
  void nothing() override { throw Sample::Refused("not in its list", 1); }

  Sample::Octets data;
  std::string prefix;  // of what strings() gives back
  std::promise<std::string> hinted;

 private:
  // Nobody calls these.
  CORBA::Boolean booleans(CORBA::Boolean, CORBA::Boolean&, CORBA::Boolean&) override { return {}; }
  CORBA::Octet octets(CORBA::Octet, CORBA::Octet&, CORBA::Octet&) override { return {}; }
  CORBA::Double doubles(CORBA::Double, CORBA::Double&, CORBA::Double&) override { return {}; }
  Sample::Colour colours(Sample::Colour, Sample::Colour&, Sample::Colour&) override { return {}; }
  Sample::Point points(const Sample::Point&, Sample::Point&, Sample::Point&) override { return {}; }
  Sample::Entry* entries(const Sample::Entry&, Sample::Entry&, Sample::Entry_out) override { return {}; }
  Sample::Shape* shapes(const Sample::Shape&, Sample::Shape&, Sample::Shape_out) override { return {}; }
  Sample::Names* names(const Sample::Names&, Sample::Names&, Sample::Names_out) override { return {}; }
  Sample::Corners* corners(const Sample::Corners&, Sample::Corners&, Sample::Corners_out) override {
    return {};
  }
  Sample::Grid_slice* grids(const Sample::Grid, Sample::Grid, Sample::Grid) override { return {}; }
  Sample::Labels_slice* labels(const Sample::Labels, Sample::Labels, Sample::Labels_out) override {
    return {};
  }
  CORBA::Any* anys(const CORBA::Any&, CORBA::Any&, CORBA::Any_out) override { return {}; }
  Sample::Item* items(Sample::Item*, Sample::Item*&, Sample::Item_out) override { return {}; }
  CORBA::Object* objects(CORBA::Object*, CORBA::Object*&, CORBA::Object_out) override { return {}; }

  Sample::Colour shade_ = Sample::green;
};
