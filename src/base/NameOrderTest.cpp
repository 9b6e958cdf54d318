#include "base/NameOrder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tessarin {
namespace {

// Each name before all those behind it, and after all those before.
void expectOrder(const std::vector<std::string>& names) {
  for (std::size_t i = 0; i < names.size(); ++i)
    for (std::size_t j = 0; j < names.size(); ++j)
      EXPECT_EQ(compareNames(names[i], names[j]), i <=> j) << names[i] << " | " << names[j];
}

TEST(NameOrder, NumbersCountByTheirValue) {
  expectOrder({"Mic 2", "Mic 10", "Mic 10a", "Mic 11", "Mic 100", "Mic 18446744073709551616",
               "Mic 18446744073709551617"});
  expectOrder({"2", "10", "a"});
  expectOrder({"Mic 1 Port 9", "Mic 1 Port 10", "Mic 02", "Mic 2", "Mic 3"});
  expectOrder({"Mic 0", "Mic 00", "Mic 1"});
}

TEST(NameOrder, CaseDecidesLast) {
  expectOrder({"alpha", "Alpha", "ALPHA", "beta", "Beta", "betA 2"});
  expectOrder({"a", "A", "b", "B"});
  expectOrder({"\u043C\u0438\u043A", "\u041C\u0438\u043A", "\u042F"});
  expectOrder({"\u03B1", "\u0391", "\u03B2"});
}

TEST(NameOrder, AccentsDecideBeforeCase) {
  expectOrder({"resume", "Resume", "r\u00E9sum\u00E9", "R\u00E9sum\u00E9", "resumee"});
  expectOrder(
      {"Kamera", "Kamera A", "Kamera \u00C4", "Kamera B", "Kamera \u0160", "Kamera T", "Kamera \u017D"});
  expectOrder({"o", "o\u0308", "\u00F6", "p"});
  expectOrder({"\u0410", "\u0435", "\u0451", "\u0436"});
}

TEST(NameOrder, AShorterNameComesFirst) {
  expectOrder({"", " ", "1", "a", "a ", "aa"});
}

TEST(NameOrder, NamesInOtherScriptsAndBrokenOnesHaveAnOrder) {
  expectOrder({"mic", "\u30DE\u30A4\u30AF", "\u30DE\u30A4\u30AF2", "\u9EA6", "\xFF", "\U0001F3A4"});
}

} // namespace
} // namespace tessarin
