#include "options.h"

#include <CLI/CLI.hpp>

namespace idl {

int parse_options(int argc, char** argv, Options& options) {
  CLI::App app(
      "Compiles IDL to C++: NAME.idl becomes NAME.h and NAME.cpp, with stubs, skeletons, TypeCodes and Any operators.\n"
      "Files that would not change are not touched; on an error none is written.");
  app.name("poaidl");
  app.get_formatter()->column_width(28);
  std::vector<std::string> defines, undefines;
  std::string warnings;
  const auto many = [](CLI::Option* option) { option->allow_extra_args(false)->trigger_on_parse(false); };
  many(app.add_option("-I", options.preprocess.include_dirs, "Look for included files here, too")
           ->option_text("DIR"));
  many(app.add_option("-D", defines, "Define a macro of the preprocessor")->option_text("NAME[=V]"));
  many(app.add_option("-U", undefines, "Take a macro back")->option_text("NAME"));
  app.add_option("-o", options.directory, "Write the files here; the current directory by default")
      ->type_name("DIR");
  app.add_flag("--environment", options.environment,
               "Give every operation a last parameter CORBA::Environment&");
  app.add_flag("--async", options.async,
               "Make asynchronous calls, too: sendc_NAME with a handler, and async_NAME that gives a future");
  app.add_option("--deps", options.deps, "Write the files that were read as a rule for make")
      ->type_name("FILE");
  app.add_flag("--list", options.list, "Print what the files declare, with repository ids; write nothing");
  app.add_option("-W", warnings, "-Werror: treat warnings as errors")
      ->check(CLI::IsMember({"error"}))
      ->option_text("error");
  app.add_option("FILE.idl", options.files, "What to compile")->required()->option_text(" ");
  app.footer(
      "Exit status: 0 when all went well, 1 for errors in the IDL, 2 for a wrong option or a file that cannot be\nread or written.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  options.warnings_are_errors = !warnings.empty();
  for (const std::string& one : defines) options.preprocess.macros.push_back("D" + one);
  for (const std::string& one : undefines) options.preprocess.macros.push_back("U" + one);
  return -1;
}

}  // namespace idl
