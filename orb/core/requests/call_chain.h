// Calls that servants make while they serve one: which led to which. A request carries what led to it in a service
// context of our own, which other brokers ignore, so that calls that wait for one another can be told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zrsv {

/// Data of the service context (giop::chain_context):
///   chain = call*
///   call  = process[8] length[1] operation[length]

/// What leads to a call that this thread makes now; empty outside of servants.
std::string chain_of_call();
/// Whether a call of a servant of this process is in it.
bool leads_back(std::string_view chain);
/// "first > second > ..." into `text`, for people; what does not fit is cut.
void describe_chain(std::string_view chain, char* text, std::size_t room);

}  // namespace zrsv
