#include "server_control.h"

namespace ps = PortableServer;

ManagerSwitch::ManagerSwitch(ps::POAManager_ptr manager) : manager_(manager), thread_([this] { work(); }) {}

ManagerSwitch::~ManagerSwitch() {
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void ManagerSwitch::hold(std::chrono::milliseconds time) {
  const std::lock_guard lock(mutex_);
  manager_->hold_requests(0);
  back_in(time);
}

void ManagerSwitch::discard(std::chrono::milliseconds time) {
  const std::lock_guard lock(mutex_);
  manager_->discard_requests(0);
  back_in(time);
}

void ManagerSwitch::back_in(std::chrono::milliseconds time) {
  back_at_ = Clock::now() + time;
  changed_.notify_one();
}

void ManagerSwitch::work() {
  std::unique_lock lock(mutex_);
  while (!ended_) {
    if (!back_at_) {
      changed_.wait(lock);
    } else if (Clock::now() < *back_at_) {
      changed_.wait_until(lock, *back_at_);
    } else {
      back_at_.reset();
      manager_->activate();
    }
  }
}

void ControlServant::hold_ms(CORBA::ULong ms) { switch_.hold(std::chrono::milliseconds(ms)); }

void ControlServant::discard_ms(CORBA::ULong ms) { switch_.discard(std::chrono::milliseconds(ms)); }

void ControlServant::lifespan(const char* name, CORBA::Long seconds) {
  tour_.servant_of(tour_.place(name))->set_timer(seconds);
}

CORBA::Long ControlServant::incarnations(const char* name) {
  const Place& place = tour_.place(name);
  return place.asked ? place.asked->times() : 0;
}

CORBA::Long ControlServant::alive() { return tour_.shared().alive(); }

void ControlServant::destroy_poa(const char* name) { tour_.destroy_poa(tour_.place(name)); }

void ControlServant::deactivate(const char* name) { tour_.deactivate(tour_.place(name)); }
