#include "options.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace zrsv;
using Words = std::vector<std::string>;

Words split(const std::string& line) {
  std::istringstream in(line + "|");
  Words words;
  for (std::string word; std::getline(in, word, '|');) words.push_back(word);
  return words;
}

/// Parses the words that main gets and leaves those that it keeps. The result says what is wrong.
std::string parse(Words* words, Options* options) {
  Words copy = *words;
  std::vector<char*> argv;
  for (std::string& word : copy) argv.push_back(word.data());
  argv.push_back(nullptr);
  int argc = static_cast<int>(copy.size());
  const std::string error = parse_options(&argc, argv.data(), options);
  EXPECT_EQ(argv[static_cast<std::size_t>(argc)], nullptr);
  words->assign(argv.begin(), argv.begin() + argc);
  return error;
}

TEST(Options, AreTakenOutOfTheCommandLine) {
  Options o;
  Words words = split(
      "program|-ORBListen|0.0.0.0:0|file|-ORBListen|[::1]:4000|-ORBPublish|name|-ORBPublish|[fe80::1%eth0]:99|"
      "-ORBThreads|8|-ORBGIOPVersion|1.1|-ORBInProcess|0|-ORBFragmentSize|0|-ORBImplRepository|names.txt|-v");
  ASSERT_EQ(parse(&words, &o), "");
  EXPECT_EQ(words, split("program|file|-v"));
  EXPECT_EQ(o.listen, (std::vector<Endpoint>{{"0.0.0.0", 0}, {"::1", 4000}}));
  EXPECT_EQ(o.publish, (std::vector<Endpoint>{{"name", 0}, {"fe80::1%eth0", 99}}));
  EXPECT_TRUE(o.threads == 8 && o.giop_minor == 1 && o.fragment_size == 0 && !o.in_process && o.client_info);
  EXPECT_EQ(o.impl_repository, "names.txt");
}

TEST(Options, ErrorsNameOptionAndValueAndChangeNothing) {
  for (const char* wrong :
       {"-ORBNoSuchThing", "-ORBThreads", "-ORBThreads|", "-ORBThreads|-1", "-ORBThreads|4x",
        "-ORBThreads|4097", "-ORBTimeout|4294967296", "-ORBTick|0", "-ORBListen|host", "-ORBListen|:80",
        "-ORBListen|h:65536", "-ORBListen|[::1:80", "-ORBListen|::1:80", "-ORBPublish|a b",
        "-ORBGIOPVersion|1.3", "-ORBGIOPVersion|2", "-ORBClientInfo|yes", "-ORBImplRepository|",
        "-ORBFragmentSize|1"}) {
    Options o;
    const Words before = split(std::string("program|-ORBQueue|5|") + wrong);
    Words words = before;
    const std::string error = parse(&words, &o);
    EXPECT_NE(error.find(before[3]), error.npos) << error;
    EXPECT_TRUE(before.size() == 4 || error.find("'" + before[4] + "'") != error.npos) << error;
    EXPECT_EQ(words, before);
    EXPECT_EQ(o.queue, Options().queue);
  }
}

}  // namespace
