// What libpoa.so exports: the classes and functions of its public headers, and nothing else.

#include <cxxabi.h>
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

/// The names that a library exports, as they stand in the source.
std::vector<std::string> exported_names(const std::string& library) {
  // Descriptions of types, which each user of a type may bring along, and what the standard library's
  // templates leave behind.
  static const std::regex of_the_language("_Z(TI|TS|GVZ|(TV)?Z?(NK?)?(St|9__gnu_cxx)).*");
  std::vector<std::string> names;
  FILE* lines = ::popen(("nm -D --defined-only '" + library + "'").c_str(), "r");
  char line[16384];
  while (lines && std::fgets(line, sizeof line, lines)) {
    const std::string text(line, std::strlen(line) - 1);  // "0000000000012345 T name"
    const std::string mangled = text.substr(text.rfind(' ') + 1);
    if (std::regex_match(mangled, of_the_language)) continue;
    char* name = abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, nullptr);
    names.push_back(name ? name : mangled);
    std::free(name);
  }
  if (lines) ::pclose(lines);
  return names;
}

// What an exported name may start with.
const std::regex allowed(
    "((guard variable|vtable|construction vtable|VTT|template parameter object) for |(non-)?virtual thunk to )?("
    // Classes of the mapping, and their implementations, skeletons and stubs.
    "(PortableServer::|(_s[kt]_)?PortableServer_)(POA|POAManager|POAList|AdapterActivator|ServantManager|"
    "ServantActivator|ServantLocator|Current|PolicyOf|ForwardRequest|ObjectId|ServantBase|RefCountServantBase|"
    "DynamicImplementation|POAdisconnect|([A-Z][A-Za-z]+)?Policy)(_impl)?\\b|"
    // Functions.
    "PortableServer::(ObjectId_duplicate|ObjectId_to_w?string|w?string_to_ObjectId|register_for_remote_use)\\b|"
    "(_poa_init|call_(disconnect_)?cpp_handler|call_poa_inst_lifespan)$|"
    "server_CORBA_ServerRequest_(request|request_type|response_expected|operation)\\b|"
    // What inline members and templates of the libraries below leave in any library that uses them.
    "(CORBA::|(_s[kt]_)?CORBA_)(Exception|UserException|SystemException|StandardException|PlainUserException|"
    "UserExceptionOf|Object|Policy|Current|Environment|InterfaceDef|BOA|ServerRequest|ValueOpsOf|Text)"
    "(_impl)?\\b)");

/// Objects of these classes can be made and let go.
template <class... Class>
void expect_no_reference() {
  EXPECT_TRUE(((Class().get_ref() == nullptr) && ...));
}

TEST(Exports, ProgramsMakeObjectsOfEveryClass) {
  expect_no_reference<_st_PortableServer_POA, _st_PortableServer_POAManager, _st_PortableServer_ThreadPolicy,
                      _st_PortableServer_LifespanPolicy, _st_PortableServer_IdUniquenessPolicy,
                      _st_PortableServer_IdAssignmentPolicy, _st_PortableServer_ImplicitActivationPolicy,
                      _st_PortableServer_ServantRetentionPolicy, _st_PortableServer_RequestProcessingPolicy,
                      _st_PortableServer_AdapterActivator, _st_PortableServer_ServantManager,
                      _st_PortableServer_ServantActivator, _st_PortableServer_ServantLocator,
                      _st_PortableServer_Current, PortableServer_POA_impl, PortableServer_POAManager_impl,
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

}  // namespace
