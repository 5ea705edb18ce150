#include "integration/store/tracedactor.h"

#include "support/strace.h"

#include <algorithm>

namespace KELP::Test {

TracedActor::TracedActor(const std::string& calls) {
  actor_.emplace(tracer({"-s", "200", "-o", directory_ / "trace", "-e", "trace=write," + calls}));
}

void TracedActor::mark(const std::string& name) {
  actor_->ask("echo mark:" + name);
}

std::vector<std::string> TracedActor::finish() {
  actor_->process().closeInput();
  EXPECT_EQ(actor_->process().wait(), 0);
  std::vector<std::string> calls;
  for (const TraceLine& line : readTrace(directory_ / "trace")) {
    calls.push_back(line.call);
  }
  return calls;
}

std::vector<std::string> TracedActor::between(const std::vector<std::string>& calls,
                                              const std::string& from, const std::string& to) {
  const auto place = [&](const std::string& mark) {
    return std::find_if(calls.begin(), calls.end(), [&](const std::string& call) {
      return call.starts_with("write(1, \"mark:" + mark + "\\n\"");
    });
  };
  const auto begin = from.empty() ? calls.begin() : place(from);
  const auto end = to.empty() ? calls.end() : place(to);
  EXPECT_TRUE(begin < calls.end() && begin <= end) << "marks are missing in the trace";
  if (begin > end) return {};
  std::vector<std::string> result;
  std::copy_if(begin, end, std::back_inserter(result),
               [](const std::string& call) { return !call.starts_with("write(1, "); });
  return result;
}

}  // namespace KELP::Test
