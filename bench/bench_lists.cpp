// Echoes of sequences, within the process and over a socket of this machine: structs of numbers, strings, octets, and
// a string alone. Items are elements, there and back.
#include <string>
#include <thread>

#include "bench_support.h"
#include "lists.h"

namespace {

using namespace ListBench;

class Servant : public POA_ListBench::Lists {
 public:
  Points* echo_points(const Points& data) override { return new Points(data); }
  Texts* echo_texts(const Texts& data) override { return new Texts(data); }
  Octets* echo_octets(const Octets& data) override { return new Octets(data); }
  char* echo_text(const char* data) override { return CORBA::string_dup(data); }
};

Points some(CORBA::ULong count, Points*) {
  Points all;
  all.length(count);
  for (CORBA::ULong i = 0; i < count; ++i) all[i] = Point{i * 0.5, i * 0.25, static_cast<CORBA::Long>(i)};
  return all;
}
Texts some(CORBA::ULong count, Texts*) {
  Texts all;
  all.length(count);
  for (CORBA::ULong i = 0; i < count; ++i) all[i] = ("text number " + std::to_string(i)).c_str();
  return all;
}
Octets some(CORBA::ULong count, Octets*) {
  Octets all;
  all.length(count);
  return all;
}

template <class S>
void echo(benchmark::State& state, Lists_ptr object, S* (Lists::*operation)(const S&), CORBA::ULong count) {
  const S sent = some(count, static_cast<S*>(nullptr));
  for (auto _ : state) {
    const std::unique_ptr<S> back((object->*operation)(sent));
    if (back->length() != count) state.SkipWithError("not the sequence that was sent");
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 2 * count);
}

void text(benchmark::State& state, Lists_ptr object) {
  for (auto _ : state)
    benchmark::DoNotOptimize(CORBA::String_var(object->echo_text("sixteen letters.")).in());
}

void register_benchmarks(const std::string& where, Lists_ptr object) {
  const auto add = [&](const char* name, auto run) {
    benchmark::RegisterBenchmark((name + where).c_str(), [=](benchmark::State& state) {
      run(state, object);
    })->UseRealTime();
  };
  add("10000_structs",
      [](auto& state, Lists_ptr to) { echo<Points>(state, to, &Lists::echo_points, 10'000); });
  add("10000_strings", [](auto& state, Lists_ptr to) { echo<Texts>(state, to, &Lists::echo_texts, 10'000); });
  add("16_octets", [](auto& state, Lists_ptr to) { echo<Octets>(state, to, &Lists::echo_octets, 16); });
  add("100000_octets",
      [](auto& state, Lists_ptr to) { echo<Octets>(state, to, &Lists::echo_octets, 100'000); });
  add("a_string", text);
}

}  // namespace

int main(int argc, char** argv) {
  bench::Orb broker;
  PortableServer::POAManager_var(broker.root->the_POAManager())->activate();
  Servant servant;
  const PortableServer::ObjectId_var id = broker.root->activate_object(&servant);
  int none = 0;
  const CORBA::ORB_var orb = CORBA::ORB_init(none, nullptr);
  const CORBA::Object_var object = broker.root->id_to_reference(id);
  orb->register_key("Lists", object);
  const std::string at = ZR_published_endpoint(CORBA::OM_this_ORB, 0);
  const CORBA::Object_var far = orb->string_to_object(
      ("corbaloc:iiop:1.2@localhost:" + at.substr(at.rfind(':') + 1) + "/Lists").c_str());
  const Lists_var in_process = Lists::_narrow(object), over_socket = Lists::_narrow(far);
  register_benchmarks("/in_process", in_process);
  register_benchmarks("/over_socket", over_socket);
  if (!bench::start(argc, argv)) return EXIT_FAILURE;
  benchmark::RunSpecifiedBenchmarks();
  broker.root->deactivate_object(id);
  return EXIT_SUCCESS;
}
