// What of a person's typing is left by a recording of the built program: every byte of the session's files
// and of what the program says is searched.

#include "InteractionsFixture.hpp"

#include "support/PrivateAccessibility.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>

namespace tessarin {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

const std::vector<std::uint16_t> wordKeys = {KEY_J, KEY_Q, KEY_X, KEY_Z, KEY_K,
                                             KEY_W, KEY_P, KEY_0, KEY_8, KEY_1};
const std::string word = "jqxzkwp081";
const std::string capitals = "JQXZKWP)*!";

class RecordingPrivacyTest : public InteractionsFixture {
 protected:
  // A window with fields, which has the keyboard, and the accessibility that knows of them.
  void openFields(const std::string& field) {
    accessibility = std::make_unique<PrivateAccessibility>(desktop);
    fields = std::make_unique<TestEntry>(*accessibility, field);
  }
  void record() {
    recording = start({}, accessibility ? accessibility->environment() : RecordingProcess::Environment());
    recording->waitFor("recording");
    std::this_thread::sleep_for(aWhile);
  }

  void type(const std::vector<std::uint16_t>& heldKeys = {}) {
    for (const std::uint16_t key : wordKeys)
      input.chord(heldKeys, key);
  }
  // Shortcuts that would be recorded anywhere else.
  void useShortcuts() {
    input.chord({KEY_LEFTCTRL}, KEY_V);
    input.chord({KEY_LEFTALT, KEY_LEFTSHIFT}, KEY_J);
    input.tap(KEY_HOME);
    input.tap(KEY_F9);
  }
  // As a person does: when what was typed has come to where it belongs, and some time before going on.
  void focus(const std::string& field) {
    std::this_thread::sleep_for(aWhile);
    fields->command("focus " + field);
    std::this_thread::sleep_for(aWhile);
  }

  // Ends the recording; what is left has these shortcuts, and none of what was typed in any form.
  void expectOnly(const Shortcuts& expected) {
    complete(*recording);
    EXPECT_EQ(shortcuts(), expected);
    const std::map<std::string, std::string> everything = everythingLeft(*recording);
    EXPECT_THAT(everything, Contains(::testing::Key(tracePath())));
    EXPECT_THAT(everything, Contains(::testing::Key(session() + "/screen.mp4")));
    for (const auto& [name, bytes] : everything) {
      EXPECT_FALSE(containsWord(bytes)) << name;
      EXPECT_TRUE(name == tracePath() || bytes.find("\"keys\"") == std::string::npos) << name;
    }
    const std::string& lines = everything.at(tracePath());
    for (const std::uint16_t key : wordKeys)
      expectLabelOnlyIn(expected, label(key), lines);
  }

  std::unique_ptr<PrivateAccessibility> accessibility;
  std::unique_ptr<TestEntry> fields;
  std::unique_ptr<RecordingProcess> recording;

  static constexpr auto theMark = "F6";

 private:
  static std::string label(std::uint16_t key) {
    const auto at = std::find(wordKeys.begin(), wordKeys.end(), key) - wordKeys.begin();
    return {static_cast<char>(std::toupper(word[static_cast<std::size_t>(at)]))};
  }
  // In letters of either case, together or as labels of one key each.
  static bool containsWord(const std::string& bytes) {
    std::string labels;
    for (const char each : capitalWord())
      labels += (labels.empty() ? "" : ",") + std::string("\"") + each + '"';
    for (const std::string& form : {word, capitals, capitalWord(), labels})
      if (bytes.find(form) != std::string::npos)
        return true;
    return false;
  }
  static std::string capitalWord() {
    std::string text = word;
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char each) { return std::toupper(each); });
    return text;
  }
  static void expectLabelOnlyIn(const Shortcuts& expected, const std::string& label,
                                const std::string& lines) {
    std::ptrdiff_t count = 0;
    for (const auto& keys : expected)
      count += std::count(keys.begin(), keys.end(), label);
    std::ptrdiff_t found = 0;
    const std::string quoted = '"' + label + '"';
    for (std::size_t at = lines.find(quoted); at != std::string::npos; at = lines.find(quoted, at + 1))
      ++found;
    EXPECT_EQ(found, count) << label;
  }
};

TEST_F(RecordingPrivacyTest, NothingIsLeftOfPlainTyping) {
  openFields("plain");
  record();
  type();
  type({KEY_LEFTSHIFT});
  type({KEY_RIGHTSHIFT});
  awaitMark();
  expectOnly({{theMark}});
  EXPECT_TRUE(becomes([&] { return fields->text("plain") == word + capitals + capitals; })) << "it was typed";
}

TEST_F(RecordingPrivacyTest, NothingIsLeftOfAPasswordAndItsShortcuts) {
  openFields("plain");
  record();
  focus("password");
  type();
  useShortcuts();
  focus("plain");
  useShortcuts();
  awaitMark();
  expectOnly({{"Control", "V"}, {"Option", "Shift", "J"}, {"Home"}, {"F9"}, {theMark}});
  EXPECT_TRUE(becomes([&] { return fields->text("password") == word; })) << "it was typed";
}

TEST_F(RecordingPrivacyTest, APasswordFieldThatHadTheKeyboardBeforeIsOneToo) {
  openFields("password");
  record();
  type();
  useShortcuts();
  focus("plain");
  awaitMark();
  expectOnly({{theMark}});
  EXPECT_TRUE(becomes([&] { return fields->text("password") == word; })) << "it was typed";
}

TEST_F(RecordingPrivacyTest, NothingIsLeftOfWhatIsTypedWhileAnotherProgramHasTheKeyboard) {
  openFields("plain");
  record();
  KeyboardHolder holder(desktop);
  holder.command("grab");
  type();
  useShortcuts();
  holder.command("ungrab");
  std::this_thread::sleep_for(aWhile);
  awaitMark();
  expectOnly({{theMark}});
  EXPECT_EQ(fields->text("plain"), "") << "the other program had it all";
}

TEST_F(RecordingPrivacyTest, WithoutAccessibilityTypingAndTakenKeyboardsArePrivateStill) {
  record();
  type();
  type({KEY_LEFTSHIFT});
  KeyboardHolder holder(desktop);
  holder.command("grab");
  type();
  useShortcuts();
  holder.command("ungrab");
  std::this_thread::sleep_for(aWhile);
  useShortcuts();
  awaitMark();
  expectOnly({{"Control", "V"}, {"Option", "Shift", "J"}, {"Home"}, {"F9"}, {theMark}});
}

TEST_F(RecordingPrivacyTest, AHeldKeyIsOneShortcut) {
  desktop.run({"xset", "r", "rate", "200", "50"});
  openFields("plain");
  record();
  input.key(KEY_F8, true);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  input.key(KEY_F8, false);
  input.key(KEY_LEFTCTRL, true);
  input.key(KEY_K, true);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  input.key(KEY_K, false);
  input.key(KEY_LEFTCTRL, false);
  input.key(KEY_W, true);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  input.key(KEY_W, false);
  awaitMark();
  EXPECT_GE(fields->text("plain").size(), 3U) << "the key was repeated";
  expectOnly({{"F8"}, {"Control", "K"}, {theMark}});
}

TEST_F(RecordingPrivacyTest, LabelsAreThoseOfTheKeysWhateverTheLayout) {
  desktop.run({"setxkbmap", "de"});
  openFields("plain");
  record();
  input.chord({KEY_LEFTCTRL}, KEY_Y); // writes a z
  input.chord({KEY_LEFTCTRL, KEY_LEFTSHIFT}, KEY_SEMICOLON);
  input.chord({KEY_RIGHTALT}, KEY_Q); // AltGr: writes an @
  input.tap(KEY_Y);
  awaitMark();
  EXPECT_TRUE(becomes([&] { return fields->text("plain") == "@z"; })) << fields->text("plain");
  desktop.run({"setxkbmap", "us", "-variant", "dvorak"});
  std::this_thread::sleep_for(aWhile);
  fields->command("clear");
  input.tap(KEY_J);
  EXPECT_TRUE(becomes([&] { return fields->text("plain") == "h"; })) << fields->text("plain");
  input.chord({KEY_LEFTMETA}, KEY_J);
  input.chord({KEY_LEFTALT}, KEY_Q);
  awaitMark(KEY_F7, "F7");
  expectOnly(
      {{"Control", "Y"}, {"Control", "Shift", ";"}, {theMark}, {"Command", "J"}, {"Option", "Q"}, {"F7"}});
}

} // namespace
} // namespace tessarin
