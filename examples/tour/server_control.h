// The object "control": lets a client do to the server what its operator could.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "control.h"
#include "server_tour.h"

/// Takes the POA manager out of service for some time.
class ManagerSwitch {
 public:
  using Clock = std::chrono::steady_clock;

  /// Takes over the reference. The manager is never deactivated.
  explicit ManagerSwitch(PortableServer::POAManager_ptr manager);
  ~ManagerSwitch();
  ManagerSwitch(const ManagerSwitch&) = delete;
  ManagerSwitch& operator=(const ManagerSwitch&) = delete;

  /// HOLDING or DISCARDING now, ACTIVE after `time`. A later call replaces an earlier one.
  void hold(std::chrono::milliseconds time);
  void discard(std::chrono::milliseconds time);

 private:
  void back_in(std::chrono::milliseconds time);
  void work();

  std::mutex mutex_;
  const PortableServer::POAManager_var manager_;  // its state is changed with mutex_ held
  std::condition_variable changed_;
  std::optional<Clock::time_point> back_at_;  // guarded by mutex_
  bool ended_ = false;                        // guarded by mutex_
  std::thread thread_;
};

class ControlServant : public POA_Demo::Control {
 public:
  explicit ControlServant(Tour& tour) : tour_(tour), switch_(tour.root()->the_POAManager()) {}

  void hold_ms(CORBA::ULong ms) override;
  void discard_ms(CORBA::ULong ms) override;
  void lifespan(const char* name, CORBA::Long seconds) override;
  CORBA::Long incarnations(const char* name) override;
  CORBA::Long alive() override;
  void destroy_poa(const char* name) override;
  void deactivate(const char* name) override;

 private:
  Tour& tour_;
  ManagerSwitch switch_;
};
