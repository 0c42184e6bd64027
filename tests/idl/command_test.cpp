// The poaidl program: options, exit status, the files that it reads and writes.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <sstream>

#include "scratch.h"

namespace {

namespace fs = std::filesystem;

std::string read(const fs::path& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Each test has a directory of its own.
class Command : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& text) { scratch.write(name, text); }
  int run(const std::string& arguments) {
    const std::string line =
        "cd '" + directory.string() + "' && " POAIDL " " + arguments + " >out 2>err </dev/null";
    const int status = std::system(line.c_str());
    out = read(directory / "out"), err = read(directory / "err");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  bool there(const std::string& name) const { return fs::exists(directory / name); }

  const Scratch scratch;
  const fs::path directory = scratch.path;
  std::string out, err;
};

TEST_F(Command, HelpFitsAScreenAndNamesEveryOption) {
  EXPECT_EQ(run("--help"), 0);
  EXPECT_LE(std::count(out.begin(), out.end(), '\n'), 24);
  for (const char* option :
       {"-I", "-D", "-U", "-o", "--environment", "--async", "--deps", "--list", "-Werror"})
    EXPECT_NE(out.find(option), std::string::npos) << option;
}

TEST_F(Command, WrongUseEndsWithStatus2) {
  write("a.idl", "typedef long T;\n");
  for (const char* arguments : {"", "--nonsense a.idl", "nothere.idl", "-Wall a.idl", ".", "-o"})
    EXPECT_EQ(run(arguments), 2) << arguments << err;
}

TEST_F(Command, IncludedFilesAndMacrosAreFound) {
  write(
      "a.idl",
      "#include \"near.idl\"\n#include <far.idl>\n#ifdef WANTED\ntypedef Near T;\ntypedef Far U[SIZE];\n#endif\n");
  write("near.idl", "#pragma prefix \"near\"\ntypedef long Near;\n");
  write("inc/far.idl", "#pragma once\ntypedef short Far;\n");
  EXPECT_EQ(run("--list -Iinc -DWANTED -D SIZE=3 a.idl"), 0) << err;
  EXPECT_EQ(out, "typedef T IDL:T:1.0\ntypedef U IDL:U:1.0\n");
  EXPECT_EQ(run("--list -I inc -DWANTED -U WANTED a.idl"), 0) << err;
  EXPECT_EQ(out, "");
}

TEST_F(Command, OrbIdlIsBuiltIn) {
  write(
      "a.idl",
      "#include <orb.idl>\ntypedef CORBA::TypeCode T;\nstruct S { CORBA::StringSeq names; CORBA::Object o; };\n");
  EXPECT_EQ(run("--list a.idl"), 0) << err;
  EXPECT_EQ(out, "typedef T IDL:T:1.0\nstruct S IDL:S:1.0\n");
}

// What the preprocessor finds wrong: file, place, words.
TEST_F(Command, PreprocessorErrorsSayWhere) {
  const std::pair<const char*, const char*> texts[] = {
      {"\n  #include \"missing.idl\"\n", "a.idl:2:13: error: there is no file 'missing.idl' to include\n"},
      {"typedef long T;\n#include <missing.idl>\n",
       "a.idl:2:11: error: there is no file 'missing.idl' to include\n"},
      {"const char c = 'a;\n", "a.idl:1:1: error: the character literal does not end\n"},
      {"const string c = \"a;\n", "a.idl:1:1: error: the string literal does not end\n"},
      {"#if 1\ntypedef long T;\n", "a.idl:1:1: error: there is no #endif for this\n"},
      {"typedef long T; /* and\nso on", "the comment does not end\n"},
      {"#nonsense\n", "a.idl:1:2: error: '#nonsense' is no preprocessor directive\n"},
      {"#include \"a.idl\"\n", "too deeply\n"},
  };
  for (const auto& [text, message] : texts) {
    write("a.idl", text);
    EXPECT_EQ(run("a.idl"), 1) << text;
    EXPECT_NE(err.find(message), std::string::npos) << text << err;
  }
}

// Each has four ways to the ones two layers below.
TEST_F(Command, LayersOfDiamondsTakeNoTime) {
  std::string text = "interface A0 { void f(); };\ninterface B0 {};\n";
  for (int i = 1; i < 60; ++i) {
    const std::string layer = std::to_string(i), below = std::to_string(i - 1);
    for (const char* name : {"A", "B"})
      text += "interface " + (name + layer) + " : A" + below + ", B" + below + " {};\n";
  }
  write("a.idl", text);
  EXPECT_EQ(run("a.idl"), 0) << err;
}

// The preprocessor would leave out what stands behind them.
TEST_F(Command, NullCharactersAreErrors) {
  using namespace std::string_literals;
  write("a.idl", "typedef long T;\n\0\ninterface Left {};\n"s);
  EXPECT_EQ(run("a.idl"), 1);
  EXPECT_TRUE(err.starts_with("a.idl:2:1: error: a null character\n")) << err;
  write("b.idl", "#include \"c.idl\"\n"s);
  write("c.idl", "typedef long U; \0 interface Out {};\n// and\0here\n"s);
  EXPECT_EQ(run("b.idl"), 1);
  EXPECT_TRUE(err.starts_with("c.idl:1:17: error: a null character\n")) << err;
}

TEST_F(Command, ErrorsInIncludedFilesHaveTheirPlace) {
  write("a.idl", "#include \"sub/b.idl\"\n");
  write("sub/b.idl", "\n\n   typedef Nothing T;\n");
  EXPECT_EQ(run("a.idl"), 1);
  EXPECT_TRUE(
      err.starts_with("sub/b.idl:3:12: error: 'Nothing' is not declared here\n     typedef Nothing T;\n"))
      << err;
}

TEST_F(Command, CommentsAndLiteralsKeepTheirColumns) {
  write(
      "a.idl",
      "/* a\n comment */ typedef /* one */ Nothing /* two */ T; // three\nconst wchar A = L'\\u0041'; typedef ::Missing U;\n");
  EXPECT_EQ(run("a.idl"), 1);
  EXPECT_NE(err.find("a.idl:2:31: error: 'Nothing'"), std::string::npos) << err;
  EXPECT_NE(err.find("a.idl:3:38: error: 'Missing'"), std::string::npos) << err;
}

// A few lines that would become more text than any machine holds.
TEST_F(Command, MacroBombsEndInBoundedTime) {
  std::string text = "#define A0 long long long long long long\n";
  for (int i = 1; i < 40; ++i)
    text +=
        "#define A" + std::to_string(i) + " A" + std::to_string(i - 1) + " A" + std::to_string(i - 1) + "\n";
  write("a.idl", text + "A39\n");
  EXPECT_EQ(run("a.idl"), 1);
}

TEST_F(Command, WarningsBecomeErrorsOnRequest) {
  write("a.idl", "@key typedef long T;\n");
  EXPECT_EQ(run("--list a.idl"), 0);
  EXPECT_NE(err.find("a.idl:1:1: warning: annotations are read over"), std::string::npos) << err;
  EXPECT_EQ(run("-Werror --list a.idl"), 1);
}

TEST_F(Command, EachFileBecomesAHeaderAndASource) {
  write("a.idl", "#include \"sub/b.idl\"\n#include <orb.idl>\nstruct S { B b; CORBA::OctetSeq o; };\n");
  write("sub/b.idl", "typedef long B;\n");
  EXPECT_EQ(run("-o made/here a.idl sub/b.idl"), 0) << err;
  for (const char* name : {"made/here/a.h", "made/here/a.cpp", "made/here/b.h", "made/here/b.cpp"})
    EXPECT_TRUE(there(name)) << name;
  const std::string header = read(directory / "made/here/a.h");
  EXPECT_NE(header.find("#include \"poa/mapping.h\"\n#include \"sub/b.h\"\n\n"), std::string::npos) << header;
  EXPECT_EQ(header.find("struct _type_B"), std::string::npos) << "what is included is not written again";
}

TEST_F(Command, OnAnErrorNothingIsWritten) {
  write("good.idl", "typedef long T;\n");
  write("bad.idl", "typedef Nothing T;\n");
  write("value.idl", "interface I { void f(); };\nvaluetype V { public long a; };\n");
  for (const char* files : {"good.idl bad.idl", "bad.idl good.idl", "good.idl value.idl"}) {
    EXPECT_EQ(run("-o made --deps made.d " + std::string(files)), 1);
    EXPECT_FALSE(there("made") || there("made.d")) << files;
  }
  EXPECT_NE(err.find("value.idl:2:11: error: no C++ is generated for valuetype 'V'"), std::string::npos)
      << err;
  EXPECT_EQ(run("-o good.idl good.idl"), 2) << "a directory that is a file";
}

TEST_F(Command, FilesThatWouldNotChangeAreNotTouched) {
  write("a.idl", "typedef long T;\n");
  ASSERT_EQ(run("a.idl"), 0) << err;
  const auto old = fs::file_time_type::clock::now() - std::chrono::hours(1);
  for (const char* name : {"a.h", "a.cpp"}) fs::last_write_time(directory / name, old);
  ASSERT_EQ(run("a.idl"), 0);
  EXPECT_EQ(fs::last_write_time(directory / "a.h"), old);
  write("a.idl", "typedef short T;\n");
  ASSERT_EQ(run("a.idl"), 0);
  EXPECT_GT(fs::last_write_time(directory / "a.h"), old);
  EXPECT_EQ(fs::last_write_time(directory / "a.cpp"), old) << "a typedef has nothing in the source";
}

TEST_F(Command, DepsAreARuleForMake) {
  write("a b.idl", "#include <inc.idl>\n#include <orb.idl>\n");
  write("dir/inc.idl", "#include \"deep.idl\"\n");
  write("dir/deep.idl", "typedef long T;\n");
  EXPECT_EQ(run("-I dir -o out.d --deps rule.d 'a b.idl'"), 0) << err;
  EXPECT_EQ(
      read(directory / "rule.d"),
      "out.d/a\\ b.h out.d/a\\ b.cpp: \\\n  a\\ b.idl \\\n  dir/inc.idl \\\n  dir/deep.idl\ndir/deep.idl:\ndir/inc.idl:\n");
}

TEST_F(Command, EnvironmentGivesEveryOperationOne) {
  write("a.idl", "interface I { long f(in long a); attribute long b; };\n");
  ASSERT_EQ(run("--environment a.idl"), 0) << err;
  const std::string header = read(directory / "a.h"), source = read(directory / "a.cpp");
  EXPECT_NE(header.find("virtual CORBA::Long f(CORBA::Long a, CORBA_ENV) = 0;"), std::string::npos) << header;
  EXPECT_NE(header.find("virtual CORBA::Long b(CORBA_ENV) = 0;"), std::string::npos) << header;
  EXPECT_NE(
      source.find(
          "CORBA::Long I::f(CORBA::Long a, CORBA::Environment& ev) { return I_rows::op_f(this, a, ev); }"),
      std::string::npos)
      << source;
}

TEST_F(Command, AsyncGivesEveryInterfaceAHandler) {
  write("base.idl", "module M { interface B { readonly attribute long base; }; };\n");
  write(
      "a.idl",
      "#include \"base.idl\"\n#pragma prefix \"p.org\"\ninterface I : M::B {\n  long f(in long a, inout long b);\n  oneway void g();\n  attribute string class;\n};\n");
  ASSERT_EQ(run("--async a.idl"), 0) << err;
  const std::string header = read(directory / "a.h"), source = read(directory / "a.cpp");
  for (const char* line :
       {"class AMI_IHandler : public virtual M::AMI_BHandler {",
        "repository_id = \"IDL:p.org/AMI_IHandler:1.0\";",
        "virtual void f(CORBA::Long ami_return_val, CORBA::Long b);",
        "virtual void set_class_excep(Messaging::ExceptionHolder* excep_holder);",
        "void sendc_f(AMI_IHandler* _handler, CORBA::Long a, CORBA::Long b);",
        "std::future<std::tuple<CORBA::Long, CORBA::Long>> async_f(CORBA::Long a, CORBA::Long b);",
        "std::future<CORBA::String_var> async_get_class();"})
    EXPECT_NE(header.find(line), std::string::npos) << line << header;
  for (const char* text : {"sendc_g(", "async_g(", "class AMI_BHandler"})
    EXPECT_EQ(header.find(text), std::string::npos) << text << header;
}

}  // namespace
