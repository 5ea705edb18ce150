#pragma once

#include "integration/store/actor.h"

#include <optional>

namespace KELP::Test {

/** An actor whose system calls are written down by strace. */
class TracedActor {
 public:
  /** @p calls are the names of the calls, separated by commas. */
  explicit TracedActor(const std::string& calls);

  Actor& actor() { return *actor_; }

  /** Marks a place in the record of the calls. */
  void mark(const std::string& name);

  /** Ends the actor and reads its calls, one a line, without its process id. Call it last. */
  std::vector<std::string> finish();

  /** Those of @p calls between two marks; an empty name is the beginning or the end. */
  [[nodiscard]] static std::vector<std::string> between(const std::vector<std::string>& calls,
                                                        const std::string& from,
                                                        const std::string& to);

 private:
  const TemporaryDirectory directory_;
  std::optional<Actor> actor_;
};

}  // namespace KELP::Test
