// The programs of the tour, run as their user runs them, and called with the stubs from this process.
#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "comes_true.h"
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

/// A running tour_server.
class Server {
 public:
  explicit Server(const std::string& options = "")
      : program_(std::string(TOUR_SERVER " -ORBTick 10 --dir ") + dir_.path + options) {
    ready_ = program_.line("ready") == "ready";
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
  const std::string& dir() const { return dir_.path; }
  CORBA::Object_var object(const std::string& name) const {
    std::string text;
    std::ifstream(dir() + "/" + name + ".ior") >> text;
    return object_of(text);
  }
  Demo::Echo* echo(const std::string& name) const { return Demo::Echo::_narrow(object(name).in()); }

 private:
  Scratch dir_;
  Program program_;
  bool ready_;
};

TEST(Tour, ClientFindsEveryAnswerRight) {
  for (const int end : {SIGTERM, SIGINT}) {
    Server server;
    Program client(TOUR_CLIENT " --dir " + server.dir());
    EXPECT_EQ(client.finish(), 0) << client.output();
    for (const char* name : echoes) EXPECT_THAT(client.output(), HasSubstr('\n' + std::string(name) + ": "));
    server.stop(end);
  }
}

TEST(Tour, ProgramsSayWhatIsWrong) {
  Scratch empty, broken, gone;
  std::ofstream(broken.path + "/root.ior") << "IOR:00";
  fs::copy_file(Server().dir() + "/root.ior", gone.path + "/root.ior");
  const std::string server = TOUR_SERVER " --dir " + empty.path, client = TOUR_CLIENT " --dir ";
  const std::pair<std::string, const char*> rows[] = {
      {client + empty.path, "no references"},
      {client + broken.path, "does not hold a reference"},
      {client + gone.path, "the server does not answer"},
      {TOUR_CLIENT, "--dir is required"},
      {"sh -c 'trap \"\" XFSZ; ulimit -f 0; exec " + server + "'", "cannot write"},
      {server + " -ORBListen 127.0.0.1:1x", "-ORBListen"},
  };
  for (const auto& [command, says] : rows) {
    Program program(command);
    const int status = program.finish();
    EXPECT_TRUE(status > 0 && status < 128) << status << ": " << program.output();
    EXPECT_THAT(program.output(), HasSubstr(says));
  }
  EXPECT_TRUE(fs::is_empty(empty.path)) << "half a reference was left";
}

TEST(Tour, ReferencesOutliveTheServer) {
  std::string there;
  {
    const Server first;
    const CORBA::String_var url = ZR_object_to_corbaloc(test_orb(), first.object("deep")->get_ref(), nullptr);
    const std::string text = url.in();  // corbaloc:iiop:1.2@host:port/key
    there = " -ORBListen " + text.substr(text.find('@') + 1, text.find('/') - text.find('@') - 1);
  }
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

TEST(Tour, ServantsGoWhenTheyAreToldToOrTheirClientIsLost) {
  Server server;
  const Demo::Control_var control = Demo::Control::_narrow(server.object("control").in());
  /// Asks until so many servants are there, at most 20 s.
  const auto expect_alive = [&](CORBA::Long wanted) {
    EXPECT_TRUE(comes_true([&] { return control->alive() == wanted; })) << wanted;
  };
  const CORBA::Long before = control->alive();
  Program client(TOUR_CLIENT " --dir " + server.dir());
  EXPECT_EQ(client.finish(), 0) << client.output();
  EXPECT_EQ(control->incarnations("session"), 1);
  expect_alive(before + 2);  // those of activator and lazy stay, that of session goes
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
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Demo::Echo_var echo = server.echo(row.name);
    EXPECT_EQ(echo->add(1, 2), 3);
    const CORBA::Long with = control->alive();
    row.end(row.name);
    expect_alive(with - 1);
    if (row.comes_back) {
      EXPECT_EQ(echo->add(1, 2), 3);
    } else {
      EXPECT_THROW(echo->add(1, 2), CORBA::UNKNOWN);
    }
  }
  EXPECT_EQ(control->alive(), before);  // deep, root and dynamic went; lazy, activator and session are new
  EXPECT_THROW(control->deactivate("nobody"), CORBA::BAD_PARAM);
  EXPECT_THROW(control->lifespan("locator", 1), CORBA::OBJECT_NOT_EXIST);
}

TEST(Tour, EveryWayServesManyThreads) {
  Server server;
  Demo::Octets sent;
  sent.length(1u << 20);
  for (CORBA::ULong i = 0; i < sent.length(); ++i) sent[i] = static_cast<CORBA::Octet>(i * 31 >> 3);
  std::vector<std::jthread> threads;
  for (CORBA::Long i = 0; i < 16; ++i) {
    threads.emplace_back([&, i] {
      const char* name = echoes[i % std::ssize(echoes)];
      const Demo::Echo_var echo = server.echo(name);
      for (CORBA::Long n = 0; n < 200; ++n) {
        EXPECT_EQ(echo->add(i, n), i + n) << name;
        EXPECT_STREQ(CORBA::String_var(echo->echo_string(name)).in(), name);
        EXPECT_THROW(echo->refuse(name, n), Demo::Refused);
      }
      const Demo::Octets_var back = echo->echo_octets(sent);
      ASSERT_EQ(back->length(), sent.length());
      EXPECT_EQ(std::memcmp(back->get_buffer(), sent.get_buffer(), sent.length()), 0) << name;
    });
  }
}

TEST(Tour, ServerOfTheReadme) {
  Program server(README_SERVER);
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
