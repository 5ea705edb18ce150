#pragma once

#include <locale>
#include <string>

namespace KELP::Test {

/** Sets the process's C++ locale, as long as it lives, to one that writes numbers in its own way.
 */
class PointLocale {
 public:
  /** @param point what stands before the fraction.
   *  @param separator what stands between groups of three digits; NUL for no groups. */
  explicit PointLocale(char point, char separator = '\0')
      : before_(
            std::locale::global(std::locale(std::locale::classic(), new Form(point, separator)))) {}
  ~PointLocale() { std::locale::global(before_); }
  PointLocale(const PointLocale&) = delete;
  PointLocale& operator=(const PointLocale&) = delete;

 private:
  class Form : public std::numpunct<char> {
   public:
    Form(char point, char separator) : point_(point), separator_(separator) {}

   protected:
    [[nodiscard]] char do_decimal_point() const override { return point_; }
    [[nodiscard]] char do_thousands_sep() const override { return separator_; }
    [[nodiscard]] std::string do_grouping() const override {
      return separator_ == '\0' ? "" : "\3";
    }

   private:
    char point_;
    char separator_;
  };

  std::locale before_;
};

}  // namespace KELP::Test
