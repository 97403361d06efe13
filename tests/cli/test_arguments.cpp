#include <gmock/gmock.h>

#include "cli/Arguments.h"

namespace vornex::cli {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::variant<Arguments, EarlyEnd> parse(std::vector<const char*> words) {
  words.insert(words.begin(), "vornex");
  return parseArguments(static_cast<int>(words.size()), words.data());
}

Arguments parsed(std::vector<const char*> words) {
  auto result = parse(std::move(words));
  if (const auto* end = std::get_if<EarlyEnd>(&result)) ADD_FAILURE() << end->text;
  return std::get<Arguments>(result);
}

int exitCode(std::vector<const char*> words) {
  const auto result = parse(std::move(words));
  const auto* end = std::get_if<EarlyEnd>(&result);
  return end ? end->exitCode : -1;
}

TEST(Arguments, ReadsAnImportWithGlobalOptionsAnywhere) {
  const Arguments arguments =
      parsed({"--root", "/r", "import", "a b", "[x, y].jpg", "-L", "Films", "--project", "A/B", "--json",
              "--port", "0", "--tags", "red,blue car", "last.jpg"});
  EXPECT_EQ(arguments.root, "/r");
  EXPECT_EQ(arguments.port, 0);
  EXPECT_TRUE(arguments.json);
  const auto& import = std::get<ImportCommand>(arguments.command);
  EXPECT_THAT(import.paths, ElementsAre("a b", "[x, y].jpg", "last.jpg"));
  EXPECT_EQ(import.library, "Films");
  EXPECT_EQ(import.project, "A/B");
  EXPECT_THAT(import.tags, ElementsAre("red", "blue car"));
  EXPECT_FALSE(import.reference || import.resume || import.hidden);
}

TEST(Arguments, KeepsTheSearchTextAsTyped) {
  EXPECT_EQ(std::get<SearchCommand>(parsed({"search", ""}).command).text, "");
  EXPECT_EQ(std::get<SearchCommand>(parsed({"search"}).command).text, "");
  EXPECT_EQ(std::get<SearchCommand>(parsed({"search", "\"red car\" OR [1]"}).command).text,
            "\"red car\" OR [1]");
  auto ofTypes = std::get<SearchCommand>(
      parsed({"search", "--type", "video,audio", "--type", "image", "--", "-x"}).command);
  EXPECT_EQ(ofTypes.text, "-x");
  EXPECT_THAT(ofTypes.types, testing::ElementsAre("video", "audio", "image"));
  EXPECT_EQ(std::get<SearchCommand>(parsed({"search", "[1]", "red", "--trash", "car"}).command).text,
            "[1] red car");
}

TEST(Arguments, ReadsThePortFromTheEnvironmentUnlessGiven) {
  setenv("VORNEX_PORT", "4711", 1);
  EXPECT_EQ(parsed({"status"}).port, 4711);
  EXPECT_EQ(parsed({"status", "--port", "1"}).port, 1);
  setenv("VORNEX_PORT", "many", 1);
  EXPECT_EQ(exitCode({"status"}), 2);
  unsetenv("VORNEX_PORT");
  EXPECT_EQ(parsed({"status"}).port, 38317);
}

TEST(Arguments, MistakesInUsageEndWithTwo) {
  const std::vector<std::vector<const char*>> mistakes{{},
                                                       {"frobnicate"},
                                                       {"library"},
                                                       {"library", "create"},
                                                       {"library", "create", "A", "B", "--name", "C"},
                                                       {"import"},
                                                       {"import", "x", "--target", "/t"},
                                                       {"import", "x", "--reference", "--verify"},
                                                       {"search", "x", "--type", "sculpture"},
                                                       {"search", "x", "--page", "-1"},
                                                       {"search", "x", "--limit", "0"},
                                                       {"search", "x", "--descending"},
                                                       {"asset", "show"},
                                                       {"asset", "tag", "x"},
                                                       {"asset", "tag", "x", "--clear", "--set", "a"},
                                                       {"asset", "label", "pink", "x"},
                                                       {"asset", "rate", "6", "x"},
                                                       {"asset", "flag"},
                                                       {"serve", "--port", "65536"},
                                                       {"status", "surplus"}};
  for (const auto& words : mistakes) {
    EXPECT_EQ(exitCode(words), 2) << testing::PrintToString(words);
  }
}

TEST(Arguments, HelpAndVersionEndWellAtEveryLevel) {
  for (const auto& words : std::vector<std::vector<const char*>>{{"--help"},
                                                                 {"--version"},
                                                                 {"import", "--help"},
                                                                 {"library", "--help"},
                                                                 {"library", "create", "-h"}}) {
    EXPECT_EQ(exitCode(words), 0) << testing::PrintToString(words);
  }
  EXPECT_THAT(std::get<EarlyEnd>(parse({"import", "--help"})).text, HasSubstr("--reference"));
}

}  // namespace
}  // namespace vornex::cli
