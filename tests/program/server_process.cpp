#include "server_process.h"

#include <poll.h>
#include <unistd.h>

#include <filesystem>

#include "orb_fixture.h"

namespace {

constexpr const char* mode_variable = "PROGRAM_TEST_SERVER";

/// Writes the references offered, ends them with an empty line, and serves until nobody reads standard
/// output.
void serve(bool registered) {
  int count = 0;
  char* none[] = {nullptr};
  const CORBA::ORB_var orb = CORBA::ORB_init(count, none);
  {
    const CORBA::Object_var resolved = orb->resolve_initial_references("RootPOA");
    const PortableServer::POA_var root = PortableServer::POA::_narrow(resolved.in());
    for (const auto& [name, object] : offers(orb.in(), root.in(), registered))
      std::printf("%s %s\n", name.c_str(), CORBA::String_var(orb->object_to_string(object.in())).in());
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
    const char* mode = std::getenv(mode_variable);
    if (!mode) return;
    serve(*mode == '1');
    std::exit(0);
  }
};
[[maybe_unused]] const auto* const server_mode = testing::AddGlobalTestEnvironment(new ServerMode);

}  // namespace

ServerProcess::ServerProcess(bool registered) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  const std::string command =
      std::string(mode_variable) + (registered ? "=1" : "=0") + " exec '" + self + "'";
  lines_ = ::popen(command.c_str(), "re");
  char line[4096], name[64], text[4000];
  while (lines_ && std::fgets(line, sizeof line, lines_) && line[0] != '\n')
    if (std::sscanf(line, "%63s IOR:%3999s", name, text) == 2) offered_[name] = std::string("IOR:") + text;
  EXPECT_FALSE(offered_.empty()) << "the server did not start";
}

ServerProcess::~ServerProcess() { EXPECT_EQ(::pclose(lines_), 0) << "the server did not end well"; }

void* ServerProcess::handle(const std::string& name) const {
  return CORBA_ORB_string_to_object(test_orb(), offered_.at(name).c_str(), nullptr);
}
