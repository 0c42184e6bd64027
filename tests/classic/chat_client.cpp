#include <condition_variable>
#include <mutex>

#include "chat.h"
#include "classic.h"

class Listener_impl : public POA_Chat::Listener {
 public:
  void said(const char* who, const char* what) override {
    std::lock_guard<std::mutex> lock(mutex_);
    said_ = std::string(who) + ": " + what;
    changed_.notify_all();
  }
  CORBA::Boolean alive() override { return true; }
  bool heard(const std::string& what) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(3), [&] { return said_ == what; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string said_;
};

int main(int argc, char* argv[]) {
  return visit<Chat::Room>(argc, argv, [](CORBA::ORB_ptr orb, Chat::Room_ptr room) {
    PortableServer::POA_var root = root_poa(orb);
    PortableServer::POAManager_var manager = root->the_POAManager();
    manager->activate();
    Listener_impl ann, bob;
    Chat::Listener_var ann_reference = ann._this();
    Chat::Listener_var bob_reference = bob._this();
    CORBA::Long ann_ticket = room->join("Ann", ann_reference);
    CORBA::Long bob_ticket = room->join("Bob", bob_reference);
    CHECK(room->say(ann_ticket, "Good morning") == 1);
    CHECK(bob.heard("Ann: Good morning"));
    CHECK(room->say(bob_ticket, "And to you") == 1);
    CHECK(ann.heard("Bob: And to you"));
    room->leave(ann_ticket);
    CHECK(room->say(bob_ticket, "Anybody?") == 0);
    CHECK_THROWS(CORBA::BAD_PARAM, room->join("Nobody", Chat::Listener::_nil()));
  });
}
