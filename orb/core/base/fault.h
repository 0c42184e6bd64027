// Why a call failed.
#pragma once

#include <cstdint>

namespace zrsv {

/// Why a call failed: an exception's short name, and a minor code that tells apart what shares a name. Empty:
/// it did not.
struct Fault {
  const char* name = nullptr;
  uint32_t minor = 0;
  explicit operator bool() const { return name != nullptr; }
};

namespace fault {
inline constexpr Fault none{};
inline constexpr Fault unknown_host{"TRANSIENT", 1};   // the host name has no address
inline constexpr Fault no_connection{"TRANSIENT", 2};  // no address took the connection
inline constexpr Fault turned_away{"TRANSIENT",
                                   3};  // the server closed in good order, and again after sending anew
inline constexpr Fault not_serving{"TRANSIENT", 4};   // an object of this process, which has no end point
inline constexpr Fault lost{"COMM_FAILURE", 1};       // the connection broke with the call on it
inline constexpr Fault bad_reply{"COMM_FAILURE", 2};  // the server sent what GIOP does not allow
inline constexpr Fault shut_down{"COMM_FAILURE", 3};  // this side closed its connections
inline constexpr Fault time_limit{"TIMEOUT", 1};
inline constexpr Fault no_memory{"NO_MEMORY", 1};
}  // namespace fault

}  // namespace zrsv
