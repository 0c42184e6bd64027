#include "serving/inventory.h"

#include <algorithm>
#include <cstdio>
#include <new>

#include "base/counting.h"
#include "requests/queue_group.h"
#include "requests/server_request.h"
#include "requests/upcall.h"
#include "zrsv/leftovers.h"
#include "zrsv/reference.h"

namespace zrsv {

namespace {

std::string readable(std::string_view octets) {
  std::string text(octets.substr(0, 80));
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
  return text;
}

std::string describe(const ServerRequest& request, std::chrono::milliseconds age) {
  char text[512];
  std::snprintf(text, sizeof text, "operation %.64s of object '%s' of %.64s for %s, for %lld ms at least",
                request.head.operation, readable(request.target->data()).c_str(),
                request.target->impl_name().c_str(),
                request.connection ? request.connection->peer().text().c_str() : "this process",
                static_cast<long long>(age.count()));
  return text;
}

}  // namespace

std::vector<std::string> describe_runs(Clock::time_point now) {
  note_runs(now);
  std::vector<std::string> all;
  look_at_runs([&](const Run& run, const ServerRequest& request) {
    const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(now - run.since);
    try {
      all.push_back(describe(request, age));
    } catch (const std::bad_alloc&) {
      OM_log("no memory to say what runs");
    }
  });
  return all;
}

}  // namespace zrsv

using namespace zrsv;

ZR_Leftovers ZR_leftovers(void) {
  auto requests = static_cast<uint32_t>(queue_group().held());
  look_at_runs([&](const Run&, const ServerRequest&) { ++requests; });
  return {left(Left::Threads), left(Left::Descriptors), left(Left::Connections), requests,
          left(Left::Objects) + ZR_bound_objects()};
}
