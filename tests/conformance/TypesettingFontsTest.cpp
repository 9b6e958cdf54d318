#include "program/Program.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

// The module with other fonts than the machine's, in a process of its own, since a process reads once which
// fonts there are.
namespace tessarin {
namespace {

using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

const std::string helveticas = "/usr/share/fonts/opentype/urw-base35";
const std::string asians = "/usr/share/fonts/opentype/noto";
const std::string others = "/usr/share/fonts/truetype/dejavu";

const std::vector<std::string> latin = {
    "Control  +  Option  +  Shift  +  Command  +  Forward Delete", "Page Up", "F12", "`", "\\", "]"};

const auto hasInk = Each(AllOf(HasSubstr("ink="), Not(HasSubstr("ink=0 "))));

class TypesettingFontsTest : public testing::Test {
 protected:
  // A line for each text.
  std::vector<std::string> set(const std::vector<std::string>& texts, const std::vector<std::string>& fonts,
                               std::vector<std::pair<std::string, std::string>> environment = {}) {
    std::string description =
        "<?xml version=\"1.0\"?><!DOCTYPE fontconfig SYSTEM \"urn:fontconfig:fonts.dtd\">"
        "<fontconfig><include ignore_missing=\"yes\">/etc/fonts/conf.d</include>"
        "<cachedir>/var/cache/fontconfig</cachedir><cachedir>" +
        directory.path() + "/cache</cachedir>";
    for (const std::string& each : fonts) {
      EXPECT_TRUE(std::filesystem::is_directory(each)) << each;
      description += "<dir>" + each + "</dir>";
    }
    environment.emplace_back("FONTCONFIG_FILE", directory.write("fonts.conf", description + "</fontconfig>"));
    environment.emplace_back("XDG_DATA_HOME", directory.path());
    return run(texts, std::move(environment));
  }

  static std::vector<std::string> run(const std::vector<std::string>& texts,
                                      std::vector<std::pair<std::string, std::string>> environment) {
    std::vector<std::string> arguments = {TESSARIN_MODULE_DIRECTORY};
    arguments.insert(arguments.end(), texts.begin(), texts.end());
    const ProgramResult result = runProgram(arguments, {.environment = std::move(environment)});
    EXPECT_EQ(result.exitStatus, 0) << result.signal << ' ' << result.diagnostics;
    std::vector<std::string> answers;
    std::istringstream stream(result.output);
    for (std::string answer; std::getline(stream, answer);)
      answers.push_back(answer);
    EXPECT_THAT(answers, SizeIs(texts.size()));
    return answers;
  }

  const TemporaryDirectory directory;
};

TEST_F(TypesettingFontsTest, setsKeysAlikeWithAndWithoutAsianFonts) {
  const auto without = set(latin, {helveticas, others});
  EXPECT_EQ(set(latin, {helveticas, others, asians}), without);
  EXPECT_EQ(set(latin, {helveticas, asians}), without);
  EXPECT_THAT(without, hasInk);
}

TEST_F(TypesettingFontsTest, replacesAFontThatIsNotInstalled) {
  const auto replaced = set(latin, {others});
  EXPECT_THAT(replaced, hasInk);
  EXPECT_NE(replaced, set(latin, {helveticas}));
  // Latin letters come from a Latin font still, beside Chinese ones too.
  EXPECT_EQ(set(latin, {others, asians}), replaced);
  EXPECT_THAT(set(latin, {asians}), hasInk);
}

TEST_F(TypesettingFontsTest, setsChineseWithAndWithoutItsFonts) {
  const std::vector<std::string> texts = {"返回", "Command  +  骨"};
  const auto with = set(texts, {helveticas, asians});
  const auto without = set(texts, {helveticas});
  EXPECT_THAT(with, hasInk);
  // Signs that stand for characters without a font.
  EXPECT_THAT(without, hasInk);
  EXPECT_NE(with, without);
}

TEST_F(TypesettingFontsTest, failsWithoutAnyFont) {
  EXPECT_THAT(set({"Command", "返回", ""}, {}), Each("text could not be set"));
  const std::string empty = directory.write(
      "empty.conf", "<!DOCTYPE fontconfig SYSTEM \"urn:fontconfig:fonts.dtd\"><fontconfig></fontconfig>");
  EXPECT_THAT(run({"Command", "返回", ""}, {{"FONTCONFIG_FILE", empty}}), Each("text could not be set"));
}

TEST_F(TypesettingFontsTest, doesNotAskTheLanguageOfTheSession) {
  std::vector<std::string> texts = latin;
  texts.insert(texts.end(), {"骨直角", "Command  +  返回"});
  const auto plain = set(texts, {helveticas, asians}, {{"LC_ALL", "C"}});
  for (const char* name : {"LC_ALL", "LANG", "LANGUAGE", "PANGO_LANGUAGE"})
    EXPECT_EQ(set(texts, {helveticas, asians}, {{name, "ja_JP.UTF-8"}}), plain) << name;
}

} // namespace
} // namespace tessarin
