// The engine looks after the limits of time, of connections and of memory.
#include <algorithm>

#include "requests/upcall.h"
#include "serving/engine.h"

namespace zrsv {

namespace {

constexpr std::chrono::milliseconds most_over_memory{10'000};  // before who holds the most is closed

}  // namespace

std::chrono::milliseconds Engine::watch_period() const {
  const Options& o = pool_.options();
  uint32_t least = 4'000;
  for (uint32_t limit : {o.write_timeout_ms, o.read_timeout_ms, o.idle_timeout_ms, o.queue_timeout_ms})
    if (limit != 0) least = std::min(least, limit);
  return std::chrono::milliseconds(std::max(10u, least / 4));
}

void Engine::look_after(Clock::time_point now) {
  note_runs(now);
  if (stopping_.load()) return;
  const Options& limits = pool_.options();
  const std::chrono::milliseconds idle(limits.idle_timeout_ms);
  pool_.for_each([&](const Ref<Connection>& connection) {
    if (const char* why = connection->overdue(now); why && !connection->broken()) {
      OM_log("%s %s: connection closed", connection->peer().text().c_str(), why);
      connection->break_off();
    }
    if (idle.count() != 0 && now - connection->quiet_since() >= idle) return close_if_idle(connection);
    if (connection->trim(now)) push_ready(connection);
    connection->try_resume();
  });
  relieve(now);
  if (limits.queue_timeout_ms != 0)
    for (Waiting* waiting : {&waiting_, &hosted_waiting_}) {
      Requests late = waiting->expired(now - std::chrono::milliseconds(limits.queue_timeout_ms));
      if (!late.empty())
        OM_log("%zu requests waited longer than -ORBQueueTimeout %u and are refused", late.size(),
               limits.queue_timeout_ms);
      refuse(std::move(late));
    }
  if (const std::size_t count = queue_group().waiting_in_vain(now - std::chrono::seconds(1)))
    OM_log("%zu requests wait for the activation of a POA manager; none has been activated yet", count);
}

// Those that hold the most are not read, so they may hold it for good: when that does not end by itself, one after
// the other is closed.
void Engine::relieve(Clock::time_point now) {
  memory_return_.look(drop_unused_blocks());
  if (!over_memory()) {
    over_memory_since_ = {};
    return;
  }
  if (over_memory_since_ == Clock::time_point()) {
    over_memory_since_ = now;
    OM_log("%zu MiB are in flight, over -ORBMaxMemory: who holds the most is not read", memory_used() >> 20);
  }
  const std::chrono::milliseconds limit(pool_.options().read_timeout_ms);
  if (now - over_memory_since_ < (limit.count() != 0 ? std::min(limit, most_over_memory) : most_over_memory))
    return;
  Ref<Connection> largest;
  pool_.for_each([&](const Ref<Connection>& connection) {
    const bool larger = !largest || connection->holds_for_itself() > largest->holds_for_itself();
    if (larger && !connection->broken()) largest = connection;
  });
  if (!largest || largest->holds_for_itself() < counted_from) return;
  OM_log("%s holds %zu KiB, the most, with -ORBMaxMemory used up: connection closed",
         largest->peer().text().c_str(), largest->holds_for_itself() >> 10);
  largest->break_off();
}

// Makes room for a new one. A client that has just come, or waits for something, is not sent away for it.
template <class Wanted>
void Engine::close_longest_idle(Wanted wanted) {
  Ref<Connection> longest;
  pool_.for_each([&](const Ref<Connection>& connection) {
    if (!connection->registered() || !wanted(connection->peer())) return;
    if (!longest || connection->quiet_since() < longest->quiet_since()) longest = connection;
  });
  if (longest && Clock::now() - longest->quiet_since() >= std::chrono::seconds(1)) close_if_idle(longest);
}

// Only the reader can say that nothing has come.
void Engine::close_if_idle(const Ref<Connection>& connection) {
  if (!connection->begin_read(false)) return;
  Assembler& assembler = connection->assembler();
  if (connection->receive() != Connection::Input::None || assembler.incomplete() > 0 ||
      connection->has_requests())
    return push_ready(connection);
  const auto quiet =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - connection->quiet_since());
  OM_log_at(ZR_LOG_INFO, "%s was idle for %lld ms: connection closed", connection->peer().text().c_str(),
            static_cast<long long>(quiet.count()));
  unsigned char message[giop::header_size];
  giop::write_empty(message, connection->minor, giop::Type::CloseConnection);
  connection->say_goodbye(message, sizeof message);
  lose(connection);
}

bool Engine::has_room(const PeerAddress& peer) {
  const auto of_all = [this] { return pool_.open_connections(); };
  const auto of_peer = [&] { return pool_.connections_of(peer); };
  const auto party = peer.party();
  const auto any = [](const PeerAddress&) { return true; };
  const auto same = [&](const PeerAddress& other) { return other.party() == party; };
  if (of_all() >= most_connections_) close_longest_idle(any);
  const uint32_t most_of_peer = pool_.options().peer_connections;
  const bool counts = most_of_peer != 0 && !peer.is_loopback();
  if (counts && of_peer() >= most_of_peer) close_longest_idle(same);
  if (of_all() >= most_connections_) {
    OM_log("%s refused: %u connections are open, which is the limit", peer.text().c_str(), most_connections_);
    return false;
  }
  if (!counts || of_peer() < most_of_peer) return true;
  OM_log("%s refused: its address has %u connections, which is the limit", peer.text().c_str(), most_of_peer);
  return false;
}

}  // namespace zrsv
