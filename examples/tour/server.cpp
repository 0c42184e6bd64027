// The tour's server: an object for each way that the adapter has of serving one.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <thread>

#include "server_control.h"
#include "server_tour.h"
#include "tour_text.h"

namespace {

/// SIGTERM and SIGINT, blocked in this thread and those that it starts, so that one thread can wait for them.
sigset_t block_end_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

/// Serves until one of the signals comes.
void serve_until(const sigset_t& signals, CORBA::ORB_ptr orb) {
  std::thread waiting([&] {
    int signal = 0;
    sigwait(&signals, &signal);
    orb->shutdown(0);
  });
  orb->run();
  waiting.join();
}

/// Ends the ORB, whichever way the server goes down.
class EndOfOrb {
 public:
  explicit EndOfOrb(CORBA::ORB_ptr orb) : orb_(orb) {}
  ~EndOfOrb() {
    try {
      orb_->destroy();
    } catch (const CORBA::Exception& e) {
      std::cerr << "tour_server: " << text_of(e) << '\n';
    }
  }
  EndOfOrb(const EndOfOrb&) = delete;
  EndOfOrb& operator=(const EndOfOrb&) = delete;

 private:
  CORBA::ORB_ptr orb_;
};

void serve(CORBA::ORB_ptr orb, const std::string& dir, const sigset_t& signals) {
  Tour tour(orb, dir);
  ControlServant control(tour);
  const EndOfOrb end(orb);  // before the servants and managers go
  tour.open();
  tour.add_control(&control);
  const PortableServer::POAManager_var manager = tour.root()->the_POAManager();
  manager->activate();
  std::cout << "ready" << std::endl;
  serve_until(signals, orb);
}

int run(int argc, char** argv) {
  const sigset_t signals = block_end_signals();
  // The implementation name is part of every reference. Without one it would be the name of the POA made
  // last.
  setenv("ZR_IMPLID", "tour", 0);
  const CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);

  CLI::App app(
      "Serves the objects of the tour until SIGTERM or SIGINT. Takes the -ORB options of docs/orb.md as "
      "well.");
  std::string dir;
  bool trace = false;
  app.add_option("--dir", dir, "directory that gets the references, a file NAME.ior each")
      ->required()
      ->check(CLI::ExistingDirectory);
  app.add_flag("--trace", trace, "tell on standard error what the library does");
  CLI11_PARSE(app, argc, argv);

  OM_trace_switch(trace);
  serve(orb, dir, signals);
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const CORBA::Exception& e) {
    std::cerr << "tour_server: " << text_of(e) << '\n';
  } catch (const std::exception& e) {
    std::cerr << "tour_server: " << e.what() << '\n';
  }
  return EXIT_FAILURE;
}
