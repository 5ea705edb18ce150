#include "faults/sweep/ledger.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>

namespace KELP::Test {

struct Ledger::Page {
  pid_t process;
  bool begun;
  bool ended;
  Outcome::Kind kind;
  int code;
  int descriptorsBefore;
  int descriptorsAfter;
  std::size_t size;
  char text[60'000];  ///< Texts that each end in a NUL: the outcome's, then each line's two.

  void add(std::string_view some) {
    const std::size_t count = std::min(some.size(), sizeof text - size - 1);
    std::memcpy(text + size, some.data(), count);
    size += count;
    text[size++] = '\0';
  }
};

Ledger::Ledger(const std::filesystem::path& file, bool fresh) {
  const int descriptor =
      ::open(file.c_str(), O_RDWR | O_CLOEXEC | (fresh ? O_CREAT | O_TRUNC : 0), 0600);
  if (descriptor < 0 || ::ftruncate(descriptor, sizeof(Page)) != 0) {
    throw std::system_error(errno, std::system_category(), file.string());
  }
  void* const place =
      ::mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  ::close(descriptor);
  if (place == MAP_FAILED) {
    throw std::system_error(errno, std::system_category(), "mmap");
  }
  page_ = static_cast<Page*>(place);
}

Ledger::~Ledger() {
  ::munmap(page_, sizeof(Page));
}

void Ledger::begin() {
  page_->process = ::getpid();
  page_->begun = true;
}

void Ledger::end(const Outcome& outcome, const std::vector<LogLine>& lines) {
  page_->kind = outcome.kind;
  page_->code = outcome.code;
  page_->add(outcome.text);
  for (const LogLine& line : lines) {
    page_->add(std::to_string(line.priority));
    page_->add(line.tag);
    page_->add(line.text);
  }
  page_->ended = true;
}

void Ledger::close(int descriptorsBefore, int descriptorsAfter) {
  page_->descriptorsBefore = descriptorsBefore;
  page_->descriptorsAfter = descriptorsAfter;
}

void Ledger::clear() {
  *page_ = Page{};
}

Report Ledger::read() const {
  Report report{page_->process,
                page_->begun,
                page_->ended,
                {page_->kind, "", page_->code},
                {},
                page_->descriptorsBefore,
                page_->descriptorsAfter};
  const char* at = page_->text;
  const auto next = [&] {
    const std::string text = at;
    at += text.size() + 1;
    return text;
  };
  report.outcome.text = next();
  while (at < page_->text + page_->size) {
    const int priority = std::stoi(next());
    std::string tag = next();
    report.lines.push_back({priority, std::move(tag), next()});
  }
  return report;
}

}  // namespace KELP::Test
