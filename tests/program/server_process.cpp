#include "server_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "orb_fixture.h"

namespace {

constexpr const char* offer_variable = "PROGRAM_TEST_OFFER";

std::map<std::string, Offer>& offers() {
  static std::map<std::string, Offer> all;
  return all;
}

/// Writes the references offered, ends them with an empty line, and serves until standard input ends.
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
  char octet = 0;
  while (::read(STDIN_FILENO, &octet, 1) > 0) {
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
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
  const std::string variable = std::string(offer_variable) + "=" + offer;
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::putenv(const_cast<char*>(variable.c_str()));
    ::execl("/proc/self/exe", "server", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  to_server_ = in[1];
  FILE* lines = ::fdopen(out[0], "r");
  char line[4096], name[64], text[4000];
  while (std::fgets(line, sizeof line, lines) && line[0] != '\n') {
    if (std::sscanf(line, "%63s %3999s", name, text) == 2 && std::strncmp(text, "IOR:", 4) == 0)
      offered_[name] = text;
  }
  std::fclose(lines);
  EXPECT_FALSE(offered_.empty()) << "the server did not start";
}

ServerProcess::~ServerProcess() {
  ::close(to_server_);
  int status = -1;
  EXPECT_EQ(::waitpid(pid_, &status, 0), pid_);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the server ended with status " << status;
}

void* ServerProcess::handle(const std::string& name) const {
  const auto found = offered_.find(name);
  EXPECT_NE(found, offered_.end()) << name;
  return found == offered_.end() ? nullptr
                                 : CORBA_ORB_string_to_object(test_orb(), found->second.c_str(), nullptr);
}
