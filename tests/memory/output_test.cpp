// What two threads do at once that send on one connection, one step at a time.
#include "connections/output_queue.h"
#include "failing.h"
#include "sockets.h"

namespace {

using zrsv::OutputQueue;

// A word that there is room again comes while the one who sends is being told that there is none.
TEST(Output, LosesNoWordOfRoomAndMindsNoSignal) {
  int pair[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
  const Socket peer(pair[0]);
  const std::string octets(1'000'000, 'x');
  std::size_t taken = 0;
  const auto take_all = [&] {
    char some[4096];
    for (ssize_t n; (n = ::recv(peer.fd(), some, sizeof some, MSG_DONTWAIT)) > 0;)
      taken += static_cast<std::size_t>(n);
  };
  OutputQueue queue;
  queue.open(pair[1]);
  zrsv::Buffer message;
  ASSERT_TRUE(message.append(reinterpret_cast<const unsigned char*>(octets.data()), octets.size()));
  EXPECT_EQ(queue.send(&message, 0), OutputQueue::Sent::Rest);
  take_all();
  {
    const failing::Counted this_thread;
    failing::begin(failing::What::interrupted, 1);
    EXPECT_EQ(queue.flush(), OutputQueue::Sent::Rest) << "a signal is no failure";
    EXPECT_TRUE(failing::end());
  }
  take_all();
  int words = 0;
  failing::at(failing::Moment::told_full, [&] {
    take_all();
    ++words;
    EXPECT_EQ(queue.flush(), OutputQueue::Sent::All) << "who sends goes on";
  });
  EXPECT_EQ(queue.flush(), OutputQueue::Sent::All);
  failing::at(failing::Moment::told_full, nullptr);
  take_all();
  EXPECT_GT(words, 0);
  EXPECT_EQ(taken, octets.size());
  queue.close();
}

}  // namespace
