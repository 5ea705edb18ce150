#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

/**
 * @file
 * The test program defines `unlinkat` itself, so that tests see what the library removes, and act
 * as another process that is quick enough to come between two of its steps. While no spy lives, the
 * function does what the system's does.
 */
namespace KELP::Test {

/** Records what is removed, by the name that is given for it. One lives at a time. */
class RemovalSpy {
 public:
  RemovalSpy();
  ~RemovalSpy();
  RemovalSpy(const RemovalSpy&) = delete;
  RemovalSpy& operator=(const RemovalSpy&) = delete;

  /** The names of what was removed so far, oldest first. */
  [[nodiscard]] const std::vector<std::string>& names() const { return names_; }
  /** Called after each removal, with the name, before the library learns of it. */
  void afterEach(std::function<void(const std::string&)> action) { action_ = std::move(action); }

  // For the function that stands in for the system's.
  void removed(const std::string& name);

 private:
  std::vector<std::string> names_;
  std::function<void(const std::string&)> action_;
};

}  // namespace KELP::Test
