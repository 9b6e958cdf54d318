#include "support/InteractionRecorderRig.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::InteractionRecorderRig;
using testing::Shortcut;

// The key of a US keyboard that writes a character, and whether with Shift.
std::pair<std::uint16_t, bool> keyOf(char character) {
  static const std::map<char, std::pair<std::uint16_t, bool>> others = {
      {' ', {KEY_SPACE, false}}, {'!', {KEY_1, true}},          {'@', {KEY_2, true}},
      {'-', {KEY_MINUS, false}}, {'.', {KEY_DOT, false}},       {'0', {KEY_0, false}},
      {'&', {KEY_7, true}},      {';', {KEY_SEMICOLON, false}}, {'_', {KEY_MINUS, true}}};
  static const std::string letters = "abcdefghijklmnopqrstuvwxyz";
  static const std::uint16_t letterKeys[] = {KEY_A, KEY_B, KEY_C, KEY_D, KEY_E, KEY_F, KEY_G, KEY_H, KEY_I,
                                             KEY_J, KEY_K, KEY_L, KEY_M, KEY_N, KEY_O, KEY_P, KEY_Q, KEY_R,
                                             KEY_S, KEY_T, KEY_U, KEY_V, KEY_W, KEY_X, KEY_Y, KEY_Z};
  if (character >= '1' && character <= '9')
    return {static_cast<std::uint16_t>(KEY_1 + (character - '1')), false};
  const auto byte = static_cast<unsigned char>(character);
  if (std::isalpha(byte) != 0)
    return {letterKeys[letters.find(static_cast<char>(std::tolower(byte)))], std::isupper(byte) != 0};
  return others.at(character);
}

std::string lowercase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
  return text;
}

std::string lettersOf(const std::string& text) {
  std::string letters;
  std::copy_if(text.begin(), text.end(), std::back_inserter(letters),
               [](unsigned char byte) { return std::isalnum(byte) != 0; });
  return letters;
}

class InteractionPrivacyTest : public ::testing::Test, protected InteractionRecorderRig {
 protected:
  // As a person types, each key held long enough to repeat now and then.
  void type(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto [key, isShifted] = keyOf(text[i]);
      if (isShifted)
        source.key(KEY_LEFTSHIFT);
      source.key(key, {.shift = isShifted});
      if (i % 3 == 0)
        source.key(key, {.shift = isShifted}, true);
      scheduler.advance(90ms);
    }
    typed.push_back(text);
  }

  // The bytes of every file in the session's directory, whatever its name.
  std::string everyByte() const {
    std::ostringstream bytes;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path()))
      if (entry.is_regular_file())
        bytes << entry.path().filename().string() << '\n' << std::ifstream(entry.path()).rdbuf() << '\n';
    return bytes.str();
  }

  // Four characters of the text that stand together in a file, or are the keys of shortcuts that follow each
  // other; empty when there are none.
  std::string traceOf(const std::string& text) {
    const std::string bytes = lowercase(everyByte());
    std::string keys;
    for (const Shortcut& shortcut : shortcuts())
      keys += lowercase(shortcut.back());
    for (const auto& [secret, haystack] :
         {std::pair{lowercase(text), bytes}, std::pair{lettersOf(lowercase(text)), keys}})
      for (std::size_t i = 0; i + 4 <= secret.size(); ++i)
        if (haystack.find(secret.substr(i, 4)) != std::string::npos)
          return secret.substr(i, 4);
    return {};
  }

  void expectNoTraceOfTypedText() {
    ASSERT_THAT(everyByte(), ::testing::HasSubstr("shortcut"));
    ASSERT_FALSE(typed.empty());
    for (const std::string& text : typed)
      EXPECT_EQ(traceOf(text), "") << text;
  }

  std::vector<std::string> typed;
};

TEST_F(InteractionPrivacyTest, LeavesNothingOfPlainTypingAndCapitals) {
  begin();
  source.key(KEY_T, {.control = true});
  type("Tr0ub4dor-Jumper2");
  type("CAPITALS_OF&Symbols!");
  type("me@example.zq;");
  type("of words"); // the key between words writes nothing of them
  source.key(KEY_ENTER);
  source.key(KEY_S, {.command = true});
  recorder->finish();
  EXPECT_THAT(shortcuts(), ElementsAre(Shortcut{"Control", "T"}, Shortcut{"Space"}, Shortcut{"Return"},
                                       Shortcut{"Command", "S"}));
  expectNoTraceOfTypedText();
}

TEST_F(InteractionPrivacyTest, LeavesNothingOfAPasswordField) {
  begin();
  source.key(KEY_TAB);
  source.setSecureInput(true);
  type("correct horse 9battery staple");
  source.key(KEY_A, {.control = true}); // shortcuts in the field are secret too
  source.key(KEY_BACKSPACE);
  source.key(KEY_V, {.command = true});
  type("Xq7zv8");
  source.key(KEY_ENTER);
  source.setSecureInput(false);
  source.key(KEY_F5);
  recorder->finish();
  EXPECT_THAT(shortcuts(), ElementsAre(Shortcut{"Tab"}, Shortcut{"F5"}));
  expectNoTraceOfTypedText();
  for (const RecordingShortcutUpdate& update : updates)
    EXPECT_TRUE(!update.keys || update.keys == Shortcut{"Tab"} || update.keys == Shortcut{"F5"});
}

TEST_F(InteractionPrivacyTest, LeavesNothingOfAPause) {
  begin();
  source.key(KEY_F5);
  recorder->pauseSegment();
  type("secrecyofapause");
  source.key(KEY_P, {.command = true});
  recorder->startSegment(1000, std::nullopt);
  source.key(KEY_F6);
  recorder->finish();
  type("afterwards");
  source.key(KEY_Q, {.command = true});
  EXPECT_THAT(shortcuts(), ElementsAre(Shortcut{"F5"}, Shortcut{"F6"}));
  expectNoTraceOfTypedText();
}

TEST_F(InteractionPrivacyTest, ShowsNothingOfTypingToTheBadge) {
  begin();
  const std::size_t before = updates.size();
  type("nothingtobeseen");
  EXPECT_EQ(updates.size(), before);
}

TEST_F(InteractionPrivacyTest, MakesNoFileButTheTrace) {
  begin();
  type("word");
  recorder->finish();
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path()))
    names.push_back(entry.path().filename());
  EXPECT_THAT(names, ElementsAre("interaction-events.jsonl"));
}

TEST_F(InteractionPrivacyTest, SearchFindsWhatDoesReachAFile) {
  begin();
  for (const std::uint16_t key : {KEY_L, KEY_E, KEY_A, KEY_K, KEY_F5})
    source.key(key, {.control = true});
  EXPECT_EQ(traceOf("a Leak."), "leak");
  EXPECT_EQ(traceOf("tight"), "");
  directory.write("notes.txt", "so tight");
  EXPECT_EQ(traceOf("tight"), "tigh");
}

} // namespace
} // namespace tessarin
