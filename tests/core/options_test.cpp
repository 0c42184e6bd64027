#include "options.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace zrsv;

/// A command line as main gets it.
struct CommandLine {
  explicit CommandLine(std::vector<std::string> words) : texts(std::move(words)) {
    for (std::string& text : texts) pointers.push_back(text.data());
    argc = static_cast<int>(pointers.size());
    pointers.push_back(nullptr);
  }
  std::vector<std::string> left() const { return {pointers.begin(), pointers.begin() + argc}; }

  std::vector<std::string> texts;
  std::vector<char*> pointers;
  int argc = 0;
};

TEST(Options, AreTakenOutOfTheCommandLine) {
  CommandLine line({"program",
                    "-ORBListen",
                    "0.0.0.0:0",
                    "file",
                    "-ORBListen",
                    "[::1]:4000",
                    "-ORBPublish",
                    "name",
                    "-ORBPublish",
                    "[fe80::1%eth0]:99",
                    "-ORBThreads",
                    "8",
                    "-ORBGIOPVersion",
                    "1.1",
                    "-ORBInProcess",
                    "0",
                    "-ORBFragmentSize",
                    "0",
                    "-ORBImplRepository",
                    "names.txt",
                    "-v"});
  Options o;
  ASSERT_EQ(parse_options(&line.argc, line.pointers.data(), &o), "");
  EXPECT_EQ(line.left(), (std::vector<std::string>{"program", "file", "-v"}));
  EXPECT_EQ(line.pointers[static_cast<std::size_t>(line.argc)], nullptr);
  EXPECT_EQ(o.listen, (std::vector<Endpoint>{{"0.0.0.0", 0}, {"::1", 4000}}));
  EXPECT_EQ(o.publish, (std::vector<Endpoint>{{"name", 0}, {"fe80::1%eth0", 99}}));
  EXPECT_EQ(o.threads, 8u);
  EXPECT_EQ(o.giop_minor, 1u);
  EXPECT_EQ(o.fragment_size, 0u);
  EXPECT_EQ(o.impl_repository, "names.txt");
  EXPECT_FALSE(o.in_process);
  EXPECT_TRUE(o.client_info);
}

TEST(Options, ErrorsNameOptionAndValueAndChangeNothing) {
  const std::vector<std::vector<std::string>> cases = {
      {"-ORBNoSuchThing", "1"},      {"-ORBThreads"},           {"-ORBThreads", ""},
      {"-ORBThreads", "-1"},         {"-ORBThreads", "4x"},     {"-ORBThreads", "4097"},
      {"-ORBTimeout", "4294967296"}, {"-ORBTick", "0"},         {"-ORBListen", "host"},
      {"-ORBListen", ":80"},         {"-ORBListen", "h:65536"}, {"-ORBListen", "[::1:80"},
      {"-ORBListen", "::1:80"},      {"-ORBPublish", "a b"},    {"-ORBGIOPVersion", "1.3"},
      {"-ORBGIOPVersion", "2"},      {"-ORBClientInfo", "yes"}, {"-ORBImplRepository", ""},
      {"-ORBFragmentSize", "1"}};
  for (const std::vector<std::string>& words : cases) {
    std::vector<std::string> all = {"program", "-ORBQueue", "5"};
    all.insert(all.end(), words.begin(), words.end());
    CommandLine line(all);
    Options o;
    const std::string error = parse_options(&line.argc, line.pointers.data(), &o);
    EXPECT_NE(error.find(words[0]), error.npos) << error;
    if (words.size() > 1 && words[0] != "-ORBNoSuchThing") {
      EXPECT_NE(error.find("'" + words[1] + "'"), error.npos) << error;
    }
    EXPECT_EQ(line.left(), all);
    EXPECT_EQ(o.queue, Options().queue);
  }
}

TEST(Options, NoCommandLineIsNoError) {
  Options o;
  EXPECT_EQ(parse_options(nullptr, nullptr, &o), "");
}

}  // namespace
