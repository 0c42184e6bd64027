#include "requests/call_chain.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "requests/server_request.h"
#include "requests/upcall.h"

namespace zrsv {

namespace {

constexpr std::size_t longest_name = 40;
constexpr std::size_t longest_chain = 4096;  // later calls are not added: those that began it say enough

/// Tells processes apart well enough to find a call that comes back.
const uint64_t process =
    static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()) * 0x9E3779B97F4A7C15u ^
    static_cast<uint64_t>(::getpid()) << 20;

struct Call {
  uint64_t process;
  std::string_view operation;
};

/// Cuts the first call off; false at the end, or where it is no chain.
bool next(std::string_view* chain, Call* call) {
  constexpr std::size_t head = sizeof call->process + 1;
  if (chain->size() < head) return false;
  std::memcpy(&call->process, chain->data(), sizeof call->process);
  const std::size_t length = static_cast<unsigned char>((*chain)[head - 1]);
  if (chain->size() - head < length) return false;
  call->operation = chain->substr(head, length);
  chain->remove_prefix(head + length);
  return true;
}

}  // namespace

std::string chain_of_call() {
  const ServerRequest* const request = Upcall::request();
  if (!request) return {};
  std::string chain(request->head.chain);
  if (chain.size() > longest_chain) return chain;
  const std::string_view operation = std::string_view(request->head.operation).substr(0, longest_name);
  chain.append(reinterpret_cast<const char*>(&process), sizeof process);
  return chain.append(1, static_cast<char>(operation.size())).append(operation);
}

bool leads_back(std::string_view chain) {
  for (Call call; next(&chain, &call);)
    if (call.process == process) return true;
  return false;
}

void describe_chain(std::string_view chain, char* text, std::size_t room) {
  std::size_t used = 0;
  text[0] = '\0';
  for (Call call; used + 1 < room && next(&chain, &call);) {
    const int wanted = std::snprintf(text + used, room - used, "%s%.*s%s", used ? " > " : "",
                                     static_cast<int>(call.operation.size()), call.operation.data(),
                                     call.process == process ? "" : " (elsewhere)");
    used += static_cast<std::size_t>(std::max(wanted, 0));
  }
}

}  // namespace zrsv
