// The compiler's checks, over tables of IDL texts: wrong.txt with the errors of each, right.txt with what each declares.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "emit/emit.h"

namespace {

struct Case {
  std::string text;
  std::string expected;  // the lines after "> "
  unsigned line = 0;     // where it begins
};

std::vector<Case> cases(const std::string& name) {
  std::ifstream in(std::string(IDL_TEXTS) + "/" + name);
  std::vector<Case> all(1);
  unsigned number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    Case& last = all.back();
    if (line.starts_with("> "))
      last.expected += line.substr(2) + '\n';
    else if (line.empty())
      all.push_back({"", "", number + 1});
    else
      last.text += line + '\n';
  }
  const auto only_comments = [](const Case& one) {
    return one.text.empty() || one.text.starts_with("// ---");
  };
  std::erase_if(all, only_comments);
  all.erase(all.begin());  // the file's own comment
  return all;
}

// `original` is what stands in the file, if that is another text than the preprocessed one.
void compile(const std::string& text, idl::Compilation& compilation, const std::string& original = "") {
  compilation.sources.supply(compilation.sources.number("x.idl"), original.empty() ? text : original);
  idl::compile_text(text, compilation);
}

// "x.idl:1:2: error: text" as "1:2 text", of all lines of that kind.
std::string reports(const std::string& diagnostics, const std::string& kind) {
  std::istringstream in(diagnostics);
  std::string found;
  const std::string file = "x.idl:", mark = ": " + kind + ": ";
  for (std::string line; std::getline(in, line);) {
    const std::size_t at = line.find(mark);
    if (line.starts_with(file) && at != std::string::npos)
      found += line.substr(file.size(), at - file.size()) + ' ' + line.substr(at + mark.size()) + '\n';
  }
  return found;
}

TEST(IdlTexts, WrongOnesAreReportedWhereTheyAreWrong) {
  const std::vector<Case> all = cases("wrong.txt");
  EXPECT_GE(all.size(), 120U);
  for (const Case& one : all) {
    idl::Compilation compilation;
    compile(one.text, compilation);
    EXPECT_EQ(reports(compilation.diagnostics.text(), "error"), one.expected)
        << "wrong.txt:" << one.line << '\n'
        << one.text;
  }
}

TEST(IdlTexts, RightOnesCompileAndDeclareWhatTheySay) {
  const std::vector<Case> all = cases("right.txt");
  EXPECT_GE(all.size(), 120U);
  for (const Case& one : all) {
    idl::Compilation compilation;
    compile(one.text, compilation);
    EXPECT_EQ(compilation.diagnostics.errors(), 0U) << "right.txt:" << one.line << '\n'
                                                    << compilation.diagnostics.text();
    std::istringstream expected(one.expected);
    const std::string list = '\n' + idl::list(compilation);
    for (std::string line; std::getline(expected, line);)
      EXPECT_NE(list.find('\n' + line + '\n'), std::string::npos)
          << "right.txt:" << one.line << ": " << line << list;
  }
}

TEST(IdlTexts, WhatHasNoCppIsRefusedByName) {
  for (const char* file : {"refused.txt", "refused_async.txt"}) {
    const bool async = file == std::string("refused_async.txt");
    for (const Case& one : cases(file)) {
      idl::Compilation compilation;
      compile(one.text, compilation);
      EXPECT_EQ(compilation.diagnostics.errors(), 0U) << compilation.diagnostics.text();
      const idl::Emitted made = idl::emit(compilation, "x", {.async = async});
      EXPECT_EQ(reports(compilation.diagnostics.text(), "error"), one.expected) << file << ':' << one.line;
      EXPECT_EQ(made.header + made.source, "") << file << ':' << one.line;
    }
  }
}

// Control characters could make a terminal do anything.
TEST(IdlTexts, NothingUnprintableIsShown) {
  idl::Compilation compilation;
  compile("typedef lon\x1b[2J\tT;\r\x7f\n", compilation);
  const std::string said = compilation.diagnostics.text();
  EXPECT_GE(compilation.diagnostics.errors(), 1U);
  EXPECT_NE(said.find("  typedef lon?[2J\tT;"), std::string::npos) << said;
  EXPECT_EQ(said.find_first_of("\x1b\r\x7f"), std::string::npos) << said;
}

TEST(IdlTexts, TheLineIsShownWithACaretAndANote) {
  idl::Compilation compilation;
  compile("typedef long Money;\n\tstruct Money { long a; };\n", compilation);
  EXPECT_EQ(compilation.diagnostics.text(),
            "x.idl:2:9: error: 'Money' is declared already\n"
            "  \tstruct Money { long a; };\n"
            "  \t       ^~~~~\n"
            "x.idl:1:14: note: the other one is here\n"
            "  typedef long Money;\n"
            "               ^~~~~\n");
}

TEST(IdlTexts, LineMarkersLeadToTheOriginalFile) {
  idl::Compilation compilation;
  compile("#line 1 \"x.idl\"\n#line 7 \"part.idl\"\ntypedef long T;\n#line 3 \"x.idl\"\ntypedef short T;\n",
          compilation, "\n#include \"part.idl\"\ntypedef short T;\n");
  EXPECT_EQ(reports(compilation.diagnostics.text(), "error"), "3:15 'T' is declared already\n");
  EXPECT_NE(compilation.diagnostics.text().find("part.idl:7:14: note:"), std::string::npos);
}

TEST(IdlTexts, NullCharactersAreCharacters) {
  using namespace std::string_literals;
  for (const std::string& text :
       {"const char A = '\\'\0\0';"s, "const string A = \"a\0b\";"s, "typedef\0 long A;"s}) {
    idl::Compilation compilation;
    compile(text, compilation);
    EXPECT_EQ(compilation.diagnostics.errors(), 1U) << compilation.diagnostics.text();
  }
}

TEST(IdlTexts, TwentyErrorsAreEnough) {
  idl::Compilation compilation;
  std::string text;
  for (int i = 0; i < 30; ++i)
    text += "typedef Missing" + std::to_string(i) + " T" + std::to_string(i) + ";\n";
  compile(text, compilation);
  EXPECT_EQ(compilation.diagnostics.errors(), 20U);
}

TEST(IdlTexts, WhatIsReadOverIsSaid) {
  idl::Compilation compilation;
  compile("@key struct S { long a; };\nbitset B { bitfield<3> a; };\n", compilation);
  EXPECT_EQ(reports(compilation.diagnostics.text(), "warning"),
            "1:1 annotations are read over\n2:1 a bitset is read over\n");
}

// Nothing that can be nested without end may reach the end of the stack.
TEST(IdlTexts, NestingIsBounded) {
  const auto repeated = [](const std::string& text, int count) {
    std::string all;
    while (count--) all += text;
    return all;
  };
  const int many = 20000;
  const std::string texts[] = {
      repeated("module M { ", many),
      "typedef " + repeated("sequence<", many) + "long" + repeated(">", many) + " T;",
      "const long A = " + repeated("(", many) + "1" + repeated(")", many) + ";",
      "const long A = 1" + repeated(" + 1", many) + ";",
      "const long A = " + repeated("- ", many) + "1;",
      repeated("struct S { ", many),
      "@a" + repeated("(", many),
      "bitset B " + repeated("{", many),
  };
  for (const std::string& text : texts) {
    idl::Compilation compilation;
    compile(text, compilation);
    EXPECT_GT(compilation.diagnostics.errors() + text.starts_with("@") + text.starts_with("bitset"), 0U)
        << text.substr(0, 40);
  }
}

TEST(IdlTexts, LongChainsOfDefinitionsAreFine) {
  std::string text = "struct S0 { long a; };\ntypedef long T0;\ninterface I0 {};\n";
  for (int i = 1; i < 3000; ++i) {
    const std::string now = std::to_string(i), last = std::to_string(i - 1);
    text += "struct S" + now + " { S" + last + " a; };\ntypedef T" + last + " T" + now + ";\n";
    text += "interface I" + now + " { void f(in S" + now + " p); };\n";
  }
  idl::Compilation compilation;
  compile(text, compilation);
  EXPECT_EQ(compilation.diagnostics.text(), "");
}

}  // namespace
