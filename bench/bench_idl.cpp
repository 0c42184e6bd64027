// How long the IDL compiler takes for files of 1,000 and 10,000 definitions, C++ included, and how that grows.
#include <benchmark/benchmark.h>

#include "emit/emit.h"

namespace {

// A fourth each of structs, sequences, constants and interfaces that use one another.
std::string definitions(std::int64_t count) {
  std::string text = "struct S0 { long a; };\n";
  for (std::int64_t i = 1; i <= count / 4; ++i) {
    const std::string n = std::to_string(i), last = std::to_string(i - 1);
    text += "struct S" + n + " { long value; string text; S" + last + " inner; };\n";
    text += "typedef sequence<S" + n + "> Q" + n + ";\n";
    text += "const long C" + n + " = " + n + " * 2 + 1;\n";
    text +=
        "interface I" + n + " { Q" + n + " get(in S" + n + " key, inout long n); attribute string name; };\n";
  }
  return text;
}

void compile(benchmark::State& state) {
  const std::string text = definitions(state.range(0));
  for (auto _ : state) {
    idl::Compilation compilation;
    compilation.sources.number("bench.idl");
    idl::compile_text(text, compilation);
    const idl::Emitted made = idl::emit(compilation, "bench", {});
    if (made.source.empty()) return state.SkipWithError(compilation.diagnostics.text().c_str());
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(compile)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);

}  // namespace

BENCHMARK_MAIN();
