#include "faults/soak/journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <system_error>
#include <utility>

namespace KELP::Test::Soak {
namespace {

/** Stands at the end of a whole entry. A killed process may leave a part of one: the kernel looks
 * for the signal at the border of a page. */
constexpr std::string_view kWhole = " .";
constexpr std::int64_t kBlock = 1 << 20;

std::optional<Entry> parse(std::string_view line) {
  if (!line.ends_with(kWhole)) {
    return std::nullopt;
  }
  std::istringstream words{std::string(line.substr(0, line.size() - kWhole.size()))};
  Entry entry{};
  char kind = 0;
  words >> entry.who >> kind >> entry.id;
  if (!words) {
    return std::nullopt;
  }
  entry.kind = static_cast<Kind>(kind);
  words.get();
  std::getline(words, entry.text);
  return entry;
}

int openJournal(const std::filesystem::path& path, int flags) {
  const int file = ::open(path.c_str(), flags | O_CLOEXEC, 0600);
  if (file < 0) {
    throw std::system_error(errno, std::system_category(), path);
  }
  return file;
}

}  // namespace

std::vector<std::string> Entry::words() const {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

Journal::Journal(const std::filesystem::path& path, std::string who)
    : who_(std::move(who)), file_(openJournal(path, O_WRONLY | O_APPEND | O_CREAT)) {}

Journal::~Journal() {
  ::close(file_);
}

void Journal::write(Kind kind, const std::string& id, const std::string& text) const {
  writeFor(who_, kind, id, text);
}

void Journal::writeFor(const std::string& who, Kind kind, const std::string& id,
                       const std::string& text) const {
  // The line feed in front ends what a killed process has begun.
  std::string line = "\n" + who + ' ' + static_cast<char>(kind) + ' ' + id + ' ';
  for (const char c : text) {
    line += c == '\n' ? ' ' : c;
  }
  line += kWhole;
  line += '\n';
  if (::write(file_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    throw std::system_error(errno, std::system_category(), "journal");
  }
}

JournalReader::JournalReader(const std::filesystem::path& path)
    : file_(openJournal(path, O_RDWR | O_CREAT)) {}

JournalReader::~JournalReader() {
  ::close(file_);
}

std::optional<Entry> JournalReader::next() {
  for (;;) {
    const std::size_t lineEnd = buffer_.find('\n', position_);
    if (lineEnd == std::string::npos) {
      if (!readMore()) {
        return std::nullopt;
      }
      continue;
    }
    const std::string_view line = std::string_view(buffer_).substr(position_, lineEnd - position_);
    auto entry = parse(line);
    position_ = lineEnd + 1;
    if (entry) {
      return entry;
    }
  }
}

bool JournalReader::readMore() {
  buffer_.erase(0, std::exchange(position_, 0));
  const std::size_t kept = buffer_.size();
  buffer_.resize(kept + kBlock);
  const ssize_t count = ::pread(file_, buffer_.data() + kept, kBlock, end_);
  buffer_.resize(kept + static_cast<std::size_t>(count > 0 ? count : 0));
  if (count <= 0) {
    return false;
  }
  end_ += count;
  if (end_ - freed_ >= 2 * kBlock) {  // Where that is not possible, the file only grows.
    ::fallocate(file_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, freed_, end_ - freed_ - kBlock);
    freed_ = end_ - kBlock;
  }
  return true;
}

}  // namespace KELP::Test::Soak
