// A servant of an interface with N operations, each of which answers its number: what it costs to find one.
#pragma once

#include "poa/mapping.h"

namespace bench {

/// "operation_I".
template <std::size_t I>
constexpr auto operation_name = [] {
  std::array<char, sizeof "operation_" + 3> name{"operation_"};
  for (std::size_t at = sizeof "operation_" + 1, rest = I; at >= sizeof "operation_" - 1; --at, rest /= 10)
    name[at] = static_cast<char>('0' + rest % 10);
  return name;
}();

template <std::size_t N>
class Many : public PortableServer::Skeleton {
 public:
  static constexpr const char* repository_id = "IDL:Bench/Many:1.0";
  Many() { _intf = repository_id; }
  template <CORBA::Long I>
  CORBA::Long number() {
    return I;
  }

  using Row = CORBA::idl::operation<Many, CORBA::Long()>;
  template <std::size_t I>
  static constexpr Row row{operation_name<I>.data(), &Many::number<static_cast<CORBA::Long>(I)>};

  /// Whether each operation is the one that its name says.
  static bool right(CORBA::Object* object) {
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
      return ((row<I>(object) == static_cast<CORBA::Long>(I)) && ...);
    }
    (std::make_index_sequence<N>());
  }

 private:
  template <std::size_t... I>
  static constexpr auto all(std::index_sequence<I...>) {
    return CORBA::idl::operations(row<I>...);
  }
  const CORBA::idl::InterfaceInfo& _interface(void*& self) override {
    static constexpr auto operations = all(std::make_index_sequence<N>());
    static constexpr CORBA::idl::InterfaceInfo info =
        CORBA::idl::interface_info<Many>(repository_id, operations.table());
    self = this;
    return info;
  }
};

}  // namespace bench
