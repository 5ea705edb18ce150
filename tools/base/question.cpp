#include "base/question.h"

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/output.h"
#include "base/progress.h"

#include <unistd.h>

#include <cstdio>

namespace KELP::Tool {
namespace {

/** Where a question is put. */
class QuestionStream {
 public:
  QuestionStream() {
    if (!errorsAreTerminal()) {
      terminal_ = std::fopen("/dev/tty", "we");
      if (terminal_ == nullptr) {
        throw Failure(ExitStatus::Usage, "there is no terminal to ask on: -y is needed");
      }
    }
  }
  ~QuestionStream() {
    if (terminal_ != nullptr) {
      static_cast<void>(std::fclose(terminal_));
    }
  }
  QuestionStream(const QuestionStream&) = delete;
  QuestionStream& operator=(const QuestionStream&) = delete;

  void write(std::string_view text) const {
    std::FILE* const stream = terminal_ != nullptr ? terminal_ : stderr;
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stream));
    static_cast<void>(std::fflush(stream));
  }

 private:
  std::FILE* terminal_ = nullptr;  ///< Unless it is the standard error.
};

}  // namespace

bool canAsk() {
  return ::isatty(STDIN_FILENO) == 1;
}

bool confirmed(std::string_view text) {
  Progress::hide();
  flushOutput();
  const QuestionStream question;
  question.write(text);
  question.write(" [y/N] ");
  waitUntilReady(STDIN_FILENO, POLLIN);
  const int answer = std::fgetc(stdin);
  int rest = answer;
  while (rest != '\n' && rest != EOF) {
    rest = std::fgetc(stdin);
  }
  checkInterrupt();
  if (rest == EOF) {
    question.write("\n");  // Nobody ended the line.
  }
  return answer == 'y' || answer == 'Y';
}

}  // namespace KELP::Tool
