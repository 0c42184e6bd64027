// Generated from everything.idl. Do not edit.
#pragma once

#include "poa/mapping.h"

namespace Sample {

inline constexpr CORBA::Long limit = 100;
inline constexpr const char* greeting = "hello";

enum Colour : CORBA::ULong { red, green, blue };
using Colour_out = Colour&;
inline constexpr CORBA::idl::typecode_constant<Colour> _tc_Colour;

struct Point {
  CORBA::Double x{};
  CORBA::Double y{};
  Colour shade{};
};
using Point_var = CORBA::FixedVar<Point>;
using Point_out = Point&;
inline constexpr CORBA::idl::typecode_constant<Point> _tc_Point;

class Octets : public CORBA::idl::sequence<CORBA::Octet> {
 public:
  using Sequence::Sequence;
};
using Octets_var = CORBA::ValueVar<Octets>;
using Octets_out = CORBA::ValueOut<Octets>;
inline constexpr CORBA::idl::typecode_constant<Octets> _tc_Octets;

class Names : public CORBA::idl::sequence<CORBA::String_mgr> {
 public:
  using Sequence::Sequence;
};
using Names_var = CORBA::ValueVar<Names>;
using Names_out = CORBA::ValueOut<Names>;
inline constexpr CORBA::idl::typecode_constant<Names> _tc_Names;

class Corners : public CORBA::idl::bounded_sequence<Point, 4> {
 public:
  using BoundedSequence::BoundedSequence;
};
using Corners_var = CORBA::ValueVar<Corners>;
using Corners_out = CORBA::ValueOut<Corners>;
inline constexpr CORBA::idl::typecode_constant<Corners> _tc_Corners;

struct _type_Code {
  static constexpr const char *id = "IDL:Sample/Code:1.0", *name = "Code";
  using Aliased = CORBA::idl::string<8>;
};
using Code = char*;
using Code_var = CORBA::String_var;
using Code_out = CORBA::String_out;
inline constexpr CORBA::idl::typecode_constant<_type_Code> _tc_Code;

struct _type_Grid {
  static constexpr const char *id = "IDL:Sample/Grid:1.0", *name = "Grid";
  using Array = CORBA::Long[2][3];
  using Element = CORBA::Long;
  static constexpr bool fixed = true;
};
using Grid = _type_Grid::Array;
using Grid_slice = CORBA::ArraySlice<_type_Grid>;
using Grid_var = CORBA::ArrayVar<_type_Grid>;
using Grid_out = Grid_slice*;
using Grid_forany = CORBA::ArrayForany<_type_Grid>;
inline Grid_slice* Grid_alloc() { return CORBA::array_alloc<_type_Grid>(); }
inline Grid_slice* Grid_dup(const Grid_slice* from) { return CORBA::array_dup<_type_Grid>(from); }
inline void Grid_copy(Grid_slice* to, const Grid_slice* from) {
  CORBA::array_copy_slice<_type_Grid>(to, from);
}
inline void Grid_free(Grid_slice* slice) { CORBA::array_free<_type_Grid>(slice); }
inline constexpr CORBA::idl::typecode_constant<_type_Grid> _tc_Grid;

struct _type_Labels {
  static constexpr const char *id = "IDL:Sample/Labels:1.0", *name = "Labels";
  using Array = CORBA::String_mgr[2];
  using Element = CORBA::idl::string<>;
  static constexpr bool fixed = false;
};
using Labels = _type_Labels::Array;
using Labels_slice = CORBA::ArraySlice<_type_Labels>;
using Labels_var = CORBA::ArrayVar<_type_Labels>;
using Labels_out = CORBA::ArrayOut<_type_Labels>;
using Labels_forany = CORBA::ArrayForany<_type_Labels>;
inline Labels_slice* Labels_alloc() { return CORBA::array_alloc<_type_Labels>(); }
inline Labels_slice* Labels_dup(const Labels_slice* from) { return CORBA::array_dup<_type_Labels>(from); }
inline void Labels_copy(Labels_slice* to, const Labels_slice* from) {
  CORBA::array_copy_slice<_type_Labels>(to, from);
}
inline void Labels_free(Labels_slice* slice) { CORBA::array_free<_type_Labels>(slice); }
inline constexpr CORBA::idl::typecode_constant<_type_Labels> _tc_Labels;

struct Entry {
  CORBA::String_mgr name;
  CORBA::String_mgr mark;
  CORBA::Any extra;
  Names others;
  Grid cells{};
};
using Entry_var = CORBA::ValueVar<Entry>;
using Entry_out = CORBA::ValueOut<Entry>;
inline constexpr CORBA::idl::typecode_constant<Entry> _tc_Entry;

class Entries : public CORBA::idl::sequence<Entry> {
 public:
  using Sequence::Sequence;
};
using Entries_var = CORBA::ValueVar<Entries>;
using Entries_out = CORBA::ValueOut<Entries>;
inline constexpr CORBA::idl::typecode_constant<Entries> _tc_Entries;

class Shape : public CORBA::Union<Shape, Colour, CORBA::Double, CORBA::String_mgr, Entry> {
 public:
  void radius(CORBA::Double value) { _set<0>(red, value); }
  CORBA::Double radius() const { return _get<0>(); }
  void text(char* value) { _set<1>(green, value); }
  void text(const char* value) { _set<1>(green, value); }
  void text(const CORBA::String_var& value) { _set<1>(green, value); }
  const char* text() const { return _get<1>().in(); }
  void entry(const Entry& value) { _set<2>(blue, value); }
  const Entry& entry() const { return _get<2>(); }
  Entry& entry() { return _get<2>(); }
};
using Shape_var = CORBA::ValueVar<Shape>;
using Shape_out = CORBA::ValueOut<Shape>;
inline constexpr CORBA::idl::typecode_constant<Shape> _tc_Shape;

class Refused : public CORBA::UserExceptionOf<Refused> {
 public:
  static constexpr const char* repository_id = "IDL:Sample/Refused:1.0";
  Refused() = default;
  Refused(const char* _why, CORBA::Long _code) : why(_why), code(_code) {}

  CORBA::String_mgr why;
  CORBA::Long code{};
};
inline constexpr CORBA::idl::typecode_constant<Refused> _tc_Refused;

class Closed : public CORBA::UserExceptionOf<Closed> {
 public:
  static constexpr const char* repository_id = "IDL:Sample/Closed:1.0";
};
inline constexpr CORBA::idl::typecode_constant<Closed> _tc_Closed;

class Item;
using Item_ptr = Item*;
using Item_var = CORBA::ObjectVar<Item>;
using Item_out = CORBA::ObjectOut<Item>;

class Item : public virtual CORBA::Object {
 public:
  using _ptr_type = Item*;
  using _var_type = Item_var;
  static constexpr const char* repository_id = "IDL:Sample/Item:1.0";
  static constexpr const char* interface_name = "Item";
  static Item* _nil() { return nullptr; }
  static Item* _duplicate(Item* reference);
  static Item* _narrow(CORBA::Object* object);
  static Item* _unchecked_narrow(CORBA::Object* object);

  virtual char* name();
  virtual Sample::Colour shade();
  virtual void shade(Sample::Colour value);
};
inline constexpr CORBA::idl::typecode_constant<CORBA::idl::ref<Item>> _tc_Item;

class Items : public CORBA::idl::sequence<Item_var> {
 public:
  using Sequence::Sequence;
};
using Items_var = CORBA::ValueVar<Items>;
using Items_out = CORBA::ValueOut<Items>;
inline constexpr CORBA::idl::typecode_constant<Items> _tc_Items;

class Reader;
using Reader_ptr = Reader*;
using Reader_var = CORBA::ObjectVar<Reader>;
using Reader_out = CORBA::ObjectOut<Reader>;

class Reader : public virtual Item {
 public:
  using _ptr_type = Reader*;
  using _var_type = Reader_var;
  static constexpr const char* repository_id = "IDL:Sample/Reader:1.0";
  static constexpr const char* interface_name = "Reader";
  static Reader* _nil() { return nullptr; }
  static Reader* _duplicate(Reader* reference);
  static Reader* _narrow(CORBA::Object* object);
  static Reader* _unchecked_narrow(CORBA::Object* object);

  virtual Sample::Octets* read(CORBA::ULong count);
};
inline constexpr CORBA::idl::typecode_constant<CORBA::idl::ref<Reader>> _tc_Reader;

class Writer;
using Writer_ptr = Writer*;
using Writer_var = CORBA::ObjectVar<Writer>;
using Writer_out = CORBA::ObjectOut<Writer>;

class Writer : public virtual Item {
 public:
  using _ptr_type = Writer*;
  using _var_type = Writer_var;
  static constexpr const char* repository_id = "IDL:Sample/Writer:1.0";
  static constexpr const char* interface_name = "Writer";
  static Writer* _nil() { return nullptr; }
  static Writer* _duplicate(Writer* reference);
  static Writer* _narrow(CORBA::Object* object);
  static Writer* _unchecked_narrow(CORBA::Object* object);

  enum Mode : CORBA::ULong { append, replace };
  using Mode_out = Mode&;
  static constexpr CORBA::idl::typecode_constant<Mode> _tc_Mode{};

  virtual void write(const Sample::Octets& data, Sample::Writer::Mode how);
  virtual void hint(const char* text);
};
inline constexpr CORBA::idl::typecode_constant<CORBA::idl::ref<Writer>> _tc_Writer;

class Store;
using Store_ptr = Store*;
using Store_var = CORBA::ObjectVar<Store>;
using Store_out = CORBA::ObjectOut<Store>;

class Store : public virtual Reader, public virtual Writer {
 public:
  using _ptr_type = Store*;
  using _var_type = Store_var;
  static constexpr const char* repository_id = "IDL:Sample/Store:1.0";
  static constexpr const char* interface_name = "Store";
  static Store* _nil() { return nullptr; }
  static Store* _duplicate(Store* reference);
  static Store* _narrow(CORBA::Object* object);
  static Store* _unchecked_narrow(CORBA::Object* object);

  virtual CORBA::Boolean booleans(CORBA::Boolean a, CORBA::Boolean& b, CORBA::Boolean& c);
  virtual CORBA::Octet octets(CORBA::Octet a, CORBA::Octet& b, CORBA::Octet& c);
  virtual CORBA::Double doubles(CORBA::Double a, CORBA::Double& b, CORBA::Double& c);
  virtual Sample::Colour colours(Sample::Colour a, Sample::Colour& b, Sample::Colour& c);
  virtual char* strings(const char* a, char*& b, CORBA::String_out c);
  virtual char* codes(const char* a, char*& b, CORBA::String_out c);
  virtual Sample::Point points(const Sample::Point& a, Sample::Point& b, Sample::Point& c);
  virtual Sample::Entry* entries(const Sample::Entry& a, Sample::Entry& b, Sample::Entry_out c);
  virtual Sample::Shape* shapes(const Sample::Shape& a, Sample::Shape& b, Sample::Shape_out c);
  virtual Sample::Names* names(const Sample::Names& a, Sample::Names& b, Sample::Names_out c);
  virtual Sample::Corners* corners(const Sample::Corners& a, Sample::Corners& b, Sample::Corners_out c);
  virtual Sample::Grid_slice* grids(const Sample::Grid a, Sample::Grid b, Sample::Grid c);
  virtual Sample::Labels_slice* labels(const Sample::Labels a, Sample::Labels b, Sample::Labels_out c);
  virtual CORBA::Any* anys(const CORBA::Any& a, CORBA::Any& b, CORBA::Any_out c);
  virtual Sample::Item* items(Sample::Item* a, Sample::Item*& b, Sample::Item_out c);
  virtual CORBA::Object* objects(CORBA::Object* a, CORBA::Object*& b, CORBA::Object_out c);
  virtual void nothing();
};
inline constexpr CORBA::idl::typecode_constant<CORBA::idl::ref<Store>> _tc_Store;

class Watcher;
using Watcher_ptr = Watcher*;
using Watcher_var = CORBA::ObjectVar<Watcher>;
using Watcher_out = CORBA::ObjectOut<Watcher>;

class Watcher : public virtual CORBA::LocalObject {
 public:
  using _ptr_type = Watcher*;
  using _var_type = Watcher_var;
  static constexpr const char* repository_id = "IDL:Sample/Watcher:1.0";
  static constexpr const char* interface_name = "Watcher";
  static Watcher* _nil() { return nullptr; }
  static Watcher* _duplicate(Watcher* reference);
  static Watcher* _narrow(CORBA::Object* object);
  static Watcher* _unchecked_narrow(CORBA::Object* object);

  virtual void changed(Sample::Item* which) = 0;
};
inline constexpr CORBA::idl::typecode_constant<CORBA::idl::ref<Watcher>> _tc_Watcher;

}  // namespace Sample

namespace POA_Sample {

class Item : public virtual PortableServer::Skeleton {
 public:
  static const CORBA::idl::InterfaceInfo _info;
  Item();
  Sample::Item* _this(CORBA_ENV);

  virtual char* name() = 0;
  virtual Sample::Colour shade() = 0;
  virtual void shade(Sample::Colour value) = 0;

 protected:
  const CORBA::idl::InterfaceInfo& _interface(void*& self) override;
};

template <class T>
class Item_tie : public PortableServer::Tie<T, Item> {
 public:
  using PortableServer::Tie<T, Item>::Tie;

  char* name() override { return this->_tied_object()->name(); }
  Sample::Colour shade() override { return this->_tied_object()->shade(); }
  void shade(Sample::Colour value) override { this->_tied_object()->shade(value); }
};

class Reader : public virtual Item {
 public:
  static const CORBA::idl::InterfaceInfo _info;
  Reader();
  Sample::Reader* _this(CORBA_ENV);

  virtual Sample::Octets* read(CORBA::ULong count) = 0;

 protected:
  const CORBA::idl::InterfaceInfo& _interface(void*& self) override;
};

template <class T>
class Reader_tie : public PortableServer::Tie<T, Reader> {
 public:
  using PortableServer::Tie<T, Reader>::Tie;

  char* name() override { return this->_tied_object()->name(); }
  Sample::Colour shade() override { return this->_tied_object()->shade(); }
  void shade(Sample::Colour value) override { this->_tied_object()->shade(value); }
  Sample::Octets* read(CORBA::ULong count) override { return this->_tied_object()->read(count); }
};

class Writer : public virtual Item {
 public:
  static const CORBA::idl::InterfaceInfo _info;
  Writer();
  Sample::Writer* _this(CORBA_ENV);

  virtual void write(const Sample::Octets& data, Sample::Writer::Mode how) = 0;
  virtual void hint(const char* text) = 0;

 protected:
  const CORBA::idl::InterfaceInfo& _interface(void*& self) override;
};

template <class T>
class Writer_tie : public PortableServer::Tie<T, Writer> {
 public:
  using PortableServer::Tie<T, Writer>::Tie;

  char* name() override { return this->_tied_object()->name(); }
  Sample::Colour shade() override { return this->_tied_object()->shade(); }
  void shade(Sample::Colour value) override { this->_tied_object()->shade(value); }
  void write(const Sample::Octets& data, Sample::Writer::Mode how) override {
    this->_tied_object()->write(data, how);
  }
  void hint(const char* text) override { this->_tied_object()->hint(text); }
};

class Store : public virtual Reader, public virtual Writer {
 public:
  static const CORBA::idl::InterfaceInfo _info;
  Store();
  Sample::Store* _this(CORBA_ENV);

  virtual CORBA::Boolean booleans(CORBA::Boolean a, CORBA::Boolean& b, CORBA::Boolean& c) = 0;
  virtual CORBA::Octet octets(CORBA::Octet a, CORBA::Octet& b, CORBA::Octet& c) = 0;
  virtual CORBA::Double doubles(CORBA::Double a, CORBA::Double& b, CORBA::Double& c) = 0;
  virtual Sample::Colour colours(Sample::Colour a, Sample::Colour& b, Sample::Colour& c) = 0;
  virtual char* strings(const char* a, char*& b, CORBA::String_out c) = 0;
  virtual char* codes(const char* a, char*& b, CORBA::String_out c) = 0;
  virtual Sample::Point points(const Sample::Point& a, Sample::Point& b, Sample::Point& c) = 0;
  virtual Sample::Entry* entries(const Sample::Entry& a, Sample::Entry& b, Sample::Entry_out c) = 0;
  virtual Sample::Shape* shapes(const Sample::Shape& a, Sample::Shape& b, Sample::Shape_out c) = 0;
  virtual Sample::Names* names(const Sample::Names& a, Sample::Names& b, Sample::Names_out c) = 0;
  virtual Sample::Corners* corners(const Sample::Corners& a, Sample::Corners& b, Sample::Corners_out c) = 0;
  virtual Sample::Grid_slice* grids(const Sample::Grid a, Sample::Grid b, Sample::Grid c) = 0;
  virtual Sample::Labels_slice* labels(const Sample::Labels a, Sample::Labels b, Sample::Labels_out c) = 0;
  virtual CORBA::Any* anys(const CORBA::Any& a, CORBA::Any& b, CORBA::Any_out c) = 0;
  virtual Sample::Item* items(Sample::Item* a, Sample::Item*& b, Sample::Item_out c) = 0;
  virtual CORBA::Object* objects(CORBA::Object* a, CORBA::Object*& b, CORBA::Object_out c) = 0;
  virtual void nothing() = 0;

 protected:
  const CORBA::idl::InterfaceInfo& _interface(void*& self) override;
};

template <class T>
class Store_tie : public PortableServer::Tie<T, Store> {
 public:
  using PortableServer::Tie<T, Store>::Tie;

  char* name() override { return this->_tied_object()->name(); }
  Sample::Colour shade() override { return this->_tied_object()->shade(); }
  void shade(Sample::Colour value) override { this->_tied_object()->shade(value); }
  Sample::Octets* read(CORBA::ULong count) override { return this->_tied_object()->read(count); }
  void write(const Sample::Octets& data, Sample::Writer::Mode how) override {
    this->_tied_object()->write(data, how);
  }
  void hint(const char* text) override { this->_tied_object()->hint(text); }
  CORBA::Boolean booleans(CORBA::Boolean a, CORBA::Boolean& b, CORBA::Boolean& c) override {
    return this->_tied_object()->booleans(a, b, c);
  }
  CORBA::Octet octets(CORBA::Octet a, CORBA::Octet& b, CORBA::Octet& c) override {
    return this->_tied_object()->octets(a, b, c);
  }
  CORBA::Double doubles(CORBA::Double a, CORBA::Double& b, CORBA::Double& c) override {
    return this->_tied_object()->doubles(a, b, c);
  }
  Sample::Colour colours(Sample::Colour a, Sample::Colour& b, Sample::Colour& c) override {
    return this->_tied_object()->colours(a, b, c);
  }
  char* strings(const char* a, char*& b, CORBA::String_out c) override {
    return this->_tied_object()->strings(a, b, c);
  }
  char* codes(const char* a, char*& b, CORBA::String_out c) override {
    return this->_tied_object()->codes(a, b, c);
  }
  Sample::Point points(const Sample::Point& a, Sample::Point& b, Sample::Point& c) override {
    return this->_tied_object()->points(a, b, c);
  }
  Sample::Entry* entries(const Sample::Entry& a, Sample::Entry& b, Sample::Entry_out c) override {
    return this->_tied_object()->entries(a, b, c);
  }
  Sample::Shape* shapes(const Sample::Shape& a, Sample::Shape& b, Sample::Shape_out c) override {
    return this->_tied_object()->shapes(a, b, c);
  }
  Sample::Names* names(const Sample::Names& a, Sample::Names& b, Sample::Names_out c) override {
    return this->_tied_object()->names(a, b, c);
  }
  Sample::Corners* corners(const Sample::Corners& a, Sample::Corners& b, Sample::Corners_out c) override {
    return this->_tied_object()->corners(a, b, c);
  }
  Sample::Grid_slice* grids(const Sample::Grid a, Sample::Grid b, Sample::Grid c) override {
    return this->_tied_object()->grids(a, b, c);
  }
  Sample::Labels_slice* labels(const Sample::Labels a, Sample::Labels b, Sample::Labels_out c) override {
    return this->_tied_object()->labels(a, b, c);
  }
  CORBA::Any* anys(const CORBA::Any& a, CORBA::Any& b, CORBA::Any_out c) override {
    return this->_tied_object()->anys(a, b, c);
  }
  Sample::Item* items(Sample::Item* a, Sample::Item*& b, Sample::Item_out c) override {
    return this->_tied_object()->items(a, b, c);
  }
  CORBA::Object* objects(CORBA::Object* a, CORBA::Object*& b, CORBA::Object_out c) override {
    return this->_tied_object()->objects(a, b, c);
  }
  void nothing() override { this->_tied_object()->nothing(); }
};

}  // namespace POA_Sample

template <>
struct CORBA::idl::Type<Sample::Colour> : CORBA::idl::enumeration<Sample::Colour> {
  static constexpr const char *id = "IDL:Sample/Colour:1.0", *name = "Colour";
  static constexpr const char* names[] = {"red", "green", "blue"};
};
template <>
struct CORBA::idl::Type<Sample::Point> : CORBA::idl::fixed_struct<Sample::Point> {
  static constexpr const char *id = "IDL:Sample/Point:1.0", *name = "Point";
  template <class V>
  static bool each(V v, Sample::Point& e) {
    return v("x", e.x) && v("y", e.y) && v("shade", e.shade);
  }
};
template <>
struct CORBA::idl::Type<Sample::Octets> : CORBA::idl::sequence_typedef<Sample::Octets, CORBA::Octet> {
  static constexpr const char *id = "IDL:Sample/Octets:1.0", *name = "Octets";
};
template <>
struct CORBA::idl::Type<Sample::Names> : CORBA::idl::sequence_typedef<Sample::Names, CORBA::idl::string<>> {
  static constexpr const char *id = "IDL:Sample/Names:1.0", *name = "Names";
};
template <>
struct CORBA::idl::Type<Sample::Corners> : CORBA::idl::sequence_typedef<Sample::Corners, Sample::Point, 4> {
  static constexpr const char *id = "IDL:Sample/Corners:1.0", *name = "Corners";
};
template <>
struct CORBA::idl::Type<Sample::Entry> : CORBA::idl::variable_struct<Sample::Entry> {
  static constexpr const char *id = "IDL:Sample/Entry:1.0", *name = "Entry";
  template <class V>
  static bool each(V v, Sample::Entry& e) {
    return v("name", e.name) && v("mark", e.mark, as<Sample::_type_Code>) && v("extra", e.extra) &&
           v("others", e.others) && v("cells", e.cells, as<Sample::_type_Grid>);
  }
};
template <>
struct CORBA::idl::Type<Sample::Entries> : CORBA::idl::sequence_typedef<Sample::Entries, Sample::Entry> {
  static constexpr const char *id = "IDL:Sample/Entries:1.0", *name = "Entries";
};
template <>
struct CORBA::idl::Type<Sample::Shape>
    : CORBA::idl::variable_union<Sample::Shape, Sample::Colour, CORBA::Double, CORBA::idl::string<>,
                                 Sample::Entry> {
  static constexpr const char *id = "IDL:Sample/Shape:1.0", *name = "Shape";
  static constexpr const char* members[] = {"radius", "text", "entry"};
  static constexpr Label<Sample::Colour> labels[] = {{Sample::red, 0}, {Sample::green, 1}};
  static constexpr unsigned default_member = 2;
};
template <>
struct CORBA::idl::Type<Sample::Refused> : CORBA::idl::exception_type<Sample::Refused> {
  static constexpr const char *id = "IDL:Sample/Refused:1.0", *name = "Refused";
  template <class V>
  static bool each(V v, Sample::Refused& e) {
    return v("why", e.why) && v("code", e.code);
  }
};
template <>
struct CORBA::idl::Type<Sample::Closed> : CORBA::idl::exception_type<Sample::Closed> {
  static constexpr const char *id = "IDL:Sample/Closed:1.0", *name = "Closed";
  template <class V>
  static bool each(V, Sample::Closed&) {
    return true;
  }
};
template <>
struct CORBA::idl::Type<Sample::Items>
    : CORBA::idl::sequence_typedef<Sample::Items, CORBA::idl::ref<Sample::Item>> {
  static constexpr const char *id = "IDL:Sample/Items:1.0", *name = "Items";
};
template <>
struct CORBA::idl::Type<Sample::Writer::Mode> : CORBA::idl::enumeration<Sample::Writer::Mode> {
  static constexpr const char *id = "IDL:Sample/Writer/Mode:1.0", *name = "Mode";
  static constexpr const char* names[] = {"append", "replace"};
};
