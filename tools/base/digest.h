#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace KELP::Tool {

/** The SHA-256 of what is added, piece by piece. */
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void add(std::string_view piece);

  /** Of all that was added, in 64 lower-case hexadecimal digits. Begins anew. */
  [[nodiscard]] std::string take();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/** Of one text. */
[[nodiscard]] std::string sha256Of(std::string_view text);

}  // namespace KELP::Tool
