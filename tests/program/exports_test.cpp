// What libpoa.so exports: the classes and functions of its public headers, and nothing else.

#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "poa.h"
#include "poa/remote.h"

namespace {

/// Descriptions of types, which each user of a type may bring along, and what the standard library's
/// templates leave behind.
bool is_of_the_language(std::string_view mangled) {
  return std::ranges::any_of(
      std::initializer_list<std::string_view>{"_ZTI", "_ZTS", "_ZSt", "_ZNSt", "_ZNKSt", "_ZZSt", "_ZZNSt",
                                              "_ZTVSt", "_ZTVNSt", "_ZN9__gnu_cxx", "_ZNK9__gnu_cxx",
                                              "_ZTVN9__gnu_cxx", "_ZGVZ"},
      [&](std::string_view start) { return mangled.starts_with(start); });
}

std::string demangled(const std::string& name) {
  char* text = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, nullptr);
  std::string result = text ? text : name;
  std::free(text);
  return result;
}

/// The names that a library exports, as they stand in the source.
std::vector<std::string> exported_names(const std::string& library) {
  std::vector<std::string> names;
  FILE* lines = ::popen(("nm -D --defined-only '" + library + "'").c_str(), "r");
  char line[16384];
  while (lines && std::fgets(line, sizeof line, lines)) {
    std::string text = line;
    text.pop_back();
    const std::size_t type = text.find(' ');  // "0000000000012345 T name"
    if (type == text.npos || text.size() <= type + 3) continue;
    const std::string name = text.substr(type + 3);
    if (!is_of_the_language(name)) names.push_back(demangled(name));
  }
  if (lines) ::pclose(lines);
  return names;
}

// What an exported name may be about.
constexpr std::string_view allowed[] = {
    // Classes of the mapping, and with one of the prefixes below their implementations, skeletons and stubs.
    "PortableServer::POA", "PortableServer::POAManager", "PortableServer::POAList",
    "PortableServer::AdapterActivator", "PortableServer::ServantManager", "PortableServer::ServantActivator",
    "PortableServer::ServantLocator", "PortableServer::Current", "PortableServer::PolicyOf",
    "PortableServer::ForwardRequest", "PortableServer::ObjectId", "PortableServer::ServantBase",
    "PortableServer::RefCountServantBase", "PortableServer::DynamicImplementation",
    "PortableServer::POAdisconnect", "PortableServer::Policy",
    // Functions.
    "PortableServer::ObjectId_duplicate", "PortableServer::ObjectId_to_string",
    "PortableServer::string_to_ObjectId", "PortableServer::ObjectId_to_wstring",
    "PortableServer::wstring_to_ObjectId", "PortableServer::register_for_remote_use", "_poa_init",
    "call_cpp_handler", "call_disconnect_cpp_handler", "call_poa_inst_lifespan",
    "server_CORBA_ServerRequest_request", "server_CORBA_ServerRequest_request_type",
    "server_CORBA_ServerRequest_response_expected", "server_CORBA_ServerRequest_operation",
    // What inline members and templates of the libraries below leave in any library that uses them.
    "CORBA::Exception", "CORBA::UserException", "CORBA::SystemException", "CORBA::StandardException",
    "CORBA::PlainUserException", "CORBA::UserExceptionOf", "CORBA::Object", "CORBA::Policy", "CORBA::Current",
    "CORBA::Environment", "CORBA::InterfaceDef", "CORBA::BOA", "CORBA::ServerRequest", "CORBA::ValueOpsOf",
    "CORBA::Text"};

/// What the name is about: without "vtable for " and the like in front.
std::string_view subject_of(std::string_view name) {
  for (std::string_view phrase :
       {"guard variable for ", "virtual thunk to ", "non-virtual thunk to ", "construction vtable for ",
        "vtable for ", "VTT for ", "template parameter object for "}) {
    if (name.starts_with(phrase)) return name.substr(phrase.size());
  }
  return name;
}

bool is_allowed(std::string_view name) {
  static const std::regex variant("^(_s[kt]_)?(PortableServer|CORBA)_(\\w+?)(_impl)?\\b");
  const std::string subject = std::regex_replace(std::string(subject_of(name)), variant, "$2::$3");
  return std::ranges::any_of(allowed, [&](std::string_view known) {
    if (!subject.starts_with(known)) return false;
    const std::string_view rest = std::string_view(subject).substr(known.size());
    return rest.empty() || rest.starts_with("::") || rest.starts_with('<') || rest.starts_with('(') ||
           rest.starts_with("-in-");
  });
}

TEST(Exports, AreTheKnownOnes) {
  Dl_info library{};
  ASSERT_NE(::dladdr(reinterpret_cast<void*>(&PortableServer::register_for_remote_use), &library), 0);
  const std::vector<std::string> names = exported_names(library.dli_fname);
  ASSERT_GT(names.size(), 100u) << "in " << library.dli_fname;
  for (const std::string& name : names) EXPECT_TRUE(is_allowed(name)) << name;
  for (const char* hook :
       {"_poa_init", "call_cpp_handler", "call_disconnect_cpp_handler", "call_poa_inst_lifespan"}) {
    EXPECT_NE(std::find(names.begin(), names.end(), hook), names.end()) << hook;
  }
}

}  // namespace
