// poaidl: the IDL compiler.
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "compile.h"
#include "emit/emit.h"
#include "options.h"
#include "output.h"

namespace {

// Compiles one file and adds what it makes; false when it has errors.
bool compile_file(const std::string& file, const idl::Options& options, idl::Outputs& outputs) {
  idl::Compilation compilation(options.warnings_are_errors);
  idl::compile(file, options.preprocess, compilation);
  idl::Emitted emitted;
  if (!compilation.diagnostics.errors() && !options.list)
    emitted = idl::emit(compilation, std::filesystem::path(file).stem().string(),
                        {options.environment, options.async});
  std::cerr << compilation.diagnostics.text();
  if (compilation.diagnostics.errors()) return false;
  if (options.list) std::cout << idl::list(compilation);
  outputs.add(outputs.path(file, ".h"), std::move(emitted.header));
  outputs.add(outputs.path(file, ".cpp"), std::move(emitted.source));
  outputs.read(file, compilation.input.files);
  return true;
}

int run(const idl::Options& options) {
  idl::Outputs outputs(options.directory);
  bool good = true;
  for (const std::string& file : options.files) {
    if (!std::filesystem::is_regular_file(file)) throw std::runtime_error("cannot read " + file);
    good = compile_file(file, options, outputs) && good;
  }
  if (!good) return 1;
  if (!options.list) outputs.write(options.deps);
  return 0;
}

}  // namespace

int main(int argc, char** argv) try {
  idl::Options options;
  const int status = idl::parse_options(argc, argv, options);
  return status >= 0 ? status : run(options);
} catch (const std::exception& e) {
  std::cerr << "poaidl: " << e.what() << '\n';
  return 2;
}
