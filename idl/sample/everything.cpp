// Generated from everything.idl. Do not edit.
#include "everything.h"

// ---- Sample::Item ----

Sample::Item* Sample::Item::_duplicate(Item* reference) { return CORBA::idl::duplicate(reference); }
Sample::Item* Sample::Item::_narrow(CORBA::Object* object) { return CORBA::idl::narrow<Item>(object); }
Sample::Item* Sample::Item::_unchecked_narrow(CORBA::Object* object) {
  return CORBA::idl::unchecked_narrow<Item>(object);
}

namespace {
namespace Sample_Item {
namespace idl = CORBA::idl;
using Class = POA_Sample::Item;
constexpr idl::operation<Class, idl::string<>()> attr_get_name{"_get_name", &Class::name};
constexpr idl::operation<Class, Sample::Colour()> attr_get_shade{"_get_shade", &Class::shade};
constexpr idl::operation<Class, void(idl::in<Sample::Colour>)> attr_set_shade{"_set_shade", &Class::shade};
constexpr auto table = idl::operations(attr_get_name, attr_get_shade, attr_set_shade);
}  // namespace Sample_Item
}  // namespace

char* Sample::Item::name() { return Sample_Item::attr_get_name(this); }
Sample::Colour Sample::Item::shade() { return Sample_Item::attr_get_shade(this); }
void Sample::Item::shade(Sample::Colour value) { Sample_Item::attr_set_shade(this, value); }

constinit const CORBA::idl::InterfaceInfo POA_Sample::Item::_info =
    CORBA::idl::interface_info<POA_Sample::Item>(Sample::Item::repository_id, Sample_Item::table.table());
POA_Sample::Item::Item() { _intf = Sample::Item::repository_id; }
const CORBA::idl::InterfaceInfo& POA_Sample::Item::_interface(void*& self) {
  self = this;
  return _info;
}
Sample::Item* POA_Sample::Item::_this(CORBA::Environment& env) { return _this_as<Sample::Item>(env); }

// ---- Sample::Reader ----

Sample::Reader* Sample::Reader::_duplicate(Reader* reference) { return CORBA::idl::duplicate(reference); }
Sample::Reader* Sample::Reader::_narrow(CORBA::Object* object) { return CORBA::idl::narrow<Reader>(object); }
Sample::Reader* Sample::Reader::_unchecked_narrow(CORBA::Object* object) {
  return CORBA::idl::unchecked_narrow<Reader>(object);
}

namespace {
namespace Sample_Reader {
namespace idl = CORBA::idl;
using Class = POA_Sample::Reader;
constexpr idl::operation<Class, Sample::Octets(idl::in<CORBA::ULong>)> op_read{"read", &Class::read,
                                                                               idl::raises<Sample::Closed>};
constexpr auto table = idl::operations(op_read);
}  // namespace Sample_Reader
}  // namespace

Sample::Octets* Sample::Reader::read(CORBA::ULong count) { return Sample_Reader::op_read(this, count); }

constinit const CORBA::idl::InterfaceInfo POA_Sample::Reader::_info =
    CORBA::idl::interface_info<POA_Sample::Reader, POA_Sample::Item>(Sample::Reader::repository_id,
                                                                     Sample_Reader::table.table());
POA_Sample::Reader::Reader() { _intf = Sample::Reader::repository_id; }
const CORBA::idl::InterfaceInfo& POA_Sample::Reader::_interface(void*& self) {
  self = this;
  return _info;
}
Sample::Reader* POA_Sample::Reader::_this(CORBA::Environment& env) { return _this_as<Sample::Reader>(env); }

// ---- Sample::Writer ----

Sample::Writer* Sample::Writer::_duplicate(Writer* reference) { return CORBA::idl::duplicate(reference); }
Sample::Writer* Sample::Writer::_narrow(CORBA::Object* object) { return CORBA::idl::narrow<Writer>(object); }
Sample::Writer* Sample::Writer::_unchecked_narrow(CORBA::Object* object) {
  return CORBA::idl::unchecked_narrow<Writer>(object);
}

namespace {
namespace Sample_Writer {
namespace idl = CORBA::idl;
using Class = POA_Sample::Writer;
constexpr idl::operation<Class, void(idl::in<Sample::Octets>, idl::in<Sample::Writer::Mode>)> op_write{
    "write", &Class::write, idl::raises<Sample::Refused, Sample::Closed>};
constexpr idl::operation<Class, void(idl::in<idl::string<>>)> op_hint{"hint", &Class::hint, idl::oneway};
constexpr auto table = idl::operations(op_write, op_hint);
}  // namespace Sample_Writer
}  // namespace

void Sample::Writer::write(const Sample::Octets& data, Sample::Writer::Mode how) {
  Sample_Writer::op_write(this, data, how);
}
void Sample::Writer::hint(const char* text) { Sample_Writer::op_hint(this, text); }

constinit const CORBA::idl::InterfaceInfo POA_Sample::Writer::_info =
    CORBA::idl::interface_info<POA_Sample::Writer, POA_Sample::Item>(Sample::Writer::repository_id,
                                                                     Sample_Writer::table.table());
POA_Sample::Writer::Writer() { _intf = Sample::Writer::repository_id; }
const CORBA::idl::InterfaceInfo& POA_Sample::Writer::_interface(void*& self) {
  self = this;
  return _info;
}
Sample::Writer* POA_Sample::Writer::_this(CORBA::Environment& env) { return _this_as<Sample::Writer>(env); }

// ---- Sample::Store ----

Sample::Store* Sample::Store::_duplicate(Store* reference) { return CORBA::idl::duplicate(reference); }
Sample::Store* Sample::Store::_narrow(CORBA::Object* object) { return CORBA::idl::narrow<Store>(object); }
Sample::Store* Sample::Store::_unchecked_narrow(CORBA::Object* object) {
  return CORBA::idl::unchecked_narrow<Store>(object);
}

namespace {
namespace Sample_Store {
namespace idl = CORBA::idl;
using Class = POA_Sample::Store;
constexpr idl::operation<Class, CORBA::Boolean(idl::in<CORBA::Boolean>, idl::inout<CORBA::Boolean>,
                                               idl::out<CORBA::Boolean>)>
    op_booleans{"booleans", &Class::booleans};
constexpr idl::operation<Class, CORBA::Octet(idl::in<CORBA::Octet>, idl::inout<CORBA::Octet>,
                                             idl::out<CORBA::Octet>)>
    op_octets{"octets", &Class::octets};
constexpr idl::operation<Class, CORBA::Double(idl::in<CORBA::Double>, idl::inout<CORBA::Double>,
                                              idl::out<CORBA::Double>)>
    op_doubles{"doubles", &Class::doubles};
constexpr idl::operation<Class, Sample::Colour(idl::in<Sample::Colour>, idl::inout<Sample::Colour>,
                                               idl::out<Sample::Colour>)>
    op_colours{"colours", &Class::colours};
constexpr idl::operation<Class, idl::string<>(idl::in<idl::string<>>, idl::inout<idl::string<>>,
                                              idl::out<idl::string<>>)>
    op_strings{"strings", &Class::strings};
constexpr idl::operation<Class,
                         Sample::_type_Code(idl::in<Sample::_type_Code>, idl::inout<Sample::_type_Code>,
                                            idl::out<Sample::_type_Code>)>
    op_codes{"codes", &Class::codes};
constexpr idl::operation<Class, Sample::Point(idl::in<Sample::Point>, idl::inout<Sample::Point>,
                                              idl::out<Sample::Point>)>
    op_points{"points", &Class::points};
constexpr idl::operation<Class, Sample::Entry(idl::in<Sample::Entry>, idl::inout<Sample::Entry>,
                                              idl::out<Sample::Entry>)>
    op_entries{"entries", &Class::entries};
constexpr idl::operation<Class, Sample::Shape(idl::in<Sample::Shape>, idl::inout<Sample::Shape>,
                                              idl::out<Sample::Shape>)>
    op_shapes{"shapes", &Class::shapes};
constexpr idl::operation<Class, Sample::Names(idl::in<Sample::Names>, idl::inout<Sample::Names>,
                                              idl::out<Sample::Names>)>
    op_names{"names", &Class::names};
constexpr idl::operation<Class, Sample::Corners(idl::in<Sample::Corners>, idl::inout<Sample::Corners>,
                                                idl::out<Sample::Corners>)>
    op_corners{"corners", &Class::corners};
constexpr idl::operation<Class,
                         Sample::_type_Grid(idl::in<Sample::_type_Grid>, idl::inout<Sample::_type_Grid>,
                                            idl::out<Sample::_type_Grid>)>
    op_grids{"grids", &Class::grids};
constexpr idl::operation<Class,
                         Sample::_type_Labels(idl::in<Sample::_type_Labels>, idl::inout<Sample::_type_Labels>,
                                              idl::out<Sample::_type_Labels>)>
    op_labels{"labels", &Class::labels};
constexpr idl::operation<Class, CORBA::Any(idl::in<CORBA::Any>, idl::inout<CORBA::Any>, idl::out<CORBA::Any>)>
    op_anys{"anys", &Class::anys};
constexpr idl::operation<Class, idl::ref<Sample::Item>(idl::in<idl::ref<Sample::Item>>,
                                                       idl::inout<idl::ref<Sample::Item>>,
                                                       idl::out<idl::ref<Sample::Item>>)>
    op_items{"items", &Class::items};
constexpr idl::operation<Class, idl::ref<CORBA::Object>(idl::in<idl::ref<CORBA::Object>>,
                                                        idl::inout<idl::ref<CORBA::Object>>,
                                                        idl::out<idl::ref<CORBA::Object>>)>
    op_objects{"objects", &Class::objects};
constexpr idl::operation<Class, void()> op_nothing{"nothing", &Class::nothing};
constexpr auto table = idl::operations(op_booleans, op_octets, op_doubles, op_colours, op_strings, op_codes,
                                       op_points, op_entries, op_shapes, op_names, op_corners, op_grids,
                                       op_labels, op_anys, op_items, op_objects, op_nothing);
}  // namespace Sample_Store
}  // namespace

CORBA::Boolean Sample::Store::booleans(CORBA::Boolean a, CORBA::Boolean& b, CORBA::Boolean& c) {
  return Sample_Store::op_booleans(this, a, b, c);
}
CORBA::Octet Sample::Store::octets(CORBA::Octet a, CORBA::Octet& b, CORBA::Octet& c) {
  return Sample_Store::op_octets(this, a, b, c);
}
CORBA::Double Sample::Store::doubles(CORBA::Double a, CORBA::Double& b, CORBA::Double& c) {
  return Sample_Store::op_doubles(this, a, b, c);
}
Sample::Colour Sample::Store::colours(Sample::Colour a, Sample::Colour& b, Sample::Colour& c) {
  return Sample_Store::op_colours(this, a, b, c);
}
char* Sample::Store::strings(const char* a, char*& b, CORBA::String_out c) {
  return Sample_Store::op_strings(this, a, b, c);
}
char* Sample::Store::codes(const char* a, char*& b, CORBA::String_out c) {
  return Sample_Store::op_codes(this, a, b, c);
}
Sample::Point Sample::Store::points(const Sample::Point& a, Sample::Point& b, Sample::Point& c) {
  return Sample_Store::op_points(this, a, b, c);
}
Sample::Entry* Sample::Store::entries(const Sample::Entry& a, Sample::Entry& b, Sample::Entry_out c) {
  return Sample_Store::op_entries(this, a, b, c);
}
Sample::Shape* Sample::Store::shapes(const Sample::Shape& a, Sample::Shape& b, Sample::Shape_out c) {
  return Sample_Store::op_shapes(this, a, b, c);
}
Sample::Names* Sample::Store::names(const Sample::Names& a, Sample::Names& b, Sample::Names_out c) {
  return Sample_Store::op_names(this, a, b, c);
}
Sample::Corners* Sample::Store::corners(const Sample::Corners& a, Sample::Corners& b, Sample::Corners_out c) {
  return Sample_Store::op_corners(this, a, b, c);
}
Sample::Grid_slice* Sample::Store::grids(const Sample::Grid a, Sample::Grid b, Sample::Grid c) {
  return Sample_Store::op_grids(this, a, b, c);
}
Sample::Labels_slice* Sample::Store::labels(const Sample::Labels a, Sample::Labels b, Sample::Labels_out c) {
  return Sample_Store::op_labels(this, a, b, c);
}
CORBA::Any* Sample::Store::anys(const CORBA::Any& a, CORBA::Any& b, CORBA::Any_out c) {
  return Sample_Store::op_anys(this, a, b, c);
}
Sample::Item* Sample::Store::items(Sample::Item* a, Sample::Item*& b, Sample::Item_out c) {
  return Sample_Store::op_items(this, a, b, c);
}
CORBA::Object* Sample::Store::objects(CORBA::Object* a, CORBA::Object*& b, CORBA::Object_out c) {
  return Sample_Store::op_objects(this, a, b, c);
}
void Sample::Store::nothing() { Sample_Store::op_nothing(this); }

constinit const CORBA::idl::InterfaceInfo POA_Sample::Store::_info =
    CORBA::idl::interface_info<POA_Sample::Store, POA_Sample::Reader, POA_Sample::Writer>(
        Sample::Store::repository_id, Sample_Store::table.table());
POA_Sample::Store::Store() { _intf = Sample::Store::repository_id; }
const CORBA::idl::InterfaceInfo& POA_Sample::Store::_interface(void*& self) {
  self = this;
  return _info;
}
Sample::Store* POA_Sample::Store::_this(CORBA::Environment& env) { return _this_as<Sample::Store>(env); }

// ---- Sample::Watcher ----

Sample::Watcher* Sample::Watcher::_duplicate(Watcher* reference) {
  return CORBA::idl::duplicate_local(reference);
}
Sample::Watcher* Sample::Watcher::_narrow(CORBA::Object* object) {
  return CORBA::idl::narrow_local<Watcher>(object);
}
Sample::Watcher* Sample::Watcher::_unchecked_narrow(CORBA::Object* object) {
  return CORBA::idl::narrow_local<Watcher>(object);
}

namespace {
[[maybe_unused]] const bool announced =
    CORBA::idl::announce({&POA_Sample::Item::_info, &POA_Sample::Reader::_info, &POA_Sample::Writer::_info,
                          &POA_Sample::Store::_info});
}
