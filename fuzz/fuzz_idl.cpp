// IDL from outside: the compiler's scanner, grammar and passes, for some inputs the preprocessor before them, and what
// C++ is made of what is right.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "emit/emit.h"

namespace {

// By way of a file, as the preprocessor reads nothing else.
void preprocess_and_compile(const std::string& text) {
  static const std::string path = (std::filesystem::temp_directory_path() /
                                   ("fuzz_idl-" + std::to_string(std::random_device{}()) + ".idl"))
                                      .string();
  std::ofstream(path, std::ios::trunc) << text;
  idl::Compilation compilation;
  idl::compile(path, {}, compilation);
  std::filesystem::remove(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (size > 0 && data[size - 1] == '#') preprocess_and_compile(text);
  idl::Compilation compilation;
  compilation.sources.supply(compilation.sources.number("input"), text);
  idl::compile_text(text, compilation);
  if (compilation.diagnostics.errors()) return 0;
  static_cast<void>(idl::list(compilation));
  static_cast<void>(idl::emit(compilation, "input", {.environment = size % 2 == 0, .async = size % 4 < 2}));
  return 0;
}
