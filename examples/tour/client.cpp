// The tour's client: calls every object whose reference it finds.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "client_visit.h"
#include "tour_text.h"

namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, fs::path, TourOrder>;

/// The reference in the file.
CORBA::Object_ptr read_reference(CORBA::ORB_ptr orb, const fs::path& file) {
  std::ifstream in(file);
  std::string text;
  if (!(in >> text)) throw std::runtime_error("cannot read a reference from " + file.string());
  try {
    return orb->string_to_object(text.c_str());
  } catch (const CORBA::BAD_PARAM&) {
    throw std::runtime_error(file.string() + " does not hold a reference");
  }
}

/// Asks the object whether it is an X.
template <class X>
X* narrow(const CORBA::Object_var& object, const fs::path& file) {
  try {
    if (X* narrowed = X::_narrow(object)) return narrowed;
  } catch (const CORBA::SystemException& e) {
    throw ServerGone(text_of(e));
  }
  throw std::runtime_error(file.string() + " does not refer to an object of " + X::repository_id);
}

/// The references of the directory by their names.
Files find_references(const fs::path& dir) {
  Files found;
  for (const fs::directory_entry& entry : fs::directory_iterator(dir)) {
    if (entry.path().extension() == ".ior") found[entry.path().stem()] = entry.path();
  }
  if (found.empty()) {
    throw std::runtime_error("no references (NAME.ior) in " + dir.string() + "; start tour_server --dir " +
                             dir.string() + " first");
  }
  return found;
}

bool visit_all(CORBA::ORB_ptr orb, const fs::path& dir) {
  Files files = find_references(dir);
  Demo::Control_var control;
  if (const auto at = files.find("control"); at != files.end()) {
    control = narrow<Demo::Control>(read_reference(orb, at->second), at->second);
    files.erase(at);
  }
  Report report;
  Echoes echoes;
  for (const auto& [name, file] : files) {
    const Demo::Echo_var echo = narrow<Demo::Echo>(read_reference(orb, file), file);
    report.object(name, how_it_is_served(name));
    visit_echo(report, name, *echo.in());
    echoes[name] = echo;
  }
  if (control.in()) {
    report.object("control", how_it_is_served("control"));
    visit_control(report, *control.in(), echoes);
  }
  return report.close();
}

int run(int argc, char** argv) {
  const CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
  CLI::App app("Calls every object that tour_server serves. Takes the -ORB options of docs/orb.md as well.");
  std::string dir;
  app.add_option("--dir", dir, "directory with the references, a file NAME.ior each")
      ->required()
      ->check(CLI::ExistingDirectory);
  CLI11_PARSE(app, argc, argv);
  const bool right = visit_all(orb, dir);
  orb->destroy();
  return right ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const ServerGone& e) {
    std::cerr << "tour_client: the server does not answer: " << e.what() << '\n';
  } catch (const CORBA::Exception& e) {
    std::cerr << "tour_client: " << text_of(e) << '\n';
  } catch (const std::exception& e) {
    std::cerr << "tour_client: " << e.what() << '\n';
  }
  return EXIT_FAILURE;
}
