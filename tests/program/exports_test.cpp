// What libpoa.so exports: the public modules and the entries for the ORB core, and nothing else.

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "poa.h"
#include "poa/remote.h"

namespace {

using namespace PortableServer;

/// The names that a library exports, but for descriptions of types, which each user of a type may bring
/// along, and what the standard library's templates and the sanitizers leave behind.
std::vector<std::string> exported_names(const std::string& library) {
  std::vector<std::string> names;
  FILE* lines = ::popen(("nm -DC --defined-only '" + library + "'").c_str(), "r");
  char line[16384];  // "0000000000012345 T name"
  while (lines && std::fgets(line, sizeof line, lines)) {
    const std::string name(line + 19, std::strlen(line) - 20);
    const bool of_std = name.find("std::") < name.find('(') || name.find("__gnu_cxx::") < name.find('(');
    if (!of_std && !name.starts_with("typeinfo ") && !name.starts_with("__odr_asan.")) names.push_back(name);
  }
  if (lines) ::pclose(lines);
  return names;
}

// What an exported name may start with: the public modules, and the entries for the ORB core.
const std::regex allowed(
    "((guard variable|vtable|construction vtable|VTT|template parameter object) for |(non-)?virtual thunk to )?"
    "((POA_)?(PortableServer|CORBA|Messaging)::|(_s[kt]_)?(PortableServer|CORBA)_|server_CORBA_ServerRequest_|"
    "(_poa_init|call_(disconnect_)?cpp_handler|call_poa_inst_lifespan)$)");

/// Objects of these classes can be made and let go.
template <class... Class>
void expect_no_reference() {
  EXPECT_TRUE(((Class().get_ref() == nullptr) && ...));
}

TEST(Exports, ProgramsMakeObjectsOfEveryClass) {  // those that no other test makes
  expect_no_reference<_st_PortableServer_ThreadPolicy, _st_PortableServer_IdUniquenessPolicy,
                      _st_PortableServer_IdAssignmentPolicy, _st_PortableServer_ImplicitActivationPolicy,
                      _st_PortableServer_ServantRetentionPolicy, _st_PortableServer_ServantManager,
                      PortableServer_POA_impl, PortableServer_POAManager_impl,
                      PortableServer_ThreadPolicy_impl, PortableServer_LifespanPolicy_impl,
                      PortableServer_IdUniquenessPolicy_impl, PortableServer_IdAssignmentPolicy_impl,
                      PortableServer_ImplicitActivationPolicy_impl,
                      PortableServer_ServantRetentionPolicy_impl, PortableServer_RequestProcessingPolicy_impl,
                      PortableServer_ServantManager_impl, PortableServer_ServantLocator_impl>();
}

TEST(Exports, AreTheKnownOnes) {
  Dl_info library{};
  ASSERT_NE(::dladdr(reinterpret_cast<void*>(&PortableServer::register_for_remote_use), &library), 0);
  const std::vector<std::string> names = exported_names(library.dli_fname);
  ASSERT_GT(names.size(), 100u) << "in " << library.dli_fname;
  for (const std::string& name : names)
    EXPECT_TRUE(std::regex_search(name, allowed, std::regex_constants::match_continuous)) << name;
  for (const char* hook :
       {"_poa_init", "call_cpp_handler", "call_disconnect_cpp_handler", "call_poa_inst_lifespan"})
    EXPECT_THAT(names, testing::Contains(hook));
}

// What its libraries have for each thread is put where the system keeps some room for such, less of it here than it does
// when it is not told.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Library, IsOpenedByAProgramThatRunsAlready) {
  Dl_info library{};
  ASSERT_NE(::dladdr(reinterpret_cast<void*>(&PortableServer::register_for_remote_use), &library), 0);
  const std::string command =
      "GLIBC_TUNABLES=glibc.rtld.optional_static_tls=0 python3 -c 'import ctypes; ctypes.CDLL(\"" +
      std::string(library.dli_fname) + "\")'";
  EXPECT_EQ(std::system(command.c_str()), 0);
}
#endif

}  // namespace
