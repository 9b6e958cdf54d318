#include "modules/accessibility/FocusTracker.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace tessarin::accessibility {
namespace {

const AccessibleObject plain{":1.1", "/plain"};
const AccessibleObject password{":1.1", "/password"};
const AccessibleObject other{":1.2", "/other"};
constexpr FieldAnswer isFocusedPassword{.isPassword = true, .hasFocus = true};
constexpr FieldAnswer isFocusedPlain{.isPassword = false, .hasFocus = true};
constexpr FieldAnswer isPasswordWithoutFocus{.isPassword = true, .hasFocus = false};

class FocusTrackerTest : public testing::Test {
 protected:
  struct Asked {
    AccessibleObject field;
    std::uint64_t question;
  };

  // The question to that field, which must be the newest.
  std::uint64_t questionTo(const AccessibleObject& field) const {
    EXPECT_FALSE(asked.empty());
    EXPECT_EQ(asked.back().field, field);
    return asked.back().question;
  }
  void answer(const AccessibleObject& field, FieldAnswer answer) {
    tracker.answered(questionTo(field), answer);
  }
  void focusPlain() {
    tracker.focusGained(plain);
    answer(plain, isFocusedPlain);
  }
  void focusPassword() {
    tracker.focusGained(password);
    answer(password, isFocusedPassword);
  }

  std::vector<Asked> asked;
  bool canAsk = true;
  FocusTracker tracker{[this](const AccessibleObject& field, std::uint64_t question) {
    asked.push_back({field, question});
    return canAsk;
  }};
};

TEST_F(FocusTrackerTest, NothingIsFocusedAtFirst) {
  EXPECT_FALSE(tracker.isPasswordFocused());
  EXPECT_FALSE(tracker.needsChecking());
  EXPECT_FALSE(tracker.isAsking());
  tracker.checkAll();
  EXPECT_TRUE(asked.empty());
}

TEST_F(FocusTrackerTest, AFieldCountsAsSecretUntilItHasSaidWhatItIs) {
  tracker.focusGained(plain);
  EXPECT_TRUE(tracker.isPasswordFocused());
  EXPECT_FALSE(tracker.isKnownPasswordFocused());
  EXPECT_TRUE(tracker.isAsking());
  answer(plain, isFocusedPlain);
  EXPECT_FALSE(tracker.isPasswordFocused());
  EXPECT_FALSE(tracker.isAsking());
  EXPECT_FALSE(tracker.needsChecking());
}

TEST_F(FocusTrackerTest, APasswordIsFocusedUntilItLosesTheFocus) {
  focusPassword();
  EXPECT_TRUE(tracker.isPasswordFocused());
  EXPECT_TRUE(tracker.isKnownPasswordFocused());
  EXPECT_TRUE(tracker.needsChecking());
  tracker.focusLost(plain);
  EXPECT_TRUE(tracker.isPasswordFocused());
  tracker.focusLost(password);
  EXPECT_FALSE(tracker.isPasswordFocused());
  EXPECT_FALSE(tracker.isKnownPasswordFocused());
}

TEST_F(FocusTrackerTest, AnotherFieldOfTheApplicationTakesTheFocusWithoutAWordOfTheFirst) {
  focusPassword();
  focusPlain();
  EXPECT_FALSE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, AnAnswerToAnOldQuestionIsIgnored) {
  tracker.focusGained(password);
  const auto old = questionTo(password);
  tracker.focusGained(plain);
  tracker.answered(old, isFocusedPassword);
  answer(plain, isFocusedPlain);
  tracker.answered(old, isFocusedPassword);
  tracker.late(old);
  tracker.refused(old);
  EXPECT_FALSE(tracker.isPasswordFocused());
  tracker.focusGained(password);
  const auto lost = questionTo(password);
  tracker.focusLost(password);
  tracker.answered(lost, isFocusedPassword);
  EXPECT_FALSE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, AnApplicationIsBelievedAtFirstAndAskedAfterwards) {
  tracker.focusGained(password);
  answer(password, isPasswordWithoutFocus);
  EXPECT_TRUE(tracker.isPasswordFocused());
  tracker.checkAll();
  answer(password, isPasswordWithoutFocus);
  EXPECT_FALSE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, WhatIsFoundMustSayThatItHasTheFocus) {
  tracker.foundFocused(password);
  answer(password, isPasswordWithoutFocus);
  EXPECT_FALSE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, ALaterFindIsTheBetterOneButForAPassword) {
  tracker.foundFocused(plain);
  const auto first = questionTo(plain);
  tracker.foundFocused(password);
  tracker.answered(first, isFocusedPlain);
  answer(password, isFocusedPassword);
  tracker.foundFocused(plain);
  EXPECT_EQ(asked.size(), 2U);
  EXPECT_TRUE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, WhatIsFoundAgainIsAskedAgainOnlyWhenItHadLostTheFocus) {
  tracker.foundFocused(plain);
  answer(plain, isFocusedPlain);
  tracker.foundFocused(plain);
  EXPECT_EQ(asked.size(), 1U);
  EXPECT_FALSE(tracker.isPasswordFocused());

  tracker.foundFocused(password);
  answer(password, isPasswordWithoutFocus);
  EXPECT_FALSE(tracker.isPasswordFocused());
  tracker.foundFocused(password);
  EXPECT_TRUE(tracker.isPasswordFocused());
  answer(password, isFocusedPassword);
  tracker.foundFocused(password);
  EXPECT_EQ(asked.size(), 3U);
  EXPECT_TRUE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, WhatTheApplicationTellsIsNewerThanWhatIsFound) {
  focusPlain();
  tracker.foundFocused(password);
  EXPECT_EQ(asked.size(), 1U);
  EXPECT_FALSE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, AWindowThatGetsOrLosesTheKeyboardHasItsFieldAskedAnew) {
  focusPassword();
  tracker.windowChanged(":1.1");
  answer(password, isPasswordWithoutFocus);
  EXPECT_FALSE(tracker.isPasswordFocused());
  tracker.windowChanged(":1.1");
  answer(password, isFocusedPassword);
  EXPECT_TRUE(tracker.isPasswordFocused());
  tracker.windowChanged(":1.9");
  EXPECT_EQ(asked.size(), 3U);
}

TEST_F(FocusTrackerTest, AnotherApplicationNeitherHidesThePasswordNorLeavesItUnasked) {
  focusPassword();
  tracker.focusGained(other);
  ASSERT_EQ(asked.size(), 3U);
  EXPECT_EQ(asked[1].field, other);
  EXPECT_EQ(asked[2].field, password);
  tracker.answered(asked[1].question, isFocusedPlain);
  EXPECT_TRUE(tracker.isPasswordFocused());
  tracker.answered(asked[2].question, isFocusedPassword);
  EXPECT_TRUE(tracker.isPasswordFocused());
  tracker.focusLost(other);
  EXPECT_TRUE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, OneThatDoesNotAnswerSaysNothingUntilItDoes) {
  focusPassword();
  tracker.checkAll();
  tracker.late(questionTo(password));
  EXPECT_FALSE(tracker.isPasswordFocused());
  EXPECT_TRUE(tracker.needsChecking());
  tracker.checkAll();
  EXPECT_FALSE(tracker.isPasswordFocused());
  answer(password, isFocusedPassword);
  EXPECT_TRUE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, AnOpenQuestionIsNotAskedAgain) {
  focusPassword();
  tracker.checkAll();
  tracker.checkAll();
  EXPECT_EQ(asked.size(), 2U);
}

TEST_F(FocusTrackerTest, AFieldOrAnApplicationThatIsGoneHasNoFocus) {
  focusPassword();
  tracker.checkAll();
  tracker.refused(questionTo(password));
  EXPECT_FALSE(tracker.isPasswordFocused());
  focusPassword();
  tracker.applicationGone(":1.2");
  EXPECT_TRUE(tracker.isPasswordFocused());
  tracker.applicationGone(":1.1");
  EXPECT_FALSE(tracker.isPasswordFocused());
  focusPassword();
  tracker.clear();
  EXPECT_FALSE(tracker.isPasswordFocused());
  EXPECT_FALSE(tracker.needsChecking());
}

TEST_F(FocusTrackerTest, AFieldMayBecomeAPasswordAndCeaseToBeOne) {
  focusPlain();
  tracker.kindChanged(password);
  EXPECT_EQ(asked.size(), 1U);
  tracker.kindChanged(plain);
  answer(plain, isFocusedPassword);
  EXPECT_TRUE(tracker.isPasswordFocused());
  tracker.kindChanged(plain);
  answer(plain, isFocusedPlain);
  EXPECT_FALSE(tracker.isPasswordFocused());
}

TEST_F(FocusTrackerTest, AFieldThatCannotBeAskedSaysNothing) {
  canAsk = false;
  tracker.focusGained(password);
  EXPECT_FALSE(tracker.isPasswordFocused());
  EXPECT_FALSE(tracker.isAsking());
}

} // namespace
} // namespace tessarin::accessibility
