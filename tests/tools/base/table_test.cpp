// Tables that do not go to a terminal. What a terminal sees is tested with the verbs.

#include "base/table.h"

#include <gmock/gmock.h>

#include <clocale>
#include <string>

namespace KELP::Tool {
namespace {

using Align = Table::Align;

class TableTest : public testing::Test {
 protected:
  TableTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }

  static std::string printed(const Table& table, bool withHeadings) {
    testing::internal::CaptureStdout();
    table.print(withHeadings);
    flushOutput();
    return testing::internal::GetCapturedStdout();
  }
};

TEST_F(TableTest, AlignsColumnsUnderHeadings) {
  Table table({{"NAME"}, {"SIZE", Align::Right}, {"NOTE"}});
  table.add({std::string("a"), std::string("1000000"), std::string("short")});
  table.add({std::string("longer"), std::string("1"), std::string("")});
  EXPECT_EQ(printed(table, true),
            "NAME       SIZE  NOTE\n"
            "a       1000000  short\n"
            "longer        1  \n");
}

TEST_F(TableTest, IsAsNarrowAsItsCellsWithoutHeadings) {
  Table table({{"A LONG HEADING"}, {"X"}});
  table.add({std::string("a"), std::string("b")});
  EXPECT_EQ(printed(table, false), "a  b\n");
  EXPECT_EQ(printed(table, true), "A LONG HEADING  X\na               b\n");
}

TEST_F(TableTest, CountsColumnsOfTheTerminalAndNotBytes) {
  Table table({{"A"}, {"B"}});
  table.add({std::string("日本"), std::string("1")});
  table.add({std::string("äöü"), std::string("2")});
  EXPECT_EQ(printed(table, false), "日本  1\näöü   2\n");
}

TEST_F(TableTest, HasNoStylesAndShortensNothingOffTheTerminal) {
  const std::string longText(500, 'x');
  Table table({{"A", Align::Left, true}});
  table.add({Table::Cell(longText, Style::Red)});
  EXPECT_EQ(printed(table, true), "A\n" + longText + "\n");
}

TEST_F(TableTest, PrintsNothingWithoutRows) {
  EXPECT_EQ(printed(Table({{"A"}, {"B"}}), true), "");
}

}  // namespace
}  // namespace KELP::Tool
