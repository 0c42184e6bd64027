// What libpoa.so exports: the classes and functions of its public headers, and nothing else.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "poa.h"
#include "poa/remote.h"

namespace {

std::vector<std::string> exported_names(const std::string& library) {
  std::vector<std::string> names;
  FILE* lines = ::popen(("nm -D --defined-only -C '" + library + "'").c_str(), "r");
  char line[16384];
  while (lines && std::fgets(line, sizeof line, lines)) {
    std::string text = line;
    text.pop_back();
    const std::size_t type = text.find(' ');  // "0000000000012345 T name"
    if (type != text.npos && text.size() > type + 3) names.push_back(text.substr(type + 3));
  }
  if (lines) ::pclose(lines);
  return names;
}

// A name may have "vtable for " and the like in front, and arguments behind.
const std::regex allowed(
    "((vtable|VTT|typeinfo|typeinfo name|construction vtable|virtual thunk|non-virtual thunk|guard variable) "
    "(for|to) )?("
    // Classes of the mapping, implementation, skeleton and stub classes.
    "(.+ "
    ")?PortableServer::(POA|POAManager|POAList|AdapterActivator|ServantManager|ServantActivator|"
    "ServantLocator|"
    "Current|PolicyOf<.*>|ServantBase|RefCountServantBase|DynamicImplementation|POAdisconnect|ForwardRequest|"
    "ObjectId)"
    "(::.*|-in-.*)?|"
    "(.+ "
    ")?PortableServer_(POA|POAManager|Policy|AdapterActivator|ServantManager|ServantActivator|ServantLocator|"
    "Current)_impl(<.*>)?(::.*|-in-.*)?|"
    "(.+ )?_(sk|st)_PortableServer_(POA|POAManager|Policy|AdapterActivator|ServantManager|ServantActivator|"
    "ServantLocator|Current)(<.*>)?(::.*|-in-.*)?|"
    // Functions.
    "PortableServer::(ObjectId_duplicate|ObjectId_to_string|string_to_ObjectId|ObjectId_to_wstring|"
    "wstring_to_ObjectId|register_for_remote_use)\\(.*|"
    "_poa_init|call_cpp_handler|call_disconnect_cpp_handler|call_poa_inst_lifespan|"
    "server_CORBA_ServerRequest_(request|request_type|response_expected|operation)(\\(.*)?|"
    // What the runtime's and the standard library's templates leave in any library that uses them.
    "(.+ )?CORBA::(Exception|UserException|SystemException|StandardException<.*>|PlainUserException<.*>|"
    "UserExceptionOf<.*>|Object|Policy|Current|Environment|InterfaceDef|BOA|ServerRequest|ValueOpsOf<.*>|Any)"
    "(::.*|-in-.*)?|"
    "(.+ )?(_sk|_st)_CORBA_(Policy|Current)(::.*|-in-.*)?|"
    "(.+ )?CORBA_(Policy|Current)_impl(::.*|-in-.*)?|"
    "template parameter object for CORBA::Text<.*|"
    "(.+ )?std::.*"
    ")");

TEST(Exports, AreTheKnownOnes) {
  Dl_info library{};
  ASSERT_NE(::dladdr(reinterpret_cast<void*>(&PortableServer::register_for_remote_use), &library), 0);
  const std::vector<std::string> names = exported_names(library.dli_fname);
  ASSERT_GT(names.size(), 100u) << "in " << library.dli_fname;
  for (const std::string& name : names) EXPECT_TRUE(std::regex_match(name, allowed)) << name;
  for (const char* hook :
       {"_poa_init", "call_cpp_handler", "call_disconnect_cpp_handler", "call_poa_inst_lifespan"}) {
    EXPECT_NE(std::find(names.begin(), names.end(), hook), names.end()) << hook;
  }
}

}  // namespace
