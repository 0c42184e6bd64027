#include "server_process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "orb_fixture.h"

namespace {

constexpr const char* offer_variable = "PROGRAM_TEST_OFFER";

std::map<std::string, Offer>& offers() {
  static std::map<std::string, Offer> all;
  return all;
}

/// Writes the references offered, ends them with an empty line, and serves until nobody reads standard
/// output.
void serve(Offer offer) {
  int count = 0;
  char* none[] = {nullptr};
  const CORBA::ORB_var orb = CORBA::ORB_init(count, none);
  {
    const CORBA::Object_var resolved = orb->resolve_initial_references("RootPOA");
    const PortableServer::POA_var root = PortableServer::POA::_narrow(resolved.in());
    for (const auto& [name, object] : offer(orb.in(), root.in())) {
      const CORBA::String_var text = orb->object_to_string(object.in());
      std::printf("%s %s\n", name.c_str(), text.in());
    }
  }
  std::printf("\n");
  std::fflush(stdout);
  pollfd reader{STDOUT_FILENO, 0, 0};  // says when the other end is closed
  while (::poll(&reader, 1, -1) < 0) {
  }
  orb->destroy();
}

class ServerMode : public testing::Environment {
 public:
  void SetUp() override {
    const char* name = std::getenv(offer_variable);
    if (!name) return;
    serve(offers().at(name));
    std::exit(0);
  }
};
[[maybe_unused]] const auto* const server_mode = testing::AddGlobalTestEnvironment(new ServerMode);

}  // namespace

ServerOffer::ServerOffer(const char* name, Offer offer) { offers()[name] = offer; }

ServerProcess::ServerProcess(const char* offer) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  lines_ = ::popen((std::string(offer_variable) + "=" + offer + " exec '" + self + "'").c_str(), "re");
  char line[4096], name[64], text[4000];
  while (lines_ && std::fgets(line, sizeof line, lines_) && line[0] != '\n') {
    if (std::sscanf(line, "%63s %3999s", name, text) == 2 && std::strncmp(text, "IOR:", 4) == 0)
      offered_[name] = text;
  }
  EXPECT_FALSE(offered_.empty()) << "the server did not start";
}

ServerProcess::~ServerProcess() { EXPECT_EQ(::pclose(lines_), 0) << "the server did not end well"; }

void* ServerProcess::handle(const std::string& name) const {
  const auto found = offered_.find(name);
  EXPECT_NE(found, offered_.end()) << name;
  return found == offered_.end() ? nullptr
                                 : CORBA_ORB_string_to_object(test_orb(), found->second.c_str(), nullptr);
}
