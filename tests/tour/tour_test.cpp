// The programs of the tour, run as their user runs them, and called with the stubs from this process.
#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "control.h"
#include "echo.h"
#include "orb_fixture.h"
#include "program.h"

namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

const char* const echoes[] = {"root",    "deep", "activator", "locator",
                              "default", "lazy", "dynamic",   "session"};

CORBA::Object_var object_of(const std::string& text) {
  CORBA::Object_var object(new CORBA::Object);
  object->set_ref(CORBA_ORB_string_to_object(test_orb(), text.c_str(), nullptr));
  return object;
}
CORBA::Object_var object_in(const fs::path& file) {
  std::string text;
  std::ifstream(file) >> text;
  return object_of(text);
}

/// Asks until the answer is `wanted`, at most 20 s; the last answer.
CORBA::Long wait_for(CORBA::Long wanted, const std::function<CORBA::Long()>& ask) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  CORBA::Long answer = ask();
  while (answer != wanted && std::chrono::steady_clock::now() < end) answer = ask();
  return answer;
}

/// A running tour_server.
class Server {
 public:
  explicit Server(const std::vector<std::string>& options = {})
      : program_(command(dir_.path, options)), ready_(program_.line("ready") == "ready") {
    EXPECT_TRUE(ready_) << program_.output();
  }
  ~Server() {
    if (ready_) stop(SIGTERM);
  }
  void stop(int signal) {
    ready_ = false;
    program_.signal(signal);
    EXPECT_EQ(program_.finish(), 0) << program_.output();
  }
  const fs::path& dir() const { return dir_.path; }
  Demo::Echo* echo(const std::string& name) const {
    return Demo::Echo::_narrow(object_in(dir() / (name + ".ior")).in());
  }
  Demo::Control* control() const { return Demo::Control::_narrow(object_in(dir() / "control.ior").in()); }

  static std::vector<std::string> command(const fs::path& dir, const std::vector<std::string>& options) {
    std::vector<std::string> all{TOUR_SERVER, "--dir", dir, "-ORBTick", "10"};
    all.insert(all.end(), options.begin(), options.end());
    return all;
  }

 private:
  Scratch dir_;
  Program program_;
  bool ready_;
};

TEST(Tour, ClientFindsEveryAnswerRight) {
  for (const int end : {SIGTERM, SIGINT}) {
    Server server;
    Program client({TOUR_CLIENT, "--dir", server.dir()});
    EXPECT_EQ(client.finish(), 0) << client.output();
    EXPECT_THAT(client.output(), HasSubstr("every answer is right"));
    for (const char* name : echoes) EXPECT_THAT(client.output(), HasSubstr('\n' + std::string(name) + ": "));
    server.stop(end);
  }
}

TEST(Tour, ProgramsSayWhatIsWrong) {
  Scratch empty, broken, gone;
  std::ofstream(broken.path / "root.ior") << "IOR:00";
  {
    Server server;
    fs::copy_file(server.dir() / "root.ior", gone.path / "root.ior");
  }
  const struct {
    std::vector<std::string> command;
    const char* says;
    rlim_t file_limit = RLIM_INFINITY;
  } rows[] = {
      {{TOUR_CLIENT, "--dir", empty.path}, "no references"},
      {{TOUR_CLIENT, "--dir", broken.path}, "does not hold a reference"},
      {{TOUR_CLIENT, "--dir", gone.path}, "the server does not answer"},
      {{TOUR_CLIENT}, "--dir is required"},
      {Server::command(empty.path / "none", {}), "--dir"},
      {Server::command(empty.path, {}), "cannot write", 10},
      {Server::command(empty.path, {"-ORBListen", "127.0.0.1:1x"}), "-ORBListen"},
  };
  for (const auto& row : rows) {
    Program program(row.command, row.file_limit);
    const int status = program.finish();
    EXPECT_TRUE(status > 0 && status < 128) << status << ": " << program.output();
    EXPECT_THAT(program.output(), HasSubstr(row.says));
  }
  EXPECT_TRUE(fs::is_empty(empty.path)) << "half a reference was left";
}

TEST(Tour, ReferencesOutliveTheServer) {
  auto first = std::make_unique<Server>();
  const CORBA::Object_var object = object_in(first->dir() / "deep.ior");
  const CORBA::String_var url = ZR_object_to_corbaloc(test_orb(), object->get_ref(), nullptr);
  const std::string address = std::string(url.in()).substr(0, std::string(url.in()).find('/'));
  const std::vector<std::string> there{"-ORBListen", address.substr(address.find('@') + 1)};
  first.reset();
  Demo::Echo_var deep, default_one;
  {
    Server second(there);
    deep = second.echo("deep");
    default_one = second.echo("default");
    EXPECT_EQ(deep->add(1, 2), 3);
  }
  EXPECT_THROW(deep->add(1, 2), CORBA::SystemException);
  Server third(there);
  EXPECT_EQ(deep->add(1, 2), 3);
  EXPECT_STREQ(CORBA::String_var(default_one->who()).in(), "default:anyone");
}

TEST(Tour, LostClientsSessionIsReleased) {
  Server server;
  const Demo::Control_var control = server.control();
  const CORBA::Long before = control->alive();
  Program client({TOUR_CLIENT, "--dir", server.dir()});
  EXPECT_EQ(client.finish(), 0) << client.output();
  EXPECT_EQ(control->incarnations("session"), 1);
  EXPECT_EQ(wait_for(before + 2, [&] { return control->alive(); }), before + 2)
      << "the servants of activator and lazy stay, that of session goes";
  const Demo::Echo_var session = server.echo("session"), activator = server.echo("activator");
  EXPECT_EQ(session->notes(), 0);
  EXPECT_EQ(control->incarnations("session"), 2);
  EXPECT_EQ(activator->notes(), 1) << "an object outlives its servants";
}

TEST(Tour, ServantsGoWhenTheyAreToldTo) {
  Server server;
  const Demo::Control_var control = server.control();
  const CORBA::Long before = control->alive();
  const auto alive = [&] { return control->alive(); };
  const struct {
    const char* name;
    std::function<void(const char*)> end;
    bool comes_back;
  } rows[] = {
      {"deep", [&](const char* name) { control->lifespan(name, 1); }, false},
      {"root", [&](const char* name) { control->deactivate(name); }, false},
      {"dynamic", [&](const char* name) { control->destroy_poa(name); }, false},
      {"lazy", [&](const char* name) { control->destroy_poa(name); }, true},
      {"activator", [&](const char* name) { control->deactivate(name); }, true},
      {"session", [&](const char* name) { control->lifespan(name, 1); }, true},
      {"activator", [&](const char* name) { control->destroy_poa(name); }, false},
  };
  for (const auto& row : rows) {
    const Demo::Echo_var echo = server.echo(row.name);
    EXPECT_EQ(echo->add(1, 2), 3) << row.name;
    const CORBA::Long with = alive();
    row.end(row.name);
    EXPECT_EQ(wait_for(with - 1, alive), with - 1) << row.name;
    if (row.comes_back) {
      EXPECT_EQ(echo->add(1, 2), 3) << row.name;
    } else {
      EXPECT_THROW(echo->add(1, 2), CORBA::UNKNOWN) << row.name;
    }
  }
  EXPECT_EQ(alive(), before - 3 + 2);  // deep, root and dynamic went; lazy and session are new
  EXPECT_THROW(control->deactivate("nobody"), CORBA::BAD_PARAM);
  EXPECT_THROW(control->lifespan("locator", 1), CORBA::OBJECT_NOT_EXIST);
}

TEST(Tour, EveryWayServesManyThreads) {
  Server server;
  Demo::Octets sent;
  sent.length(1u << 20);
  for (CORBA::ULong i = 0; i < sent.length(); ++i)
    sent.get_buffer()[i] = static_cast<CORBA::Octet>(i * 31 >> 3);
  std::vector<std::jthread> threads;
  for (CORBA::Long i = 0; i < 16; ++i) {
    threads.emplace_back([&, i] {
      const char* name = echoes[i % std::ssize(echoes)];
      const Demo::Echo_var echo = server.echo(name);
      const std::string text = name + std::to_string(i);
      for (CORBA::Long n = 0; n < 200; ++n) {
        EXPECT_EQ(echo->add(i, n), i + n) << name;
        EXPECT_EQ(CORBA::String_var(echo->echo_string(text.c_str())).in(), text);
        EXPECT_THROW(echo->refuse(text.c_str(), n), Demo::Refused);
      }
      const Demo::Octets_var back = echo->echo_octets(sent);
      ASSERT_EQ(back->length(), sent.length());
      EXPECT_EQ(std::memcmp(back->get_buffer(), sent.get_buffer(), sent.length()), 0) << name;
    });
  }
}

TEST(Tour, ServerOfTheReadme) {
  Program server({README_SERVER});
  const std::string text = server.line("IOR:");
  ASSERT_FALSE(text.empty()) << server.output();
  const Demo::Echo_var echo = Demo::Echo::_narrow(object_of(text).in());
  EXPECT_STREQ(CORBA::String_var(echo->echo_string("hello")).in(), "hello");
  echo->note("a note on the console");
  EXPECT_EQ(server.line("a note"), "a note on the console");
  server.signal(SIGTERM);
  EXPECT_EQ(server.finish(), 0) << server.output();
}

}  // namespace
