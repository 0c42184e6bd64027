// The record of an accepted connection, and its line among those that wait, without an engine.
#include "connections/connection.h"

#include <list>

#include "connections/socket_setup.h"
#include "requests/waiting.h"
#include "sockets.h"

namespace {

using namespace zrsv;

struct NoHost : ConnectionHost {
  void resume_reading(Connection&) override {}
  void watch_output(Connection&) override {}
};

class ConnectionRecords : public testing::Test {
 protected:
  ~ConnectionRecords() override {
    for (Connection* one : taken_) leave(*one);
  }
  Connection* take() {
    int pair[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    peers_.emplace_back(pair[0]);
    taken_.push_back(pool_.take(pair[1], {}));
    return taken_.back();
  }
  static void leave(Connection& one) {
    if (one.unregister()) one.drop();
  }
  Socket& peer() { return peers_.back(); }

 private:
  NoHost host_;
  std::list<Socket> peers_;
  ConnectionPool pool_{host_};
  std::vector<Connection*> taken_;
};

TEST_F(ConnectionRecords, AreAsNewWhereARecordIsUsedAgain) {
  Connection* const first = take();
  first->minor = 2;
  first->served = true;
  first->in_line = true;
  first->code_sets = {ZR_TEXT_NATIVE, ZR_TEXT_NATIVE, true};
  leave(*first);
  Connection* const second = take();
  EXPECT_EQ(second, first);
  EXPECT_TRUE(second->minor == 0 && !second->served && !second->in_line);
  EXPECT_TRUE(second->code_sets == unsaid_code_sets);
}

// Else a client of large messages looks like one that sends without waiting, and no thread is pinned to it.
TEST_F(ConnectionRecords, KnowThatNothingFollowsALargeMessage) {
  Connection* const connection = take();
  giop::Header header;
  Buffer read;
  for (const bool more : {false, true})
    for (const std::size_t octets : {100u, 8192u, 20'000u, 100'000u}) {
      SCOPED_TRACE(octets);
      const auto body = [&](Writer& to) { to.octets(std::string(octets, 'x')); };
      peer().send(message(giop::Type::Request, body) + (more ? "G" : ""));
      ASSERT_TRUE(connection->begin_read(false));
      auto result = Assembler::Result::NeedMore;
      while ((result = connection->assembler().next(&header, &read)) == Assembler::Result::NeedMore)
        ASSERT_EQ(connection->receive(), Connection::Input::Octets);
      ASSERT_EQ(result, Assembler::Result::Message);
      if (more) {
        EXPECT_TRUE(connection->more_input() || connection->assembler().incomplete() > 0);
        connection->assembler().reset();
        while (connection->receive() == Connection::Input::Octets) connection->assembler().reset();
      } else {
        EXPECT_FALSE(connection->more_input());
        EXPECT_EQ(connection->receive(), Connection::Input::None);
      }
      EXPECT_TRUE(connection->end_read());
    }
}

/// Requests by their numbers, of which odd ones want no answer.
std::string numbers(Requests requests) {
  std::string all;
  while (const auto request = requests.pop_front()) all += std::to_string(request->head.id) + " ";
  return all;
}

TEST_F(ConnectionRecords, TakeTurnsWhereTheirRequestsWait) {
  Waiting waiting(0);
  Connection *const a = take(), *const b = take();
  const auto add = [&](Connection* of, uint32_t id, uint32_t limit = 100) {
    ServerRequest request;
    request.head.id = id;
    request.head.response_expected = id % 2 == 0;
    request.connection.borrow(of);
    return waiting.add(&request, limit);
  };
  const auto all = [&] {
    std::string turns;
    for (Waiting::Turn turn; turn = waiting.next(), turn.request || turn.lost;) {
      if (turn.request) turns += std::to_string(turn.request->head.id) + " ";
      if (turn.lost) turns += "lost ";
    }
    EXPECT_TRUE(!waiting.any() && !a->in_line && !b->in_line);
    return turns;
  };
  for (const uint32_t id : {11u, 12u, 13u, 14u}) EXPECT_TRUE(add(a, id));
  EXPECT_TRUE(add(b, 21) && add(b, 22));
  EXPECT_TRUE(waiting.any() && a->in_line && b->in_line);
  EXPECT_EQ(all(), "11 21 12 22 13 14 ");

  for (const uint32_t id : {11u, 12u, 13u, 14u}) EXPECT_TRUE(add(a, id));
  EXPECT_TRUE(add(b, 21) && add(b, 22) && !add(b, 24, 6));
  const uint32_t one = 14;
  EXPECT_EQ(numbers(waiting.withdraw(a, &one)), "14 ");
  EXPECT_EQ(numbers(waiting.withdraw(a, nullptr)), "12 ") << "nobody takes back what has no answer";
  waiting.add_loss(*a);
  EXPECT_TRUE(add(b, 24, 5) && !add(b, 26, 5));
  EXPECT_EQ(all(), "11 lost 21 13 22 24 ");

  EXPECT_TRUE(add(a, 11) && add(b, 22));
  waiting.add_loss(*b);
  EXPECT_EQ(numbers(waiting.expired(Clock::time_point())), "");
  EXPECT_EQ(numbers(waiting.expired(Clock::time_point::max())), "11 22 ");
  EXPECT_EQ(all(), "lost ");
  EXPECT_TRUE(add(a, 12));
  waiting.close();
  EXPECT_FALSE(add(a, 14));
  EXPECT_EQ(numbers(waiting.withdraw(nullptr, nullptr)), "12 ");
}

TEST(SocketSetup, KnowsWhatStaysWithinTheMachine) {
  const auto address = [](bool ipv6, std::string_view octets) {
    PeerAddress made;
    made.ipv6 = ipv6;
    octets.copy(reinterpret_cast<char*>(made.octets), sizeof made.octets);
    return made;
  };
  const std::string loopback6 = std::string(15, '\0') + '\1', other6 = '\xfd' + loopback6.substr(1);
  const PeerAddress loopback = address(false, {"\x7f\0\0\1", 4}), second = address(false, {"\x7f\0\0\2", 4}),
                    host = address(false, "\xc0\2\1\7"), neighbour = address(false, "\xc0\2\1\x8"),
                    padded = address(true, "\xc0\2\1\7");
  const struct {
    PeerAddress own, peer;
    bool within;
  } rows[] = {{loopback, second, true},
              {host, host, true},
              {host, neighbour, false},
              {host, padded, false},
              {address(true, loopback6), address(true, loopback6), true},
              {address(true, other6), address(true, other6), true},
              {address(true, other6), padded, false}};
  for (const auto& row : rows)
    EXPECT_EQ(stays_within_machine(row.own, row.peer), row.within)
        << row.own.text().c_str() << ' ' << row.peer.text().c_str();
  EXPECT_FALSE(set_up_socket(-1));
}

}  // namespace
