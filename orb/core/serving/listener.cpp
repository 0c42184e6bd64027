#include "serving/listener.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "connections/socket_setup.h"
#include "requests/upcall.h"

namespace zrsv {

namespace {

constexpr std::chrono::milliseconds shortage_pause{100};
constexpr std::chrono::minutes told_again_after{1};  // of a shortage that lasts, or comes again and again
constexpr int most_at_once = 64;  // connections of one acceptor, before others are looked at

bool is_lost_client(int error) { return error == EINTR || error == ECONNABORTED || error == EPROTO; }

Endpoint as_endpoint(const asio::ip::tcp::endpoint& at) { return {at.address().to_string(), at.port()}; }

/// Accepted connections inherit it: a peer that is gone without a word is noticed within two minutes, idle or
/// not. A system that knows an option not does without.
void notice_half_open_peers(int fd) {
  const struct {
    int level, option, value;
  } rows[] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
              {IPPROTO_TCP, TCP_KEEPIDLE, 60},
              {IPPROTO_TCP, TCP_KEEPINTVL, 10},
              {IPPROTO_TCP, TCP_KEEPCNT, 6},
              {IPPROTO_TCP, TCP_USER_TIMEOUT, 60'000}};
  for (const auto& row : rows) ::setsockopt(fd, row.level, row.option, &row.value, sizeof row.value);
}

/// Whether other machines find somebody else there, or nobody: loopback and link-local addresses.
bool leads_nowhere_else(const std::string& host) {
  asio::error_code error;
  const auto address = asio::ip::make_address(host, error);
  if (error) return false;  // a name
  if (address.is_v6()) return address.to_v6().is_loopback() || address.to_v6().is_link_local();
  const uint32_t octets = address.to_v4().to_uint();
  return address.is_loopback() || octets >> 16 == 0xA9FE;
}

/// The machine's own name where it leads to an address that others can reach, else loopback.
std::string host_for_wildcard(bool ipv6) {
  std::string loopback = ipv6 ? "::1" : "127.0.0.1";
  asio::error_code error;
  std::string name = asio::ip::host_name(error);
  if (error || name.empty()) return loopback;
  asio::io_context context;
  asio::ip::tcp::resolver resolver(context);
  for (const auto& found : resolver.resolve(name, "", error)) {
    const asio::ip::address address = found.endpoint().address();
    if (address.is_v6() == ipv6 && !address.is_unspecified() && !leads_nowhere_else(address.to_string()))
      return name;
  }
  return loopback;
}

}  // namespace

// ---- Opening ----

std::string Listener::open(const std::vector<Endpoint>& wanted) {
  tcp::resolver resolver(context_);
  for (const Endpoint& endpoint : wanted.empty() ? std::vector<Endpoint>{{"127.0.0.1", 0}} : wanted) {
    asio::error_code error;
    const auto addresses =
        resolver.resolve(endpoint.host, std::to_string(endpoint.port), tcp::resolver::passive, error);
    if (error) return endpoint.host + ": " + error.message();
    for (const auto& address : addresses)
      if (std::string wrong = open_address(address.endpoint()); !wrong.empty()) return wrong;
  }
  return {};
}

std::string Listener::open_both_families(const tcp::endpoint& at) {
  if (std::string wrong = open_one(at); !wrong.empty()) return wrong;
  return open_one({asio::ip::address_v4::any(), acceptors_.back().socket.local_endpoint().port()});
}

std::string Listener::open_address(const tcp::endpoint& at) {
  return at.address() == asio::ip::address_v6::any() ? open_both_families(at) : open_one(at);
}

std::string Listener::open_one(const tcp::endpoint& at) {
  for (const Acceptor& acceptor : acceptors_)
    if (at.port() != 0 && acceptor.socket.local_endpoint() == at)
      return {};  // a name may lead twice to one address
  Acceptor& acceptor = acceptors_.emplace_back(context_);
  asio::error_code error;
  const auto failed = [&] {
    return at.address().to_string() + ":" + std::to_string(at.port()) + ": " + error.message();
  };
  if (acceptor.socket.open(at.protocol(), error)) return failed();
  ::fcntl(acceptor.socket.native_handle(), F_SETFD, FD_CLOEXEC);
  acceptor.socket.set_option(tcp::acceptor::reuse_address(true), error);
  if (at.address().is_v6()) acceptor.socket.set_option(asio::ip::v6_only(true), error);
  if (acceptor.socket.bind(at, error)) return failed();
  if (acceptor.socket.listen(asio::socket_base::max_listen_connections, error)) return failed();
  notice_half_open_peers(acceptor.socket.native_handle());
  acceptor.socket.non_blocking(true, error);
  return error ? failed() : std::string();
}

std::vector<Endpoint> Listener::bound() const {
  std::vector<Endpoint> all;
  for (const Acceptor& acceptor : acceptors_) all.push_back(as_endpoint(acceptor.socket.local_endpoint()));
  return all;
}

std::vector<Endpoint> Listener::published(const std::vector<Endpoint>& wanted) const {
  std::vector<Endpoint> all;
  if (acceptors_.empty()) return all;
  for (const Endpoint& endpoint : wanted)
    all.push_back(
        {endpoint.host, endpoint.port ? endpoint.port : acceptors_.front().socket.local_endpoint().port()});
  if (!all.empty()) return all;
  for (const Acceptor& acceptor : acceptors_) {
    const tcp::endpoint at = acceptor.socket.local_endpoint();
    const bool any = at.address().is_unspecified();
    all.push_back({any ? host_for_wildcard(at.address().is_v6()) : at.address().to_string(), at.port()});
  }
  return worth_publishing(std::move(all));
}

std::vector<Endpoint> worth_publishing(std::vector<Endpoint> all) {
  const auto is_local = [](const Endpoint& at) { return leads_nowhere_else(at.host); };
  if (!std::all_of(all.begin(), all.end(), is_local)) std::erase_if(all, is_local);
  std::vector<Endpoint> once;
  for (Endpoint& at : all)
    if (std::find(once.begin(), once.end(), at) == once.end()) once.push_back(std::move(at));
  return once;
}

// ---- Accepting ----

void Listener::start() {
  wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  count_left(Left::Descriptors, 1);
  polled_.clear();
  for (Acceptor& acceptor : acceptors_) polled_.push_back({acceptor.socket.native_handle(), POLLIN, 0});
  polled_.push_back({wake_, POLLIN, 0});
  thread_ = std::thread([this] { work(); });
}

void Listener::stop() {
  const uint64_t one = 1;
  if (thread_.joinable()) {
    if (::write(wake_, &one, sizeof one) < 0) OM_log("the listener cannot be woken");
    thread_.join();
  }
  if (wake_ >= 0) {
    ::close(std::exchange(wake_, -1));
    count_left(Left::Descriptors, -1);
  }
  acceptors_.clear();
}

void Listener::work() {
  const Counting<Left::Threads> counted;
  const auto period = engine_->watch_period();
  for (Clock::time_point watch_at = Clock::now() + period;;) {
    wait_for_clients(watch_at);
    if (polled_.back().revents != 0) return;
    try {
      auto polled = polled_.begin();
      for (Acceptor& acceptor : acceptors_)
        if ((polled++)->revents != 0) accept_some(acceptor);
      if (Clock::now() < watch_at) continue;
      watch_at = Clock::now() + period;
      engine_->look_after(Clock::now());
    } catch (const std::exception& e) {
      OM_log("the listener goes on after: %s", e.what());
    }
  }
}

void Listener::wait_for_clients(Clock::time_point until) {
  auto polled = polled_.begin();
  const Clock::time_point now = Clock::now();
  for (const Acceptor& acceptor : acceptors_) {
    const bool closed = now < acceptor.closed_until;
    (polled++)->events = closed ? 0 : POLLIN;
    if (closed) until = std::min(until, acceptor.closed_until);
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
  for (pollfd& one : polled_) one.revents = 0;
  ::poll(polled_.data(), polled_.size(), static_cast<int>(std::max<long>(left, 0)));
}

void Listener::accept_some(Acceptor& acceptor) {
  for (int i = 0; i < most_at_once; ++i) {
    sockaddr_storage from{};
    socklen_t length = sizeof from;
    const int fd =
        ::accept4(acceptor.socket.native_handle(), reinterpret_cast<sockaddr*>(&from), &length, SOCK_CLOEXEC);
    if (fd < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (fd < 0 && is_lost_client(errno)) continue;
    if (fd < 0) return close_for_a_while(acceptor, errno);
    set_up_socket(fd);
    engine_->add(fd, PeerAddress::of(from));
  }
}

void Listener::close_for_a_while(Acceptor& acceptor, int error) {
  const Clock::time_point now = Clock::now();
  acceptor.closed_until = now + shortage_pause;
  if (acceptor.told_at != Clock::time_point() && now - acceptor.told_at < told_again_after) return;
  acceptor.told_at = now;
  OM_log("no more connections can be accepted for now: %s", std::strerror(error));
}

// ---- The tick ----

void Ticker::start(std::chrono::milliseconds period) {
  state_ = std::make_shared<State>();
  thread_ = std::thread([state = state_, period] { work(*state, period); });
}

void Ticker::tick() {
  try {
    const Upcall upcall;
    if (_call_poa_inst_lifespan_) _call_poa_inst_lifespan_();
  } catch (...) {
    OM_log("exception past the lifespan hook");
  }
}

void Ticker::work(State& state, std::chrono::milliseconds period) {
  const Counting<Left::Threads> counted;
  const MutexLock lock(state.mutex);
  for (auto next = Clock::now() + period; !state.stop;) {
    if (state.changed.wait_until(state.mutex, next) || state.stop) continue;
    state.in_tick = true;
    {
      const Unlocked unlocked(state.mutex);
      tick();
    }
    state.in_tick = false;
    next = Clock::now() + period;
  }
  state.ended = true;
  state.changed.notify_all();
}

void Ticker::stop(Clock::time_point deadline) {
  if (!thread_.joinable()) return;
  bool ended = false;
  {
    State& state = *state_;
    const MutexLock lock(state.mutex);
    state.stop = true;
    state.changed.notify_all();
    // Between ticks it ends at once, also when the requests have used up the time.
    while (state.in_tick && !state.ended && state.changed.wait_until(state.mutex, deadline)) continue;
    ended = !state.in_tick || state.ended;
  }
  if (ended) {
    thread_.join();
  } else {
    OM_log("shutdown: the lifespan tick still runs at the deadline");
    thread_.detach();
  }
}

}  // namespace zrsv
