// Calls back into its clients while they wait.
#include <map>
#include <mutex>

#include "chat.h"
#include "classic.h"

class Room_impl : public Closing<POA_Chat::Room> {
 public:
  using Closing::Closing;
  CORBA::Long join(const char* who, Chat::Listener_ptr listener) override {
    if (CORBA::is_nil(listener)) throw CORBA::BAD_PARAM();
    std::lock_guard<std::mutex> lock(mutex_);
    Guest& guest = guests_[++last_];
    guest.name = who;
    guest.listener = Chat::Listener::_duplicate(listener);
    return last_;
  }
  void leave(CORBA::Long ticket) override {
    std::lock_guard<std::mutex> lock(mutex_);
    guests_.erase(ticket);
  }
  CORBA::Long say(CORBA::Long ticket, const char* what) override {
    std::map<CORBA::Long, Guest> now;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      now = guests_;
    }
    CORBA::Long reached = 0;
    for (auto& entry : now) {
      if (entry.first == ticket || !entry.second.listener->alive()) continue;
      entry.second.listener->said(now[ticket].name.c_str(), what);
      ++reached;
    }
    return reached;
  }

 private:
  struct Guest {
    std::string name;
    Chat::Listener_var listener;
  };
  std::mutex mutex_;
  std::map<CORBA::Long, Guest> guests_;
  CORBA::Long last_ = 0;
};

int main(int argc, char* argv[]) { return serve<Room_impl>(argc, argv); }
